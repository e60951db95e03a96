// SPDX-License-Identifier: Apache-2.0
//
// The access rules as they are for who sent one request.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/access/access_rules.h"

namespace kestd {

// For one thread at a time. Before Begin, and without rules, everything is allowed.
class RequestAccess {
  public:
    // `rules` and `limits` (both may be null: allow everything), `user` (empty: not signed in) and
    // `told` (see AccessRules::SubjectOf) outlive the request. What the limits deny is denied,
    // whatever the rules say. `version` is another one for other rules; 0: it is not known. Throws
    // std::bad_alloc.
    void Begin(const AccessRules* rules, std::string_view user,
               const std::vector<std::string>* told, const AccessRules* limits = nullptr,
               uint64_t version = 0)
    {
        rules_ = rules;
        limits_ = limits;
        if (rules)
            TakeSubject(user, told, version);
        if (limits)
            limited_ = limits->SubjectOf(user, nullptr);
    }
    void Reset() noexcept
    {
        if (!IsRestricted())
            return;
        rules_ = nullptr;
        limits_ = nullptr;
        limited_ = {};
        denied_ = 0;
        askedSize_ = 0;
    }

    bool IsRestricted() const noexcept { return rules_ || limits_; }
    const AccessRules* Rules() const noexcept { return rules_; }
    const AccessSubject& Subject() const noexcept { return subject_; }
    // The stage and the provider mostly ask about the same path.
    Rights At(std::string_view path) noexcept
    {
        if (!IsRestricted())
            return kRightsAll;
        if (path == std::string_view(asked_.data(), askedSize_) && askedSize_ != 0)
            return answer_;
        Rights rights = rules_ ? rules_->At(subject_, path) : kRightsAll;
        if (limits_)
            rights &= limits_->At(limited_, path);
        if (path.size() <= asked_.size()) {
            askedSize_ = path.copy(asked_.data(), asked_.size());
            answer_ = rights;
        }
        return rights;
    }
    Rights OfMembers(std::string_view path, bool& isUniform) const noexcept
    {
        isUniform = true;
        Rights rights = rules_ ? rules_->OfMembers(subject_, path, isUniform) : kRightsAll;
        if (limits_) {
            bool isSame = true;
            rights &= limits_->OfMembers(limited_, path, isSame);
            isUniform = isUniform && isSame;
        }
        return rights;
    }
    Rights Below(std::string_view path) const noexcept
    {
        const Rights rights = rules_ ? rules_->Below(subject_, path) : kRightsAll;
        return limits_ ? rights & limits_->Below(limited_, path) : rights;
    }

    // Keeps the first refusal for the reply. Throws std::bad_alloc.
    void Deny(std::string_view path, Rights rights)
    {
        if (!IsRestricted() || denied_ || !rights)
            return;
        deniedPath_ = path;
        denied_ = rights;
    }
    Rights Denied() const noexcept { return denied_; } // 0: nothing has been refused
    const std::string& DeniedPath() const noexcept { return deniedPath_; }

  private:
    // One connection's requests are one user's mostly: who he is in the rules' numbers is kept.
    void TakeSubject(std::string_view user, const std::vector<std::string>* told, uint64_t version)
    {
        if (version != 0 && version == version_ && !told && user == user_)
            return;
        version_ = 0;
        user_ = user;
        subject_ = rules_->SubjectOf(user_, told);
        version_ = told ? 0 : version;
    }

    const AccessRules* rules_ = nullptr;
    const AccessRules* limits_ = nullptr; // of the app password
    std::string user_;                    // whom `subject_` stands for
    uint64_t version_ = 0; // of the rules in whose numbers; 0: it is not to be used again
    AccessSubject subject_;
    AccessSubject limited_; // the same in the numbers of the limits
    Rights denied_ = 0;
    std::string deniedPath_;      // keeps its room
    std::array<char, 256> asked_; // the path of the last question
    size_t askedSize_ = 0;        // 0: none, or a longer one
    Rights answer_ = 0;
};

} // namespace kestd
