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

void Make(IKestDAV2& provider, SCHANDLE session, const std::string& path)
{
    std::u16string wide;
    TALSTATUS status = HostFailure(kCodeInvalidParameter);
    if (base::AppendUtf16(path, wide) && wide.size() < 0x7000) {
        UNICODE_STRING text{static_cast<UINT16>(wide.size() * sizeof(WCHAR)),
                            static_cast<UINT16>(wide.size() * sizeof(WCHAR)), wide.data()};
        status = provider.MkCol(session, nullptr, &text);
    }
    if (!IsThere(status))
        TolmLog(kLogError, "kestd",
                ("the folder " + path + " cannot be made, code " + std::to_string(Code(status)))
                    .c_str());
}

} // namespace

bool HomeFolders::IsFirst(const Exchange& exchange) const
{
    const std::lock_guard lock(mutex_);
    if (version_ != exchange.settings->version) {
        seen_.clear();
        version_ = exchange.settings->version;
    }
    return seen_.insert(exchange.auth.user).second;
}

void HomeFolders::Provide(const Exchange& exchange) const
{
    const AccessRules* const rules = exchange.access.Rules();
    if (!rules || !rules->MakesFolders() || exchange.auth.user.empty() || !IsFirst(exchange))
        return;
    Ref<IKestDAV2> provider;
    if (Failed(Create(CLSID_FileStore, provider)))
        return TolmLog(kLogError, "kestd", "no folders are made: there is no file store");
    for (const std::string& folder : rules->FoldersToMake(exchange.access.Subject()))
        Make(*provider.Get(), exchange.session.Get(), folder);
}

} // namespace kestd
