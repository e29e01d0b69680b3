// Compression of whole buffers, with zlib itself as the judge.
#include <ZKQ_general/error.h>
#include <ZKQ_general/zlib.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/sysinfo.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/buffer.h"
#include "support/child.h"
#include "support/deflate.h"
#include "support/error_text.h"
#include "support/heap.h"
#include "support/sanitizer.h"

namespace {

using support::Buffer;
using support::Deflated;
using support::Inflated;

const unsigned char* Bytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* Room(Buffer& buffer)
{
    return reinterpret_cast<unsigned char*>(buffer.Data());
}

/// Bytes that lie in a heap block of exactly their number, so that a sanitizer sees one read too many.
class Input {
public:
    explicit Input(const std::string& bytes) : bytes_(new unsigned char[bytes.size()]), size_(bytes.size())
    {
        std::copy(bytes.begin(), bytes.end(), bytes_.get());
    }
    const unsigned char* Data() const { return bytes_.get(); }
    long Size() const { return static_cast<long>(size_); }
    bool Is(const std::string& bytes) const
    {
        return bytes.size() == size_ && std::equal(bytes.begin(), bytes.end(), reinterpret_cast<char*>(bytes_.get()));
    }

private:
    std::unique_ptr<unsigned char[]> bytes_;
    size_t size_;
};

std::string Noise(size_t length)
{
    std::mt19937 random(42);
    std::string noise(length, '\0');
    for (char& byte : noise)
        byte = static_cast<char>(random());
    return noise;
}

std::string Prose(size_t length)
{
    std::mt19937 random(7);
    std::string text;
    while (text.size() < length)
        text += "line " + std::to_string(random() % 1000) + " of the text, ";
    text.resize(length);
    return text;
}

long RoomFor(long length)
{
    long room = -1;
    EXPECT_TRUE(ZKQGeneral_Zlib_CompressBuffer(nullptr, length, nullptr, &room));
    return room;
}

/// Compresses in a buffer of exactly the room that is asked for.
std::string Compressed(const std::string& plain)
{
    const Input input(plain);
    Buffer room(static_cast<size_t>(RoomFor(input.Size())));
    long length = -77; // what is here on entry does not matter
    EXPECT_TRUE(ZKQGeneral_Zlib_CompressBuffer(input.Data(), input.Size(), Room(room), &length));
    EXPECT_TRUE(room.GuardIntact());
    EXPECT_TRUE(input.Is(plain)) << "the input is not changed";
    EXPECT_LE(length, static_cast<long>(room.Size()));
    return room.Bytes().substr(0, static_cast<size_t>(length));
}

struct Outcome {
    int code = 0;
    std::string bytes;
};

using ExFunction = int (*)(const unsigned char*, long, unsigned char**, long*);

/// Calls one of the functions that allocate. A failure leaves the pointer alone.
Outcome Call(ExFunction function, const std::string& source)
{
    const Input input(source);
    unsigned char mark = 'm';
    unsigned char* data = &mark;
    long length = -77;
    Outcome outcome;
    outcome.code = function(input.Data(), input.Size(), &data, &length);
    if (outcome.code != 0) {
        EXPECT_EQ(data, &mark);
        return outcome;
    }
    EXPECT_NE(data, &mark);
    EXPECT_NE(data, nullptr) << "also for an empty result";
    EXPECT_GE(length, 0);
    if (data != nullptr && length >= 0)
        outcome.bytes.assign(reinterpret_cast<char*>(data), static_cast<size_t>(length));
    ZKQGeneral_FreeMallocBuffer(data);
    return outcome;
}

Outcome CompressedEx(const std::string& plain)
{
    return Call(ZKQGeneral_Zlib_CompressBufferEx, plain);
}

Outcome PlainEx(const std::string& stream)
{
    return Call(ZKQGeneral_Zlib_UnCompressBufferEx, stream);
}

/// Decompresses into exactly the room that `length` tells. The plain bytes, or the error text behind a "!".
std::string Plain(const std::string& stream, size_t length)
{
    const Input input(stream);
    Buffer room(length);
    support::MarkErrorText();
    const BOOL done =
        ZKQGeneral_Zlib_UnCompressBuffer(input.Data(), input.Size(), Room(room), static_cast<long>(length));
    EXPECT_TRUE(room.GuardIntact());
    EXPECT_EQ(support::ErrorTextIsMarked(), done == TRUE);
    return done ? room.Bytes() : "!" + support::ErrorText();
}

// Lengths around what goes through zlib at once, in either pair.
const size_t kLengths[] = {0,     1,     2,     100,   8191,  8192,  8193,  16384,  16385,  32767,
                           32768, 32769, 65535, 65536, 65537, 98304, 98305, 100000, 131072, 1000000};

std::vector<std::string> Samples()
{
    std::vector<std::string> samples;
    for (const size_t length : kLengths)
        for (const std::string& sample : {Prose(length), Noise(length), std::string(length, '\0')})
            samples.push_back(sample);
    return samples;
}

TEST(CompressBuffer, RoomIsTheLengthASixteenthAndAChunk)
{
    const struct {
        long length;
        long room;
    } rows[] = {{0, 33280},    {1, 33281},     {15, 33295},        {16, 33297},
                {1600, 34980}, {32768, 68096}, {1000000, 1095780}, {1L << 40, (1L << 40) + (1L << 36) + 33280}};
    for (const auto& row : rows) {
        support::MarkErrorText();
        EXPECT_EQ(RoomFor(row.length), row.room);
        EXPECT_TRUE(support::ErrorTextIsMarked());
    }
}

TEST(CompressBuffer, TheRoomCannotOverflow)
{
    long room = -1;
    if (ZKQGeneral_Zlib_CompressBuffer(nullptr, LONG_MAX, nullptr, &room)) {
        EXPECT_EQ(room, LONG_MAX) << "no room is larger";
    } else {
        EXPECT_EQ(room, -1);
    }
}

TEST(CompressBuffer, AnEmptyInputIsAStreamOfEightBytes)
{
    const std::string stream = Compressed("");
    EXPECT_EQ(stream, std::string("\x78\x9C\x03\x00\x00\x00\x00\x01", 8));
    EXPECT_EQ(Plain(stream, 0), "");
    Buffer room(static_cast<size_t>(RoomFor(0)));
    long length = 0;
    EXPECT_TRUE(ZKQGeneral_Zlib_CompressBuffer(nullptr, 0, Room(room), &length));
    EXPECT_EQ(length, 8);
}

TEST(CompressBuffer, IsOneStreamThatZlibReads)
{
    for (const std::string& sample : Samples()) {
        support::MarkErrorText();
        const std::string stream = Compressed(sample);
        EXPECT_TRUE(support::ErrorTextIsMarked());
        EXPECT_EQ(stream.substr(0, 2), "\x78\x9C") << "the header of the default level";
        EXPECT_EQ(Inflated(stream), sample) << sample.size();
        EXPECT_EQ(Plain(stream, sample.size()), sample) << sample.size();
    }
}

TEST(CompressBuffer, NoiseStaysWithinTheRoom)
{
    const std::string noise = Noise(5000000);
    const std::string stream = Compressed(noise);
    EXPECT_EQ(Inflated(stream), noise);
}

TEST(CompressBuffer, CompressesLikeZlib)
{
    const std::string text = Prose(1000000);
    const double limit = 1.05 * static_cast<double>(Deflated(text).size());
    EXPECT_LT(static_cast<double>(Compressed(text).size()), limit);
}

TEST(CompressBuffer, BadArguments)
{
    Buffer room(40000);
    long length = 5;
    const auto refused = [&](const unsigned char* source, long sourceLength, unsigned char* target,
                             long* targetLength) {
        support::MarkErrorText();
        EXPECT_FALSE(ZKQGeneral_Zlib_CompressBuffer(source, sourceLength, target, targetLength));
        EXPECT_SYSTEM_ERROR(EINVAL);
        EXPECT_EQ(length, 5);
        EXPECT_TRUE(room.Untouched());
    };
    refused(Bytes("abc"), 3, Room(room), nullptr);
    refused(nullptr, 3, Room(room), &length);
    refused(Bytes("abc"), -1, Room(room), &length);
    refused(Bytes("abc"), LONG_MIN, Room(room), &length);
    refused(nullptr, 3, nullptr, nullptr);
    refused(nullptr, -1, nullptr, &length);
}

TEST(UnCompressBuffer, TheLengthMustBeExact)
{
    const std::string text = Prose(200);
    const std::string stream = Deflated(text);
    for (size_t length = 0; length < 400; ++length)
        EXPECT_EQ(Plain(stream, length), length == text.size() ? text : "!stream error") << length;
    const std::string large = Noise(100000);
    const std::string largeStream = Deflated(large);
    for (const size_t length : {0, 1, 32767, 32768, 32769, 65536, 99999, 100001, 131072, 1000000})
        EXPECT_EQ(Plain(largeStream, length), "!stream error") << length;
    EXPECT_EQ(Plain(largeStream, large.size()), large);
}

TEST(UnCompressBuffer, NothingIsWrittenBehindTheLength)
{
    const std::string stream = support::ManyZeros(64);
    for (const size_t length : {0, 1, 10, 32768, 1000000})
        EXPECT_EQ(Plain(stream, length), "!stream error");
}

TEST(UnCompressBuffer, ALengthOfNoneNeedsNoRoom)
{
    EXPECT_TRUE(ZKQGeneral_Zlib_UnCompressBuffer(Bytes(Deflated("")), 8, nullptr, 0));
    const std::string stream = Deflated("abc");
    EXPECT_FALSE(ZKQGeneral_Zlib_UnCompressBuffer(Bytes(stream), static_cast<long>(stream.size()), nullptr, 0));
    EXPECT_EQ(support::ErrorText(), "stream error");
}

TEST(UnCompressBuffer, AStreamCutShort)
{
    const std::string text = Prose(300);
    const std::string stream = Deflated(text);
    for (size_t length = 0; length < stream.size(); ++length)
        EXPECT_EQ(Plain(stream.substr(0, length), text.size()), "!buffer error") << length;
    support::MarkErrorText();
    Buffer room(10);
    EXPECT_FALSE(ZKQGeneral_Zlib_UnCompressBuffer(nullptr, 0, Room(room), 10));
    EXPECT_EQ(support::ErrorText(), "buffer error");
    const std::string large = Deflated(Noise(100000));
    for (const size_t length : {32767, 32768, 32769, 65536, 98304})
        EXPECT_EQ(Plain(large.substr(0, length), 100000), "!buffer error") << length;
    EXPECT_EQ(Plain(large.substr(0, large.size() - 1), 100000), "!buffer error");
}

TEST(UnCompressBuffer, WhatIsNoStream)
{
    const std::string text = Prose(300);
    EXPECT_EQ(Plain("this is not a stream", 20), "!data error");
    EXPECT_EQ(Plain(std::string(20, '\0'), 20), "!data error");
    EXPECT_EQ(Plain(Deflated(text, {.windowBits = 31}), text.size()), "!data error") << "gzip";
    EXPECT_EQ(Plain(Deflated(text, {.windowBits = -15}), text.size()), "!data error") << "without a header";
    std::string stream = Deflated(text);
    stream[0] = '\x79';
    EXPECT_EQ(Plain(stream, text.size()), "!data error") << "the method";
    stream = Deflated(text);
    stream[1] = static_cast<char>(stream[1] ^ 1);
    EXPECT_EQ(Plain(stream, text.size()), "!data error") << "the header's check";
    stream = Deflated(text);
    stream.back() = static_cast<char>(stream.back() ^ 1);
    EXPECT_EQ(Plain(stream, text.size()), "!data error") << "the check sum";
}

TEST(UnCompressBuffer, AReasonOfZlibComesBeforeTheLength)
{
    const std::string text = Prose(100000);
    std::string stream = Deflated(text);
    EXPECT_EQ(Plain(stream.substr(0, stream.size() - 1), 10), "!buffer error");
    stream.back() = static_cast<char>(stream.back() ^ 1);
    EXPECT_EQ(Plain(stream, 10), "!data error");
    EXPECT_EQ(Plain(stream, 0), "!data error");
}

TEST(UnCompressBuffer, EveryDamagedByteIsSeenOrHarmless)
{
    const std::string text = Prose(300);
    const std::string whole = Deflated(text);
    for (size_t at = 0; at < whole.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            std::string stream = whole;
            stream[at] = static_cast<char>(stream[at] ^ 1 << bit);
            const std::string result = Plain(stream, text.size());
            EXPECT_TRUE(result == text || result.starts_with("!")) << at << "/" << bit;
            const Outcome outcome = PlainEx(stream);
            EXPECT_TRUE(outcome.code == 12 || outcome.bytes == text) << at << "/" << bit;
        }
    }
}

TEST(UnCompressBuffer, APresetDictionaryIsNotThere)
{
    const std::string stream = Deflated("abcabcabc", {.dictionary = "abc"});
    EXPECT_EQ(Plain(stream, 9), "!need dictionary");
    EXPECT_EQ(Plain(stream, 0), "!need dictionary");
    support::MarkErrorText();
    EXPECT_EQ(PlainEx(stream).code, 12);
    EXPECT_EQ(support::ErrorText(), "need dictionary");
}

TEST(UnCompressBuffer, BytesBehindTheStreamAreLeftAlone)
{
    const std::string text = Prose(300);
    for (const size_t more : {1, 32, 100000})
        EXPECT_EQ(Plain(Deflated(text) + Noise(more), text.size()), text);
    EXPECT_EQ(PlainEx(Deflated(text) + Noise(9000)).bytes, text);
}

TEST(UnCompressBuffer, StreamsOfEveryKind)
{
    const std::string samples[] = {Prose(100000), Noise(100000), std::string(100000, 'a'), ""};
    for (const std::string& sample : samples)
        for (const int level : {0, 1, 9})
            for (const int window : {9, 12, 15})
                for (const int strategy : {Z_DEFAULT_STRATEGY, Z_HUFFMAN_ONLY, Z_RLE, Z_FIXED}) {
                    const std::string stream =
                        Deflated(sample, {.level = level, .windowBits = window, .strategy = strategy});
                    EXPECT_EQ(Plain(stream, sample.size()), sample);
                    EXPECT_EQ(PlainEx(stream).bytes, sample);
                }
}

TEST(UnCompressBuffer, BadArguments)
{
    Buffer room(10);
    const std::string stream = Deflated("abc");
    const long length = static_cast<long>(stream.size());
    const auto refused = [&](const unsigned char* source, long sourceLength, unsigned char* target, long plain) {
        support::MarkErrorText();
        EXPECT_FALSE(ZKQGeneral_Zlib_UnCompressBuffer(source, sourceLength, target, plain));
        EXPECT_SYSTEM_ERROR(EINVAL);
        EXPECT_TRUE(room.Untouched());
    };
    refused(nullptr, length, Room(room), 3);
    refused(Bytes(stream), length, nullptr, 3);
    refused(Bytes(stream), -1, Room(room), 3);
    refused(Bytes(stream), LONG_MIN, Room(room), 3);
    EXPECT_FALSE(ZKQGeneral_Zlib_UnCompressBuffer(Bytes(stream), length, Room(room), -1));
    EXPECT_TRUE(room.Untouched());
}

TEST(Ex, RoundTrips)
{
    for (const std::string& sample : Samples()) {
        support::MarkErrorText();
        const Outcome stream = CompressedEx(sample);
        EXPECT_EQ(stream.code, 0);
        EXPECT_EQ(Inflated(stream.bytes), sample) << sample.size();
        const Outcome plain = PlainEx(stream.bytes);
        EXPECT_EQ(plain.code, 0);
        EXPECT_EQ(plain.bytes, sample) << sample.size();
        EXPECT_EQ(Plain(stream.bytes, sample.size()), sample);
        EXPECT_TRUE(PlainEx(Compressed(sample)).bytes == sample);
    }
    EXPECT_EQ(CompressedEx("").bytes.size(), 8U);
}

TEST(Ex, EmptyBuffersAreHandedOut)
{
    const Outcome plain = PlainEx(Deflated(""));
    EXPECT_EQ(plain.code, 0);
    EXPECT_EQ(plain.bytes, "");
    unsigned char* data = nullptr;
    long length = -1;
    EXPECT_EQ(ZKQGeneral_Zlib_CompressBufferEx(nullptr, 0, &data, &length), 0);
    EXPECT_EQ(length, 8);
    ZKQGeneral_FreeMallocBuffer(data);
}

TEST(Ex, LargeOutputs)
{
    const Outcome plain = PlainEx(support::ManyZeros(100));
    EXPECT_EQ(plain.code, 0);
    EXPECT_EQ(plain.bytes, std::string(100 << 20, '\0'));
}

TEST(Ex, FailuresOfDecompression)
{
    const std::string text = Prose(20000);
    const std::string whole = Deflated(text);
    std::string damaged = whole;
    damaged.back() = static_cast<char>(damaged.back() ^ 1);
    const struct {
        std::string stream;
        const char* reason;
    } rows[] = {{"", "buffer error"},
                {whole.substr(0, whole.size() - 1), "buffer error"},
                {whole.substr(0, 1), "buffer error"},
                {Deflated(Noise(50000)).substr(0, 8192), "buffer error"},
                {Deflated(Noise(50000)).substr(0, 16384), "buffer error"},
                {"this is not a stream", "data error"},
                {damaged, "data error"},
                {Deflated(text, {.windowBits = 31}), "data error"}};
    for (const auto& row : rows) {
        support::MarkErrorText();
        EXPECT_EQ(PlainEx(row.stream).code, 12);
        EXPECT_EQ(support::ErrorText(), row.reason);
    }
}

TEST(Ex, BadArguments)
{
    const std::string stream = Deflated("abc");
    const long size = static_cast<long>(stream.size());
    for (const ExFunction function : {ZKQGeneral_Zlib_CompressBufferEx, ZKQGeneral_Zlib_UnCompressBufferEx}) {
        unsigned char mark = 'm';
        unsigned char* data = &mark;
        long length = 5;
        const auto refused = [&](const unsigned char* source, long count, unsigned char** target, long* targetLength) {
            support::MarkErrorText();
            EXPECT_EQ(function(source, count, target, targetLength), 12);
            EXPECT_SYSTEM_ERROR(EINVAL);
            EXPECT_EQ(data, &mark);
        };
        refused(nullptr, size, &data, &length);
        refused(Bytes(stream), -1, &data, &length);
        refused(Bytes(stream), LONG_MIN, &data, &length);
        refused(Bytes(stream), size, nullptr, &length);
        refused(Bytes(stream), size, &data, nullptr);
    }
}

/// Runs in a child of its own.
void ExpectMemoryFailure(const std::string& stream)
{
    unsigned char mark = 'm';
    unsigned char* data = &mark;
    long length = 0;
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_Zlib_UnCompressBufferEx(Bytes(stream), static_cast<long>(stream.size()), &data, &length), 12);
    EXPECT_TRUE(support::ErrorTextIsMarked()) << support::ErrorText();
    EXPECT_EQ(data, &mark);
}

TEST(Ex, TooLittleMemoryHasNoText)
{
    if (support::IsInstrumented())
        GTEST_SKIP() << "limits on memory mean nothing under a sanitizer";
    RUN_IN_CHILD([] {
        const std::string stream = support::EndlessZeros(1000);
        const rlimit limit = {400 << 20, 400 << 20};
        if (setrlimit(RLIMIT_AS, &limit) != 0)
            support::SkipChild("setrlimit");
        ExpectMemoryFailure(stream);
    });
}

TEST(Ex, MoreThanTwoGibibytesIsTooMuch)
{
    struct sysinfo info = {};
    constexpr unsigned long kNeeded = 8UL << 30;
    if (support::IsInstrumented() || sysinfo(&info) != 0 || info.freeram * info.mem_unit < kNeeded)
        GTEST_SKIP() << "takes more memory than is free";
    ExpectMemoryFailure(support::EndlessZeros(2049));
}

TEST(Zlib, NothingLeaks)
{
    const std::string text = Prose(20000);
    const std::string stream = Deflated(text);
    const std::string cut = stream.substr(0, stream.size() - 5);
    const std::string dictionary = Deflated(text, {.dictionary = "line"});
    support::ExpectNothingLeaks([&] {
        PlainEx(stream);
        PlainEx(cut);
        PlainEx(dictionary);
        Plain(stream, text.size());
        Plain(stream, 10);
        Plain(cut, text.size());
        Plain(dictionary, text.size());
    });
    support::ExpectNothingLeaks([] {
        CompressedEx("some text");
        Compressed("some text");
    });
}

TEST(Zlib, ManyThreads)
{
    const auto work = [](size_t seed) {
        const std::string text = Prose(50000 + seed);
        for (int i = 0; i < 20; ++i) {
            ASSERT_TRUE(PlainEx(Compressed(text)).bytes == text);
            ASSERT_TRUE(PlainEx(CompressedEx(text).bytes).bytes == text);
        }
    };
    std::vector<std::thread> threads;
    for (const size_t seed : {1, 2, 3, 4})
        threads.emplace_back(work, seed);
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
