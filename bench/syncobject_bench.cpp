// Semaphores and shared blocks that nobody else wants, against bare semop().
#include <ZKQ_general/syncobject.h>
#include <benchmark/benchmark.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

namespace {

constexpr int kUnused = 1;

/// A semaphore with one unit and no key, removed in the end.
class Semaphore {
public:
    Semaphore() : id_(ZKQGeneral_SysCreateSemaphore(1, kUnused, IPC_PRIVATE)) {}
    ~Semaphore() { ZKQGeneral_SysKillSemaphore(id_); }
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    int Id() const { return id_; }

private:
    int id_;
};

void TakeOurs(benchmark::State& state)
{
    const Semaphore semaphore;
    for (auto _ : state)
        if (!ZKQGeneral_SysWaitSemaphore(semaphore.Id(), 5) || !ZKQGeneral_SysReleaseSemaphore(semaphore.Id(), 1))
            state.SkipWithError("not taken or not given back");
}

void TakeBare(benchmark::State& state)
{
    const Semaphore semaphore;
    sembuf take = {0, -1, IPC_NOWAIT | SEM_UNDO};
    sembuf give = {0, 1, SEM_UNDO};
    for (auto _ : state)
        if (semop(semaphore.Id(), &take, 1) != 0 || semop(semaphore.Id(), &give, 1) != 0)
            state.SkipWithError("not taken or not given back");
}

void LockBlock(benchmark::State& state)
{
    const unsigned long key = 0x5A4B0000UL | (static_cast<unsigned long>(getpid()) & 0x7FFF);
    SHAREDBLOCK block = {4096, key, key, -1, -1};
    if (!ZKQGeneral_ShbCreateBlock(&block)) {
        state.SkipWithError("no block");
        ZKQGeneral_ShbDestroyBlock(&block);
        return;
    }
    void* const handle = ZKQGeneral_ShbConnectBlock(&block);
    for (auto _ : state) {
        if (ZKQGeneral_ShbLock(handle, 5) == nullptr)
            state.SkipWithError("not locked");
        ZKQGeneral_ShbUnlock(handle);
    }
    ZKQGeneral_ShbCloseBlock(handle);
    ZKQGeneral_ShbDestroyBlock(&block);
}

BENCHMARK(TakeOurs)->Name("syncobject/semaphore/ours");
BENCHMARK(TakeBare)->Name("syncobject/semaphore/semop");
BENCHMARK(LockBlock)->Name("syncobject/block/ours");

} // namespace
