#pragma once

// PNG files written by libpng around image data compressed on every core: libpng writes the
// signature and every chunk (IHDR, iCCP, pHYs, the text chunks, the IDAT chunks that carry the
// stream, IEND); the rows are filtered here and compressed by OSGParallelDeflate_p.h.

#include "OSGImage.h"
#include "OSGParallelDeflate_p.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace osg::png {

// The PNG filter types used (PNG filter method 0).
enum class RowFilter : uint8_t { None = 0, Sub = 1 };

// The filter every row gets at zlib 'level'.
RowFilter rowFilterFor(int level);

// The rows of an image as a PNG stream holds them before compression: top row first, each one
// its filter-type byte and the filtered bytes, 16-bit values big-endian. Any range of them can
// be read from several threads at once; the image must stay unchanged meanwhile.
class FilteredRows {
public:
    FilteredRows(const Image& image, RowFilter filter);

    size_t size() const { return _stride * size_t(_height); }
    // Bytes of one row in the stream: the filter-type byte and the row's bytes.
    size_t stride() const { return _stride; }
    void read(size_t offset, size_t count, uint8_t* out) const;

private:
    void filterRow(size_t fileRow, uint8_t* out) const;

    const uint8_t* _pixels; // level 0 of the image, bottom row first
    size_t _rowBytes, _stride;
    int32_t _height;
    size_t _pixelBytes; // bytes of a whole pixel: how far back Sub looks
    bool _swapBytes;    // 16-bit values of this machine's order, PNG's being big-endian
    RowFilter _filter;
};

struct PNGOptions {
    int level = 1;                    // zlib level 0..9
    const std::string* xmp = nullptr; // the XMP packet to embed, if any
    DeflateSlicing slicing;           // how the rows are cut for the threads
    // Called once everything before the pixels is written, before they are compressed: an
    // output that gathers writes sends them on here, so that a disk that takes nothing is found
    // before the work. False stops the write as a failed write does.
    std::function<bool()> headerDone;
};

// Why 'image' can't be written as it is ("" when it can): PNG takes 8- and 16-bit values of
// gray, gray and alpha, RGB and RGBA (alpha alone is written as gray) with straight alpha.
std::string unwritablePNGBecause(const Image& image);

// Writes 'image' as a PNG stream to 'write': the image's ICC profile ("ICCProfile" attachment,
// as iCCP), its resolution when it is in inches (pHYs), its comment ("Comment", as the
// "Description" text that OpenImageIO reads as ImageDescription; iTXt when it is not ASCII)
// and the XMP packet (iTXt "XML:com.adobe.xmp"). A profile that libpng refuses for the image (an
// RGB profile on gray pixels) fails the write with libpng's reason; one it only warns about and
// leaves out is reported as a warning that names 'name'. False with 'error' on a failure of
// libpng or zlib; false with 'error' empty when 'write' returned false. Thread-safe for
// different images; uses the compression threads (deflateThreads()).
bool writePNG(const Image& image, const PNGOptions& options, const StreamWriter& write,
              const std::string& name, std::string& error);

// The same into memory: 'bytes' holds the whole file afterwards (false with the reason, "not
// enough memory" included).
bool encodePNG(const Image& image, const PNGOptions& options, std::vector<uint8_t>& bytes,
               std::string& error);

} // namespace osg::png
