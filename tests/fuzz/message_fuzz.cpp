// Decodes the input as a message: its first byte says in which mode. What has been decoded points nowhere but into the
// input and its own blocks; encoded and decoded again it is the same; a failure leaves no pointer.
#include <ZKQ_general/error.h>
#include <ZKQ_general/x509.h>
#include <string.h>

#include "fuzz.h"

namespace {

struct Leaf {
    int value;
    char* note;
};
/// A field of every kind but 14, with records that hold records of their own kind.
struct Node {
    int i32;
    int64_t i64;
    void* ptr;
    char text[12];
    char* textPtr;
    unsigned char bytes[8];
    int byteCount;
    unsigned char* bytePtr;
    int bytePtrCount;
    int ints[4];
    int intCount;
    int* intPtr;
    int intPtrCount;
    Leaf inside;
    Leaf* leaf;
    Leaf leaves[3];
    int leafCount;
    Node* next;
    Node* below;
    int belowCount;
};
/// What XML and JSON carry of it, and JSON's arrays of values.
struct Page {
    int i32;
    int flag;
    char text[12];
    char* textPtr;
    unsigned char bytes[8];
    int byteCount;
    unsigned char* bytePtr;
    int bytePtrCount;
    Leaf inside;
    Leaf* leaf;
    Leaf leaves[3];
    int leafCount;
    Page* next;
    Page* below;
    int belowCount;
    int* numbers;
    int numberCount;
    char** texts;
    int textCount;
    unsigned char (*hashes)[4];
    int hashCount;
};

ZKQ_MSG_DECLARE_ITEM(Node_it)
ZKQ_MSG_DECLARE_ITEM(JsonPage_it)
ZKQ_MSG_DECLARE_ITEM(XmlPage_it)

const GENERAL_MSG_TEMPLATE kLeaf[] = {ZKQ_MSG_INT32(Leaf, value, "value", ""),
                                      ZKQ_MSG_STRINGPTR(Leaf, note, "note", "@")};
ZKQ_MSG_RECORD_ITEM(Leaf_it, kLeaf)

const GENERAL_MSG_TEMPLATE kNode[] = {ZKQ_MSG_INT32(Node, i32, "", ""),
                                      ZKQ_MSG_INT64(Node, i64, "", ""),
                                      ZKQ_MSG_PTR(Node, ptr, "", ""),
                                      ZKQ_MSG_STRING(Node, text, "", ""),
                                      ZKQ_MSG_STRINGPTR(Node, textPtr, "", ""),
                                      ZKQ_MSG_BYTEARRAY(Node, bytes, byteCount, "", ""),
                                      ZKQ_MSG_BYTEARRAYPTR(Node, bytePtr, bytePtrCount, "", ""),
                                      ZKQ_MSG_INTARRAY(Node, ints, intCount, "", ""),
                                      ZKQ_MSG_INTARRAYPTR(Node, intPtr, intPtrCount, "", ""),
                                      ZKQ_MSG_RECORD(Node, inside, Leaf_it, "", ""),
                                      ZKQ_MSG_RECORDPTR(Node, leaf, Leaf_it, "", ""),
                                      ZKQ_MSG_RECORDS(Node, leaves, leafCount, Leaf_it, "", ""),
                                      ZKQ_MSG_RECORDPTR(Node, next, Node_it, "", ""),
                                      ZKQ_MSG_RECORDSPTR(Node, below, belowCount, Node_it, "", "")};
ZKQ_MSG_RECORD_ITEM(Node_it, kNode)

const GENERAL_MSG_TEMPLATE kJsonPage[] = {
    ZKQ_MSG_INT32(Page, i32, "i32", ""),
    ZKQ_MSG_INT32(Page, flag, "flag", "a/b"),
    ZKQ_MSG_STRING(Page, text, "text", "a/"),
    ZKQ_MSG_STRINGPTR(Page, textPtr, "textPtr", "a"),
    ZKQ_MSG_BYTEARRAY(Page, bytes, byteCount, "hex", "a"),
    ZKQ_MSG_BYTEARRAYPTR(Page, bytePtr, bytePtrCount, "b64", "a@"),
    ZKQ_MSG_RECORD(Page, inside, Leaf_it, "", "in"),
    ZKQ_MSG_RECORDPTR(Page, leaf, Leaf_it, "", "leaf"),
    ZKQ_MSG_RECORDS(Page, leaves, leafCount, Leaf_it, "", "leaves"),
    ZKQ_MSG_RECORDPTR(Page, next, JsonPage_it, "", "next"),
    ZKQ_MSG_RECORDSPTR(Page, below, belowCount, JsonPage_it, "", "below"),
    ZKQ_MSG_VALUESPTR(Page, numbers, numberCount, ZKQGeneral_INT32_it, "", "numbers"),
    ZKQ_MSG_VALUESPTR(Page, texts, textCount, ZKQGeneral_STRINGPTR_it, "", "texts"),
    ZKQ_MSG_VALUESPTR(Page, hashes, hashCount, ZKQGeneral_BYTEARRAY_it, "", "hashes@")};
ZKQ_MSG_RECORD_ITEM(JsonPage_it, kJsonPage)

const GENERAL_MSG_TEMPLATE kXmlPage[] = {ZKQ_MSG_INT32(Page, i32, "i32", "/p"),
                                         ZKQ_MSG_INT32(Page, flag, "flag", "/p@"),
                                         ZKQ_MSG_STRING(Page, text, "text", "/p"),
                                         ZKQ_MSG_STRINGPTR(Page, textPtr, "textPtr", "/p/@"),
                                         ZKQ_MSG_RECORD(Page, inside, Leaf_it, "", ""),
                                         ZKQ_MSG_RECORDS(Page, leaves, leafCount, Leaf_it, "", "/p/l/i/n"),
                                         ZKQ_MSG_RECORDSPTR(Page, below, belowCount, XmlPage_it, "", "/p/p/n@"),
                                         ZKQ_MSG_RECORDPTR(Page, next, XmlPage_it, "", "@")};
ZKQ_MSG_RECORD_ITEM(XmlPage_it, kXmlPage)

std::string Encoded(const void* record, const GENERAL_MSG_ITEM* it, int mode)
{
    unsigned char* out = nullptr;
    const int result = ZKQGeneral_MSG_i2d(record, &out, 0, it, mode);
    REQUIRE(mode == ZKQ_MSG_DER ? result >= 0 : result == 0);
    REQUIRE(out != nullptr);
    std::string bytes = mode == ZKQ_MSG_DER ? std::string(reinterpret_cast<char*>(out), static_cast<size_t>(result))
                                            : std::string(reinterpret_cast<char*>(out));
    ZKQGeneral_FreeMallocBuffer(out);
    return bytes;
}

bool IsNull(const Node& node)
{
    return node.textPtr == nullptr && node.bytePtr == nullptr && node.intPtr == nullptr && node.leaf == nullptr &&
           node.next == nullptr && node.below == nullptr && node.inside.note == nullptr &&
           node.leaves[0].note == nullptr && node.leaves[2].note == nullptr;
}

bool IsNull(const Page& page)
{
    return page.textPtr == nullptr && page.bytePtr == nullptr && page.leaf == nullptr && page.next == nullptr &&
           page.below == nullptr && page.numbers == nullptr && page.texts == nullptr && page.hashes == nullptr &&
           page.inside.note == nullptr && page.leaves[0].note == nullptr && page.leaves[2].note == nullptr;
}

/// A record decoded from bytes, and all that must hold for it.
class DerMessage {
public:
    DerMessage(const uint8_t* data, size_t size) : input_(size), size_(size), node_(sizeof(Node))
    {
        if (size > 0)
            memcpy(input_.Get(), data, size);
        memset(node_.Get(), 0x5A, sizeof(Node));
        result_ = ZKQGeneral_MSG_d2i(node_.Get(), sizeof(Node), input_.Get(), static_cast<int>(size), Node_it(), 0);
        if (result_ == 0)
            CheckPointers(*node_.Get());
        else
            REQUIRE(result_ < 0 && result_ >= -9 && IsNull(*node_.Get()));
    }
    DerMessage(const DerMessage&) = delete;
    DerMessage& operator=(const DerMessage&) = delete;
    ~DerMessage()
    {
        if (result_ == 0)
            ReleaseLaterElements(node_.Get());
        ZKQGeneral_MSG_free(node_.Get(), Node_it(), 0, ZKQ_MSG_DER);
        REQUIRE(result_ != 0 || node_.Get()->below == nullptr);
    }

    bool IsGood() const { return result_ == 0; }
    std::string Again() const { return Encoded(node_.Get(), Node_it(), ZKQ_MSG_DER); }

private:
    bool Has(const void* begin, size_t size) const
    {
        const auto* const at = static_cast<const uint8_t*>(begin);
        return at == nullptr
                   ? size == 0
                   : at >= input_.Get() && size <= size_ && static_cast<size_t>(at - input_.Get()) <= size_ - size;
    }
    bool HasText(const char* text) const { return text == nullptr || Has(text, strlen(text) + 1); }
    void CheckPointers(const Node& node) const
    {
        REQUIRE(HasText(node.textPtr) && HasText(node.inside.note));
        REQUIRE(Has(node.bytePtr, static_cast<size_t>(node.bytePtrCount)));
        REQUIRE(Has(node.intPtr, 4 * static_cast<size_t>(node.intPtrCount)));
        REQUIRE(node.byteCount >= 0 && node.byteCount <= 8 && node.intCount >= 0 && node.intCount <= 4);
        REQUIRE(node.leafCount >= 0 && node.leafCount <= 3);
        REQUIRE(memchr(node.text, '\0', sizeof node.text) != nullptr);
        if (node.leaf != nullptr)
            REQUIRE(HasText(node.leaf->note));
        for (int i = 0; i < node.leafCount; ++i)
            REQUIRE(HasText(node.leaves[i].note));
        for (int i = 0; i < node.belowCount && node.below != nullptr; ++i)
            CheckPointers(node.below[i]);
        if (node.next != nullptr)
            CheckPointers(*node.next);
    }
    /// In mode 0 the members of all elements but the first are the caller's.
    static void ReleaseLaterElements(Node* node)
    {
        for (int i = 0; i < node->belowCount && node->below != nullptr; ++i) {
            ReleaseLaterElements(&node->below[i]);
            if (i > 0)
                ZKQGeneral_MSG_free(&node->below[i], Node_it(), 0, ZKQ_MSG_DER);
        }
        if (node->next != nullptr)
            ReleaseLaterElements(node->next);
    }

    Exact<unsigned char> input_;
    size_t size_;
    Exact<Node> node_;
    int result_ = 0;
};

void CheckDer(const uint8_t* data, size_t size)
{
    const DerMessage first(data, size);
    if (!first.IsGood())
        return;
    const std::string encoded = first.Again();
    const DerMessage second(reinterpret_cast<const uint8_t*>(encoded.data()), encoded.size());
    REQUIRE(second.IsGood());
    REQUIRE(second.Again() == encoded);
}

void CheckTree(const uint8_t* data, size_t size, int mode)
{
    const GENERAL_MSG_ITEM* const it = mode == ZKQ_MSG_XML ? XmlPage_it() : JsonPage_it();
    const Exact<Page> page(sizeof(Page));
    const auto decode = [&](const void* text, size_t length) {
        const Exact<unsigned char> input(length + 1);
        if (length > 0)
            memcpy(input.Get(), text, length);
        input.Get()[length] = '\0';
        memset(page.Get(), 0x5A, sizeof(Page));
        return ZKQGeneral_MSG_d2i(page.Get(), sizeof(Page), input.Get(), 0, it, mode);
    };
    const int result = decode(data, size);
    if (result != 0) {
        REQUIRE(IsNull(*page.Get()));
        ZKQGeneral_MSG_free(page.Get(), it, 0, mode);
        return;
    }
    const std::string encoded = Encoded(page.Get(), it, mode);
    ZKQGeneral_MSG_free(page.Get(), it, 0, mode);
    REQUIRE(IsNull(*page.Get()));
    const int again = decode(encoded.data(), encoded.size());
    if (mode == ZKQ_MSG_JSON) { // XML texts are written as they are, and read as what they then mean
        REQUIRE(again == 0);
        REQUIRE(Encoded(page.Get(), it, mode) == encoded);
    }
    ZKQGeneral_MSG_free(page.Get(), it, 0, mode);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const int mode = data[0] % 3;
    if (mode == ZKQ_MSG_DER)
        CheckDer(data + 1, size - 1);
    else
        CheckTree(data + 1, size - 1, mode);
    return 0;
}
