// SPDX-License-Identifier: Apache-2.0
//
// IKestAccess: what who sent the running request may do, by the administrator's rules. Implemented
// by the host, CLSID_KestCallContext as IID_KestAccess_1; a host without rules need not offer it.
//
// The host refuses a request by its own path before the handler is called. It does not know what
// is there: whether a name is taken, a collection or a file, a link or another spelling. A provider
// therefore asks where it knows, before anything is changed: kRightRead where content is read,
// kRightCreate or kRightChange by whether the name was taken in the step that takes it, the
// rights on the whole tree where members are copied, moved or deleted with it, and kRightList for
// each name that it tells. What may neither be listed nor read does not exist for whoever asks
// (code 11); any other refusal has code 6. Paths are the provider's, "/VOLUME/folder/file", as it
// resolves them: UTF-8 without a terminator; empty components and "." do not count.
//
// Every operation fails with code 4 for a null pointer. On a thread that runs no request, and where
// no rules are configured, everything is allowed.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

inline constexpr UINT32 kRightList = 1;
inline constexpr UINT32 kRightRead = 2;
inline constexpr UINT32 kRightCreate = 4;
inline constexpr UINT32 kRightChange = 8;
inline constexpr UINT32 kRightDelete = 16;
inline constexpr UINT32 kRightsAll = 31;

struct IKestAccess : IUnknown {
    // 0 when every other question of the running request will be answered by kRightsAll, so that
    // none need be asked. Costs next to nothing. [request thread; concurrent; during the reply]
    virtual TALSTATUS IsRestricted(BOOLEAN* restricted) = 0;
    // The rights on the object at a path, whether there is one or not.
    // [request thread; concurrent; during the reply]
    virtual TALSTATUS GetRights(UINT32 length, const char* path, UINT32* rights) = 0;
    // The rights on the members of a collection, but for those that a rule names: *uniform is 1
    // when it names none of them. [request thread; concurrent; during the reply]
    virtual TALSTATUS GetMemberRights(UINT32 length, const char* path, UINT32* rights,
                                      BOOLEAN* uniform) = 0;
    // The rights that hold for whatever is or could be below a path, which itself does not count.
    // Takes time in proportion to the rules below it. [request thread; concurrent; during the
    // reply]
    virtual TALSTATUS GetRightsBelow(UINT32 length, const char* path, UINT32* rights) = 0;
    // Tells the host why an operation is refused with code 6, so that the reply can say so (RFC
    // 3744 section 7.1.1). The first one counts. [request thread; concurrent; during the reply]
    virtual TALSTATUS ReportDenied(UINT32 length, const char* path, UINT32 rights) = 0;

  protected:
    ~IKestAccess() = default;
};
