// Sending and receiving of 1 GiB in blocks over the loopback interface, against a bare loop with poll() and read() or
// write() on the same kind of socket.
#include <ZKQ_general/socket.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>

#include <memory>
#include <vector>

#include "loopback.h"

namespace {

constexpr std::size_t kTotal = std::size_t{1} << 30;
constexpr std::size_t kBlock = std::size_t{64} << 20;
constexpr int kTimeout = 20;

enum Direction { kSend, kReceive };

// Takes or gives the total on each connection, and acknowledges what it has taken.
template <Direction kDirection>
LoopbackServer& Server()
{
    static LoopbackServer server([](int connection) {
        if constexpr (kDirection == kSend) {
            if (DropBytes(connection, kTotal)) {
                WriteBytes(connection, 1);
            }
        } else {
            // A server that speaks first may be taken for one that refuses.
            if (DropBytes(connection, 1)) {
                WriteBytes(connection, kTotal);
            }
        }
    });
    return server;
}

bool SendOurs(SOCKET_ZKQ* sy, char* block, std::size_t size)
{
    auto count = static_cast<long>(size);
    return S_Send(*sy, block, &count, kTimeout);
}

bool ReceiveOurs(SOCKET_ZKQ* sy, char* block, std::size_t size)
{
    auto count = static_cast<long>(size);
    return S_Receive(*sy, block, &count, kTimeout);
}

template <Direction kDirection>
bool Bare(SOCKET_ZKQ* sy, char* block, std::size_t size)
{
    const int fd = static_cast<int>(sy->sd);
    while (size > 0) {
        pollfd entry = {fd, kDirection == kSend ? POLLOUT : POLLIN, 0};
        if (poll(&entry, 1, kTimeout * 1000) <= 0) {
            return false;
        }
        const ssize_t count = kDirection == kSend ? write(fd, block, size) : read(fd, block, size);
        if (count <= 0) {
            return false;
        }
        block += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

template <Direction kDirection>
void Transfer(benchmark::State& state, bool (*transfer)(SOCKET_ZKQ*, char*, std::size_t))
{
    std::vector<char> block(kBlock, 'x');
    for (auto _ : state) {
        state.PauseTiming();
        SOCKET_ZKQ sy;
        if (!S_Open(&sy, 0, 0, 0) || !S_Client(&sy, "127.0.0.1", Server<kDirection>().Port(), kTimeout)) {
            state.SkipWithError(NetWork_GetErrorText());
            break;
        }
        state.ResumeTiming();
        bool done = kDirection == kSend || WriteBytes(static_cast<int>(sy.sd), 1);
        for (std::size_t moved = 0; done && moved < kTotal; moved += kBlock) {
            done = transfer(&sy, block.data(), kBlock);
        }
        char byte = 0;
        if (kDirection == kSend) {
            done = done && Bare<kReceive>(&sy, &byte, 1);
        }
        if (!done) {
            state.SkipWithError("not transferred");
            break;
        }
        state.PauseTiming();
        S_Close(&sy, 0);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(kTotal) * state.iterations());
}

constexpr auto Send = Transfer<kSend>;
constexpr auto Receive = Transfer<kReceive>;

void Once(benchmark::internal::Benchmark* bench)
{
    bench->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK_CAPTURE(Send, ours, SendOurs)->Name("socket/send/ours")->Apply(Once);
BENCHMARK_CAPTURE(Send, bare, Bare<kSend>)->Name("socket/send/bare")->Apply(Once);
BENCHMARK_CAPTURE(Receive, ours, ReceiveOurs)->Name("socket/receive/ours")->Apply(Once);
BENCHMARK_CAPTURE(Receive, bare, Bare<kReceive>)->Name("socket/receive/bare")->Apply(Once);

} // namespace
