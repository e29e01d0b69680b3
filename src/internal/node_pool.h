// Memory of the nodes that a parser makes: cut from blocks, so that making one costs a few instructions and releasing a
// whole document hardly more than a few calls. Each block counts its live objects and is given back with the last one;
// objects may be released one by one, in any order, by any thread that has the document. Texts lie in one copy of the
// source, where the parser ends and decodes them; it is given back with the last block.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <new>
#include <utility>

/// Bytes behind the NUL of a source that may be read, so that sixteen can be looked at a time.
inline constexpr size_t kPoolSourcePadding = 16;

struct NodePool;

struct PoolBlock {
    NodePool* pool;
    PoolBlock* next;
    PoolBlock* previous;
    size_t live; ///< objects that have not been released
    size_t size;
};

/// All blocks of one document.
struct NodePool {
    PoolBlock* blocks = nullptr;
    const void* root = nullptr; ///< what the parser handed out: from here every live object is reached
    bool isPure = true;         ///< nothing that these objects own lies outside the blocks and the source
    char* source = nullptr;
    char* sourceEnd = nullptr; ///< its NUL
};

/// The size of most blocks.
inline constexpr size_t kPoolBlockSize = 64 * 1024;
/// A block of that size; null if there is no memory.
PoolBlock* TakePoolBlock();
/// Gives such a block back.
void GivePoolBlock(PoolBlock* block);

/// Where an object lies: 0 for one of its own from the C heap, else its distance from its block in 8 bytes.
using PoolPlace = uint32_t;

inline PoolBlock* BlockOf(const void* object, PoolPlace place)
{
    return reinterpret_cast<PoolBlock*>(reinterpret_cast<uintptr_t>(object) - uintptr_t{place} * 8);
}

inline void FreePoolBlock(PoolBlock* block)
{
    if (block->size == kPoolBlockSize)
        GivePoolBlock(block);
    else
        free(block);
}

/// Releases every block of a document, whatever still lives in them.
inline void DestroyPool(NodePool* pool)
{
    while (pool->blocks != nullptr)
        FreePoolBlock(std::exchange(pool->blocks, pool->blocks->next));
    free(pool->source);
    free(pool);
}

inline void DestroyBlock(PoolBlock* block)
{
    NodePool* const pool = block->pool;
    (block->previous != nullptr ? block->previous->next : pool->blocks) = block->next;
    if (block->next != nullptr)
        block->next->previous = block->previous;
    FreePoolBlock(block);
    if (pool->blocks == nullptr)
        DestroyPool(pool);
}

/// Releases an object.
inline void ReleasePoolObject(void* object, PoolPlace place)
{
    if (place == 0)
        return free(object);
    PoolBlock* const block = BlockOf(object, place);
    if (--block->live == 0)
        DestroyBlock(block);
}

/// Releases a text of an object, unless it lies in the source.
inline void ReleaseText(const void* owner, PoolPlace place, char* text)
{
    if (place != 0) {
        const NodePool* const pool = BlockOf(owner, place)->pool;
        if (!std::less<>()(text, pool->source) && !std::less<>()(pool->sourceEnd, text))
            return;
    }
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

    /// Copies the source, once, before anything else; null if there is no memory.
    char* CopySource(const char* text, size_t length)
    {
        void* const room = malloc(sizeof(NodePool));
        if (room == nullptr)
            return nullptr;
        pool_ = new (room) NodePool;
        pool_->source = static_cast<char*>(malloc(length + 1 + kPoolSourcePadding));
        if (pool_->source == nullptr)
            return nullptr;
        pool_->sourceEnd = pool_->source + length;
        memset(pool_->sourceEnd, 0, 1 + kPoolSourcePadding);
        return static_cast<char*>(memcpy(pool_->source, text, length));
    }

    /// Room for an object; null if there is no memory.
    template <class T>
    void* Allocate(PoolPlace* place)
    {
        static_assert(sizeof(T) % 8 == 0 && alignof(T) <= 8);
        if (static_cast<size_t>(end_ - next_) < sizeof(T) && !AddBlock())
            return nullptr;
        char* const object = next_;
        next_ += sizeof(T);
        ++block_->live;
        *place = static_cast<PoolPlace>((object - reinterpret_cast<char*>(block_)) / 8);
        return object;
    }

    /// Hands the objects over; releasing `root` releases all that is left of them.
    void Finish(const void* root)
    {
        if (root == nullptr)
            return;
        pool_->root = root;
        pool_ = nullptr; // each of its blocks leads to it
    }                    // NOLINT(clang-analyzer-unix.Malloc)

private:
    static constexpr size_t kFirstBlock = 1024;

    bool AddBlock()
    {
        PoolBlock* const block =
            blockSize_ == kPoolBlockSize ? TakePoolBlock() : static_cast<PoolBlock*>(malloc(blockSize_));
        if (block == nullptr)
            return false;
        *block = {pool_, pool_->blocks, nullptr, 0, blockSize_};
        if (pool_->blocks != nullptr)
            pool_->blocks->previous = block;
        pool_->blocks = block;
        block_ = block;
        next_ = reinterpret_cast<char*>(block + 1);
        end_ = reinterpret_cast<char*>(block) + blockSize_;
        blockSize_ = std::min(4 * blockSize_, kPoolBlockSize);
        return true;
    }

    NodePool* pool_ = nullptr;
    PoolBlock* block_ = nullptr;
    char* next_ = nullptr;
    char* end_ = nullptr;
    size_t blockSize_ = kFirstBlock;
};
