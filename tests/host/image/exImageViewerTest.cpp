#include "exImageViewer.h"

#include <QLabel>
#include <QTest>

#include <gtest/gtest.h>

TEST(exImageViewer, ShowsTheImageItWasGiven) {
    QImage picture(120, 80, QImage::Format_RGB32);
    picture.fill(Qt::red);
    exImageViewer viewer(nullptr, picture);
    viewer.resize(200, 150);
    viewer.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&viewer));

    auto* label = viewer.findChild<QLabel*>();
    ASSERT_NE(label, nullptr);
    ASSERT_FALSE(label->pixmap(Qt::ReturnByValue).isNull());
    EXPECT_EQ(label->pixmap(Qt::ReturnByValue).size(), QSize(120, 80));
    EXPECT_EQ(viewer.getImage(), picture);

    // What the window shows on screen holds the picture's colour.
    QImage shown = viewer.grab().toImage();
    EXPECT_EQ(QColor(shown.pixel(shown.width() / 2, shown.height() / 2)), QColor(Qt::red));
}

TEST(exImageViewer, SetReplacesThePicture) {
    exImageViewer viewer;
    EXPECT_TRUE(viewer.getImage().isNull());
    QImage picture(10, 20, QImage::Format_ARGB32);
    picture.fill(Qt::blue);
    viewer.set(picture);
    EXPECT_EQ(viewer.getImage().size(), QSize(10, 20));
    EXPECT_EQ(viewer.findChild<QLabel*>()->pixmap(Qt::ReturnByValue).size(), QSize(10, 20));
}
