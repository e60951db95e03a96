// SPDX-License-Identifier: Apache-2.0
//
// What one index request carries through its stages: the client's wishes, the templates' settings,
// and the entries that are listed.
#pragma once

#include "support/globals.h"
#include <kest/io.h>

// The working buffers of a request: 1024 bytes each. Header values, arguments, names and lines that
// do not fit are cut or ignored as their readers say; nothing is written past the end.
inline constexpr UINT32 kIndexBuffer = 1024;

// A file-name extension and the text that the templates want for it.
struct Dictionary {
    char* key; // both from platform memory, NUL-terminated, owned by the entry
    char* value;
    Dictionary* next;
};

// What the templates and the request set.
struct DictionaryHead {
    Dictionary* dictionary; // newest first: a later setting for the same extension wins
    char folderFileType[kIndexBuffer];
    char defaultFileType[kIndexBuffer];
    WCHAR filter[kIndexBuffer];    // upper-cased, NUL-terminated
    char utf8filter[kIndexBuffer]; // as the user gave it
    UINT32 firstFile;              // index of the first entry to show, from 0
    UINT32 numberOfFiles; // entries written so far; after the list, all that passed the filter
    UINT32 maxFiles;      // most entries on one page
};

// Bits of NodeContext::flags, the user's preferences.
inline constexpr UINT32 kShowDeleted = 0x01;
inline constexpr UINT32 kSortDescending = 0x10;
inline constexpr UINT32 kSortKeyMask = 0xE0;
inline constexpr UINT32 kSortMask = 0xF0; // key and direction

enum SortKey : UINT32 {
    kSortByName = 0x00, // and every value that is none of the others
    kSortBySize = 0x20,
    kSortByTime = 0x40,
    kSortByType = 0x60,
};

// The kinds of client; also the index into the tables of template files.
enum InterfaceMode : INT32 {
    kModeUndecided = -1,
    kModeXml = 0,
    kModeScripted = 1,
    kModeLayers = 2,
    kModeText = 3,
    kModeSmall = 4,
    kModeModern = 5,
    kModeCount = 6,
};

struct NodeContext {
    IKestIO_5* pKestIo;
    SCHANDLE hSession;
    DictionaryHead* dHead;
    const char* srcURL; // the raw URL, still escaped, without a trailing "/.index_xml"
    InterfaceMode interfaceMode;
    UINT32 flags;
    UINT32 fileSeq; // entries visited in output order
    bool indexXml;  // srcURL lost "/.index_xml"; the store's path loses it too
};

// The path suffix that asks for the XML form of a folder.
inline constexpr char kIndexXmlSuffix[] = "/.index_xml";
inline constexpr UINT16 kIndexXmlUnits = sizeof(kIndexXmlSuffix) - 1;

// One listed entry, in one block of platform memory: the record with its display name and, when its
// State is not 0, the entry's URI behind the name. resInfo.pURI points at that copy (which has a
// terminator) or is null.
struct SortNode {
    NodeContext* context;
    SortNode* next;
    UINT64 deleted; // the provider's identifier of a deleted entry; 0 for a live one
    bool isRoot;    // a provider's root, listed at the top level
    DAV_COMMON_ENUM resInfo;
};
