// XML handles as their sources share them.
#pragma once

#include <ZKQ_general/WQXXMLH.h>
#include <stddef.h>

#include "log.h"
#include "text.h"
#include "xml.h"

inline constexpr int kXmlHandleMark = 0x12653487;
inline constexpr int kXmlIterationMark = 0x12653489;

inline constexpr int kXmlBadHandle = 9;
inline constexpr int kXmlBadPath = 20;
inline constexpr int kXmlExternalError = -2;
inline constexpr int kXmlNoMemory = -9;

/// A document.
struct WQXXMLH {
    int MagicNum;
    char FileName[kPathSize];
    void* xml;
    void* HashTable;
    int Mode;
    BOOL Modified;
    char Version[32];
    char Encodeing[32];
    char Standalone[32];
};
static_assert(offsetof(WQXXMLH, xml) == 304 && offsetof(WQXXMLH, Mode) == 320 && offsetof(WQXXMLH, Version) == 328);

/// A walk over the elements below an element.
struct WQXXMLH_ITERATENODE {
    int MagicNum;
    void* CurChildNode; ///< handed out last
    void* ChildNode;    ///< to be handed out next
    int Count;          ///< not handed out yet
    int Mode;
};

/// The document behind a handle, or null if it is an element.
inline WQXXMLH* AsDocument(void* Handle)
{
    auto* const handle = static_cast<WQXXMLH*>(Handle);
    return handle->MagicNum == kXmlHandleMark ? handle : nullptr;
}

enum class PathMode { kFind, kAdd };

/// Resolves a path, checked and with failures logged; 0 or a code. Sets Modified where something was added.
int ResolvePath(void* Handle, const char* Path, PathMode mode, XMLNODE** node);
/// The name of an element or attribute can be written; 0 or EINVAL, which is logged.
int WQXXMLH_Misc_CheckNamenValueValid(const char* nodeName, const char* Value);

/// Logs the text of a code, unless it is 0, and returns it.
int LogXmlResult(int result, LogFormat format = "%s");
