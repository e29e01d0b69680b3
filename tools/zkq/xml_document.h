// An XML file behind a handle of the library, written back whole or not at all.
#pragma once

#include <string>
#include <vector>

#include "failure.h"
#include "xml_text.h"

class XmlDocument {
public:
    enum class Missing { kFails, kIsEmpty };

    explicit XmlDocument(const std::string& file, Missing missing = Missing::kFails);
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;
    ~XmlDocument();

    const std::string& File() const { return file_; }
    bool IsUtf8() const { return text_.is_utf8; }
    const std::string& RootName() const { return text_.root_name; }
    void* Handle() const { return handle_; }
    /// The element that a path leads to.
    void* Find(const std::string& path) const;
    void* FindOrAdd(const std::string& path);
    void Rename(const std::string& path, const std::string& name);
    /// Reads again what has been changed. Elements made on the way to another have no text, not even an empty one;
    /// then they do.
    void Refresh();
    /// What is told when something goes wrong with a path.
    Failure Refused(const std::string& what, const std::string& path, int error) const;

    /// The whole file as it would be written. Fails for what would not be read back.
    std::string Text() const;
    /// Fails if writing would lose something, unless that is wanted.
    void RequireKept(bool force) const;
    void Write(const std::string& file) const;

private:
    void Load();
    void* Root() const;

    std::string file_;
    XmlText text_;
    void* handle_ = nullptr;
};
