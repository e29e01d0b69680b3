// The C++ layer's free functions: Base64, MD5, charsets, compression, files, profiles, splitting.
#include <ZKQ_general.hpp>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "support/error_text.h"
#include "support/owner.h"
#include "support/temp_dir.h"

namespace {

using namespace std::string_literals;

using Vector = std::vector<unsigned char>;
using Names = std::vector<std::string>;

// Fails, with the text of EINVAL.
void FailOtherwise()
{
    EXPECT_FALSE(ZKQGeneral_IsFileExist(nullptr));
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(CppBase64, ThereAndBack)
{
    const std::string bytes = "a\0b\xFF"s;
    EXPECT_EQ(*zkq::Base64Encode(bytes), "YQBi/w==");
    EXPECT_EQ(zkq::Base64Encode<zkq::Buffer>(bytes)->view(), "YQBi/w==");
    EXPECT_EQ(*zkq::Base64Encode(bytes, 4), "YQBi\r\n/w==\r\n");
    EXPECT_EQ(*zkq::Base64Encode(""), "");
    EXPECT_EQ(*zkq::Base64Decode("YQBi/w=="), bytes);
    EXPECT_EQ(zkq::Base64Decode<zkq::Buffer>("YQBi/w==")->view(), bytes);
    EXPECT_EQ(*zkq::Base64Decode<Vector>("YQBi/w=="), Vector(bytes.begin(), bytes.end()));
    EXPECT_EQ(*zkq::Base64Decode(std::string_view("YQBi/w==", 4)), "a\0b"s);
    const auto none = zkq::Base64Decode("");
    EXPECT_TRUE(none);
    EXPECT_EQ(*none, "");
}

TEST(CppBase64, FailureGivesNothingAndKeepsItsReason)
{
    auto failed = zkq::Base64Decode("YQBi****");
    const std::string reason = support::ErrorText();
    EXPECT_EQ(*failed, "");
    support::ExpectKeepsReason(failed, reason.c_str(), FailOtherwise);
    EXPECT_NE(reason, strerror(EINVAL));
    EXPECT_FALSE(zkq::Base64Decode(nullptr));
}

TEST(CppMd5, Digests)
{
    EXPECT_EQ(zkq::Hex(*zkq::Md5("abc")), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(zkq::Hex(*zkq::Md5("")), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(zkq::Hex("\0\x7F\xFF"s), "007fff");
    const support::TempDir dir;
    support::WriteFile(dir.File("f"), "abc");
    EXPECT_EQ(*zkq::Md5File(dir.File("f")), *zkq::Md5("abc"));
    auto failed = zkq::Md5File(dir.File("none"));
    support::ExpectKeepsReason(failed, strerror(ENOENT), FailOtherwise);
    // More than the C function's length can tell; nothing of it is looked at.
    EXPECT_STREQ(zkq::Md5({"", size_t{UINT_MAX} + 1}).text(), strerror(EMSGSIZE));
}

TEST(CppCharset, ThereAndBack)
{
    const std::string gbk = "a\xD6\xD0\xCE\xC4";
    const std::string utf8 = "a\xE4\xB8\xAD\xE6\x96\x87";
    EXPECT_EQ(*zkq::GbkToUtf8(gbk), utf8);
    EXPECT_EQ(*zkq::Utf8ToGbk(utf8), gbk);
    EXPECT_EQ(*zkq::GbkToUcs2(gbk), u"a\u4E2D\u6587");
    EXPECT_EQ(*zkq::Ucs2ToGbk(u"a\u4E2D\u6587"), gbk);
    EXPECT_EQ(*zkq::GbkToUtf8(std::string(100'000, 'a')), std::string(100'000, 'a'));
    EXPECT_EQ(zkq::GbkToUtf8("").value_or("failed"), "");
    EXPECT_EQ(*zkq::GbkToUcs2(""), u"");
    EXPECT_EQ(*zkq::Ucs2ToGbk(u""), "");
}

TEST(CppCharset, Failures)
{
    auto cut = zkq::GbkToUtf8("a\xD6");
    support::ExpectKeepsReason(cut, strerror(EINVAL), [] { EXPECT_FALSE(ZKQGeneral_IsFileExist("/no such file")); });
    EXPECT_STREQ(zkq::Utf8ToGbk("\xFF\xFF").text(), strerror(EILSEQ));
    EXPECT_FALSE(zkq::GbkToUcs2("\xFF\xFF"));
    EXPECT_STREQ(zkq::GbkToUtf8(std::string_view("", INT_MAX)).text(), strerror(EMSGSIZE));
}

TEST(CppZlib, ThereAndBack)
{
    const std::string plain(100'000, 'p');
    const auto stream = zkq::Compress<zkq::Buffer>(plain);
    ASSERT_TRUE(stream);
    EXPECT_LT(stream->size(), 1000U);
    EXPECT_EQ(*zkq::Decompress(*stream, plain.size()), plain);
    EXPECT_EQ(*zkq::DecompressAll(*stream), plain);
    EXPECT_EQ(zkq::DecompressAll<zkq::Buffer>(stream->str())->view(), plain);
    EXPECT_EQ(*zkq::Decompress(*zkq::Compress(""), 0), "");
    EXPECT_EQ(*zkq::DecompressAll(*zkq::Compress("")), "");
}

TEST(CppZlib, Failures)
{
    const std::string stream = *zkq::Compress("some text");
    auto other = zkq::Decompress(stream, 3);
    support::ExpectKeepsReason(other, "stream error", FailOtherwise);
    // A stranger's length takes no memory.
    auto huge = zkq::Decompress(stream, SIZE_MAX);
    EXPECT_STREQ(huge.text(), strerror(EMSGSIZE));
    EXPECT_EQ(huge.code(), EMSGSIZE);
    auto damaged = zkq::DecompressAll("no stream at all");
    support::ExpectKeepsReason(damaged, "data error", FailOtherwise);
    EXPECT_EQ(damaged.code(), 12);
    EXPECT_EQ(*damaged, "");
}

TEST(CppFile, ThereAndBack)
{
    const support::TempDir dir;
    const std::string path = dir.File("f");
    const std::string content = "one\0two\n"s;
    EXPECT_TRUE(zkq::WriteFile(path, content));
    EXPECT_EQ(support::ReadFile(path), content);
    EXPECT_EQ(*zkq::ReadFile(path), content);
    EXPECT_EQ(zkq::ReadFile<zkq::Buffer>(std::string_view(path))->view(), content);
    EXPECT_EQ(*zkq::ReadFile<Vector>(path), Vector(content.begin(), content.end()));
    EXPECT_TRUE(zkq::WriteFile(path, ""));
    EXPECT_EQ(zkq::ReadFile(path).value_or("failed"), "");
}

TEST(CppFile, Failures)
{
    const support::TempDir dir;
    auto missing = zkq::ReadFile(dir.File("none"));
    support::ExpectKeepsReason(missing, strerror(ENOENT), FailOtherwise);
    EXPECT_STREQ(zkq::ReadFile(dir.Path()).text(), strerror(EISDIR));
    EXPECT_STREQ(zkq::ReadFile(nullptr).text(), strerror(EINVAL));
    EXPECT_STREQ(zkq::WriteFile(dir.File("none/f"), "x").text(), strerror(ENOENT));
    EXPECT_STREQ(zkq::WriteFile(dir.File("none/f"), "").text(), strerror(ENOENT));
    EXPECT_STREQ(zkq::WriteFile(dir.File("f"), {"", size_t{INT_MAX} + 1}).text(), strerror(EINVAL));
}

TEST(CppProfile, Values)
{
    const support::TempDir dir;
    const std::string path = dir.File("p.ini");
    EXPECT_EQ(zkq::ProfileGet(path, "s", "k", "fallback"), "fallback");
    EXPECT_TRUE(zkq::ProfileSet(path, "s", "k", std::string_view("value!", 5)));
    EXPECT_TRUE(zkq::ProfileSet(path, "s", "number", "-42"));
    EXPECT_EQ(support::ReadFile(path), "[s]\nk = value\nnumber = -42\n");
    EXPECT_EQ(zkq::ProfileGet(path, "s", "k"), "value");
    EXPECT_EQ(zkq::ProfileGet(path, "s", "none"), "");
    EXPECT_EQ(zkq::ProfileInt(path, "s", "number"), -42);
    EXPECT_EQ(zkq::ProfileInt(path, "s", "none", -7), -7);
    EXPECT_TRUE(zkq::ProfileSet(path, "s", "k", nullptr));
    EXPECT_EQ(zkq::ProfileGet(path, "s", "k", "gone"), "gone");
    auto failed = zkq::ProfileSet(dir.File("none/p.ini"), "s", "k", "v");
    support::ExpectKeepsReason(failed, strerror(ENOENT), FailOtherwise);
}

TEST(CppProfile, NothingIsCut)
{
    const support::TempDir dir;
    const std::string path = dir.File("p.ini");
    const std::string longest(4093, 'v'); // with "k=" a line of 4095 bytes
    support::WriteFile(path, "[s]\nk=" + longest + "\n");
    EXPECT_EQ(zkq::ProfileGet(path, "s", "k"), longest);
    for (const size_t size : {4094, 4095, 4096, 10'000}) {
        const std::string fallback(size, 'f');
        EXPECT_EQ(zkq::ProfileGet(path, "s", "none", fallback), fallback);
    }
}

TEST(CppProfile, Lists)
{
    const support::TempDir dir;
    const std::string path = dir.File("p.ini");
    support::WriteFile(path, "[a]\nx=1\ny=2\n[b]\n[a]\n");
    EXPECT_EQ(zkq::ProfileSections(path), (Names{"a", "b", "a"}));
    EXPECT_EQ(zkq::ProfileKeys(path, "a"), (Names{"x", "y"}));
    EXPECT_EQ(zkq::ProfileKeys(path, "b"), Names());
    EXPECT_EQ(zkq::ProfileSections(dir.File("none")), Names());
    EXPECT_EQ(zkq::ProfileKeys(dir.File("none"), "a"), Names());
}

TEST(CppProfile, ListsOfAnyLengthAreWhole)
{
    const support::TempDir dir;
    const std::string path = dir.File("p.ini");
    // Across every length at which the first room is just full, and far beyond.
    for (size_t last = 4060; last <= 4096; ++last) {
        const Names names = {std::string(10, 'a'), std::string(last - 11, 'b'), std::string(11, 'c')};
        support::WriteFile(path, "[" + names[0] + "]\n[" + names[1] + "]\n[" + names[2] + "]\n");
        EXPECT_EQ(zkq::ProfileSections(path), names) << last;
    }
    std::string text;
    Names names;
    for (int i = 0; i < 20'000; ++i) {
        names.push_back("section" + std::to_string(i));
        text += "[" + names.back() + "]\n";
    }
    support::WriteFile(path, text);
    EXPECT_EQ(zkq::ProfileSections(path), names);
    support::WriteFile(path, "[a]\n[no end\n");
    EXPECT_EQ(zkq::ProfileSections(path), Names());
}

TEST(CppSplit, Tokens)
{
    EXPECT_EQ(*zkq::Split("a,,b;", ",;"), (Names{"a", "b"}));
    EXPECT_EQ(*zkq::Split(std::string_view("a b c", 3), " "), (Names{"a", "b"}));
    EXPECT_TRUE(zkq::Split("", " "));
    EXPECT_EQ(*zkq::Split("", " "), Names());
    auto failed = zkq::Split(nullptr, " ");
    support::ExpectKeepsReason(failed, strerror(EINVAL), [] { EXPECT_FALSE(ZKQGeneral_IsFileExist("/no such file")); });
}

} // namespace
