// SPDX-License-Identifier: Apache-2.0
//
// The values of "Forwarded" and "X-Forwarded-For". What is taken is written out again, strictly,
// and has to be taken for the same.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/host_name.h"
#include "host/http/forwarded.h"

namespace {

std::string Quoted(const std::string& text)
{
    std::string quoted = "\"";
    for (const char c : text)
        quoted.append("\\").push_back(c);
    return quoted + "\"";
}

std::string Written(const std::vector<kestd::ForwardedHop>& hops)
{
    std::string text;
    for (const kestd::ForwardedHop& hop : hops) {
        text += text.empty() ? "for=" : ", for=";
        const std::string address = hop.client ? base::FormatIpAddress(*hop.client) : "unknown";
        text += hop.client && !hop.client->IsIpv4() ? "\"[" + address + "]\"" : address;
        if (!hop.host.empty())
            text += ";host=" + Quoted(hop.host);
        if (!hop.scheme.empty())
            text += ";proto=" + Quoted(hop.scheme);
    }
    return text;
}

void Require(bool isSo)
{
    if (!isSo)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string value(reinterpret_cast<const char*>(data), size);
    (void)kestd::ParseForwardedAddress(value);
    std::vector<kestd::ForwardedHop> hops;
    if (!kestd::ParseForwarded(value, hops))
        return 0;
    Require(!hops.empty() && hops.size() <= size);
    for (const kestd::ForwardedHop& hop : hops)
        Require(hop.host.empty() || base::IsValidHost(hop.host));
    std::vector<kestd::ForwardedHop> again;
    Require(kestd::ParseForwarded(Written(hops), again) && again.size() == hops.size());
    for (size_t i = 0; i < hops.size(); ++i)
        Require(again[i].client == hops[i].client && again[i].host == hops[i].host &&
                again[i].scheme == hops[i].scheme);
    return 0;
}
