#pragma once

// Writes one movie file through the AVIFile calls: 24-bit frames, stored bottom-up, go into a
// video stream compressed with the codec chosen in the system's compression dialog (or with
// zeroed options: the platform's default). Internal to the library (exported for its tests);
// one object per export, on the GUI thread.

#include "ImageWriterExport.h"
#include "kaWinVideo.h"

#include <cstdint>
#include <string>

class IMAGEWRITER_EXPORT kaAviWriter {
public:
    // Fills the frame format; calls nothing.
    kaAviWriter(const std::string& fileName, int width, int height, uint32_t frameRate);
    kaAviWriter(const kaAviWriter&) = delete;
    kaAviWriter& operator=(const kaAviWriter&) = delete;

    // Opens the file and prepares the compressed stream, showing the codec dialog unless
    // 'noDialog' or without a GUI. False after logging why (nothing is logged when the user
    // cancels the dialog).
    bool initialize(bool noDialog);
    // Appends one frame of getBitmapHeader().biSizeImage bytes as a key frame; the frame
    // counter advances also when the write fails.
    bool addFrame(const void* frame);
    // Releases the streams and the file (each only if present) and leaves AVIFile; always
    // true.
    bool close();

    const BITMAPINFOHEADER& getBitmapHeader() const { return _bitmap; }
    int32_t getFrameCounter() const { return _frameCounter; }

private:
    std::string _fileName;
    uint32_t _frameRate;
    BITMAPINFOHEADER _bitmap;
    int32_t _frameCounter = 0;
    PAVIFILE _file = nullptr;
    PAVISTREAM _stream = nullptr;
    PAVISTREAM _compressed = nullptr;
};
