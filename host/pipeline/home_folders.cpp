// SPDX-License-Identifier: Apache-2.0
//
// Has a storage provider make the folders.
#include "host/pipeline/home_folders.h"

#include "base/utf.h"
#include "host/component.h"
#include "host/config/settings_holder.h"
#include <kest/com.h>
#include <kest/dav.h>
#include <kest/identifiers.h>
#include <kest/status.h>
#include <kest/tolm.h>

namespace kestd {

namespace {

// What a folder that is there already is answered with.
bool IsThere(TALSTATUS status)
{
    return !Failed(status) || Code(status) == kCodeObjectExists;
}

} // namespace

TALSTATUS MakeFolder(SCHANDLE session, const std::string& path)
{
    std::u16string wide;
    if (!base::AppendUtf16(path, wide) || wide.size() >= 0x7000)
        return HostFailure(kCodeInvalidParameter);
    Ref<IKestDAV2> provider;
    if (const TALSTATUS status = Create(CLSID_FileStore, provider); Failed(status))
        return status;
    UNICODE_STRING text{static_cast<UINT16>(wide.size() * sizeof(WCHAR)),
                        static_cast<UINT16>(wide.size() * sizeof(WCHAR)), wide.data()};
    return provider->MkCol(session, nullptr, &text);
}

// Whether this request is the one that sees to the user's folders. Until it has kept what came of
// it, and where it cannot, it counts as failed.
bool HomeFolders::IsDue(const Exchange& exchange) const
{
    const std::lock_guard lock(mutex_);
    if (version_ != exchange.settings->version) {
        due_.clear();
        nextWarning_ = {};
        version_ = exchange.settings->version;
    }
    const TimePoint now = clock_.Now();
    const auto [user, isFirst] = due_.try_emplace(exchange.auth.user, now + kRetryTime);
    if (isFirst)
        return true;
    if (now < user->second)
        return false;
    user->second = now + kRetryTime;
    return true;
}

void HomeFolders::Keep(const Exchange& exchange, bool isThere) const
{
    const std::lock_guard lock(mutex_);
    const auto user = due_.find(exchange.auth.user);
    if (isThere && version_ == exchange.settings->version && user != due_.end())
        user->second = TimePoint::max();
}

void HomeFolders::Warn(const std::string& path, TALSTATUS status) const
{
    {
        const std::lock_guard lock(mutex_);
        const TimePoint now = clock_.Now();
        if (now < nextWarning_)
            return;
        nextWarning_ = now + kRetryTime;
    }
    TolmLog(kLogError, "kestd",
            ("the folder " + path + " cannot be made, code " + std::to_string(Code(status)) +
             "; it is tried again in a minute")
                .c_str());
}

void HomeFolders::Provide(const Exchange& exchange) const
{
    const AccessRules* const rules = exchange.access.Rules();
    if (!rules || !rules->MakesFolders() || exchange.auth.user.empty() || !IsDue(exchange))
        return;
    bool areThere = true;
    for (const std::string& folder : rules->FoldersToMake(exchange.access.Subject())) {
        const TALSTATUS status = make_(exchange.session.Get(), folder);
        if (IsThere(status))
            continue;
        areThere = false;
        Warn(folder, status);
    }
    Keep(exchange, areThere);
}

} // namespace kestd
