// An XML document behind a handle, closed with the test.
#pragma once

#include <ZKQ_general/TamorXml.h>
#include <ZKQ_general/WQXXMLH.h>
#include <gtest/gtest.h>
#include <string.h>

#include <memory>
#include <string>
#include <utility>

namespace support {

/// A text in a block of exactly its size.
inline std::unique_ptr<char[]> ExactText(const std::string& text)
{
    std::unique_ptr<char[]> copy(new char[text.size() + 1]);
    memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
}

class XmlHandle {
public:
    /// A document of a text.
    explicit XmlHandle(const std::string& text, int mode = 1)
    {
        EXPECT_EQ(WQXXMLH_Open2(ExactText(text).get(), mode, &handle_), 0) << text;
    }
    /// A document of a file.
    static XmlHandle Of(const std::string& file, int mode = 1)
    {
        XmlHandle opened;
        EXPECT_EQ(WQXXMLH_Open(file.c_str(), mode, &opened.handle_), 0) << file;
        return opened;
    }
    XmlHandle(XmlHandle&& from) noexcept : handle_(from.handle_) { from.handle_ = nullptr; }
    XmlHandle& operator=(XmlHandle&& from) noexcept
    {
        std::swap(handle_, from.handle_);
        return *this;
    }
    XmlHandle(const XmlHandle&) = delete;
    XmlHandle& operator=(const XmlHandle&) = delete;
    ~XmlHandle() { Close(); }

    void* Get() const { return handle_; }
    operator void*() const { return handle_; }

    /// The element at a path, or null.
    void* Node(const std::string& path) const
    {
        void* node = nullptr;
        EXPECT_EQ(WQXXMLH_GetNodeFromPath(handle_, path.c_str(), &node), 0) << path;
        return node;
    }
    /// What the element at a path begins with, or the code of the failure in parentheses.
    std::string Value(const std::string& path) const { return ValueAt(handle_, path); }
    static std::string ValueAt(void* start, const std::string& path)
    {
        char* value = nullptr;
        const int error = WQXXMLH_GetElementValue(start, ExactText(path).get(), &value);
        return error == 0 ? value : "(" + std::to_string(error) + ")";
    }
    std::string Attribute(const std::string& path, const std::string& name) const
    {
        char* value = nullptr;
        const int error = WQXXMLH_GetElementAttribute(handle_, path.c_str(), name.c_str(), &value);
        return error == 0 ? value : "(" + std::to_string(error) + ")";
    }

    /// The handle, to be closed by the caller.
    void* Release() { return std::exchange(handle_, nullptr); }
    void Close()
    {
        if (handle_ != nullptr)
            WQXXMLH_Close(handle_);
        handle_ = nullptr;
    }
    /// Closes the document and gives its text.
    std::string Finish()
    {
        char* xml = nullptr;
        WQXXMLH_Close2(handle_, &xml);
        handle_ = nullptr;
        const std::string text = xml == nullptr ? "(null)" : xml;
        WQXXMLH_FreeString(xml);
        return text;
    }

private:
    XmlHandle() = default;

    void* handle_ = nullptr;
};

/// A text as the writer indents it without line feeds and the blanks before tags: what tests compare.
inline std::string Flat(const std::string& text)
{
    std::string flat;
    for (const char c : text) {
        while (c == '<' && flat.ends_with("  "))
            flat.resize(flat.size() - 2);
        if (c != '\n')
            flat += c;
    }
    return flat;
}

} // namespace support
