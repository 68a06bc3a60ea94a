#include "kaPreferences.h"

#include "kaPreferenceKeys.h"
#include "kaTestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {
QByteArray readAll(const QString& path) {
    QFile f(path);
    f.open(QIODevice::ReadOnly);
    return f.readAll();
}
void writeAll(const QString& path, const QByteArray& bytes) {
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}
} // namespace

class kaPreferencesTest : public testing::Test {
protected:
    katest::PreferencesGuard guard;
    katest::TempDir dir;
};

TEST_F(kaPreferencesTest, StartsWithTheHostDefaults) {
    const kaMessage& prefs = kaPreferences::getData();
    EXPECT_EQ(boost::any_cast<int>(prefs.get("ImageExport quality")), 90);
    EXPECT_EQ(boost::any_cast<bool>(prefs.get("ImageExport single viewer")), true);
    EXPECT_EQ(boost::any_cast<float>(prefs.get("MovieExport dpi")), 72.0f);
    EXPECT_EQ(boost::any_cast<int>(prefs.get("Image Export Max Framebuffer Memory")), 2048);
}

TEST_F(kaPreferencesTest, EveryTypeRoundTripsThroughTheFile) {
    kaMessage& prefs = kaPreferences::getData();
    prefs.set("ImageExport tiff hdr", true);
    prefs.set("ImageExport width", -2147483647 - 1);
    prefs.set("ImageExport height", 2147483647);
    // A float that no short decimal text gives back unless printed with care.
    prefs.set("MovieExport dpi", 0.1f + 1e-7f);
    prefs.set("ImageExport sig color", std::vector<int>{255, -1, 0});
    prefs.set("ImageExport sig position", std::vector<int>{});
    prefs.set("ImageExport sig comment", QString::fromUtf8("Grüße \"quoted\"\nline two"));
    prefs.set("Custom float key", 3.4028235e38f);
    const kaMessage saved = prefs;

    const QString path = dir.file("prefs.json");
    ASSERT_TRUE(kaPreferences::save(path));
    kaPreferences::resetToDefaults();
    ASSERT_TRUE(kaPreferences::load(path));

    const kaMessage& loaded = kaPreferences::getData();
    ASSERT_EQ(loaded.values().size(), saved.values().size());
    for (const auto& [key, value] : saved.values()) {
        boost::any back = loaded.get(key);
        ASSERT_EQ(back.type(), value.type()) << key;
        if (value.type() == typeid(bool))
            EXPECT_EQ(boost::any_cast<bool>(back), boost::any_cast<bool>(value)) << key;
        else if (value.type() == typeid(int))
            EXPECT_EQ(boost::any_cast<int>(back), boost::any_cast<int>(value)) << key;
        else if (value.type() == typeid(float))
            EXPECT_EQ(boost::any_cast<float>(back), boost::any_cast<float>(value)) << key;
        else if (value.type() == typeid(std::vector<int>))
            EXPECT_EQ(boost::any_cast<std::vector<int>>(back),
                      boost::any_cast<std::vector<int>>(value))
                << key;
        else
            EXPECT_EQ(boost::any_cast<QString>(back), boost::any_cast<QString>(value)) << key;
    }
}

TEST_F(kaPreferencesTest, AFloatOfIntegralValueStaysAFloat) {
    kaPreferences::getData().set("MovieExport dpi", 300.0f);
    const QString path = dir.file("p.json");
    ASSERT_TRUE(kaPreferences::save(path));
    ASSERT_TRUE(kaPreferences::load(path));
    EXPECT_EQ(kaPreferences::getData().get("MovieExport dpi").type(), typeid(float));
}

TEST_F(kaPreferencesTest, MalformedFileGivesAClearErrorTheDefaultsAndIsNeverLost) {
    const QString path = dir.file("broken.json");
    const QByteArray garbage = "{ \"values\": { \"ImageExport width\": ";
    writeAll(path, garbage);
    kaPreferences::getData().set("ImageExport width", 1234);

    katest::LogCapture log;
    QString error;
    EXPECT_FALSE(kaPreferences::load(path, &error));
    EXPECT_TRUE(error.contains("broken.json")) << error.toStdString();
    EXPECT_TRUE(error.contains("Using the defaults")) << error.toStdString();
    EXPECT_EQ(log.texts(kaLog::Error).size(), 1u);
    EXPECT_EQ(boost::any_cast<int>(kaPreferences::getData().get("ImageExport width")), 800)
        << "the defaults stand after a failed load";
    EXPECT_EQ(readAll(path), garbage) << "loading never touches the file";

    // Saving afterwards keeps the unreadable file aside instead of overwriting it.
    ASSERT_TRUE(kaPreferences::save(path));
    EXPECT_EQ(readAll(path + ".broken"), garbage);
    EXPECT_TRUE(kaPreferences::load(path));
}

TEST_F(kaPreferencesTest, AValueOfTheWrongFormRejectsTheWholeFile) {
    const QString path = dir.file("wrong.json");
    writeAll(path, R"({"version":1,"values":{
        "ImageExport width": {"type":"int","value":1000},
        "ImageExport height": {"type":"int","value":1.5}}})");
    QString error;
    EXPECT_FALSE(kaPreferences::load(path, &error));
    EXPECT_TRUE(error.contains("ImageExport height")) << error.toStdString();
    EXPECT_EQ(boost::any_cast<int>(kaPreferences::getData().get("ImageExport width")), 800)
        << "no mixture of file and defaults";
}

TEST_F(kaPreferencesTest, UnreadableFileIsReported) {
    QString error;
    EXPECT_FALSE(kaPreferences::load(dir.file("missing.json"), &error));
    EXPECT_FALSE(error.isEmpty());
}

TEST_F(kaPreferencesTest, SaveIntoAMissingFolderFailsAndCreatesNothing) {
    const QString path = dir.file("no/such/folder/p.json");
    QString error;
    EXPECT_FALSE(kaPreferences::save(path, &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(path));
}

TEST_F(kaPreferencesTest, SaveLeavesNoTemporaryFiles) {
    ASSERT_TRUE(kaPreferences::save(dir.file("p.json")));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"p.json"});
}
