#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <span>

#include "../internal/guards.h"
#include "../internal/tokenizer.h"
#include "../internal/xmlh.h"
#include "messages_gbk.h"

namespace {

/// One condition of a segment.
struct NODEPROPERTY {
    std::string_view Name;
    std::string_view Value;
};

/// A segment taken apart. Its texts lie in the path.
struct NODEPROPERTYLIST {
    std::string_view NodeName;
    MallocPtr<NODEPROPERTY> NodeProperty;
    size_t Count = 0;

    std::span<const NODEPROPERTY> Conditions() const { return {NodeProperty.get(), Count}; }
};

// cppcheck-suppress passedByValue ; three words, made at the call
void LogText(LogFormat format, std::string_view text)
{
    char argument[512];
    TextBuilder(argument).Add(text);
    General_LibraryLogF(ZKQ_LOG_ERROR, format, argument);
}

std::string_view Trim(std::string_view text)
{
    constexpr std::string_view kTrimmed = " \t\"";
    const size_t first = text.find_first_not_of(kTrimmed);
    if (first == std::string_view::npos)
        return {};
    return After(text.substr(0, text.find_last_not_of(kTrimmed) + 1), first);
}

/// Replaces every "\x2f" of a text in place by "/"; the new text.
std::string_view WQXXMLH_Misc_ConvertPath(char* text, size_t length)
{
    constexpr std::string_view kEscape = "\\x2f";
    size_t written = 0;
    for (size_t i = 0; i < length; ++written) {
        const bool isEscape = std::string_view(text + i, length - i).starts_with(kEscape);
        text[written] = isEscape ? '/' : text[i];
        i += isEscape ? kEscape.size() : 1;
    }
    return {text, written};
}

/// Takes the two sides of "name=value".
bool SplitCondition(std::string_view condition, NODEPROPERTY* property)
{
    Tokenizer sides(condition, "=");
    const std::string_view name = sides.Next();
    const std::string_view value = sides.Next();
    *property = {Trim(name), Trim(value)};
    return !value.empty() && sides.Next().empty();
}

/// Takes the conditions between brackets apart; 0, or a code that has been logged.
int SplitConditions(std::string_view conditions, NODEPROPERTYLIST* list)
{
    const auto most = static_cast<size_t>(std::count(conditions.begin(), conditions.end(), '&')) + 1;
    list->NodeProperty.reset(static_cast<NODEPROPERTY*>(calloc(most, sizeof(NODEPROPERTY))));
    if (list->NodeProperty == nullptr)
        return LogXmlResult(kXmlNoMemory);
    Tokenizer tokens(conditions, "&");
    for (std::string_view token = tokens.Next(); !token.empty(); token = tokens.Next()) {
        if (!SplitCondition(token, list->NodeProperty.get() + list->Count)) {
            General_LibraryLog(ZKQ_LOG_ERROR, Message::XmlBadCondition);
            return kXmlBadPath;
        }
        ++list->Count;
    }
    if (list->Count == 0) {
        General_LibraryLog(ZKQ_LOG_ERROR, Message::XmlBadCondition);
        return kXmlBadPath;
    }
    return 0;
}

/// Takes a segment apart: a name, and perhaps conditions in brackets; 0, or a code that has been logged.
int ParseSegment(std::string_view segment, NODEPROPERTYLIST* list)
{
    Tokenizer pieces(segment, "[]");
    list->NodeName = pieces.Next();
    const std::string_view conditions = pieces.Next();
    if (list->NodeName.empty() || !pieces.Next().empty()) {
        LogText(Message::XmlTwoBrackets, segment);
        return kXmlBadPath;
    }
    return conditions.empty() ? 0 : SplitConditions(conditions, list);
}

/// An element meets all conditions. Where an attribute is missing, the text of the comparison before counts, which
/// `text` carries from one element to the next.
bool Matches(const XMLNODE* node, std::span<const NODEPROPERTY> conditions, std::string_view* text)
{
    for (const NODEPROPERTY& condition : conditions) {
        if (const EXTENSION* const attribute = FindExtension(node, condition.Name))
            *text = attribute->Value;
        if (*text != condition.Value)
            return false;
    }
    return true;
}

/// Finds the child that a segment stands for; 0, or a code: kXmlBadPath without a child of that name, ENOENT if none of
/// them meets the conditions.
int FindChild(const XMLNODE* parent, const NODEPROPERTYLIST& segment, XMLNODE** child)
{
    std::string_view text = "";
    int error = kXmlBadPath;
    for (XMLNODE* node = ElementFrom(parent->Child); node != nullptr; node = ElementFrom(node->Next)) {
        if (TextOf(node->Value) != segment.NodeName)
            continue;
        if (Matches(node, segment.Conditions(), &text)) {
            *child = node;
            return 0;
        }
        error = ENOENT;
    }
    return error;
}

/// A name or value that stands in a path can be written; 0 or EINVAL.
int CheckPathText(std::string_view text)
{
    return text.find_first_of(" <>@") == std::string_view::npos ? 0 : EINVAL;
}

/// Gives a new element the attributes that conditions ask for; 0, or a code that has been logged.
int AddConditions(XMLNODE* node, std::span<const NODEPROPERTY> conditions)
{
    for (const NODEPROPERTY& condition : conditions) {
        int error = CheckPathText(condition.Name);
        if (error == 0)
            error = AddExtensionToNode(node, condition.Name, condition.Value);
        if (error != 0)
            return LogXmlResult(error);
    }
    return 0;
}

/// Where a path begins, and what it may add.
struct PathWalk {
    WQXXMLH* document; ///< null when the path begins at an element
    XMLNODE* node;
    PathMode mode;
    bool hasAdded;
};

/// The first segment: the root, or the element that the path begins at.
int EnterRoot(std::string_view segment, PathWalk* walk)
{
    if (walk->node != nullptr)
        return EqualNoCase(TextOf(walk->node->Value), segment) ? 0 : kXmlBadPath;
    if (walk->mode != PathMode::kAdd)
        return ENOENT;
    NODEPROPERTYLIST root;
    if (const int error = ParseSegment(segment, &root))
        return error;
    XMLNODE* const node = NewElement(root.NodeName, nullptr);
    if (node == nullptr)
        return LogXmlResult(ENOMEM);
    auto* document = static_cast<XMLNODE*>(walk->document->xml);
    LinkLast(&document, nullptr, node);
    walk->document->xml = document;
    walk->node = node;
    walk->hasAdded = true;
    return AddConditions(node, root.Conditions());
}

/// A further segment.
int EnterChild(std::string_view segment, PathWalk* walk)
{
    NODEPROPERTYLIST child;
    if (const int error = ParseSegment(segment, &child))
        return error;
    const int error = FindChild(walk->node, child, &walk->node);
    if (error == 0)
        return 0;
    if (walk->mode != PathMode::kAdd) {
        if (error == ENOENT)
            General_LibraryLog(ZKQ_LOG_ERROR, Message::XmlNoMatch);
        else
            LogText(Message::XmlNoChild, child.NodeName);
        return error;
    }
    XMLNODE* const node = NewElement(child.NodeName, nullptr);
    if (node == nullptr)
        return LogXmlResult(ENOMEM);
    LinkNodeChild(walk->node, node);
    walk->node = node;
    walk->hasAdded = true;
    return AddConditions(node, child.Conditions());
}

/// Walks along all segments of a path that may be written to; 0 or a code.
int Walk(char* path, size_t length, PathWalk* walk)
{
    Tokenizer segments({path, length}, "/");
    bool isFirst = true;
    for (std::string_view token = segments.Next(); !token.empty(); token = segments.Next(), isFirst = false) {
        const std::string_view segment = WQXXMLH_Misc_ConvertPath(path + (token.data() - path), token.size());
        if (const int error = isFirst ? EnterRoot(segment, walk) : EnterChild(segment, walk))
            return error;
    }
    if (!isFirst)
        return 0;
    General_LibraryLogF(ZKQ_LOG_ERROR, Message::XmlSplitFailed, path);
    return kXmlBadPath;
}

/// The handle and the form of the path; 0, or a code that has been logged.
int CheckPath(const void* Handle, const char* Path)
{
    if (Handle == nullptr || Path == nullptr) {
        General_LibraryLog(ZKQ_LOG_ERROR, Handle == nullptr ? Message::XmlNullHandle : Message::XmlNullPath);
        return kXmlBadHandle;
    }
    if (Path[0] != '/' || Path[1] == '\0') {
        General_LibraryLog(ZKQ_LOG_ERROR, Message::XmlBadPathForm);
        return kXmlBadPath;
    }
    return 0;
}

/// The element that a path begins at; false if the handle is neither a document's nor an element.
bool Begin(void* Handle, PathWalk* walk)
{
    walk->document = AsDocument(Handle);
    walk->node = walk->document != nullptr ? ElementFrom(static_cast<XMLNODE*>(walk->document->xml))
                                           : static_cast<XMLNODE*>(Handle);
    return walk->document != nullptr || IsElement(walk->node);
}

} // namespace

int ResolvePath(void* Handle, const char* Path, PathMode mode, XMLNODE** node)
{
    if (const int error = CheckPath(Handle, Path))
        return error;
    const size_t length = strlen(Path);
    const MallocPtr<char> copy(strndup(Path, length));
    if (copy == nullptr)
        return LogXmlResult(kXmlNoMemory);
    PathWalk walk = {nullptr, nullptr, mode, false};
    const int error = Begin(Handle, &walk) ? Walk(copy.get(), length, &walk) : kXmlBadPath;
    if (walk.hasAdded && walk.document != nullptr)
        walk.document->Modified = TRUE;
    if (error != 0)
        General_LibraryLogF(ZKQ_LOG_ERROR, Message::XmlFindFailed, Path);
    else
        *node = walk.node;
    return error;
}

int WQXXMLH_Misc_CheckNamenValueValid(const char* nodeName, const char* /*Value*/)
{
    if (nodeName == nullptr) {
        General_LibraryLog(ZKQ_LOG_ERROR, Message::XmlNullName);
        return EINVAL;
    }
    return CheckPathText(nodeName);
}
