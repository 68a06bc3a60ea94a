#include "OSGMTDImageFileType.h"

#include "kaAtomicFile.h"
#include "kaLog.h"

#include <QFile>

#include <cstring>

namespace osg {

namespace {

const char kMagic[8] = {'K', 'A', 'M', 'T', 'D', '\0', '\1', '\0'};

struct Header {
    uint32_t pixelFormat;
    int32_t type, width, height, depth, mipmapCount, frameCount, sideCount;
    double frameDelay;
    float resX, resY;
    uint32_t resUnit;
    uint32_t attachmentCount;
    uint64_t dataSize;
};

template <typename T>
void append(std::vector<uint8_t>& out, const T& value) {
    const auto* p = reinterpret_cast<const uint8_t*>(&value);
    out.insert(out.end(), p, p + sizeof(T));
}

void appendString(std::vector<uint8_t>& out, const std::string& text) {
    append(out, uint64_t(text.size()));
    out.insert(out.end(), text.begin(), text.end());
}

class Reader {
public:
    Reader(const uint8_t* data, size_t size)
        : _p(data)
        , _end(data + size) {}
    bool take(void* out, size_t n) {
        if (size_t(_end - _p) < n)
            return false;
        std::memcpy(out, _p, n);
        _p += n;
        return true;
    }
    bool takeString(std::string& text) {
        uint64_t n = 0;
        if (!take(&n, sizeof n) || size_t(_end - _p) < n)
            return false;
        text.assign(reinterpret_cast<const char*>(_p), size_t(n));
        _p += n;
        return true;
    }
    const uint8_t* here() const { return _p; }
    size_t left() const { return size_t(_end - _p); }

private:
    const uint8_t* _p;
    const uint8_t* _end;
};

} // namespace

MTDImageFileType::MTDImageFileType()
    : ImageFileType("image/x-mtd", {"mtd"}, OSG_READ_SUPPORTED | OSG_WRITE_SUPPORTED) {}

bool MTDImageFileType::store(const ImagePtr& image, std::vector<uint8_t>& buffer) {
    if (!image)
        return false;
    buffer.assign(sizeof kMagic, 0);
    std::memcpy(buffer.data(), kMagic, sizeof kMagic);
    Header h{image->getPixelFormat(),
             image->getDataType(),
             image->getWidth(),
             image->getHeight(),
             image->getDepth(),
             image->getMipMapCount(),
             image->getFrameCount(),
             image->getSideCount(),
             image->getFrameDelay(),
             image->getResX(),
             image->getResY(),
             image->getResUnit(),
             uint32_t(image->getAttachmentFields().size()),
             uint64_t(image->getSize())};
    append(buffer, h);
    for (const auto& [key, value] : image->getAttachmentFields()) {
        appendString(buffer, key);
        appendString(buffer, value);
    }
    if (image->getSize())
        buffer.insert(buffer.end(), image->getData(), image->getData() + image->getSize());
    return true;
}

bool MTDImageFileType::restore(ImagePtr& image, const uint8_t* data, size_t size) {
    Reader in(data, size);
    char magic[sizeof kMagic];
    Header h;
    if (!in.take(magic, sizeof magic) || std::memcmp(magic, kMagic, sizeof kMagic) != 0 ||
        !in.take(&h, sizeof h)) {
        kaLog::error("ImageFileType: not an MTD image");
        return false;
    }
    std::map<std::string, std::string> attachments;
    for (uint32_t i = 0; i < h.attachmentCount; ++i) {
        std::string key, value;
        if (!in.takeString(key) || !in.takeString(value)) {
            kaLog::error("ImageFileType: truncated MTD image");
            return false;
        }
        attachments[key] = value;
    }
    if (in.left() != h.dataSize) {
        kaLog::error("ImageFileType: MTD image data of the wrong size");
        return false;
    }
    if (!image)
        image = Image::create();
    bool ok = image->set(h.pixelFormat, h.width, h.height, h.depth, h.mipmapCount, h.frameCount,
                         h.frameDelay, nullptr, h.type, h.dataSize != 0, h.sideCount);
    if (!ok || image->getSize() != h.dataSize) {
        kaLog::error("ImageFileType: MTD image with an inconsistent header");
        return false;
    }
    if (h.dataSize)
        std::memcpy(image->getData(), in.here(), h.dataSize);
    image->setResX(h.resX);
    image->setResY(h.resY);
    image->setResUnit(uint16_t(h.resUnit));
    for (const auto& [key, value] : attachments)
        image->setAttachmentField(key, value);
    return true;
}

bool MTDImageFileType::write(const ImagePtr& image, const std::string& fileName) {
    std::vector<uint8_t> bytes;
    if (!store(image, bytes))
        return reportWrite(fileName, false, "the image holds nothing to write");
    kaAtomicFile file(fileName);
    const bool written =
        file.open() && file.write(bytes.data(), bytes.size()) && file.close() && file.commit();
    return reportWrite(fileName, written, file.error());
}

bool MTDImageFileType::read(ImagePtr& image, const std::string& fileName) {
    QFile file(QString::fromStdString(fileName));
    if (!file.open(QIODevice::ReadOnly)) {
        kaLog::error("ImageFileType: Couldn't read '%s': %s", fileName.c_str(),
                     file.errorString().toUtf8().constData());
        return false;
    }
    QByteArray bytes = file.readAll();
    return restore(image, reinterpret_cast<const uint8_t*>(bytes.constData()),
                   size_t(bytes.size()));
}

} // namespace osg
