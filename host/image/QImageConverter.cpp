#include "QImageConverter.h"

#include <cmath>

namespace {

int toByte(float v) {
    if (!(v > 0.0f))
        return 0;
    return v >= 1.0f ? 255 : int(std::lround(v * 255.0f));
}

bool is32Bit(QImage::Format format) {
    return format == QImage::Format_RGB32 || format == QImage::Format_ARGB32;
}

} // namespace

bool QImageConverter::convertToQImage(QImage& out, const osg::ImagePtr& image, int) {
    if (!image || !image->getData())
        return false;
    const int width = image->getWidth(), height = image->getHeight();
    if (out.width() != width || out.height() != height || !is32Bit(out.format())) {
        out = QImage(width, height,
                     image->hasAlphaChannel() ? QImage::Format_ARGB32 : QImage::Format_RGB32);
        if (out.isNull())
            return false;
    }
    for (int y = 0; y < height; ++y) {
        // QImage rows run top-down, scene-graph rows bottom-up.
        auto* line = reinterpret_cast<QRgb*>(out.scanLine(height - 1 - y));
        for (int x = 0; x < width; ++x) {
            const osg::Color4f c = image->getPixel(x, y);
            line[x] = qRgba(toByte(c.r), toByte(c.g), toByte(c.b), toByte(c.a));
        }
    }
    return true;
}

bool QImageConverter::convertToOSGImage(osg::ImagePtr& out, const QImage& image) {
    if (image.isNull())
        return false;
    const QImage source =
        is32Bit(image.format()) ? image : image.convertToFormat(QImage::Format_ARGB32);
    const int width = source.width(), height = source.height();
    const bool keep = out && out->getData() && out->getWidth() == width &&
                      out->getHeight() == height &&
                      (out->getPixelFormat() == osg::Image::OSG_RGB_PF ||
                       out->getPixelFormat() == osg::Image::OSG_RGBA_PF);
    if (!keep) {
        if (!out)
            out = osg::Image::create();
        if (!out->set(osg::Image::OSG_RGBA_PF, width, height))
            return false;
    }
    const bool alpha = source.hasAlphaChannel();
    for (int y = 0; y < height; ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(source.constScanLine(height - 1 - y));
        for (int x = 0; x < width; ++x) {
            const QRgb c = line[x];
            out->setPixel(x, y,
                          {qRed(c) / 255.0f, qGreen(c) / 255.0f, qBlue(c) / 255.0f,
                           alpha ? qAlpha(c) / 255.0f : 1.0f});
        }
    }
    return true;
}
