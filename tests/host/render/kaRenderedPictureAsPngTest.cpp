// A rendered picture (the built-in scene through OpenGL) as the PNG writer compresses it in
// slices on every core: as small as one zlib stream of the same rows would be, and exact.
#include "OSGImage.h"
#include "OSGImageFileHandler.h"
#include "filetypes/OSGPNGWriter_p.h"
#include "kaBuiltinScene.h"
#include "kaOSGWidget.h"
#include "kaSharedOffscreenRender.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <vector>

namespace {

osg::ImagePtr renderBuiltinScene(int width, int height) {
    kaOSGWidget view;
    kaOSGWidget::setMainView(&view);
    osg::ImagePtr image;
    {
        kaBuiltinScene scene(view);
        image = osg::Image::create();
        image->set(osg::Image::OSG_RGB_PF, width, height);
        kaSharedOffscreenRender renderer(&view, {image}, 0);
        EXPECT_TRUE(renderer.updateGL());
    }
    kaOSGWidget::setMainView(nullptr);
    return image;
}

size_t sizeInSlices(const osg::Image& image, int level, const osg::png::DeflateSlicing& slicing,
                    std::vector<uint8_t>& bytes) {
    osg::png::PNGOptions options;
    options.level = level;
    options.slicing = slicing;
    std::string error;
    EXPECT_TRUE(osg::png::encodePNG(image, options, bytes, error)) << error;
    return bytes.size();
}

size_t sizeInOneStream(const osg::Image& image, int level) {
    const osg::png::FilteredRows rows(image, osg::png::rowFilterFor(level));
    std::vector<uint8_t> filtered(rows.size());
    rows.read(0, filtered.size(), filtered.data());
    uLongf size = compressBound(uLong(filtered.size()));
    std::vector<uint8_t> stream(size);
    EXPECT_EQ(compress2(stream.data(), &size, filtered.data(), uLong(filtered.size()), level),
              Z_OK);
    return size;
}

} // namespace

TEST(RenderedPictureAsPng, SlicesCostAtMostFivePercentOverOneStream) {
    osg::ImagePtr picture = renderBuiltinScene(1280, 960);
    osg::png::DeflateSlicing fine;
    fine.minimumSlice = fine.maximumSlice = size_t(128) << 10; // 29 slices
    std::vector<uint8_t> bytes;
    for (int level : {1, 6}) {
        const size_t single = sizeInOneStream(*picture, level);
        // A picture of the scene, not an empty one, which would shrink to almost nothing.
        EXPECT_GT(single, picture->getSize() / 100);
        for (const osg::png::DeflateSlicing& slicing : {osg::png::DeflateSlicing(), fine}) {
            const size_t sliced = sizeInSlices(*picture, level, slicing, bytes);
            // The whole file against the stream alone: the chunks around it count against it.
            EXPECT_LE(double(sliced), 1.05 * double(single))
                << "level " << level << ", slices of at most " << slicing.maximumSlice;
            osg::ImagePtr back = osg::Image::create();
            ASSERT_TRUE(
                osg::ImageFileHandler::the().restore(back, "png", bytes.data(), bytes.size()));
            ASSERT_EQ(back->getSize(), picture->getSize());
            EXPECT_TRUE(
                std::equal(back->getData(), back->getData() + back->getSize(), picture->getData()));
        }
    }
}
