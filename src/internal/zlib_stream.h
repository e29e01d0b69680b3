// zlib streams that are used again and again: beginning one costs far more than a small file does.
#pragma once

#include <ZKQ_general/types.h>
#include <stddef.h>
#define ZLIB_CONST // zlib does not write to its input
#include <zlib.h>

#include <span>

struct GMEM;

/// What a memory object that cannot grow adds to zlib's codes.
inline constexpr int kOutputFailed = 1;

/// Ends an exported function that failed with one of these results: sets zlib's message, or the text of ENOMEM.
BOOL FailInZlib(int result);

/// Compresses buffers, each into one zlib stream. Results are 0, kOutputFailed, or a negative code of zlib's.
class Deflater {
public:
    Deflater() = default;
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;
    ~Deflater();

    /// Makes ready for one buffer.
    int Start();
    /// Compresses into `room`, which is large enough for whatever comes.
    int Compress(std::span<const unsigned char> source, unsigned char* room, size_t* produced);
    /// Compresses and appends to `output`.
    int Compress(std::span<const unsigned char> source, GMEM* output);

private:
    int Pass(std::span<const unsigned char>* rest, size_t chunk);

    z_stream stream_ = {};
    bool isReady_ = false;
};

/// Decompresses zlib streams. Results are 0, kOutputFailed, or a code of zlib's.
class Inflater {
public:
    Inflater() = default;
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;
    ~Inflater();

    /// Makes ready for one stream.
    int Start();
    /// Decompresses a whole stream into `room`, drops what does not fit there, and tells the full length.
    int Decompress(std::span<const unsigned char> source, std::span<unsigned char> room, size_t* produced);
    /// Decompresses a whole stream and appends to `output`.
    int Decompress(std::span<const unsigned char> source, GMEM* output);

private:
    int Pass(std::span<const unsigned char>* rest, size_t chunk);

    z_stream stream_ = {};
    bool isReady_ = false;
};
