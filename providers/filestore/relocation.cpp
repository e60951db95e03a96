// SPDX-License-Identifier: Apache-2.0
//
// COPY and MOVE as steps of the module, and how far one has come.
#include "providers/filestore/relocation.h"

#include <cerrno>

#include <kest/io.h>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/platform.h"
#include "providers/filestore/requeststate.h"
#include "providers/filestore/trees.h"

namespace filestore::relocation {

namespace {

void TakeFailure(TALSTATUS status)
{
    if (!IsRunning())
        return;
    if (RequestState* const state = RequestState::Current())
        state->relocation.hasFailed = true; // without it, JudgeDelete refuses for want of memory
    call::ReportFailure(status);
}

// Where the running COPY copies from. False when that is not in a volume of the store.
bool LocateSource(const Store& store, Target* out)
{
    const std::string path = call::Path();
    const size_t location = ModulePath().size();
    return path.size() > location &&
           !Failed(store.Locate(std::string_view(path).substr(location), out)) && !out->IsRoot();
}

TALSTATUS Exists(const Target& target, bool* out)
{
    DirectoryRef parent;
    FileInfo info;
    int error = target.volume->OpenParent(target.path.View(), &parent);
    if (error == ENOENT || error == ENOTDIR)
        return Failure(kCodeConflict);
    if (error == 0)
        error = target.volume->Fs().InspectAt(
            parent->Get(), std::string(LeafOf(target.path.View())).c_str(), &info);
    *out = error == 0;
    return error == ENOENT ? TAL_STATUS_SUCCESS : StatusFromErrno(error);
}

} // namespace

bool IsRunning()
{
    const UINT32 method = call::Method();
    return method == KestMethodCopy || method == KestMethodMove;
}

TALSTATUS Step(TALSTATUS status)
{
    if (Failed(status) && Code(status) != kCodeNotFound && Code(status) != kCodeNoMoreEntries)
        TakeFailure(status);
    return status;
}

TALSTATUS InnerStep(TALSTATUS status)
{
    if (Failed(status))
        TakeFailure(status);
    return status;
}

bool HasFailed()
{
    const RequestState* const state = RequestState::Find();
    return state && state->relocation.hasFailed;
}

void NoteDropped(const Volume& volume, std::string_view path)
{
    RequestState* const state = IsRunning() ? RequestState::Current() : nullptr;
    if (!state)
        return;
    state->relocation.volume = &volume;
    state->relocation.dropped = path;
}

std::optional<TALSTATUS> JudgeDelete(const Target& target)
{
    if (!IsRunning())
        return std::nullopt;
    RequestState* const state = RequestState::Current();
    if (!state)
        return Failure(kCodeInsufficientResources);
    RequestState::Relocation& relocation = state->relocation;
    if (relocation.volume == target.volume && relocation.dropped == target.path.View() &&
        !target.IsRoot())
        return TAL_STATUS_SUCCESS;
    if (relocation.hasFailed)
        return Failure(kCodeAccessDenied);
    return std::nullopt;
}

std::optional<TALSTATUS> CopyInstead(Store& store, const Guard& guard, const Target& target)
{
    if (call::Method() != KestMethodCopy)
        return std::nullopt;
    RequestState* const state = RequestState::Current();
    IKestIO_5* const request = call::Request();
    Target source;
    if (!state || !request)
        return Failure(kCodeInsufficientResources);
    state->relocation.isCopied = false; // the host may have the module try again
    if (!LocateSource(store, &source) ||
        !call::IsAboutToCreate("/" + target.volume->Name() + "/" + target.path.CStr()))
        return std::nullopt;
    BOOLEAN overwrite = FALSE;
    INT32 depth = 0;
    UNICODE_STRING* destination = nullptr;
    TALSTATUS status = request->GetCopyInfo(&overwrite, &depth, &destination);
    bool exists = false;
    if (!Failed(status))
        status = Exists(target, &exists);
    if (Failed(status))
        return status;
    // One that exists is refused with code 22, and so will the request be: it is not to have
    // changed anything by then.
    state->relocation.isCopied = exists;
    if (exists || overwrite)
        return Failure(exists ? kCodeObjectExists : kCodeConflict);
    CopyExtent extent;
    extent.properties = false; // kept: a COPY leaves them behind
    status = CopyTree(store, guard, false, extent, source, target);
    state->relocation.isCopied = !Failed(status);
    return status;
}

bool IsCopied()
{
    const RequestState* const state = RequestState::Find();
    return state && state->relocation.isCopied;
}

} // namespace filestore::relocation
