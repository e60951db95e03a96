// SPDX-License-Identifier: Apache-2.0
//
// Gives the module's code the real platform layer before the first case runs.
#include <cstdlib>

#include "support/globals.h"
#include <kest/com.h>

namespace {

[[maybe_unused]] const bool g_ready = [] {
    void* out = nullptr;
    if (Failed(TolmCreateInstance(&CLSID_HadranTalpl, nullptr, &IID_IHadranTalpl_1, &out)))
        std::abort();
    pITalpl = static_cast<ITalpl*>(out);
    return true;
}();

} // namespace
