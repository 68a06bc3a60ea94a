#pragma once

#include "OSGBaseTypes.h"
#include "OSGFieldContainer.h"

#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace osg {

// Pixel memory. Fresh buffers come from calloc: the system hands large ones out as untouched
// zero pages, so a big image costs nothing until its pixels are written (a render dialog makes
// all its pass images before the first pixel is rendered).
class PixelBuffer {
public:
    PixelBuffer() = default;
    PixelBuffer(const PixelBuffer& other) { assign(other.data(), other.size()); }
    PixelBuffer& operator=(const PixelBuffer& other) {
        if (this != &other)
            assign(other.data(), other.size());
        return *this;
    }
    PixelBuffer(PixelBuffer&&) noexcept = default;
    PixelBuffer& operator=(PixelBuffer&&) noexcept = default;

    // 'size' zero bytes; false (and empty) when there is no memory for them.
    bool allocate(size_t size);
    // A copy of 'size' bytes at 'data'; false (and empty) when there is no memory for them.
    bool assign(const uint8_t* data, size_t size);
    // Uses 'size' bytes at 'data' that someone else owns and keeps (no copy).
    void refer(uint8_t* data, size_t size) {
        _data.reset();
        _external = data;
        _size = data ? size : 0;
    }
    void clear();
    bool empty() const { return _size == 0; }
    size_t size() const { return _size; }
    uint8_t* data() { return _external ? _external : _data.get(); }
    const uint8_t* data() const { return _external ? _external : _data.get(); }
    void swap(PixelBuffer& other) noexcept {
        _data.swap(other._data);
        std::swap(_external, other._external);
        std::swap(_size, other._size);
    }

private:
    struct Free {
        void operator()(uint8_t* p) const { std::free(p); }
    };
    std::unique_ptr<uint8_t[], Free> _data;
    uint8_t* _external = nullptr;
    size_t _size = 0;
};

class Image;
using ImagePtr = RefPtr<Image>;

// A picture in memory, laid out as OpenGL takes it: rows from the bottom up, channels
// interleaved, one of the GL pixel formats and data types below. An image has mipmap levels,
// frames and sides (cube maps); getData() without arguments is level 0 of frame 0, side 0.
// Not synchronised: one thread changes an image at a time.
class Image : public FieldContainer {
public:
    enum PixelFormat {
        OSG_INVALID_PF = 0,
        OSG_A_PF = 0x1906,    // GL_ALPHA
        OSG_L_PF = 0x1909,    // GL_LUMINANCE
        OSG_LA_PF = 0x190A,   // GL_LUMINANCE_ALPHA
        OSG_RGB_PF = 0x1907,  // GL_RGB
        OSG_RGBA_PF = 0x1908, // GL_RGBA
        OSG_I_PF = 0x8049,    // GL_INTENSITY
    };
    enum Type {
        OSG_INVALID_IMAGEDATATYPE = 0,
        OSG_UINT8_IMAGEDATA = 0x1401,   // GL_UNSIGNED_BYTE
        OSG_UINT16_IMAGEDATA = 0x1403,  // GL_UNSIGNED_SHORT
        OSG_UINT32_IMAGEDATA = 0x1405,  // GL_UNSIGNED_INT
        OSG_FLOAT32_IMAGEDATA = 0x1406, // GL_FLOAT
        OSG_FLOAT16_IMAGEDATA = 0x140B, // GL_HALF_FLOAT
    };
    enum ResUnit { OSG_RESUNIT_INVALID = 0, OSG_RESUNIT_NONE = 1, OSG_RESUNIT_INCH = 2 };

    static ImagePtr create();
    const char* getTypeName() const override { return "Image"; }

    // (Re)creates the storage. 'data', when given, is copied (it must hold getSize() bytes of
    // the new layout); without it the pixels are zero when 'allocMemory', else the image has
    // no storage. Returns false, leaving an empty image, for an unknown format or type, a
    // negative size, or when the memory cannot be had.
    bool set(uint32_t pixelFormat, int32_t width, int32_t height = 1, int32_t depth = 1,
             int32_t mipmapCount = 1, int32_t frameCount = 1, double frameDelay = 0.0,
             const uint8_t* data = nullptr, int32_t type = OSG_UINT8_IMAGEDATA,
             bool allocMemory = true, int32_t sideCount = 1);

    // Makes the image a view of pixels it does not own: one level, one frame, 'data' holding
    // width x height pixels of the format and type, rows bottom-up. The owner keeps them while
    // the image uses them; changes of layout (reformat, conversions) make an own copy.
    bool setExternalData(uint32_t pixelFormat, int32_t width, int32_t height, int32_t type,
                         uint8_t* data);

    // Changes the pixel format, converting every pixel; into 'destination' when given (this
    // image is then unchanged). Missing colour channels repeat the luminance, a missing alpha
    // is opaque, luminance from colour uses Rec. 709 weights.
    bool reformat(PixelFormat pixelFormat, const ImagePtr& destination = ImagePtr());
    // Changes the data type, converting every value; 8- and 16-bit values map 0..max to 0..1,
    // floats are clamped to 0..1 when they go to an integer type (rounded to nearest).
    bool convertDataTypeTo(int32_t type);

    // Copies a block of pixels in this image's format and type, rows bottom-up, into level 0
    // of frame 0 at (offX, offY, offZ). The part outside the image is cut off.
    bool setSubData(int32_t offX, int32_t offY, int32_t offZ, int32_t srcW, int32_t srcH,
                    int32_t srcD, const uint8_t* data);
    // Faults the pages of a block of level 0 of frame 0 in, on every core, for a writer that
    // will fill the block from one thread: the first write of each fresh page costs a fault.
    // The block's pixels are undefined afterwards (the cut as for setSubData).
    void prepareToOverwrite(int32_t offX, int32_t offY, int32_t width, int32_t height);
    // Zeroes all pixels.
    void clear(uint8_t value = 0);

    uint8_t* getData(uint32_t mipmap = 0, uint32_t frame = 0, uint32_t side = 0);
    const uint8_t* getData(uint32_t mipmap = 0, uint32_t frame = 0, uint32_t side = 0) const;
    bool hasData() const { return !_pixel.empty(); }

    uint32_t getPixelFormat() const { return _pixelFormat; }
    int32_t getDataType() const { return _type; }
    int32_t getWidth() const { return _width; }
    int32_t getHeight() const { return _height; }
    int32_t getDepth() const { return _depth; }
    int32_t getMipMapCount() const { return _mipmapCount; }
    int32_t getFrameCount() const { return _frameCount; }
    int32_t getSideCount() const { return _sideCount; }
    double getFrameDelay() const { return _frameDelay; }
    // Channels per pixel and bytes per channel value.
    int32_t getComponents() const { return componentsOf(_pixelFormat); }
    int32_t getComponentSize() const { return componentSizeOf(_type); }
    int32_t getBpp() const { return getComponents() * getComponentSize(); }
    bool hasAlphaChannel() const;
    // What the alpha channel means to the colour channels: they hold the colour itself
    // (straight), colour times alpha (premultiplied, associated), or alpha is a channel of its
    // own that the others don't depend on (independent: render passes of data such as depths
    // or Cryptomatte ids). A fresh float image takes the host's convention for rendered float
    // pictures (floatAlphaPremultipliedByDefault); a fresh integer image holds straight colour,
    // as every integer file format with alpha expects. File types convert straight and
    // premultiplied pixels to the convention their format defines when they write.
    enum class AlphaMode { Straight, Premultiplied, Independent };
    AlphaMode getAlphaMode() const { return _alphaMode; }
    void setAlphaMode(AlphaMode mode) { _alphaMode = mode; }
    bool isAlphaPremultiplied() const { return _alphaMode == AlphaMode::Premultiplied; }
    void setAlphaPremultiplied(bool premultiplied) {
        _alphaMode = premultiplied ? AlphaMode::Premultiplied : AlphaMode::Straight;
    }
    // Turns the pixels into the other convention (colour times alpha, or colour divided by it,
    // where alpha is 0 colour 0) and marks the image; nothing for images without alpha, with
    // independent alpha, or already there. False when the format is unknown.
    bool premultiplyAlpha();
    bool unpremultiplyAlpha();
    // The convention of rendered float pictures (true at start). Safe from any thread.
    static bool floatAlphaPremultipliedByDefault();
    static void setFloatAlphaPremultipliedByDefault(bool premultiplied);
    bool isFloat() const {
        return _type == OSG_FLOAT32_IMAGEDATA || _type == OSG_FLOAT16_IMAGEDATA;
    }
    // Bytes of all levels, frames and sides; of one level-0 frame; of one level-0 row.
    size_t getSize() const { return _pixel.size(); }
    size_t getFrameSize() const { return _frameSize; }
    size_t getRowSize() const { return size_t(_width) * size_t(getBpp()); }

    float getResX() const { return _resX; }
    float getResY() const { return _resY; }
    uint16_t getResUnit() const { return _resUnit; }
    void setResX(float res) { _resX = res; }
    void setResY(float res) { _resY = res; }
    void setResUnit(uint16_t unit) { _resUnit = unit; }

    // One pixel of level 0, frame 0 as RGBA floats (0..1 for integer types; floats as they
    // are), (0, 0) being the lower-left corner. Missing colour channels repeat the luminance, a
    // missing alpha reads as 1. No bounds check: the caller keeps x and y inside the image.
    Color4f getPixel(int32_t x, int32_t y) const;
    // Writes the channels the format has; integer types are clamped and rounded.
    void setPixel(int32_t x, int32_t y, const Color4f& color);

    // One value of data type 'type' at 'p', as a float (integers map to 0..1), and back.
    static float readValue(const uint8_t* p, int32_t type);
    static void writeValue(uint8_t* p, int32_t type, float value);

    // Named text (or binary) values that travel with the image into files: "Comment", the
    // metadata packet, the colour profile.
    void setAttachmentField(const std::string& key, const std::string& value);
    // Null when absent.
    const std::string* findAttachmentField(const std::string& key) const;
    void removeAttachmentField(const std::string& key);
    const std::map<std::string, std::string>& getAttachmentFields() const { return _attachments; }

    // Writes the image with the file type chosen by the name's suffix.
    bool write(const char* fileName);

    // Channels and value size of a format or type; 0 when unknown.
    static int32_t componentsOf(uint32_t pixelFormat);
    static int32_t componentSizeOf(int32_t type);
    static const char* pixelFormatName(uint32_t pixelFormat);
    static const char* dataTypeName(int32_t type);

    // A copy with its own storage, attachments and resolution.
    ImagePtr clone() const;

protected:
    Image() = default;

private:
    size_t levelSize(int32_t level) const;
    size_t mipmapOffset(int32_t level) const;

    uint32_t _pixelFormat = OSG_INVALID_PF;
    int32_t _type = OSG_UINT8_IMAGEDATA;
    int32_t _width = 0, _height = 0, _depth = 0;
    int32_t _mipmapCount = 0, _frameCount = 0, _sideCount = 0;
    double _frameDelay = 0.0;
    size_t _frameSize = 0; // all mipmap levels of one frame
    PixelBuffer _pixel;
    float _resX = 72.0f, _resY = 72.0f;
    uint16_t _resUnit = OSG_RESUNIT_INCH;
    AlphaMode _alphaMode = AlphaMode::Straight;
    std::map<std::string, std::string> _attachments;
};

} // namespace osg
