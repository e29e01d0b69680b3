// Owners of what must be given back: descriptors, streams, directories, malloc'd blocks, locks.
#pragma once

#include <dirent.h>
#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <memory>
#include <utility>

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
    UniqueFd& operator=(UniqueFd&&) = delete;
    ~UniqueFd()
    {
        if (fd_ >= 0)
            close(fd_);
    }

    bool IsOpen() const { return fd_ >= 0; }
    int Get() const { return fd_; }
    int Release() { return std::exchange(fd_, -1); }
    void Reset(int fd) { const UniqueFd old(std::exchange(fd_, fd)); }

private:
    int fd_ = -1;
};

struct Closer {
    void operator()(FILE* file) const { fclose(file); }
    void operator()(DIR* directory) const { closedir(directory); }
};
using UniqueFile = std::unique_ptr<FILE, Closer>;
using UniqueDir = std::unique_ptr<DIR, Closer>;

struct Freer {
    void operator()(void* block) const { free(block); }
};
/// A block of the C heap; release() hands it to the caller.
template <class T>
using MallocPtr = std::unique_ptr<T, Freer>;

class MutexLock {
public:
    explicit MutexLock(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;
    ~MutexLock() { pthread_mutex_unlock(&mutex_); }

private:
    pthread_mutex_t& mutex_;
};

/// Leaves errno as it was: a caller who logs on his way out of a failure still finds his reason.
class ErrnoKeeper {
public:
    ErrnoKeeper() : saved_(errno) {}
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;
    ~ErrnoKeeper() { errno = saved_; }

private:
    int saved_;
};
