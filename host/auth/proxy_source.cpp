// SPDX-License-Identifier: Apache-2.0
//
// Users whom a trusted proxy has named.
#include "host/auth/proxy_source.h"

#include "base/ascii.h"
#include "host/access/rule.h"

namespace kestd {
namespace {

constexpr std::string_view kName = "proxy";

class ProxySource final : public CredentialsSource {
  public:
    std::string_view Name() const noexcept override { return kName; }
    bool Knows(std::string_view) const noexcept override { return false; }
    Verdict Check(const std::string&, std::string_view) override
    {
        return {Verdict::Outcome::UnknownUser, nullptr};
    }
    Verdict Find(const std::string& name) override
    {
        return {Verdict::Outcome::Granted, MakeProxyPrincipal(name, {})};
    }
    bool IsCurrent(const Principal&) const override { return true; }
};

} // namespace

std::shared_ptr<CredentialsSource> MakeProxySource()
{
    return std::make_shared<ProxySource>();
}

std::shared_ptr<const Principal> MakeProxyPrincipal(std::string_view name, std::string_view groups)
{
    Principal made;
    made.name = name;
    made.source = kName;
    made.key.append(name).append(1, '\0').append(kName).append(1, '\0').append(groups);
    std::string_view group;
    while (base::NextElement(groups, group))
        made.groups.push_back(GroupName(group));
    return std::make_shared<const Principal>(std::move(made));
}

} // namespace kestd
