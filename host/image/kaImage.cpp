#include "kaImage.h"

#include "OSGImageFileType.h"
#include "kaICCProfile.h"

#include <QFile>

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>

namespace {
std::mutex g_mutex;
std::string g_defaultFormat = "png";
} // namespace

const char* const kaImage::ICCProfileAttachmentKey = osg::kICCProfileAttachment;

std::string kaImage::getDefaultImageFormat() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_defaultFormat;
}

void kaImage::setDefaultImageFormat(const std::string& suffix) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_defaultFormat = suffix;
}

bool kaImage::embedActiveICCProfile(osg::ImagePtr& image, const std::string& profileFileName) {
    if (!image)
        return false;
    QFile file(QString::fromStdString(profileFileName));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QByteArray bytes = file.readAll();
    // Every ICC profile carries "acsp" at byte 36.
    if (bytes.size() < 128 || std::memcmp(bytes.constData() + 36, "acsp", 4) != 0)
        return false;
    // Float pictures hold linear values: their profile has linear tone curves, and formats that
    // know chromaticities get them too.
    if (image->isFloat()) {
        std::array<float, 8> chromaticities{};
        const QByteArray linear = kaICCProfile::linearized(bytes, &chromaticities);
        if (!linear.isEmpty()) {
            bytes = linear;
            std::string text;
            for (float v : chromaticities)
                text += (text.empty() ? "" : " ") + QString::number(v, 'g', 7).toStdString();
            image->setAttachmentField(osg::kChromaticitiesAttachment, text);
        }
    }
    image->setAttachmentField(ICCProfileAttachmentKey,
                              std::string(bytes.constData(), size_t(bytes.size())));
    return true;
}

bool kaImage::blendImage(osg::ImagePtr& target, const osg::ImagePtr& overlay,
                         const osg::Vec3i& offset, const osg::Color4f& color, float opacity,
                         float minAlpha) {
    if (!target || !overlay || !target->getData() || !overlay->getData())
        return false;
    const int x0 = std::max(0, offset.x), y0 = std::max(0, offset.y);
    const int x1 = std::min(target->getWidth(), offset.x + overlay->getWidth());
    const int y1 = std::min(target->getHeight(), offset.y + overlay->getHeight());
    for (int y = y0; y < y1; ++y) {
        for (int x = x0; x < x1; ++x) {
            const osg::Color4f o = overlay->getPixel(x - offset.x, y - offset.y);
            const float a = o.a * color.a * opacity;
            if (a <= minAlpha)
                continue;
            osg::Color4f t = target->getPixel(x, y);
            t.r = o.r * color.r * a + t.r * (1.0f - a);
            t.g = o.g * color.g * a + t.g * (1.0f - a);
            t.b = o.b * color.b * a + t.b * (1.0f - a);
            t.a = a + t.a * (1.0f - a);
            target->setPixel(x, y, t);
        }
    }
    return true;
}
