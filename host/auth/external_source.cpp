// SPDX-License-Identifier: Apache-2.0
//
// Users whom somebody else has let in.
#include "host/auth/external_source.h"

#include "base/ascii.h"
#include "host/access/rule.h"

namespace kestd {
namespace {

class ExternalSource final : public CredentialsSource {
  public:
    explicit ExternalSource(std::string_view name) : name_(name) {}

    std::string_view Name() const noexcept override { return name_; }
    bool Knows(std::string_view) const noexcept override { return false; }
    Verdict Check(const std::string&, std::string_view) override
    {
        return {Verdict::Outcome::UnknownUser, nullptr};
    }
    Verdict Find(const std::string& name) override
    {
        return {Verdict::Outcome::Granted, MakeExternalPrincipal(name_, name, {})};
    }
    bool IsCurrent(const Principal&) const override { return true; }

  private:
    const std::string_view name_;
};

} // namespace

std::shared_ptr<CredentialsSource> MakeExternalSource(std::string_view name)
{
    return std::make_shared<ExternalSource>(name == kProxySource ? kProxySource
                                                                 : kCertificateSource);
}

std::shared_ptr<const Principal>
MakeExternalPrincipal(std::string_view source, std::string_view user, std::string_view groups)
{
    Principal made;
    made.name = user;
    made.source = source;
    made.key.append(user).append(1, '\0').append(source).append(1, '\0').append(groups);
    std::string_view group;
    while (base::NextElement(groups, group))
        made.groups.push_back(GroupName(group));
    return std::make_shared<const Principal>(std::move(made));
}

} // namespace kestd
