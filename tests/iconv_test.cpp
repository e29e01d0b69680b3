// The charset wrappers: their steps, and their results against the system's converter as it is.
#include <ZKQ_general/iconv.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <thread>

#include "support/bare_iconv.h"
#include "support/buffer.h"
#include "support/error_text.h"
#include "support/heap.h"

namespace {

using support::BareIconv;
using support::Buffer;
using support::Converted;

// The four functions with one signature.
using Function = BOOL (*)(const char* In, char* Out, int InLength, int* nMaxChar);

struct Direction {
    const char* name;
    const char* to;
    const char* from;
    Function convert;
    size_t growth;
};

const Direction kDirections[] = {
    {"AnsiToUnicode", "UNICODELITTLE", "GBK",
     [](const char* In, char* Out, int InLength, int* nMaxChar) {
         return ZKQGeneral_AnsiToUnicode(In, reinterpret_cast<unsigned short*>(Out), InLength, nMaxChar);
     },
     2},
    {"UnicodeToAnsi", "GBK", "UNICODELITTLE",
     [](const char* In, char* Out, int InLength, int* nMaxChar) {
         return ZKQGeneral_UnicodeToAnsi(reinterpret_cast<const unsigned short*>(In), Out, InLength, nMaxChar);
     },
     1},
    {"AnsiToUTF8", "UTF-8", "GBK",
     [](const char* In, char* Out, int InLength, int* nMaxChar) {
         return ZKQGeneral_AnsiToUTF8(In, Out, InLength, nMaxChar);
     },
     3},
    {"UTF8ToAnsi", "GBK", "UTF-8",
     [](const char* In, char* Out, int InLength, int* nMaxChar) {
         return ZKQGeneral_UTF8ToAnsi(In, Out, InLength, nMaxChar);
     },
     1},
};
const Direction& kAnsiToUnicode = kDirections[0];
const Direction& kUnicodeToAnsi = kDirections[1];
const Direction& kAnsiToUtf8 = kDirections[2];
const Direction& kUtf8ToAnsi = kDirections[3];

int ErrorOfText()
{
    for (const int error : {EINVAL, EILSEQ, EMSGSIZE, ENOMEM, E2BIG}) {
        if (support::ErrorText() == strerror(error))
            return error;
    }
    return -1;
}

// A conversion by the library, the text on the heap in a block of its size.
Converted Convert(const Direction& direction, const std::string& text)
{
    const std::vector<char> exact(text.begin(), text.end());
    const std::string room(direction.growth * text.size(), '\x5A');
    std::vector<char> out(room.begin(), room.end());
    int length = static_cast<int>(out.size());
    support::MarkErrorText();
    if (direction.convert(exact.data(), out.data(), static_cast<int>(text.size()), &length)) {
        EXPECT_TRUE(support::ErrorTextIsMarked());
        return {0, std::string(out.data(), static_cast<size_t>(length))};
    }
    EXPECT_EQ(length, static_cast<int>(out.size()));
    EXPECT_EQ(std::string(out.begin(), out.end()), room) << "a failure writes nothing";
    return {ErrorOfText(), ""};
}

std::string Hex(const std::string& bytes)
{
    std::string text;
    char two[4];
    for (const char byte : bytes.substr(0, 64)) {
        snprintf(two, sizeof two, "%02X ", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        text += two;
    }
    return text;
}

std::string Unit(unsigned unit)
{
    return {static_cast<char>(unit), static_cast<char>(unit >> 8)};
}

// --- steps ---

TEST(Charset, KnownTexts)
{
    EXPECT_EQ(Convert(kAnsiToUnicode, "ab").bytes, std::string("a\0b\0", 4));
    EXPECT_EQ(Convert(kUnicodeToAnsi, std::string("a\0b\0", 4)).bytes, "ab");
    EXPECT_EQ(Convert(kAnsiToUtf8, "\xD6\xD0\xCE\xC4").bytes, "中文");
    EXPECT_EQ(Convert(kUtf8ToAnsi, "中文").bytes, "\xD6\xD0\xCE\xC4");
    EXPECT_EQ(Convert(kAnsiToUnicode, "\xD6\xD0").bytes, Unit(0x4E2D));
    EXPECT_EQ(Convert(kUnicodeToAnsi, Unit(0x4E2D) + Unit('x')).bytes, "\xD6\xD0x");
    EXPECT_EQ(Convert(kAnsiToUtf8, "\x81\x40z").bytes, "丂z") << "a second byte may look like ASCII";
    EXPECT_EQ(Convert(kAnsiToUtf8, std::string("a\0b", 3)).bytes, std::string("a\0b", 3)) << "a NUL is a character";
    EXPECT_EQ(Convert(kUtf8ToAnsi, "\xC3\xA8").bytes, "\xA8\xA8") << "two bytes of UTF-8";
}

TEST(Charset, FailuresTable)
{
    struct Row {
        const char* name;
        const Direction& direction;
        std::string text;
        int error;
    };
    const Row rows[] = {
        {"first byte of a pair at the end", kAnsiToUtf8, "ab\xD6", EINVAL},
        {"first byte of a pair at the end", kAnsiToUnicode, "\xD6", EINVAL},
        {"no first byte", kAnsiToUtf8, "ab\xFF\xFF", EILSEQ},
        {"no second byte", kAnsiToUtf8, "\xD6\x20", EILSEQ},
        {"a high surrogate", kUnicodeToAnsi, Unit(0xD83D), EILSEQ},
        {"a pair of surrogates", kUnicodeToAnsi, Unit(0xD83D) + Unit(0xDE00), EILSEQ},
        {"a character GBK has not", kUnicodeToAnsi, Unit('a') + Unit(0x0E01), EILSEQ},
        {"a character GBK has not", kUtf8ToAnsi, "\xE0\xB8\x81", EILSEQ},
        {"a character beyond U+FFFF", kUtf8ToAnsi, "\xF0\x9F\x98\x80", EILSEQ},
        {"overlong", kUtf8ToAnsi, "\xC0\xAF", EILSEQ},
        {"a surrogate in UTF-8", kUtf8ToAnsi, "\xED\xA0\x80", EILSEQ},
        {"a lone second byte", kUtf8ToAnsi, "a\x80", EILSEQ},
        {"cut after one byte", kUtf8ToAnsi, "\xE4", EINVAL},
        {"cut after two bytes", kUtf8ToAnsi, "abc\xE4\xB8", EINVAL},
        {"bad before cut", kUtf8ToAnsi, "\xE0\xB8\x81\xE4", EILSEQ},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Convert(row.direction, row.text), (Converted{row.error, ""}));
        int length = 7;
        EXPECT_FALSE(row.direction.convert(row.text.data(), nullptr, static_cast<int>(row.text.size()), &length))
            << "a query converts as well";
        EXPECT_EQ(length, 7);
    }
}

TEST(Charset, ArgumentsInTheirOrder)
{
    for (const Direction& direction : kDirections) {
        SCOPED_TRACE(direction.name);
        support::MarkErrorText();
        int length = 42;
        Buffer out(8);
        EXPECT_TRUE(direction.convert(nullptr, nullptr, 0, &length)) << "nothing is fine, whatever it is";
        EXPECT_EQ(length, 0);
        length = -5;
        EXPECT_TRUE(direction.convert("ab", out.Data(), 0, &length));
        EXPECT_EQ(length, 0);
        EXPECT_TRUE(support::ErrorTextIsMarked());
        EXPECT_TRUE(out.Untouched());
        const auto refused = [&](const char* in, int size, int* room) {
            support::MarkErrorText();
            EXPECT_FALSE(direction.convert(in, out.Data(), size, room));
            EXPECT_SYSTEM_ERROR(EINVAL);
            EXPECT_TRUE(out.Untouched());
        };
        length = 8;
        refused(nullptr, 2, &length);
        refused("ab", -1, &length);
        refused("ab", -2, &length);
        refused("ab", INT_MIN, &length);
        refused("ab", 2, nullptr);
        refused("ab", 0, nullptr);
        EXPECT_EQ(length, 8);
    }
    int length = 8;
    char out[8];
    support::MarkErrorText();
    EXPECT_FALSE(kUnicodeToAnsi.convert("a\0b", out, 3, &length));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_FALSE(kUnicodeToAnsi.convert("a", nullptr, 1, &length));
}

TEST(Charset, RoomTable)
{
    const std::pair<const Direction&, std::string> rows[] = {
        {kAnsiToUnicode, "a\xD6\xD0"},
        {kUnicodeToAnsi, Unit(0x4E2D) + Unit('a')},
        {kAnsiToUtf8, "a\xD6\xD0"},
        {kUtf8ToAnsi, "a中"},
    };
    for (const auto& [direction, text] : rows) {
        SCOPED_TRACE(direction.name);
        const int size = static_cast<int>(text.size());
        const std::string expected = BareIconv(direction.to, direction.from)(text).bytes;
        const int needed = static_cast<int>(expected.size());
        for (const int room : {INT_MIN, -1, 0, 1, 100}) {
            int length = room;
            EXPECT_TRUE(direction.convert(text.data(), nullptr, size, &length)) << "a query";
            EXPECT_EQ(length, needed);
        }
        for (const int room : {needed - 1, 1, 0, -1, INT_MIN}) {
            Buffer out(expected.size());
            int length = room;
            support::MarkErrorText();
            EXPECT_FALSE(direction.convert(text.data(), out.Data(), size, &length));
            EXPECT_SYSTEM_ERROR(EMSGSIZE);
            EXPECT_EQ(length, room);
            EXPECT_TRUE(out.Untouched());
        }
        for (const int room : {needed, needed + 1, INT_MAX}) {
            Buffer out(expected.size());
            int length = room;
            EXPECT_TRUE(direction.convert(text.data(), out.Data(), size, &length));
            EXPECT_EQ(length, needed);
            EXPECT_EQ(out.Bytes(), expected);
            EXPECT_TRUE(out.GuardIntact()) << "and no terminator";
        }
    }
}

TEST(Charset, ATextMayBeConvertedInPlace)
{
    std::string text = "\xD6\xD0\xCE\xC4 and ASCII, \xD6\xD0";
    const std::string expected = BareIconv("UTF-8", "GBK")(text).bytes;
    const int size = static_cast<int>(text.size());
    text.resize(100);
    int length = 100;
    ASSERT_TRUE(ZKQGeneral_AnsiToUTF8(text.data(), text.data(), size, &length));
    EXPECT_EQ(text.substr(0, static_cast<size_t>(length)), expected);
}

TEST(Charset, TextsNeedNotBeAligned)
{
    const std::string text = "x" + Unit(0x4E2D) + Unit('a');
    std::string out(5, '\0');
    int length = 3;
    ASSERT_TRUE(kUnicodeToAnsi.convert(text.data() + 1, out.data() + 1, 4, &length));
    EXPECT_EQ(out, std::string("\0\xD6\xD0"
                               "a\0",
                               5));
    length = 4;
    ASSERT_TRUE(kAnsiToUnicode.convert("\xD6\xD0"
                                       "a",
                                       out.data() + 1, 3, &length));
    EXPECT_EQ(out.substr(1), text.substr(1));
}

// --- against the bare converter ---

class Against : public testing::TestWithParam<Direction> {
protected:
    Against() : bare_(GetParam().to, GetParam().from) { EXPECT_TRUE(bare_.IsOpen()); }

    void Compare(const std::string& text) const { ASSERT_EQ(Convert(GetParam(), text), bare_(text)) << Hex(text); }

    bool FromGbk() const { return strcmp(GetParam().from, "GBK") == 0; }
    bool FromUcs2() const { return strcmp(GetParam().from, "UNICODELITTLE") == 0; }

    /// A character of the source charset, as a rule one that the other has too.
    std::string Character(std::mt19937& random) const
    {
        const unsigned unit = 0x4E00 + random() % 0x5000;
        if (FromGbk())
            return {static_cast<char>(0x81 + random() % 0x7D), static_cast<char>(0x80 + random() % 0x7E)};
        if (FromUcs2())
            return Unit(unit);
        return {static_cast<char>(0xE0 | unit >> 12), static_cast<char>(0x80 | (unit >> 6 & 0x3F)),
                static_cast<char>(0x80 | (unit & 0x3F))};
    }
    std::string Ascii(char c) const { return FromUcs2() ? Unit(static_cast<unsigned char>(c)) : std::string(1, c); }

private:
    BareIconv bare_;
};

TEST_P(Against, TheBareConverterOnEveryByteAndPair)
{
    for (unsigned i = 0; i < 0x10000; ++i) {
        const std::string pair = {static_cast<char>(i >> 8), static_cast<char>(i)};
        Compare(pair);
        if (HasFatalFailure())
            return;
        if (i < 0x100 && !FromUcs2())
            Compare(pair.substr(1));
    }
}

TEST_P(Against, TheBareConverterOnPairsWithinText)
{
    for (unsigned i = 0x8000; i < 0x10000; ++i) {
        const std::string pair = {static_cast<char>(i >> 8), static_cast<char>(i)};
        const std::string swapped = {pair[1], pair[0]};
        Compare(Ascii('a') + (FromUcs2() ? swapped : pair) + Ascii('z'));
        if (HasFatalFailure())
            return;
    }
}

TEST_P(Against, TheBareConverterOnAsciiOfEveryLengthWithACharacterAnywhere)
{
    std::mt19937 random(1);
    std::string ascii;
    for (int i = 0; i < 70; ++i) {
        Compare(ascii);
        for (int at = 0; at <= i; ++at) {
            const size_t position = static_cast<size_t>(at) * Ascii('a').size();
            std::string text = ascii;
            text.insert(position, Character(random));
            Compare(text);
            Compare(text.substr(0, position + 1) + (FromUcs2() ? "x" : ""));
        }
        if (HasFatalFailure())
            return;
        ascii += Ascii(static_cast<char>(i * 5 % 0x80));
    }
}

TEST_P(Against, TheBareConverterOnLongMixedTexts)
{
    std::mt19937 random(2);
    for (int round = 0; round < 60; ++round) {
        std::string text;
        for (int run = 0; run < 100; ++run) {
            for (size_t i = random() % 12; i > 0; --i)
                text += Ascii(static_cast<char>(random() % 0x80));
            for (size_t i = random() % 12; i > 0; --i) {
                const std::string character = Character(random);
                if (Convert(GetParam(), character).error == 0)
                    text += character;
            }
        }
        Compare(text);
        text[random() % text.size()] = static_cast<char>(random());
        Compare(text);
        const size_t keep = random() % text.size();
        Compare(text.substr(0, FromUcs2() ? keep / 2 * 2 : keep));
    }
}

TEST_P(Against, TheBareConverterOnNoise)
{
    std::mt19937 random(3);
    for (int round = 0; round < 20000; ++round) {
        std::string text(random() % 24, '\0');
        for (char& byte : text)
            byte = static_cast<char>(random() % 3 == 0 ? random() : 0x40 + random() % 0xC0);
        Compare(FromUcs2() ? text.substr(0, text.size() / 2 * 2) : text);
        if (HasFatalFailure())
            return;
    }
}

INSTANTIATE_TEST_SUITE_P(Directions, Against, testing::ValuesIn(kDirections),
                         [](const auto& row) { return row.param.name; });

TEST(Charset, EverythingOfThreeUtf8BytesIsAsTheBareConverterHasIt)
{
    const BareIconv bare("GBK", "UTF-8");
    const auto compare = [&bare](const std::string& text) {
        ASSERT_EQ(Convert(kUtf8ToAnsi, text), bare(text)) << Hex(text);
    };
    for (unsigned i = 0; i < 0x10000; ++i) {
        const std::string three = {static_cast<char>(0xE0 | i >> 12), static_cast<char>(0x80 | (i >> 6 & 0x3F)),
                                   static_cast<char>(0x80 | (i & 0x3F))};
        compare(three);
        if (HasFatalFailure())
            return;
        if (i % 64 == 0) {
            compare(three.substr(0, 2));
            compare(three.substr(0, 2) + "a");
        }
    }
    for (unsigned i = 0; i < 0x110; ++i) { // every plane, and beyond the last
        compare({static_cast<char>(0xF0 | i >> 6), static_cast<char>(0x80 | (i & 0x3F)), '\x80', '\x81'});
        compare("\xF3\xA0\x80" + std::string(1, static_cast<char>(0x80 | (i & 0x3F)))); // tags among them
    }
}

// --- threads, processes, memory ---

TEST(Charset, ManyThreadsFromTheFirstUseOn)
{
    const auto work = [](unsigned seed) {
        std::mt19937 random(seed);
        for (int i = 0; i < 3000; ++i) {
            std::string text = "mixed ";
            for (int k = 0; k < 20; ++k) {
                text += static_cast<char>(0xB0 + random() % 0x27);
                text += static_cast<char>(0xA1 + random() % 0x5E);
            }
            char utf8[200];
            char back[200];
            int length = sizeof utf8;
            int size = sizeof back;
            ASSERT_TRUE(ZKQGeneral_AnsiToUTF8(text.data(), utf8, static_cast<int>(text.size()), &length));
            ASSERT_TRUE(ZKQGeneral_UTF8ToAnsi(utf8, back, length, &size));
            ASSERT_EQ(std::string(back, static_cast<size_t>(size)), text);
            length = size = sizeof utf8;
            ASSERT_TRUE(kAnsiToUnicode.convert(text.data(), utf8, static_cast<int>(text.size()), &length));
            ASSERT_TRUE(kUnicodeToAnsi.convert(utf8, back, length, &size));
            ASSERT_EQ(std::string(back, static_cast<size_t>(size)), text);
            size = sizeof back; // the system's converter is asked about this one
            ASSERT_FALSE(ZKQGeneral_UTF8ToAnsi("\xF0\x9F\x98\x80", back, 4, &size));
        }
    };
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 4; ++seed)
        threads.emplace_back(work, seed);
    for (std::thread& thread : threads)
        thread.join();
}

TEST(Charset, AForkedProcessGoesOn)
{
    ASSERT_EQ(Convert(kAnsiToUtf8, "\xD6\xD0").bytes, "中");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
        _exit(Convert(kAnsiToUtf8, "\xD6\xD0\xCE\xC4").bytes == "中文" && Convert(kUtf8ToAnsi, "文\xFF").error == EILSEQ
                  ? 0
                  : 1);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(Convert(kUtf8ToAnsi, "文\xFF").error, EILSEQ);
}

TEST(Charset, NothingLeaks)
{
    const std::string text(10000, 'x');
    support::ExpectNothingLeaks([&text] {
        Convert(kAnsiToUnicode, text);
        Convert(kUtf8ToAnsi, text + "\xFF");
        Convert(kUnicodeToAnsi, Unit(0x4E2D));
    });
}

} // namespace
