#include "node_pool.h"

#include <atomic>

namespace {

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZKQ_SEES_EACH_FREE
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(ZKQ_SEES_EACH_FREE)
constexpr size_t kKept = 0; // the sanitizer is to see each block given back
#else
constexpr size_t kKept = 16;
#endif

/// Blocks between their uses. Of documents that come one after another, the system need not clear pages for each.
constinit std::atomic<PoolBlock*> g_kept[kKept + 1] = {};

} // namespace

PoolBlock* TakePoolBlock()
{
    for (size_t i = 0; i < kKept; ++i)
        if (g_kept[i].load(std::memory_order_relaxed) != nullptr)
            if (PoolBlock* const block = g_kept[i].exchange(nullptr, std::memory_order_acquire))
                return block;
    return static_cast<PoolBlock*>(malloc(kPoolBlockSize));
}

void GivePoolBlock(PoolBlock* block)
{
    for (size_t i = 0; i < kKept; ++i) {
        PoolBlock* empty = nullptr;
        if (g_kept[i].load(std::memory_order_relaxed) == nullptr &&
            g_kept[i].compare_exchange_strong(empty, block, std::memory_order_release, std::memory_order_relaxed))
            return;
    }
    free(block);
}
