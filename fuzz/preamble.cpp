// SPDX-License-Identifier: Apache-2.0
//
// Preambles of the PROXY protocol. However its bytes come, piece by piece or with more behind them,
// a preamble is read for the same.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/net/proxy_preamble.h"

namespace {

using kestd::PreambleState;

void Require(bool isSo)
{
    if (!isSo)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Of its own, so that a look behind the end is found.
    const std::string text(reinterpret_cast<const char*>(data), size);
    kestd::ProxyPreamble whole;
    const PreambleState state = kestd::ReadProxyPreamble(text, whole);
    Require(state != PreambleState::Incomplete || size < kestd::kLongestPreamble);
    if (state == PreambleState::Complete)
        Require(whole.size > 0 && whole.size <= size && whole.size <= kestd::kLongestPreamble);
    size_t step = size / 64 + 1; // not all beginnings of a long one
    for (size_t part = 0; part < size; part += step) {
        const std::string beginning(text.data(), part);
        kestd::ProxyPreamble early;
        const PreambleState then = kestd::ReadProxyPreamble(beginning, early);
        if (then == PreambleState::Incomplete)
            continue;
        // What has been said of a beginning stays so.
        Require(then == state);
        Require(early.size == whole.size && early.client == whole.client);
    }
    return 0;
}
