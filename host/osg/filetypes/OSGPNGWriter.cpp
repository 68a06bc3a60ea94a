#include "OSGPNGWriter_p.h"

#include "OSGImageFileType.h"

#include "kaLog.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <vector>

namespace osg::png {

RowFilter rowFilterFor(int level) {
    // Stored data does not shrink whatever the filter. For every other level Sub alone:
    // measured on rendered pictures (the built-in scene at 4096 x 4096 from OpenGL, 2048 x 2048
    // raytraced), Sub made the smallest files at every level 1..9, and the usual adaptive
    // choice per row (least sum of absolute differences over all five filters) made them 5 to
    // 19 % larger while filtering eight times slower: the differences of dithered smooth
    // shading are small for every filter, and only Sub leaves the runs along a row that
    // deflate finds again.
    return level == 0 ? RowFilter::None : RowFilter::Sub;
}

FilteredRows::FilteredRows(const Image& image, RowFilter filter)
    : _pixels(image.getData())
    , _rowBytes(image.getRowSize())
    , _stride(image.getRowSize() + 1)
    , _height(image.getHeight())
    , _pixelBytes(size_t(image.getBpp()))
    , _swapBytes(image.getComponentSize() == 2 && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__)
    , _filter(filter) {}

void FilteredRows::filterRow(size_t fileRow, uint8_t* out) const {
    const uint8_t* row = _pixels + (size_t(_height) - 1 - fileRow) * _rowBytes;
    out[0] = uint8_t(_filter);
    uint8_t* bytes = out + 1;
    if (!_swapBytes) {
        if (_filter == RowFilter::None) {
            std::memcpy(bytes, row, _rowBytes);
            return;
        }
        const size_t first = std::min(_pixelBytes, _rowBytes);
        std::memcpy(bytes, row, first);
        for (size_t i = first; i < _rowBytes; ++i)
            bytes[i] = uint8_t(row[i] - row[i - _pixelBytes]);
        return;
    }
    for (size_t i = 0; i + 1 < _rowBytes; i += 2) {
        bytes[i] = row[i + 1];
        bytes[i + 1] = row[i];
    }
    // Backwards, so that every byte still subtracts the unfiltered one before it.
    if (_filter == RowFilter::Sub)
        for (size_t i = _rowBytes; i-- > _pixelBytes;)
            bytes[i] = uint8_t(bytes[i] - bytes[i - _pixelBytes]);
}

void FilteredRows::read(size_t offset, size_t count, uint8_t* out) const {
    std::vector<uint8_t> partial;
    size_t row = offset / _stride, skip = offset % _stride;
    while (count > 0) {
        const size_t take = std::min(_stride - skip, count);
        if (take == _stride) {
            filterRow(row, out);
        } else {
            partial.resize(_stride);
            filterRow(row, partial.data());
            std::memcpy(out, partial.data() + skip, take);
        }
        out += take;
        count -= take;
        skip = 0;
        ++row;
    }
}

namespace {

// libpng reports an error by a long jump out of its error handler. Every call into it is made
// from the small functions below, whose frames own nothing: the jump skips no destructor, and
// only these functions ever see it.
struct Session {
    png_structp png = nullptr;
    png_infop info = nullptr;
    const StreamWriter* write = nullptr;
    bool outputFailed = false;
    char error[256] = "";
    char warning[256] = "";
};

void onError(png_structp png, png_const_charp message) {
    auto* session = static_cast<Session*>(png_get_error_ptr(png));
    std::snprintf(session->error, sizeof session->error, "%s", message);
    png_longjmp(png, 1);
}

void onWarning(png_structp png, png_const_charp message) {
    auto* session = static_cast<Session*>(png_get_error_ptr(png));
    std::snprintf(session->warning, sizeof session->warning, "%s", message);
}

// After the first failed write the rest is dropped: libpng finishes on its usual path and the
// caller reads the output's error.
void onWrite(png_structp png, png_bytep data, size_t size) {
    auto* session = static_cast<Session*>(png_get_io_ptr(png));
    if (session->outputFailed)
        return;
    try {
        session->outputFailed = !(*session->write)(data, size);
    } catch (...) {
        session->outputFailed = true;
    }
}

void onFlush(png_structp) {}

// Everything of the file before the image data, as plain values.
struct Header {
    png_uint_32 width, height;
    int bitDepth, colorType;
    const std::string* profile;                   // null: none
    png_uint_32 pixelsPerMetreX, pixelsPerMetreY; // 0: no resolution
    png_text* texts;
    int textCount;
};

bool create(Session& session) {
    session.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &session, onError, onWarning);
    if (session.png)
        session.info = png_create_info_struct(session.png);
    return session.png && session.info;
}

// Sets up the header and writes the signature and every chunk before the image data.
// 'profileKept' says whether libpng took the profile.
bool writeHeader(Session& session, const Header& header, bool& profileKept) {
    if (setjmp(png_jmpbuf(session.png)))
        return false;
    png_set_write_fn(session.png, &session, onWrite, onFlush);
    // libpng's default limit (a million pixels a side) is narrower than the format's.
    png_set_user_limits(session.png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_IHDR(session.png, session.info, header.width, header.height, header.bitDepth,
                 header.colorType, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (header.profile) {
        png_set_iCCP(session.png, session.info, "Embedded Profile", PNG_COMPRESSION_TYPE_BASE,
                     reinterpret_cast<png_const_bytep>(header.profile->data()),
                     png_uint_32(header.profile->size()));
        profileKept = png_get_valid(session.png, session.info, PNG_INFO_iCCP) != 0;
    }
    if (header.pixelsPerMetreX > 0 && header.pixelsPerMetreY > 0)
        png_set_pHYs(session.png, session.info, header.pixelsPerMetreX, header.pixelsPerMetreY,
                     PNG_RESOLUTION_METER);
    if (header.textCount > 0)
        png_set_text(session.png, session.info, header.texts, header.textCount);
    png_write_info(session.png, session.info);
    return true;
}

bool writeChunk(Session& session, const char* type, const uint8_t* data, size_t size) {
    if (setjmp(png_jmpbuf(session.png)))
        return false;
    png_write_chunk(session.png, reinterpret_cast<png_const_bytep>(type), data, size);
    return true;
}

// Cuts the stream into IDAT chunks of a fixed size (the last one shorter); pieces of a full
// chunk or more go out without a copy.
class IdatChunks {
public:
    explicit IdatChunks(Session& session)
        : _session(session) {
        _pending.reserve(kChunk);
    }

    bool put(const uint8_t* data, size_t size) {
        while (size > 0) {
            if (_pending.empty() && size >= kChunk) {
                if (!send(data, kChunk))
                    return false;
                data += kChunk;
                size -= kChunk;
                continue;
            }
            const size_t take = std::min(size, kChunk - _pending.size());
            _pending.insert(_pending.end(), data, data + take);
            data += take;
            size -= take;
            if (_pending.size() == kChunk && !flush())
                return false;
        }
        return true;
    }

    bool flush() {
        if (_pending.empty())
            return true;
        const bool sent = send(_pending.data(), _pending.size());
        _pending.clear();
        return sent;
    }

private:
    // Readers take chunks of any length up to 2^31 - 1; a megabyte keeps the memory small.
    static constexpr size_t kChunk = size_t(1) << 20;

    bool send(const uint8_t* data, size_t size) {
        return writeChunk(_session, "IDAT", data, size) && !_session.outputFailed;
    }

    Session& _session;
    std::vector<uint8_t> _pending;
};

int colorTypeFor(uint32_t pixelFormat) {
    switch (pixelFormat) {
    case Image::OSG_LA_PF:
        return PNG_COLOR_TYPE_GRAY_ALPHA;
    case Image::OSG_RGB_PF:
        return PNG_COLOR_TYPE_RGB;
    case Image::OSG_RGBA_PF:
        return PNG_COLOR_TYPE_RGB_ALPHA;
    default:
        return PNG_COLOR_TYPE_GRAY;
    }
}

bool isAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

png_text textChunk(const char* key, const std::string& text, bool international) {
    png_text chunk{};
    chunk.compression = international ? PNG_ITXT_COMPRESSION_NONE : PNG_TEXT_COMPRESSION_NONE;
    chunk.key = const_cast<char*>(key);
    chunk.text = const_cast<char*>(text.c_str());
    chunk.text_length = international ? 0 : text.size();
    chunk.itxt_length = international ? text.size() : 0;
    chunk.lang = const_cast<char*>("");
    chunk.lang_key = const_cast<char*>("");
    return chunk;
}

} // namespace

std::string unwritablePNGBecause(const Image& image) {
    if (!image.getData() || image.getWidth() <= 0 || image.getHeight() <= 0)
        return "the image holds no pixels";
    if (image.getDataType() != Image::OSG_UINT8_IMAGEDATA &&
        image.getDataType() != Image::OSG_UINT16_IMAGEDATA)
        return "PNG files hold 8- or 16-bit values, not " +
               std::string(Image::dataTypeName(image.getDataType()));
    if (image.getComponents() < 1 || image.getComponents() > 4)
        return "PNG files hold gray, gray and alpha, RGB or RGBA pixels";
    return std::string();
}

bool writePNG(const Image& image, const PNGOptions& options, const StreamWriter& write,
              const std::string& name, std::string& error) {
    error = unwritablePNGBecause(image);
    if (!error.empty())
        return false;
    const int level = std::clamp(options.level, 0, 9);

    // What the text chunks point at lives here, outside the functions that may jump.
    std::vector<png_text> texts;
    if (options.xmp && !options.xmp->empty())
        texts.push_back(textChunk("XML:com.adobe.xmp", *options.xmp, true));
    const std::string* comment = image.findAttachmentField(kCommentAttachment);
    if (comment && !comment->empty())
        texts.push_back(textChunk("Description", *comment, !isAscii(*comment)));
    const std::string* profile = image.findAttachmentField(kICCProfileAttachment);
    if (profile && profile->empty())
        profile = nullptr;
    // pHYs counts whole pixels per metre: rounded, a resolution in dpi comes back within
    // 0.013 dpi.
    auto perMetre = [&](float dpi) {
        return image.getResUnit() == Image::OSG_RESUNIT_INCH && dpi > 0.0f
                   ? png_uint_32(std::min(std::lround(double(dpi) / 0.0254), long(PNG_UINT_31_MAX)))
                   : png_uint_32(0);
    };
    const Header header{png_uint_32(image.getWidth()),
                        png_uint_32(image.getHeight()),
                        image.getComponentSize() * 8,
                        colorTypeFor(image.getPixelFormat()),
                        profile,
                        perMetre(image.getResX()),
                        perMetre(image.getResY()),
                        texts.data(),
                        int(texts.size())};

    Session session;
    session.write = &write;
    struct Destroy {
        Session& session;
        ~Destroy() { png_destroy_write_struct(&session.png, &session.info); }
    } destroy{session};
    if (!create(session)) {
        error = "libpng could not start (not enough memory)";
        return false;
    }
    bool profileKept = true;
    bool ok = writeHeader(session, header, profileKept);
    if (ok && !profileKept)
        kaLog::warning("ImageFileType: '%s' is written without its colour profile: %s",
                       name.c_str(), session.warning[0] ? session.warning : "PNG can't hold it");

    if (ok && !session.outputFailed && options.headerDone && !options.headerDone())
        session.outputFailed = true;
    if (ok && !session.outputFailed) {
        const FilteredRows rows(image, rowFilterFor(level));
        IdatChunks chunks(session);
        std::string zlibError;
        ok = deflateInParallel(
                 rows.size(),
                 [&rows](size_t offset, size_t count, uint8_t* out) {
                     rows.read(offset, count, out);
                 },
                 level,
                 [&chunks](const uint8_t* data, size_t size) { return chunks.put(data, size); },
                 zlibError, options.slicing) &&
             chunks.flush();
        if (!zlibError.empty()) {
            error = zlibError;
            return false;
        }
    }
    // png_write_end() would refuse: libpng counts only the IDAT chunks it compressed itself.
    // The IEND chunk it writes is the same.
    ok = ok && !session.outputFailed && writeChunk(session, "IEND", nullptr, 0);
    if (!ok && !session.outputFailed && error.empty())
        error = session.error[0] ? std::string("libpng: ") + session.error : "libpng failed";
    return ok && !session.outputFailed;
}

bool encodePNG(const Image& image, const PNGOptions& options, std::vector<uint8_t>& bytes,
               std::string& error) {
    bytes.clear();
    bool full = false;
    const bool ok = writePNG(
        image, options,
        [&](const uint8_t* data, size_t size) {
            try {
                bytes.insert(bytes.end(), data, data + size);
                return true;
            } catch (const std::bad_alloc&) {
                full = true;
                return false;
            }
        },
        "memory", error);
    if (full)
        error = "not enough memory";
    return ok && !full;
}

} // namespace osg::png
