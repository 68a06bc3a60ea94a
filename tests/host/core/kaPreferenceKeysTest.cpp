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
    EXPECT_EQ(boost::any_cast<std::vector<int>>(parse("ImageExport sig position", "[1,2]")),
              (std::vector<int>{1, 2}));
    EXPECT_TRUE(parse("ImageExport sig color", "1,,2").empty());
    EXPECT_TRUE(parse("ImageExport sig color", "red").empty());

    EXPECT_EQ(boost::any_cast<QString>(parse("ImageExport sig comment", " as is ")), " as is ");
}

TEST(kaPreferenceKeys, ValuesOutsideTheirRangeAreRefusedWithTheRange) {
    QString error;
    auto parse = [&](const char* name, const char* text) {
        error.clear();
        return kaPreferenceKeys::parseValue(*kaPreferenceKeys::find(name), text, error);
    };
    EXPECT_TRUE(parse("ImageExport quality", "500").empty());
    EXPECT_EQ(error, "must be an int from 0 to 100, not 500");
    EXPECT_TRUE(parse("MovieExport ssfactor", "-1").empty());
    EXPECT_EQ(error, "must be an int from 0 to 3, not -1");
    EXPECT_TRUE(parse("MovieExport dpi", "0").empty());
    EXPECT_EQ(error, "must be a float from 1 to 100000, not 0");
    EXPECT_TRUE(parse("ImageExport sig color", "[1,2]").empty());
    EXPECT_EQ(error, "must be a list of 3 ints from 0 to 255, not [1, 2]");
    EXPECT_TRUE(parse("ImageExport sig color", "0,0,256").empty());
    EXPECT_EQ(boost::any_cast<int>(parse("ImageExport quality", "100")), 100);
    EXPECT_EQ(boost::any_cast<int>(parse("Image Export Max Framebuffer Memory", "0")), 0);
}

TEST(kaPreferenceKeys, AValueOfTheWrongTypeIsNamedInWords) {
    QString error;
    EXPECT_FALSE(kaPreferenceKeys::check(*kaPreferenceKeys::find("ImageExport width"),
                                         boost::any(3.5f), error));
    EXPECT_EQ(error, "must be an int from 1 to 1048576, not a value of type float");
    EXPECT_FALSE(kaPreferenceKeys::check(*kaPreferenceKeys::find("ImageExport sig color"),
                                         boost::any(QString("red")), error));
    EXPECT_EQ(error, "must be a list of 3 ints from 0 to 255, not a value of type text");
    EXPECT_TRUE(kaPreferenceKeys::check(*kaPreferenceKeys::find("ImageExport add sig"),
                                        boost::any(true), error));
}

TEST(kaPreferenceKeys, EveryDefaultIsAllowedByItsOwnKey) {
    const kaMessage defaults = kaPreferenceKeys::defaults();
    for (const kaPreferenceKeys::Key& key : kaPreferenceKeys::all()) {
        QString error;
        EXPECT_TRUE(kaPreferenceKeys::check(key, defaults.get(key.name), error))
            << key.name << ": " << error.toStdString();
    }
}

TEST(kaPreferenceKeys, UnknownKeysAreNotFound) {
    EXPECT_EQ(kaPreferenceKeys::find("ImageExport nonsense"), nullptr);
    EXPECT_NE(kaPreferenceKeys::find("Imageprofile"), nullptr);
}
