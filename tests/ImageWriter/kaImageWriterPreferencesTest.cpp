#include "kaImageWriter.h"

#include "kaMessage.h"

#include <gtest/gtest.h>

namespace {
std::string firstLine(const std::string& text) {
    return text.substr(0, text.find('\n') + 1);
}
} // namespace

TEST(GetFromMessage, ReadsEachOfTheFiveTypes) {
    kaMessage m;
    m.set("b", true);
    m.set("i", -7);
    m.set("f", 2.5f);
    m.set("v", std::vector<int>{10, 20});
    m.set("s", QString("hello"));
    bool b = false;
    int i = 0;
    float f = 0;
    std::vector<int> v;
    QString s;
    EXPECT_TRUE(kaImageWriter::getFromMessage(m, "b", b));
    EXPECT_TRUE(kaImageWriter::getFromMessage(m, "i", i));
    EXPECT_TRUE(kaImageWriter::getFromMessage(m, "f", f));
    EXPECT_TRUE(kaImageWriter::getFromMessage(m, "v", v));
    EXPECT_TRUE(kaImageWriter::getFromMessage(m, "s", s));
    EXPECT_TRUE(b);
    EXPECT_EQ(i, -7);
    EXPECT_EQ(f, 2.5f);
    EXPECT_EQ(v, (std::vector<int>{10, 20}));
    EXPECT_EQ(s, "hello");
}

TEST(GetFromMessage, MissingKeyKeepsTheDefaultSilently) {
    kaMessage m;
    int value = 2048;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(kaImageWriter::getFromMessage(m, "Image Export Max Framebuffer Memory", value));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(value, 2048);
}

struct WrongTypeCase {
    boost::any stored;
    const char* storedName;
    const char* requested;
};

class GetFromMessageWrongType : public testing::TestWithParam<WrongTypeCase> {};

TEST_P(GetFromMessageWrongType, KeepsTheDefaultAndNamesBothTypes) {
    kaMessage m;
    m.setAny("key", GetParam().stored);
    const std::string requested = GetParam().requested;
    testing::internal::CaptureStderr();
    bool read = true;
    bool b = true;
    int i = 5;
    float f = 5.0f;
    std::vector<int> v{5};
    QString s("five");
    if (requested == "bool")
        read = kaImageWriter::getFromMessage(m, "key", b);
    else if (requested == "int")
        read = kaImageWriter::getFromMessage(m, "key", i);
    else if (requested == "float")
        read = kaImageWriter::getFromMessage(m, "key", f);
    else if (requested == "std::vector<int>")
        read = kaImageWriter::getFromMessage(m, "key", v);
    else
        read = kaImageWriter::getFromMessage(m, "key", s);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_FALSE(read);
    EXPECT_TRUE(b);
    EXPECT_EQ(i, 5);
    EXPECT_EQ(f, 5.0f);
    EXPECT_EQ(v, std::vector<int>{5});
    EXPECT_EQ(s, "five");
    EXPECT_EQ(firstLine(err), std::string("getFromMessage : Attribute 'key' has wrong type (is:'") +
                                  GetParam().storedName + "' != req:'" + requested + "')!\n");
    EXPECT_NE(err.find("back-trace"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    AllPairs, GetFromMessageWrongType,
    testing::Values(WrongTypeCase{boost::any(1), "int", "bool"},
                    WrongTypeCase{boost::any(true), "bool", "int"},
                    WrongTypeCase{boost::any(1), "int", "float"},
                    WrongTypeCase{boost::any(1.0f), "float", "int"},
                    WrongTypeCase{boost::any(QString("1,2")), "QString", "std::vector<int>"},
                    WrongTypeCase{boost::any(std::vector<int>{1}), "std::vector<int>", "QString"}));
