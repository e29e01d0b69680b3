#include "internal/x509_message.h"

#include <ZKQ_general/WQXXMLH.h>
#include <ZKQ_general/json.h>
#include <errno.h>

#include "internal/x509_message_tree.h"

namespace {

constexpr Item Simple(int kind, const char* name)
{
    return {0, kind, nullptr, 0, 0, name, nullptr, nullptr, 0};
}

struct CloseXml {
    void operator()(void* document) const { WQXXMLH_Close(document); }
};
struct CloseJson {
    void operator()(void* document) const { JSON_Misc_FiniJSON(document, nullptr); }
};
using XmlDocument = std::unique_ptr<void, CloseXml>;
using JsonDocument = std::unique_ptr<void, CloseJson>;

/// Hands a text out; its closing does not tell when there was no memory for it.
int HandOut(char* text, unsigned char** out)
{
    if (out == nullptr)
        return 0;
    if (text == nullptr)
        return ZKQ_MSG_NO_MEMORY;
    *out = reinterpret_cast<unsigned char*>(text);
    return 0;
}

int EncodeXml(const char* val, unsigned char** out, const Item* it)
{
    void* handle = nullptr;
    if (const int error = WQXXMLH_Open2("", 1, &handle))
        return error;
    XmlDocument document(handle);
    if (const int error = WQXXMLH_SetDeclaration(handle, "1.0", "UTF-8", "yes"))
        return error;
    if (const int error = EncodeTree(val, it, handle, kXmlFormat))
        return error;
    char* text = nullptr;
    WQXXMLH_Close2(document.release(), out == nullptr ? nullptr : &text);
    return HandOut(text, out);
}

int EncodeJson(const char* val, unsigned char** out, const Item* it)
{
    void* handle = nullptr;
    if (const int error = JSON_Misc_InitJSON(nullptr, &handle))
        return error;
    JsonDocument document(handle);
    if (const int error = EncodeTree(val, it, handle, kJsonFormat))
        return error;
    char* text = nullptr;
    if (const int error = JSON_Misc_FiniJSON(document.release(), out == nullptr ? nullptr : &text))
        return error;
    return HandOut(text, out);
}

int DecodeXml(char* val, size_t Size, const char* in, const Item* it)
{
    void* handle = nullptr;
    if (const int error = WQXXMLH_Open2(in, 0, &handle))
        return error;
    const XmlDocument document(handle);
    return DecodeTree(val, Size, it, handle, strlen(in), kXmlFormat);
}

int DecodeJson(char* val, size_t Size, const char* in, const Item* it)
{
    if (in == nullptr)
        return EINVAL;
    void* handle = nullptr;
    if (const int error = JSON_Misc_InitJSON(in, &handle))
        return error;
    const JsonDocument document(handle);
    return DecodeTree(val, Size, it, handle, strlen(in), kJsonFormat);
}

constexpr bool IsMode(int mode)
{
    return mode == ZKQ_MSG_DER || mode == ZKQ_MSG_XML || mode == ZKQ_MSG_JSON;
}

} // namespace

const Item kSimpleItems[] = {{},
                             Simple(ZKQ_MSG_KIND_INT32, "INT32"),
                             Simple(ZKQ_MSG_KIND_INT64, "INT64"),
                             Simple(ZKQ_MSG_KIND_PTR, "PTR"),
                             Simple(ZKQ_MSG_KIND_STRING, "STRING"),
                             Simple(ZKQ_MSG_KIND_STRINGPTR, "STRINGPTR"),
                             Simple(ZKQ_MSG_KIND_BYTEARRAY, "BYTEARRAY"),
                             Simple(ZKQ_MSG_KIND_BYTEARRAYPTR, "BYTEARRAYPTR"),
                             Simple(ZKQ_MSG_KIND_INTARRAY, "INTARRAY"),
                             Simple(ZKQ_MSG_KIND_INTARRAYPTR, "INTARRAYPTR")};

const ItemFunction kSimpleItemFunctions[] = {nullptr,
                                             ZKQGeneral_INT32_it,
                                             ZKQGeneral_INT64_it,
                                             ZKQGeneral_PTR_it,
                                             ZKQGeneral_STRING_it,
                                             ZKQGeneral_STRINGPTR_it,
                                             ZKQGeneral_BYTEARRAY_it,
                                             ZKQGeneral_BYTEARRAYPTR_it,
                                             ZKQGeneral_INTARRAY_it,
                                             ZKQGeneral_INTARRAYPTR_it};

int ZKQGeneral_MSG_i2d(const void* val, unsigned char** out, int max, const GENERAL_MSG_ITEM* it, int mode)
{
    if (!IsMode(mode) || it == nullptr)
        return ZKQ_MSG_BAD_MODE;
    const auto* const record = static_cast<const char*>(val);
    if (mode == ZKQ_MSG_DER)
        return EncodeDer(record, out, max, it);
    return mode == ZKQ_MSG_XML ? EncodeXml(record, out, it) : EncodeJson(record, out, it);
}

int ZKQGeneral_MSG_d2i(void* val, int Size, const unsigned char* in, int len, const GENERAL_MSG_ITEM* it, int mode)
{
    if (val == nullptr || Size < 0)
        return EINVAL;
    auto* const record = static_cast<char*>(val);
    const auto size = static_cast<size_t>(Size);
    memset(record, 0, size);
    if (!IsMode(mode) || it == nullptr)
        return EINVAL;
    if (mode == ZKQ_MSG_DER)
        return DecodeDer(record, size, in, len, it);
    const auto* const text = reinterpret_cast<const char*>(in);
    return mode == ZKQ_MSG_XML ? DecodeXml(record, size, text, it) : DecodeJson(record, size, text, it);
}

void ZKQGeneral_MSG_free(void* val, const GENERAL_MSG_ITEM* it, int Flag, int mode)
{
    if (IsMode(mode) && val != nullptr && it != nullptr)
        Release(static_cast<char*>(val), it, Flag != 0, mode);
}

const GENERAL_MSG_ITEM* ZKQGeneral_INT32_it()
{
    return &kSimpleItems[ZKQ_MSG_KIND_INT32];
}

const GENERAL_MSG_ITEM* ZKQGeneral_INT64_it()
{
    return &kSimpleItems[ZKQ_MSG_KIND_INT64];
}

const GENERAL_MSG_ITEM* ZKQGeneral_PTR_it()
{
    return &kSimpleItems[ZKQ_MSG_KIND_PTR];
}

const GENERAL_MSG_ITEM* ZKQGeneral_STRING_it()
{
    return &kSimpleItems[ZKQ_MSG_KIND_STRING];
}

const GENERAL_MSG_ITEM* ZKQGeneral_STRINGPTR_it()
{
    return &kSimpleItems[ZKQ_MSG_KIND_STRINGPTR];
}

const GENERAL_MSG_ITEM* ZKQGeneral_BYTEARRAY_it()
{
    return &kSimpleItems[ZKQ_MSG_KIND_BYTEARRAY];
}

const GENERAL_MSG_ITEM* ZKQGeneral_BYTEARRAYPTR_it()
{
    return &kSimpleItems[ZKQ_MSG_KIND_BYTEARRAYPTR];
}

const GENERAL_MSG_ITEM* ZKQGeneral_INTARRAY_it()
{
    return &kSimpleItems[ZKQ_MSG_KIND_INTARRAY];
}

const GENERAL_MSG_ITEM* ZKQGeneral_INTARRAYPTR_it()
{
    return &kSimpleItems[ZKQ_MSG_KIND_INTARRAYPTR];
}
