// SPDX-License-Identifier: Apache-2.0
//
// PROPPATCH (RFC 4918 section 9.2): all changes of properties in document order, or none.
#include "standard/answer.h"
#include "standard/content_coding.h"
#include "standard/failures.h"
#include "standard/handlers.h"
#include "standard/lock_element.h"
#include "standard/object.h"
#include "standard/preconditions.h"
#include "standard/property_changes.h"
#include "standard/propfind_request.h"
#include "standard/tree_path.h"
#include "support/handlers.h"
#include "support/provider.h"
#include "support/reply.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace standard {

namespace {

TALSTATUS ReadChanges(IKestIO_5* io, PropertyChanges& changes)
{
    XmlBodyText body;
    if (const TALSTATUS status = ReadBody(io, body); Failed(status))
        return status;
    if (const TALSTATUS status = changes.Read(body.Text(), "propertyupdate"); Failed(status))
        return status;
    return changes.Count() != 0 ? TAL_STATUS_SUCCESS : TAL_STATUS_INVALID_REQUEST;
}

// What is asked of the path beside the changes that a provider need not be asked for.
TALSTATUS JudgeRefused(SCHANDLE session, IKestDAV3& provider, UNICODE_STRING* path,
                       const DAV_PRECONDITIONS& preconditions, DAV_OBJECT_INFO& info)
{
    if (const TALSTATUS status = provider.GetInfo(session, path, &info); Failed(status))
        return status;
    return provider.Judge(session, path, &preconditions);
}

// What a client that wants no more is told of a success (RFC 8144 section 2.2).
TALSTATUS SendMinimal(IKestIO_5* io, Preferences preferences)
{
    preferences.withoutRoot = false; // which says nothing here
    SetPreferencesApplied(io, preferences);
    return Reply(io, 204, TAL_STATUS_SUCCESS);
}

TALSTATUS SendOutcome(IKestIO_5* io, const UNICODE_STRING& path, bool isCollection,
                      PropertyChanges& changes)
{
    TreePath href;
    if (const TALSTATUS status = href.Set(path); Failed(status))
        return RefuseMapped(io, status);
    SendXmlHead(io, 207);
    ReplyWriter out(io);
    out.Put("<D:multistatus xmlns:D=\"DAV:\">\n<D:response><D:href>");
    PutHref(out, href.Text(), isCollection);
    out.Put("</D:href>");
    changes.PutOutcome(out, changes.HasFailures() ? 424 : 200);
    out.Put("</D:response>\n</D:multistatus>\n");
    return TAL_STATUS_SUCCESS;
}

// Only the href's last "/" needs it: the provider need not describe what it has changed for that.
bool IsCollection(SCHANDLE session, UNICODE_STRING* path, const KESTDAV_HANDLER& handler)
{
    DAV_TYPE type = Resource;
    return !Failed(DavNamespace(handler).GetType(session, path, &type)) && type == Collection;
}

TALSTATUS PatchPath(SCHANDLE session, UNICODE_STRING* path, const KESTDAV_HANDLER& handler,
                    IKestIO_5* io)
{
    PropertyChanges changes;
    if (const TALSTATUS status = ReadChanges(io, changes); Failed(status))
        return RefuseMapped(io, status);
    DAV_PRECONDITIONS preconditions{};
    if (const TALSTATUS status = ReadPreconditions(io, preconditions); Failed(status))
        return RefuseMapped(io, status);
    Preferences preferences;
    if (const TALSTATUS status = ReadPreferences(io, preferences); Failed(status))
        return RefuseMapped(io, status);

    IKestDAV3& provider = *handler.pIKestDav3;
    if (changes.HasFailures()) { // nothing is changed then
        DAV_OBJECT_INFO info = TypeOnly();
        if (const TALSTATUS status = JudgeRefused(session, provider, path, preconditions, info);
            Failed(status))
            return RefuseMapped(io, status);
        return SendOutcome(io, *path, info.Type == Collection, changes);
    }
    DAV_CHANGE change = OutcomeOnly();
    Failures failures;
    const TALSTATUS status = provider.PatchProperties(
        session, path, &preconditions, changes.Count(), changes.Records(), &failures, &change);
    if (Failed(status) && !changes.HasFailures())
        return AnswerFailure(io, failures.Described(session, *path, status), failures, *path);
    if (!Failed(status) && preferences.isMinimal)
        return SendMinimal(io, preferences);
    return SendOutcome(io, *path, IsCollection(session, path, handler), changes);
}

} // namespace

TALSTATUS PropPatch(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    if (IsMonikerRoot(*url))
        return Refuse(io, 403, TAL_STATUS_ACCESS_DENIED, "cannot-modify-protected-property");
    if (TALSTATUS status = 0; RefusesCoding(io, status))
        return status;
    ProviderGuard providers;
    UNICODE_STRING path = ProviderPath(*url);
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = DavUriToHandler(session, &path, &handler); Failed(status))
        return RefuseMapped(io, status);
    if (handler->pIKestDav3)
        return PatchPath(session, &path, *handler, io);
    providers.Release();
    return KestDavPropPatch(session, url, io);
}

} // namespace standard
