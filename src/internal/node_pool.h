// Memory of the nodes that a parser makes: cut from blocks, so that making one costs a few instructions and releasing a
// whole document hardly more than a few calls. Each block counts its live objects and is given back with the last one;
// objects may be released one by one, in any order, by any thread that has the document.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <functional>
#include <new>
#include <utility>

struct NodePool;

struct PoolBlock {
    NodePool* pool;
    PoolBlock* next;
    PoolBlock* previous;
    size_t live; ///< objects that have not been released
    const char* end;
};

/// All blocks of one document.
struct NodePool {
    PoolBlock* blocks = nullptr;
    const void* root = nullptr; ///< what the parser handed out: from here every live object is reached
    bool isPure = true;         ///< nothing that these objects own lies outside the blocks
};

/// Where an object lies: 0 for one of its own from the C heap, else its distance from its block in 8 bytes.
using PoolPlace = uint32_t;

inline PoolBlock* BlockOf(const void* object, PoolPlace place)
{
    return reinterpret_cast<PoolBlock*>(reinterpret_cast<uintptr_t>(object) - uintptr_t{place} * 8);
}

/// Releases every block of a document, whatever still lives in them.
inline void DestroyPool(NodePool* pool)
{
    while (pool->blocks != nullptr)
        free(std::exchange(pool->blocks, pool->blocks->next));
    free(pool);
}

inline void DestroyBlock(PoolBlock* block)
{
    NodePool* const pool = block->pool;
    (block->previous != nullptr ? block->previous->next : pool->blocks) = block->next;
    if (block->next != nullptr)
        block->next->previous = block->previous;
    free(block);
    if (pool->blocks == nullptr)
        free(pool);
}

/// Releases an object. Its texts in the same block go with it.
inline void ReleasePoolObject(void* object, PoolPlace place)
{
    if (place == 0)
        return free(object);
    PoolBlock* const block = BlockOf(object, place);
    if (--block->live == 0)
        DestroyBlock(block);
}

/// A text belongs to the block of its owner; otherwise it is one of the C heap.
inline bool IsTextInBlock(const void* owner, PoolPlace place, const char* text)
{
    if (place == 0)
        return false;
    const PoolBlock* const block = BlockOf(owner, place);
    return std::less<>()(reinterpret_cast<const char*>(block), text) && std::less<>()(text, block->end);
}

inline void ReleaseText(const void* owner, PoolPlace place, char* text)
{
    if (!IsTextInBlock(owner, place, text))
        free(text);
}

/// To be called when something outside the blocks is about to belong to an object.
inline void NoteForeign(const void* object, PoolPlace place)
{
    if (place != 0)
        BlockOf(object, place)->pool->isPure = false;
}

/// Cuts the objects of one document from blocks.
class PoolBuilder {
public:
    PoolBuilder() = default;
    PoolBuilder(const PoolBuilder&) = delete;
    PoolBuilder& operator=(const PoolBuilder&) = delete;
    ~PoolBuilder()
    {
        if (pool_ != nullptr)
            DestroyPool(pool_);
    }

    /// Room for an object with its texts behind it, aligned for pointers; null if there is no memory.
    char* Allocate(size_t size, PoolPlace* place)
    {
        size = (size + 7) & ~size_t{7};
        if (static_cast<size_t>(end_ - next_) < size && !AddBlock(size))
            return nullptr;
        char* const object = next_;
        next_ += size;
        ++block_->live;
        *place = static_cast<PoolPlace>((object - reinterpret_cast<char*>(block_)) / 8);
        return object;
    }

    /// Hands the objects over; releasing `root` releases all that is left of them.
    void Finish(const void* root)
    {
        if (root == nullptr || pool_ == nullptr)
            return;
        pool_->root = root;
        pool_ = nullptr;
    }

private:
    static constexpr size_t kFirstBlock = 4 * 1024;
    static constexpr size_t kLargestBlock = 64 * 1024;

    /// Begins a block that has room for an object of `size` bytes.
    bool AddBlock(size_t size)
    {
        if (pool_ == nullptr) {
            void* const room = malloc(sizeof(NodePool));
            if (room == nullptr)
                return false;
            pool_ = new (room) NodePool;
        }
        const size_t capacity = sizeof(PoolBlock) + std::max(size, blockSize_);
        auto* const block = static_cast<PoolBlock*>(malloc(capacity));
        if (block == nullptr)
            return false;
        blockSize_ = std::min(2 * blockSize_, kLargestBlock);
        *block = {pool_, pool_->blocks, nullptr, 0, reinterpret_cast<char*>(block) + capacity};
        if (pool_->blocks != nullptr)
            pool_->blocks->previous = block;
        pool_->blocks = block;
        block_ = block;
        next_ = reinterpret_cast<char*>(block + 1);
        end_ = reinterpret_cast<char*>(block) + capacity;
        return true;
    }

    NodePool* pool_ = nullptr;
    PoolBlock* block_ = nullptr;
    char* next_ = nullptr;
    char* end_ = nullptr;
    size_t blockSize_ = kFirstBlock;
};
