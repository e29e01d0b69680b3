/* A semaphore and a shared block. Programs that share them agree on the keys; these are new with each run. */
#include <ZKQ_general.h>
#include <stdio.h>
#include <unistd.h>

struct state {
    int count;
};

static int UseSemaphore(int key)
{
    /* [semaphore] */
    int semaphore = ZKQGeneral_SysCreateSemaphore(1, 1, key);
    if (semaphore < 0)
        semaphore = ZKQGeneral_SysConnectSemaphore(1, 1, key);
    if (!ZKQGeneral_SysWaitSemaphore(semaphore, 10))
        return 1;
    puts("this is done by one at a time");
    ZKQGeneral_SysReleaseSemaphore(semaphore, 1);
    /* [semaphore end] */
    printf("%s\n", ZKQGeneral_SysKillSemaphore(semaphore) ? "removed" : ZKQGeneral_GetGeneralErrorInfo());
    return 0;
}

static int UseBlock(unsigned long key)
{
    /* [block] */
    SHAREDBLOCK block = {sizeof(struct state), key + 1, key + 2, -1, -1}; /* size, key of the lock, key of the memory */
    if (!ZKQGeneral_ShbCreateBlock(&block)) {                             /* one process, once */
        puts(ZKQGeneral_GetGeneralErrorInfo());
        return 1;
    }
    void* handle = ZKQGeneral_ShbConnectBlock(&block); /* everyone, the creator too */
    for (int i = 0; i < 3; ++i) {
        struct state* state = ZKQGeneral_ShbLock(handle, 10);
        if (state == NULL)
            break;
        printf("count is %d\n", ++state->count);
        ZKQGeneral_ShbUnlock(handle);
    }
    ZKQGeneral_ShbCloseBlock(handle);
    ZKQGeneral_ShbDestroyBlock(&block); /* the owner, in the end */
    /* [block end] */
    return 0;
}

int main(void)
{
    const int key = (int)((unsigned)getpid() << 8 | 0x5a000000u);
    return UseSemaphore(key) || UseBlock((unsigned long)key);
}
