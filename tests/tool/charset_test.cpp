#include "charset.h"

#include <gtest/gtest.h>
#include <locale.h>

#include "failure.h"

namespace {

constexpr char kGbk[] = "\xc4\xda\xb4\xe6\xb2\xbb\xd7\xe3";
constexpr char kUtf8[] = "内存不足";

class Charset : public testing::Test {
protected:
    static void Use(const char* locale) { ASSERT_NE(setlocale(LC_ALL, locale), nullptr) << locale; }
    ~Charset() override { setlocale(LC_ALL, "C"); }
};

TEST_F(Charset, ErrorTextsOfTheLibraryAreShownInTheCharsetOfTheTerminal)
{
    Use("C.UTF-8");
    EXPECT_EQ(ToTerminal(kGbk), kUtf8);
}

TEST_F(Charset, ErrorTextsOfTheSystemStayAsTheyAre)
{
    Use("C.UTF-8");
    EXPECT_EQ(ToTerminal("No such file or directory"), "No such file or directory");
    EXPECT_EQ(ToTerminal(kUtf8), kUtf8);
}

TEST_F(Charset, ErrorTextsThatCannotBeConvertedAreShownRaw)
{
    Use("C.UTF-8");
    EXPECT_EQ(ToTerminal("\xc4\xda \xff"), "\xc4\xda \xff");
    Use("C");
    EXPECT_EQ(ToTerminal(kGbk), kGbk);
}

TEST_F(Charset, GbkMayBeSplitAnywhere)
{
    Use("C.UTF-8");
    for (size_t cut = 0; cut < sizeof(kGbk); ++cut) {
        GbkReader reader;
        const std::string text = kGbk;
        std::string shown = reader.Convert(text.substr(0, cut));
        shown += reader.Convert(text.substr(cut));
        shown += reader.Finish();
        EXPECT_EQ(shown, kUtf8) << cut;
    }
}

TEST_F(Charset, GbkLongerThanOneBlockIsConvertedWhole)
{
    Use("C.UTF-8");
    std::string text;
    std::string expected;
    for (int i = 0; i < 5000; ++i) {
        text += kGbk;
        expected += kUtf8;
    }
    GbkReader reader;
    EXPECT_EQ(reader.Convert(text), expected);
}

TEST_F(Charset, BadGbkBecomesQuestionMarks)
{
    Use("C.UTF-8");
    GbkReader reader;
    EXPECT_EQ(reader.Convert("a\xff\xc4\xda\xc4"), "a?内");
    EXPECT_EQ(reader.Finish(), "?");
    EXPECT_EQ(reader.Finish(), "");
}

TEST_F(Charset, GbkThatTheTerminalCannotShowBecomesQuestionMarks)
{
    Use("C");
    GbkReader reader;
    EXPECT_EQ(reader.Convert("a\xc4\xda\xd2\x40z"), "a??z");
}

} // namespace
