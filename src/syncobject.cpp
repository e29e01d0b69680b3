#include <ZKQ_general/syncobject.h>
#include <errno.h>
#include <limits.h>
#include <stddef.h>
#include <stdlib.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include "internal/clock.h"
#include "internal/error.h"
#include "internal/guards.h"

namespace {

static_assert(offsetof(SHAREDBLOCK, SemName) == 8 && offsetof(SHAREDBLOCK, ShmName) == 16);
static_assert(offsetof(SHAREDBLOCK, SemID) == 24 && offsetof(SHAREDBLOCK, ShmID) == 28);

constexpr int kCreateNew = IPC_CREAT | IPC_EXCL | 0666;
constexpr int kNone = -1;
constexpr int kUnused = 0;

/// A connection to a shared block. Callers hold it as void*.
struct BlockHandle {
    int SemID;
    int ShmID;
    void* address;
};

/// What a semaphore is set to; programs declare it themselves.
union semun {
    int val;
    semid_ds* buf;
    unsigned short* array;
};

/// Ends a function that returns an identifier and has failed.
int FailWithNone(int error)
{
    GeneralMisc_SetSystemError(error);
    return kNone;
}

int FinishIdentifier(int identifier)
{
    return identifier >= 0 ? identifier : FailWithNone(errno);
}

BOOL FinishCall(int result)
{
    return result == 0 ? TRUE : FailWithErrno();
}

int Key(unsigned long name)
{
    return static_cast<int>(name);
}

/// An object is searched by its key; the private one has none, and would make a new one each time.
bool HasKey(int name)
{
    return name != IPC_PRIVATE;
}

/// Adds units to a semaphore, or takes them, without waiting; undone when the process ends.
int Change(int SemID, short units)
{
    sembuf operation = {0, units, IPC_NOWAIT | SEM_UNDO};
    return semop(SemID, &operation, 1) == 0 ? 0 : errno;
}

} // namespace

int ZKQGeneral_SysCreateSemaphore(int iInitCount, int, int SemName)
{
    if (HasKey(SemName) && semget(SemName, 0, 0) >= 0)
        return FailWithNone(EEXIST);
    const int identifier = semget(SemName, 1, kCreateNew);
    if (identifier < 0)
        return FailWithNone(errno);
    semun value = {};
    value.val = iInitCount;
    if (semctl(identifier, 0, SETVAL, value) == 0)
        return identifier;
    const int error = errno;
    semctl(identifier, 0, IPC_RMID);
    return FailWithNone(error);
}

int ZKQGeneral_SysConnectSemaphore(int, int, int SemName)
{
    return HasKey(SemName) ? FinishIdentifier(semget(SemName, 1, 0)) : FailWithNone(ENOENT);
}

BOOL ZKQGeneral_SysWaitSemaphore(int SemID, int iTimeout)
{
    const int timeout = iTimeout == 0 ? INT_MAX : iTimeout;
    SecondSteps steps;
    for (;;) {
        const int error = Change(SemID, -1);
        if (error != EAGAIN)
            return Finish(error);
        if (steps.Elapsed() >= timeout)
            return Fail(ETIME);
        steps.Sleep();
    }
}

BOOL ZKQGeneral_SysReleaseSemaphore(int SemID, int iCount)
{
    if (iCount == 0)
        return TRUE;
    const bool fits = iCount >= SHRT_MIN && iCount <= SHRT_MAX;
    return Finish(fits ? Change(SemID, static_cast<short>(iCount)) : ERANGE);
}

BOOL ZKQGeneral_SysCloseSemaphore(int)
{
    return TRUE;
}

BOOL ZKQGeneral_SysKillSemaphore(int SemID)
{
    return FinishCall(semctl(SemID, 0, IPC_RMID));
}

int ZKQGeneral_CreateSharedMemory(int ShmName, unsigned int uSize)
{
    if (HasKey(ShmName)) {
        const int existing = shmget(ShmName, uSize, 0);
        if (existing >= 0 && shmctl(existing, IPC_RMID, nullptr) != 0)
            return FailWithNone(errno);
    }
    return FinishIdentifier(shmget(ShmName, uSize, kCreateNew));
}

int ZKQGeneral_ConnectSharedMemory(int ShmName, unsigned int uSize)
{
    return HasKey(ShmName) ? FinishIdentifier(shmget(ShmName, uSize, 0)) : FailWithNone(ENOENT);
}

void* ZKQGeneral_MapSharedMemory(int ShMemID)
{
    void* const address = shmat(ShMemID, nullptr, 0);
    if (address != reinterpret_cast<void*>(-1))
        return address;
    GetSystemLastErrorText();
    return nullptr;
}

BOOL ZKQGeneral_UnmapSharedMemory(int, void* pAddress)
{
    return FinishCall(shmdt(pAddress));
}

BOOL ZKQGeneral_CloseSharedMemory(int)
{
    return TRUE;
}

BOOL ZKQGeneral_KillSharedMemory(int ShMemID)
{
    return FinishCall(shmctl(ShMemID, IPC_RMID, nullptr));
}

BOOL ZKQGeneral_ShbCreateBlock(SHAREDBLOCK* SHB)
{
    if (SHB == nullptr)
        return Fail(EINVAL);
    SHB->SemID = ZKQGeneral_SysCreateSemaphore(1, kUnused, Key(SHB->SemName));
    if (SHB->SemID < 0)
        return FALSE;
    SHB->ShmID = SHB->Size < 0 ? FailWithNone(EINVAL)
                               : ZKQGeneral_CreateSharedMemory(Key(SHB->ShmName), static_cast<unsigned>(SHB->Size));
    if (SHB->ShmID < 0)
        return FALSE;
    void* const address = ZKQGeneral_MapSharedMemory(SHB->ShmID);
    if (address == nullptr)
        return FALSE;
    shmdt(address); // new memory is all zeros
    return TRUE;
}

void* ZKQGeneral_ShbConnectBlock(SHAREDBLOCK* SHB)
{
    if (SHB == nullptr || SHB->Size < 0) {
        GeneralMisc_SetSystemError(EINVAL);
        return nullptr;
    }
    const int semaphore = ZKQGeneral_SysConnectSemaphore(kUnused, kUnused, Key(SHB->SemName));
    if (semaphore < 0)
        return nullptr;
    const int memory = ZKQGeneral_ConnectSharedMemory(Key(SHB->ShmName), static_cast<unsigned>(SHB->Size));
    if (memory < 0)
        return nullptr;
    auto* const handle = static_cast<BlockHandle*>(malloc(sizeof(BlockHandle)));
    if (handle == nullptr) {
        GetSystemLastErrorText();
        return nullptr;
    }
    SHB->SemID = semaphore;
    SHB->ShmID = memory;
    *handle = {semaphore, memory, ZKQGeneral_MapSharedMemory(memory)};
    return handle;
}

void* ZKQGeneral_ShbLock(void* hBlock, int TimeOut)
{
    if (hBlock == nullptr) {
        GeneralMisc_SetSystemError(EINVAL);
        return nullptr;
    }
    const auto* const handle = static_cast<const BlockHandle*>(hBlock);
    return ZKQGeneral_SysWaitSemaphore(handle->SemID, TimeOut) ? handle->address : nullptr;
}

void ZKQGeneral_ShbUnlock(void* hBlock)
{
    if (hBlock != nullptr)
        ZKQGeneral_SysReleaseSemaphore(static_cast<const BlockHandle*>(hBlock)->SemID, 1);
}

void ZKQGeneral_ShbCloseBlock(void* hBlock)
{
    if (hBlock == nullptr)
        return;
    auto* const handle = static_cast<BlockHandle*>(hBlock);
    if (handle->address != nullptr)
        ZKQGeneral_UnmapSharedMemory(handle->ShmID, handle->address);
    free(handle);
}

void ZKQGeneral_ShbDestroyBlock(SHAREDBLOCK* SHB)
{
    if (SHB == nullptr)
        return;
    if (SHB->SemID >= 0)
        ZKQGeneral_SysKillSemaphore(SHB->SemID);
    if (SHB->ShmID >= 0)
        ZKQGeneral_KillSharedMemory(SHB->ShmID);
    *SHB = {};
}
