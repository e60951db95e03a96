// SPDX-License-Identifier: Apache-2.0
//
// What a power cut or a kill has left unfinished, at the start.
#include "providers/filestore/rename_recovery.h"

#include <cerrno>
#include <charconv>
#include <optional>

#include "providers/filestore/failures.h"
#include "providers/filestore/name_guard.h"
#include "providers/filestore/names.h"

namespace filestore {

namespace {

constexpr std::string_view kPurge = ".kest/purge/";
constexpr std::string_view kTmp = ".kest/tmp/"; // what is there is swept

class RenameRecovery {
  public:
    RenameRecovery(FileSystem& fs, MetadataSession& session, const RenameIntent& intent, bool sync)
        : fs_(fs), session_(session), intent_(intent), sync_(sync)
    {
    }

    TALSTATUS Run(std::mutex& from, std::mutex& to)
    {
        TALSTATUS status = session_.Begin();
        if (Failed(status))
            return status;
        // Others may be at work: nobody changes the names from the look to the end.
        const NameGuard names(from, to);
        bool happened = false;
        if (const int error =
                intent_.aside.empty() ? LookForRename(&happened) : EndTrade(&happened))
            status = StatusFromErrno(error); // it is tried again
        if (!Failed(status) && happened)
            status = MoveRows();
        else if (!Failed(status) && intent_.from.starts_with(kTmp))
            status = session_.ForgetTree(intent_.from);
        if (!Failed(status))
            status = session_.RemoveIntent(intent_.id);
        if (!Failed(status))
            status = session_.Commit();
        session_.Rollback();
        return status;
    }

  private:
    // The object at a path: nothing where there is none.
    int Find(const std::string& path, std::optional<UINT64>* inode)
    {
        OpenFile file;
        FileInfo info;
        inode->reset();
        int error = fs_.Open(path.c_str(), OpenFor::Locating, file.Out(fs_));
        if (error == ENOENT || error == ENOTDIR)
            return 0;
        if (error == 0)
            error = fs_.Inspect(file.Get(), &info);
        if (error == 0)
            *inode = info.inode;
        return error;
    }

    int LookForRename(bool* happened)
    {
        std::optional<UINT64> from, to;
        int error = Find(intent_.from, &from);
        if (error == 0)
            error = Find(intent_.to, &to);
        isAway_ = !to || intent_.to.starts_with(kPurge); // it was on its way out, and is out
        // A power cut may have taken what was to move, while another still bears the new name.
        const bool isAnother = to && intent_.inode && *to != intent_.inode;
        *happened = error == 0 && !from && (isAway_ || !isAnother);
        return error;
    }

    // What was to be put aside bears its own name, that of what moves, or that of what is aside.
    int EndTrade(bool* happened)
    {
        std::optional<UINT64> from, to, aside;
        int error = Find(intent_.from, &from);
        if (error == 0)
            error = Find(intent_.to, &to);
        if (error == 0)
            error = Find(intent_.aside, &aside);
        if (error)
            return error;
        const bool hasNotMoved = from && *from == intent_.inode;
        *happened = !hasNotMoved && to && *to == intent_.inode;
        if (hasNotMoved && aside && !to) // names could not be traded, and the first step was taken
            return Rename(intent_.aside, intent_.to);
        if (*happened && from && !aside)
            return EndPuttingAside();
        isAsideGone_ = !aside; // dropped since
        return 0;
    }

    // Where the list does not know it any more (the oldest entries give way), it is on its way out.
    int EndPuttingAside()
    {
        constexpr std::string_view kDeleted = ".kest/deleted/";
        INT64 id = 0;
        DeletedEntry entry;
        const std::string& aside = intent_.aside;
        const char* const end = aside.data() + aside.size();
        if (!aside.starts_with(kDeleted) ||
            std::from_chars(aside.data() + kDeleted.size(), end, id).ptr != end)
            return Rename(intent_.from, aside);
        const TALSTATUS listed = session_.FindDeleted(id, &entry);
        if (!Failed(listed))
            return Rename(intent_.from, aside);
        if (Code(listed) != kCodeNotFound)
            return EIO; // the next start tries again
        isAsideGone_ = true;
        return Rename(intent_.from, std::string(kPurge) + intent_.owner + "-settled-" +
                                        std::to_string(intent_.id));
    }

    int Rename(const std::string& from, const std::string& to)
    {
        OpenFile fromDirectory, toDirectory;
        int error = fs_.Open(std::string(ParentOf(from)).c_str(), OpenFor::Directory,
                             fromDirectory.Out(fs_));
        if (error == 0)
            error = fs_.Open(std::string(ParentOf(to)).c_str(), OpenFor::Directory,
                             toDirectory.Out(fs_));
        if (error == 0)
            error = fs_.Rename(fromDirectory.Get(), std::string(LeafOf(from)).c_str(),
                               toDirectory.Get(), std::string(LeafOf(to)).c_str(), false);
        for (const OpenFile* directory : {&toDirectory, &fromDirectory})
            if (error == 0 && sync_)
                error = fs_.Sync(directory->Get(), true);
        return error;
    }

    TALSTATUS MoveRows()
    {
        TALSTATUS status = TAL_STATUS_SUCCESS;
        if (!intent_.aside.empty() && !intent_.aside.starts_with(kPurge) && !isAsideGone_)
            status = session_.RenameTree(intent_.to, intent_.aside);
        if (!Failed(status))
            status = session_.ForgetTree(isAway_ ? intent_.from : intent_.to);
        if (!Failed(status) && !isAway_)
            status = session_.RenameTree(intent_.from, intent_.to);
        for (const std::string& tree : {intent_.from, intent_.to})
            if (!Failed(status))
                status = session_.RemoveLocksWithin(tree);
        return status;
    }

    FileSystem& fs_;
    MetadataSession& session_;
    const RenameIntent& intent_;
    const bool sync_;
    bool isAway_ = false;
    bool isAsideGone_ = false;
};

} // namespace

TALSTATUS RecoverRename(FileSystem& fs, MetadataSession& session, const RenameIntent& intent,
                        bool sync, std::mutex& from, std::mutex& to)
{
    return RenameRecovery(fs, session, intent, sync).Run(from, to);
}

} // namespace filestore
