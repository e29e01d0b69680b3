// What a record owns after decoding, and giving it back.
#include "internal/x509_message.h"

size_t InlineRoom(const Item* record, size_t size, const Field& field)
{
    size_t end = size;
    const auto stopAt = [&end, begin = size_t{field.Offset}](size_t offset) {
        if (offset > begin)
            end = std::min(end, offset);
    };
    for (int i = 0; i < record->Count; ++i) {
        const Field& other = record->Templates[i];
        stopAt(other.Offset);
        if (IsArrayKind(other.Type))
            stopAt(static_cast<size_t>(std::max(other.ArraySizeOffset, 0)));
    }
    return end - std::min<size_t>(end, field.Offset);
}

namespace {

constexpr int kDeepestRecord = 256; ///< records within records; deeper ones contain themselves

/// Elements of an array on the heap whose members are still to be released, and then the block.
struct OwnedBlock {
    char* block;
    const Field* field;
    int count; ///< of elements that are visited
};

bool IsSimple(const Item* item, int kind)
{
    return item->IsStruct == 0 && item->DataType == kind;
}

/// Finds, one after the other, what a record owns; whatever it has found is no longer the record's.
class Owner {
public:
    explicit Owner(int mode) : mode_(mode) {}

    /// Calls `take` with each block that has members of its own, and releases the others. Stops when that returns false.
    template <class Take>
    bool Visit(char* record, const Item* item, Take take, int depth = 0)
    {
        for (int i = 0; item->IsStruct == 1 && i < item->Count; ++i) {
            const Field& field = item->Templates[i];
            if (!IsPointerKind(field.Type) && field.Type != ZKQ_MSG_KIND_RECORD && field.Type != ZKQ_MSG_KIND_RECORDS)
                continue;
            if (mode_ == ZKQ_MSG_DER && field.Type < ZKQ_MSG_KIND_RECORD) {
                ClearPointer(record + field.Offset); // which was into the input
                continue;
            }
            const Item* const below = ItemOf(field);
            if (below != nullptr && !VisitField(record, field, below, take, depth))
                return false;
        }
        return true;
    }
    /// A simple value that owns what it points to.
    void ReleaseValue(char* slot, const Item* item) const
    {
        if (!OwnsTarget(item))
            return;
        free(LoadPointer(slot));
        ClearPointer(slot);
    }
    bool OwnsTarget(const Item* item) const
    {
        return (mode_ != ZKQ_MSG_DER && IsSimple(item, ZKQ_MSG_KIND_STRINGPTR)) ||
               (mode_ == ZKQ_MSG_JSON && IsSimple(item, ZKQ_MSG_KIND_BYTEARRAYPTR));
    }

private:
    template <class Take>
    bool VisitField(char* record, const Field& field, const Item* item, Take& take, int depth)
    {
        char* const place = record + field.Offset;
        switch (field.Type) {
        case ZKQ_MSG_KIND_STRINGPTR:
        case ZKQ_MSG_KIND_BYTEARRAYPTR:
        case ZKQ_MSG_KIND_INTARRAYPTR:
            ReleaseValue(place, item);
            ClearPointer(place);
            return true;
        case ZKQ_MSG_KIND_RECORDPTR:
            return VisitBlock(place, field, item, 1, take);
        case ZKQ_MSG_KIND_RECORDSPTR: // in mode 0 only the first element has its members released
            return VisitBlock(place, field, item, mode_ == ZKQ_MSG_DER ? 1 : ArrayCount(record, field), take);
        case ZKQ_MSG_KIND_RECORDS:
            return mode_ == ZKQ_MSG_DER || VisitInline(place, field, item, ArrayCount(record, field), take, depth);
        case ZKQ_MSG_KIND_VALUESPTR:
            ReleaseValues(place, field, item, ArrayCount(record, field));
            return true;
        case ZKQ_MSG_KIND_RECORD:
            return VisitInline(place, field, item, 1, take, depth);
        default:
            return true;
        }
    }
    template <class Take>
    bool VisitBlock(char* place, const Field& field, const Item* item, int count, Take& take)
    {
        char* const block = LoadPointer(place);
        if (block == nullptr)
            return true;
        if (item->IsStruct == 1) {
            if (!take(place, OwnedBlock{block, &field, count}))
                return false;
        } else {
            for (int i = 0; i < count; ++i)
                ReleaseValue(block + size_t(i) * static_cast<size_t>(field.SizeofStruct), item);
            free(block);
        }
        ClearPointer(place);
        return true;
    }
    template <class Take>
    bool VisitInline(char* place, const Field& field, const Item* item, int count, Take& take, int depth)
    {
        if (depth == kDeepestRecord)
            return true;
        for (int i = 0; i < count; ++i, place += field.SizeofStruct) {
            ReleaseValue(place, item);
            if (!Visit(place, item, take, depth + 1))
                return false;
        }
        return true;
    }
    /// The values that kind 14 points to are decoded in mode 2 only; in the others the slot itself is the value.
    void ReleaseValues(char* place, const Field& field, const Item* item, int count)
    {
        if (mode_ != ZKQ_MSG_JSON)
            return ReleaseValue(place, item);
        char* const block = LoadPointer(place);
        for (int i = 0; block != nullptr && i < count; ++i)
            ReleaseValue(block + size_t(i) * static_cast<size_t>(field.SizeofStruct), item);
        free(block);
        ClearPointer(place);
    }

    int mode_;
};

/// Releases records with all below them, without needing memory for it when there is none, nor stack.
class Releaser {
public:
    explicit Releaser(int mode) : owner_(mode) {}

    void Record(char* record, const Item* item)
    {
        owner_.Visit(record, item, [this](char* /*place*/, const OwnedBlock& block) {
            Add(block);
            return true;
        });
        while (!blocks_.IsEmpty())
            NextElement();
    }
    const Owner& Owned() const { return owner_; }

private:
    /// Puts a block off, or if there is no memory to remember it, releases it now.
    void Add(const OwnedBlock& block)
    {
        if (!blocks_.Push(block))
            ReleaseFromBelow(block);
    }
    /// Puts off what the next element of the topmost block owns. The block goes with its last element, so that a chain of
    /// records never has more than one of them waiting.
    void NextElement()
    {
        OwnedBlock& top = blocks_.Top();
        if (top.count <= 0) {
            free(top.block);
            blocks_.Pop();
            return;
        }
        const OwnedBlock present = top;
        --top.count;
        char* const element = present.block + static_cast<size_t>(top.count) * SizeOf(present);
        const bool isLast = top.count == 0;
        if (isLast)
            blocks_.Pop();
        owner_.Visit(element, ItemOf(*present.field), [this](char* /*place*/, const OwnedBlock& block) {
            Add(block);
            return true;
        });
        if (isLast)
            free(present.block);
    }
    /// Goes down to a block that owns no other, releases it, and begins anew: slow, but without memory.
    void ReleaseFromBelow(const OwnedBlock& block)
    {
        while (char* const place = DeepestBelow(block)) {
            free(LoadPointer(place));
            ClearPointer(place);
        }
        free(block.block);
    }
    /// The pointer to a block that owns no other, some way below another; null if that one owns none.
    char* DeepestBelow(OwnedBlock block)
    {
        char* found = nullptr;
        while (char* const place = FirstIn(&block))
            found = place;
        return found;
    }
    /// The first pointer to a block in another, which then is that one; null if there is none.
    char* FirstIn(OwnedBlock* block)
    {
        const OwnedBlock present = *block;
        char* found = nullptr;
        const auto take = [&](char* place, const OwnedBlock& below) {
            found = place;
            *block = below;
            return false; // the pointer stays
        };
        for (int i = 0; i < present.count && found == nullptr; ++i)
            owner_.Visit(present.block + static_cast<size_t>(i) * SizeOf(present), ItemOf(*present.field), take);
        return found;
    }
    static size_t SizeOf(const OwnedBlock& block) { return static_cast<size_t>(block.field->SizeofStruct); }

    Owner owner_;
    GrowingStack<OwnedBlock, 64> blocks_;
};

void DetachRecord(char* record, size_t size, const Item* item, int depth);

/// A field that lies in its record: a pointer, or a record, or several of them.
void DetachField(char* record, size_t size, const Item* item, const Field& field, int depth)
{
    char* const place = record + field.Offset;
    const size_t room = size - field.Offset;
    if (IsPointerKind(field.Type)) {
        if (room >= sizeof(void*))
            ClearPointer(place);
        return;
    }
    const Item* const below = ItemOf(field);
    if (below == nullptr || below->IsStruct != 1)
        return;
    const size_t step = field.SizeofStruct > 0 ? static_cast<size_t>(field.SizeofStruct) : room;
    if (field.Type != ZKQ_MSG_KIND_RECORDS)
        return DetachRecord(place, std::min(room, step), below, depth);
    const size_t end = InlineRoom(item, size, field);
    for (size_t at = 0; at + step <= end; at += step) // what was not decoded is zeros
        DetachRecord(place + at, step, below, depth);
}

void DetachRecord(char* record, size_t size, const Item* item, int depth)
{
    if (depth == kDeepestRecord)
        return;
    for (int i = 0; i < item->Count; ++i)
        if (item->Templates[i].Offset < size)
            DetachField(record, size, item, item->Templates[i], depth + 1);
}

} // namespace

void Detach(char* record, size_t size, const Item* item)
{
    DetachRecord(record, size, item, 0);
}

void Release(char* val, const Item* it, bool ownsRecord, int mode)
{
    Releaser releaser(mode);
    if (it->IsStruct == 1)
        releaser.Record(val, it);
    else if (mode == ZKQ_MSG_DER)
        return; // simple values own nothing
    if (ownsRecord || releaser.Owned().OwnsTarget(it))
        free(val);
}
