// SPDX-License-Identifier: Apache-2.0
//
// PROPFIND (RFC 4918 section 9.1): properties of an object, of its members, or of a whole tree.
// Members come in batches and leave as they come: memory does not grow with their number.
#include <kest/dav/collection_3.h>

#include "standard/answer.h"
#include "standard/content_coding.h"
#include "standard/handlers.h"
#include "standard/object.h"
#include "standard/preconditions.h"
#include "standard/propfind_response.h"
#include "standard/tree_path.h"
#include "support/failure_report.h"
#include "support/handlers.h"
#include "support/provider.h"
#include "support/reply.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace standard {

namespace {

TALSTATUS OpenCollection(const KESTDAV_HANDLER& handler, SCHANDLE session, UNICODE_STRING* path,
                         Ref<IKestDAVCollection3>& collection)
{
    Ref<IKestDAVCollection2> second;
    if (const TALSTATUS status = Create(handler.ClassId, second); Failed(status))
        return status;
    if (const TALSTATUS status = Query(second.Get(), collection); Failed(status))
        return status;
    return collection->Open(session, path, nullptr);
}

// Calls `visit(member, name)` with the members of an opened collection.
template <class Visit>
TALSTATUS ForEachMember(IKestDAVCollection3& collection, RecordBuffer& buffer, Visit visit)
{
    return ForEachRecord<DAV_MEMBER>(
        buffer,
        [&](UINT32* size, DAV_MEMBER* members) { return collection.GetMembers(size, members); },
        [&](const DAV_MEMBER& member, UINT32 room) {
            return member.NameLength > room - offsetof(DAV_MEMBER, Name) ||
                   visit(member, std::string_view(VariableText(member, offsetof(DAV_MEMBER, Name)),
                                                  member.NameLength));
        });
}

// The collections that a walk has still to enter. The deepest come first, so that what waits is the
// rest of each level above the one at hand.
class Pending {
  public:
    bool Push(const TreePath::Place& parent, std::string_view name)
    {
        const Entry entry = {parent, static_cast<UINT32>(names_.size())};
        return names_.Put(name) && entries_.Append(entry);
    }
    bool IsEmpty() const { return entries_.empty(); }
    // Goes to the last one. False when memory is short.
    bool Pop(TreePath& path)
    {
        const Entry entry = entries_.back();
        path.Leave(entry.parent);
        const bool entered = path.Enter(names_.Text(entry.nameAt, names_.size() - entry.nameAt));
        names_.Cut(entry.nameAt);
        entries_.Cut(entries_.size() - 1);
        return entered;
    }

  private:
    struct Entry {
        TreePath::Place parent;
        UINT32 nameAt; // to the end of names_, when it is the last
    };
    GrowingArray<Entry> entries_;
    GrowingText names_;
};

// One request for one provider.
class PropFindWalk {
  public:
    PropFindWalk(const KESTDAV_HANDLER& handler, SCHANDLE session, const PropFindRequest& request,
                 TreePath& path)
        : handler_(handler), session_(session), request_(request), path_(path)
    {
    }

    // Counts the members of the tree below the path, up to one more than `most`. Nothing is sent.
    TALSTATUS Count(UINT32 most, UINT32& count)
    {
        return Walk([&](const DAV_MEMBER&, std::string_view) { return ++count <= most; },
                    [&] { return count <= most; });
    }

    // Sends the response of each member of the tree, or of the collection alone. `first` is the
    // opened collection of the path, which is not opened again.
    TALSTATUS SendMembers(PropFindResponses& responses, const ReplyWriter& out)
    {
        TALSTATUS sent = TAL_STATUS_SUCCESS;
        const TALSTATUS status = Walk(
            [&](const DAV_MEMBER& member, std::string_view name) {
                sent = SendMember(responses, member, name);
                return !Failed(sent) && !out.HasFailed();
            },
            [&] { return !Failed(sent) && !out.HasFailed(); });
        return Failed(sent) ? sent : status;
    }

  private:
    TALSTATUS SendMember(PropFindResponses& responses, const DAV_MEMBER& member,
                         std::string_view name)
    {
        const TreePath::Place here = path_.Here();
        if (!path_.Enter(name))
            return TAL_STATUS_INSUFFICIENT_RESOURCES; // a list without it must not pass for whole
        PropFindObject object;
        object.provider = handler_.pIKestDav3;
        object.tree = &path_;
        object.path = path_.Text();
        object.name = name;
        object.nameAt = object.path.size() - name.size();
        object.info = member.Info;
        const TALSTATUS status = responses.Put(object);
        path_.Leave(here);
        return status;
    }

    // Goes through the members of the path's collection and, for all depths, of all below it.
    template <class Visit, class GoesOn> TALSTATUS Walk(Visit visit, GoesOn goesOn)
    {
        const TreePath::Place top = path_.Here();
        Pending pending;
        for (bool isTop = true;; isTop = false) {
            const TALSTATUS status = WalkCollection(pending, visit);
            if (Failed(status) && (isTop || !IsLeftOut(status)))
                return path_.Leave(top), status;
            if (pending.IsEmpty() || !goesOn())
                return path_.Leave(top), TAL_STATUS_SUCCESS;
            if (!pending.Pop(path_))
                return path_.Leave(top), TAL_STATUS_INSUFFICIENT_RESOURCES;
        }
    }

    // A collection below that has gone meanwhile, or has become a file, has no members to show. One
    // that cannot be read has: a list without them must not pass for whole.
    static bool IsLeftOut(TALSTATUS status)
    {
        return Code(status) == kCodeNotFound || Code(status) == kCodeMethodNotAllowed;
    }

    template <class Visit> TALSTATUS WalkCollection(Pending& pending, Visit visit)
    {
        UNICODE_STRING* const path = path_.Wide();
        if (!path)
            return TAL_STATUS_NAME_TOO_LONG;
        Ref<IKestDAVCollection3> collection;
        if (const TALSTATUS status = OpenCollection(handler_, session_, path, collection);
            Failed(status))
            return status;
        const TreePath::Place here = path_.Here();
        bool isWhole = true;
        const TALSTATUS status = ForEachMember(
            *collection.Get(), members_, [&](const DAV_MEMBER& member, std::string_view name) {
                if (request_.depth == Depth::Infinity && member.Info.Type == Collection)
                    isWhole = pending.Push(here, name);
                return isWhole && visit(member, name);
            });
        return isWhole ? status : TAL_STATUS_INSUFFICIENT_RESOURCES;
    }

    const KESTDAV_HANDLER& handler_;
    const SCHANDLE session_;
    const PropFindRequest& request_;
    TreePath& path_;
    RecordBuffer members_;
};

// The multistatus around the responses. What goes wrong once it has begun is reported to the host,
// which breaks the reply off.
template <class PutResponses>
TALSTATUS SendMultiStatus(IKestIO_5* io, const PropFindRequest& request, SCHANDLE session,
                          PutResponses putResponses)
{
    SetPreferencesApplied(io, request.preferences);
    SendXmlHead(io, 207);
    ReplyWriter out(io);
    out.Put("<D:multistatus xmlns:D=\"DAV:\">\n");
    PropFindResponses responses(out, session, request);
    const TALSTATUS status = putResponses(responses, out);
    if (Failed(status))
        ReportFailure(status);
    out.Put("</D:multistatus>\n");
    return status;
}

TALSTATUS RefuseInfinity(IKestIO_5* io)
{
    return Refuse(io, 403, TAL_STATUS_ACCESS_DENIED, "propfind-finite-depth");
}

// What is there, if it is as the client wants it to be. Conditions count where there is something
// (RFC 9110 section 13.2.1).
TALSTATUS Look(SCHANDLE session, IKestDAV3& provider, TreePath& path,
               const DAV_PRECONDITIONS& preconditions, DAV_OBJECT_INFO& info)
{
    UNICODE_STRING* const wide = path.Wide();
    if (!wide)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    if (const TALSTATUS status = provider.GetInfo(session, wide, &info); Failed(status))
        return status;
    return HasConditions(preconditions) ? provider.Judge(session, wide, &preconditions)
                                        : TAL_STATUS_SUCCESS;
}

TALSTATUS AnswerPath(IKestIO_5* io, SCHANDLE session, const KESTDAV_HANDLER& handler,
                     const PropFindRequest& request, const DAV_PRECONDITIONS& preconditions,
                     TreePath& path)
{
    PropFindObject object;
    object.provider = handler.pIKestDav3;
    object.info = EmptyInfo();
    if (const TALSTATUS status = Look(session, *object.provider, path, preconditions, object.info);
        Failed(status))
        return RefuseMapped(io, status);

    PropFindWalk walk(handler, session, request, path);
    const bool hasMembers = object.IsCollection() && request.depth != Depth::Zero;
    if (hasMembers && request.depth == Depth::Infinity) {
        UINT32 count = 1;
        if (const TALSTATUS status = walk.Count(g_InfinityEntries, count); Failed(status))
            return RefuseMapped(io, status);
        if (count > g_InfinityEntries)
            return RefuseInfinity(io);
    }
    return SendMultiStatus(io, request, session, [&](PropFindResponses& responses, auto& out) {
        object.tree = &path;
        object.path = path.Text();
        object.name = path.Name();
        if (!request.preferences.withoutRoot)
            if (const TALSTATUS status = responses.Put(object); Failed(status))
                return status;
        return hasMembers ? walk.SendMembers(responses, out) : TAL_STATUS_SUCCESS;
    });
}

// -- The module's root: a collection as old as the process, whose members are those of the roots of
//    all providers.

PropFindObject RootObject()
{
    PropFindObject root;
    root.path = "/";
    const STRING moniker = g_MonikerS; // once: an event may change it meanwhile
    root.name = {moniker.Buffer, moniker.Length};
    root.name.remove_prefix(root.name.empty() ? 0 : 1);
    root.info = EmptyInfo();
    root.info.Type = Collection;
    root.info.CreationDate = g_StartupTime;
    root.info.ModificationDate = g_StartupTime;
    return root;
}

template <class Visit> TALSTATUS ForEachHandler(Visit visit)
{
    for (LIST_ENTRY* link = g_HandlerList.Flink; link != &g_HandlerList; link = link->Flink)
        if (const TALSTATUS status = visit(*reinterpret_cast<const KESTDAV_HANDLER*>(link));
            Failed(status))
            return status;
    return TAL_STATUS_SUCCESS;
}

bool HaveAllThirdGeneration()
{
    return !Failed(ForEachHandler([](const KESTDAV_HANDLER& handler) {
        return handler.pIKestDav3 ? TAL_STATUS_SUCCESS : TAL_STATUS_NOT_SUPPORTED;
    }));
}

// A provider without a root of its own has no members to show there.
TALSTATUS UnlessNotFound(TALSTATUS status)
{
    return Code(status) == kCodeNotFound ? TAL_STATUS_SUCCESS : status;
}

TALSTATUS AnswerRoot(IKestIO_5* io, SCHANDLE session, const PropFindRequest& request)
{
    if (const TALSTATUS status = JudgeRoot(session, io, false); Failed(status))
        return RefuseMapped(io, status);
    TreePath path; // the root
    if (request.depth == Depth::Infinity) {
        UINT32 count = 1;
        const TALSTATUS status = ForEachHandler([&](const KESTDAV_HANDLER& handler) {
            return UnlessNotFound(
                PropFindWalk(handler, session, request, path).Count(g_InfinityEntries, count));
        });
        if (Failed(status))
            return RefuseMapped(io, status);
        if (count > g_InfinityEntries)
            return RefuseInfinity(io);
    }
    return SendMultiStatus(io, request, session, [&](PropFindResponses& responses, auto& out) {
        if (!request.preferences.withoutRoot)
            if (const TALSTATUS status = responses.Put(RootObject()); Failed(status))
                return status;
        if (request.depth == Depth::Zero)
            return TAL_STATUS_SUCCESS;
        return ForEachHandler([&](const KESTDAV_HANDLER& handler) {
            return UnlessNotFound(
                PropFindWalk(handler, session, request, path).SendMembers(responses, out));
        });
    });
}

TALSTATUS Answer(IKestIO_5* io, SCHANDLE session, const PropFindRequest& request,
                 const KESTDAV_HANDLER& handler, const UNICODE_STRING* providerPath)
{
    DAV_PRECONDITIONS preconditions{};
    if (const TALSTATUS status = ReadPreconditions(io, preconditions); Failed(status))
        return RefuseMapped(io, status);
    TreePath path;
    if (const TALSTATUS status = path.Set(*providerPath); Failed(status))
        return RefuseMapped(io, status);
    return AnswerPath(io, session, handler, request, preconditions, path);
}

} // namespace

TALSTATUS PropFind(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    if (TALSTATUS status = 0; RefusesCoding(io, status))
        return status;
    ProviderGuard providers; // to the last byte of the reply
    KESTDAV_HANDLER* handler = nullptr;
    UNICODE_STRING path = ProviderPath(*url);
    const bool isRoot = IsMonikerRoot(*url);
    if (!isRoot)
        if (const TALSTATUS status = DavUriToHandler(session, &path, &handler); Failed(status))
            return RefuseMapped(io, status);
    if (isRoot ? !HaveAllThirdGeneration() : !handler->pIKestDav3) {
        providers.Release();
        return KestDavPropFind(session, url, io);
    }

    PropFindRequest request;
    if (const TALSTATUS status = ReadPropFind(io, request); Failed(status))
        return RefuseMapped(io, status);
    return isRoot ? AnswerRoot(io, session, request)
                  : Answer(io, session, request, *handler, &path);
}

} // namespace standard
