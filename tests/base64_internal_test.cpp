// Every codec of Base64 that this processor supports, against an obvious model: same bytes, same lengths, same results.
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <random>
#include <string>

#include "../src/internal/base64.h"
#include "../src/internal/base64_codec.h"
#include "support/base64_model.h"
#include "support/paths.h"

namespace {

namespace model = support::model;

// A buffer that ends where the next page may not be touched, and another that begins where the page before may not.
class Fenced {
public:
    explicit Fenced(size_t most)
        : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))), size_((most + page_ - 1) / page_ * page_)
    {
        void* const room = mmap(nullptr, size_ + 2 * page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        EXPECT_NE(room, MAP_FAILED);
        room_ = static_cast<char*>(room);
        EXPECT_EQ(mprotect(room_ + page_, size_, PROT_READ | PROT_WRITE), 0);
    }
    Fenced(const Fenced&) = delete;
    Fenced& operator=(const Fenced&) = delete;
    ~Fenced() { munmap(room_, size_ + 2 * page_); }

    char* AtEnd(size_t size) const { return room_ + page_ + size_ - size; }
    char* AtBegin() const { return room_ + page_; }

private:
    size_t page_;
    size_t size_;
    char* room_ = nullptr;
};

constexpr size_t kMost = 4096;

class Codec : public testing::TestWithParam<const Base64Codec*> {
protected:
    void SetUp() override
    {
        if (!GetParam()->IsSupported())
            GTEST_SKIP() << "this processor has no " << GetParam()->name;
    }

    // Once with fences behind the buffers, once with fences before them.
    void ExpectEncodes(const std::string& bytes, int perLine)
    {
        const std::string expected = model::Encode(bytes, perLine) + '\0';
        for (const bool atEnd : {true, false}) {
            char* const in = atEnd ? in_.AtEnd(bytes.size()) : in_.AtBegin();
            char* const out = atEnd ? out_.AtEnd(expected.size()) : out_.AtBegin();
            memcpy(in, bytes.data(), bytes.size());
            memset(out_.AtBegin(), 'x', kMost);
            char* const end =
                EncodeBase64With(*GetParam(), reinterpret_cast<unsigned char*>(in), bytes.size(), out, perLine);
            ASSERT_EQ(end, out + expected.size() - 1);
            ASSERT_EQ(std::string(out, expected.size()), expected);
            if (!atEnd) {
                ASSERT_EQ(std::string(out + expected.size(), 100), std::string(100, 'x'));
            }
        }
    }

    void ExpectDecodes(const std::string& text)
    {
        const model::Decoded expected = model::Decode(text);
        for (const bool atEnd : {true, false}) {
            char* const in = atEnd ? in_.AtEnd(text.size()) : in_.AtBegin();
            char* const out = atEnd ? out_.AtEnd(expected.bytes.size()) : out_.AtBegin();
            memcpy(in, text.data(), text.size());
            memset(out_.AtBegin(), 'x', kMost);
            size_t length = 4711;
            const int error =
                DecodeBase64With(*GetParam(), {in, text.size()}, reinterpret_cast<unsigned char*>(out), &length);
            ASSERT_EQ(error, expected.good ? 0 : EBADMSG) << text;
            ASSERT_EQ(length, expected.bytes.size()) << text;
            ASSERT_EQ(std::string(out, length), expected.bytes) << text;
            if (!atEnd) {
                ASSERT_EQ(std::string(out + length, 100), std::string(100, 'x')) << text;
            }
            if (text.find('\0') != std::string::npos)
                continue;
            // The same text with a NUL.
            char* const terminated = atEnd ? in - 1 : in;
            memmove(terminated, in, text.size());
            terminated[text.size()] = '\0';
            memset(out_.AtBegin(), 'x', kMost);
            length = 4711;
            ASSERT_EQ(DecodeBase64With(*GetParam(), terminated, reinterpret_cast<unsigned char*>(out), &length), error);
            ASSERT_EQ(std::string(out, length), expected.bytes) << text;
        }
    }

private:
    Fenced in_{kMost};
    Fenced out_{kMost};
};

std::string RandomBytes(std::mt19937& random, size_t length)
{
    std::string bytes(length, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

TEST_P(Codec, EncodesAndDecodesEveryLength)
{
    std::mt19937 random(1);
    for (size_t length = 0; length <= 300; ++length) {
        const std::string bytes = RandomBytes(random, length);
        for (const int perLine : {0, 1, 4, 8, 12, 60, 62, 64, 68, 72, 76, 128, 132, 200}) {
            SCOPED_TRACE(perLine);
            ASSERT_NO_FATAL_FAILURE(ExpectEncodes(bytes, perLine));
            ASSERT_NO_FATAL_FAILURE(ExpectDecodes(model::Encode(bytes, perLine)));
        }
    }
}

TEST_P(Codec, EveryByteInEveryPlace)
{
    std::mt19937 random(2);
    const std::string clean = model::Encode(RandomBytes(random, 105), 0);
    for (size_t place = 0; place < clean.size(); ++place)
        for (int byte = 1; byte < 256; ++byte) {
            std::string text = clean;
            text[place] = static_cast<char>(byte);
            ASSERT_NO_FATAL_FAILURE(ExpectDecodes(text));
        }
}

TEST_P(Codec, EveryCharacterOfEveryLengthReplacedOrInserted)
{
    std::mt19937 random(3);
    for (size_t length = 0; length <= 300; length += 13) {
        const std::string clean = model::Encode(RandomBytes(random, length), length % 2 == 0 ? 0 : 72);
        for (size_t place = 0; place < clean.size(); ++place)
            for (const char other : {'=', '\r', ' ', '*', '\x80', '\xFF', '-'}) {
                std::string text = clean;
                text[place] = other;
                ASSERT_NO_FATAL_FAILURE(ExpectDecodes(text));
                text = clean;
                text.insert(place, 1, other);
                ASSERT_NO_FATAL_FAILURE(ExpectDecodes(text));
                ASSERT_NO_FATAL_FAILURE(ExpectDecodes(clean.substr(0, place)));
            }
    }
}

TEST_P(Codec, RandomTexts)
{
    std::mt19937 random(4);
    for (int round = 0; round < 6000; ++round) {
        std::string text;
        while (random() % 8 != 0)
            text += random() % 3 == 0 ? std::string(random() % 4, "\r\n =*"[random() % 5])
                                      : model::Encode(RandomBytes(random, 3 * (random() % 60)), 0);
        text.resize(std::min<size_t>(text.size(), 3000));
        ASSERT_NO_FATAL_FAILURE(ExpectDecodes(text));
    }
}

TEST_P(Codec, LinesOfChangingLengths)
{
    std::mt19937 random(5);
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (size_t lines = random() % 12; lines > 0; --lines) {
            const std::string line = model::Encode(RandomBytes(random, 3 * (random() % 50)), 0);
            const char* const lineBreak = std::array{"\r\n", "\n", " ", "\r\n \n", "\r", "", "=", "*"}[random() % 8];
            for (size_t times = random() % 6; times > 0; --times)
                text += line + lineBreak;
        }
        text.resize(std::min<size_t>(text.size(), 3000));
        ASSERT_NO_FATAL_FAILURE(ExpectDecodes(text));
        if (!text.empty()) {
            text[random() % text.size()] = "\n =*A"[random() % 5];
            ASSERT_NO_FATAL_FAILURE(ExpectDecodes(text));
        }
    }
}

TEST_P(Codec, BreaksThatAreNotLikeTheOnesBefore)
{
    for (const size_t chars : {4, 32, 60, 64, 72, 76, 128})
        for (const size_t breaks : {1, 2, 3, 4}) {
            const std::string line(chars, 'Q');
            const std::string text = line + std::string(breaks, '\n') + line + std::string(breaks, '\n') + line;
            for (size_t place = 0; place < text.size(); ++place)
                for (const char other : {'A', '=', '*', '\r'}) {
                    std::string changed = text;
                    changed[place] = other;
                    ASSERT_NO_FATAL_FAILURE(ExpectDecodes(changed));
                }
        }
}

TEST_P(Codec, TextsLongerThanWhatIsMeasuredAtOnce)
{
    std::mt19937 random(6);
    constexpr size_t piece = 16 * 1024;
    for (const int perLine : {0, 72})
        for (size_t place = piece - 5; place < piece + 5; ++place) {
            std::string text = model::Encode(RandomBytes(random, piece), perLine);
            text.resize(place);
            std::string out(2 * piece, 'x');
            for (const std::string behind : {"", "YWJj", "=", "==", "YQ==", "*", " ", "\r\n", "Y\nW"}) {
                const std::string whole = text + behind;
                const model::Decoded expected = model::Decode(whole);
                size_t length = 0;
                EXPECT_EQ(
                    DecodeBase64With(*GetParam(), whole.c_str(), reinterpret_cast<unsigned char*>(out.data()), &length),
                    expected.good ? 0 : EBADMSG);
                EXPECT_EQ(out.substr(0, length), expected.bytes);
            }
        }
}

TEST_P(Codec, LengthsAreToldInAdvance)
{
    for (size_t length = 0; length < 500; ++length) {
        const std::string bytes = support::Pattern(length);
        EXPECT_EQ(Base64Length(length), model::Encode(bytes, 0).size());
        for (const int perLine : {0, 1, 3, 4, 6, 8, 70, 72, -72})
            ASSERT_EQ(Base64LengthWithBreaks(length, perLine), model::Encode(bytes, perLine).size()) << perLine;
    }
    EXPECT_EQ(Base64LengthWithBreaks(0xFFFFFFFF, 4), size_t{1431655765} * 6) << "beyond 32 bits";
}

INSTANTIATE_TEST_SUITE_P(All, Codec, testing::ValuesIn(kBase64Codecs), [](const auto& codec) {
    std::string name = codec.param->name;
    std::erase(name, '-');
    return name;
});

TEST(Base64Codecs, TheBestThatIsSupportedIsChosen)
{
    const Base64Codec* best = nullptr;
    for (const Base64Codec* codec : kBase64Codecs)
        if (codec->IsSupported())
            best = codec;
    EXPECT_EQ(&ChooseBase64Codec(), best);
    EXPECT_EQ(&ChooseBase64Codec(), best);
}

TEST(Base64Internal, TheEncoderWithoutBreaksIgnoresTheSetting)
{
    ASSERT_TRUE(ZKQGeneral_SetBase64LineFeed(4));
    const std::string bytes = support::Pattern(100);
    std::string text(Base64Length(bytes.size()) + 1, 'x');
    General_Misc_ConvertToBase64(reinterpret_cast<const unsigned char*>(bytes.data()), 100, text.data());
    ZKQGeneral_SetBase64LineFeed(72);
    EXPECT_EQ(text, model::Encode(bytes, 0) + '\0');
}

TEST(Base64Internal, ATextNeedNotBeTerminated)
{
    unsigned char out[3];
    size_t length = 0;
    EXPECT_EQ(ConvertFromBase64_R({"YWJjYWJj", 4}, out, &length), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), length), "abc");
    EXPECT_EQ(ConvertFromBase64_R({"YWJj\0YWJj", 9}, out, &length), EBADMSG) << "a NUL inside is no character";
    EXPECT_EQ(length, 3U);
}

} // namespace
