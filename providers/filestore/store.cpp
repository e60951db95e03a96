// SPDX-License-Identifier: Apache-2.0
//
// The volumes of this process, and taking paths apart.
#include "providers/filestore/store.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/utf.h"
#include "providers/filestore/access.h"
#include "providers/filestore/callcontext.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/name_list.h"
#include "providers/filestore/open_directories.h"
#include "providers/filestore/parsed_paths.h"
#include "providers/filestore/platform.h"

namespace filestore {

namespace {

std::atomic<UINT64> g_stores{0};

} // namespace

Store::Store(std::vector<std::unique_ptr<Volume>> volumes, const Options& options)
    : number_(g_stores.fetch_add(1) + 1), volumes_(std::move(volumes)), options_(options),
      started_(options.now())
{
    NameList order(UpperCaseUnits);
    for (const auto& v : volumes_)
        order.Add(v->Name());
    order.Sort();
    std::vector<std::unique_ptr<Volume>> sorted;
    for (size_t i = 0; i < order.Count(); ++i)
        sorted.push_back(
            std::move(*std::find_if(volumes_.begin(), volumes_.end(),
                                    [&](const auto& v) { return v && v->Name() == order.At(i); })));
    volumes_ = std::move(sorted);
    for (const auto& v : volumes_) {
        v->SetReserve(options_.reserveBytes);
        v->Fs().JudgeLinks([volume = v.get()](std::string_view path, std::string_view real) {
            return access::MayFollow(*volume, path, real);
        });
    }
}

Volume* Store::FindVolume(std::string_view name) const
{
    for (const auto& v : volumes_)
        if (v->Name() == name)
            return v.get();
    return nullptr;
}

TALSTATUS Store::Parse(const UNICODE_STRING* path, Target* out, bool* servable) const
{
    *servable = true;
    if (!path || (path->Length && !path->Buffer))
        return Failure(kCodeInvalidParameter);
    const size_t units = path->Length / sizeof(WCHAR);
    const std::u16string_view text(path->Buffer, units);
    if (parsed_paths::Recall(number_, text, out))
        return TAL_STATUS_SUCCESS;
    char buffer[2 * kMaxPathBytes];
    size_t length = 0;
    if (base::Utf16ToUtf8(text, buffer, sizeof buffer, length) != base::Converted::Whole) {
        *servable = false;
        return units * 3 > sizeof buffer ? Failure(kCodeNameTooLong) : TAL_STATUS_SUCCESS;
    }
    const TALSTATUS status = Parse(std::string_view(buffer, length), out, servable);
    if (!Failed(status) && *servable && out->deletedId == 0)
        parsed_paths::Note(number_, text, *out);
    return status;
}

// Splits "/volume/a/b".
TALSTATUS Store::Parse(std::string_view text, Target* out, bool* servable) const
{
    *servable = true;
    out->volume = nullptr;
    out->deletedId = 0;
    out->path.Clear();
    text.remove_prefix(std::min(text.find_first_not_of('/'), text.size()));
    if (text.empty())
        return TAL_STATUS_SUCCESS;
    const size_t slash = std::min(text.find('/'), text.size());
    out->volume = FindVolume(text.substr(0, slash));
    if (!out->volume)
        return Failure(kCodeNotFound);
    constexpr std::string_view kDeleted = "/.kest/deleted/";
    if (text.substr(slash).starts_with(kDeleted))
        return ParseDeleted(text.substr(slash + kDeleted.size()), out, servable);
    const PathFit fit = AppendComponents(text.substr(slash), &out->path);
    *servable = fit != PathFit::NotServable;
    return fit == PathFit::TooLong ? Failure(kCodeNameTooLong) : TAL_STATUS_SUCCESS;
}

// "ID/NAME/…", where the list of deleted entries must know ID under NAME.
TALSTATUS Store::ParseDeleted(std::string_view rest, Target* out, bool* servable) const
{
    *servable = false;
    const size_t slash = std::min(rest.find('/'), rest.size());
    INT64 id = 0;
    const auto parsed = std::from_chars(rest.data(), rest.data() + slash, id);
    std::string_view name = rest.substr(std::min(slash + 1, rest.size()));
    const std::string_view below = name.substr(std::min(name.find('/'), name.size()));
    name.remove_suffix(below.size());
    std::unique_ptr<MetadataSession> session;
    DeletedEntry entry;
    if (parsed.ec != std::errc() || parsed.ptr != rest.data() + slash || !out->volume->Meta())
        return TAL_STATUS_SUCCESS;
    TALSTATUS status = OpenMetadata(*out->volume, &session);
    if (!Failed(status))
        status = session->FindDeleted(id, &entry);
    if (Failed(status) && Code(status) != kCodeNotFound)
        return status; // whether it is kept cannot be told
    if (Failed(status) || entry.name != name)
        return TAL_STATUS_SUCCESS;
    PathBuffer inside;
    if (AppendComponents(below, &inside) != PathFit::Ok || !out->path.Assign(PathOfDeleted(id)) ||
        (inside.Length() && !out->path.Append(inside.View())))
        return TAL_STATUS_SUCCESS;
    out->deletedId = id;
    out->deletedName = name;
    out->deletedParent = entry.parent;
    *servable = true;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Store::OpenMetadata(const Volume& volume, std::unique_ptr<MetadataSession>* out)
{
    return volume.Meta() ? volume.Meta()->Open(out) : Failure(kCodeAccessDenied);
}

bool Target::IsDeletedEntry() const
{
    return deletedId && path.View() == PathOfDeleted(deletedId);
}

std::string Target::ShownName() const
{
    if (IsRoot())
        return "/";
    if (IsDeletedEntry())
        return deletedName;
    return path.Length() ? std::string(LeafOf(path.View())) : volume->Name();
}

Store::~Store() = default;

void Store::SetPurger(std::unique_ptr<BackgroundWork> purger)
{
    purger_ = std::move(purger);
}

void Store::WakePurger(bool retires) const
{
    if (purger_)
        purger_->Wake(retires);
}

TALSTATUS Store::Locate(std::string_view path, Target* out) const
{
    bool servable = true;
    const TALSTATUS status = Parse(path, out, &servable);
    return !Failed(status) && !servable ? Failure(kCodeNotFound) : status;
}

// What a failure has left between two states is ended before anybody uses the names. Where that
// fails once more, nobody is shown them.
static TALSTATUS RecoverAround(const Target& target)
{
    return target.IsRoot() ? TAL_STATUS_SUCCESS : target.volume->RecoverAround(target.path.View());
}

TALSTATUS Store::Locate(const UNICODE_STRING* path, Target* out) const
{
    bool servable = true;
    TALSTATUS status = Parse(path, out, &servable);
    if (!Failed(status))
        status = servable ? RecoverAround(*out) : Failure(kCodeNotFound);
    return status;
}

TALSTATUS Store::LocateNew(const UNICODE_STRING* path, Target* out) const
{
    bool servable = true;
    const TALSTATUS status = Parse(path, out, &servable);
    if (Code(status) == kCodeNotFound || (!Failed(status) && out->IsRoot() && servable))
        return Failure(kCodeAccessDenied); // volumes are made by configuration only
    if (!Failed(status) && !servable)
        return Failure(kCodeInvalidRequest);
    if (!Failed(status) && out->deletedId)
        return Failure(kCodeAccessDenied); // what has been deleted is read or restored, not changed
    return Failed(status) ? status : RecoverAround(*out);
}

// Pages for browsers without scripts escape a path that is escaped already. Where nothing bears a
// name of `path` as it stands, the name with one layer less is taken; names are looked at one by
// one, since one of them may be right as it is. ENOENT unless a page asks.
static int FindForPage(FileSystem& fs, std::string_view path, PathBuffer* out)
{
    const UINT32 method = call::Method();
    if (method != KestMethodGet && method != KestMethodHead && method != KestMethodPost)
        return ENOENT;
    out->Clear();
    while (!path.empty()) {
        const std::string_view name = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(path.size(), name.size() + 1));
        const size_t parent = out->Length();
        std::string plain;
        OpenFile literal;
        if (!out->Append(name))
            return ENOENT;
        if (name.find('%') == std::string_view::npos)
            continue;
        const int error = fs.Open(out->CStr(), OpenFor::Locating, literal.Out(fs));
        if (error == 0)
            continue;
        if (IsFault(error))
            return error;
        out->Cut(parent);
        if (!DecodePercent(name, &plain) || AppendComponents(plain, out) != PathFit::Ok)
            return ENOENT;
    }
    return 0;
}

// Pipes, sockets and devices are nobody's resources, and what the user may not know of is not his.
static TALSTATUS StatusOfFound(const Target& target, const FileInfo& info)
{
    return info.isDirectory || info.isRegular ? access::RequireKnown(target, info)
                                              : Failure(kCodeNotFound);
}

// Opens what lies directly in a collection that the request walks through, with its date of birth:
// walks ask for all dates. ELOOP for what has to be reached by its whole path: what lies elsewhere,
// or is a link, or may bear another name (see above).
static int OpenWalked(const Target& target, OpenFor purpose, OpenFile* out, FileInfo* info)
{
    const std::string_view path = target.path.View();
    if (path.empty())
        return ELOOP;
    const DirectoryRef parent = open_directories::Find(*target.volume, ParentOf(path));
    if (!parent)
        return ELOOP;
    FileSystem& fs = target.volume->Fs();
    const char* const leaf = target.path.CStr() + (path.size() - LeafOf(path).size());
    if (const int error = fs.OpenAt(parent->Get(), leaf, purpose, out->Out(fs)))
        return error == ENOENT && path.find('%') != path.npos ? ELOOP : error;
    return fs.InspectFully(out->Get(), info);
}

TALSTATUS Store::OpenExisting(Target* target, OpenFor purpose, OpenFile* out, FileInfo* info) const
{
    FileSystem& fs = target->volume->Fs();
    if (const int error = OpenWalked(*target, purpose, out, info); error != ELOOP)
        return error ? StatusFromErrno(error) : StatusOfFound(*target, *info);
    int error = fs.Open(target->path.CStr(), purpose, out->Out(fs));
    if (error == ENOENT && target->path.View().find('%') != std::string_view::npos) {
        PathBuffer found;
        error = FindForPage(fs, target->path.View(), &found);
        if (!error)
            error = fs.Open(found.CStr(), purpose, out->Out(fs));
        if (!error)
            (void)target->path.Assign(found.View()); // fits: it is shorter
    }
    // What asks for properties asks for the date of birth, too.
    if (!error)
        error = call::Method() == KestMethodPropFind ? fs.InspectFully(out->Get(), info)
                                                     : fs.Inspect(out->Get(), info);
    if (error)
        return StatusFromErrno(error);
    return StatusOfFound(*target, *info);
}

} // namespace filestore
