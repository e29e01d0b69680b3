// MD5 (RFC 1321) piece by piece, for other families.
#pragma once

#include <ZKQ_general/md5.h>
#include <stddef.h>

#include <array>

inline constexpr size_t kMd5BlockSize = 64;
inline constexpr size_t kMd5DigestSize = 16;

struct Md5Context {
    std::array<uint32_t, 4> state;
    uint64_t length;                    ///< bytes so far
    unsigned char block[kMd5BlockSize]; ///< those that do not fill a block yet
};

void MD5Init(Md5Context* context);
void MD5Update(Md5Context* context, const void* bytes, size_t length);
/// Ends the message; the context is then to be initialised again.
void MD5Final(unsigned char* digest, Md5Context* context);

/// The digest of bytes in one piece.
void Md5Digest(const void* bytes, size_t length, unsigned char* digest);
