// SPDX-License-Identifier: Apache-2.0
//
// Looks users up and compares their hashes.
#include "host/auth/user_list.h"

#include <utility>

#include "host/auth/sha256.h"

namespace kestd {
namespace {

class UserList final : public CredentialsSource {
  public:
    UserList(std::string name, UserMap users, PasswordMatcher matches)
        : name_(std::move(name)), users_(std::move(users)), matches_(std::move(matches))
    {
    }

    std::string_view Name() const noexcept override { return name_; }
    bool Knows(std::string_view name) const noexcept override { return users_.contains(name); }
    Verdict Check(const std::string& name, std::string_view password) override
    {
        const auto found = users_.find(name);
        if (found == users_.end())
            return {Verdict::Outcome::UnknownUser, nullptr};
        if (!matches_(password, found->second->hash))
            return {Verdict::Outcome::Wrong, nullptr};
        return {Verdict::Outcome::Granted, MakePrincipal(*found->second)};
    }
    Verdict Find(const std::string& name) override
    {
        const auto found = users_.find(name);
        if (found == users_.end())
            return {Verdict::Outcome::UnknownUser, nullptr};
        return {Verdict::Outcome::Granted, MakePrincipal(*found->second)};
    }
    bool IsCurrent(const Principal& principal) const override
    {
        const auto found = users_.find(principal.name);
        return found != users_.end() && principal.key.starts_with(KeyOf(*found->second));
    }

  private:
    std::string KeyOf(const User& user) const
    {
        const Sha256Digest digest = Sha256(name_, FormatUser(user));
        std::string key = user.name;
        key += '\0';
        key.append(reinterpret_cast<const char*>(digest.data()), digest.size());
        return key;
    }
    std::shared_ptr<const Principal> MakePrincipal(const User& user) const
    {
        Principal made{user.name, user.dottedName, user.tree, user.mail, KeyOf(user)};
        made.source = name_;
        return std::make_shared<const Principal>(std::move(made));
    }

    const std::string name_;
    const UserMap users_;
    const PasswordMatcher matches_;
};

} // namespace

std::shared_ptr<CredentialsSource> MakeUserList(std::string name, UserMap users,
                                                PasswordMatcher matches)
{
    return std::make_shared<UserList>(std::move(name), std::move(users), std::move(matches));
}

} // namespace kestd
