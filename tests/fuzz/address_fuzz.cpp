// Addresses from texts and back. Input: two bytes for a port, then the text. Names are never looked up: what the resolver
// would do with them is not ours.
#include <ZKQ_general.h>
#include <arpa/inet.h>
#include <netdb.h>
#include <string.h>

#include "fuzz.h"

extern "C" int __real_getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** answers);
extern "C" int __wrap_getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** answers);
int __wrap_getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** answers)
{
    addrinfo numeric = *hints;
    numeric.ai_flags |= AI_NUMERICHOST;
    return __real_getaddrinfo(host, service, &numeric, answers);
}

extern "C" int __wrap_gethostbyname_r(const char*, hostent*, char*, size_t, hostent** answer, int* error);
int __wrap_gethostbyname_r(const char*, hostent*, char*, size_t, hostent** answer, int* error)
{
    *answer = nullptr;
    *error = HOST_NOT_FOUND;
    return 0;
}

namespace {

void Fill4(const std::string& text, int port)
{
    unsigned long number = 0;
    const Exact<sockaddr_in> address(sizeof(sockaddr_in));
    const bool found = GetServerAddress(text.c_str(), &number);
    REQUIRE(found == (!text.empty() && (inet_addr(text.c_str()) != INADDR_NONE || text == "255.255.255.255")));
    REQUIRE(Network_FillSockAddrEx(address.Get(), AF_INET, text.c_str(), port) == (found && port > 0));
    if (!found || port <= 0)
        return;
    // What stands behind a blank does not count as part of the address, but as a port it does.
    const bool hasPort = text.find(':') != std::string::npos;
    REQUIRE(address.Get()->sin_addr.s_addr == number);
    REQUIRE(hasPort || address.Get()->sin_port == htons(static_cast<uint16_t>(port)));
    const Exact<char> again(INET_ADDRSTRLEN);
    int portAgain = 0;
    int family = 0;
    REQUIRE(Network_ParseSockAddr(address.Get(), again.Get(), &portAgain, &family));
    REQUIRE(inet_addr(again.Get()) == number && (hasPort || portAgain == port) && family == AF_INET);
}

void Fill6(const std::string& text, int port)
{
    const Exact<sockaddr_in6> address(sizeof(sockaddr_in6));
    if (!Network_FillSockAddrEx(address.Get(), AF_INET6, text.c_str(), port))
        return;
    const Exact<char> again(INET6_ADDRSTRLEN);
    int portAgain = 0;
    REQUIRE(Network_ParseSockAddr(address.Get(), again.Get(), &portAgain, nullptr));
    REQUIRE(text.starts_with('[') || portAgain == port);
    const std::string whole = "[" + std::string(again.Get()) + "]:" + std::to_string(portAgain);
    const Exact<sockaddr_in6> second(sizeof(sockaddr_in6));
    REQUIRE(Network_FillSockAddrEx(second.Get(), AF_INET6, whole.c_str(), portAgain));
    REQUIRE(memcmp(address.Get(), second.Get(), sizeof(sockaddr_in6)) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    const int port = data[0] * 256 + data[1];
    const std::string text = Texts(data + 2, size - 2, 1)[0];
    Fill4(text, port);
    Fill6(text, port);
    return 0;
}
