#include "internal/zlib_stream.h"

#include <ZKQ_general/zlib.h>
#include <errno.h>
#include <limits.h>

#include <algorithm>

#include "internal/error.h"
#include "internal/memory_object.h"

namespace {

constexpr size_t kChunk = 32768;        // into the caller's buffer
constexpr int kGrowingChunk = 8192;     // into a memory object
constexpr size_t kWholePiece = 1 << 30; // zlib counts what it is offered at once in 32 bits
constexpr long kExtraRoom = 512 + 32768;
constexpr int kSetUpFailed = 12;
constexpr int kCompressFailed = -1;

/// Hands the data of a memory object to the caller.
void Detach(GMEM* object, unsigned char** Dst, long* DstLength)
{
    int size = 0;
    ZKQGeneral_MEM_Detach(object, Dst, &size);
    *DstLength = size;
}

bool IsBuffer(const unsigned char* buffer, long length)
{
    return length >= 0 && (buffer != nullptr || length == 0);
}

std::span<const unsigned char> Bytes(const unsigned char* buffer, long length)
{
    return {buffer, static_cast<size_t>(length)};
}

void Offer(z_stream& stream, std::span<const unsigned char> rest, size_t chunk)
{
    stream.next_in = rest.data();
    stream.avail_in = static_cast<uInt>(std::min(rest.size(), chunk));
}

void OfferRoom(z_stream& stream, std::span<unsigned char> room)
{
    stream.next_out = room.data();
    stream.avail_out = static_cast<uInt>(room.size());
}

/// Appends what has come into `area`.
bool Collect(const z_stream& stream, std::span<const unsigned char> area, GMEM* output)
{
    return GMEM_Append(output, area.data(), static_cast<int>(area.size() - stream.avail_out)) == 0;
}

} // namespace

BOOL FailInZlib(int result)
{
    if (result == kOutputFailed)
        return Fail(ENOMEM);
    GeneralMisc_SetErrorString(zError(result));
    return FALSE;
}

Deflater::~Deflater()
{
    if (isReady_)
        deflateEnd(&stream_);
}

int Deflater::Start()
{
    if (isReady_)
        return deflateReset(&stream_);
    const int result = deflateInit(&stream_, Z_DEFAULT_COMPRESSION);
    isReady_ = result == Z_OK;
    return result;
}

/// Compresses the next chunk of `rest` and takes it off.
int Deflater::Pass(std::span<const unsigned char>* rest, size_t chunk)
{
    Offer(stream_, *rest, chunk);
    const int result = deflate(&stream_, rest->size() <= chunk ? Z_FINISH : Z_SYNC_FLUSH);
    *rest = rest->last(rest->size() - static_cast<size_t>(stream_.next_in - rest->data()));
    return result;
}

int Deflater::Compress(std::span<const unsigned char> source, unsigned char* room, size_t* produced)
{
    int result = Z_OK;
    stream_.next_out = room;
    while (result == Z_OK) {
        stream_.avail_out = kChunk;
        result = Pass(&source, kChunk);
    }
    *produced = stream_.total_out;
    return std::min(result, 0);
}

int Deflater::Compress(std::span<const unsigned char> source, GMEM* output)
{
    unsigned char area[kGrowingChunk];
    int result = Z_OK;
    while (result == Z_OK) {
        OfferRoom(stream_, area);
        result = Pass(&source, kGrowingChunk);
        if (result >= 0 && !Collect(stream_, area, output))
            return kOutputFailed;
    }
    return std::min(result, 0);
}

Inflater::~Inflater()
{
    if (isReady_)
        inflateEnd(&stream_);
}

int Inflater::Start()
{
    if (isReady_)
        return inflateReset(&stream_);
    const int result = inflateInit(&stream_);
    isReady_ = result == Z_OK;
    return result;
}

/// Decompresses from the next chunk of `rest` and takes off what was used.
int Inflater::Pass(std::span<const unsigned char>* rest, size_t chunk)
{
    Offer(stream_, *rest, chunk);
    const int result = inflate(&stream_, Z_SYNC_FLUSH);
    *rest = rest->last(rest->size() - static_cast<size_t>(stream_.next_in - rest->data()));
    return result;
}

int Inflater::Decompress(std::span<const unsigned char> source, std::span<unsigned char> room, size_t* produced)
{
    unsigned char dropped[kGrowingChunk];
    int result = Z_OK;
    while (result == Z_OK) {
        const std::span<unsigned char> piece = room.first(std::min(room.size(), kWholePiece));
        // cppcheck-suppress legacyUninitvar ; it is only written to
        OfferRoom(stream_, piece.empty() ? dropped : piece);
        result = Pass(&source, kWholePiece);
        if (!piece.empty())
            room = room.last(room.size() - (piece.size() - stream_.avail_out));
    }
    *produced = stream_.total_out;
    return result == Z_STREAM_END ? 0 : result;
}

int Inflater::Decompress(std::span<const unsigned char> source, GMEM* output)
{
    unsigned char area[kGrowingChunk];
    int result = Z_OK;
    while (result == Z_OK) {
        OfferRoom(stream_, area);
        result = Pass(&source, kWholePiece);
        if ((result == Z_OK || result == Z_STREAM_END) && !Collect(stream_, area, output))
            return kOutputFailed;
    }
    return result == Z_STREAM_END ? 0 : result;
}

BOOL ZKQGeneral_Zlib_CompressBuffer(const unsigned char* Src, long SrcLength, unsigned char* Dst, long* DstLength)
{
    if (SrcLength < 0 || SrcLength > LONG_MAX / 2 || DstLength == nullptr)
        return Fail(EINVAL);
    if (Dst == nullptr) {
        *DstLength = SrcLength + SrcLength / 16 + kExtraRoom;
        return TRUE;
    }
    if (!IsBuffer(Src, SrcLength))
        return Fail(EINVAL);
    Deflater deflater;
    size_t produced = 0;
    if (const int result = deflater.Start())
        return FailInZlib(result);
    if (const int result = deflater.Compress(Bytes(Src, SrcLength), Dst, &produced))
        return FailInZlib(result);
    *DstLength = static_cast<long>(produced);
    return TRUE;
}

BOOL ZKQGeneral_Zlib_UnCompressBuffer(const unsigned char* Src, long SrcLength, unsigned char* Dst, long PlainLength)
{
    if (!IsBuffer(Src, SrcLength) || !IsBuffer(Dst, PlainLength))
        return Fail(EINVAL);
    Inflater inflater;
    const auto length = static_cast<size_t>(PlainLength);
    size_t produced = 0;
    if (const int result = inflater.Start())
        return FailInZlib(result);
    if (const int result = inflater.Decompress(Bytes(Src, SrcLength), {Dst, length}, &produced))
        return FailInZlib(result);
    return produced == length ? TRUE : FailInZlib(Z_STREAM_ERROR);
}

int ZKQGeneral_Zlib_CompressBufferEx(const unsigned char* Src, long SrcLength, unsigned char** Dst, long* DstLength)
{
    if (!IsBuffer(Src, SrcLength) || Dst == nullptr || DstLength == nullptr) {
        GeneralMisc_SetSystemError(EINVAL);
        return kSetUpFailed;
    }
    Deflater deflater;
    int result = deflater.Start();
    if (result != 0) {
        FailInZlib(result);
        return kSetUpFailed;
    }
    const MemoryObject output = MakeMemoryObject(kGrowingChunk);
    if (output == nullptr)
        return kSetUpFailed;
    result = deflater.Compress(Bytes(Src, SrcLength), output.get());
    if (result == kOutputFailed)
        return kSetUpFailed;
    if (result != 0) {
        FailInZlib(result);
        return kCompressFailed;
    }
    Detach(output.get(), Dst, DstLength);
    return 0;
}

int ZKQGeneral_Zlib_UnCompressBufferEx(const unsigned char* Src, long SrcLength, unsigned char** Dst, long* DstLength)
{
    if (!IsBuffer(Src, SrcLength) || Dst == nullptr || DstLength == nullptr) {
        GeneralMisc_SetSystemError(EINVAL);
        return kSetUpFailed;
    }
    Inflater inflater;
    int result = inflater.Start();
    const MemoryObject output = result == 0 ? MakeMemoryObject(kGrowingChunk) : nullptr;
    if (result == 0)
        result = output == nullptr ? kOutputFailed : inflater.Decompress(Bytes(Src, SrcLength), output.get());
    if (result == kOutputFailed)
        return kSetUpFailed;
    if (result != 0) {
        FailInZlib(result);
        return kSetUpFailed;
    }
    Detach(output.get(), Dst, DstLength);
    return 0;
}
