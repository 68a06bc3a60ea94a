#include "kaImageRenderWidget.h"

#include "kaRenderPassCatalogue.h"

#include <gtest/gtest.h>

TEST(kaImageRenderWidgetSettings, AlphaSwitchesThePixelFormat) {
    kaImageRenderWidget::setPixelFormat(osg::Image::OSG_L_PF);
    kaImageRenderWidget::setAlpha(true);
    EXPECT_TRUE(kaImageRenderWidget::getAlpha());
    EXPECT_EQ(kaImageRenderWidget::getPixelFormat(), osg::Image::OSG_RGBA_PF);
    kaImageRenderWidget::setAlpha(false);
    EXPECT_FALSE(kaImageRenderWidget::getAlpha());
    EXPECT_EQ(kaImageRenderWidget::getPixelFormat(), osg::Image::OSG_RGB_PF);
}

TEST(kaImageRenderWidgetSettings, ClassWideValues) {
    EXPECT_EQ(kaImageRenderWidget::getDataType(), osg::Image::OSG_UINT8_IMAGEDATA);
    kaImageRenderWidget::setDataType(osg::Image::OSG_FLOAT32_IMAGEDATA);
    EXPECT_EQ(kaImageRenderWidget::getDataType(), osg::Image::OSG_FLOAT32_IMAGEDATA);
    kaImageRenderWidget::setDataType(osg::Image::OSG_UINT8_IMAGEDATA);

    float r = 0, g = 0, b = 0;
    kaImageRenderWidget::getAlphaColor(r, g, b);
    EXPECT_EQ(r + g + b, 3.0f);
    kaImageRenderWidget::setAlphaColor(0.5f, 0.25f, 0.0f);
    kaImageRenderWidget::getAlphaColor(r, g, b);
    EXPECT_EQ(r, 0.5f);
    EXPECT_EQ(g, 0.25f);
    EXPECT_EQ(b, 0.0f);
    kaImageRenderWidget::setAlphaColor(1, 1, 1);

    EXPECT_FALSE(kaImageRenderWidget::getPowerwall());
    kaImageRenderWidget::setPowerwall(true);
    EXPECT_TRUE(kaImageRenderWidget::getPowerwall());
    kaImageRenderWidget::setPowerwall(false);

    kaImageRenderWidget::setNrOfQueuedRenderJobs(3);
    EXPECT_EQ(kaImageRenderWidget::getNrOfQueuedRenderJobs(), 3);
    kaImageRenderWidget::setNrOfQueuedRenderJobs(0);
}

TEST(kaImageRenderWidgetSettings, ActivePassesAreCopied) {
    std::vector<bool> passes(47, false);
    passes[kaRenderPass::Depth] = true;
    kaImageRenderWidget::setActiveRenderPasses(passes);
    passes[0] = true;
    EXPECT_FALSE(kaImageRenderWidget::getActiveRenderPasses()[0]);
    EXPECT_TRUE(kaImageRenderWidget::getActiveRenderPasses()[kaRenderPass::Depth]);
    kaImageRenderWidget::setActiveRenderPasses(kaImageRenderWidget::getActiveRenderPasses());
    EXPECT_EQ(kaImageRenderWidget::getActiveRenderPasses().size(), 47u);
    kaImageRenderWidget::setActiveRenderPasses({});
}

TEST(kaImageRenderWidgetSettings, AbortAllIsReadOnce) {
    EXPECT_FALSE(kaImageRenderWidget::wasAllAborted());
    kaImageRenderWidget::abortAllRenderings();
    EXPECT_TRUE(kaImageRenderWidget::wasAllAborted());
    EXPECT_FALSE(kaImageRenderWidget::wasAllAborted());
    kaImageRenderWidget::abortAllRenderings();
    kaImageRenderWidget::resetAbortAndCancelFlag();
    EXPECT_FALSE(kaImageRenderWidget::wasAllAborted());
    EXPECT_FALSE(kaImageRenderWidget::wasCanceled());
}
