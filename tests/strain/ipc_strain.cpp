// Semaphores, shared memory and shared blocks, within a thread and between all processes.
#include <ZKQ_general/syncobject.h>
#include <string.h>

#include "../fault/fault.h"
#include "strain.h"

namespace strain {
namespace {

/// A semaphore's unit must come back even when faults are about: nobody else would give it back.
void GiveBack(int semaphore)
{
    const fault::Calm calm;
    ZKQGeneral_SysReleaseSemaphore(semaphore, 1);
}

void CommonSemaphore(Worker& worker)
{
    const int semaphore = worker.process.site.semaphore;
    if (!ZKQGeneral_SysWaitSemaphore(semaphore, -1))
        return; // all units are taken
    const Holder back([&] { GiveBack(semaphore); });
}

void OwnSemaphore(Worker& worker)
{
    const int semaphore = ZKQGeneral_SysCreateSemaphore(2, 0, worker.Key(0));
    worker.Must(semaphore >= 0, "SysCreateSemaphore");
    const Holder kill([&] {
        const fault::Calm calm;
        ZKQGeneral_SysKillSemaphore(semaphore);
    });
    const int connected = ZKQGeneral_SysConnectSemaphore(0, 0, worker.Key(0));
    worker.Must(connected >= 0, "SysConnectSemaphore");
    worker.Right(connected == semaphore, "the connected semaphore is the created one");
    worker.Must(ZKQGeneral_SysWaitSemaphore(semaphore, -1), "SysWaitSemaphore, first unit");
    worker.Must(ZKQGeneral_SysWaitSemaphore(semaphore, -1), "SysWaitSemaphore, second unit");
    worker.Right(!ZKQGeneral_SysWaitSemaphore(semaphore, -1), "there is no third unit");
    worker.Must(ZKQGeneral_SysReleaseSemaphore(semaphore, 2), "SysReleaseSemaphore");
    worker.Must(ZKQGeneral_SysWaitSemaphore(semaphore, 5), "SysWaitSemaphore, a released unit");
}

void OwnMemory(Worker& worker)
{
    const unsigned size = 1 + static_cast<unsigned>(worker.Below(60000));
    const int memory = ZKQGeneral_CreateSharedMemory(worker.Key(1), size);
    worker.Must(memory >= 0, "CreateSharedMemory");
    const Holder kill([&] {
        const fault::Calm calm;
        ZKQGeneral_KillSharedMemory(memory);
    });
    worker.Must(ZKQGeneral_ConnectSharedMemory(worker.Key(1), size) >= 0, "ConnectSharedMemory");
    void* const first = ZKQGeneral_MapSharedMemory(memory);
    worker.Must(first != nullptr, "MapSharedMemory");
    const Holder unmapFirst([&] { ZKQGeneral_UnmapSharedMemory(memory, first); });
    void* const second = ZKQGeneral_MapSharedMemory(memory);
    worker.Must(second != nullptr, "MapSharedMemory, again");
    const Holder unmapSecond([&] { ZKQGeneral_UnmapSharedMemory(memory, second); });
    const std::string content = worker.Bytes(size);
    worker.Right(static_cast<char*>(second)[size - 1] == 0, "new memory is zero");
    memcpy(first, content.data(), size);
    worker.Right(memcmp(second, content.data(), size) == 0, "both mappings are one memory");
}

/// The counter is more than one machine word, so that an update that is torn or lost shows.
struct Counter {
    uint64_t count;
    uint64_t complement;
};

void CommonBlock(Worker& worker)
{
    const Site& site = worker.process.site;
    SHAREDBLOCK block = {};
    block.Size = kBlockSize;
    block.SemName = static_cast<unsigned long>(site.blockKey);
    block.ShmName = static_cast<unsigned long>(site.blockKey);
    void* const handle = ZKQGeneral_ShbConnectBlock(&block);
    worker.Must(handle != nullptr, "ShbConnectBlock");
    const Holder close([&] { ZKQGeneral_ShbCloseBlock(handle); });
    auto* const counter = static_cast<volatile Counter*>(ZKQGeneral_ShbLock(handle, kPatience));
    if (counter == nullptr && worker.Faults() > 0) {
        GiveBack(block.SemID); // the lock is taken, the memory could not be mapped
        throw Refused{"ShbConnectBlock without memory"};
    }
    worker.Must(counter != nullptr, "ShbLock");
    const uint64_t count = counter->count;
    const bool right = counter->complement == ~count || (count == 0 && counter->complement == 0);
    counter->count = count + 1;
    counter->complement = ~(count + 1);
    site.shared->blockAdded.fetch_add(1);
    ZKQGeneral_ShbUnlock(handle);
    worker.Right(right, "the shared block's counter and its complement");
}

void OwnBlock(Worker& worker)
{
    SHAREDBLOCK block = {};
    block.Size = 100;
    block.SemName = static_cast<unsigned long>(worker.Key(2));
    block.ShmName = static_cast<unsigned long>(worker.Key(3));
    block.SemID = block.ShmID = -1; // 0 would be one to destroy
    const BOOL created = ZKQGeneral_ShbCreateBlock(&block);
    const Holder destroy([&] {
        const fault::Calm calm;
        ZKQGeneral_ShbDestroyBlock(&block);
    });
    worker.Must(created, "ShbCreateBlock");
    SHAREDBLOCK other = block;
    void* const handle = ZKQGeneral_ShbConnectBlock(&other);
    worker.Must(handle != nullptr, "ShbConnectBlock");
    const Holder close([&] { ZKQGeneral_ShbCloseBlock(handle); });
    void* const memory = ZKQGeneral_ShbLock(handle, 5);
    worker.Must(memory != nullptr, "ShbLock");
    memset(memory, 'x', 100);
    worker.Right(!ZKQGeneral_SysWaitSemaphore(other.SemID, -1), "a locked block is locked");
    ZKQGeneral_ShbUnlock(handle);
}

} // namespace

void AddIpc(Operations& operations)
{
    operations.insert(operations.end(), {{"syncobject", "common semaphore", CommonSemaphore, 3},
                                         {"syncobject", "own semaphore", OwnSemaphore, 3},
                                         {"syncobject", "own memory", OwnMemory, 3},
                                         {"syncobject", "common block", CommonBlock, 1},
                                         {"syncobject", "own block", OwnBlock, 3}});
}

} // namespace strain
