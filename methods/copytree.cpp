// SPDX-License-Identifier: Apache-2.0
//
// Copies resources and trees through the objects that the providers open.
#include <algorithm>

#include "methods/copy.h"
#include "methods/delete.h"
#include "methods/statuslist.h"
#include "methods/treepath.h"
#include "support/provider.h"

namespace {

constexpr UINT32 kChildBytes = 2176;

// Bounds of a child's path, in bytes: the path so far and the name on the source's side, those and
// "/" on the destination's.
constexpr UINT32 kLongestSource = 4165;
constexpr UINT32 kLongestDestination = 4167;

// What is carried over beside content. A value that the source would not tell is left alone.
template <class Object> class LiveProperties {
  public:
    void Read(Object& from)
    {
        hasAttributes_ = !Failed(from.GetLiveAttributes(&attributes_));
        hasCreated_ = !Failed(from.GetCreationDate(&created_));
        hasModified_ = !Failed(from.GetModificationDate(&modified_));
    }
    void Write(Object& to) const
    {
        // A provider that keeps one of these otherwise still has the content.
        if (hasAttributes_)
            (void)to.SetLiveAttributes(attributes_);
        if (hasModified_)
            (void)to.SetModificationDate(modified_);
        if (hasCreated_)
            (void)to.SetCreationDate(created_);
    }
    UINT32 Attributes() const { return attributes_; }

  private:
    UINT32 attributes_ = 0;
    DAV_DATETIME created_ = 0;
    DAV_DATETIME modified_ = 0;
    bool hasAttributes_ = false;
    bool hasCreated_ = false;
    bool hasModified_ = false;
};

// Binds the destination to its path, creating it. Without overwrite an existing one is code 22.
TALSTATUS OpenDestination(const CopyJob& job, DavResource& destination)
{
    if (!job.overwrite) {
        const TALSTATUS probe = destination.Associate(job.session, FALSE, kAccessWriteContent, 0,
                                                      job.destination, nullptr);
        if (!Failed(probe))
            return TAL_STATUS_OBJECT_EXISTS;
        if (Code(probe) != kCodeNotFound)
            return probe;
    }
    return destination.Associate(job.session, TRUE, kAccessWriteContent, 1, job.destination,
                                 nullptr);
}

// Moves `size` bytes through `buffer`.
TALSTATUS CopyContent(DavResource& source, DavResource& destination, UINT64 size, char* buffer)
{
    TALSTATUS status = TAL_STATUS_SUCCESS;
    for (UINT64 offset = 0; offset < size;) {
        const auto want = static_cast<UINT32>(std::min<UINT64>(g_RWBlockSize, size - offset));
        UINT32 moved = 0;
        status = source.Read(offset, want, buffer, &moved);
        if (Failed(status))
            return status;
        if (moved == 0) // the source has become shorter
            return TAL_STATUS_END_OF_FILE;
        const UINT32 read = std::min(moved, want);
        status = destination.Write(offset, read, buffer, &moved);
        if (Failed(status))
            return status;
        if (moved == 0) // would go on forever
            return TAL_STATUS_UNSUCCESSFUL;
        offset += std::min(moved, read);
    }
    return status;
}

// The source goes after its copy is complete. A source that stays is no failure of the copy.
void DeleteSource(const CopyJob& job, DavResource& source, UINT32 attributes)
{
    if (attributes & kAttributeReadOnly)
        (void)source.SetLiveAttributes(attributes & ~kAttributeReadOnly);
    source.Close();
    (void)DavNamespace(*job.sourceHandler).Delete(job.session, job.source, nullptr);
}

} // namespace

TALSTATUS CopyAResource2(const CopyJob& job)
{
    if (pITalpl->TalxCompareUnicodeString(job.source, job.destination, FALSE) == 0)
        return TAL_STATUS_SUCCESS;
    DavResource source;
    if (const TALSTATUS status = source.Open(*job.sourceHandler); Failed(status))
        return status;
    if (const TALSTATUS status =
            source.Associate(job.session, FALSE, kAccessReadContent, 1, job.source, nullptr);
        Failed(status))
        return status;
    DavResource destination;
    if (const TALSTATUS status = destination.Open(*job.destinationHandler); Failed(status))
        return status;
    // Before anything is created or overwritten, so that short memory loses nothing.
    const Paged<char> buffer = AllocPaged<char>(g_RWBlockSize);
    if (!buffer)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    if (const TALSTATUS status = OpenDestination(job, destination); Failed(status))
        return status;

    LiveProperties<DavResource> properties;
    properties.Read(source);
    UINT64 size = 0;
    TALSTATUS status = source.GetResourceSize(&size);
    const bool begun = !Failed(status) && size != 0;
    if (begun)
        status = CopyContent(source, destination, size, buffer.get());
    properties.Write(destination);
    destination.Close(); // the provider commits here

    if (Failed(status)) {
        if (begun)
            (void)DavNamespace(*job.destinationHandler)
                .Delete(job.session, job.destination, nullptr);
        return status;
    }
    if (job.deleteSource)
        DeleteSource(job, source, properties.Attributes());
    return status;
}

namespace {

// Creates the destination collection. `existed` says that it was there; `status` is then the
// provider's. False when the copy ends with `status`.
bool MakeDestination(const CopyJob& job, TALSTATUS& status, bool& existed)
{
    status = DavNamespace(*job.destinationHandler).MkCol(job.session, job.token, job.destination);
    if (!job.overwrite)
        return !Failed(status);
    existed = Code(status) == kCodeObjectExists;
    if (!existed) // kept: overwriting merges into an existing collection only
        status = TAL_STATUS_CONFLICT;
    return existed;
}

TALSTATUS OpenCollection(const CopyJob& job, const KESTDAV_HANDLER& handler, UNICODE_STRING* path,
                         DavCollection& collection)
{
    if (const TALSTATUS status = collection.Open(handler); Failed(status))
        return status;
    return collection.Associate(job.session, path, job.token);
}

// Copies the children. Code 38 when a child's path grows too long, else 0.
TALSTATUS CopyChildren(const CopyJob& job, DavCollection& source, DAV_COMMON_ENUM* child,
                       LIST_ENTRY* multiStatus)
{
    const UINT16 sourceLength = job.source->Length;
    const UINT16 destinationLength = job.destination->Length;
    TALSTATUS result = TAL_STATUS_SUCCESS;
    UINT32 size = kChildBytes;
    for (TALSTATUS status = source.GetFirstChild(&size, child); !Failed(status);
         size = kChildBytes, status = source.GetNextChild(&size, child)) {
        CutPath(*job.source, sourceLength);
        CutPath(*job.destination, destinationLength);
        const UINT32 name = child->DisplayNameLength;
        if (name > kChildBytes - offsetof(DAV_COMMON_ENUM, DisplayName) ||
            sourceLength + name > kLongestSource ||
            name + destinationLength + sizeof(WCHAR) > kLongestDestination) {
            result = TAL_STATUS_NAME_TOO_LONG;
            break;
        }
        AppendChild(*job.source, child->DisplayName, name);
        AppendChild(*job.destination, child->DisplayName, name);
        // Kept: a child that fails does not stop the walk and is not reported.
        if (child->Type == Collection)
            (void)CopyACollection(job, multiStatus);
        else
            (void)CopyAResource2(job);
    }
    CutPath(*job.source, sourceLength);
    CutPath(*job.destination, destinationLength);
    return result;
}

// Copies properties and children between the collections. 0 when the walk came to its end.
TALSTATUS FillCollection(const CopyJob& job, bool existed, DAV_COMMON_ENUM* child,
                         LIST_ENTRY* multiStatus)
{
    DavCollection source;
    if (const TALSTATUS status = OpenCollection(job, *job.sourceHandler, job.source, source);
        Failed(status))
        return status;
    DavCollection destination;
    if (const TALSTATUS status =
            OpenCollection(job, *job.destinationHandler, job.destination, destination);
        Failed(status))
        return status;
    if (!existed) {
        LiveProperties<DavCollection> properties;
        properties.Read(source);
        properties.Write(destination);
    }
    return CopyChildren(job, source, child, multiStatus);
}

} // namespace

TALSTATUS CopyACollection(const CopyJob& job, LIST_ENTRY* multiStatus)
{
    const Paged<char> child = AllocPaged<char>(kChildBytes);
    if (!child)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    TALSTATUS result = TAL_STATUS_SUCCESS;
    bool existed = false;
    if (!MakeDestination(job, result, existed))
        return result;
    if (const TALSTATUS status = FillCollection(
            job, existed, reinterpret_cast<DAV_COMMON_ENUM*>(child.get()), multiStatus);
        Failed(status))
        return status;
    if (!Failed(result) && job.deleteSource) {
        StatusList results; // kept: also when children were left out
        (void)KestDavDeleteCollection(job.sourceHandler, job.session, kDeleteAllFlags, job.token,
                                      job.source, results.Head());
    }
    return result;
}

TALSTATUS CopyByType(DAV_TYPE type, const CopyJob& job)
{
    if (type != Collection)
        return CopyAResource2(job);
    StatusList results;
    return CopyACollection(job, results.Head());
}
