// SPDX-License-Identifier: Apache-2.0
//
// Copying a whole tree, or nothing.
#include "providers/filestore/treecopy.h"

#include <cerrno>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/platform.h"
#include "providers/filestore/upload.h"

namespace filestore {

namespace {

// The status for a member that is there and cannot be copied: never "not found", which is said of
// the whole.
TALSTATUS MemberStatus(int error)
{
    const TALSTATUS status = StatusFromErrno(error);
    return Code(status) == kCodeNotFound ? Failure(kCodeUnsuccessful) : status;
}

const GoOn kUntilCancelled = [] { return !call::IsCancelled(); };

} // namespace

std::string TreeCopy::TmpPath() const
{
    return std::string(kPrivateDirectory) + "/tmp/" + tmpName_;
}

TreeCopy::~TreeCopy()
{
    if (tmpName_.empty())
        return;
    if (hasRows_) // what stays belongs to a name that never comes again
        (void)Protected([this] {
            std::unique_ptr<MetadataSession> session;
            const TALSTATUS status = Store::OpenMetadata(to_, &session);
            return Failed(status) ? status : session->ForgetTree(TmpPath());
        });
    to_.Abandon(std::move(tmpName_));
    store_.WakePurger(); // a tree is removed in the background
}

DirectoryEntry TreeCopy::Made() const
{
    DirectoryEntry place;
    place.directory = tmp_;
    place.leaf = tmpName_;
    place.path = TmpPath();
    place.exists = true;
    place.info = made_;
    return place;
}

TALSTATUS TreeCopy::Make(const Target& source, std::string_view destination,
                         const CopyExtent& extent)
{
    Target target = source;
    OpenFile object;
    sourcePath_ = path_ = source.path.View();
    destinationBytes_ = destination.size();
    extent_ = extent;
    if (const TALSTATUS status = store_.OpenExisting(&target, OpenFor::Reading, &object, &info_);
        Failed(status))
        return status;
    const std::string name = to_.UniqueName();
    if (const int error = to_.OpenParent(std::string(kPrivateDirectory) + "/tmp/" + name, &tmp_))
        return StatusFromErrno(error);
    tmpName_ = name;
    if (!sourcePath_.empty())
        trees_.push_back(sourcePath_);
    TALSTATUS status = CopyAll(std::move(object));
    if (!Failed(status))
        status = MemberStatus(to_.Fs().InspectAt(tmp_->Get(), tmpName_.c_str(), &made_));
    return Failed(status) ? status : CopyRows();
}

TALSTATUS TreeCopy::CopyAll(OpenFile source)
{
    TALSTATUS status = Copy(std::move(source), info_, *tmp_, tmpName_);
    while (!Failed(status) && !levels_.empty()) {
        Level& level = *levels_.back();
        path_.resize(level.pathBytes);
        if (level.next < level.names.size()) {
            status = CopyNext(&level);
        } else {
            status = Leave(level);
            levels_.pop_back();
        }
    }
    levels_.clear();
    return status;
}

TALSTATUS TreeCopy::Copy(OpenFile source, const FileInfo& info, const Directory& into,
                         const std::string& leaf)
{
    source_.Add(std::string_view(path_).substr(sourcePath_.size()), info);
    return info.isDirectory ? Enter(std::move(source), info, into, leaf)
                            : CopyFile(source.Get(), info, into, leaf);
}

TALSTATUS TreeCopy::CopyFile(FileHandle source, const FileInfo& info, const Directory& into,
                             const std::string& leaf)
{
    FileSystem& fs = to_.Fs();
    OpenFile copy;
    int error = fs.CreateFile(into.Get(), leaf.c_str(), copy.Out(fs));
    if (error == 0)
        error = fs.CopyContent(source, copy.Get(), info.size, kUntilCancelled);
    if (error == 0)
        KeepOwner(info, copy.Get());
    if (error == 0 && info.mode != fs.NewFileMode())
        error = fs.SetMode(copy.Get(), info.mode & 0777);
    if (error)
        return MemberStatus(error);
    if (const TALSTATUS status = CopyDates(source, info, copy.Get(), into); Failed(status))
        return status;
    if (to_.Sync() != SyncLevel::None)
        error = fs.Sync(copy.Get(), to_.Sync() == SyncLevel::Full);
    return MemberStatus(error);
}

TALSTATUS TreeCopy::Enter(OpenFile source, const FileInfo& info, const Directory& into,
                          const std::string& leaf)
{
    FileSystem& fs = to_.Fs();
    auto level = std::make_unique<Level>();
    level->info = info;
    level->into = &into;
    level->pathBytes = path_.size();
    level->made.volume = &to_;
    int error = fs.MakeDirectory(into.Get(), leaf.c_str());
    if (error == 0)
        error = fs.OpenAt(into.Get(), leaf.c_str(), OpenFor::Directory, level->made.file.Out(fs));
    if (error)
        return MemberStatus(error);
    NameCollector found;
    if (extent_.members)
        error = from_.Fs().List(source.Get(), found);
    level->names = std::move(found.names);
    level->source = std::move(source);
    levels_.push_back(std::move(level));
    return MemberStatus(error);
}

// After the members: making them changes the date, and needs the permission.
TALSTATUS TreeCopy::Leave(const Level& level)
{
    KeepOwner(level.info, level.made.Get());
    if (const int error = to_.Fs().SetMode(level.made.Get(), level.info.mode))
        return MemberStatus(error);
    if (const TALSTATUS status =
            CopyDates(level.source.Get(), level.info, level.made.Get(), *level.into);
        Failed(status))
        return status;
    return MemberStatus(to_.SyncNames(level.made.Get()));
}

TALSTATUS TreeCopy::CopyNext(Level* level)
{
    const std::string& name = level->names[level->next++];
    const bool isTop = path_.empty(); // of the volume, whose own private directory stays with it
    if (IsPrivateName(name) && (!extent_.unserved || isTop))
        return TAL_STATUS_SUCCESS;
    if (!HasRoomFor(name))
        return Failure(kCodeNameTooLong);
    if (call::IsCancelled())
        return Failure(kCodeUnsuccessful);
    if (isTop)
        trees_.push_back(name);
    path_.append(isTop ? "" : "/").append(name);
    return CopyMember(level->source.Get(), name, level->made);
}

// Only some accounts may give files away.
void TreeCopy::KeepOwner(const FileInfo& info, FileHandle copy) const
{
    if (extent_.unserved)
        (void)to_.Fs().SetOwner(copy, info.owner, info.group);
}

// A path that is too long could not be reached any more.
bool TreeCopy::HasRoomFor(const std::string& name) const
{
    const size_t now = path_.size() + 1 + name.size();
    return now <= kMaxPathBytes && now - sourcePath_.size() + destinationBytes_ <= kMaxPathBytes;
}

TALSTATUS TreeCopy::CopyMember(FileHandle directory, const std::string& name, const Directory& into)
{
    FileSystem& fs = from_.Fs();
    FileInfo info;
    int error = fs.InspectAt(directory, name.c_str(), &info);
    if (error)
        return error == ENOENT ? TAL_STATUS_SUCCESS : MemberStatus(error);
    if (info.isLink) {
        source_.Add(std::string_view(path_).substr(sourcePath_.size()), info);
        return CopyLink(directory, name, into);
    }
    if (!info.isDirectory && !info.isRegular) // a pipe, a socket, a device
        return extent_.unserved ? Failure(kCodeAccessDenied) : TAL_STATUS_SUCCESS;
    OpenFile object;
    error = fs.OpenAt(directory, name.c_str(), OpenFor::Reading, object.Out(fs));
    if (error == ENOENT)
        return TAL_STATUS_SUCCESS;
    if (error == 0) // what is open may be another than was looked at
        error = fs.InspectFully(object.Get(), &info);
    return error ? MemberStatus(error) : Copy(std::move(object), info, into, name);
}

// Followed to a file; a directory would be copied twice, or without end.
TALSTATUS TreeCopy::CopyLink(FileHandle directory, const std::string& name, const Directory& into)
{
    FileSystem& fs = from_.Fs();
    OpenFile object;
    FileInfo info;
    int error = fs.Open(path_.c_str(), OpenFor::Locating, object.Out(fs));
    if (error == 0)
        error = fs.Inspect(object.Get(), &info);
    if (error == 0 && info.isRegular) {
        error = fs.Open(path_.c_str(), OpenFor::Reading, object.Out(fs));
        return error ? MemberStatus(error) : CopyFile(object.Get(), info, into, name);
    }
    if (error && error != ENOENT && error != ENOTDIR && error != ELOOP && error != EXDEV &&
        error != EACCES)
        return MemberStatus(error);
    if (!extent_.unserved)
        return TAL_STATUS_SUCCESS;
    std::string leadsTo;
    error = fs.ReadLink(directory, name.c_str(), &leadsTo);
    if (error == 0)
        error = to_.Fs().MakeLink(leadsTo.c_str(), into.Get(), name.c_str());
    return MemberStatus(error);
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
    return MemberStatus(error);
}

// Puts a copy of the metadata under the path at which the copy stands now.
TALSTATUS TreeCopy::CopyRows()
{
    if (!from_.MayHaveProperties())
        return TAL_STATUS_SUCCESS;
    std::unique_ptr<MetadataSession> from, to;
    TALSTATUS status = Store::OpenMetadata(from_, &from);
    if (!Failed(status))
        status = Store::OpenMetadata(to_, &to);
    const auto copy = [&](std::string_view at, const Property* property) {
        if (property && !extent_.properties)
            return TAL_STATUS_SUCCESS;
        if (!hasRows_) { // a volume without any is not held up
            hasRows_ = true;
            if (const TALSTATUS begun = to->Begin(); Failed(begun))
                return begun;
        }
        const std::string_view below = at.substr(sourcePath_.size());
        source_.AddRow(below, property);
        const std::string place =
            TmpPath().append(sourcePath_.empty() && !below.empty() ? "/" : "").append(below);
        return property ? to->SetProperty(place, {property->space, property->name}, property->value)
                        : to->SetHidden(place, true);
    };
    if (!Failed(status) && sourcePath_.empty())
        status = from->ExportTree({}, false, copy);
    for (const std::string& tree : trees_)
        if (!Failed(status))
            status = from->ExportTree(tree, extent_.members && info_.isDirectory, copy);
    return Failed(status) || !hasRows_ ? status : to->Commit();
}

} // namespace filestore
