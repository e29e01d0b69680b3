/**
 * @file syncobject.h
 * @brief System V semaphores and shared memory under integer keys, and memory blocks that processes share under a lock.
 *
 * Keys name objects for all processes of the system; an object lives until it is removed, whoever has ended in between.
 * Objects are created with the permissions 0666. Identifiers are the kernel's. Key 0 is the system's private key: what is
 * created under it is new each time and cannot be connected to.
 *
 * Unless a function says otherwise it returns `TRUE`, or `FALSE` with the text of the failed system call's errno value.
 * All functions may be called by several threads at once.
 */
#ifndef ZKQ_GENERAL_SYNCOBJECT_H
#define ZKQ_GENERAL_SYNCOBJECT_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A shared block: memory of zeros with a lock. The caller's, who sets the first three fields. */
typedef struct {
    int Size;              /**< bytes of memory */
    unsigned long SemName; /**< key of the lock's semaphore; its lower 32 bits count */
    unsigned long ShmName; /**< key of the memory alike */
    int SemID;             /**< identifier of the semaphore, set by creating and connecting; negative for none */
    int ShmID;             /**< identifier of the memory alike */
} SHAREDBLOCK;

/**
 * @brief Creates a semaphore.
 * @param iInitCount Units that it begins with.
 * @param iMaxCount  Not used.
 * @param SemName    Its key.
 * @return Its identifier, or -1: with the text of `EEXIST` (17) if there is one with this key.
 */
ZKQ_API int ZKQGeneral_SysCreateSemaphore(int iInitCount, int iMaxCount, int SemName);

/**
 * @brief Finds a semaphore.
 * @param iInitCount Not used.
 * @param iMaxCount  Not used.
 * @param SemName    Its key.
 * @return Its identifier, or -1.
 */
ZKQ_API int ZKQGeneral_SysConnectSemaphore(int iInitCount, int iMaxCount, int SemName);

/**
 * @brief Takes one unit. A process that ends gives the units back that it has taken.
 *
 * A semaphore without units is looked at once a second; a unit may be taken up to a second after it is free.
 *
 * @param SemID    The semaphore.
 * @param iTimeout Seconds to wait; 0 waits without limit, a negative value not at all.
 * @return TRUE if a unit is taken; the error text after a time-out is that of `ETIME` (62).
 */
ZKQ_API BOOL ZKQGeneral_SysWaitSemaphore(int SemID, int iTimeout);

/**
 * @brief Gives units back.
 * @param SemID  The semaphore.
 * @param iCount How many, -32768 to 32767: `ERANGE` beyond. 0 does nothing; a negative count takes units without waiting, and
 *               fails with `EAGAIN` if there are not so many.
 * @return TRUE on success.
 */
ZKQ_API BOOL ZKQGeneral_SysReleaseSemaphore(int SemID, int iCount);

/**
 * @brief Does nothing: semaphores need no closing.
 * @param SemID Not used.
 * @return TRUE.
 */
ZKQ_API BOOL ZKQGeneral_SysCloseSemaphore(int SemID);

/**
 * @brief Removes a semaphore. Whoever waits for it fails.
 * @param SemID The semaphore.
 * @return TRUE on success.
 */
ZKQ_API BOOL ZKQGeneral_SysKillSemaphore(int SemID);

/**
 * @brief Creates shared memory of zeros. A segment with this key that has at least as many bytes is removed first; those
 *        who have it mapped keep it. A smaller one makes the call fail with `EEXIST`.
 * @param ShmName Its key.
 * @param uSize   Its size in bytes.
 * @return Its identifier, or -1.
 */
ZKQ_API int ZKQGeneral_CreateSharedMemory(int ShmName, unsigned int uSize);

/**
 * @brief Finds shared memory.
 * @param ShmName Its key.
 * @param uSize   Bytes that it has at least.
 * @return Its identifier, or -1.
 */
ZKQ_API int ZKQGeneral_ConnectSharedMemory(int ShmName, unsigned int uSize);

/**
 * @brief Maps shared memory into this process, to be read and written.
 * @param ShMemID The memory.
 * @return Its address, to be given back with ZKQGeneral_UnmapSharedMemory(), or null.
 */
ZKQ_API void* ZKQGeneral_MapSharedMemory(int ShMemID);

/**
 * @brief Takes a mapping away.
 * @param ShMemID  Not used.
 * @param pAddress Where it is mapped.
 * @return TRUE on success.
 */
ZKQ_API BOOL ZKQGeneral_UnmapSharedMemory(int ShMemID, void* pAddress);

/**
 * @brief Does nothing: shared memory needs no closing.
 * @param ShMemID Not used.
 * @return TRUE.
 */
ZKQ_API BOOL ZKQGeneral_CloseSharedMemory(int ShMemID);

/**
 * @brief Removes shared memory; it is gone with its last mapping.
 * @param ShMemID The memory.
 * @return TRUE on success.
 */
ZKQ_API BOOL ZKQGeneral_KillSharedMemory(int ShMemID);

/**
 * @brief Creates a shared block, unlocked. Its creator connects to it as the others do.
 *
 * The key of the lock must be free, while memory under the other key is replaced. What has been created when a later step
 * fails is left in the system: ZKQGeneral_ShbDestroyBlock() removes it.
 *
 * @param SHB The block; receives the identifiers, -1 for what could not be created.
 * @return TRUE on success.
 */
ZKQ_API BOOL ZKQGeneral_ShbCreateBlock(SHAREDBLOCK* SHB);

/**
 * @brief Connects to a shared block.
 * @param SHB The block; receives the identifiers.
 * @return A handle, to be closed with ZKQGeneral_ShbCloseBlock(), or null with the error text set.
 */
ZKQ_API void* ZKQGeneral_ShbConnectBlock(SHAREDBLOCK* SHB);

/**
 * @brief Locks a shared block, as ZKQGeneral_SysWaitSemaphore() takes a unit. The lock of a process that ends is released.
 * @param hBlock  The handle.
 * @param TimeOut Seconds to wait; 0 waits without limit.
 * @return The block's memory, or null with the error text set. Null also, with the lock taken, if the memory could not be
 *         mapped when connecting.
 */
ZKQ_API void* ZKQGeneral_ShbLock(void* hBlock, int TimeOut);

/**
 * @brief Unlocks a shared block.
 * @param hBlock The handle; null is ignored.
 */
ZKQ_API void ZKQGeneral_ShbUnlock(void* hBlock);

/**
 * @brief Closes a handle. The block stays.
 * @param hBlock The handle; null is ignored.
 */
ZKQ_API void ZKQGeneral_ShbCloseBlock(void* hBlock);

/**
 * @brief Removes a shared block from the system and clears the record to zeros.
 * @param SHB The block, whose identifiers count as given: 0 is one, too. Null is ignored.
 */
ZKQ_API void ZKQGeneral_ShbDestroyBlock(SHAREDBLOCK* SHB);

#ifdef __cplusplus
}
#endif

#endif
