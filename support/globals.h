// SPDX-License-Identifier: Apache-2.0
//
// The module's process-wide state. Each line says who writes it, when, and under which lock.
#pragma once

#include <kest/com.h>
#include <kest/dav.h>
#include <kest/host.h>
#include <kest/talpl.h>

// One configured storage provider. Entries are made at stage two and live as long as the process.
struct KESTDAV_HANDLER {
    LIST_ENTRY ListLink;
    UINT32 Flags;          // always 0
    UINT32 Caps;           // what GetDAVSupport reported
    IKestDAV2* pIKestDav2; // exactly one of the two is set; the entry owns the reference
    IKestDAV* pIKestDav;
    IKestDAV3* pIKestDav3; // the same object's third generation; null without; a reference, too
    GUID ClassId;
};
static_assert(offsetof(KESTDAV_HANDLER, ListLink) == 0); // entries are reached through their links

extern ITalpl* pITalpl;          // stage one, under g_hModuleMutex
extern IKestUtil* g_pIKestUtil;  // stage two, under g_hModuleMutex
extern UINT64 g_StartupTime;     // stage one
extern HANDLE g_hHandlerLock;    // stage one; guards g_HandlerList
extern LIST_ENTRY g_HandlerList; // stage two, under g_hHandlerLock for writing

// The room that the host is offered for these; a byte for the terminator stands behind it.
inline constexpr UINT32 kConfigTextBytes = 257;
extern char g_szHost[kConfigTextBytes + 1];         // ModuleInit, NUL-terminated
extern char g_szKestLocation[kConfigTextBytes + 1]; // ModuleInit, NUL-terminated

// The next three: stage two, under g_hModuleMutex; never re-read.
extern UINT32 g_RWBlockSize;
// Which way requests are answered. The dispatcher asks, and whoever sends a 405.
enum class Dialect { Classic, Standard };
extern Dialect g_Dialect;
// The most entries that a listing of all depths answers with, in the standard dialect.
extern UINT32 g_InfinityEntries;
// Stage two, and again without a lock on every configuration-change event: a request that runs
// meanwhile may see a mix of old and new text.
extern UNICODE_STRING g_MonikerU;
extern STRING g_MonikerS;

extern ISA* g_pIAttr;              // stage two, under g_hModuleMutex
extern HANDLE g_hSessionAttribute; // stage two, under g_hModuleMutex
extern ISCOM* g_pIOM;              // stage one, under g_hModuleMutex

// The session attribute's data.
struct KESTDAV_SESSION {
    UINT32 Signature;
    UINT32 Flags; // index preferences: bit 0 shows deleted entries, bits 4 to 7 choose the order
    SCHANDLE hSc;
};
inline constexpr UINT32 kSessionSignature = 0x03052002;
