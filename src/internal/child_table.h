// Children that are waited for, kept apart from those that a handler of SIGCHLD reaps.
#pragma once

#include <errno.h>
#include <sched.h>
#include <stdint.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <atomic>

#include "guards.h"

/// A handler that reaps every child would take the status that somebody waits for. So each child that is waited for
/// stands in a table, and the handler leaves its status there. Nothing here locks or allocates: the handler may run at any
/// point of everything else, in any thread.
///
/// A child that ends before it is in the table is not known yet. While any is being started the handler leaves all that
/// has ended, and tells the starter, who reaps them once the child stands in the table.
class ChildTable {
public:
    static constexpr int kSize = 128;
    static constexpr int kNoSlot = -1;

    constexpr ChildTable() = default;

    /// To be called before a child is started; nothing is reaped from here on.
    void BeginStart() { starts_.fetch_add(1); }
    /// To be called after a start that has failed, or whose child is not waited for, or stands in the table.
    void EndStart()
    {
        starts_.fetch_sub(1);
        if (deferred_.exchange(false))
            Reap();
    }

    /// Puts a child that has just been started into the table. kNoSlot if the table is full: the start then must not end
    /// before the wait does.
    int Enter(pid_t pid)
    {
        for (int slot = 0; slot < kSize; ++slot) {
            uint64_t expected = kFree;
            if (slots_[slot].word.compare_exchange_strong(expected, Word(kWaited, pid)))
                return slot;
        }
        return kNoSlot;
    }

    /// As waitpid() for one child, whose slot may be kNoSlot.
    pid_t Wait(int slot, pid_t pid, int* status, int options)
    {
        const pid_t result = waitpid(pid, status, options);
        if (result >= 0 || errno != ECHILD || slot == kNoSlot)
            return result;
        while (StateOf(slots_[slot].word.load()) == kTaking) // a few instructions of a handler in another thread
            sched_yield();
        if (StateOf(slots_[slot].word.load()) == kTaken) {
            *status = slots_[slot].status.load();
            return pid;
        }
        errno = ECHILD; // it went by neither way
        return result;
    }

    /// Takes a child out of the table, whether it has ended or not.
    void Leave(int slot, pid_t pid)
    {
        for (;;) {
            uint64_t expected = Word(kWaited, pid);
            if (slots_[slot].word.compare_exchange_strong(expected, kFree))
                return;
            if (expected == Word(kTaken, pid)) {
                slots_[slot].word.store(kFree);
                return;
            }
            sched_yield();
        }
    }

    /// Reaps all children that have ended, without waiting. What a handler of SIGCHLD does.
    void Reap()
    {
        const ErrnoKeeper keeper;
        for (;;) {
            siginfo_t child = {};
            if (waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) != 0 || child.si_pid == 0)
                return;
            // Only now: a child that has been seen was being started, or stands in the table, or is not waited for.
            if (starts_.load() != 0) {
                deferred_.store(true);
                if (starts_.load() != 0)
                    return; // whoever ends his start sees it
            }
            if (!ReapOne(child.si_pid))
                return;
        }
    }

private:
    enum State : uint32_t { kNone, kWaited, kTaking, kTaken };
    static constexpr uint64_t kFree = 0;

    /// State and child in one, so that nobody takes the slot's next child for the one that he has found.
    struct Slot {
        std::atomic<uint64_t> word = kFree;
        std::atomic<int> status = 0;
    };
    static_assert(std::atomic<uint64_t>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

    static constexpr uint64_t Word(State state, pid_t pid)
    {
        return static_cast<uint64_t>(state) << 32 | static_cast<uint32_t>(pid);
    }
    static constexpr State StateOf(uint64_t word) { return static_cast<State>(word >> 32); }
    static constexpr pid_t ChildOf(uint64_t word) { return static_cast<pid_t>(static_cast<uint32_t>(word)); }

    /// False if a handler that this one has interrupted, or another thread, is about to take this child; it goes on with
    /// the others.
    bool ReapOne(pid_t pid)
    {
        for (Slot& slot : slots_) {
            uint64_t word = slot.word.load();
            if (word == kFree || ChildOf(word) != pid)
                continue;
            if (StateOf(word) == kTaking)
                return false;
            if (StateOf(word) == kWaited)
                return slot.word.compare_exchange_strong(word, Word(kTaking, pid)) ? Take(slot, pid) : true;
        }
        waitpid(pid, nullptr, WNOHANG);
        return true;
    }

    static bool Take(Slot& slot, pid_t pid)
    {
        int status = 0;
        const bool taken = waitpid(pid, &status, WNOHANG) == pid; // or the one who waits was faster
        if (taken)
            slot.status.store(status);
        slot.word.store(Word(taken ? kTaken : kWaited, pid));
        return true;
    }

    std::atomic<int> starts_ = 0;
    std::atomic<bool> deferred_ = false;
    Slot slots_[kSize];
};
