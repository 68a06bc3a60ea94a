#include "kaPreferenceKeys.h"

#include <gtest/gtest.h>

TEST(kaPreferenceKeys, EveryKnownKeyHasADefaultOfItsType) {
    kaMessage defaults = kaPreferenceKeys::defaults();
    for (const kaPreferenceKeys::Key& key : kaPreferenceKeys::all()) {
        ASSERT_TRUE(defaults.has(key.name)) << key.name;
        EXPECT_EQ(defaults.get(key.name).type(), *key.type) << key.name;
    }
    EXPECT_EQ(defaults.values().size(), kaPreferenceKeys::all().size());
}

TEST(kaPreferenceKeys, ParsesEachTypeAndRejectsTheWrongForm) {
    QString error;
    auto parse = [&](const char* name, const char* text) {
        error.clear();
        return kaPreferenceKeys::parseValue(*kaPreferenceKeys::find(name), text, error);
    };
    EXPECT_EQ(boost::any_cast<bool>(parse("ImageExport add sig", "yes")), true);
    EXPECT_EQ(boost::any_cast<bool>(parse("ImageExport add sig", "False")), false);
    EXPECT_TRUE(parse("ImageExport add sig", "maybe").empty());
    EXPECT_FALSE(error.isEmpty());

    EXPECT_EQ(boost::any_cast<int>(parse("ImageExport width", " 1920 ")), 1920);
    EXPECT_TRUE(parse("ImageExport width", "19.5").empty());
    EXPECT_TRUE(parse("ImageExport width", "wide").empty());

    EXPECT_EQ(boost::any_cast<float>(parse("MovieExport dpi", "300.5")), 300.5f);
    EXPECT_TRUE(parse("MovieExport dpi", "high").empty());

    EXPECT_EQ(boost::any_cast<std::vector<int>>(parse("ImageExport sig color", "255, 0,10")),
              (std::vector<int>{255, 0, 10}));
    EXPECT_EQ(boost::any_cast<std::vector<int>>(parse("ImageExport sig color", "[1,2]")),
              (std::vector<int>{1, 2}));
    EXPECT_EQ(boost::any_cast<std::vector<int>>(parse("ImageExport sig color", "[]")),
              std::vector<int>{});
    EXPECT_TRUE(parse("ImageExport sig color", "1,,2").empty());
    EXPECT_TRUE(parse("ImageExport sig color", "red").empty());

    EXPECT_EQ(boost::any_cast<QString>(parse("ImageExport sig comment", " as is ")), " as is ");
}

TEST(kaPreferenceKeys, UnknownKeysAreNotFound) {
    EXPECT_EQ(kaPreferenceKeys::find("ImageExport nonsense"), nullptr);
    EXPECT_NE(kaPreferenceKeys::find("Imageprofile"), nullptr);
}
