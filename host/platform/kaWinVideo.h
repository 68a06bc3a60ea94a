#pragma once

// The Video for Windows AVIFile calls a movie export makes, with their Windows signatures,
// types and error codes. On Windows the system's own functions are used. Elsewhere they are
// written on FFmpeg (libavformat, libavcodec, libswscale):
// - the container follows the file's extension: .avi, .mp4, .mkv, .mov (another one has no
//   handler: REGDB_E_CLASSNOTREG);
// - the file is written beside its name and moved into place when it is released complete
//   (kaAtomicFile), so its name never holds half a movie;
// - zeroed compression options take the container's default (kaWinVideoCodecs): for AVI the
//   uncompressed bottom-up 24-bit frames Windows writes, stored as given;
// - a chosen codec (its FOURCC in fccHandler) encodes with the quality (0..10000) and the
//   key-frame distance of the options, in the pixel format it takes (RGB when it can hold it,
//   else 4:2:0 with BT.709 limited-range signalling);
// - FFmpeg's failures come back as the AVIERR codes Windows gives for them.
// Calls come from one thread at a time (the GUI thread); AVISaveOptions shows a Qt dialog.
#ifdef _WIN32
#include <vfw.h>
#include <windows.h>
#else

#include <cstdint>

using BOOL = int;
using UINT = unsigned int;
using LONG = int32_t;
using ULONG = uint32_t;
using DWORD = uint32_t;
using WORD = uint16_t;
using HRESULT = int32_t;
using LPVOID = void*;
using LPCSTR = const char*;
using FOURCC = DWORD;
struct KA_HWND;
using HWND = KA_HWND*;
struct _GUID;
using CLSID = _GUID;

#ifndef TRUE
#define TRUE 1
#define FALSE 0
#endif

struct RECT {
    LONG left, top, right, bottom;
};
BOOL SetRect(RECT* rect, int left, int top, int right, int bottom);

constexpr FOURCC mmioFOURCC(char a, char b, char c, char d) {
    return FOURCC(uint8_t(a)) | FOURCC(uint8_t(b)) << 8 | FOURCC(uint8_t(c)) << 16 |
           FOURCC(uint8_t(d)) << 24;
}

struct BITMAPINFOHEADER {
    DWORD biSize;
    LONG biWidth;
    LONG biHeight; // positive: the rows are stored bottom-up
    WORD biPlanes;
    WORD biBitCount;
    DWORD biCompression;
    DWORD biSizeImage;
    LONG biXPelsPerMeter;
    LONG biYPelsPerMeter;
    DWORD biClrUsed;
    DWORD biClrImportant;
};
constexpr DWORD BI_RGB = 0;

struct AVISTREAMINFOA {
    DWORD fccType;
    DWORD fccHandler;
    DWORD dwFlags;
    DWORD dwCaps;
    WORD wPriority;
    WORD wLanguage;
    DWORD dwScale;
    DWORD dwRate; // dwRate / dwScale samples a second
    DWORD dwStart;
    DWORD dwLength;
    DWORD dwInitialFrames;
    DWORD dwSuggestedBufferSize;
    DWORD dwQuality;
    DWORD dwSampleSize;
    RECT rcFrame;
    DWORD dwEditCount;
    DWORD dwFormatChangeCount;
    char szName[64];
};
using AVISTREAMINFO = AVISTREAMINFOA;

struct AVICOMPRESSOPTIONS {
    DWORD fccType;
    DWORD fccHandler; // the codec; 0 takes the container's default
    DWORD dwKeyFrameEvery;
    DWORD dwQuality; // 1..10000; 0 for the codec's usual default (7500)
    DWORD dwBytesPerSecond;
    DWORD dwFlags;
    LPVOID lpFormat;
    DWORD cbFormat;
    LPVOID lpParms;
    DWORD cbParms;
    DWORD dwInterleaveEvery;
};
using LPAVICOMPRESSOPTIONS = AVICOMPRESSOPTIONS*;

struct IAVIFile;
struct IAVIStream;
using PAVIFILE = IAVIFile*;
using PAVISTREAM = IAVIStream*;

constexpr DWORD streamtypeVIDEO = mmioFOURCC('v', 'i', 'd', 's');
constexpr UINT OF_WRITE = 0x00000001;
constexpr UINT OF_CREATE = 0x00001000;
constexpr DWORD AVIIF_KEYFRAME = 0x00000010;
constexpr DWORD AVICOMPRESSF_KEYFRAMES = 0x00000004;
constexpr DWORD AVICOMPRESSF_VALID = 0x00000008;

constexpr HRESULT kaHResult(uint32_t code) {
    return HRESULT(code);
}
constexpr HRESULT AVIERR_OK = 0;
constexpr HRESULT AVIERR_UNSUPPORTED = kaHResult(0x80044065);
constexpr HRESULT AVIERR_BADFORMAT = kaHResult(0x80044066);
constexpr HRESULT AVIERR_MEMORY = kaHResult(0x80044067);
constexpr HRESULT AVIERR_INTERNAL = kaHResult(0x80044068);
constexpr HRESULT AVIERR_BADFLAGS = kaHResult(0x80044069);
constexpr HRESULT AVIERR_BADPARAM = kaHResult(0x8004406A);
constexpr HRESULT AVIERR_BADSIZE = kaHResult(0x8004406B);
constexpr HRESULT AVIERR_BADHANDLE = kaHResult(0x8004406C);
constexpr HRESULT AVIERR_FILEREAD = kaHResult(0x8004406D);
constexpr HRESULT AVIERR_FILEWRITE = kaHResult(0x8004406E);
constexpr HRESULT AVIERR_FILEOPEN = kaHResult(0x8004406F);
constexpr HRESULT AVIERR_COMPRESSOR = kaHResult(0x80044070);
constexpr HRESULT AVIERR_NOCOMPRESSOR = kaHResult(0x80044071);
constexpr HRESULT AVIERR_READONLY = kaHResult(0x80044072);
constexpr HRESULT AVIERR_NODATA = kaHResult(0x80044073);
constexpr HRESULT AVIERR_BUFFERTOOSMALL = kaHResult(0x80044074);
constexpr HRESULT AVIERR_CANTCOMPRESS = kaHResult(0x80044075);
constexpr HRESULT AVIERR_USERABORT = kaHResult(0x800440C6);
constexpr HRESULT AVIERR_ERROR = kaHResult(0x800440C7);
constexpr HRESULT REGDB_E_CLASSNOTREG = kaHResult(0x80040154);

// The version of Video for Windows: 0x010A0000 (1.10).
DWORD VideoForWindowsVersion();
void AVIFileInit();
void AVIFileExit();
HRESULT AVIFileOpenA(PAVIFILE* file, LPCSTR name, UINT mode, CLSID* handler);
HRESULT AVIFileCreateStreamA(PAVIFILE file, PAVISTREAM* stream, AVISTREAMINFOA* info);
// Lets the user choose the codec of each stream; false when cancelled.
BOOL AVISaveOptions(HWND parent, UINT flags, int streams, PAVISTREAM* stream,
                    LPAVICOMPRESSOPTIONS* options);
HRESULT AVISaveOptionsFree(int streams, LPAVICOMPRESSOPTIONS* options);
HRESULT AVIMakeCompressedStream(PAVISTREAM* compressed, PAVISTREAM source,
                                AVICOMPRESSOPTIONS* options, CLSID* handler);
HRESULT AVIStreamSetFormat(PAVISTREAM stream, LONG position, LPVOID format, LONG size);
HRESULT AVIStreamWrite(PAVISTREAM stream, LONG start, LONG samples, LPVOID data, LONG bytes,
                       DWORD flags, LONG* samplesWritten, LONG* bytesWritten);
ULONG AVIStreamRelease(PAVISTREAM stream);
// The last release of a file finishes it: the stream is flushed, the container closed and the
// file moved to its name (or dropped, with the reason logged, when anything failed).
ULONG AVIFileRelease(PAVIFILE file);

#endif
