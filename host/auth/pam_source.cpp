// SPDX-License-Identifier: Apache-2.0
//
// Transactions with PAM.
#include "host/auth/pam_source.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include <grp.h>
#include <pwd.h>
#include <security/pam_appl.h>
#include <unistd.h>

#include "host/access/rule.h"
#include "host/auth/users.h"
#include <kest/tolm.h>

namespace kestd {
namespace {

constexpr size_t kLargestEntry = 1024 * 1024; // of a user or group of the system
constexpr int kFlags = PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK;

void Free(pam_response* replies, int count)
{
    for (int i = 0; i < count; ++i)
        if (char* const text = replies[i].resp) {
            explicit_bzero(text, std::strlen(text));
            std::free(text);
        }
    std::free(replies);
}

// Answers a question that is not echoed with the password, and no other one. `context` is the
// password.
int Answer(int count, const pam_message** messages, pam_response** out, void* context)
{
    if (count <= 0 || count > PAM_MAX_NUM_MSG)
        return PAM_CONV_ERR;
    const size_t size = static_cast<size_t>(count);
    auto* const replies = static_cast<pam_response*>(std::calloc(size, sizeof(pam_response)));
    if (!replies)
        return PAM_BUF_ERR;
    int result = PAM_SUCCESS;
    for (size_t i = 0; i < size && result == PAM_SUCCESS; ++i) {
        const int style = messages[i]->msg_style;
        if (style == PAM_PROMPT_ECHO_OFF && context) {
            replies[i].resp = strdup(static_cast<const char*>(context));
            result = replies[i].resp ? PAM_SUCCESS : PAM_BUF_ERR;
        } else if (style != PAM_TEXT_INFO && style != PAM_ERROR_MSG) {
            result = PAM_CONV_ERR;
        }
    }
    if (result == PAM_SUCCESS)
        *out = replies;
    else
        Free(replies, count);
    return result;
}

// Guesses are slowed where they come in; a thread of the pool is not kept.
void DoNotWait(int, unsigned, void*) {}

Verdict::Outcome OutcomeOf(int result)
{
    switch (result) {
    case PAM_SUCCESS:
        return Verdict::Outcome::Granted;
    case PAM_USER_UNKNOWN:
        return Verdict::Outcome::UnknownUser;
    case PAM_AUTH_ERR:
    case PAM_PERM_DENIED:
    case PAM_MAXTRIES:
    case PAM_ACCT_EXPIRED:
    case PAM_NEW_AUTHTOK_REQD:
    case PAM_AUTHTOK_EXPIRED:
    case PAM_CRED_INSUFFICIENT:
        return Verdict::Outcome::Wrong;
    default:
        return Verdict::Outcome::Unavailable;
    }
}

class Transaction {
  public:
    // `password`: null for none. Both outlive this.
    Transaction(const std::string& service, const std::string& name, const char* password)
        : conversation_{Answer, const_cast<char*>(password)}
    {
        result_ = pam_start(service.c_str(), name.c_str(), &conversation_, &handle_);
        const auto doNotWait = reinterpret_cast<const void*>(&DoNotWait);
        if (result_ == PAM_SUCCESS)
            result_ = pam_set_item(handle_, PAM_FAIL_DELAY, doNotWait);
    }
    ~Transaction()
    {
        if (handle_)
            (void)pam_end(handle_, result_);
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    int Authenticate() { return Do(pam_authenticate); }
    int CheckAccount() { return Do(pam_acct_mgmt); }
    // As the modules know the user; empty where they do not say.
    std::string User() const
    {
        const void* user = nullptr;
        return pam_get_item(handle_, PAM_USER, &user) == PAM_SUCCESS && user
                   ? static_cast<const char*>(user)
                   : std::string();
    }
    const char* Problem() const { return pam_strerror(handle_, result_); }

  private:
    int Do(int (*operation)(pam_handle_t*, int))
    {
        if (result_ == PAM_SUCCESS)
            result_ = operation(handle_, kFlags);
        return result_;
    }

    const pam_conv conversation_;
    pam_handle_t* handle_ = nullptr;
    int result_ = PAM_SYSTEM_ERR;
};

// Calls `get` with more and more room, until its result fits. An error number, or 0 with `found`
// null where there is nothing.
template <class Entry, class Get>
int ReadEntry(Entry& entry, Entry*& found, std::vector<char>& room, Get&& get)
{
    int error = ERANGE;
    for (size_t size = 4096; error == ERANGE && size <= kLargestEntry; size *= 4) {
        room.resize(size);
        error = get(&entry, room.data(), room.size(), &found);
    }
    return error;
}

// Of the system; none for a name that it does not know. False when they cannot be told, or not all
// of them: a rule that denies might be missed.
bool ReadGroups(const std::string& name, std::vector<std::string>& groups)
{
    passwd user{};
    passwd* known = nullptr;
    std::vector<char> room;
    if (ReadEntry(user, known, room, [&](auto... how) { return getpwnam_r(name.c_str(), how...); }))
        return false;
    if (!known)
        return true;
    int count = kMostGroups;
    std::vector<gid_t> numbers(kMostGroups);
    if (getgrouplist(name.c_str(), user.pw_gid, numbers.data(), &count) < 0)
        return false;
    numbers.resize(static_cast<size_t>(count));
    for (const gid_t number : numbers) {
        group entry{};
        group* named = nullptr;
        if (ReadEntry(entry, named, room, [&](auto... how) { return getgrgid_r(number, how...); }))
            return false;
        if (named)
            groups.push_back(GroupName(entry.gr_name));
    }
    return true;
}

class PamSource final : public CredentialsSource {
  public:
    explicit PamSource(std::string service) : service_(std::move(service)) {}

    std::string_view Name() const noexcept override { return "pam"; }
    bool IsRemote() const noexcept override { return true; }
    bool Knows(std::string_view) const noexcept override { return false; }
    Verdict Check(const std::string& name, std::string_view password) override
    {
        // The modules would see it up to its first zero byte; and an empty one is none.
        if (password.empty() || password.find('\0') != std::string_view::npos)
            return {Verdict::Outcome::Wrong, nullptr};
        std::string own(password);
        const Verdict verdict = Ask(name, own.c_str());
        explicit_bzero(own.data(), own.size());
        return verdict;
    }
    Verdict Find(const std::string& name) override { return Ask(name, nullptr); }
    bool IsCurrent(const Principal&) const override { return true; }

  private:
    Verdict Ask(const std::string& name, const char* password) const
    {
        if (!WhatIsWrongWithName(name).empty())
            return {Verdict::Outcome::UnknownUser, nullptr};
        Transaction transaction(service_, name, password);
        int result = password ? transaction.Authenticate() : PAM_SUCCESS;
        if (result == PAM_SUCCESS)
            result = transaction.CheckAccount();
        const Verdict::Outcome outcome = OutcomeOf(result);
        if (outcome == Verdict::Outcome::Unavailable)
            return Unavailable(transaction.Problem());
        if (outcome != Verdict::Outcome::Granted)
            return {outcome, nullptr};
        Principal made;
        made.name = transaction.User();
        if (!WhatIsWrongWithName(made.name).empty())
            return Unavailable("it gives no usable name");
        if (!ReadGroups(made.name, made.groups))
            return Unavailable("the groups of '" + made.name + "' cannot be read");
        return Granted(std::move(made));
    }
    Verdict Granted(Principal made) const
    {
        made.source = Name();
        made.key.append(made.name).append(1, '\0').append(Name());
        for (const std::string& group : made.groups)
            made.key.append(1, '\0').append(group);
        return {Verdict::Outcome::Granted, std::make_shared<const Principal>(std::move(made))};
    }
    Verdict Unavailable(const std::string& why) const
    {
        const std::string text = "nobody can sign in by PAM's service '" + service_ + "': " + why;
        TolmLog(kLogError, "kestd", text.c_str());
        return {Verdict::Outcome::Unavailable, nullptr};
    }

    const std::string service_;
};

} // namespace

std::shared_ptr<CredentialsSource> MakePamSource(std::string service)
{
    return std::make_shared<PamSource>(std::move(service));
}

} // namespace kestd
