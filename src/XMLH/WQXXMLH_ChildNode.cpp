#include <errno.h>
#include <stdlib.h>

#include <new>

#include "../internal/xmlh.h"
#include "messages_gbk.h"

namespace {

/// Refuses arguments of a function; EINVAL, which is logged.
// cppcheck-suppress passedByValue ; three words, made at the call
int RefuseArguments(const char* function, LogFormat format = Message::XmlBadArgument)
{
    General_LibraryLogF(ZKQ_LOG_ERROR, format, function);
    return EINVAL;
}

/// 0, or kXmlBadHandle, which is logged.
int CheckIteration(const void* handle)
{
    if (handle == nullptr) {
        General_LibraryLog(ZKQ_LOG_ERROR, Message::XmlNullHandle);
        return kXmlBadHandle;
    }
    if (static_cast<const WQXXMLH_ITERATENODE*>(handle)->MagicNum == kXmlIterationMark)
        return 0;
    General_LibraryLog(ZKQ_LOG_ERROR, Message::XmlUnknownHandle);
    return kXmlBadHandle;
}

/// Begins a walk over the elements below `parent`.
int NewIteration(const XMLNODE* parent, int Mode, void** ItrHandle)
{
    void* const room = calloc(1, sizeof(WQXXMLH_ITERATENODE));
    if (room == nullptr) {
        General_LibraryLog(ZKQ_LOG_ERROR, Message::XmlIterateNoMemory);
        return kXmlNoMemory;
    }
    *ItrHandle = new (room)
        WQXXMLH_ITERATENODE{kXmlIterationMark, nullptr, ElementFrom(parent->Child), CountElements(parent->Child), Mode};
    return 0;
}

} // namespace

int WQXXMLH_BeginIterate(void* Handle, const char* Path, void** ItrHandle)
{
    if (ItrHandle == nullptr)
        return RefuseArguments("WQXXMLH_BeginIterate");
    XMLNODE* node = nullptr;
    if (const int error = ResolvePath(Handle, Path, PathMode::kFind, &node))
        return error;
    const WQXXMLH* const document = AsDocument(Handle);
    return NewIteration(node, document == nullptr ? 0 : document->Mode, ItrHandle);
}

int WQXXMLH_BeginIterateEx(void* Handle, void** ItrHandle)
{
    if (ItrHandle == nullptr)
        return RefuseArguments("WQXXMLH_BeginIterateEx");
    if (Handle == nullptr) {
        General_LibraryLog(ZKQ_LOG_ERROR, Message::XmlNullHandle);
        return kXmlBadHandle;
    }
    const auto* const node = static_cast<XMLNODE*>(Handle);
    if (!IsElement(node)) {
        General_LibraryLog(ZKQ_LOG_ERROR, Message::XmlUnknownHandle);
        return kXmlBadHandle;
    }
    return NewIteration(node, 0, ItrHandle);
}

int WQXXMLH_BeginIterate2(void* Handle, void** ItrHandle)
{
    if (ItrHandle == nullptr)
        return RefuseArguments("WQXXMLH_BeginIterate2");
    if (const int error = CheckIteration(Handle))
        return error;
    const auto* const iteration = static_cast<WQXXMLH_ITERATENODE*>(Handle);
    if (iteration->CurChildNode == nullptr) {
        General_LibraryLog(ZKQ_LOG_ERROR, Message::XmlNoCurrentNode);
        return EINVAL;
    }
    return NewIteration(static_cast<XMLNODE*>(iteration->CurChildNode), iteration->Mode, ItrHandle);
}

int WQXXMLH_Iterate(void* ItrHandle, void** ElementHandle)
{
    if (const int error = CheckIteration(ItrHandle))
        return error;
    if (ElementHandle == nullptr)
        return RefuseArguments("WQXXMLH_Iterate");
    auto* const iteration = static_cast<WQXXMLH_ITERATENODE*>(ItrHandle);
    auto* const node = static_cast<XMLNODE*>(iteration->ChildNode);
    if (node == nullptr)
        return ENOENT;
    iteration->CurChildNode = node;
    iteration->ChildNode = ElementFrom(node->Next);
    --iteration->Count;
    *ElementHandle = node;
    return 0;
}

int WQXXMLH_EndIterate(void* ItrHandle)
{
    if (ItrHandle == nullptr)
        return 0;
    if (const int error = CheckIteration(ItrHandle))
        return error;
    explicit_bzero(ItrHandle, sizeof(WQXXMLH_ITERATENODE)); // not to be optimised away
    free(ItrHandle);
    return 0;
}

int WQXXMLH_Iterate_GetValue(void* NodeHandle, char** Value)
{
    if (NodeHandle == nullptr || Value == nullptr)
        return RefuseArguments("WQXXMLH_GetValue");
    return LogXmlResult(WQXXML_GetElementValue(NodeHandle, Value));
}

int WQXXMLH_Iterate_GetAttribute(void* NodeHandle, const char* AttributeName, char** AttributeValue)
{
    if (NodeHandle == nullptr || AttributeName == nullptr || AttributeValue == nullptr)
        return RefuseArguments("WQXXMLH_GetAttribute");
    return LogXmlResult(WQXXML_GetAttribute(NodeHandle, AttributeName, AttributeValue));
}

int WQXXMLH_Iterate_GetElement(void* NodeHandle, char** Element)
{
    if (NodeHandle == nullptr || Element == nullptr)
        return RefuseArguments("WQXXMLH_GetElement");
    *Element = static_cast<XMLNODE*>(NodeHandle)->Value;
    return 0;
}
