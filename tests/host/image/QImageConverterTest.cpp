#include "QImageConverter.h"

#include <Imath/half.h>

#include <gtest/gtest.h>

using osg::Image;

namespace {
// (x, y) from the lower left: red grows to the right, green upwards.
osg::ImagePtr ramp(uint32_t format, int32_t type) {
    osg::ImagePtr image = Image::create();
    image->set(format, 4, 3, 1, 1, 1, 0.0, nullptr, type);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x)
            image->setPixel(x, y, {x / 3.0f, y / 2.0f, 0.2f, 0.6f});
    return image;
}
} // namespace

struct ConverterCase {
    uint32_t format;
    int32_t type;
};

class QImageConverterRoundTrip : public testing::TestWithParam<ConverterCase> {};

TEST_P(QImageConverterRoundTrip, FlipsRowsAndComesBack) {
    osg::ImagePtr image = ramp(GetParam().format, GetParam().type);
    QImage q;
    ASSERT_TRUE(QImageConverter::convertToQImage(q, image, 0));
    const bool alpha = GetParam().format == Image::OSG_RGBA_PF;
    EXPECT_EQ(q.format(), alpha ? QImage::Format_ARGB32 : QImage::Format_RGB32);
    ASSERT_EQ(q.size(), QSize(4, 3));
    // The QImage's top row is the image's last row.
    EXPECT_EQ(qGreen(q.pixel(0, 0)), 255);
    EXPECT_EQ(qGreen(q.pixel(0, 2)), 0);
    EXPECT_EQ(qRed(q.pixel(3, 1)), 255);
    EXPECT_EQ(qAlpha(q.pixel(1, 1)), alpha ? 153 : 255);

    // Back into the same image: its format and data type stay.
    ASSERT_TRUE(QImageConverter::convertToOSGImage(image, q));
    EXPECT_EQ(image->getPixelFormat(), GetParam().format);
    EXPECT_EQ(image->getDataType(), GetParam().type);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x) {
            osg::Color4f c = image->getPixel(x, y);
            EXPECT_NEAR(c.r, x / 3.0f, 0.5f / 255 + 1e-3f);
            EXPECT_NEAR(c.g, y / 2.0f, 0.5f / 255 + 1e-3f);
            if (alpha) {
                EXPECT_NEAR(c.a, 0.6f, 0.5f / 255 + 1e-3f);
            }
        }
}

INSTANTIATE_TEST_SUITE_P(
    FormatsAndTypes, QImageConverterRoundTrip,
    testing::Values(ConverterCase{Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA},
                    ConverterCase{Image::OSG_RGBA_PF, Image::OSG_UINT8_IMAGEDATA},
                    ConverterCase{Image::OSG_RGB_PF, Image::OSG_FLOAT16_IMAGEDATA},
                    ConverterCase{Image::OSG_RGBA_PF, Image::OSG_FLOAT16_IMAGEDATA},
                    ConverterCase{Image::OSG_RGB_PF, Image::OSG_FLOAT32_IMAGEDATA},
                    ConverterCase{Image::OSG_RGBA_PF, Image::OSG_FLOAT32_IMAGEDATA}));

TEST(QImageConverter, FloatValuesAreClampedForTheQImage) {
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGB_PF, 1, 1, 1, 1, 1, 0.0, nullptr, Image::OSG_FLOAT32_IMAGEDATA);
    image->setPixel(0, 0, {4.0f, -1.0f, 0.5f, 1.0f});
    QImage q;
    ASSERT_TRUE(QImageConverter::convertToQImage(q, image));
    EXPECT_EQ(q.pixel(0, 0), qRgb(255, 0, 128));
}

TEST(QImageConverter, FillsAGivenQImageOfTheRightSize) {
    QImage q(4, 3, QImage::Format_RGB32);
    const uchar* bits = q.constBits();
    ASSERT_TRUE(
        QImageConverter::convertToQImage(q, ramp(Image::OSG_RGBA_PF, Image::OSG_UINT8_IMAGEDATA)));
    EXPECT_EQ(q.format(), QImage::Format_RGB32);
    EXPECT_EQ(q.constBits(), bits);
}

TEST(QImageConverter, NewImageFromAnyQImageFormat) {
    QImage q(2, 2, QImage::Format_ARGB32_Premultiplied);
    q.fill(QColor(0, 0, 255, 255));
    osg::ImagePtr image;
    ASSERT_TRUE(QImageConverter::convertToOSGImage(image, q));
    EXPECT_EQ(image->getPixelFormat(), unsigned(Image::OSG_RGBA_PF));
    EXPECT_EQ(image->getDataType(), Image::OSG_UINT8_IMAGEDATA);
    EXPECT_EQ(image->getPixel(1, 1).b, 1.0f);
    EXPECT_FALSE(QImageConverter::convertToOSGImage(image, QImage()));
    osg::ImagePtr none;
    EXPECT_FALSE(QImageConverter::convertToQImage(q, none));
}
