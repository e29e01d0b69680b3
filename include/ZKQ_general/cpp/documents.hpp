/**
 * @file documents.hpp
 * @brief Owners of JSON documents, XML documents and certificates. Their errors have codes, and the texts of those.
 */
#ifndef ZKQ_GENERAL_CPP_DOCUMENTS_HPP
#define ZKQ_GENERAL_CPP_DOCUMENTS_HPP

#include <ZKQ_general/TamorXml.h>
#include <ZKQ_general/WQXXMLH.h>
#include <ZKQ_general/cpp/basics.hpp>
#include <ZKQ_general/json.h>
#include <ZKQ_general/x509.h>
#include <errno.h>

#include <vector>

namespace zkq {

namespace detail {

/** @brief A view of a text that may be missing. @param text  The text or null. @return A view, empty for null. */
inline std::string_view View(const char* text) noexcept
{
    return text == nullptr ? std::string_view() : std::string_view(text);
}

/**
 * @brief Takes a handle from a function that returns a code.
 * @tparam T   What holds the handle.
 * @param get  Called with where the handle is to be stored.
 * @return The handle.
 */
template <class T, class Get>
Result<T> Handle(Get get)
{
    void* handle = nullptr;
    if (const int code = get(&handle))
        return CodeError(code);
    return T(handle);
}

/**
 * @brief Takes a text that stays its owner's from a function that returns a code.
 * @tparam Char  What the function calls a character.
 * @param get    Called with where the text is to be stored.
 * @return A view.
 */
template <class Char = char, class Get>
Result<std::string_view> TextBy(Get get)
{
    Char* text = nullptr;
    if (const int code = get(&text))
        return CodeError(code);
    return View(text);
}

/** @brief Closes a document without asking for its text. @param document  The document. */
inline void CloseJson(void* document) noexcept
{
    JSON_Misc_FiniJSON(document, nullptr);
}

} // namespace detail

/**
 * A node of a JSON document, which owns it; see json.h, also about paths. Functions that read pass over names that are not
 * there. One thread at a time for the whole document. Views are good until the node is changed or the document closed.
 */
class JsonNode : public Ref {
public:
    using Ref::Ref;

    /** @brief Finds a node. @param path  The path. @return The node. */
    Result<JsonNode> Find(const Text& path) const
    {
        return detail::Handle<JsonNode>([&](void** node) { return JSON_Misc_GetChildNode(get(), path.c_str(), node); });
    }
    /** @brief Finds or makes a node. @param path  The path. @return The node. */
    Result<JsonNode> FindOrAdd(const Text& path) const
    {
        return detail::Handle<JsonNode>(
            [&](void** node) { return JSON_Misc_GetChildNode_AutoAdd(get(), path.c_str(), node); });
    }

    /** @brief The text of a string. @param path  The node. @return The text; a view of null for what is no string. */
    Result<std::string_view> GetString(const Text& path) const
    {
        return detail::TextBy([&](char** value) { return JSON_Misc_GetString(get(), path.c_str(), value); });
    }
    /** @brief The value of a number. @param path  The node. @return The number; 1 for true, 0 for anything else. */
    Result<int> GetInt(const Text& path) const
    {
        int value = 0;
        if (const int code = JSON_Misc_GetInt(get(), path.c_str(), &value))
            return CodeError(code);
        return value;
    }
    /** @brief The bytes that hexadecimal digits stand for. @param path  The node. @return The bytes. */
    template <class Out = std::string>
    Result<Out> GetHex(const Text& path) const
    {
        return Data<Out>(path, &JSON_Misc_GetHexData);
    }
    /** @brief The bytes that a Base64 text stands for. @param path  The node. @return The bytes. */
    template <class Out = std::string>
    Result<Out> GetBase64(const Text& path) const
    {
        return Data<Out>(path, &JSON_Misc_GetB64Data);
    }
    /** @brief The elements of an array. @param path  The array. @return Its elements. */
    Result<std::vector<JsonNode>> Elements(const Text& path) const
    {
        int count = 0;
        std::size_t* list = nullptr;
        if (const int code = JSON_Misc_GetArrayInfo(get(), path.c_str(), &count, &list))
            return CodeError(code);
        const Buffer owner(list, 0);
        std::vector<JsonNode> nodes;
        nodes.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i)
            nodes.emplace_back(reinterpret_cast<void*>(list[i]));
        return nodes;
    }
    /** @brief Whether this is an array, or a value in one. @return `true` if so. */
    bool IsArray() const { return JSON_Misc_IsNodeArrayType(get()) == 1; }

    /** @brief Makes a node a string. @param path  The node. @param value  The text. @return Success, or the reason. */
    Result<> SetString(const Text& path, const Text& value) const
    {
        return detail::DoneCode(JSON_Misc_SetString(get(), path.c_str(), value.c_str()));
    }
    /** @brief Makes a node a number. @param path  The node. @param value  The number. @return Success, or the reason. */
    Result<> SetInt(const Text& path, int value) const
    {
        return detail::DoneCode(JSON_Misc_SetInt(get(), path.c_str(), value));
    }
    /** @brief Makes a node digits. @param path  The node. @param bytes  The bytes. @return Success, or the reason. */
    Result<> SetHex(const Text& path, Bytes bytes) const
    {
        const int length = detail::Length(bytes.size());
        return detail::DoneCode(JSON_Misc_SetHexData(get(), path.c_str(), bytes.data(), length));
    }
    /** @brief Makes a node Base64. @param path  The node. @param bytes  The bytes. @return Success, or the reason. */
    Result<> SetBase64(const Text& path, Bytes bytes) const
    {
        const int length = detail::Length(bytes.size());
        return detail::DoneCode(JSON_Misc_SetB64Data(get(), path.c_str(), bytes.data(), length));
    }
    /** @brief Makes this an array. @return Success, or the reason. */
    Result<> MakeArray() const { return detail::DoneCode(JSON_Misc_SetNodeArrayType(get())); }
    /** @brief Adds an object to this array. @return The object. */
    Result<JsonNode> AddObject() const
    {
        return detail::Handle<JsonNode>([&](void** node) { return JSON_Misc_CreateObjectNode(get(), node); });
    }
    /** @brief Adds a string to this array. @param value  The text. @return Success, or the reason. */
    Result<> AddString(const Text& value) const
    {
        const void* const text = value.c_str();
        return detail::DoneCode(JSON_Misc_SetStringArray(get(), static_cast<const unsigned char*>(text)));
    }

private:
    template <class Out>
    Result<Out> Data(const Text& path, int (*getter)(void*, const char*, unsigned char**, int*)) const
    {
        unsigned char* bytes = nullptr;
        int length = 0;
        if (const int code = getter(get(), path.c_str(), &bytes, &length))
            return CodeError(code);
        return detail::Give<Out>(Buffer(bytes, static_cast<std::size_t>(length)));
    }
};

/** A JSON document, and its first node. */
class Json : public Owner<JsonNode, &detail::CloseJson> {
public:
    using Owner::Owner;

    /** @brief Reads a document; see JSON_Misc_InitJSON(). @param text  The text; null: an empty object. @return It. */
    static Result<Json> Parse(const Text& text)
    {
        return detail::Handle<Json>([&](void** document) { return JSON_Misc_InitJSON(text.c_str(), document); });
    }
    /** @brief Makes a document of an empty object. @return The document. */
    static Result<Json> Make() { return Parse(static_cast<const char*>(nullptr)); }

    /** @brief Closes the document and hands it out as a text. @return The text; -9 without memory for it. */
    template <class Out = std::string>
    Result<Out> Close()
    {
        char* text = nullptr;
        if (const int code = JSON_Misc_FiniJSON(release(), &text))
            return CodeError(code);
        if (text == nullptr)
            return CodeError(-9);
        return detail::Give<Out>(Buffer(text, std::strlen(text)));
    }
};

class XmlWalk;

/**
 * An element of an XML document, which owns it; see WQXXMLH.h, also about paths: the path given to an element begins with
 * its own name. One thread at a time for the whole document. Views are good until the element is changed.
 */
class XmlElement : public Ref {
public:
    using Ref::Ref;

    /** @brief Finds an element. @param path  The path. @return The element. */
    Result<XmlElement> Find(const Text& path) const
    {
        return detail::Handle<XmlElement>(
            [&](void** element) { return WQXXMLH_GetNodeFromPath(get(), path.c_str(), element); });
    }
    /** @brief Finds or makes an element. @param path  The path. @return The element. */
    Result<XmlElement> FindOrAdd(const Text& path) const
    {
        return detail::Handle<XmlElement>(
            [&](void** element) { return WQXXMLH_Misc_GetNodeFromPath_AutoAdd(get(), path.c_str(), element); });
    }
    /** @brief The text of an element. @param path  The element. @return The text. */
    Result<std::string_view> Value(const Text& path) const
    {
        return detail::TextBy([&](char** value) { return WQXXMLH_GetElementValue(get(), path.c_str(), value); });
    }
    /** @brief An attribute. @param path  The element. @param name  The attribute. @return Its value. */
    Result<std::string_view> Attribute(const Text& path, const Text& name) const
    {
        return detail::TextBy(
            [&](char** value) { return WQXXMLH_GetElementAttribute(get(), path.c_str(), name.c_str(), value); });
    }
    /** @brief The name of this element, not of a document. @return The name. */
    Result<std::string_view> Name() const
    {
        return detail::TextBy([&](char** name) { return WQXXMLH_Iterate_GetElement(get(), name); });
    }
    /** @brief The text of this element, not of a document. @return The text. */
    Result<std::string_view> OwnValue() const
    {
        return detail::TextBy([&](char** value) { return WQXXMLH_Iterate_GetValue(get(), value); });
    }
    /** @brief An attribute of this element, not of a document. @param name  The attribute. @return Its value. */
    Result<std::string_view> OwnAttribute(const Text& name) const
    {
        return detail::TextBy([&](char** value) { return WQXXMLH_Iterate_GetAttribute(get(), name.c_str(), value); });
    }
    /** @brief Begins a walk over the elements below one. @param path  The parent. @return The walk. */
    Result<XmlWalk> Walk(const Text& path) const;

    /**
     * @brief Adds an element, making what is missing on the way to it.
     * @param path   The parent.
     * @param name   The new element's name.
     * @param value  Its text.
     * @return Success, or the reason.
     */
    Result<> Add(const Text& path, const Text& name, const Text& value) const
    {
        return detail::DoneCode(WQXXMLH_AddElementValue(get(), path.c_str(), name.c_str(), value.c_str()));
    }
    /**
     * @brief Adds an attribute or replaces its value, making what is missing on the way to the element.
     * @param path   The element.
     * @param name   The attribute.
     * @param value  Its value.
     * @return Success, or the reason.
     */
    Result<> SetAttribute(const Text& path, const Text& name, const Text& value) const
    {
        return detail::DoneCode(WQXXMLH_AddElementAttribute(get(), path.c_str(), name.c_str(), value.c_str()));
    }
    /** @brief Replaces a text. @param path  The element. @param value  The text. @return Success, or the reason. */
    Result<> SetValue(const Text& path, const Text& value) const
    {
        return detail::DoneCode(WQXXMLH_ChangeElementValue(get(), path.c_str(), value.c_str()));
    }
    /** @brief Deletes an element. @param path  The element. @return Success, or the reason. */
    Result<> Delete(const Text& path) const { return detail::DoneCode(WQXXMLH_DeleteElement(get(), path.c_str())); }
};

/** A walk over the elements below one; deleting elements ends its validity, and so does closing the document. */
class XmlWalk : public Owner<Ref, &WQXXMLH_EndIterate> {
public:
    using Owner::Owner;
    /** @brief The next element. @return The element; one without a handle at the end. */
    XmlElement Next()
    {
        void* element = nullptr;
        return XmlElement(WQXXMLH_Iterate(get(), &element) == 0 ? element : nullptr);
    }
};

inline Result<XmlWalk> XmlElement::Walk(const Text& path) const
{
    void* walk = nullptr;
    if (const int code = WQXXMLH_BeginIterate(get(), path.c_str(), &walk))
        return CodeError(code);
    return XmlWalk(walk);
}

/** An XML document in a file or a text; see WQXXMLH.h. Released, it writes itself to its file if it was changed. */
class Xml : public Owner<XmlElement, &WQXXMLH_Close> {
public:
    using Owner::Owner;

    /**
     * @brief Opens a document in a file; see WQXXMLH_Open().
     * @param file      The file.
     * @param writable  Whether a file that is missing is made.
     * @return The document.
     */
    static Result<Xml> Open(const Text& file, bool writable = false)
    {
        return detail::Handle<Xml>([&](void** document) { return WQXXMLH_Open(file.c_str(), writable, document); });
    }
    /** @brief Opens a document in a text. @param text  The text; empty for an empty document. @return The document. */
    static Result<Xml> Parse(const Text& text)
    {
        return detail::Handle<Xml>([&](void** document) { return WQXXMLH_Open2(text.c_str(), 1, document); });
    }

    /** @brief Writes and closes the document, and hands it out as a text. @return The text. */
    Result<std::string> Close()
    {
        char* text = nullptr;
        if (get() == nullptr)
            return CodeError(EINVAL);
        WQXXMLH_Close2(release(), &text);
        if (text == nullptr)
            return CodeError(ENOMEM);
        std::string copy = text;
        WQXXMLH_FreeString(text);
        return copy;
    }
};

/** A node of a tree, which owns it; see TamorXml.h. Views are good until the node is changed or released. */
class XmlNode : public Ref {
public:
    using Ref::Ref;

    /** @brief The name of an element, or the text of a text. @return The name. */
    Result<std::string_view> Name() const
    {
        return detail::TextBy<const char>([&](const char** name) { return WQXXML_GetNodeValue(get(), name); });
    }
    /** @brief The text that an element begins with. @return The text. */
    Result<std::string_view> Value() const
    {
        return detail::TextBy([&](char** value) { return WQXXML_GetElementValue(get(), value); });
    }
    /** @brief An attribute. @param name  The attribute. @return Its value. */
    Result<std::string_view> Attribute(const Text& name) const
    {
        return detail::TextBy([&](char** value) { return WQXXML_GetAttribute(get(), name.c_str(), value); });
    }
    /** @brief The number of elements below. @return The number. */
    Result<int> ChildCount() const
    {
        int count = 0;
        if (const int code = WQXXML_GetChildNode(get(), &count, nullptr))
            return CodeError(code);
        return count;
    }
    /** @brief An element below. @param index  Its number, from 0. @return The element. */
    Result<XmlNode> Child(int index) const
    {
        return detail::Handle<XmlNode>([&](void** node) { return WQXXML_GetChildNode(get(), &index, node); });
    }
    /** @brief Adds an element below. @param name  Its name. @param value  Its text; null: none. @return The element. */
    Result<XmlNode> AddChild(const Text& name, const Text& value = nullptr) const
    {
        return detail::Handle<XmlNode>(
            [&](void** node) { return WQXXML_AddNodeChildItem(get(), name.c_str(), value.c_str(), node); });
    }
    /** @brief Sets an attribute. @param name  The attribute. @param value  Its value. @return Success, or the reason. */
    Result<> SetAttribute(const Text& name, const Text& value) const
    {
        return detail::DoneCode(WQXXML_AddNodeAttribute(get(), name.c_str(), value.c_str()));
    }
};

/** An XML document as a tree of nodes; see TamorXml.h. Without a handle it is an empty document. */
class XmlTree : public Owner<Ref, &WQXXML_ReleaseObject> {
public:
    using Owner::Owner;

    /** @brief Reads a document. @param text  The text. @return The tree. */
    static Result<XmlTree> Parse(const Text& text)
    {
        return detail::Handle<XmlTree>([&](void** document) { return WQXXML_LoadFromString(text.c_str(), document); });
    }

    /** @brief A top-level element. @param index  Its number, from 0. @return The element. */
    Result<XmlNode> Root(int index = 0) const
    {
        return detail::Handle<XmlNode>([&](void** node) { return WQXXML_GetRootNode(get(), index, node); });
    }
    /** @brief Adds a top-level element; the first becomes the document. @param name  Its name. @return The element. */
    Result<XmlNode> AddRoot(const Text& name)
    {
        return detail::Handle<XmlNode>(
            [&](void** node) { return WQXXML_AddChildItemAndGetNode(&handle_, nullptr, name.c_str(), nullptr, node); });
    }
    /** @brief Takes a node out and releases it. @param node  The node. @return Success, or the reason. */
    Result<> Delete(XmlNode node) { return detail::DoneCode(WQXXML_DelNode(&handle_, node.get())); }
    /** @brief Writes the document without a declaration; see WQXXML_OutputString(). @return The text. */
    Result<std::string> Print() const
    {
        char* text = nullptr;
        if (const int code = WQXXML_OutputString(get(), &text))
            return CodeError(code);
        std::string copy(detail::View(text));
        WQXXML_FreeString(text);
        return copy;
    }
};

/** A component of a certificate's name. */
struct CertificateName {
    std::string oid;   /**< Its type, such as "2.5.4.3". */
    std::string value; /**< Its text in GBK. */
};

/** An extension of a certificate. */
struct CertificateExtension {
    std::string oid;       /**< Its type. */
    bool critical = false; /**< Whether it is marked so. */
    std::string value;     /**< Its text or its bytes; see ZKQGeneral_CertInfo_GetExtInfo(). */
};

/** An X.509 certificate; see x509.h. One thread at a time. */
class Certificate : public Owner<Ref, &ZKQGeneral_CloseCert> {
public:
    using Owner::Owner;

    /** @brief Opens a file; see ZKQGeneral_OpenCert(). @param file  The file. @return The certificate. */
    static Result<Certificate> Open(const Text& file) { return OpenAny(file.c_str(), 0); }
    /** @brief Reads a certificate. @param bytes  DER, PEM or Base64. @return The certificate. */
    static Result<Certificate> Parse(Bytes bytes)
    {
        // A length of 0 would make it a path.
        return OpenAny(bytes.view().data(), bytes.empty() ? -1 : detail::Length(bytes.size()));
    }

    /** @brief A field that is a number. @param field  #ZKQ_CERT_VERSION and so on. @return The number. */
    Result<int> Number(int field) const
    {
        int number = 0;
        if (const int code = ZKQGeneral_CertInfo_GetInfo(get(), field, nullptr, &number))
            return CodeError(code);
        return number;
    }
    /** @brief A field that is a text. @param field  #ZKQ_CERT_SERIAL and so on. @return The text, without its NUL. */
    Result<std::string> TextOf(int field) const { return WithoutNul(DataOf(field)); }
    /** @brief A field that is bytes. @param field  #ZKQ_CERT_KEY and so on. @return The bytes. */
    Result<std::string> DataOf(int field) const
    {
        return Sized([&](char* value, int* size) { return ZKQGeneral_CertInfo_GetInfo(get(), field, value, size); });
    }
    /** @brief The subject's name. @return Its components. */
    Result<std::vector<CertificateName>> Subject() const { return Names(1); }
    /** @brief The issuer's name. @return Its components. */
    Result<std::vector<CertificateName>> Issuer() const { return Names(0); }
    /** @brief The extensions. @return All of them, or why one cannot be given. */
    Result<std::vector<CertificateExtension>> Extensions() const
    {
        int count = 0;
        if (const int code = ZKQGeneral_CertInfo_GetExtCount(get(), &count))
            return CodeError(code);
        std::vector<CertificateExtension> extensions;
        for (int i = 0; i < count; ++i) {
            char oid[ZKQ_CERT_OID_SIZE];
            int critical = 0;
            Result<std::string> value = Sized([&](char* room, int* size) {
                return ZKQGeneral_CertInfo_GetExtInfo(get(), i, oid, &critical, room, size);
            });
            if (!value)
                return value.error();
            extensions.push_back({oid, critical != 0, std::move(*value)});
        }
        return extensions;
    }

private:
    static Result<Certificate> OpenAny(const char* bytes, int length)
    {
        return detail::Handle<Certificate>(
            [&](void** certificate) { return ZKQGeneral_OpenCert(bytes, length, certificate); });
    }
    template <class Getter>
    static Result<std::string> Sized(Getter getter)
    {
        int size = 0;
        if (const int code = getter(nullptr, &size))
            return CodeError(code);
        std::string value(static_cast<std::size_t>(size), '\0');
        if (const int code = getter(value.data(), &size))
            return CodeError(code);
        value.resize(static_cast<std::size_t>(size));
        return value;
    }
    static Result<std::string> WithoutNul(Result<std::string> text)
    {
        if (!text->empty() && text->back() == '\0')
            text->pop_back();
        return text;
    }
    Result<std::vector<CertificateName>> Names(int subject) const
    {
        int count = 0;
        if (const int code = ZKQGeneral_CertInfo_GetDNCount(get(), subject, &count))
            return CodeError(code);
        std::vector<CertificateName> names;
        for (int i = 0; i < count; ++i) {
            char oid[ZKQ_CERT_OID_SIZE];
            Result<std::string> value = WithoutNul(Sized(
                [&](char* room, int* size) { return ZKQGeneral_CertInfo_GetDN(get(), subject, i, oid, room, size); }));
            if (!value)
                return value.error();
            names.push_back({oid, std::move(*value)});
        }
        return names;
    }
};

} // namespace zkq

#endif
