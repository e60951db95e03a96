// SPDX-License-Identifier: Apache-2.0
//
// Searches, binds, and reads groups.
#include "host/auth/ldap_source.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "base/ascii.h"
#include "base/utf.h"
#include "host/access/rule.h"
#include "host/auth/ldap_connection.h"
#include "host/auth/sha256.h"
#include "host/auth/users.h"
#include <kest/tolm.h>

namespace kestd {
namespace {

constexpr size_t kKeptConnections = 8; // kept of each kind for the next questions
constexpr const char* kMail = "mail";

std::string Replaced(std::string text, std::string_view what, const std::string& with)
{
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size())
        text.replace(at, what.size(), with);
    return text;
}

// The values of an attribute of an entry.
std::vector<std::string> ValuesOf(LDAP* connection, LDAPMessage* entry, const std::string& name)
{
    std::vector<std::string> texts;
    if (name.empty())
        return texts;
    berval** const values = ldap_get_values_len(connection, entry, name.c_str());
    const std::unique_ptr<berval*, void (*)(berval**)> owner(values, ldap_value_free_len);
    for (size_t i = 0; values && values[i]; ++i)
        texts.emplace_back(values[i]->bv_val, values[i]->bv_len);
    return texts;
}

// A group's name from a value of 'memberOf': the first component of an LDAP name, or a plain text.
std::string GroupOf(const std::string& value)
{
    LDAPDN name = nullptr;
    if (ldap_str2dn(value.c_str(), &name, LDAP_DN_FORMAT_LDAPV3) != LDAP_SUCCESS)
        return GroupName(value);
    const std::unique_ptr<LDAPRDN, void (*)(LDAPDN)> owner(name, ldap_dnfree);
    if (!name || !name[0] || !name[0][0])
        return GroupName(value);
    const berval& first = name[0][0]->la_value;
    return GroupName({first.bv_val, first.bv_len});
}

bool IsRefused(int result)
{
    return result == LDAP_INVALID_CREDENTIALS || result == LDAP_INAPPROPRIATE_AUTH ||
           result == LDAP_NO_SUCH_OBJECT || result == LDAP_INSUFFICIENT_ACCESS ||
           result == LDAP_CONSTRAINT_VIOLATION || result == LDAP_UNWILLING_TO_PERFORM;
}

// Connections for one purpose that wait to be used again. Thread-safe.
class IdleConnections {
  public:
    LdapConnection Take()
    {
        const std::lock_guard lock(mutex_);
        if (idle_.empty())
            return nullptr;
        LdapConnection taken = std::move(idle_.back());
        idle_.pop_back();
        return taken;
    }
    void Keep(LdapConnection connection)
    {
        const std::lock_guard lock(mutex_);
        if (idle_.size() < kKeptConnections)
            idle_.push_back(std::move(connection));
    }
    void Clear()
    {
        std::vector<LdapConnection> gone; // closed without the lock
        const std::lock_guard lock(mutex_);
        gone.swap(idle_);
    }

  private:
    std::mutex mutex_; // guards idle_
    std::vector<LdapConnection> idle_;
};

// What a search has found of a user.
struct FoundUser {
    std::string ldapName; // empty: there is none
    std::string name;
    std::string mail;
    std::vector<std::string> groups; // in lower case
    bool isAmbiguous = false;        // more than one entry
};

class LdapSource final : public CredentialsSource {
  public:
    LdapSource(const LdapSignIn& settings, std::string tree, const Clock& clock)
        : settings_(settings), server_{settings.server, settings.startsTls, settings.caCertificate,
                                       settings.timeout},
          tree_(std::move(tree)), stamp_(StampOf(settings)), clock_(clock)
    {
    }

    std::string_view Name() const noexcept override { return "ldap"; }
    bool IsRemote() const noexcept override { return true; }
    bool Knows(std::string_view) const noexcept override { return false; }

    Verdict Check(const std::string& name, std::string_view password) override
    {
        if (password.empty())
            return {Verdict::Outcome::Wrong, nullptr};
        FoundUser found;
        const Verdict::Outcome outcome = LookUp(name, found);
        if (outcome != Verdict::Outcome::Granted)
            return {outcome, nullptr};
        const int result = BindAs(found.ldapName, password);
        if (IsRefused(result))
            return {Verdict::Outcome::Wrong, nullptr};
        if (result != LDAP_SUCCESS)
            return Unavailable(result);
        return {Verdict::Outcome::Granted, MakePrincipal(std::move(found))};
    }
    Verdict Find(const std::string& name) override
    {
        FoundUser found;
        const Verdict::Outcome outcome = LookUp(name, found);
        if (outcome == Verdict::Outcome::Wrong)
            return {Verdict::Outcome::UnknownUser, nullptr};
        if (outcome != Verdict::Outcome::Granted)
            return {outcome, nullptr};
        return {Verdict::Outcome::Granted, MakePrincipal(std::move(found))};
    }
    // What the server would say is not known; other settings are another server.
    bool IsCurrent(const Principal& principal) const override
    {
        return principal.key.compare(principal.name.size() + 1, stamp_.size(), stamp_) == 0;
    }

  private:
    static std::string StampOf(const LdapSignIn& settings)
    {
        const Sha256Digest digest =
            Sha256(settings.server + '\0' + settings.base + '\0' + settings.userFilter,
                   settings.userName + '\0' + settings.groupAttribute + '\0' + settings.groupBase +
                       '\0' + settings.groupFilter + '\0' + settings.groupName);
        return {reinterpret_cast<const char*>(digest.data()), digest.size()};
    }

    // Granted: `found` is one user that can be let in.
    Verdict::Outcome LookUp(const std::string& name, FoundUser& found)
    {
        if (IsResting())
            return Verdict::Outcome::Unavailable;
        if (const int result = Search(name, found); result != LDAP_SUCCESS)
            return Unavailable(result).outcome;
        if (found.ldapName.empty() && !found.isAmbiguous)
            return Verdict::Outcome::UnknownUser;
        const char* const wrong = found.isAmbiguous ? "more than one entry fits 'User Filter'"
                                  : !WhatIsWrongWithName(found.name).empty()
                                      ? "'User Name' gives no usable name"
                                      : nullptr;
        if (!wrong)
            return Verdict::Outcome::Granted;
        const std::string text = "the LDAP server's user '" + name + "' cannot sign in: " + wrong;
        TolmLog(kLogWarning, "kestd", text.c_str());
        return Verdict::Outcome::Wrong;
    }

    // Calls `ask` with a connection that is bound for searches; once more with a fresh one when a
    // kept one turns out to be broken.
    template <class Ask> int WithConnection(IdleConnections& idle, bool isForSearch, Ask&& ask)
    {
        for (;;) {
            LdapConnection connection = idle.Take();
            const bool isKept = connection != nullptr;
            int result = isKept ? LDAP_SUCCESS : ConnectLdap(server_, connection);
            if (result == LDAP_SUCCESS && !isKept && isForSearch && !settings_.bindName.empty())
                result = BindLdap(connection.get(), settings_.bindName, settings_.bindPassword);
            if (result == LDAP_SUCCESS) {
                result = ask(connection.get());
                if (result == LDAP_SUCCESS || (!isForSearch && IsRefused(result))) {
                    idle.Keep(std::move(connection));
                    return result;
                }
            }
            if (!isKept)
                return result;
            idle.Clear(); // the server has closed them all, as it seems
        }
    }

    int Search(const std::string& name, FoundUser& found)
    {
        return WithConnection(searching_, true, [&](LDAP* connection) {
            found = {};
            const int result = SearchUser(connection, name, found);
            const bool isOne = result == LDAP_SUCCESS && !found.ldapName.empty();
            return isOne && !settings_.groupBase.empty() ? SearchGroups(connection, name, found)
                                                         : result;
        });
    }

    int Ask(LDAP* connection, const std::string& base, const std::string& filter,
            const std::vector<std::string>& attributes, int most, LdapMessage& reply)
    {
        std::vector<char*> wanted;
        for (const std::string& attribute : attributes)
            if (!attribute.empty())
                wanted.push_back(const_cast<char*>(attribute.c_str())); // libldap only reads them
        wanted.push_back(nullptr);
        timeval timeout = LdapTimeval(settings_.timeout);
        LDAPMessage* raw = nullptr;
        const int result =
            ldap_search_ext_s(connection, base.c_str(), LDAP_SCOPE_SUBTREE, filter.c_str(),
                              wanted.data(), 0, nullptr, nullptr, &timeout, most, &raw);
        reply.reset(raw);
        return result;
    }

    int SearchUser(LDAP* connection, const std::string& typed, FoundUser& found)
    {
        LdapMessage reply;
        const int result = Ask(connection, settings_.base,
                               Replaced(settings_.userFilter, "%u", EscapedForFilter(typed)),
                               {settings_.userName, settings_.groupAttribute, kMail}, 2, reply);
        if (result == LDAP_NO_SUCH_OBJECT)
            return LDAP_SUCCESS; // there is nobody below the base, not even the base
        if (result == LDAP_SIZELIMIT_EXCEEDED)
            found.isAmbiguous = true;
        if (result != LDAP_SUCCESS)
            return found.isAmbiguous ? LDAP_SUCCESS : result;
        found.isAmbiguous = ldap_count_entries(connection, reply.get()) > 1;
        LDAPMessage* const entry = ldap_first_entry(connection, reply.get());
        if (!entry || found.isAmbiguous)
            return LDAP_SUCCESS;
        const std::unique_ptr<char, void (*)(void*)> ldapName(ldap_get_dn(connection, entry),
                                                              ldap_memfree);
        if (!ldapName)
            return LDAP_NO_MEMORY;
        found.ldapName = ldapName.get();
        ReadUser(connection, entry, typed, found);
        return LDAP_SUCCESS;
    }

    void ReadUser(LDAP* connection, LDAPMessage* entry, const std::string& typed,
                  FoundUser& found) const
    {
        for (std::string& name : ValuesOf(connection, entry, settings_.userName))
            if (found.name.empty() || base::EqualsIgnoringCase(name, typed))
                found.name = std::move(name);
        for (const std::string& mail : ValuesOf(connection, entry, kMail))
            if (found.mail.empty() && WhatIsWrongWithField(mail).empty())
                found.mail = mail;
        for (const std::string& group : ValuesOf(connection, entry, settings_.groupAttribute))
            found.groups.push_back(GroupOf(group));
    }

    int SearchGroups(LDAP* connection, const std::string& typed, FoundUser& found)
    {
        // What is put in holds no "%": EscapedForFilter escapes it.
        const std::string filter =
            Replaced(Replaced(settings_.groupFilter, "%u", EscapedForFilter(typed)), "%d",
                     EscapedForFilter(found.ldapName));
        LdapMessage reply;
        const int result =
            Ask(connection, settings_.groupBase, filter, {settings_.groupName}, kMostGroups, reply);
        if (result != LDAP_SUCCESS)
            return result; // without all groups a rule that denies might be missed
        for (LDAPMessage* group = ldap_first_entry(connection, reply.get()); group;
             group = ldap_next_entry(connection, group))
            for (const std::string& name : ValuesOf(connection, group, settings_.groupName))
                found.groups.push_back(GroupName(name));
        return LDAP_SUCCESS;
    }

    int BindAs(const std::string& ldapName, std::string_view password)
    {
        return WithConnection(binding_, false, [&](LDAP* connection) {
            return BindLdap(connection, ldapName, password);
        });
    }

    std::shared_ptr<const Principal> MakePrincipal(FoundUser found) const
    {
        std::ranges::sort(found.groups);
        found.groups.erase(std::unique(found.groups.begin(), found.groups.end()),
                           found.groups.end());
        std::string said = found.ldapName;
        for (const std::string& group : found.groups)
            said.append(1, '\0').append(group);
        const Sha256Digest digest = Sha256(said, found.mail);
        Principal made;
        made.key = found.name + '\0' + stamp_;
        made.key.append(reinterpret_cast<const char*>(digest.data()), digest.size());
        made.dottedName = "CN=" + Replaced(found.name, ".", "\\.");
        made.tree = tree_;
        made.name = std::move(found.name);
        made.mail = std::move(found.mail);
        made.groups = std::move(found.groups);
        made.source = Name();
        return std::make_shared<const Principal>(std::move(made));
    }

    bool IsResting()
    {
        const std::lock_guard lock(mutex_);
        return clock_.Now() < restsUntil_;
    }

    Verdict Unavailable(int result)
    {
        {
            const std::lock_guard lock(mutex_);
            restsUntil_ = clock_.Now() + settings_.retryTime;
        }
        const std::string text = "nobody can sign in by the LDAP server " + settings_.server +
                                 ": " + ldap_err2string(result);
        TolmLog(kLogError, "kestd", text.c_str());
        return {Verdict::Outcome::Unavailable, nullptr};
    }

    const LdapSignIn settings_;
    const LdapServer server_;
    const std::string tree_;
    const std::string stamp_; // of what says who users are
    const Clock& clock_;
    IdleConnections searching_; // bound as 'Bind Name'
    IdleConnections binding_;   // bound as whoever has signed in last
    std::mutex mutex_;          // guards restsUntil_
    TimePoint restsUntil_{};
};

} // namespace

std::string EscapedForFilter(std::string_view text)
{
    std::string escaped;
    for (const char c : text) {
        if (c == '*' || c == '(' || c == ')' || c == '\\' || c == '\0' || c == '%') {
            constexpr char kDigits[] = "0123456789abcdef";
            const auto byte = static_cast<unsigned char>(c);
            escaped += {'\\', kDigits[byte >> 4], kDigits[byte & 15]};
        } else {
            escaped += c;
        }
    }
    return escaped;
}

std::shared_ptr<CredentialsSource> MakeLdapSource(const LdapSignIn& settings, std::string tree,
                                                  const Clock& clock)
{
    return std::make_shared<LdapSource>(settings, std::move(tree), clock);
}

} // namespace kestd
