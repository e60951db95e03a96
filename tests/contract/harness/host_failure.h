// SPDX-License-Identifier: Apache-2.0
//
// What the scripted services of the host share.
#pragma once

#include <cstdint>

#include "recorder.h"
#include <kest/com.h>

namespace harness {

inline constexpr TALSTATUS HostFailure(UINT16 code)
{
    return MakeStatus(kFacilityHost, code);
}

// For what no module calls: noted and refused.
inline TALSTATUS NotScripted(Recorder& recorder, const char* name)
{
    return recorder.Enter(name).value_or(HostFailure(kCodeNotImplemented));
}

// What tells sessions apart.
inline std::uintptr_t Key(SCHANDLE session)
{
    return reinterpret_cast<std::uintptr_t>(session.hId);
}

} // namespace harness
