// Compressed streams: whatever the bytes, the library and zlib itself come to the same result and reason, nothing is
// written behind the length that was told, and what is compressed comes back. Input: a length of two bytes, the stream.
#include <ZKQ_general.h>
#include <string.h>
#include <zlib.h>

#include "fuzz.h"

namespace {

constexpr size_t kMost = 4 << 20; // plain bytes; streams that yield more are left out

/// zlib's own result for a stream, and its plain bytes.
int Reference(const uint8_t* data, size_t size, std::string* plain)
{
    z_stream stream = {};
    REQUIRE(inflateInit(&stream) == Z_OK);
    stream.next_in = const_cast<uint8_t*>(data);
    stream.avail_in = static_cast<uInt>(size);
    int result = Z_OK;
    while (result == Z_OK && plain->size() <= kMost) {
        char block[4096];
        stream.next_out = reinterpret_cast<Bytef*>(block);
        stream.avail_out = sizeof block;
        result = inflate(&stream, Z_SYNC_FLUSH);
        plain->append(block, sizeof block - stream.avail_out);
    }
    inflateEnd(&stream);
    return result;
}

void CheckPlain(const uint8_t* data, size_t size, size_t length, int result, const std::string& plain)
{
    const Exact<unsigned char> room(length);
    const BOOL done =
        ZKQGeneral_Zlib_UnCompressBuffer(data, static_cast<long>(size), room.Get(), static_cast<long>(length));
    REQUIRE((done == TRUE) == (result == Z_STREAM_END && plain.size() == length));
    if (done)
        REQUIRE(memcmp(room.Get(), plain.data(), length) == 0);
    else
        REQUIRE(strcmp(ZKQGeneral_GetGeneralErrorInfo(), zError(result == Z_STREAM_END ? Z_STREAM_ERROR : result)) ==
                0);
}

void CheckAllocating(const uint8_t* data, size_t size, int result, const std::string& plain)
{
    unsigned char* out = nullptr;
    long length = -1;
    const int code = ZKQGeneral_Zlib_UnCompressBufferEx(data, static_cast<long>(size), &out, &length);
    REQUIRE(code == (result == Z_STREAM_END ? 0 : 12));
    REQUIRE((out != nullptr) == (code == 0));
    if (code == 0)
        REQUIRE(static_cast<size_t>(length) == plain.size() && memcmp(out, plain.data(), plain.size()) == 0);
    else
        REQUIRE(strcmp(ZKQGeneral_GetGeneralErrorInfo(), zError(result)) == 0);
    ZKQGeneral_FreeMallocBuffer(out);
}

void RequireStreamOf(const unsigned char* stream, long length, const uint8_t* data, size_t size)
{
    std::string plain;
    REQUIRE(Reference(stream, static_cast<size_t>(length), &plain) == Z_STREAM_END);
    REQUIRE(plain == std::string(reinterpret_cast<const char*>(data), size));
}

void CheckCompressing(const uint8_t* data, size_t size)
{
    long room = 0;
    long length = 0;
    REQUIRE(ZKQGeneral_Zlib_CompressBuffer(nullptr, static_cast<long>(size), nullptr, &room));
    const Exact<unsigned char> stream(static_cast<size_t>(room));
    REQUIRE(ZKQGeneral_Zlib_CompressBuffer(data, static_cast<long>(size), stream.Get(), &length));
    REQUIRE(length <= room);
    RequireStreamOf(stream.Get(), length, data, size);
    unsigned char* out = nullptr;
    REQUIRE(ZKQGeneral_Zlib_CompressBufferEx(data, static_cast<long>(size), &out, &length) == 0);
    RequireStreamOf(out, length, data, size);
    ZKQGeneral_FreeMallocBuffer(out);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    CheckCompressing(data, size);
    if (size < 2)
        return 0;
    const size_t length = data[0] | static_cast<size_t>(data[1]) << 8;
    const Exact<uint8_t> stream(size - 2);
    memcpy(stream.Get(), data + 2, size - 2);
    std::string plain;
    const int result = Reference(stream.Get(), size - 2, &plain);
    if (plain.size() > kMost)
        return 0;
    for (const size_t room : {length, plain.size(), plain.size() + 1, plain.size() / 2, size_t{0}})
        CheckPlain(stream.Get(), size - 2, room, result, plain);
    CheckAllocating(stream.Get(), size - 2, result, plain);
    return 0;
}
