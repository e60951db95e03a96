// SPDX-License-Identifier: Apache-2.0
//
// One volume and its private directory.
#include "providers/filestore/volume.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "providers/filestore/failures.h"
#include "providers/filestore/open_directories.h"
#include "providers/filestore/platform.h"
#include "providers/filestore/rename_recovery.h"

namespace filestore {

namespace {

constexpr char kCreatedTag[] = "user.kest.created"; // 8 bytes, little-endian, as DAV_DATETIME
constexpr char kDatesTag[] = "user.kest.dates";     // on a directory: a child may have the above
constexpr std::string_view kLockSuffix = ".lock";
constexpr size_t kMostAbandoned = 1000;     // the next start finds the others
constexpr UINT64 kReservePiece = 64 * 1024; // some ten changes of the database

} // namespace

Volume::Volume(std::string name, std::unique_ptr<FileSystem> fs, SyncLevel sync,
               const MetadataOpener& openMetadata)
    : name_(std::move(name)), fs_(std::move(fs)), sync_(sync)
{
    std::string reason;
    if (const int error = Prepare())
        reason = std::strerror(error);
    else
        reason = PrepareMetadata(openMetadata);
    if (reason.empty()) {
        abandoned_.reserve(kMostAbandoned);
        SkipKeptIds();
        if (RecoverIntents())
            SweepTmp();
        return;
    }
    for (FileHandle* h : {&tmp_, &deleted_, &purge_, &tokenLock_})
        OpenFile(*fs_, std::exchange(*h, kNoFile)).Reset();
    Log(kLogWarning, "volume '" + name_ + "' is served for reading only: its directory '" +
                         std::string(kPrivateDirectory) + "' cannot be used (" + reason + ")");
}

// Empty on success, else why not.
std::string Volume::PrepareMetadata(const MetadataOpener& openMetadata)
{
    char directory[256];
    if (const int error = fs_->ExternalPath(kPrivateDirectory.data(), directory, sizeof directory))
        return std::strerror(error);
    std::string reason;
    meta_ = openMetadata(directory, sync_ != SyncLevel::None, &reason);
    return meta_ ? std::string() : reason.empty() ? "no metadata" : reason;
}

// Where that cannot be told, it is.
bool Volume::IsAlive(const std::string& token) const
{
    OpenFile lock;
    const std::string path =
        std::string(kPrivateDirectory) + "/tmp/" + token + std::string(kLockSuffix);
    const int error = fs_->Open(path.c_str(), OpenFor::Reading, lock.Out(*fs_));
    return error ? error != ENOENT : fs_->TryLock(lock.Get()) != 0;
}

// Where the metadata was lost, deleted files are there that it does not know: new ones must not
// come under their numbers.
void Volume::SkipKeptIds()
{
    NameCollector found;
    std::unique_ptr<MetadataSession> session;
    if (fs_->List(deleted_, found) != 0)
        return;
    INT64 highest = 0;
    for (const std::string& name : found.names) {
        INT64 id = 0;
        const auto parsed = std::from_chars(name.data(), name.data() + name.size(), id);
        if (parsed.ec == std::errc() && parsed.ptr == name.data() + name.size())
            highest = std::max(highest, id);
    }
    // Should it fail, a deletion finds its number's place taken, and says so.
    if (highest && !Failed(meta_->Open(&session)))
        (void)session->SkipDeletedIds(highest);
}

// Ends the renames that processes began and did not live to record. False when one of them is left
// for later: what lies in the private directories may be part of it.
bool Volume::RecoverIntents()
{
    std::unique_ptr<MetadataSession> session;
    std::vector<RenameIntent> intents;
    if (Failed(meta_->Open(&session)) || Failed(session->Intents(&intents)))
        return false;
    bool areRecovered = true;
    for (RenameIntent& intent : intents)
        if (!IsAlive(intent.owner) && Failed(Recover(*session, intent))) {
            areRecovered = false;
            unfinished_.Add(std::move(intent), false);
        }
    return areRecovered;
}

TALSTATUS Volume::Recover(MetadataSession& session, const RenameIntent& intent) const
{
    return RecoverRename(*fs_, session, intent, sync_ != SyncLevel::None, MutexOf(intent.from),
                         MutexOf(intent.to));
}

// A copy that has not got its name after all goes.
TALSTATUS Volume::RecoverAgain(const RenameIntent& intent)
{
    return Protected([&] {
        std::unique_ptr<MetadataSession> session;
        TALSTATUS status = meta_->Open(&session);
        if (!Failed(status))
            status = Recover(*session, intent);
        if (!Failed(status) && intent.from.starts_with(".kest/tmp/"))
            Abandon(std::string(LeafOf(intent.from)));
        return status;
    });
}

TALSTATUS Volume::RecoverAround(std::string_view path)
{
    if (unfinished_.IsEmpty())
        return TAL_STATUS_SUCCESS;
    return unfinished_.RecoverAround(
        path, [this](const RenameIntent& intent) { return RecoverAgain(intent); });
}

void Volume::RecoverAll() noexcept
{
    unfinished_.RecoverAll([this](const RenameIntent& intent) { return RecoverAgain(intent); });
}

Volume::~Volume()
{
    meta_.reset();
    if (tmp_ != kNoFile)
        (void)Protected([this] { // else the next start
            return StatusFromErrno(
                fs_->RemoveFile(tmp_, (token_ + std::string(kLockSuffix)).c_str()));
        });
    for (const FileHandle h : {tmp_, deleted_, purge_, uploads_, reserve_, tokenLock_})
        if (h != kNoFile)
            fs_->Close(h);
}

int Volume::OpenPrivate(std::string_view name, FileHandle* out)
{
    const std::string path = std::string(kPrivateDirectory) + "/" + std::string(name);
    int error = fs_->Open(path.c_str(), OpenFor::Directory, out);
    if (error != ENOENT)
        return error;
    OpenFile parent;
    if ((error = fs_->Open(kPrivateDirectory.data(), OpenFor::Directory, parent.Out(*fs_))))
        return error;
    error = fs_->MakeDirectory(parent.Get(), std::string(name).c_str());
    if (error == 0) // what is put into it and synced must not go with its name
        error = SyncNames(parent.Get());
    return error && error != EEXIST ? error : fs_->Open(path.c_str(), OpenFor::Directory, out);
}

int Volume::OpenUploads(bool make, FileHandle* out)
{
    const std::lock_guard lock(uploadsMutex_);
    if (uploads_ == kNoFile) {
        OpenFile opened;
        const std::string path = std::string(kPrivateDirectory) + "/uploads";
        int error = make ? OpenPrivate("uploads", opened.Out(*fs_))
                         : fs_->Open(path.c_str(), OpenFor::Directory, opened.Out(*fs_));
        if (error == 0)
            error = fs_->KeepPrivate(opened.Get());
        if (error)
            return error;
        uploads_ = opened.Detach();
    }
    *out = uploads_;
    return 0;
}

int Volume::Prepare()
{
    if (const int error = OpenDirectory("", &top_))
        return error;
    const int made = fs_->MakeDirectory(top_->Get(), kPrivateDirectory.data());
    if (made && made != EEXIST)
        return made;
    OpenFile own;
    if (const int error = fs_->Open(kPrivateDirectory.data(), OpenFor::Directory, own.Out(*fs_)))
        return error;
    // Contents, properties and deleted files of everybody: for the serving account only.
    if (const int error = made == 0 ? fs_->SetMode(own.Get(), 0700) : 0)
        return error;
    for (const auto& [name, handle] :
         {std::pair{"tmp", &tmp_}, {"deleted", &deleted_}, {"purge", &purge_}})
        if (const int error = OpenPrivate(name, handle))
            return error;
    FileHandle uploads = kNoFile;
    if (const int error = OpenUploads(false, &uploads); error && error != ENOENT)
        return error;
    for (const FileHandle handle : {own.Get(), tmp_, deleted_, purge_})
        if (const int error = fs_->KeepPrivate(handle))
            return error;
    // Deleted entries keep their dates.
    if (const int error = fs_->SetTag(deleted_, kDatesTag, "1", 1); error && error != EOPNOTSUPP)
        return error;
    return TakeToken();
}

// Picks this object's token and holds a lock on the file that stands for it, by which others see
// that its owner lives: locks end with their process, on every kind of end.
int Volume::TakeToken()
{
    for (int attempt = 0; attempt < 16; ++attempt) {
        UINT64 random = 0;
        if (const int error = fs_->Random(&random, sizeof random))
            return error;
        char text[17];
        std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(random));
        const std::string file = text + std::string(kLockSuffix);
        OpenFile lock;
        if (const int error = fs_->CreateFile(tmp_, file.c_str(), lock.Out(*fs_))) {
            if (error == EEXIST)
                continue;
            return error;
        }
        // A sweeper that came between the two calls has the lock, or had it and removed the file.
        FileInfo held, named;
        if (fs_->TryLock(lock.Get()) == 0 && fs_->Inspect(lock.Get(), &held) == 0 &&
            fs_->InspectAt(tmp_, file.c_str(), &named) == 0 && held.inode == named.inode) {
            token_ = text;
            tokenLock_ = lock.Detach();
            return 0;
        }
    }
    return EAGAIN;
}

// A power cut can take an owner's lock file and leave what it was writing: without that file nobody
// lives, either. It can take the files, too, and leave the rows that were to follow them.
void Volume::SweepTmp()
{
    NameCollector found;
    if (fs_->List(tmp_, found) != 0)
        return;
    bool isAlone = true;
    for (const std::string& name : found.names) {
        const size_t end = std::min(name.find('-'), name.find(kLockSuffix));
        if (end == name.npos)
            continue;
        if (IsAlive(name.substr(0, end))) {
            isAlone = isAlone && name.substr(0, end) == token_;
            continue;
        }
        (void)RemoveFromTmp(name); // what stays the next start removes
    }
    std::unique_ptr<MetadataSession> session;
    const std::string tree = std::string(kPrivateDirectory) + "/tmp";
    bool any = false;
    if (isAlone && !Failed(meta_->Open(&session)) && !Failed(session->HasAny(tree, &any)) && any)
        (void)session->ForgetTree(tree); // else the next start
}

// A half-made copy of a tree is a directory: it goes out like a deleted one. False when it stays.
bool Volume::RemoveFromTmp(const std::string& name) noexcept
{
    int error = fs_->RemoveFile(tmp_, name.c_str());
    if (error == EISDIR || error == EPERM)
        (void)Protected([&] { // without memory for a name it stays
            error = fs_->Rename(tmp_, name.c_str(), purge_, UniqueName().c_str(), false);
            return TAL_STATUS_SUCCESS;
        });
    return error == 0 || error == ENOENT;
}

// There has been room in the list since the start: a copy often stays because memory has run out.
void Volume::Abandon(std::string name) noexcept
{
    if (RemoveFromTmp(name))
        return;
    (void)Protected([&] {
        const std::lock_guard lock(abandonedMutex_);
        if (abandoned_.size() < abandoned_.capacity())
            abandoned_.push_back(std::move(name));
        return TAL_STATUS_SUCCESS;
    });
}

void Volume::RemoveAbandoned() noexcept
{
    (void)Protected([this] {
        const std::lock_guard lock(abandonedMutex_);
        std::erase_if(abandoned_, [this](const std::string& name) { return RemoveFromTmp(name); });
        return TAL_STATUS_SUCCESS;
    });
}

void Volume::SetReserve(UINT64 bytes)
{
    constexpr UINT64 kLeastShare = 16;
    UINT64 free = 0, total = 0;
    if (bytes == 0 || !IsWritable() || fs_->FreeSpace(&free, &total) != 0 ||
        OpenPrivate("reserve", &reserve_) != 0)
        return; // without one a full disk is full sooner
    reserveBytes_ = std::min(bytes, total / kLeastShare);
    FillReserve();
}

void Volume::FillReserve()
{
    NameCollector found;
    if (reserve_ == kNoFile || !isReserveShort_ || fs_->List(reserve_, found) != 0)
        return;
    for (size_t have = found.names.size(); have < reserveBytes_ / kReservePiece; ++have) {
        OpenFile piece;
        const std::string name = UniqueName();
        if (fs_->CreateFile(reserve_, name.c_str(), piece.Out(*fs_)) != 0)
            return;
        if (fs_->Allocate(piece.Get(), kReservePiece) != 0) {
            (void)fs_->RemoveFile(reserve_, name.c_str()); // shorter than a piece
            return;
        }
    }
    isReserveShort_ = false;
}

bool Volume::GiveUpReserve()
{
    NameCollector found;
    if (reserve_ == kNoFile || fs_->List(reserve_, found) != 0)
        return false;
    isReserveShort_ = true;
    return std::any_of(found.names.begin(), found.names.end(), [this](const std::string& name) {
        return fs_->RemoveFile(reserve_, name.c_str()) == 0;
    });
}

std::string Volume::UniqueName()
{
    char text[24] = "-";
    const auto end = std::to_chars(text + 1, text + sizeof text, UINT64{++counter_}, 16).ptr;
    std::string name;
    name.reserve(token_.size() + sizeof text);
    return name.append(token_).append(text, end);
}

int Volume::OpenParent(std::string_view path, DirectoryRef* out) const
{
    const std::string_view parent = ParentOf(path);
    // What is synced takes a descriptor of its own: the system reports a failed write-back once to
    // each, and of those who share one it is told to the first alone.
    if (parent.empty() && top_ && sync_ == SyncLevel::None) {
        *out = top_;
        return 0;
    }
    *out = open_directories::Find(*this, parent);
    return *out ? 0 : OpenDirectory(parent, out);
}

int Volume::OpenDirectory(std::string_view path, DirectoryRef* out) const
{
    const auto opened = std::make_shared<Directory>();
    opened->volume = this;
    opened->path = path;
    if (const int error =
            fs_->Open(opened->path.c_str(), OpenFor::Directory, opened->file.Out(*fs_)))
        return error;
    *out = opened;
    return 0;
}

int Volume::GetCreated(FileHandle handle, const FileInfo& known, UINT64* date) const
{
    size_t size = 0;
    UINT64 kept = 0;
    const int error = fs_->GetTag(handle, kCreatedTag, &kept, sizeof kept, &size);
    if (IsFault(error))
        return error;
    if (error == 0 && size == sizeof kept) {
        *date = kept;
        return 0;
    }
    FileInfo info = known;
    if (!info.isBirth)
        if (const int failed = fs_->InspectFully(handle, &info))
            return failed;
    *date = info.created;
    return 0;
}

int Volume::KeepCreated(FileHandle handle, const Directory& directory, UINT64 date) const
{
    if (const int error = ExpectKeptDates(directory))
        return error;
    return fs_->SetTag(handle, kCreatedTag, &date, sizeof date);
}

int Volume::ExpectKeptDates(const Directory& directory) const
{
    bool isExpected = false;
    int error = HasKeptDates(directory, &isExpected);
    if (error || isExpected)
        return error;
    error = fs_->SetTag(directory.Get(), kDatesTag, "1", 1);
    if (error == 0)
        directory.keptDates.store(KeptDates::Some, std::memory_order_relaxed);
    return error;
}

int Volume::HasKeptDates(const Directory& directory, bool* out) const
{
    // The mark is never taken off, but others may put it there at any time.
    KeptDates found = directory.keptDates.load(std::memory_order_relaxed);
    if (found != KeptDates::Some) {
        char mark = 0;
        size_t size = 0;
        const int error = fs_->GetTag(directory.Get(), kDatesTag, &mark, sizeof mark, &size);
        if (IsFault(error))
            return error;
        found = error == 0 ? KeptDates::Some : KeptDates::None;
        directory.keptDates.store(found, std::memory_order_relaxed);
    }
    *out = found == KeptDates::Some;
    return 0;
}

int Volume::GetCreatedOfChild(FileHandle directory, const char* name, FileInfo* info) const
{
    UINT64 kept = 0;
    size_t size = 0;
    const int error = fs_->GetTagAt(directory, name, kCreatedTag, &kept, sizeof kept, &size);
    if (error == 0 && size == sizeof kept)
        info->created = kept;
    return IsFault(error) ? error : 0;
}

void Volume::CheckPlace()
{
    if (fs_->IsInPlace() == isInPlace_)
        return;
    isInPlace_ = !isInPlace_;
    if (isInPlace_)
        Log(kLogInfo, "volume '" + name_ + "': its directory is in its place again");
    else
        Log(kLogError, "volume '" + name_ +
                           "': its directory has been removed, moved or mounted over; what is in "
                           "its place now is served from the next start on");
}

int Volume::SyncNames(FileHandle directory) const
{
    return sync_ == SyncLevel::None ? 0 : fs_->Sync(directory, true);
}

} // namespace filestore
