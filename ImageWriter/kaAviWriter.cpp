#include "kaAviWriter.h"

#include "kaController.h"
#include "kaLog.h"

#include <cstring>

namespace {

std::string openErrorText(HRESULT error) {
    switch (error) {
    case AVIERR_BADFORMAT:
        return "The file couldn't be read, indicating a corrupt file or an unrecognized format.";
    case AVIERR_MEMORY:
        return "The file could not be opened because of insufficient memory.";
    case AVIERR_FILEREAD:
        return "A disk error occurred while reading the file.";
    case AVIERR_FILEOPEN:
        return "A disk error occurred while opening the file.";
    case REGDB_E_CLASSNOTREG:
        return "According to the registry, the type of file specified in AVIFileOpen does not "
               "have a handler to process it";
    default:
        return std::string();
    }
}

std::string compressErrorText(HRESULT error) {
    switch (error) {
    case AVIERR_UNSUPPORTED:
        // Without a leading blank: the two sentences run together, as they always have.
        return "Compression is not supported for this type of data. This error might be "
               "returned if you try to compress data that is not audio or video.";
    case AVIERR_MEMORY:
        return " There is not enough memory to complete the operation.";
    case AVIERR_NOCOMPRESSOR:
        return " A suitable compressor cannot be found.";
    default:
        return std::string();
    }
}

bool failWith(const std::string& message) {
    kaLog::error("%s", message.c_str());
    return false;
}

} // namespace

kaAviWriter::kaAviWriter(const std::string& fileName, int width, int height, uint32_t frameRate)
    : _fileName(fileName)
    , _frameRate(frameRate) {
    std::memset(&_bitmap, 0, sizeof _bitmap);
    _bitmap.biSize = sizeof(BITMAPINFOHEADER);
    _bitmap.biWidth = width;
    _bitmap.biHeight = height;
    _bitmap.biPlanes = 1;
    _bitmap.biBitCount = 24;
    _bitmap.biCompression = BI_RGB;
    _bitmap.biSizeImage = DWORD(((width * 24 + 31) / 32) * 4 * height);
}

bool kaAviWriter::initialize(bool noDialog) {
    if (VideoForWindowsVersion() <= 0x0109FFFF)
        return failWith("Version of Video for Windows too old. Come on, join the 21th century");

    AVIFileInit();
    HRESULT result = AVIFileOpenA(&_file, _fileName.c_str(), OF_WRITE | OF_CREATE, nullptr);
    if (result != AVIERR_OK)
        return failWith("AVI Engine failed to initialize. Check filename " + _fileName + "." +
                        openErrorText(result));

    AVISTREAMINFO header;
    std::memset(&header, 0, sizeof header);
    header.fccType = streamtypeVIDEO;
    header.fccHandler = 0;
    header.dwScale = 1;
    header.dwRate = _frameRate;
    header.dwSuggestedBufferSize = _bitmap.biSizeImage;
    SetRect(&header.rcFrame, 0, 0, int(_bitmap.biWidth), int(_bitmap.biHeight));
    result = AVIFileCreateStreamA(_file, &_stream, &header);
    if (result != AVIERR_OK)
        return failWith(std::string("AVI Stream creation failed. Check Bitmap info.") +
                        (result == AVIERR_READONLY ? " Read only file." : ""));

    AVICOMPRESSOPTIONS options;
    std::memset(&options, 0, sizeof options);
    AVICOMPRESSOPTIONS* optionList[1] = {&options};
    if (!noDialog && !kaController::isNoGUI()) {
        if (!AVISaveOptions(nullptr, 0, 1, &_stream, optionList)) {
            AVISaveOptionsFree(1, optionList);
            return false;
        }
    }

    result = AVIMakeCompressedStream(&_compressed, _stream, &options, nullptr);
    if (result != AVIERR_OK)
        return failWith("AVI Compressed Stream creation failed." + compressErrorText(result));

    if (AVISaveOptionsFree(1, optionList) != AVIERR_OK) {
        kaLog::error("Error releasing memory\n");
        return false;
    }

    result =
        AVIStreamSetFormat(_compressed, 0, &_bitmap, LONG(_bitmap.biSize + _bitmap.biClrUsed * 4));
    if (result != AVIERR_OK)
        return failWith("AVI Compressed Stream format setting failed.");

    _frameCounter = 0;
    return true;
}

bool kaAviWriter::addFrame(const void* frame) {
    const HRESULT result =
        AVIStreamWrite(_compressed, _frameCounter, 1, const_cast<void*>(frame),
                       LONG(_bitmap.biSizeImage), AVIIF_KEYFRAME, nullptr, nullptr);
    ++_frameCounter;
    if (result != AVIERR_OK)
        return failWith("Unable to write data to stream.");
    return true;
}

bool kaAviWriter::close() {
    if (_stream) {
        AVIStreamRelease(_stream);
        _stream = nullptr;
    }
    if (_compressed) {
        AVIStreamRelease(_compressed);
        _compressed = nullptr;
    }
    if (_file) {
        AVIFileRelease(_file);
        _file = nullptr;
    }
    AVIFileExit();
    return true;
}
