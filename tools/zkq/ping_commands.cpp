// zkq ping: whether a host answers, and how fast.
#include <ZKQ_general/error.h>
#include <ZKQ_general/ping.h>
#include <arpa/inet.h>
#include <errno.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string_view>
#include <thread>
#include <vector>

#include "commands.h"
#include "failure.h"
#include "output.h"

namespace {

constexpr int kLargestPayload = 65500;
constexpr int kLongestTimeout = 24 * 60 * 60;
constexpr int kMostRequests = 1'000'000;
constexpr std::chrono::seconds kInterval(1); // between the starts of two requests

struct Options {
    std::string host;
    int count = 4;
    int size = 56;
    int timeout = 5;
};

struct Address {
    std::string text;
    bool is_ipv6 = false;
};

/// The host is looked up once, and then it is always the same one that is asked.
Address AddressOf(const std::string& host)
{
    unsigned char bytes[sizeof(in6_addr)];
    int is_ipv6 = 0;
    char text[INET6_ADDRSTRLEN] = "";
    if (!Network_IsIPV6Address(host.c_str(), bytes, &is_ipv6))
        throw LibraryFailure("cannot find " + host);
    inet_ntop(is_ipv6 != 0 ? AF_INET6 : AF_INET, bytes, text, sizeof text);
    return {text, is_ipv6 != 0};
}

/// Sends one request; false if the reply has not come in time.
bool Ping(const Options& options, const Address& address, std::vector<unsigned long>* times)
{
    unsigned long elapsed = 0;
    unsigned char ttl = 0;
    if (!Network_PingHost(address.text.c_str(), options.size, options.timeout, &elapsed, &ttl)) {
        if (ZKQGeneral_GetGeneralErrorInfo() != std::string_view(strerror(ETIME)))
            throw LibraryFailure("cannot ping " + options.host);
        PrintLine(address.text + ": no reply within " + std::to_string(options.timeout) + " s");
        return false;
    }
    times->push_back(elapsed);
    PrintLine(address.text + ": " + std::to_string(options.size) + " bytes, time " + std::to_string(elapsed) + " ms" +
              (address.is_ipv6 ? "" : ", ttl " + std::to_string(ttl)));
    return true;
}

void PrintSummary(int sent, const std::vector<unsigned long>& times)
{
    std::string line = std::to_string(sent) + " sent, " + std::to_string(times.size()) + " received";
    if (!times.empty()) {
        const auto [least, most] = std::minmax_element(times.begin(), times.end());
        line += ", times from " + std::to_string(*least) + " to " + std::to_string(*most) + " ms";
    }
    PrintLine(line);
}

void PingAll(const Options& options)
{
    const Address address = AddressOf(options.host);
    std::vector<unsigned long> times;
    for (int i = 0; i < options.count; ++i) {
        const auto next = std::chrono::steady_clock::now() + kInterval;
        Ping(options, address, &times);
        FlushOutput();
        if (i + 1 < options.count)
            std::this_thread::sleep_until(next);
    }
    PrintSummary(options.count, times);
    if (times.empty())
        throw Failure(options.host, "No reply");
}

} // namespace

void AddPingCommand(CLI::App& app)
{
    const auto options = std::make_shared<Options>();
    CLI::App* ping = app.add_subcommand("ping", "See whether a host answers, and how fast");
    ping->add_option("HOST", options->host, "A name, or an IPv4 or IPv6 address; it is well if it replies once")
        ->required()
        ->type_name("");
    ping->add_option("--count", options->count, "How many requests, one a second (4)")
        ->type_name("N")
        ->check(CLI::Range(1, kMostRequests).description(""));
    ping->add_option("--size", options->size, "Bytes of payload (56)")
        ->type_name("BYTES")
        ->check(CLI::Range(0, kLargestPayload).description(""));
    ping->add_option("--timeout", options->timeout, "How long to wait for each reply (5)")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, kLongestTimeout).description(""));
    ping->callback([options] { PingAll(*options); });
}
