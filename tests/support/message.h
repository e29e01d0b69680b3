// Records with fields of every kind, their templates, and what tests do with encodings.
#pragma once

#include <ZKQ_general/error.h>
#include <ZKQ_general/x509.h>
#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace support {

struct Leaf {
    int value;
};
struct Named {
    char name[8];
    char* note;
};
struct Chain {
    int value;
    Chain* next;
};
struct Tree {
    int value;
    int count;
    Tree* below;
};
/// A field of every kind.
struct All {
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
    Named inside;
    Named* record;
    Leaf records[3];
    int recordCount;
    Named* recordPtr;
    int recordPtrCount;
};

inline const GENERAL_MSG_TEMPLATE kLeaf[] = {ZKQ_MSG_INT32(Leaf, value, "value", "")};
ZKQ_MSG_RECORD_ITEM(Leaf_it, kLeaf)

inline const GENERAL_MSG_TEMPLATE kNamed[] = {ZKQ_MSG_STRING(Named, name, "name", ""),
                                              ZKQ_MSG_STRINGPTR(Named, note, "note", "@")};
ZKQ_MSG_RECORD_ITEM(Named_it, kNamed)

ZKQ_MSG_DECLARE_ITEM(Chain_it)
inline const GENERAL_MSG_TEMPLATE kChain[] = {ZKQ_MSG_INT32(Chain, value, "value", ""),
                                              ZKQ_MSG_RECORDPTR(Chain, next, Chain_it, "next", "next")};
ZKQ_MSG_RECORD_ITEM(Chain_it, kChain)

ZKQ_MSG_DECLARE_ITEM(Tree_it)
inline const GENERAL_MSG_TEMPLATE kTree[] = {ZKQ_MSG_INT32(Tree, value, "value", ""),
                                             ZKQ_MSG_RECORDSPTR(Tree, below, count, Tree_it, "below", "below")};
ZKQ_MSG_RECORD_ITEM(Tree_it, kTree)

inline const GENERAL_MSG_TEMPLATE kAll[] = {
    ZKQ_MSG_INT32(All, i32, "i32", "/all"),
    ZKQ_MSG_INT64(All, i64, "i64", "/all"),
    ZKQ_MSG_PTR(All, ptr, "ptr", "/all"),
    ZKQ_MSG_STRING(All, text, "text", "/all"),
    ZKQ_MSG_STRINGPTR(All, textPtr, "textPtr", "/all/@"),
    ZKQ_MSG_BYTEARRAY(All, bytes, byteCount, "bytes", "/all"),
    ZKQ_MSG_BYTEARRAYPTR(All, bytePtr, bytePtrCount, "bytePtr", "/all/@"),
    ZKQ_MSG_INTARRAY(All, ints, intCount, "ints", "/all"),
    ZKQ_MSG_INTARRAYPTR(All, intPtr, intPtrCount, "intPtr", "/all"),
    ZKQ_MSG_RECORD(All, inside, Named_it, "inside", "/all/inside"),
    ZKQ_MSG_RECORDPTR(All, record, Named_it, "record", "/all/record"),
    ZKQ_MSG_RECORDS(All, records, recordCount, Leaf_it, "records", "/all/list/leaf/count@"),
    ZKQ_MSG_RECORDSPTR(All, recordPtr, recordPtrCount, Named_it, "recordPtr", "/all/more/item/number"),
};
ZKQ_MSG_RECORD_ITEM(All_it, kAll)

/// A record of one field, with what it points to in exact blocks of the heap, so that one byte too many is seen.
template <class T>
class Zeroed {
public:
    Zeroed() : block_(calloc(1, sizeof(T)), free) {}
    T* Get() const { return static_cast<T*>(block_.get()); }
    T* operator->() const { return Get(); }

private:
    std::unique_ptr<void, void (*)(void*)> block_;
};

/// Bytes in a block of exactly their size, which may be written.
class ExactBytes {
public:
    explicit ExactBytes(const std::string& bytes) : size_(bytes.size()), block_(new unsigned char[bytes.size()])
    {
        if (size_ > 0)
            memcpy(block_.get(), bytes.data(), size_);
    }
    unsigned char* Data() const { return block_.get(); }
    int Size() const { return static_cast<int>(size_); }
    const unsigned char* End() const { return block_.get() + size_; }

private:
    size_t size_;
    std::unique_ptr<unsigned char[]> block_;
};

/// Bytes from pairs of hexadecimal digits; blanks are passed over.
inline std::string FromHex(const std::string& text)
{
    std::string bytes;
    std::string digits;
    for (const char c : text)
        if (c != ' ' && (digits += c).size() == 2) {
            bytes += static_cast<char>(std::stoi(digits, nullptr, 16));
            digits.clear();
        }
    return bytes;
}
inline std::string ToHex(const std::string& bytes)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes)
        text.append(text.empty() ? "" : " ")
            .append(1, kDigits[static_cast<unsigned char>(c) >> 4])
            .append(1, kDigits[static_cast<unsigned char>(c) & 15]);
    return text;
}

/// Tag and length, then the content.
inline std::string Tlv(int tag, const std::string& content)
{
    std::string bytes(1, static_cast<char>(tag));
    std::string length;
    for (size_t rest = content.size(); rest > 0; rest >>= 8)
        length.insert(length.begin(), static_cast<char>(rest & 0xFF));
    if (content.size() >= 128)
        bytes += static_cast<char>(0x80 | length.size());
    else if (content.empty())
        length.assign(1, '\0');
    return bytes.append(length).append(content);
}
inline std::string BigEndian32(unsigned value)
{
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}
inline std::string ArrayHeader(unsigned count)
{
    return std::string("\x40\x04").append(BigEndian32(count));
}

/// The encoding of a record, or the code in parentheses.
inline std::string Encoded(const void* record, const GENERAL_MSG_ITEM* it, int mode = ZKQ_MSG_DER)
{
    unsigned char* out = nullptr;
    const int result = ZKQGeneral_MSG_i2d(record, &out, 0, it, mode);
    std::string bytes = "(" + std::to_string(result) + ")";
    if (mode == ZKQ_MSG_DER ? result >= 0 : result == 0)
        bytes = mode == ZKQ_MSG_DER ? std::string(reinterpret_cast<char*>(out), static_cast<size_t>(result))
                                    : std::string(reinterpret_cast<char*>(out));
    else
        EXPECT_EQ(out, nullptr);
    ZKQGeneral_FreeMallocBuffer(out);
    return bytes;
}
inline std::string EncodedHex(const void* record, const GENERAL_MSG_ITEM* it)
{
    return ToHex(Encoded(record, it));
}

/// Decodes from a text of exactly its size.
template <class T>
int DecodeText(T* record, const std::string& text, const GENERAL_MSG_ITEM* it, int mode)
{
    const std::unique_ptr<unsigned char[]> copy(new unsigned char[text.size() + 1]);
    memcpy(copy.get(), text.c_str(), text.size() + 1);
    return ZKQGeneral_MSG_d2i(record, sizeof(T), copy.get(), -7, it, mode);
}

template <class T>
bool IsZero(const T& record)
{
    const std::vector<char> zeros(sizeof(T));
    return memcmp(&record, zeros.data(), sizeof(T)) == 0;
}

/// A decoding of hexadecimal bytes, and what comes of it.
template <class T>
struct Row {
    const char* bytes;
    int result;
    std::function<bool(const T&)> holds;
};

template <class T>
void CheckDecodings(const GENERAL_MSG_ITEM* it, const std::vector<Row<T>>& rows,
                    const std::function<std::string(const std::string&)>& enclose)
{
    for (const Row<T>& row : rows) {
        const ExactBytes input(enclose(FromHex(row.bytes)));
        const Zeroed<T> record;
        EXPECT_EQ(ZKQGeneral_MSG_d2i(record.Get(), sizeof(T), input.Data(), input.Size(), it, 0), row.result)
            << row.bytes;
        if (row.holds) {
            EXPECT_TRUE(row.holds(*record.Get())) << row.bytes;
        }
        ZKQGeneral_MSG_free(record.Get(), it, 0, 0);
    }
}
/// Each row is a whole record.
template <class T>
void CheckRecords(const GENERAL_MSG_ITEM* it, const std::vector<Row<T>>& rows)
{
    CheckDecodings<T>(it, rows, [](const std::string& bytes) { return bytes; });
}
/// Each row is what stands in a record.
template <class T>
void CheckFields(const GENERAL_MSG_ITEM* it, const std::vector<Row<T>>& rows)
{
    CheckDecodings<T>(it, rows, [](const std::string& bytes) { return Tlv(0x30, bytes); });
}

} // namespace support
