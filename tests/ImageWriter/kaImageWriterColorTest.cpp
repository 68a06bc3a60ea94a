#include "kaImageWriter.h"

#include "kaColor.h"
#include "kaDisplayProfiles.h"
#include "kaFile.h"
#include "kaImage.h"
#include "kaPlatform.h"
#include "kaPreferences.h"
#include "kaTestSupport.h"

#include <QFile>

#include <gtest/gtest.h>

namespace {
QByteArray fileBytes(const QString& path) {
    QFile f(path);
    f.open(QIODevice::ReadOnly);
    return f.readAll();
}
} // namespace

class kaImageWriterColor : public testing::Test {
protected:
    void SetUp() override { image->set(osg::Image::OSG_RGB_PF, 4, 4); }
    void TearDown() override {
        kaColor::setActiveColorSpace(0);
        kaDisplayProfiles::setSource(nullptr);
    }
    QByteArray embedded() {
        const std::string* bytes = image->findAttachmentField(kaImage::ICCProfileAttachmentKey);
        return bytes ? QByteArray(bytes->data(), int(bytes->size())) : QByteArray();
    }
    void embedWith(unsigned colorSpace) {
        image->removeAttachmentField(kaImage::ICCProfileAttachmentKey);
        kaColor::setActiveColorSpace(colorSpace);
        kaImageWriter::embedColorProfile(image);
    }
    katest::PreferencesGuard guard;
    osg::ImagePtr image = osg::Image::create();
    const QByteArray srgb = fileBytes(kaColor::getSRGBProfileFileName());
    const QByteArray adobe = fileBytes(kaColor::getAdobeRGBProfileFileName());
};

TEST_F(kaImageWriterColor, ColourSpacesPickTheirProfiles) {
    ASSERT_FALSE(srgb.isEmpty());
    ASSERT_FALSE(adobe.isEmpty());
    for (unsigned space : {0u, 1u, 5u, 7u, 1000u}) {
        embedWith(space);
        EXPECT_EQ(embedded(), srgb) << space;
    }
    embedWith(2);
    EXPECT_EQ(embedded(), adobe);
}

TEST_F(kaImageWriterColor, ImageProfileComesFromThePreference) {
    kaPreferences::getData().set("Imageprofile", kaColor::getAdobeRGBProfileFileName());
    embedWith(4);
    EXPECT_EQ(embedded(), adobe);
    kaPreferences::getData().set("Imageprofile", QString("/no/such/profile.icc"));
    katest::LogCapture log;
    embedWith(4);
    EXPECT_TRUE(embedded().isEmpty()) << "a missing file is silent";
    EXPECT_TRUE(log.entries().empty());
}

TEST_F(kaImageWriterColor, MissingStockProfileEmbedsNothing) {
    katest::TempDir empty;
    kaFile::setPathVariable("KALO_DATA", empty.path());
    embedWith(0);
    kaFile::setPathVariable("KALO_DATA", kaPlatform::getDataDir());
    EXPECT_TRUE(embedded().isEmpty());
}

TEST_F(kaImageWriterColor, MonitorWithoutSystemProfileUsesThePreferenceAndAsksNoDisplay) {
    int asked = 0;
    kaDisplayProfiles::setSource([&] {
        ++asked;
        return QVector<kaDisplayProfiles::Display>{};
    });
    kaPreferences::getData().set("Use System Monitor Profile", false);
    kaPreferences::getData().set("Monitorprofile", kaColor::getAdobeRGBProfileFileName());
    embedWith(3);
    EXPECT_EQ(embedded(), adobe);
    EXPECT_EQ(asked, 0);
}

TEST_F(kaImageWriterColor, FirstAttachedDisplayWithAProfileWins) {
    kaDisplayProfiles::setSource([this] {
        return QVector<kaDisplayProfiles::Display>{
            {"detached", false, kaColor::getSRGBProfileFileName()},
            {"broken-query", true, QString()},
            {"main", true, kaColor::getAdobeRGBProfileFileName()},
            {"second", true, kaColor::getSRGBProfileFileName()}};
    });
    kaPreferences::getData().set("Monitorprofile", kaColor::getSRGBProfileFileName());
    embedWith(3);
    EXPECT_EQ(embedded(), adobe);
}

TEST_F(kaImageWriterColor, MissingDisplayProfileIsLoggedAndThePreferenceFollows) {
    kaDisplayProfiles::setSource([] {
        return QVector<kaDisplayProfiles::Display>{{"main", true, "/gone/display.icc"}};
    });
    kaPreferences::getData().set("Monitorprofile", kaColor::getAdobeRGBProfileFileName());
    katest::LogCapture log;
    embedWith(3);
    EXPECT_TRUE(
        log.contains(kaLog::Error, "Couldn't find system monitor profile '/gone/display.icc'!"));
    EXPECT_EQ(embedded(), adobe);
}

TEST_F(kaImageWriterColor, NoDisplaysFallsBackToThePreference) {
    kaDisplayProfiles::setSource([] { return QVector<kaDisplayProfiles::Display>{}; });
    kaPreferences::getData().set("Monitorprofile", kaColor::getSRGBProfileFileName());
    embedWith(3);
    EXPECT_EQ(embedded(), srgb);
}
