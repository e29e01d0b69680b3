// Echo requests and replies as bytes.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <time.h>

inline constexpr int kMaxEchoPayload = 65500;
inline constexpr size_t kEchoHeaderSize = 8;

/// What identifies an echo on its way there and back.
struct ICMPCONTEXT {
    timespec Tick; ///< when the request was sent
    uint16_t Id;
    uint16_t Seq;
    int Size; ///< of the payload
};

/// Writes a request, of the header's and the payload's size.
void MakeEchoRequest(const ICMPCONTEXT& echo, bool isIPv6, unsigned char* request);
/// Whether a received datagram (for IPv4 with its IP header, of 20 bytes) is the reply.
bool IsEchoReply(const ICMPCONTEXT& echo, bool isIPv6, const unsigned char* datagram, size_t size);
