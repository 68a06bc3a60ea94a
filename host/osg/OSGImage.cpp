#include "OSGImage.h"

#include "OSGImageFileHandler.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <thread>

#include <sys/mman.h>
#include <unistd.h>

namespace osg {

ImagePtr Image::create() {
    return ImagePtr(new Image());
}

int32_t Image::componentsOf(uint32_t pixelFormat) {
    switch (pixelFormat) {
    case OSG_A_PF:
    case OSG_L_PF:
    case OSG_I_PF:
        return 1;
    case OSG_LA_PF:
        return 2;
    case OSG_RGB_PF:
        return 3;
    case OSG_RGBA_PF:
        return 4;
    default:
        return 0;
    }
}

int32_t Image::componentSizeOf(int32_t type) {
    switch (type) {
    case OSG_UINT8_IMAGEDATA:
        return 1;
    case OSG_UINT16_IMAGEDATA:
    case OSG_FLOAT16_IMAGEDATA:
        return 2;
    case OSG_UINT32_IMAGEDATA:
    case OSG_FLOAT32_IMAGEDATA:
        return 4;
    default:
        return 0;
    }
}

const char* Image::pixelFormatName(uint32_t pixelFormat) {
    switch (pixelFormat) {
    case OSG_A_PF:
        return "A";
    case OSG_L_PF:
        return "L";
    case OSG_LA_PF:
        return "LA";
    case OSG_RGB_PF:
        return "RGB";
    case OSG_RGBA_PF:
        return "RGBA";
    case OSG_I_PF:
        return "I";
    default:
        return "invalid";
    }
}

const char* Image::dataTypeName(int32_t type) {
    switch (type) {
    case OSG_UINT8_IMAGEDATA:
        return "uint8";
    case OSG_UINT16_IMAGEDATA:
        return "uint16";
    case OSG_UINT32_IMAGEDATA:
        return "uint32";
    case OSG_FLOAT16_IMAGEDATA:
        return "half";
    case OSG_FLOAT32_IMAGEDATA:
        return "float";
    default:
        return "invalid";
    }
}

bool Image::hasAlphaChannel() const {
    return _pixelFormat == OSG_RGBA_PF || _pixelFormat == OSG_LA_PF || _pixelFormat == OSG_A_PF;
}

size_t Image::levelSize(int32_t level) const {
    size_t w = std::max(1, _width >> level);
    size_t h = std::max(1, _height >> level);
    size_t d = std::max(1, _depth >> level);
    return w * h * d * size_t(getBpp());
}

size_t Image::mipmapOffset(int32_t level) const {
    size_t offset = 0;
    for (int32_t l = 0; l < level; ++l)
        offset += levelSize(l);
    return offset;
}

bool Image::set(uint32_t pixelFormat, int32_t width, int32_t height, int32_t depth,
                int32_t mipmapCount, int32_t frameCount, double frameDelay, const uint8_t* data,
                int32_t type, bool allocMemory, int32_t sideCount) {
    auto makeEmpty = [this] {
        _pixel.clear();
        _width = _height = _depth = _mipmapCount = _frameCount = _sideCount = 0;
        _frameSize = 0;
        return false;
    };
    if (componentsOf(pixelFormat) == 0 || componentSizeOf(type) == 0 || width < 0 || height < 0 ||
        depth < 0 || mipmapCount < 1 || frameCount < 1 || sideCount < 1) {
        _pixelFormat = OSG_INVALID_PF;
        return makeEmpty();
    }
    _pixelFormat = pixelFormat;
    _type = type;
    _alphaMode = isFloat() && floatAlphaPremultipliedByDefault() ? AlphaMode::Premultiplied
                                                                 : AlphaMode::Straight;
    _width = width;
    _height = height;
    _depth = depth;
    _mipmapCount = mipmapCount;
    _frameCount = frameCount;
    _sideCount = sideCount;
    _frameDelay = frameDelay;
    _frameSize = mipmapOffset(mipmapCount);

    // Guard the multiplication: frames and sides of huge images overflow size_t otherwise.
    size_t units = size_t(frameCount) * size_t(sideCount);
    if (_frameSize != 0 && units > std::numeric_limits<size_t>::max() / _frameSize)
        return makeEmpty();
    size_t total = _frameSize * units;
    // More than the machine has can never work; trying would let the kernel's overcommit accept
    // it and kill the process when the pixels are first touched.
    static const size_t physical = size_t(sysconf(_SC_PHYS_PAGES)) * size_t(sysconf(_SC_PAGESIZE));
    if ((data || allocMemory) && physical > 0 && total > physical)
        return makeEmpty();

    _pixel.clear();
    if (data && !_pixel.assign(data, total))
        return makeEmpty();
    if (!data && allocMemory && !_pixel.allocate(total))
        return makeEmpty();
    return true;
}

uint8_t* Image::getData(uint32_t mipmap, uint32_t frame, uint32_t side) {
    return const_cast<uint8_t*>(static_cast<const Image*>(this)->getData(mipmap, frame, side));
}

const uint8_t* Image::getData(uint32_t mipmap, uint32_t frame, uint32_t side) const {
    if (_pixel.empty() || int32_t(mipmap) >= _mipmapCount || int32_t(frame) >= _frameCount ||
        int32_t(side) >= _sideCount)
        return nullptr;
    size_t offset = (size_t(side) * _frameCount + frame) * _frameSize + mipmapOffset(mipmap);
    return _pixel.data() + offset;
}

namespace {

// Runs 'rows(from, to)' over rows [y0, y1), split among the cores when the rows hold 'bytes'
// of at least 4 MB: large blocks go to fresh memory in renders, the first write of each page
// costs a page fault, and faults are taken in parallel.
template <typename Rows>
void onEveryCore(int32_t y0, int32_t y1, size_t bytes, const Rows& rows) {
    const int threads =
        bytes < (size_t(4) << 20)
            ? 1
            : int(std::min<unsigned>(std::max(std::thread::hardware_concurrency(), 1u),
                                     unsigned(y1 - y0)));
    if (threads == 1) {
        rows(y0, y1);
        return;
    }
    std::vector<std::thread> helpers;
    const int32_t count = y1 - y0;
    for (int t = 1; t < threads; ++t)
        helpers.emplace_back(rows, y0 + count * t / threads, y0 + count * (t + 1) / threads);
    rows(y0, y0 + count / threads);
    for (std::thread& helper : helpers)
        helper.join();
}

} // namespace

bool Image::setSubData(int32_t offX, int32_t offY, int32_t offZ, int32_t srcW, int32_t srcH,
                       int32_t srcD, const uint8_t* data) {
    uint8_t* dst = getData();
    if (!dst || !data || srcW <= 0 || srcH <= 0 || srcD <= 0)
        return false;
    const size_t bpp = size_t(getBpp());
    // Cut the block to the image: only the part that overlaps is copied.
    const int32_t x0 = std::max(offX, 0), x1 = std::min(offX + srcW, _width);
    const int32_t y0 = std::max(offY, 0), y1 = std::min(offY + srcH, _height);
    const int32_t z0 = std::max(offZ, 0), z1 = std::min(offZ + srcD, std::max(_depth, 1));
    if (x0 >= x1 || y0 >= y1 || z0 >= z1)
        return true;
    const size_t rowBytes = size_t(x1 - x0) * bpp;
    auto copyRows = [&](int32_t z, int32_t from, int32_t to) {
        for (int32_t y = from; y < to; ++y) {
            const uint8_t* srcRow =
                data + ((size_t(z - offZ) * srcH + size_t(y - offY)) * srcW + (x0 - offX)) * bpp;
            uint8_t* dstRow = dst + ((size_t(z) * _height + y) * _width + x0) * bpp;
            std::memcpy(dstRow, srcRow, rowBytes);
        }
    };
    const size_t bytes = rowBytes * size_t(y1 - y0) * size_t(z1 - z0);
    for (int32_t z = z0; z < z1; ++z)
        onEveryCore(y0, y1, bytes, [&](int32_t from, int32_t to) { copyRows(z, from, to); });
    return true;
}

void Image::prepareToOverwrite(int32_t offX, int32_t offY, int32_t width, int32_t height) {
    uint8_t* data = getData();
    const int32_t x0 = std::max(offX, 0), x1 = std::min(offX + width, _width);
    const int32_t y0 = std::max(offY, 0), y1 = std::min(offY + height, _height);
    if (!data || x0 >= x1 || y0 >= y1)
        return;
    const size_t bpp = size_t(getBpp()), rowBytes = size_t(x1 - x0) * bpp;
    constexpr uintptr_t kPage = 4096;
    onEveryCore(y0, y1, rowBytes * size_t(y1 - y0), [&](int32_t from, int32_t to) {
        for (int32_t y = from; y < to; ++y) {
            uint8_t* begin = data + (size_t(y) * size_t(_width) + size_t(x0)) * bpp;
            for (uint8_t* p = begin; p < begin + rowBytes;
                 p = reinterpret_cast<uint8_t*>((reinterpret_cast<uintptr_t>(p) | (kPage - 1)) + 1))
                *p = 0;
        }
    });
}

void Image::clear(uint8_t value) {
    if (!_pixel.empty())
        std::memset(_pixel.data(), value, _pixel.size());
}

bool Image::setExternalData(uint32_t pixelFormat, int32_t width, int32_t height, int32_t type,
                            uint8_t* data) {
    if (!set(pixelFormat, width, height, 1, 1, 1, 0.0, nullptr, type, false) || !data)
        return false;
    _pixel.refer(data, _frameSize);
    return true;
}

namespace {

// Pixels of a large image are written once each, in order: the system's huge pages fault
// them in 512 times less often than its small ones. Only whole huge pages inside the block
// are marked; where the system has no huge pages the request does nothing.
void preferHugePages(uint8_t* data, size_t size) {
    constexpr uintptr_t kHuge = uintptr_t(2) << 20;
    if (!data || size < 2 * kHuge)
        return;
    const uintptr_t first = (uintptr_t(data) + kHuge - 1) & ~(kHuge - 1);
    const uintptr_t end = (uintptr_t(data) + size) & ~(kHuge - 1);
    if (end > first)
        madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
}

} // namespace

bool PixelBuffer::allocate(size_t size) {
    clear();
    if (size == 0)
        return true;
    _data.reset(static_cast<uint8_t*>(std::calloc(size, 1)));
    preferHugePages(_data.get(), size);
    _size = _data ? size : 0;
    return _data != nullptr;
}

bool PixelBuffer::assign(const uint8_t* data, size_t size) {
    if (data == _data.get() && size == _size)
        return true;
    PixelBuffer copy;
    if (size != 0) {
        copy._data.reset(static_cast<uint8_t*>(std::malloc(size)));
        if (!copy._data) {
            clear();
            return false;
        }
        preferHugePages(copy._data.get(), size);
        std::memcpy(copy._data.get(), data, size);
        copy._size = size;
    }
    swap(copy);
    return true;
}

void PixelBuffer::clear() {
    _data.reset();
    _external = nullptr;
    _size = 0;
}

void Image::setAttachmentField(const std::string& key, const std::string& value) {
    _attachments[key] = value;
}

const std::string* Image::findAttachmentField(const std::string& key) const {
    auto it = _attachments.find(key);
    return it == _attachments.end() ? nullptr : &it->second;
}

void Image::removeAttachmentField(const std::string& key) {
    _attachments.erase(key);
}

bool Image::write(const char* fileName) {
    return ImageFileHandler::the().write(ImagePtr(this), fileName);
}

ImagePtr Image::clone() const {
    ImagePtr copy = create();
    if (!copy->set(_pixelFormat, _width, _height, _depth, _mipmapCount, _frameCount, _frameDelay,
                   _pixel.empty() ? nullptr : _pixel.data(), _type, !_pixel.empty(), _sideCount))
        return ImagePtr();
    copy->_resX = _resX;
    copy->_resY = _resY;
    copy->_resUnit = _resUnit;
    copy->_alphaMode = _alphaMode;
    copy->_attachments = _attachments;
    return copy;
}

namespace {
std::atomic<bool> g_floatAlphaPremultiplied{true};
}

bool Image::floatAlphaPremultipliedByDefault() {
    return g_floatAlphaPremultiplied;
}

void Image::setFloatAlphaPremultipliedByDefault(bool premultiplied) {
    g_floatAlphaPremultiplied = premultiplied;
}

} // namespace osg
