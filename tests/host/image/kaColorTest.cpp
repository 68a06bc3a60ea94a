#include "kaColor.h"

#include "kaDisplayProfiles.h"
#include "kaPreferences.h"
#include "kaTestSupport.h"

#include <QFile>
#include <QThread>

#include <gtest/gtest.h>

class kaColorTest : public testing::Test {
protected:
    void TearDown() override {
        kaColor::setActiveColorSpace(0);
        kaDisplayProfiles::setSource(nullptr);
    }
    katest::PreferencesGuard guard;
};

TEST_F(kaColorTest, ActiveProfileFollowsTheColourSpace) {
    kaColor::setActiveColorSpace(0);
    EXPECT_EQ(kaColor::getActiveICCProfile()->getFileName(), kaColor::getSRGBProfileFileName());
    kaColor::setActiveColorSpace(1);
    EXPECT_EQ(kaColor::getActiveICCProfile()->getFileName(), kaColor::getSRGBProfileFileName());
    kaColor::setActiveColorSpace(2);
    EXPECT_EQ(kaColor::getActiveICCProfile()->getFileName(), kaColor::getAdobeRGBProfileFileName());
    kaColor::setActiveColorSpace(7);
    EXPECT_EQ(kaColor::getActiveICCProfile()->getFileName(), kaColor::getSRGBProfileFileName());
}

TEST_F(kaColorTest, MonitorAndImageProfilesComeFromThePreferences) {
    kaDisplayProfiles::setSource([] { return QVector<kaDisplayProfiles::Display>(); });
    kaPreferences::getData().set("Monitorprofile", kaColor::getAdobeRGBProfileFileName());
    kaPreferences::getData().set("Imageprofile", kaColor::getSRGBProfileFileName());
    kaColor::setActiveColorSpace(3);
    EXPECT_EQ(kaColor::getActiveICCProfile()->getDescription(), "Adobe RGB (1998)");
    kaColor::setActiveColorSpace(4);
    EXPECT_EQ(kaColor::getActiveICCProfile()->getDescription(), "sRGB IEC61966-2.1");
    EXPECT_EQ(kaColor::getImageICCProfile()->getDescription(), "sRGB IEC61966-2.1");
}

// The monitor's colour space encodes for the profile that exports embed for it.
TEST_F(kaColorTest, TheMonitorsColourSpaceIsTheDisplaysProfileWhenItReportsOne) {
    kaPreferences::getData().set("Monitorprofile", kaColor::getSRGBProfileFileName());
    const QString displayProfile = kaColor::getAdobeRGBProfileFileName();
    QString reported = displayProfile;
    kaDisplayProfiles::setSource([&] {
        return QVector<kaDisplayProfiles::Display>{
            {"off", false, kaColor::getSRGBProfileFileName()}, {"display0", true, reported}};
    });
    kaColor::setActiveColorSpace(3);
    EXPECT_EQ(kaColor::getActiveICCProfile()->getFileName(), displayProfile);
    kaPreferences::getData().set("Use System Monitor Profile", false);
    EXPECT_EQ(kaColor::getActiveICCProfile()->getFileName(), kaColor::getSRGBProfileFileName());
    kaPreferences::getData().set("Use System Monitor Profile", true);
    reported = "/nowhere/display.icc";
    EXPECT_EQ(kaColor::getActiveICCProfile()->getFileName(), kaColor::getSRGBProfileFileName())
        << "a display profile that does not exist leaves the preference's";
}

TEST_F(kaColorTest, AProfileFileThatChangesIsReadAgain) {
    katest::TempDir dir;
    const QString path = dir.file("image.icc");
    ASSERT_TRUE(QFile::copy(kaColor::getSRGBProfileFileName(), path));
    kaPreferences::getData().set("Imageprofile", path);
    EXPECT_EQ(kaColor::getImageICCProfile()->getDescription(), "sRGB IEC61966-2.1");
    QFile::remove(path);
    ASSERT_TRUE(QFile::copy(kaColor::getAdobeRGBProfileFileName(), path));
    QThread::msleep(1100); // files are looked at again after a second
    EXPECT_EQ(kaColor::getImageICCProfile()->getDescription(), "Adobe RGB (1998)");
}
