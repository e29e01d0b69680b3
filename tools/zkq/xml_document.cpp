#include "xml_document.h"

#include <ZKQ_general/TamorXml.h>
#include <ZKQ_general/WQXXMLH.h>
#include <ZKQ_general/error.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "charset.h"
#include "failure.h"
#include "input.h"
#include "replacement.h"

namespace {

constexpr int kBadPath = 20; // also for an element that is not there
constexpr char kNewHead[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (number_ >= 0)
            close(number_);
    }
    int Number() const { return number_; }

private:
    int number_;
};

/// The name that a path begins with.
std::string FirstName(const std::string& path)
{
    const size_t start = std::min(path.find_first_not_of('/'), path.size());
    return path.substr(start, path.find_first_of("/[", start) - start);
}

} // namespace

XmlDocument::XmlDocument(const std::string& file, Missing missing) : file_(file)
{
    std::error_code ignored;
    if (missing == Missing::kFails || std::filesystem::exists(file, ignored))
        text_ = ReadXmlText(file, ReadRegularFile(file));
    else
        text_.head = kNewHead;
    Load();
}

XmlDocument::~XmlDocument()
{
    WQXXMLH_Close(handle_);
}

void XmlDocument::Load()
{
    void* handle = nullptr;
    if (const int error = WQXXMLH_Open2(text_.root.c_str(), 1, &handle))
        throw Failure("cannot read " + file_, ToTerminal(WQXXMLH_GetErrorInfo(error, nullptr)));
    if (handle_ != nullptr)
        WQXXMLH_Close(handle_);
    handle_ = handle;
}

Failure XmlDocument::Refused(const std::string& what, const std::string& path, int error) const
{
    std::string why = ToTerminal(WQXXMLH_GetErrorInfo(error, nullptr));
    if (error == kBadPath)
        why = "No such element, or this is no path";
    else if (error == ENOENT)
        why = RootName().empty() ? "The file holds no element" : "No such element with these attributes";
    return {"cannot " + what + " " + path + " in " + file_, why};
}

void* XmlDocument::Find(const std::string& path) const
{
    void* node = nullptr;
    if (const int error = WQXXMLH_GetNodeFromPath(handle_, path.c_str(), &node))
        throw Refused("find", path, error);
    return node;
}

void* XmlDocument::FindOrAdd(const std::string& path)
{
    void* node = nullptr;
    if (const int error = WQXXMLH_Misc_GetNodeFromPath_AutoAdd(handle_, path.c_str(), &node))
        throw Refused("add", path, error);
    if (text_.root_name.empty())
        text_.root_name = FirstName(path);
    return node;
}

void XmlDocument::Rename(const std::string& path, const std::string& name)
{
    const bool is_root = Find(path) == Root();
    if (const int error = WQXXMLH_ChangeElementName(handle_, path.c_str(), name.c_str()))
        throw Refused("rename", path, error);
    if (is_root)
        text_.root_name = name;
}

void* XmlDocument::Root() const
{
    return Find("/" + text_.root_name);
}

std::string XmlDocument::Text() const
{
    if (text_.root_name.empty())
        return text_.head;
    // The writer of files keeps comments.
    const Descriptor memory(memfd_create("xml", MFD_CLOEXEC));
    const std::string name = "/proc/self/fd/" + std::to_string(memory.Number());
    if (const int error = WQXXML_OutputFile(Root(), nullptr, nullptr, nullptr, name.c_str()))
        throw Failure("cannot write " + file_, ToTerminal(WQXXMLH_GetErrorInfo(error, nullptr)));
    std::ifstream stream(name, std::ios::binary);
    const std::string root = WithoutMarks({std::istreambuf_iterator<char>(stream), {}});
    const std::string tail = text_.tail.starts_with('\n') ? text_.tail.substr(1) : text_.tail;
    std::string text = text_.head + root + tail;
    ReadXmlText("cannot write " + file_ + ": it would be no XML any more", text);
    return text;
}

void XmlDocument::Refresh()
{
    const std::string text = Text();
    const std::vector<std::string> losses = text_.losses;
    text_ = ReadXmlText(file_, text);
    text_.losses = losses; // of the file
    Load();
}

void XmlDocument::RequireKept(bool force) const
{
    if (force || text_.losses.empty())
        return;
    const size_t more = text_.losses.size() - 1;
    throw Failure("cannot change " + file_ + " without harm (see --force)",
                  text_.losses[0] + (more == 0 ? "" : "; and " + std::to_string(more) + " more"));
}

void XmlDocument::Write(const std::string& file) const
{
    const std::string text = Text();
    ReplaceFile(file, text);
}
