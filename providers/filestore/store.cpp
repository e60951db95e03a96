// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/store.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/platform.h"
#include "providers/filestore/posixfs.h"

namespace filestore {

namespace {

constexpr WCHAR kStoreKey[] = u"Kest\\Configuration\\FileStore";
constexpr WCHAR kVolumesKey[] = u"Kest\\Configuration\\FileStore\\Volumes";

Store::Options ReadOptions()
{
    Store::Options options;
    options.now = SystemTime;
    std::string sync;
    if (ReadText(kStoreKey, u"Sync", &sync)) {
        if (sync == "none")
            options.sync = SyncLevel::None;
        else if (sync == "full")
            options.sync = SyncLevel::Full;
        else if (sync != "data")
            Log(kLogError, "'Sync' is \"" + sync +
                               "\"; expected \"none\", \"data\" or \"full\". Using \"data\"");
    }
    return options;
}

std::vector<std::unique_ptr<Volume>> OpenVolumes(const Store::Options& options)
{
    std::vector<std::unique_ptr<Volume>> volumes;
    for (NamedText& setting : ReadTexts(kVolumesKey)) {
        if (!IsServableName(setting.name)) {
            Log(kLogError, "volume '" + setting.name + "' cannot be served: not a usable name");
            continue;
        }
        int error = 0;
        std::unique_ptr<FileSystem> fs = OpenPosixFileSystem(setting.value.c_str(), &error);
        if (!fs) {
            Log(kLogError, "volume '" + setting.name + "' cannot be served: '" + setting.value +
                               "': " + std::strerror(error));
            continue;
        }
        volumes.push_back(
            std::make_unique<Volume>(std::move(setting.name), std::move(fs), options.sync));
    }
    return volumes;
}

} // namespace

Store::Store(std::vector<std::unique_ptr<Volume>> volumes, const Options& options)
    : volumes_(std::move(volumes)), options_(options), started_(options.now())
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
}

Store& Store::OfProcess()
{
    // Never destroyed: opened objects may be released while the process ends.
    static Store* const store = [] {
        const Options options = ReadOptions();
        return new Store(OpenVolumes(options), options);
    }();
    return *store;
}

Volume* Store::FindVolume(std::string_view name) const
{
    for (const auto& v : volumes_)
        if (v->Name() == name)
            return v.get();
    return nullptr;
}

// Splits "/volume/a/b".
TALSTATUS Store::Parse(const UNICODE_STRING* path, Target* out, bool* servable) const
{
    *servable = true;
    out->volume = nullptr;
    out->path.Clear();
    if (!path || (path->Length && !path->Buffer))
        return Failure(kCodeInvalidParameter);
    char buffer[2 * kMaxPathBytes];
    size_t length = 0;
    const size_t units = path->Length / sizeof(WCHAR);
    if (!ToUtf8(path->Buffer, units, buffer, sizeof buffer, &length)) {
        *servable = false;
        return units * 3 > sizeof buffer ? Failure(kCodeNameTooLong) : TAL_STATUS_SUCCESS;
    }
    std::string_view text(buffer, length);
    text.remove_prefix(std::min(text.find_first_not_of('/'), text.size()));
    if (text.empty())
        return TAL_STATUS_SUCCESS;
    const size_t slash = std::min(text.find('/'), text.size());
    out->volume = FindVolume(text.substr(0, slash));
    if (!out->volume)
        return Failure(kCodeNotFound);
    const PathFit fit = AppendComponents(text.substr(slash), &out->path);
    *servable = fit != PathFit::NotServable;
    return fit == PathFit::TooLong ? Failure(kCodeNameTooLong) : TAL_STATUS_SUCCESS;
}

TALSTATUS Store::Locate(const UNICODE_STRING* path, Target* out) const
{
    bool servable = true;
    const TALSTATUS status = Parse(path, out, &servable);
    return !Failed(status) && !servable ? Failure(kCodeNotFound) : status;
}

TALSTATUS Store::LocateNew(const UNICODE_STRING* path, Target* out) const
{
    bool servable = true;
    const TALSTATUS status = Parse(path, out, &servable);
    if (Code(status) == kCodeNotFound || (!Failed(status) && out->IsRoot() && servable))
        return Failure(kCodeAccessDenied); // volumes are made by configuration only
    if (!Failed(status) && !servable)
        return Failure(kCodeInvalidRequest);
    return status;
}

// The path that a name with one layer of escapes too many stands for. False unless a page asks.
static bool DecodeForPage(const Target& target, PathBuffer* out)
{
    const UINT32 method = call::Method();
    std::string plain;
    return (method == KestMethodGet || method == KestMethodHead) &&
           DecodePercent(target.path.View(), &plain) && AppendComponents(plain, out) == PathFit::Ok;
}

TALSTATUS Store::OpenExisting(Target* target, OpenFor purpose, OpenFile* out, FileInfo* info) const
{
    FileSystem& fs = target->volume->Fs();
    int error = fs.Open(target->path.CStr(), purpose, out->Out(fs));
    if (error == ENOENT && target->path.View().find('%') != std::string_view::npos) {
        PathBuffer decoded;
        if (DecodeForPage(*target, &decoded) &&
            (error = fs.Open(decoded.CStr(), purpose, out->Out(fs))) == 0)
            (void)target->path.Assign(decoded.View()); // fits: it is shorter
    }
    if (error || (error = fs.Inspect(out->Get(), info)))
        return StatusFromErrno(error);
    // Pipes, sockets and devices are nobody's resources.
    return info->isDirectory || info->isRegular ? TAL_STATUS_SUCCESS : Failure(kCodeNotFound);
}

} // namespace filestore
