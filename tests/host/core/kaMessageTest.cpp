#include "kaMessage.h"

#include <gtest/gtest.h>

TEST(kaMessage, StoresEachOfTheFiveTypesExactly) {
    kaMessage m;
    m.set("b", true);
    m.set("i", 42);
    m.set("f", 1.5f);
    m.set("v", std::vector<int>{1, 2, 3});
    m.set("s", QString("text"));
    m.set("c", "literal");

    EXPECT_EQ(m.get("b").type(), typeid(bool));
    EXPECT_EQ(m.get("i").type(), typeid(int));
    EXPECT_EQ(m.get("f").type(), typeid(float));
    EXPECT_EQ(m.get("v").type(), typeid(std::vector<int>));
    EXPECT_EQ(m.get("s").type(), typeid(QString));
    EXPECT_EQ(m.get("c").type(), typeid(QString)) << "a C string is stored as a QString";
    EXPECT_EQ(boost::any_cast<int>(m.get("i")), 42);
    EXPECT_EQ(boost::any_cast<std::vector<int>>(m.get("v")), (std::vector<int>{1, 2, 3}));
}

TEST(kaMessage, MissingKeyGivesAnEmptyValue) {
    kaMessage m;
    EXPECT_TRUE(m.get("nothing").empty());
    EXPECT_FALSE(m.has("nothing"));
}

TEST(kaMessage, SetReplacesTheValueAndItsType) {
    kaMessage m;
    m.set("k", 1);
    m.set("k", false);
    EXPECT_EQ(m.get("k").type(), typeid(bool));
}

TEST(kaMessage, RemoveTellsWhetherTheKeyWasThere) {
    kaMessage m;
    m.set("k", 1);
    EXPECT_TRUE(m.remove("k"));
    EXPECT_FALSE(m.remove("k"));
    EXPECT_TRUE(m.get("k").empty());
}

TEST(kaMessage, SetAnyRefusesOtherTypes) {
    kaMessage m;
    EXPECT_FALSE(m.setAny("d", boost::any(2.0)));
    EXPECT_FALSE(m.setAny("e", boost::any()));
    EXPECT_FALSE(m.has("d"));
    EXPECT_TRUE(m.setAny("i", boost::any(3)));
    EXPECT_EQ(boost::any_cast<int>(m.get("i")), 3);
}

TEST(kaMessage, TypeNamesAreReadable) {
    EXPECT_EQ(kaMessage::typeName(boost::any(true)), "bool");
    EXPECT_EQ(kaMessage::typeName(boost::any(1)), "int");
    EXPECT_EQ(kaMessage::typeName(boost::any(1.0f)), "float");
    EXPECT_EQ(kaMessage::typeName(boost::any(std::vector<int>())), "std::vector<int>");
    EXPECT_EQ(kaMessage::typeName(boost::any(QString())), "QString");
    EXPECT_EQ(kaMessage::typeName(boost::any()), "empty");
    EXPECT_EQ(kaMessage::typeName(boost::any(2.0)), "double");
}

// Not inlined and not static, so that its name is in the dynamic symbol table.
__attribute__((noinline)) void printBackTraceFromHere() {
    kaMessage::printBT();
    asm volatile("");
}

TEST(kaMessage, PrintBTPrintsTheCallersFrames) {
    testing::internal::CaptureStderr();
    printBackTraceFromHere();
    std::string trace = testing::internal::GetCapturedStderr();
    EXPECT_NE(trace.find("back-trace ("), std::string::npos);
    EXPECT_NE(trace.find("printBackTraceFromHere"), std::string::npos) << trace;
    EXPECT_NE(trace.find("#0"), std::string::npos);
}
