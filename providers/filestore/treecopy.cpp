// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/treecopy.h"

#include <cerrno>

#include "providers/filestore/failures.h"
#include "providers/filestore/platform.h"

namespace filestore {

namespace {

class NameCollector final : public NameSink {
  public:
    bool OnName(std::string_view name) override
    {
        if (!IsPrivateName(name))
            names.emplace_back(name);
        return true;
    }
    std::vector<std::string> names;
};

} // namespace

TreeCopy::~TreeCopy()
{
    if (tmpName_.empty())
        return;
    FileSystem& fs = to_.Fs();
    if (fs.RemoveFile(to_.Tmp(), tmpName_.c_str()) == 0)
        return;
    // A tree is removed in the background; if that cannot be, the next start finds it.
    (void)fs.Rename(to_.Tmp(), tmpName_.c_str(), to_.Purge(), tmpName_.c_str(), false);
    store_.WakePurger();
}

TALSTATUS TreeCopy::Make(const Target& source, bool shallow)
{
    sourcePath_ = source.path.View();
    shallow_ = shallow;
    tmpName_ = to_.UniqueName();
    const std::string path = ".kest/tmp/" + tmpName_;
    DirectoryRef tmp;
    if (const int error = to_.OpenParent(path, &tmp))
        return StatusFromErrno(error);
    return CopyObject(sourcePath_, *tmp, path, tmpName_);
}

// Copies the object at `source` to `leaf` in `directory`, which has the path `path`.
TALSTATUS TreeCopy::CopyObject(const std::string& source, const Directory& directory,
                               const std::string& path, const std::string& leaf)
{
    Target target;
    OpenFile object;
    FileInfo info;
    target.volume = &from_;
    if (!target.path.Assign(source))
        return Failure(kCodeNameTooLong);
    if (const TALSTATUS status = store_.OpenExisting(&target, OpenFor::Reading, &object, &info);
        Failed(status))
        return status;
    const bool isTop = source == sourcePath_;
    if (isTop)
        isDirectory_ = info.isDirectory;
    if (!info.isDirectory)
        return CopyFile(object.Get(), info, directory, leaf);
    if (const int error = to_.Fs().MakeDirectory(directory.Get(), leaf.c_str()))
        return StatusFromErrno(error);
    if (!isTop || !shallow_)
        if (const TALSTATUS status = CopyMembers(object.Get(), source, path); Failed(status))
            return status;
    // After the members: making them changes the date, and needs the permission.
    OpenFile copy;
    int error = to_.Fs().Open(path.c_str(), OpenFor::Locating, copy.Out(to_.Fs()));
    if (error == 0)
        error = to_.Fs().SetMode(copy.Get(), info.mode);
    if (error)
        return StatusFromErrno(error);
    return CopyDates(object.Get(), info, copy.Get(), directory);
}

TALSTATUS TreeCopy::CopyMembers(FileHandle source, const std::string& sourcePath,
                                const std::string& path)
{
    NameCollector found;
    if (const int error = from_.Fs().List(source, found))
        return StatusFromErrno(error);
    Directory directory;
    if (const int error =
            to_.Fs().Open(path.c_str(), OpenFor::Directory, directory.file.Out(to_.Fs())))
        return StatusFromErrno(error);
    for (const std::string& name : found.names) {
        FileInfo info;
        const std::string child = sourcePath.empty() ? name : sourcePath + "/" + name;
        if (from_.Fs().InspectAt(source, name.c_str(), &info) != 0)
            continue; // gone meanwhile
        if (info.isLink) {
            // Followed to a file; a directory would be copied twice, or without end.
            OpenFile real;
            Target target;
            target.volume = &from_;
            if (!target.path.Assign(child) ||
                Failed(store_.OpenExisting(&target, OpenFor::Locating, &real, &info)) ||
                info.isDirectory)
                continue;
        } else if (!info.isDirectory && !info.isRegular) {
            continue;
        }
        const TALSTATUS status = CopyObject(child, directory, path + "/" + name, name);
        if (Failed(status) && Code(status) != kCodeNotFound)
            return status;
    }
    return TAL_STATUS_SUCCESS;
}

TALSTATUS TreeCopy::CopyFile(FileHandle source, const FileInfo& info, const Directory& directory,
                             const std::string& leaf)
{
    FileSystem& fs = to_.Fs();
    OpenFile copy;
    int error = fs.CreateFile(directory.Get(), leaf.c_str(), copy.Out(fs));
    if (error == 0)
        error = fs.CopyContent(source, copy.Get(), info.size);
    if (error == 0 && info.mode != fs.NewFileMode())
        error = fs.SetMode(copy.Get(), info.mode & 0777);
    if (error == 0 && to_.Sync() != SyncLevel::None)
        error = fs.Sync(copy.Get(), to_.Sync() == SyncLevel::Full);
    return error ? StatusFromErrno(error) : CopyDates(source, info, copy.Get(), directory);
}

TALSTATUS TreeCopy::CopyDates(FileHandle source, const FileInfo& info, FileHandle copy,
                              const Directory& directory)
{
    UINT64 created = 0;
    int error = from_.GetCreated(source, info, &created);
    if (error == 0)
        error = to_.KeepCreated(copy, directory, created);
    if (error == 0 || error == EOPNOTSUPP) // no tags there: the date is the disk's
        error = to_.Fs().SetModified(copy, info.modified);
    return StatusFromErrno(error);
}

TALSTATUS TreeCopy::CopyProperties(MetadataSession& to, const std::string& path)
{
    if (!from_.MayHaveProperties())
        return TAL_STATUS_SUCCESS;
    std::unique_ptr<MetadataSession> from;
    if (const TALSTATUS status = Store::OpenMetadata(from_, &from); Failed(status))
        return status;
    return from->ExportTree(
        sourcePath_, !shallow_, [&](std::string_view at, const Property* property) {
            const std::string place = path + std::string(at.substr(sourcePath_.size()));
            return property ? to.SetProperty(place, property->name, property->value)
                            : to.SetHidden(place, true);
        });
}

TALSTATUS TreeCopy::Publish(const Guard& guard, const Directory& directory, const std::string& path,
                            bool replace)
{
    std::unique_ptr<MetadataSession> session;
    TALSTATUS status = Store::OpenMetadata(to_, &session);
    if (Failed(status))
        return status;
    const bool hasMetadata =
        to_.MayHaveLocks() || to_.MayHaveProperties() || from_.MayHaveProperties();
    if (hasMetadata) {
        status = session->Begin();
        if (!Failed(status))
            status = guard.CheckLocks(*session, path, Reach::Tree);
        if (!Failed(status))
            status = session->ForgetTree(path);
        if (!Failed(status))
            status = CopyProperties(*session, path);
        if (Failed(status))
            return status;
    }
    const std::string leaf(LeafOf(path));
    (void)to_.ExpectKeptDates(directory); // without it: the disk's dates
    if (const int error =
            to_.Fs().Rename(to_.Tmp(), tmpName_.c_str(), directory.Get(), leaf.c_str(), replace))
        return StatusFromErrno(error);
    tmpName_.clear();
    return hasMetadata ? session->Commit() : TAL_STATUS_SUCCESS;
}

} // namespace filestore
