// Threads: starting, waiting, letting go.
#include <ZKQ_general/system.h>
#include <pthread.h>
#include <stdint.h>

#include <atomic>
#include <thread>

#include "support/child.h"
#include "support/error_text.h"
#include "support/signals.h"

namespace {

void* Add(void* number)
{
    return reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(number) + 0x0123456780000001);
}

TEST(WorkingThread, RunsAndItsResultIsCut)
{
    THREADINFOA info = {7, 7};
    ASSERT_TRUE(ZKQGeneral_CreateWorkingThread(Add, reinterpret_cast<void*>(4), &info));
    EXPECT_NE(info.ThreadHandle, 0u);
    EXPECT_EQ(info.ThreadID, 0u);
    unsigned code = 0;
    EXPECT_TRUE(ZKQGeneral_WaitThreadExit(&info, &code, -1));
    EXPECT_EQ(code, 0x80000005u);
    EXPECT_EQ(info.ThreadHandle, 0u);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_WaitThreadExit(&info, &code, 0)) << "once only";
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(WorkingThread, TheWaitHasNoLimit)
{
    static std::atomic<bool> ended = false;
    THREADINFOA info = {};
    const auto sleep = [](void*) -> void* {
        usleep(300'000);
        ended = true;
        return nullptr;
    };
    ASSERT_TRUE(ZKQGeneral_CreateWorkingThread(sleep, nullptr, &info));
    const support::SignalStorm storm;
    EXPECT_TRUE(ZKQGeneral_WaitThreadExit(&info, nullptr, 1));
    EXPECT_TRUE(ended);
}

TEST(WorkingThread, NeedsAProcedureAndAThread)
{
    support::MarkErrorText();
    THREADINFOA info = {};
    EXPECT_FALSE(ZKQGeneral_CreateWorkingThread(nullptr, nullptr, &info));
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_WaitThreadExit(nullptr, nullptr, 0));
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    unsigned code = 5;
    EXPECT_FALSE(ZKQGeneral_WaitThreadExit(&info, &code, 0));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_EQ(code, 5u);
    support::MarkErrorText();
    ZKQGeneral_CloseThreadHandle(nullptr);
    ZKQGeneral_CloseThreadHandle(&info);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(WorkingThread, WaitingForOneselfFailsWithoutAText)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer gives up on the second wait for a thread";
#endif
    static THREADINFOA info;
    static std::atomic<bool> stored = false;
    static std::atomic<bool> failed = false;
    stored = failed = false;
    const auto wait = [](void*) -> void* {
        while (!stored)
            sched_yield();
        support::MarkErrorText();
        failed = !ZKQGeneral_WaitThreadExit(&info, nullptr, 0) && support::ErrorTextIsMarked();
        return nullptr;
    };
    ASSERT_TRUE(ZKQGeneral_CreateWorkingThread(wait, nullptr, &info));
    stored = true;
    while (!failed && info.ThreadHandle != 0)
        sched_yield();
    EXPECT_TRUE(failed);
    EXPECT_TRUE(ZKQGeneral_WaitThreadExit(&info, nullptr, 0)) << "the handle was kept";
}

TEST(WorkingThread, LetGoItGoesOn)
{
    static std::atomic<int> step = 0;
    const auto work = [](void*) -> void* {
        while (step != 1)
            sched_yield();
        step = 2;
        return nullptr;
    };
    step = 0;
    THREADINFOA info = {};
    ASSERT_TRUE(ZKQGeneral_CreateWorkingThread(work, nullptr, &info));
    ZKQGeneral_CloseThreadHandle(&info);
    EXPECT_EQ(info.ThreadHandle, 0u);
    step = 1;
    while (step != 2)
        sched_yield();
}

TEST(WorkingThread, IsJoinableByDefault)
{
    static std::atomic<int> state = -1;
    const auto look = [](void*) -> void* {
        pthread_attr_t attributes;
        int detached = -1;
        if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
            pthread_attr_getdetachstate(&attributes, &detached);
            pthread_attr_destroy(&attributes);
        }
        state = detached;
        return nullptr;
    };
    THREADINFOA info = {};
    ASSERT_TRUE(ZKQGeneral_CreateWorkingThread(look, nullptr, &info));
    EXPECT_TRUE(ZKQGeneral_WaitThreadExit(&info, nullptr, 0));
    EXPECT_EQ(state, PTHREAD_CREATE_JOINABLE);
}

TEST(WorkingThread, WithoutARecordRunsToo)
{
    RUN_IN_CHILD([] {
        static std::atomic<bool> ran = false;
        const auto run = [](void*) -> void* {
            EXPECT_EQ(pthread_detach(pthread_self()), 0) << "it was joinable, but nobody could";
            ran = true;
            return nullptr;
        };
        EXPECT_TRUE(ZKQGeneral_CreateWorkingThread(run, nullptr, nullptr));
        while (!ran)
            sched_yield();
    });
}

TEST(WorkingThread, CannotBeTerminated)
{
    THREADINFOA info = {1, 2};
    for (THREADINFOA* const which : {&info, static_cast<THREADINFOA*>(nullptr)}) {
        support::MarkErrorText();
        EXPECT_FALSE(ZKQGeneral_TerminateThread(which, 0));
        EXPECT_SYSTEM_ERROR(ENOSYS);
    }
    EXPECT_EQ(info.ThreadHandle, 1u);
}

} // namespace
