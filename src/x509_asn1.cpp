#include <errno.h>
#include <limits.h>
#include <stdint.h>

#include <charconv>
#include <iterator>

#include "internal/asn1.h"
#include "messages_gbk.h"

namespace {

constexpr unsigned kClassShift = 6;
constexpr unsigned kConstructed = 0x20;
constexpr unsigned kTagMask = 0x1F; ///< all bits set: the number follows
constexpr unsigned kMore = 0x80;    ///< of a tag, an arc or a length
constexpr unsigned kBitsOfSeven = 7;
constexpr size_t kMostLengthBytes = 4;
constexpr unsigned kMostUnusedBits = 7;
constexpr unsigned kArcsOfFirst = 40;
constexpr unsigned kFirstOfThirdArc = 80;

bool BeginsWithEndMarker(Bytes bytes)
{
    return bytes.size() >= 2 && bytes[0] == 0 && bytes[1] == 0;
}

} // namespace

bool Asn1Reader::IsNext(int tag, int tagClass) const
{
    return !left_.empty() &&
           (left_[0] & ~kConstructed) == (static_cast<unsigned>(tagClass) << kClassShift | static_cast<unsigned>(tag));
}

/// Reads what precedes the length.
int Asn1Reader::Tag(Asn1Object* object)
{
    const unsigned first = left_[0];
    left_ = left_.subspan(1);
    object->tagClass = static_cast<int>(first >> kClassShift);
    object->isConstructed = (first & kConstructed) != 0;
    object->tag = static_cast<int>(first & kTagMask);
    if (object->tag != kTagMask)
        return 0;
    unsigned number = 0;
    for (unsigned byte = kMore; (byte & kMore) != 0; left_ = left_.subspan(1)) {
        if (left_.empty())
            return FailX509(EINVAL, Message::Asn1NoTag);
        if (number > INT_MAX >> kBitsOfSeven)
            return FailX509(EINVAL, Message::Asn1TagTooLarge);
        byte = left_[0];
        number = number << kBitsOfSeven | (byte & ~kMore);
    }
    object->tag = static_cast<int>(number);
    return 0;
}

int Asn1Reader::Length(bool* isIndefinite, size_t* length)
{
    if (left_.empty())
        return FailX509(EINVAL, Message::Asn1NoLength);
    const unsigned first = left_[0];
    left_ = left_.subspan(1);
    *isIndefinite = first == kMore;
    *length = first & ~kMore;
    if (first <= kMore)
        return 0;
    const size_t count = *length;
    if (count > kMostLengthBytes)
        return FailX509(EINVAL, Message::Asn1LengthTooWide);
    if (count > left_.size())
        return FailX509(EINVAL, Message::Asn1NoLength);
    *length = 0;
    for (const unsigned char byte : left_.first(count))
        *length = *length << CHAR_BIT | byte;
    left_ = left_.subspan(count);
    return *length > INT_MAX ? FailX509(EINVAL, Message::Asn1LengthTooLarge) : 0;
}

int Asn1Reader::Next(Asn1Object* object)
{
    if (left_.empty())
        return FailX509(EINVAL, Message::Asn1NoObject);
    if (BeginsWithEndMarker(left_))
        return FailX509(EINVAL, Message::Asn1UnexpectedEnd);
    size_t length = 0;
    if (const int error = Tag(object))
        return error;
    if (const int error = Length(&object->isIndefinite, &length))
        return error;
    if (length > left_.size())
        return FailX509(EINVAL, Message::Asn1ObjectTooLong);
    if (object->isIndefinite)
        length = left_.size();
    object->content = left_.first(length);
    left_ = left_.subspan(length);
    // Among elements the marker is met where another one is due. What holds none is not read any further.
    if (object->isIndefinite && !object->isConstructed && length >= 2 && BeginsWithEndMarker(object->content.last(2)))
        return FailX509(EINVAL, Message::Asn1UnexpectedEnd);
    return 0;
}

int Asn1Reader::Expect(int tag, int tagClass, Asn1Object* object)
{
    if (const int error = Next(object))
        return error;
    return object->Is(tag, tagClass) ? 0 : FailX509(EINVAL, Message::Asn1Mismatch);
}

int Asn1Reader::Expect(int tag, Bytes* content)
{
    Asn1Object object;
    if (const int error = Expect(tag, kAsn1Universal, &object))
        return error;
    *content = object.content;
    return 0;
}

int Asn1Reader::Integer(Bytes* content)
{
    if (const int error = Expect(kAsn1Integer, content))
        return error;
    return content->empty() ? FailX509(EINVAL, Message::Asn1BadContent) : 0;
}

int Asn1Reader::BitString(Bytes* bits)
{
    Bytes content;
    if (const int error = Expect(kAsn1BitString, &content))
        return error;
    if (content.empty() || content[0] > kMostUnusedBits)
        return FailX509(EINVAL, Message::Asn1BadContent);
    *bits = content.subspan(1);
    return 0;
}

int Asn1Reader::Oid(char (&text)[kOidTextSize])
{
    Bytes content;
    if (const int error = Expect(kAsn1Oid, &content))
        return error;
    return General_OBJ_obj2txt(content, text);
}

int General_OBJ_obj2txt(Bytes oid, char (&text)[kOidTextSize])
{
    char* next = text;
    char* const last = std::end(text) - 1;
    const auto put = [&next, last](uint64_t number) { // true if it does not fit
        const std::to_chars_result result = std::to_chars(next, last, number);
        next = result.ptr;
        return result.ec != std::errc{};
    };
    if (oid.empty() || (oid.back() & kMore) != 0)
        return FailX509(EINVAL, Message::Asn1BadOid);
    uint64_t arc = 0;
    for (const unsigned byte : oid) {
        if (arc > UINT64_MAX >> kBitsOfSeven)
            return FailX509(EINVAL, Message::Asn1BadOid);
        arc = arc << kBitsOfSeven | (byte & ~kMore);
        if ((byte & kMore) != 0)
            continue;
        if (next == text) {
            const bool isThird = arc >= kFirstOfThirdArc;
            put(isThird ? 2 : arc / kArcsOfFirst);
            arc = isThird ? arc - kFirstOfThirdArc : arc % kArcsOfFirst;
        }
        if (next == last)
            return FailX509(EINVAL, Message::Asn1OidTooLong);
        *next++ = '.';
        if (put(arc))
            return FailX509(EINVAL, Message::Asn1OidTooLong);
        arc = 0;
    }
    *next = '\0';
    return 0;
}
