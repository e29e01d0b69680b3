// The reader and the writer of JSON texts, as documents are opened and closed with them.
#include <ZKQ_general/json.h>
#include <ZKQ_general/string.h>
#include <ZKQ_general/system.h>
#include <float.h>
#include <gtest/gtest.h>
#include <locale.h>
#include <string.h>

#include <memory>
#include <random>

#include "support/error_text.h"
#include "support/heap.h"
#include "support/json_model.h"
#include "support/sanitizer.h"

namespace {

using support::json::Value;

/// A heap copy of exactly the text's size, so that a byte too many is seen.
std::unique_ptr<char[]> Exact(const std::string& text)
{
    auto copy = std::make_unique<char[]>(text.size() + 1);
    memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
}

int Open(const std::string& text, void** ctx)
{
    return JSON_Misc_InitJSON(Exact(text).get(), ctx);
}

std::string Close(void* ctx)
{
    char* text = nullptr;
    EXPECT_EQ(JSON_Misc_FiniJSON(ctx, &text), 0);
    const std::string written = text == nullptr ? "(null)" : text;
    ZKQGeneral_FreeMallocBuffer(text);
    return written;
}

/// What a text is written as after it was read, or the code of its failure.
std::string Rewritten(const std::string& text)
{
    void* ctx = nullptr;
    const int code = Open(text, &ctx);
    if (code == 0)
        return Close(ctx);
    EXPECT_EQ(ctx, nullptr) << "left alone";
    return "(" + std::to_string(code) + ")";
}

std::string Text(const std::string& json)
{
    void* ctx = nullptr;
    EXPECT_EQ(Open(json, &ctx), 0) << json;
    char* value = nullptr;
    EXPECT_EQ(JSON_Misc_GetString(ctx, nullptr, &value), 0);
    const std::string text = value == nullptr ? "(null)" : value;
    EXPECT_EQ(JSON_Misc_FiniJSON(ctx, nullptr), 0);
    return text;
}

int Integer(const std::string& json)
{
    void* ctx = nullptr;
    EXPECT_EQ(Open(json, &ctx), 0) << json;
    int value = 4711;
    EXPECT_EQ(JSON_Misc_GetInt(ctx, nullptr, &value), 0);
    EXPECT_EQ(JSON_Misc_FiniJSON(ctx, nullptr), 0);
    return value;
}

void ExpectAsModel(const std::string& text)
{
    const std::optional<Value> model = support::json::Read(text);
    EXPECT_EQ(Rewritten(text), model ? support::json::Write(*model) : "(-8)") << testing::PrintToString(text);
}

struct Row {
    const char* text;
    const char* written;
};

template <size_t N>
void ExpectRows(const Row (&rows)[N])
{
    for (const Row& row : rows) {
        EXPECT_EQ(Rewritten(row.text), row.written) << row.text;
        ExpectAsModel(row.text);
    }
}

TEST(JsonText, Values)
{
    const Row rows[] = {
        {"null", "null"},
        {"true", "true"},
        {"false", "false"},
        {"0", "0"},
        {"\"a\"", "\"a\""},
        {"[]", "[]"},
        {"{}", "{}"},
        {"[ \t\r\n]", "[]"},
        {"{ \x01\x1f }", "{}"},
        {"[1,2]", "[1, 2]"},
        {"[[],{}]", "[[], {}]"},
        {"{\"a\":{}}", "{\n\t\"a\":{}\n}"},
        {"{\"a\":[]}", "{\n\t\"a\":[]\n}"},
        {"{\"a\":1,\"b\":[1,2],\"c\":{\"d\":\"x\"}}",
         "{\n\t\"a\":1,\n\t\"b\":[1, 2],\n\t\"c\":{\n\t\t\"d\":\"x\"\n\t}\n}"},
        {"[{\"a\":1},{\"b\":[{\"c\":2}]}]", "[{\n\t\t\"a\":1\n\t}, {\n\t\t\"b\":[{\n\t\t\t\t\"c\":2\n\t\t\t}]\n\t}]"},
        {"{\"a\":1,\"a\":2,\"\":3}", "{\n\t\"a\":1,\n\t\"a\":2,\n\t\"\":3\n}"},
        {"{\"\\n\\u0001\\\"\":null}", "{\n\t\"\\n\\u0001\\\"\":null\n}"}};
    ExpectRows(rows);
}

TEST(JsonText, BlanksAreAllBytesFrom1To32)
{
    std::string blanks;
    for (char c = 1; c <= 32; ++c)
        blanks += c;
    std::string text;
    for (const char* part : {"{", "\"a\"", ":", "[", "1", ",", "2", "]", ",", "\"b\"", ":", "{", "}", "}"})
        text += blanks + part;
    EXPECT_EQ(Rewritten(text + blanks), "{\n\t\"a\":[1, 2],\n\t\"b\":{}\n}");
    for (const char* no_blank : {"\x21", "\x7f", "\x80", "\xa0", "\xff", "\xef\xbb\xbf"}) {
        EXPECT_EQ(Rewritten(std::string(no_blank) + "1"), "(-8)");
        EXPECT_EQ(Rewritten("[1" + std::string(no_blank) + "]"), "(-8)");
    }
}

TEST(JsonText, WhatFollowsTheValueIsNotLookedAt)
{
    const Row rows[] = {{"{} x", "{}"},      {"{\"a\":1} trailing", "{\n\t\"a\":1\n}"},
                        {"nullx", "null"},   {"truefalse", "true"},
                        {"falsey", "false"}, {"1 2", "1"},
                        {"[1]]", "[1]"},     {"\"a\"b", "\"a\""},
                        {"1.", "1"},         {"1.e5", "1"},
                        {"1e", "1"},         {"1e+", "1"},
                        {"12-3", "12"},      {"1.5.5", "1.500000"}};
    ExpectRows(rows);
}

TEST(JsonText, KeywordsAreOnlyTheirBytesAlsoInContainers)
{
    const Row rows[] = {{"[nullx]", "(-8)"}, {"[null]", "[null]"}, {"[nul]", "(-8)"},
                        {"nul", "(-8)"},     {"Null", "(-8)"},     {"TRUE", "(-8)"},
                        {"tru", "(-8)"},     {"fals", "(-8)"},     {"[true,false,null]", "[true, false, null]"},
                        {"[true1]", "(-8)"}, {"NaN", "(-8)"}};
    ExpectRows(rows);
    EXPECT_EQ(Integer("true"), 1);
    EXPECT_EQ(Integer("false"), 0);
    EXPECT_EQ(Integer("null"), 0);
}

TEST(JsonText, WhatIsNoValueFails)
{
    for (const char* text : {"",
                             " ",
                             "x",
                             "+1",
                             ".5",
                             "]",
                             "}",
                             ",",
                             ":",
                             "'a'",
                             "[",
                             "[1",
                             "[1,",
                             "[1,]",
                             "[,1]",
                             "[1 2]",
                             "[1,,2]",
                             "{",
                             "{\"a",
                             "{\"a\"",
                             "{\"a\":",
                             "{\"a\":1",
                             "{\"a\":1,",
                             "{\"a\":1,}",
                             "{a:1}",
                             "{\"a\" 1}",
                             "{1:1}",
                             "{,}",
                             "{\"a\":}",
                             "{\"a\"::1}",
                             "[1}",
                             "{\"a\":1]",
                             "{\"a\":1 \"b\":2}",
                             "{\"a\":1;}",
                             "[.5]",
                             "[+1]",
                             "[00]",
                             "[1e5.5]",
                             "[1.]",
                             "[[[",
                             "[[]",
                             "{\"a\":{}",
                             "[{\"a\":[1,2}]",
                             "/**/1",
                             "[\"a]",
                             "\x80"}) {
        EXPECT_EQ(Rewritten(text), "(-8)") << text;
        ExpectAsModel(text);
    }
}

TEST(JsonText, FailuresLeaveTheErrorTextAndNoMemory)
{
    support::MarkErrorText();
    support::ExpectNothingLeaks([] {
        EXPECT_EQ(Rewritten("{\"a\":[1,2,{\"b\":\"text\\n\"},x]}"), "(-8)");
        EXPECT_EQ(Rewritten("{\"a\":[1,2,{\"b\":\"text\\n\"}]}"),
                  "{\n\t\"a\":[1, 2, {\n\t\t\t\"b\":\"text\\n\"\n\t\t}]\n}");
    });
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(JsonNumber, Forms)
{
    const Row rows[] = {{"-", "0"},
                        {"-0", "0"},
                        {"-0.0", "0"},
                        {"01", "1"},
                        {"0123", "123"},
                        {"-0123", "-123"},
                        {"00", "0"},
                        {"--1", "0"},
                        {"-x", "0"},
                        {"1.5", "1.500000"},
                        {"-1.5", "-1.500000"},
                        {"0.5", "0.500000"},
                        {"-.5", "-0.500000"},
                        {"1e3", "1000"},
                        {"1E3", "1000"},
                        {"1e+3", "1000"},
                        {"1500e-3", "1.500000"},
                        {"1e-+3", "1"},
                        {"3000000000", "3000000000"},
                        {"-3000000000", "-3000000000"},
                        {"1e-7", "1.000000e-07"},
                        {"12345678901.5", "1.234568e+10"},
                        {"2147483647", "2147483647"},
                        {"2147483648", "2147483648"},
                        {"-2147483648", "-2147483648"},
                        {"-2147483649", "-2147483649"},
                        {"2147483647.5", "2.147484e+09"},
                        {"1000000000.5", "1.000000e+09"},
                        {"999999999.5", "999999999.500000"},
                        {"0.000001", "0.000001"},
                        {"0.0000015", "0.000002"},
                        {"0.0000009", "9.000000e-07"},
                        {"1e18", "1000000000000000000"},
                        {"1e22", "10000000000000000000000"},
                        {"1e60", "1.000000e+60"},
                        {"1e300", "1.000000e+300"},
                        {"1e308", "1.000000e+308"},
                        {"1e-17", "0"},
                        {"2.2e-16", "0"},
                        {"2.3e-16", "2.300000e-16"},
                        {"-1e-17", "0"},
                        {"1e-400", "0"},
                        {"0.9999999999999999", "1.000000"},
                        {"-0.9999999999999999", "-1"},
                        {"0.9999999", "1.000000"},
                        {"0.99999949", "0.999999"},
                        {"0.5000005", "0.500001"},
                        {"0.0000005", "5.000000e-07"},
                        {"5e-324", "0"},
                        {"1e1 ", "10"},
                        {"10e", "10"}};
    for (const Row& row : rows)
        ExpectAsModel(row.text);
    EXPECT_EQ(Rewritten("00"), "0") << "the second 0 is what follows";
    const Row certain[] = {{"-", "0"},
                           {"-0", "0"},
                           {"01", "1"},
                           {"0123", "123"},
                           {"1.5", "1.500000"},
                           {"1e3", "1000"},
                           {"3000000000", "3000000000"},
                           {"1e-7", "1.000000e-07"},
                           {"12345678901.5", "1.234568e+10"},
                           {"-2147483648", "-2147483648"},
                           {"2147483648", "2147483648"},
                           {"1e60", "1.000000e+60"},
                           {"0.000001", "0.000001"},
                           {"999999999.5", "999999999.500000"},
                           {"-.5", "-0.500000"},
                           {"2147483647.5", "2.147484e+09"},
                           {"1e18", "1000000000000000000"}};
    ExpectRows(certain);
}

TEST(JsonNumber, Integers)
{
    struct {
        const char* text;
        int value;
    } rows[] = {{"0", 0},
                {"-0", 0},
                {"1.9", 1},
                {"-1.9", -1},
                {"2147483647", INT_MAX},
                {"2147483647.9", INT_MAX},
                {"2147483648", INT_MIN},
                {"-2147483648", INT_MIN},
                {"-2147483648.9", INT_MIN},
                {"-2147483649", INT_MIN},
                {"1e10", INT_MIN},
                {"-1e10", INT_MIN},
                {"1e999", INT_MIN},
                {"-1e999", INT_MIN},
                {"0e999", INT_MIN}, // 0 x infinity is no number
                {"1e-999", 0},
                {"4.2e1", 42},
                {"420e-1", 42}};
    for (const auto& row : rows)
        EXPECT_EQ(Integer(row.text), row.value) << row.text;
}

TEST(JsonNumber, ExponentsSaturate)
{
    const std::string huge(1000, '9');
    EXPECT_EQ(Rewritten("1e999"), support::json::Formatted("%e", INFINITY));
    EXPECT_EQ(Rewritten("-1e999"), support::json::Formatted("%e", -INFINITY));
    EXPECT_EQ(Rewritten("1e" + huge), "inf");
    EXPECT_EQ(Rewritten("1e-" + huge), "0");
    EXPECT_EQ(Rewritten("1e2147483648"), "inf");
    EXPECT_EQ(Rewritten("1e-2147483649"), "0");
    EXPECT_EQ(Rewritten("1e4294967297"), "inf");
    EXPECT_EQ(Rewritten("1e18446744073709551617"), "inf");
    for (const char* text : {"0e999", "-0e999", "0e400", "-0.0e400"})
        ExpectAsModel(text);
    EXPECT_NE(Rewritten("0e999").find("nan"), std::string::npos);
    EXPECT_EQ(Rewritten(huge), "inf") << "a mantissa beyond all doubles";
    EXPECT_NE(Rewritten(huge + "e-1000").find("nan"), std::string::npos) << "infinity x 0";
    EXPECT_EQ(Rewritten("0." + std::string(400, '0') + "1e401"), "1");
    EXPECT_EQ(Rewritten("1" + std::string(300, '0') + "e-300"), "1");
}

std::string RandomNumber(std::mt19937& random)
{
    const auto digits = [&](size_t most) {
        std::string text;
        for (size_t i = random() % (most + 1); i > 0; --i)
            text += static_cast<char>('0' + random() % 10);
        return text;
    };
    std::string text = random() % 3 == 0 ? "-" : "";
    text += digits(random() % 8 == 0 ? 400 : 20);
    if (random() % 2 == 0)
        text += "." + digits(random() % 8 == 0 ? 400 : 20);
    if (random() % 3 == 0)
        text += (random() % 2 == 0 ? "e" : "E") + std::string(random() % 3, "+-"[random() % 2]) + digits(4);
    return text;
}

TEST(JsonNumber, RandomTextsAsASlowReaderSeesThem)
{
    std::mt19937 random(1);
    const int rounds = support::IsInstrumented() ? 5000 : 100000;
    for (int i = 0; i < rounds; ++i)
        ExpectAsModel(RandomNumber(random));
}

TEST(JsonNumber, EveryMagnitudeIsWrittenAsPrintfWritesIt)
{
    std::mt19937_64 random(2);
    const int rounds = support::IsInstrumented() ? 20 : 400;
    for (int exponent = -330; exponent <= 310; ++exponent) {
        for (int i = 0; i < rounds; ++i)
            ExpectAsModel(std::to_string(random() >> random() % 64) + "e" + std::to_string(exponent - 9));
    }
}

TEST(JsonNumber, HalvesOfTheSixthDigitAreRoundedAsPrintfDoes)
{
    // k / 2^n + halves of a millionth: the ties that a double can hold have a factor of 1/128 in them.
    for (int i = 1; i < 20000; ++i) {
        char text[64];
        snprintf(text, sizeof text, "%.7f", i / 128.0);
        ExpectAsModel(text);
        snprintf(text, sizeof text, "%d.%07d", i, 5 + 10 * i);
        ExpectAsModel(text);
    }
}

TEST(JsonNumber, APointWhateverTheLocale)
{
    const char* chosen = nullptr;
    for (const char* name :
         {"de_DE.UTF-8", "de_DE.utf8", "de_DE", "fr_FR.UTF-8", "fr_FR.utf8", "ru_RU.UTF-8", "es_ES.UTF-8"})
        if (chosen == nullptr)
            chosen = setlocale(LC_ALL, name);
    if (chosen == nullptr)
        GTEST_SKIP() << "no locale with a decimal comma is installed";
    const bool has_comma = strcmp(localeconv()->decimal_point, ",") == 0;
    const std::string written = Rewritten("[1.5, 1e-7, 12345678901.5, 1e22, -0.25]");
    setlocale(LC_ALL, "C");
    EXPECT_TRUE(has_comma);
    EXPECT_EQ(written, "[1.500000, 1.000000e-07, 1.234568e+10, 10000000000000000000000, -0.250000]");
}

TEST(JsonString, Escapes)
{
    const struct {
        const char* json;
        const char* text;
    } rows[] = {{R"("")", ""},
                {R"("a\b\f\n\r\t")", "a\b\f\n\r\t"},
                {R"("\"\\\/")", "\"\\/"},
                {R"("\a\x\0\U\'\ ")", "ax0U' "},
                {R"("\u00e9")", "\xC3\xA9"},
                {R"("\u00E9\u00C9")", "\xC3\xA9\xC3\x89"},
                {R"("\u007f\u0080\u07ff\u0800\uffff")", "\x7f\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
                {R"("\ud83d\ude00")", "\xF0\x9F\x98\x80"},
                {R"("\uD800\uDC00\udbff\udfff")", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
                {R"("\u0000x")", "x"},
                {R"("\u00zzx")", "x"},
                {R"("a\ug123b")", "ab"},
                {R"("\u12 4x")", "x"},
                {R"("\udc00x")", "x"},
                {R"("\udfffx")", "x"},
                {R"("\ud800x")", "x"},
                {R"("\ud800")", ""},
                {R"("\ud800\n")", "\n"},
                {R"("\ud800\u0041x")", "x"},
                {R"("\ud800\ud800\udc00x")", "x"},
                {R"("\ud800\uzzzzx")", "x"},
                {R"("\u0001\u001f")", "\x01\x1f"},
                {"\"a\x01\n\t\x7f\"", "a\x01\n\t\x7f"},
                {"\"\xff\x80\xC3\"", "\xff\x80\xC3"},
                {R"("abc)", "abc"},
                {R"(")", ""},
                {R"("a\)", "a"},
                {R"("a\")", "a\""},
                {R"("a\u)", "a"},
                {R"("a\u00e)", "a"},
                {R"("a\u00e9)", "a\xC3\xA9"},
                {R"("a\ud800)", "a"},
                {R"("a\ud800\)", "a"},
                {R"("a\ud800\u)", "a"},
                {R"("a\ud800\udc0)", "a"},
                {R"("a\u"bcd"e)", "a"},
                {R"("a\u"bcde")", "ae"}, // six bytes are dropped, whatever they are
                {R"("\u12"ab"c)", "b"}};
    for (const auto& row : rows) {
        EXPECT_EQ(Text(row.json), row.text) << row.json;
        ExpectAsModel(row.json);
    }
}

TEST(JsonString, EveryByteIsReadAndWritten)
{
    for (int byte = 1; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        ExpectAsModel(std::string("\"a") + c + "b\"");
        ExpectAsModel(std::string("\"a\\") + c + "b\"");
        for (size_t place = 0; place < 4; ++place) {
            std::string digits = "1234";
            digits[place] = c;
            ExpectAsModel("\"a\\u" + digits + "b\"");
        }
    }
    EXPECT_EQ(Rewritten("\"\x01\x1f\b\f\n\r\t\x7f\""), "\"\\u0001\\u001f\\b\\f\\n\\r\\t\x7f\"");
    EXPECT_EQ(Rewritten("\"\xC3\xA9/\""), "\"\xC3\xA9/\"");
}

TEST(JsonString, EveryCodeOfEverySizeOfHexDigits)
{
    for (unsigned code = 0; code < 0x10000; code += support::IsInstrumented() ? 7 : 1) {
        char text[32];
        snprintf(text, sizeof text, code % 2 == 0 ? "\"<\\u%04x>\"" : "\"<\\u%04X>\"", code);
        ExpectAsModel(text);
    }
    for (unsigned high = 0xD7FF; high <= 0xDC00; high += 13)
        for (unsigned low = 0xDBFF; low <= 0xE000; low += 11) {
            char text[32];
            snprintf(text, sizeof text, "\"\\u%04x\\u%04x\"", high, low);
            ExpectAsModel(text);
        }
}

TEST(JsonString, StopsAtEveryPlace)
{
    // Sixteen bytes are looked at a time: the quotation mark, the escape and the end at each of them.
    for (size_t length = 0; length < 70; ++length) {
        const std::string plain(length, 'p');
        for (const char* end : {"\"", "", "\\n\"", "\\", "\\u00e9q\"", "\"trailing", "\\\"q\""})
            ExpectAsModel("[\"" + plain + end + ",1]");
        EXPECT_EQ(Text("\"" + plain + "\""), plain);
        EXPECT_EQ(Text("\"" + plain), plain);
        ExpectAsModel("[\"" + plain + "\",\"" + plain + "\x01" + plain + "\"]");
    }
}

std::string RandomBytes(std::mt19937& random, const std::string& alphabet, size_t most)
{
    std::string bytes;
    for (size_t i = random() % (most + 1); i > 0; --i)
        bytes += alphabet[random() % alphabet.size()];
    return bytes;
}

TEST(JsonString, RandomBytesAsASlowDecoderSeesThem)
{
    std::mt19937 random(3);
    const int rounds = support::IsInstrumented() ? 20000 : 300000;
    for (int i = 0; i < rounds; ++i)
        ExpectAsModel("[\"" + RandomBytes(random, "\\\\\\\\uuuudD89cC0aAbfnt\"/x\x01\xC3", 60) + "\"]");
}

TEST(JsonText, RandomStructuresAsASlowReaderSeesThem)
{
    std::mt19937 random(4);
    const int rounds = support::IsInstrumented() ? 20000 : 300000;
    for (int i = 0; i < rounds; ++i)
        ExpectAsModel(RandomBytes(random, "[[]{}}::,,,\"\"\"ab\\01-. \n", 30));
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    for (int i = 0; i < rounds; ++i)
        ExpectAsModel(RandomBytes(random, all, 20));
}

/// A number whose digits a double can hold; those of longer ones change with each reading.
std::string SmallNumber(std::mt19937& random)
{
    std::string text = (random() % 3 == 0 ? "-" : "") + std::to_string(random() % 100000);
    text += random() % 2 == 0 ? "." + std::to_string(random() % 100000) : "";
    return text + (random() % 3 == 0 ? "e" + std::to_string(static_cast<int>(random() % 20) - 12) : "");
}

/// A random value as text; names and texts need escapes, numbers may be anything.
std::string RandomValue(std::mt19937& random, int depth)
{
    const auto text = [&] {
        return "\"" + RandomBytes(random, "abc\xC3\xA9/", 20) + (random() % 4 ? "" : "\\n\\\"") + "\"";
    };
    switch (random() % (depth > 0 ? 7 : 5)) {
    case 0:
        return "true";
    case 1:
        return "null";
    case 2:
        return "false";
    case 3:
        return SmallNumber(random);
    case 4:
        return text();
    default:
        break;
    }
    const bool is_object = random() % 2 == 0;
    std::string written;
    for (size_t i = random() % 6; i > 0; --i)
        written += (written.empty() ? "" : ",") + (is_object ? text() + ":" : "") + RandomValue(random, depth - 1);
    return (is_object ? "{" : "[") + written + (is_object ? "}" : "]");
}

TEST(JsonText, WhatIsWrittenIsReadAsTheSame)
{
    std::mt19937 random(5);
    const int rounds = support::IsInstrumented() ? 2000 : 20000;
    for (int i = 0; i < rounds; ++i) {
        const std::string text = RandomValue(random, 6);
        ExpectAsModel(text);
        const std::string once = Rewritten(text);
        if (once.find("nan") == std::string::npos && once.find("inf") == std::string::npos) {
            const std::string twice = Rewritten(once);
            EXPECT_EQ(Rewritten(twice), twice) << "six digits are kept, and no more are lost";
        }
    }
}

// Depth and size

constexpr size_t kLevels = 1'000'000;

std::string Repeat(const std::string& text, size_t count)
{
    std::string all;
    all.reserve(text.size() * count);
    for (size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

TEST(JsonDepth, AMillionArraysAreReadAndWritten)
{
    const std::string text = Repeat("[", kLevels) + Repeat("]", kLevels);
    EXPECT_TRUE(Rewritten(text) == text);
    EXPECT_TRUE(Rewritten(Repeat("[", kLevels) + "1" + Repeat(",2]", kLevels)) ==
                Repeat("[", kLevels) + "1" + Repeat(", 2]", kLevels));
}

TEST(JsonDepth, AMillionLevelsThatFailAreReleased)
{
    EXPECT_EQ(Rewritten(Repeat("[", kLevels)), "(-8)");
    EXPECT_EQ(Rewritten(Repeat("{\"a\":", kLevels)), "(-8)");
    EXPECT_EQ(Rewritten(Repeat("[{\"a\":", kLevels) + "}"), "(-8)");
}

TEST(JsonDepth, ObjectsWhoseIndentationIsTooLongHaveNoText)
{
    void* ctx = nullptr;
    ASSERT_EQ(Open(Repeat("{\"a\":", kLevels) + "1" + Repeat("}", kLevels), &ctx), 0);
    char mark = 0;
    char* text = &mark;
    EXPECT_EQ(JSON_Misc_FiniJSON(ctx, &text), 0);
    EXPECT_EQ(text, nullptr);
}

TEST(JsonDepth, ObjectsAThousandLevelsDeep)
{
    const size_t levels = 1000;
    std::string expected;
    for (size_t depth = 1; depth <= levels; ++depth)
        expected += "{\n" + std::string(depth, '\t') + "\"a\":";
    expected += "true";
    for (size_t depth = levels; depth-- > 0;)
        expected += "\n" + std::string(depth, '\t') + "}";
    EXPECT_EQ(Rewritten(Repeat("{\"a\":", levels) + "true" + Repeat("}", levels)), expected);
}

TEST(JsonDepth, AMillionLevelsMadeByPaths)
{
    void* ctx = nullptr;
    ASSERT_EQ(JSON_Misc_InitJSON(nullptr, &ctx), 0);
    void* node = ctx;
    for (size_t i = 0; i < kLevels; ++i) {
        ASSERT_EQ(JSON_Misc_SetNodeArrayType(node), 0);
        ASSERT_EQ(JSON_Misc_CreateObjectNode(node, &node), 0);
    }
    EXPECT_TRUE(Close(ctx) == Repeat("[", kLevels) + "{}" + Repeat("]", kLevels));
}

TEST(JsonSize, LongStringsArrayAndNames)
{
    const std::string text(30'000'000, 's');
    EXPECT_TRUE(Rewritten("\"" + text + "\"") == "\"" + text + "\"");
    EXPECT_TRUE(Rewritten("{\"" + text + "\":1}") == "{\n\t\"" + text + "\":1\n}");
    const std::string control(3'000'000, '\x01');
    EXPECT_TRUE(Rewritten("\"" + control) == "\"" + Repeat("\\u0001", control.size()) + "\"");
    const size_t count = support::IsInstrumented() ? 100'000 : 1'000'000;
    EXPECT_TRUE(Rewritten("[1" + Repeat(",1", count) + "]") == "[1" + Repeat(", 1", count) + "]");
}

TEST(JsonSize, ATextThatNeedsNoEscapesIsWrittenEvenIfSixTimesItsLengthWouldBeTooMuch)
{
    if (support::IsInstrumented())
        GTEST_SKIP() << "takes more memory than an instrumented program should";
    const std::string text = "\"" + std::string(400'000'000, 's') + "\"";
    void* ctx = nullptr;
    ASSERT_EQ(JSON_Misc_InitJSON(text.c_str(), &ctx), 0);
    char* written = nullptr;
    EXPECT_EQ(JSON_Misc_FiniJSON(ctx, &written), 0);
    ASSERT_NE(written, nullptr);
    EXPECT_TRUE(text == written);
    ZKQGeneral_FreeMallocBuffer(written);
}

TEST(JsonText, NoTextIsAnEmptyObject)
{
    void* ctx = nullptr;
    ASSERT_EQ(JSON_Misc_InitJSON(nullptr, &ctx), 0);
    EXPECT_EQ(Close(ctx), "{}");
}

TEST(JsonText, TheCallersTextIsNeitherChangedNorKept)
{
    std::string text = "{\"a\":\"x\\ty\",\"b\":[1.5,true]}";
    const std::string before = text;
    void* ctx = nullptr;
    ASSERT_EQ(JSON_Misc_InitJSON(text.c_str(), &ctx), 0);
    EXPECT_EQ(text, before);
    std::fill(text.begin(), text.end(), '?');
    EXPECT_EQ(Close(ctx), "{\n\t\"a\":\"x\\ty\",\n\t\"b\":[1.500000, true]\n}");
}

} // namespace
