// SPDX-License-Identifier: Apache-2.0
//
// Asks an LDAP server and keeps what it said for a while.
#include "host/components/directory_ldap.h"

#include <list>
#include <mutex>
#include <unordered_map>

#include "base/utf.h"
#include "host/auth/ldap_connection.h"
#include "host/component.h"
#include "host/components/directory_names.h"
#include <kest/tolm.h>

namespace kestd {
namespace {

constexpr size_t kIdleConnections = 4; // kept for the next questions
constexpr size_t kMostValues = 64;     // of one attribute
constexpr size_t kLongestValue = 4096; // bytes; longer ones are left out

class LdapDirectory final : public DirectoryBackend {
  public:
    LdapDirectory(const LdapSettings& settings, const Clock& clock)
        : settings_(settings), clock_(clock)
    {
        for (const auto& [name, attribute] : settings_.attributes)
            wanted_.push_back(const_cast<char*>(attribute.c_str())); // libldap only reads them
        wanted_.push_back(nullptr);
    }

    TALSTATUS Read(std::u16string_view name, std::shared_ptr<const DirectoryEntry>& entry) override
    {
        const auto parsed = ParseFullName(name);
        const auto ldapName = parsed ? LdapName(*parsed, settings_.base) : std::nullopt;
        if (!ldapName)
            return HostFailure(kCodeInvalidRequest);
        if (FindCached(*ldapName, entry))
            return entry ? TAL_STATUS_SUCCESS : HostFailure(kCodeNotFound);
        if (IsResting())
            return HostFailure(kCodeUnsuccessful);
        const int result = Ask(*ldapName, entry);
        if (result != LDAP_SUCCESS && result != LDAP_NO_SUCH_OBJECT) {
            Rest(result);
            return HostFailure(kCodeUnsuccessful);
        }
        Remember(*ldapName, entry);
        return entry ? TAL_STATUS_SUCCESS : HostFailure(kCodeNotFound);
    }

  private:
    struct Cached {
        std::string name;
        std::shared_ptr<const DirectoryEntry> entry; // null: there is none
        TimePoint until;
    };

    // Searches once more with a fresh connection when a kept one turns out to be broken.
    int Ask(const std::string& name, std::shared_ptr<const DirectoryEntry>& entry)
    {
        for (bool mayRetry = true;; mayRetry = false) {
            bool isKept = false;
            LdapConnection connection = TakeConnection(isKept);
            int result = LDAP_SUCCESS;
            if (!connection)
                result = Connect(connection);
            if (result == LDAP_SUCCESS)
                result = Search(connection.get(), name, entry);
            if (result == LDAP_SUCCESS || result == LDAP_NO_SUCH_OBJECT) {
                KeepConnection(std::move(connection));
                return result;
            }
            if (!isKept || !mayRetry)
                return result;
            const std::lock_guard lock(mutex_);
            idle_.clear(); // the server has closed them all, as it seems
        }
    }

    int Connect(LdapConnection& connection) const
    {
        LdapConnection fresh;
        int result = ConnectLdap(
            {settings_.server, settings_.startsTls, settings_.caCertificate, settings_.timeout},
            fresh);
        // Without a password a bind is nobody's, which the connection is already.
        if (result == LDAP_SUCCESS && !settings_.bindPassword.empty())
            result = BindLdap(fresh.get(), settings_.bindName, settings_.bindPassword);
        if (result == LDAP_SUCCESS)
            connection = std::move(fresh);
        return result;
    }

    int Search(LDAP* connection, const std::string& name,
               std::shared_ptr<const DirectoryEntry>& entry)
    {
        timeval timeout = LdapTimeval(settings_.timeout);
        LDAPMessage* raw = nullptr;
        std::vector<char*> wanted = wanted_;
        const int result =
            ldap_search_ext_s(connection, name.c_str(), LDAP_SCOPE_BASE, "(objectClass=*)",
                              wanted.data(), 0, nullptr, nullptr, &timeout, 1, &raw);
        const LdapMessage message(raw);
        LDAPMessage* const first =
            result == LDAP_SUCCESS ? ldap_first_entry(connection, raw) : nullptr;
        if (result == LDAP_SUCCESS && !first)
            return LDAP_NO_SUCH_OBJECT; // there, but not for these eyes
        if (first)
            entry = ReadEntry(connection, first);
        return result;
    }

    std::shared_ptr<const DirectoryEntry> ReadEntry(LDAP* connection, LDAPMessage* from) const
    {
        auto entry = std::make_shared<DirectoryEntry>();
        for (const auto& [name, attribute] : settings_.attributes) {
            berval** const values = ldap_get_values_len(connection, from, attribute.c_str());
            const std::unique_ptr<berval*, void (*)(berval**)> owner(values, ldap_value_free_len);
            std::vector<std::u16string> texts;
            for (size_t i = 0; values && values[i] && texts.size() < kMostValues; ++i)
                if (values[i]->bv_len <= kLongestValue)
                    if (auto text = base::ToUtf16({values[i]->bv_val, values[i]->bv_len}))
                        texts.push_back(std::move(*text));
            const auto wide = base::ToUtf16(name);
            if (wide && !texts.empty())
                (*entry)[FoldedName(*wide)] = std::move(texts);
        }
        return entry;
    }

    LdapConnection TakeConnection(bool& isKept)
    {
        const std::lock_guard lock(mutex_);
        isKept = !idle_.empty();
        if (!isKept)
            return nullptr;
        LdapConnection taken = std::move(idle_.back());
        idle_.pop_back();
        return taken;
    }

    void KeepConnection(LdapConnection connection)
    {
        const std::lock_guard lock(mutex_);
        if (idle_.size() < kIdleConnections)
            idle_.push_back(std::move(connection));
    }

    bool FindCached(const std::string& name, std::shared_ptr<const DirectoryEntry>& entry)
    {
        const std::lock_guard lock(mutex_);
        const auto found = index_.find(name);
        if (found == index_.end())
            return false;
        if (clock_.Now() >= found->second->until) {
            cache_.erase(found->second);
            index_.erase(found);
            return false;
        }
        entry = found->second->entry;
        return true;
    }

    void Remember(const std::string& name, const std::shared_ptr<const DirectoryEntry>& entry)
    {
        const std::lock_guard lock(mutex_);
        if (index_.find(name) != index_.end())
            return;
        while (!cache_.empty() && cache_.size() >= settings_.cacheEntries) {
            index_.erase(cache_.back().name);
            cache_.pop_back();
        }
        cache_.push_front({name, entry, clock_.Now() + settings_.cacheTime});
        try {
            index_[name] = cache_.begin();
        } catch (...) {
            cache_.pop_front();
            throw;
        }
    }

    bool IsResting()
    {
        const std::lock_guard lock(mutex_);
        return clock_.Now() < restsUntil_;
    }

    void Rest(int result)
    {
        {
            const std::lock_guard lock(mutex_);
            restsUntil_ = clock_.Now() + settings_.retryTime;
            idle_.clear();
        }
        const std::string text =
            "the directory " + settings_.server + " cannot be asked: " + ldap_err2string(result);
        TolmLog(kLogWarning, "kestd", text.c_str());
    }

    const LdapSettings settings_;
    const Clock& clock_;
    std::vector<char*> wanted_; // into settings_

    std::mutex mutex_; // guards the rest; never held while a server is asked
    std::vector<LdapConnection> idle_;
    std::list<Cached> cache_; // the last read first
    std::unordered_map<std::string, std::list<Cached>::iterator> index_;
    TimePoint restsUntil_{};
};

} // namespace

std::unique_ptr<DirectoryBackend> MakeLdapDirectory(const LdapSettings& settings,
                                                    const Clock& clock)
{
    return std::make_unique<LdapDirectory>(settings, clock);
}

} // namespace kestd
