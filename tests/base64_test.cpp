// Base64 through the shared object.
#include <ZKQ_general/base64.h>
#include <ZKQ_general/error.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <malloc.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "support/base64_model.h"
#include "support/error_text.h"
#include "support/heap.h"
#include "support/paths.h"
#include "support/sanitizer.h"

namespace {

namespace model = support::model;

// Billions of bytes are only for a program at full speed.
bool IsSlow()
{
#ifdef __OPTIMIZE__
    return support::IsInstrumented();
#else
    return true;
#endif
}

// The messages as they leave the library, in GBK.
const std::string kBadText = "\xCA\xE4\xC8\xEB\xB5\xC4"
                             "BASE64"
                             "\xCA\xFD\xBE\xDD\xB2\xBB\xD5\xFD\xC8\xB7\xA3\xA1";
const std::string kBadLine = "\xC3\xBF\xD0\xD0\xD7\xEE\xB4\xF3\xD7\xD6\xB7\xFB\xCA\xFD\xB1\xD8\xD0\xEB\xCA\xC7"
                             "4"
                             "\xB5\xC4\xD5\xFB\xCA\xFD\xB1\xB6\xA3\xA1";

// Bytes on the heap in a block of exactly their size.
class Block {
public:
    explicit Block(size_t size) : size_(size), data_(static_cast<unsigned char*>(malloc(size)), &free) {}
    explicit Block(const std::string& bytes) : Block(bytes.size()) { memcpy(data_.get(), bytes.data(), bytes.size()); }
    unsigned char* Data() const { return data_.get(); }
    char* Text() const { return reinterpret_cast<char*>(data_.get()); }
    std::string Bytes() const { return {Text(), size_}; }

private:
    size_t size_;
    std::unique_ptr<unsigned char, decltype(&free)> data_;
};

// Puts the line length back to what it is when a program starts.
class Base64 : public testing::Test {
protected:
    ~Base64() override { ZKQGeneral_SetBase64LineFeed(72); }
};

// Encodes with the line length that is set, into exactly the room that is needed.
std::string Encode(const std::string& bytes, int perLine)
{
    const std::string expected = model::Encode(bytes, perLine);
    const Block in(bytes);
    const Block out(std::string(expected.size() + 1, 'x'));
    ZKQGeneral_ConvertToBase64(in.Data(), static_cast<unsigned>(bytes.size()), out.Text());
    EXPECT_EQ(out.Bytes(), expected + '\0');
    return out.Bytes().substr(0, expected.size());
}

std::string EncodeEx(const std::string& bytes, int perLine)
{
    const Block in(bytes);
    char* out = nullptr;
    EXPECT_TRUE(ZKQGeneral_ConvertToBase64Ex(in.Data(), static_cast<int>(bytes.size()), &out, perLine));
    const std::string text = out;
    ZKQGeneral_FreeMallocBuffer(out);
    return text;
}

// Decodes into exactly as much room as the result needs.
model::Decoded Decode(const std::string& text)
{
    const model::Decoded expected = model::Decode(text);
    const Block in(text + '\0');
    const Block out(expected.bytes.size());
    unsigned length = 4711;
    support::MarkErrorText();
    const BOOL good = ZKQGeneral_ConvertFromBase64(in.Text(), out.Data(), &length);
    EXPECT_EQ(good == TRUE, expected.good) << text;
    EXPECT_EQ(support::ErrorText(), good ? "(mark)" : kBadText);
    EXPECT_EQ(length, expected.bytes.size()) << text;
    EXPECT_EQ(out.Bytes(), expected.bytes) << text;

    unsigned char* buffer = nullptr;
    int size = 4711;
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_ConvertFromBase64Ex(in.Text(), &buffer, &size), good);
    EXPECT_EQ(support::ErrorText(), good ? "(mark)" : kBadText);
    EXPECT_NE(buffer, nullptr) << "handed out also after a failure";
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), static_cast<size_t>(size)), expected.bytes);
    ZKQGeneral_FreeMallocBuffer(buffer);
    return {good == TRUE, out.Bytes()};
}

model::Decoded Good(const std::string& bytes)
{
    return {true, bytes};
}

model::Decoded Bad(const std::string& bytes = "")
{
    return {false, bytes};
}

TEST_F(Base64, EncodesGroups)
{
    EXPECT_EQ(Encode("", 72), "");
    EXPECT_EQ(Encode("a", 72), "YQ==");
    EXPECT_EQ(Encode("ab", 72), "YWI=");
    EXPECT_EQ(Encode("abc", 72), "YWJj");
    EXPECT_EQ(Encode("foobar", 72), "Zm9vYmFy");
    EXPECT_EQ(Encode(std::string(3, '\0'), 72), "AAAA");
    EXPECT_EQ(Encode("\xFF\xFF\xFF", 72), "////");
    EXPECT_EQ(Encode("\xFB\xEF\xBE", 72), "++++");
    std::string all;
    for (unsigned i = 0; i < 64; i += 4) {
        all += static_cast<char>(i << 2 | (i + 1) >> 4);
        all += static_cast<char>((i + 1) << 4 | (i + 2) >> 2);
        all += static_cast<char>((i + 2) << 6 | (i + 3));
    }
    EXPECT_EQ(Encode(all, 72), "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
}

TEST_F(Base64, AFullLineIsFollowedByABreak)
{
    const std::string line(72, 'A');
    EXPECT_EQ(Encode(std::string(51, '\0'), 72), std::string(68, 'A'));
    EXPECT_EQ(Encode(std::string(54, '\0'), 72), line + "\r\n");
    EXPECT_EQ(Encode(std::string(57, '\0'), 72), line + "\r\nAAAA");
    EXPECT_EQ(Encode(std::string(108, '\0'), 72), line + "\r\n" + line + "\r\n");
    EXPECT_EQ(Encode(std::string(53, '\0'), 72), std::string(71, 'A') + "=\r\n") << "padding fills a line, too";
    EXPECT_EQ(Encode(std::string(52, '\0'), 72), std::string(70, 'A') + "==\r\n");
    EXPECT_EQ(Encode(std::string(55, '\0'), 72), line + "\r\nAA==");
}

TEST_F(Base64, TheLineLengthIsAMultipleOfFour)
{
    for (const int length : {70, 1, 2, 3, 5, 71, 73, -1, -2, -3, -70, INT_MAX, INT_MIN + 1}) {
        SCOPED_TRACE(length);
        support::MarkErrorText();
        EXPECT_FALSE(ZKQGeneral_SetBase64LineFeed(length));
        EXPECT_EQ(support::ErrorText(), kBadLine);
        Encode(support::Pattern(120), 72);
    }
    for (const int length : {0, 4, 8, 72, 76, 100, -4, -72, INT_MAX - 3, INT_MIN}) {
        SCOPED_TRACE(length);
        support::MarkErrorText();
        EXPECT_TRUE(ZKQGeneral_SetBase64LineFeed(length));
        EXPECT_TRUE(support::ErrorTextIsMarked());
        Encode(support::Pattern(500), length);
    }
}

TEST_F(Base64, EveryLengthAndManyLineLengths)
{
    for (size_t length = 0; length < 200; ++length) {
        const std::string bytes = support::Pattern(length);
        for (const int perLine : {0, 4, 8, 20, 64, 72, 76, 128, 256}) {
            ASSERT_TRUE(ZKQGeneral_SetBase64LineFeed(perLine));
            const std::string text = Encode(bytes, perLine);
            ASSERT_EQ(EncodeEx(bytes, perLine), text);
            ASSERT_EQ(Decode(text), Good(bytes));
        }
    }
}

TEST_F(Base64, LineLengthsThatAreNoMultipleOfFour)
{
    for (const int perLine :
         {1, 2, 3, 5, 6, 7, 10, 18, 54, 70, 73, 1000, INT_MAX, INT_MAX - 1, INT_MIN, INT_MIN + 1, -1, -2, -3, -5, -72})
        for (const size_t length : {0, 1, 2, 3, 4, 5, 6, 11, 12, 53, 54, 55, 105, 219, 1500}) {
            SCOPED_TRACE(testing::PrintToString(perLine) + " " + testing::PrintToString(length));
            ASSERT_EQ(EncodeEx(support::Pattern(length), perLine), model::Encode(support::Pattern(length), perLine));
        }
    EXPECT_EQ(EncodeEx("abcdef", 1), "YWJj\r\nZGVm\r\n");
    EXPECT_EQ(EncodeEx("abcdef", 8), "YWJjZGVm\r\n");
    EXPECT_EQ(EncodeEx("abcdefghi", 6), "YWJjZGVmZ2hp\r\n") << "12 is the first multiple of 6 and 4";
}

TEST_F(Base64, TheSettingDoesNotCountForTheExEncoder)
{
    ASSERT_TRUE(ZKQGeneral_SetBase64LineFeed(4));
    EXPECT_EQ(EncodeEx(std::string(60, '\0'), 0), std::string(80, 'A'));
    EXPECT_EQ(EncodeEx(std::string(60, '\0'), 72), std::string(72, 'A') + "\r\nAAAAAAAA");
}

TEST_F(Base64, EncoderArguments)
{
    char room[8] = "before";
    ZKQGeneral_ConvertToBase64(nullptr, 3, room);
    EXPECT_STREQ(room, "before");
    const unsigned char bytes[] = "abc";
    ZKQGeneral_ConvertToBase64(bytes, 3, nullptr);
    ZKQGeneral_ConvertToBase64(nullptr, 0, room);
    EXPECT_STREQ(room, "");

    char* out = room;
    for (const int length : {-1, INT_MIN}) {
        support::MarkErrorText();
        EXPECT_FALSE(ZKQGeneral_ConvertToBase64Ex(bytes, length, &out, 0));
        EXPECT_SYSTEM_ERROR(EINVAL);
        EXPECT_EQ(out, nullptr);
    }
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_ConvertToBase64Ex(nullptr, 1, &out, 0));
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_ConvertToBase64Ex(bytes, 3, nullptr, 0));
    EXPECT_SYSTEM_ERROR(EINVAL);
    ASSERT_TRUE(ZKQGeneral_ConvertToBase64Ex(nullptr, 0, &out, 72));
    EXPECT_STREQ(out, "");
    ZKQGeneral_FreeMallocBuffer(out);
}

TEST_F(Base64, Decodes)
{
    EXPECT_EQ(Decode(""), Good(""));
    EXPECT_EQ(Decode("YWJj"), Good("abc"));
    EXPECT_EQ(Decode("YWI="), Good("ab"));
    EXPECT_EQ(Decode("YQ=="), Good("a"));
    EXPECT_EQ(Decode("YWJj\r\nYWI="), Good("abcab"));
    EXPECT_EQ(Decode(" \r\n  \n\r"), Good(""));
    EXPECT_EQ(Decode(" YWJj YWJj\nYWJj\rYWJj\r\n"), Good("abcabcabcabc"));
    EXPECT_EQ(Decode("YR=="), Good("a")) << "bits that count for nothing";
}

TEST_F(Base64, TheFirstPaddingEndsIt)
{
    EXPECT_EQ(Decode("YWJjYQ==abcdefg"), Good("abca"));
    EXPECT_EQ(Decode("YQ==*"), Good("a"));
    EXPECT_EQ(Decode("YWI=\x80"), Good("ab"));
    EXPECT_EQ(Decode("YQ=A"), Good("a")) << "what is behind it in the group is not looked at";
    EXPECT_EQ(Decode("YQ=AYQ=A"), Good("a"));
    EXPECT_EQ(Decode("YQ=*"), Bad()) << "unless it is no character at all";
    EXPECT_EQ(Decode("YQ="), Bad());
    EXPECT_EQ(Decode("YQ=\n"), Bad());
    EXPECT_EQ(Decode("YQ =="), Bad());
}

TEST_F(Base64, PaddingInTheFirstPlacesIsNotRefused)
{
    EXPECT_EQ(Decode("=AAA"), Good(std::string("\xFC\0\0", 3)));
    EXPECT_EQ(Decode("A=AA"), Good(std::string("\x03\xF0\0", 3)));
    EXPECT_EQ(Decode("==AA"), Good(std::string("\xFF\xF0\0", 3)));
    EXPECT_EQ(Decode("===="), Good("\xFF"));
    EXPECT_EQ(Decode("A==="), Good("\x03"));
    EXPECT_EQ(Decode("==A="), Good("\xFF\xF0"));
    EXPECT_EQ(Decode("YWJj=AAAYWJj"), Good(std::string("abc\xFC\0\0abc", 9)));
}

TEST_F(Base64, GroupsAreNotSplit)
{
    EXPECT_EQ(Decode("YWJ"), Bad());
    EXPECT_EQ(Decode("YW"), Bad());
    EXPECT_EQ(Decode("Y"), Bad());
    EXPECT_EQ(Decode("YW*j"), Bad());
    EXPECT_EQ(Decode("YW\r\nJj"), Bad());
    EXPECT_EQ(Decode("Y WJj"), Bad());
    EXPECT_EQ(Decode("Y\nYWJj"), Good("abc")) << "what stands before the break is dropped";
    EXPECT_EQ(Decode("YWJ\r\nYWJj"), Good("abc"));
    EXPECT_EQ(Decode("YWJj\r\nYWJ\r\n"), Bad("abc"));
    EXPECT_EQ(Decode("Y\n*W"), Bad()) << "the filter looks at the whole group first";
    EXPECT_EQ(Decode("Y\nW"), Bad());
}

TEST_F(Base64, WhatPrecedesAFaultIsKept)
{
    EXPECT_EQ(Decode("YWJjYWJj*"), Bad("abcabc"));
    EXPECT_EQ(Decode("YWJjYWJjY"), Bad("abcabc"));
    EXPECT_EQ(Decode("YWJj\tYWJj"), Bad("abc")) << "a tab is no blank";
}

TEST_F(Base64, EveryByteInEveryPlace)
{
    for (int byte = 1; byte < 256; ++byte)
        for (size_t place = 0; place < 8; ++place) {
            std::string text = "YWJjYWJj";
            text[place] = static_cast<char>(byte);
            Decode(text);
            Decode(text + "YWJj");
        }
}

TEST_F(Base64, ATextEndsAtItsFirstNul)
{
    EXPECT_EQ(Decode(std::string("YWJj\0YWJj", 9)), Good("abc"));
    EXPECT_EQ(Decode(std::string("YW\0j", 4)), Bad());
}

TEST_F(Base64, DecoderArguments)
{
    unsigned char bytes[4] = {1, 2, 3, 4};
    unsigned count = 7;
    int size = 7;
    unsigned char* out = bytes;
    for (const auto& call : std::vector<std::function<BOOL()>>{
             [&] { return ZKQGeneral_ConvertFromBase64(nullptr, bytes, &count); },
             [&] { return ZKQGeneral_ConvertFromBase64("YWJj", nullptr, &count); },
             [&] { return ZKQGeneral_ConvertFromBase64("YWJj", bytes, nullptr); },
             [&] { return ZKQGeneral_ConvertFromBase64Ex("YWJj", nullptr, &size); },
             [&] { return ZKQGeneral_ConvertFromBase64Ex(nullptr, &out, &size); },
             [&] { return ZKQGeneral_ConvertFromBase64Ex("YWJj", &out, nullptr); },
         }) {
        support::MarkErrorText();
        EXPECT_FALSE(call());
        EXPECT_SYSTEM_ERROR(EINVAL);
    }
    EXPECT_EQ(count, 7U);
    EXPECT_EQ(size, 7);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(bytes[0], 1);
}

TEST_F(Base64, RandomTexts)
{
    std::mt19937 random(4711);
    const std::string characters = "ABCDwxyz0189+/=\r\n  **\x80\xFF\t-_";
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        const size_t groups = random() % 40;
        for (size_t i = 0; i < groups; ++i)
            text += model::Encode(support::Pattern(3 + i).substr(i), 0);
        for (size_t changes = random() % 4; changes > 0 && !text.empty(); --changes) {
            const size_t place = random() % text.size();
            const char character = characters[random() % characters.size()];
            if (random() % 2 == 0)
                text[place] = character;
            else
                text.insert(place / 4 * 4, 1, character);
        }
        Decode(text);
    }
}

TEST_F(Base64, LargeTexts)
{
    const std::string bytes = support::Pattern(200003);
    for (const int perLine : {0, 4, 64, 72, 76}) {
        const std::string text = EncodeEx(bytes, perLine);
        EXPECT_EQ(text, model::Encode(bytes, perLine));
        EXPECT_EQ(Decode(text), Good(bytes));
    }
}

// `size` bytes of which all are the same few pages: more than there need be memory for.
class Repeated {
public:
    Repeated(char byte, size_t size) : size_((size + kPiece - 1) / kPiece * kPiece)
    {
        const int file = memfd_create("repeated", MFD_CLOEXEC);
        EXPECT_EQ(write(file, std::string(kPiece, byte).data(), kPiece), static_cast<ssize_t>(kPiece));
        void* const room = mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        EXPECT_NE(room, MAP_FAILED);
        data_ = static_cast<char*>(room);
        for (size_t at = 0; at < size; at += kPiece)
            EXPECT_EQ(mmap(data_ + at, kPiece, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0), data_ + at);
        close(file);
    }
    Repeated(const Repeated&) = delete;
    Repeated& operator=(const Repeated&) = delete;
    ~Repeated() { munmap(data_, size_); }
    char* Data() const { return data_; }
    // Ends the text in its last page, which no longer is the same as the others.
    void Terminate() const
    {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        char* const last = data_ + size_ - page;
        const std::string before(last, page);
        EXPECT_EQ(mmap(last, page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0), last);
        memcpy(last, before.data(), page - 1);
    }

private:
    static constexpr size_t kPiece = size_t{16} << 20;
    size_t size_;
    char* data_;
};

TEST_F(Base64, MoreBytesThanALengthCanTell)
{
    if (IsSlow())
        GTEST_SKIP() << "billions of bytes take too long";
    constexpr size_t kChars = size_t{1} << 33; // 6 GiB when decoded
    const Repeated text('A', kChars);
    text.Terminate();
    const Repeated out('x', kChars / 4 * 3);
    unsigned length = 7;
    support::MarkErrorText();
    // Whole groups: of the first four characters one is left for the NUL.
    EXPECT_FALSE(ZKQGeneral_ConvertFromBase64(text.Data() + 3, reinterpret_cast<unsigned char*>(out.Data()), &length));
    EXPECT_SYSTEM_ERROR(EMSGSIZE);
    EXPECT_EQ(length, UINT_MAX);
}

TEST_F(Base64, NothingLeaks)
{
    support::ExpectNothingLeaks([] {
        EncodeEx("abc", 72);
        Decode("YWJj");
        Decode("YWJj*");
    });
}

TEST_F(Base64, AllocatesWhatTheTextNeeds)
{
    // The block is as large as the allocator makes one for exactly this size.
    for (const auto& [length, perLine, size] :
         {std::tuple{3000, 0, 4001}, {3000, 72, 4001 + 2 * 55}, {540, 72, 721 + 20}, {539, 72, 721 + 20}}) {
        const std::string bytes(static_cast<size_t>(length), 'x');
        char* out = nullptr;
        ASSERT_TRUE(
            ZKQGeneral_ConvertToBase64Ex(reinterpret_cast<const unsigned char*>(bytes.data()), length, &out, perLine));
        EXPECT_EQ(strlen(out) + 1, static_cast<size_t>(size));
        void* const same = malloc(static_cast<size_t>(size));
        EXPECT_EQ(malloc_usable_size(out), malloc_usable_size(same));
        free(same);
        ZKQGeneral_FreeMallocBuffer(out);
    }
}

} // namespace
