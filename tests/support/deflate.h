// zlib used directly: a second opinion on what the library compresses and decompresses, and streams that it never makes.
#pragma once

#include <gtest/gtest.h>
#include <zlib.h>

#include <optional>
#include <string>
#include <string_view>

namespace support {

struct StreamKind {
    int level = Z_DEFAULT_COMPRESSION;
    int windowBits = 15; // negative: no header and no trailer; above 15: gzip
    int strategy = Z_DEFAULT_STRATEGY;
    std::string dictionary = {};
};

/// A stream made by zlib in one call.
inline std::string Deflated(std::string_view plain, const StreamKind& kind = {})
{
    z_stream stream = {};
    EXPECT_EQ(deflateInit2(&stream, kind.level, Z_DEFLATED, kind.windowBits, 8, kind.strategy), Z_OK);
    if (!kind.dictionary.empty())
        deflateSetDictionary(&stream, reinterpret_cast<const Bytef*>(kind.dictionary.data()),
                             static_cast<uInt>(kind.dictionary.size()));
    std::string out(deflateBound(&stream, plain.size()) + 100, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(plain.data()));
    stream.avail_in = static_cast<uInt>(plain.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

/// The plain bytes of one whole stream and nothing behind it; nothing if it is anything else.
inline std::optional<std::string> Inflated(std::string_view bytes)
{
    z_stream stream = {};
    EXPECT_EQ(inflateInit(&stream), Z_OK);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    std::string plain;
    int result = Z_OK;
    while (result == Z_OK) {
        char block[65536];
        stream.next_out = reinterpret_cast<Bytef*>(block);
        stream.avail_out = sizeof block;
        result = inflate(&stream, Z_NO_FLUSH);
        plain.append(block, sizeof block - stream.avail_out);
    }
    const bool whole = result == Z_STREAM_END && stream.avail_in == 0;
    inflateEnd(&stream);
    return whole ? std::optional(plain) : std::nullopt;
}

/// A stream of `count` MiB of zero bytes, about a thousandth of that, whose end is missing.
inline std::string EndlessZeros(size_t count)
{
    const std::string mebibyte(1 << 20, '\0');
    z_stream stream = {};
    EXPECT_EQ(deflateInit2(&stream, 9, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY), Z_OK);
    std::string block(mebibyte.size(), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(mebibyte.data()));
    stream.avail_in = static_cast<uInt>(mebibyte.size());
    stream.next_out = reinterpret_cast<Bytef*>(block.data());
    stream.avail_out = static_cast<uInt>(block.size());
    EXPECT_EQ(deflate(&stream, Z_FULL_FLUSH), Z_OK);
    block.resize(stream.total_out);
    deflateEnd(&stream);
    std::string out = "\x78\x9C";
    for (size_t i = 0; i < count; ++i)
        out += block;
    return out;
}

/// As EndlessZeros(), but whole.
inline std::string ManyZeros(size_t count)
{
    const std::string mebibyte(1 << 20, '\0');
    uLong check = adler32(0, nullptr, 0);
    for (size_t i = 0; i < count; ++i)
        check = adler32(check, reinterpret_cast<const Bytef*>(mebibyte.data()), static_cast<uInt>(mebibyte.size()));
    std::string out = EndlessZeros(count) + std::string("\x03\x00", 2);
    for (const int shift : {24, 16, 8, 0})
        out += static_cast<char>(check >> shift & 0xFF);
    return out;
}

} // namespace support
