// Semaphores, shared memory and shared blocks, in the kernel's namespace of a test's own where that is allowed.
#include <ZKQ_general/syncobject.h>
#include <limits.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "support/error_text.h"
#include "support/ipc_namespace.h"

namespace {

using support::ErrorText;

constexpr int kKey = 0x5A4B5101;
constexpr int kOtherKey = kKey + 1;

int Units(int semaphore)
{
    return semctl(semaphore, 0, GETVAL);
}

int Semaphore(int units, int key = kKey)
{
    const int id = ZKQGeneral_SysCreateSemaphore(units, 512, key);
    EXPECT_GE(id, 0) << ErrorText();
    return id;
}

void ExpectError(int error)
{
    EXPECT_EQ(ErrorText(), strerror(error));
    support::MarkErrorText();
}

/// Seconds that a call takes.
double Duration(const std::function<void()>& call)
{
    const auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(Semaphore, IsCreatedOnceWithItsUnits)
{
    RUN_ALONE([] {
        const int id = Semaphore(3);
        EXPECT_EQ(Units(id), 3);
        semid_ds info = {};
        EXPECT_EQ(semctl(id, 0, IPC_STAT, &info), 0);
        EXPECT_EQ(info.sem_nsems, 1);
        EXPECT_EQ(info.sem_perm.mode & 0777, 0666);
        EXPECT_EQ(ZKQGeneral_SysCreateSemaphore(1, 1, kKey), -1);
        ExpectError(EEXIST);
        EXPECT_EQ(Units(id), 3);
        EXPECT_EQ(ZKQGeneral_SysConnectSemaphore(9, 9, kKey), id);
        EXPECT_EQ(Units(id), 3);
        EXPECT_TRUE(ZKQGeneral_SysCloseSemaphore(id));
        EXPECT_TRUE(ZKQGeneral_SysCloseSemaphore(-1));
        EXPECT_EQ(Units(id), 3) << "closing does nothing";
        EXPECT_TRUE(ZKQGeneral_SysKillSemaphore(id));
        EXPECT_EQ(ZKQGeneral_SysConnectSemaphore(1, 1, kKey), -1);
        ExpectError(ENOENT);
        EXPECT_FALSE(ZKQGeneral_SysKillSemaphore(id));
        ExpectError(EINVAL);
        EXPECT_GE(Semaphore(0), 0) << "the key is free again";
    });
}

TEST(Semaphore, WithUnitsThatItCannotHaveIsNotLeft)
{
    RUN_ALONE([] {
        for (const int units : {-1, 32768, INT_MIN, INT_MAX}) {
            EXPECT_EQ(ZKQGeneral_SysCreateSemaphore(units, 1, kKey), -1);
            ExpectError(ERANGE);
            EXPECT_EQ(semget(kKey, 0, 0), -1) << units;
        }
        EXPECT_EQ(Units(Semaphore(32767)), 32767);
    });
}

TEST(Semaphore, WithThePrivateKeyIsNewEachTime)
{
    RUN_ALONE([] {
        const int first = Semaphore(1, IPC_PRIVATE);
        const int second = Semaphore(1, IPC_PRIVATE);
        EXPECT_NE(first, second);
        EXPECT_EQ(ZKQGeneral_SysConnectSemaphore(1, 1, IPC_PRIVATE), -1);
        ExpectError(ENOENT);
    });
}

TEST(Semaphore, GivesAndTakesUnits)
{
    RUN_ALONE([] {
        const int id = Semaphore(2);
        EXPECT_TRUE(ZKQGeneral_SysWaitSemaphore(id, 5));
        EXPECT_TRUE(ZKQGeneral_SysWaitSemaphore(id, -1));
        EXPECT_EQ(Units(id), 0);
        EXPECT_TRUE(ZKQGeneral_SysReleaseSemaphore(id, 300));
        EXPECT_EQ(Units(id), 300);
        EXPECT_TRUE(ZKQGeneral_SysReleaseSemaphore(id, 0));
        EXPECT_EQ(Units(id), 300);
        support::MarkErrorText();
        EXPECT_FALSE(ZKQGeneral_SysReleaseSemaphore(id, 32768));
        ExpectError(ERANGE);
        EXPECT_FALSE(ZKQGeneral_SysReleaseSemaphore(id, 65537)) << "not 1";
        ExpectError(ERANGE);
        EXPECT_FALSE(ZKQGeneral_SysReleaseSemaphore(id, 32767)) << "more than fit";
        ExpectError(ERANGE);
        EXPECT_FALSE(ZKQGeneral_SysReleaseSemaphore(id, -32769));
        ExpectError(ERANGE);
        EXPECT_FALSE(ZKQGeneral_SysReleaseSemaphore(id, -301)) << "without waiting";
        ExpectError(EAGAIN);
        EXPECT_EQ(Units(id), 300);
        EXPECT_TRUE(ZKQGeneral_SysReleaseSemaphore(id, -300));
        EXPECT_EQ(Units(id), 0);
        EXPECT_FALSE(ZKQGeneral_SysReleaseSemaphore(-1, 1));
        ExpectError(EINVAL);
        EXPECT_FALSE(ZKQGeneral_SysWaitSemaphore(-1, 1));
        ExpectError(EINVAL);
    });
}

TEST(Semaphore, WaitsForWholeSeconds)
{
    RUN_ALONE([] {
        const int id = Semaphore(0);
        EXPECT_LT(Duration([&] { EXPECT_FALSE(ZKQGeneral_SysWaitSemaphore(id, -1)); }), 0.5);
        ExpectError(ETIME);
        const double took = Duration([&] { EXPECT_FALSE(ZKQGeneral_SysWaitSemaphore(id, 2)); });
        ExpectError(ETIME);
        EXPECT_GE(took, 1.99);
        EXPECT_LT(took, 3.5);
    });
}

TEST(Semaphore, SignalsNeitherEndNorProlongAWait)
{
    RUN_ALONE([] {
        const int id = Semaphore(0);
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        const pid_t waiting = getpid();
        const pid_t noise = fork();
        if (noise == 0)
            for (;;) {
                kill(waiting, SIGUSR1);
                usleep(500);
            }
        const double took = Duration([&] { EXPECT_FALSE(ZKQGeneral_SysWaitSemaphore(id, 2)); });
        kill(noise, SIGKILL);
        waitpid(noise, nullptr, 0);
        EXPECT_EQ(ErrorText(), strerror(ETIME));
        EXPECT_GE(took, 1.99);
        EXPECT_LT(took, 3.5);
    });
}

TEST(Semaphore, TakesAUnitThatIsReleasedMeanwhile)
{
    RUN_ALONE([] {
        const int id = Semaphore(0);
        std::thread other([&] {
            usleep(200'000);
            ZKQGeneral_SysReleaseSemaphore(id, 1);
        });
        EXPECT_TRUE(ZKQGeneral_SysWaitSemaphore(id, 0));
        other.join();
        EXPECT_EQ(Units(id), 0);
    });
}

TEST(Semaphore, ThatIsRemovedEndsTheWait)
{
    RUN_ALONE([] {
        const int id = Semaphore(0);
        std::thread other([&] {
            usleep(200'000);
            ZKQGeneral_SysKillSemaphore(id);
        });
        EXPECT_FALSE(ZKQGeneral_SysWaitSemaphore(id, 10));
        other.join();
        EXPECT_EQ(ErrorText(), strerror(EINVAL));
    });
}

TEST(Semaphore, UnitsOfAProcessThatEndsComeBack)
{
    RUN_ALONE([] {
        const int id = Semaphore(5);
        const pid_t pid = fork();
        if (pid == 0) {
            ZKQGeneral_SysWaitSemaphore(id, 1);
            ZKQGeneral_SysWaitSemaphore(id, 1);
            raise(SIGKILL);
        }
        waitpid(pid, nullptr, 0);
        EXPECT_EQ(Units(id), 5);
    });
}

TEST(SharedMemory, ReplacesWhatIsLargeEnough)
{
    RUN_ALONE([] {
        const int first = ZKQGeneral_CreateSharedMemory(kKey, 5000);
        EXPECT_GE(first, 0) << ErrorText();
        shmid_ds info = {};
        EXPECT_EQ(shmctl(first, IPC_STAT, &info), 0);
        EXPECT_EQ(info.shm_segsz, 5000u);
        EXPECT_EQ(info.shm_perm.mode & 0777, 0666);
        EXPECT_EQ(ZKQGeneral_ConnectSharedMemory(kKey, 5000), first);
        EXPECT_EQ(ZKQGeneral_ConnectSharedMemory(kKey, 1), first);
        EXPECT_EQ(ZKQGeneral_ConnectSharedMemory(kKey, 5001), -1);
        ExpectError(EINVAL);
        const int second = ZKQGeneral_CreateSharedMemory(kKey, 5000);
        EXPECT_GE(second, 0);
        EXPECT_NE(second, first);
        EXPECT_EQ(shmctl(first, IPC_STAT, &info), -1) << "gone";
        EXPECT_EQ(ZKQGeneral_CreateSharedMemory(kKey, 5001), -1) << "a smaller one is in the way";
        ExpectError(EEXIST);
        EXPECT_EQ(ZKQGeneral_ConnectSharedMemory(kKey, 5000), second);
        EXPECT_TRUE(ZKQGeneral_CloseSharedMemory(second));
        EXPECT_TRUE(ZKQGeneral_KillSharedMemory(second));
        EXPECT_FALSE(ZKQGeneral_KillSharedMemory(second));
        ExpectError(EINVAL);
        EXPECT_EQ(ZKQGeneral_ConnectSharedMemory(kKey, 1), -1);
        ExpectError(ENOENT);
        EXPECT_EQ(ZKQGeneral_CreateSharedMemory(kKey, 0), -1);
        ExpectError(EINVAL);
    });
}

TEST(SharedMemory, WithThePrivateKeyIsNewEachTime)
{
    RUN_ALONE([] {
        const int first = ZKQGeneral_CreateSharedMemory(IPC_PRIVATE, 10);
        const int second = ZKQGeneral_CreateSharedMemory(IPC_PRIVATE, 10);
        shmid_ds info = {};
        EXPECT_EQ(shmctl(first, IPC_STAT, &info), 0) << "not replaced";
        EXPECT_NE(first, second);
        EXPECT_EQ(ZKQGeneral_ConnectSharedMemory(IPC_PRIVATE, 10), -1);
        ExpectError(ENOENT);
    });
}

TEST(SharedMemory, IsSeenByAllWhoMapIt)
{
    RUN_ALONE([] {
        const int id = ZKQGeneral_CreateSharedMemory(kKey, 100);
        auto* const one = static_cast<char*>(ZKQGeneral_MapSharedMemory(id));
        auto* const two = static_cast<char*>(ZKQGeneral_MapSharedMemory(id));
        ASSERT_NE(one, nullptr);
        ASSERT_NE(two, nullptr);
        EXPECT_TRUE(std::all_of(one, one + 100, [](char c) { return c == 0; }));
        one[99] = 'x';
        EXPECT_EQ(two[99], 'x');
        EXPECT_TRUE(ZKQGeneral_UnmapSharedMemory(-5, one));
        EXPECT_FALSE(ZKQGeneral_UnmapSharedMemory(id, one));
        ExpectError(EINVAL);
        EXPECT_FALSE(ZKQGeneral_UnmapSharedMemory(id, nullptr));
        ExpectError(EINVAL);
        EXPECT_TRUE(ZKQGeneral_KillSharedMemory(id));
        EXPECT_EQ(two[99], 'x') << "gone with the last mapping";
        EXPECT_TRUE(ZKQGeneral_UnmapSharedMemory(id, two));
        EXPECT_EQ(ZKQGeneral_MapSharedMemory(id), nullptr);
        ExpectError(EINVAL);
    });
}

SHAREDBLOCK Block(int size = 64)
{
    return {size, kKey, kOtherKey, -1, -1};
}

TEST(SharedBlock, IsCreatedConnectedLockedAndDestroyed)
{
    RUN_ALONE([] {
        SHAREDBLOCK block = Block();
        ASSERT_TRUE(ZKQGeneral_ShbCreateBlock(&block)) << ErrorText();
        EXPECT_EQ(Units(block.SemID), 1);
        SHAREDBLOCK other = Block();
        void* const handle = ZKQGeneral_ShbConnectBlock(&other);
        ASSERT_NE(handle, nullptr);
        EXPECT_EQ(other.SemID, block.SemID);
        EXPECT_EQ(other.ShmID, block.ShmID);
        auto* const bytes = static_cast<char*>(ZKQGeneral_ShbLock(handle, 1));
        ASSERT_NE(bytes, nullptr);
        EXPECT_EQ(Units(block.SemID), 0);
        EXPECT_TRUE(std::all_of(bytes, bytes + 64, [](char c) { return c == 0; }));
        EXPECT_EQ(ZKQGeneral_ShbLock(handle, -1), nullptr) << "it is locked";
        ExpectError(ETIME);
        ZKQGeneral_ShbUnlock(handle);
        EXPECT_EQ(Units(block.SemID), 1);
        ZKQGeneral_ShbCloseBlock(handle);
        EXPECT_EQ(Units(block.SemID), 1) << "the block stays";
        SHAREDBLOCK copy = block;
        ZKQGeneral_ShbDestroyBlock(&block);
        EXPECT_EQ(block.Size + block.SemID + block.ShmID, 0);
        EXPECT_EQ(block.SemName + block.ShmName, 0u);
        EXPECT_EQ(semctl(copy.SemID, 0, GETVAL), -1);
        EXPECT_EQ(ZKQGeneral_ShbConnectBlock(&copy), nullptr);
        ExpectError(ENOENT);
    });
}

TEST(SharedBlock, KeysCountByTheirLowerHalf)
{
    RUN_ALONE([] {
        SHAREDBLOCK block = Block();
        block.SemName |= 1ul << 32;
        block.ShmName |= 1ul << 40;
        EXPECT_TRUE(ZKQGeneral_ShbCreateBlock(&block));
        EXPECT_EQ(semget(kKey, 1, 0), block.SemID);
        EXPECT_EQ(shmget(kOtherKey, 1, 0), block.ShmID);
    });
}

TEST(SharedBlock, NeedsAFreeLock)
{
    RUN_ALONE([] {
        const int taken = Semaphore(1);
        SHAREDBLOCK block = Block();
        block.ShmID = 77;
        EXPECT_FALSE(ZKQGeneral_ShbCreateBlock(&block));
        ExpectError(EEXIST);
        EXPECT_EQ(block.SemID, -1);
        EXPECT_EQ(block.ShmID, 77);
        EXPECT_EQ(shmget(kOtherKey, 1, 0), -1);
        EXPECT_EQ(Units(taken), 1);
    });
}

TEST(SharedBlock, ThatGetsNoMemoryLeavesItsLock)
{
    RUN_ALONE([] {
        SHAREDBLOCK block = Block(0);
        EXPECT_FALSE(ZKQGeneral_ShbCreateBlock(&block));
        ExpectError(EINVAL);
        EXPECT_EQ(Units(block.SemID), 1);
        EXPECT_EQ(block.ShmID, -1);
        ZKQGeneral_ShbDestroyBlock(&block);
        EXPECT_EQ(semget(kKey, 1, 0), -1);
        block = Block(-1);
        block.ShmID = 77;
        EXPECT_FALSE(ZKQGeneral_ShbCreateBlock(&block));
        ExpectError(EINVAL);
        EXPECT_EQ(Units(block.SemID), 1);
        EXPECT_EQ(block.ShmID, -1);
        EXPECT_EQ(ZKQGeneral_ShbConnectBlock(&block), nullptr);
        ExpectError(EINVAL);
    });
}

TEST(SharedBlock, ConnectsOnlyToAWholeOne)
{
    RUN_ALONE([] {
        SHAREDBLOCK block = Block();
        EXPECT_EQ(ZKQGeneral_ShbConnectBlock(&block), nullptr);
        ExpectError(ENOENT);
        Semaphore(1);
        EXPECT_EQ(ZKQGeneral_ShbConnectBlock(&block), nullptr);
        ExpectError(ENOENT);
        EXPECT_GE(ZKQGeneral_CreateSharedMemory(kOtherKey, 63), 0);
        EXPECT_EQ(ZKQGeneral_ShbConnectBlock(&block), nullptr) << "too small";
        ExpectError(EINVAL);
        EXPECT_EQ(block.SemID, -1);
    });
}

TEST(SharedBlock, WithoutAMappingIsLockedAllTheSame)
{
    RUN_ALONE([] {
        SHAREDBLOCK block = Block();
        ASSERT_TRUE(ZKQGeneral_ShbCreateBlock(&block));
        shmid_ds info = {};
        ASSERT_EQ(shmctl(block.ShmID, IPC_STAT, &info), 0);
        info.shm_perm.mode = 0600;
        ASSERT_EQ(shmctl(block.ShmID, IPC_SET, &info), 0);
        support::BecomeNobody();
        support::MarkErrorText();
        void* const handle = ZKQGeneral_ShbConnectBlock(&block);
        ASSERT_NE(handle, nullptr) << ErrorText();
        ExpectError(EACCES);
        EXPECT_EQ(ZKQGeneral_ShbLock(handle, 1), nullptr);
        EXPECT_EQ(Units(block.SemID), 0) << "the lock is taken";
        ZKQGeneral_ShbUnlock(handle);
        EXPECT_EQ(Units(block.SemID), 1);
        ZKQGeneral_ShbCloseBlock(handle);
    });
}

TEST(SharedBlock, IdentifiersOfNoneAreOnlyCleared)
{
    RUN_ALONE([] {
        const int semaphore = Semaphore(1);
        const int memory = ZKQGeneral_CreateSharedMemory(kKey, 10);
        SHAREDBLOCK block = {5, 6, 7, -1, -2};
        ZKQGeneral_ShbDestroyBlock(&block);
        EXPECT_EQ(block.Size + block.SemID + block.ShmID, 0);
        EXPECT_EQ(Units(semaphore), 1);
        // Numbers count as they are: those of the first objects may be 0.
        ASSERT_EQ(semaphore, 0);
        ASSERT_EQ(memory, 0);
        ZKQGeneral_ShbDestroyBlock(&block);
        EXPECT_EQ(Units(semaphore), -1);
        EXPECT_EQ(shmget(kKey, 1, 0), -1);
    });
}

TEST(SharedBlock, NullIsNone)
{
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_ShbCreateBlock(nullptr));
    ExpectError(EINVAL);
    EXPECT_EQ(ZKQGeneral_ShbConnectBlock(nullptr), nullptr);
    ExpectError(EINVAL);
    EXPECT_EQ(ZKQGeneral_ShbLock(nullptr, 1), nullptr);
    ExpectError(EINVAL);
    ZKQGeneral_ShbUnlock(nullptr);
    ZKQGeneral_ShbCloseBlock(nullptr);
    ZKQGeneral_ShbDestroyBlock(nullptr);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

/// Adds to a number in the block, slowly enough for others to come in between.
void AddOne(void* bytes)
{
    auto* const number = static_cast<volatile int*>(bytes);
    const int before = *number;
    sched_yield();
    *number = before + 1;
}

TEST(SharedBlock, SixteenProcessesNeverAddAtOnce)
{
    RUN_ALONE([] {
        constexpr int kProcesses = 16;
        constexpr int kRounds = 200;
        SHAREDBLOCK block = Block();
        ASSERT_TRUE(ZKQGeneral_ShbCreateBlock(&block));
        std::vector<pid_t> pids;
        for (int i = 0; i < kProcesses; ++i) {
            pids.push_back(fork());
            if (pids.back() != 0)
                continue;
            SHAREDBLOCK own = Block();
            void* const handle = ZKQGeneral_ShbConnectBlock(&own);
            for (int round = 0; round < kRounds;) {
                // Who waits looks again after a second; asking by itself ends the test in less.
                void* const bytes = ZKQGeneral_ShbLock(handle, -1);
                if (bytes == nullptr) {
                    usleep(100);
                    continue;
                }
                AddOne(bytes);
                if (i == 0 && round == kRounds / 2)
                    raise(SIGKILL); // with the lock held
                ZKQGeneral_ShbUnlock(handle);
                ++round;
            }
            ZKQGeneral_ShbCloseBlock(handle);
            _exit(0);
        }
        for (const pid_t pid : pids)
            waitpid(pid, nullptr, 0);
        void* const handle = ZKQGeneral_ShbConnectBlock(&block);
        const auto* const sum = static_cast<const int*>(ZKQGeneral_ShbLock(handle, 2));
        ASSERT_NE(sum, nullptr) << "the lock of the killed process is back";
        EXPECT_EQ(*sum, (kProcesses - 1) * kRounds + kRounds / 2 + 1);
        ZKQGeneral_ShbUnlock(handle);
        ZKQGeneral_ShbCloseBlock(handle);
        ZKQGeneral_ShbDestroyBlock(&block);
    });
}

} // namespace
