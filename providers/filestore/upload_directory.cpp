// SPDX-License-Identifier: Apache-2.0
//
// Counting, making and sweeping uploads.
#include "providers/filestore/upload_directory.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <vector>

#include "base/hex.h"
#include "providers/filestore/callcontext.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/room.h"
#include "providers/filestore/whole_read.h"

namespace filestore {

namespace {

constexpr size_t kMostOfOneUser = 64;
constexpr size_t kMostOfAll = 1024;
constexpr UINT64 kShareOfDisk = 2; // the half

class UploadFiles final : public NameSink {
  public:
    bool OnName(std::string_view name) override
    {
        names.emplace(name);
        return names.size() < 4 * kMostOfAll; // what is beyond no store has made
    }
    std::set<std::string, std::less<>> names;
};

struct Listed {
    std::string name;
    UploadRecord record; // empty where it cannot be read
    UINT64 touched = 0;  // of the record, or of the file
    bool hasContent = false;

    UINT64 Bytes() const
    {
        return !hasContent                             ? 0
               : record.length == kUploadLengthUnknown ? record.offset
                                                       : record.length;
    }
};

TALSTATUS ReadListed(FileSystem& fs, FileHandle directory, const std::string& file, Listed* out)
{
    OpenFile record;
    FileInfo info;
    int error = fs.OpenAt(directory, file.c_str(), OpenFor::Reading, record.Out(fs));
    if (error == 0)
        error = fs.Inspect(record.Get(), &info);
    if (error)
        return StatusFromErrno(error);
    std::string text(std::min<UINT64>(info.size, kMostUploadRecordBytes), '\0');
    if ((error = ReadWhole(fs, record.Get(), &text)))
        return StatusFromErrno(error);
    out->touched = info.modified;
    if (ReadUploadText(text, &out->record))
        out->touched = out->record.touched;
    else
        out->record = {};
    return TAL_STATUS_SUCCESS;
}

// Every upload by its record, and by its content where that has none.
TALSTATUS List(Volume& volume, std::vector<Listed>* out)
{
    FileSystem& fs = volume.Fs();
    FileHandle directory = kNoFile;
    UploadFiles found;
    int error = volume.OpenUploads(false, &directory);
    if (error == ENOENT)
        return TAL_STATUS_SUCCESS; // there have been none
    if (error == 0)
        error = fs.List(directory, found);
    if (error)
        return StatusFromErrno(error);
    for (const std::string& file : found.names) {
        Listed each;
        const bool isRecord = file.ends_with(kUploadRecordSuffix);
        each.name = isRecord ? file.substr(0, file.size() - kUploadRecordSuffix.size()) : file;
        each.hasContent = !isRecord || found.names.contains(each.name);
        if (!isRecord && found.names.contains(file + std::string(kUploadRecordSuffix)))
            continue;
        const TALSTATUS status = ReadListed(fs, directory, file, &each);
        if (Failed(status) && Code(status) != kCodeNotFound) // it has just gone
            return status;
        if (!Failed(status))
            out->push_back(std::move(each));
    }
    return TAL_STATUS_SUCCESS;
}

// Not while a request works on it.
bool Drop(const Store& store, Volume& volume, const std::string& name)
{
    if (volume.Uploads().IsInUse(name))
        return false;
    const auto hold = HoldUpload(store, volume, name);
    const std::lock_guard lock((*hold)->Mutex());
    return !Failed((*hold)->Remove());
}

// Makes place for one more of the user.
TALSTATUS MakePlace(const Store& store, Volume& volume, const std::string& user)
{
    std::vector<Listed> all;
    if (const TALSTATUS status = List(volume, &all); Failed(status))
        return status;
    size_t count = all.size();
    std::erase_if(all, [&](const Listed& each) { return each.record.user != user; });
    std::sort(all.begin(), all.end(), [](const Listed& a, const Listed& b) {
        return a.hasContent != b.hasContent ? b.hasContent : a.touched < b.touched;
    });
    size_t own = all.size();
    for (const Listed& each : all) {
        if (own < kMostOfOneUser && count < kMostOfAll)
            return TAL_STATUS_SUCCESS;
        if (!Drop(store, volume, each.name))
            continue;
        --own;
        --count;
    }
    return own < kMostOfOneUser && count < kMostOfAll ? TAL_STATUS_SUCCESS : Failure(kCodeTimeout);
}

// The files on their way into the directory; what is not kept goes.
class NewUpload {
  public:
    NewUpload(const Store& store, Volume& volume) : store_(store), volume_(volume) {}
    NewUpload(const NewUpload&) = delete;
    NewUpload& operator=(const NewUpload&) = delete;
    ~NewUpload()
    {
        FileSystem& fs = volume_.Fs();
        if (!tmpName_.empty())
            volume_.Abandon(std::move(tmpName_));
        if (isKept_ || name_.empty())
            return;
        (void)fs.RemoveFile(directory_, name_.c_str());
        (void)fs.RemoveFile(directory_, recordName_.c_str());
    }

    int Make(UploadRecord* record)
    {
        FileSystem& fs = volume_.Fs();
        OpenFile content;
        FileInfo info;
        int error =
            WithRoom(store_, volume_, 0, [&] { return volume_.OpenUploads(true, &directory_); });
        if (error == 0)
            error = PickName();
        if (error == 0)
            error = WithRoom(store_, volume_, 0, [&] {
                tmpName_ = volume_.UniqueName();
                const int made = fs.CreateFile(volume_.Tmp(), tmpName_.c_str(), content.Out(fs));
                if (made)
                    tmpName_.clear();
                return made;
            });
        if (error == 0)
            error = fs.Inspect(content.Get(), &info);
        record->inode = info.inode;
        record->touched = store_.Now();
        if (error == 0)
            error = WriteRecord(*record);
        if (error == 0)
            error = fs.Rename(volume_.Tmp(), tmpName_.c_str(), directory_, name_.c_str(), false);
        if (error == 0)
            tmpName_.clear();
        return error ? error : volume_.SyncNames(directory_);
    }
    std::string Keep()
    {
        isKept_ = true;
        return std::move(name_);
    }

  private:
    int PickName()
    {
        unsigned char random[16];
        if (const int error = volume_.Fs().Random(random, sizeof random))
            return error;
        std::string name;
        for (const unsigned char byte : random)
            base::AppendHex(name, byte, base::kLowerHex);
        recordName_ = name + std::string(kUploadRecordSuffix);
        name_ = std::move(name);
        return 0;
    }
    int WriteRecord(const UploadRecord& record)
    {
        FileSystem& fs = volume_.Fs();
        OpenFile file;
        const std::string text = UploadText(record);
        int error = WithRoom(store_, volume_, text.size(), [&] {
            return fs.CreateFile(directory_, recordName_.c_str(), file.Out(fs));
        });
        if (error == 0)
            error = WithRoom(store_, volume_, text.size(),
                             [&] { return fs.Write(file.Get(), 0, text.data(), text.size()); });
        if (error == 0 && volume_.Sync() != SyncLevel::None)
            error = fs.Sync(file.Get(), false);
        return error;
    }

    const Store& store_;
    Volume& volume_;
    FileHandle directory_ = kNoFile;
    std::string name_;
    std::string recordName_; // made with it: what goes takes no memory
    std::string tmpName_;
    bool isKept_ = false;
};

} // namespace

TALSTATUS SpaceForUpload(Volume& volume, std::string_view except, UINT64* bytes)
{
    std::vector<Listed> all;
    UINT64 free = 0, total = 0;
    if (const TALSTATUS status = List(volume, &all); Failed(status))
        return status;
    if (const int error = volume.Fs().FreeSpace(&free, &total))
        return StatusFromErrno(error);
    UINT64 left = total / kShareOfDisk;
    for (const Listed& each : all)
        if (each.name != except)
            left -= std::min(left, each.Bytes());
    *bytes = left;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS MakeUpload(const Store& store, Volume& volume, UploadRecord record, std::string* name,
                     UINT64* space)
{
    if (const TALSTATUS status = MakePlace(store, volume, record.user); Failed(status))
        return status;
    if (const TALSTATUS status = SpaceForUpload(volume, {}, space); Failed(status))
        return status;
    if (record.length != kUploadLengthUnknown) {
        if (record.length > *space)
            return Failure(kCodeStorageFull);
        if (const TALSTATUS status = MakeRoomForBody(store, volume, record.length); Failed(status))
            return status;
    }
    NewUpload made(store, volume);
    if (const int error = made.Make(&record))
        return StatusFromErrno(error);
    *name = made.Keep();
    return TAL_STATUS_SUCCESS;
}

void DropExpiredUploads(const Store& store, Volume& volume)
{
    std::vector<Listed> all;
    call::HeldReports reports;
    if (!volume.IsWritable() || Failed(List(volume, &all)))
        return;
    const UINT64 time = store.Settings().uploadSeconds * kTicksPerSecond;
    for (const Listed& each : all)
        if (store.Now() >= each.touched + time)
            (void)Drop(store, volume, each.name); // else with the next round
    reports.Drop();
}

} // namespace filestore
