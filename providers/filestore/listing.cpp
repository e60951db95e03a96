// SPDX-License-Identifier: Apache-2.0
//
// Reading and inspecting the names of a collection.
#include "providers/filestore/listing.h"

#include <utility>

#include "providers/filestore/access.h"
#include "providers/filestore/callcontext.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/platform.h"

namespace filestore {

namespace {

// Takes the names that are served, to this user.
class ServedNames final : public NameSink {
  public:
    ServedNames(NameList& names, const access::MemberFilter& filter)
        : names_(names), filter_(filter)
    {
    }
    bool OnName(std::string_view name) override
    {
        if (seen_++ % call::kNamesPerLook == 0 && call::IsCancelled())
            return false;
        if (IsPrivateName(name) || !filter_.IsListed(name))
            return true;
        if (IsServableName(name))
            names_.Add(name);
        else
            ++leftOut_;
        return true;
    }
    size_t LeftOut() const { return leftOut_; }

  private:
    NameList& names_;
    const access::MemberFilter& filter_;
    size_t seen_ = 0;
    size_t leftOut_ = 0;
};

} // namespace

void Listing::Clear()
{
    names_.reset();
    hidden_.clear();
    directory_.reset();
}

TALSTATUS Listing::Read(Volume* volume, DirectoryRef directory, const std::string& path,
                        bool isSorted)
{
    volume_ = volume;
    directory_ = std::move(directory);
    path_ = path;
    hidden_.clear();
    names_.emplace(UpperCaseUnits);
    const access::MemberFilter filter(volume, path);
    if (!volume) {
        for (const auto& v : store_.Volumes())
            if (filter.IsListed(v->Name()))
                names_->Add(v->Name());
        names_->Sort();
        return TAL_STATUS_SUCCESS;
    }
    ServedNames sink(*names_, filter);
    if (const int error = volume->Fs().List(directory_->Get(), sink))
        return StatusFromErrno(error);
    if (call::IsCancelled())
        return Failure(kCodeTimeout); // the list may be short
    if (sink.LeftOut())
        Log(kLogWarning, std::to_string(sink.LeftOut()) + " names in '" + volume->Name() + "/" +
                             path +
                             "' are left out of its listing: not UTF-8, or with control "
                             "characters");
    if (isSorted)
        names_->Sort();
    if (const int error = volume->HasKeptDates(*directory_, &hasKeptDates_))
        return StatusFromErrno(error);
    if (!volume->MayHaveProperties())
        return TAL_STATUS_SUCCESS;
    std::unique_ptr<MetadataSession> session;
    const TALSTATUS status = Store::OpenMetadata(*volume, &session);
    return Failed(status) ? status : session->HiddenChildren(path, &hidden_);
}

TALSTATUS Listing::Inspect(const char* name, FileInfo* info) const
{
    if (!volume_)
        return InspectVolume(name, info);
    if (const int error = volume_->Fs().InspectAt(directory_->Get(), name, info))
        return StatusFromErrno(error);
    if (info->isLink)
        return InspectLink(name, info);
    if (!info->isDirectory && !info->isRegular)
        return Failure(kCodeNotFound);
    return hasKeptDates_
               ? StatusFromErrno(volume_->GetCreatedOfChild(directory_->Get(), name, info))
               : TAL_STATUS_SUCCESS;
}

TALSTATUS Listing::InspectVolume(std::string_view name, FileInfo* info) const
{
    Target target;
    OpenFile top;
    for (const auto& v : store_.Volumes())
        if (v->Name() == name)
            target.volume = v.get();
    if (!target.volume)
        return Failure(kCodeNotFound);
    const TALSTATUS status = store_.OpenExisting(&target, OpenFor::Locating, &top, info);
    return Failed(status)
               ? status
               : StatusFromErrno(target.volume->GetCreated(top.Get(), *info, &info->created));
}

TALSTATUS Listing::InspectLink(const char* name, FileInfo* info) const
{
    Target target;
    OpenFile real;
    target.volume = volume_;
    if (!target.path.Assign(path_) || !target.path.Append(name))
        return Failure(kCodeNotFound); // no request can name it
    const TALSTATUS status = store_.OpenExisting(&target, OpenFor::Locating, &real, info);
    return Failed(status) ? status
                          : StatusFromErrno(volume_->GetCreated(real.Get(), *info, &info->created));
}

} // namespace filestore
