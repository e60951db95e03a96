// SPDX-License-Identifier: Apache-2.0
//
// Conditions of a request, judged against what lies at a path.
#include "providers/filestore/conditions.h"

#include <cerrno>
#include <string>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/etag.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/platform.h"

namespace filestore {

namespace {

std::string_view TextOf(const STRING& text)
{
    return {text.Buffer, text.Length};
}

} // namespace

Conditions Conditions::Of(const Volume& volume, std::string_view path)
{
    Conditions out;
    KEST_CONDITIONS values{};
    if (!call::GetConditions(&values))
        return out;
    if (!values.Match.Length && !values.NoneMatch.Length && !values.UnmodifiedSince)
        return out;
    out.match_ = TextOf(values.Match);
    out.noneMatch_ = TextOf(values.NoneMatch);
    out.unmodifiedSince_ = values.UnmodifiedSince;
    const std::string own = call::Path();
    std::string asked = ModulePath() + "/" + volume.Name();
    if (!path.empty())
        asked.append("/").append(path);
    // The location is compared by its length: letter case in it is the client's.
    const size_t location = ModulePath().size();
    out.any_ = own.size() == asked.size() &&
               own.compare(location, own.npos, asked, location, asked.npos) == 0;
    return out;
}

Conditions Conditions::From(const DAV_PRECONDITIONS& given, UINT64 now)
{
    Conditions out;
    out.match_ = {given.Match.Text, given.Match.Length};
    out.noneMatch_ = {given.NoneMatch.Text, given.NoneMatch.Length};
    out.unmodifiedSince_ = given.UnmodifiedSince;
    out.now_ = now;
    out.any_ = !out.match_.empty() || !out.noneMatch_.empty() || given.UnmodifiedSince;
    return out;
}

// Whether `list` names the tag of `there`. A weak tag equals a strong one only where that is
// enough.
bool Conditions::Names(std::string_view list, const FileInfo& there, bool mayBeWeak) const
{
    if (!mayBeWeak && now_ && !HasStrongTag(there, *now_))
        return false;
    const std::string tag = ETagText(ETagOf(there));
    for (size_t at = 0; (at = list.find(tag, at)) != list.npos; at += tag.size())
        if (mayBeWeak || at < 2 || list.substr(at - 2, 2) != "W/")
            return true;
    return false;
}

TALSTATUS Conditions::Judge(const FileInfo* there) const
{
    if (!any_)
        return TAL_STATUS_SUCCESS;
    bool holds = true;
    if (!match_.empty())
        holds = there && (match_ == "*" || Names(match_, *there, false));
    else if (unmodifiedSince_ && there) // dates are told in whole seconds
        holds = there->modified - there->modified % kTicksPerSecond <= unmodifiedSince_;
    if (there && !noneMatch_.empty())
        holds = holds && noneMatch_ != "*" && !Names(noneMatch_, *there, true);
    return holds ? TAL_STATUS_SUCCESS : Failure(kCodePreconditionFailed);
}

TALSTATUS Conditions::JudgeName(FileSystem& fs, FileHandle directory, const char* leaf) const
{
    if (!any_)
        return TAL_STATUS_SUCCESS;
    FileInfo info;
    const int error = fs.InspectAt(directory, leaf, &info);
    if (error && error != ENOENT)
        return StatusFromErrno(error);
    return Judge(error ? nullptr : &info);
}

TALSTATUS Conditions::JudgePath(FileSystem& fs, const char* path) const
{
    if (!any_)
        return TAL_STATUS_SUCCESS;
    OpenFile file;
    FileInfo info;
    int error = fs.Open(path, OpenFor::Locating, file.Out(fs));
    if (error == ENOENT || error == ENOTDIR)
        return Judge(nullptr);
    if (error == 0)
        error = fs.Inspect(file.Get(), &info);
    return error ? StatusFromErrno(error) : Judge(&info);
}

bool MayReplaceDestination()
{
    const UINT32 method = call::Method();
    KEST_CONDITIONS values;
    return (method == KestMethodCopy || method == KestMethodMove) && call::GetConditions(&values) &&
           values.MayReplace;
}

} // namespace filestore
