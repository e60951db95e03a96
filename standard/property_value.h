// SPDX-License-Identifier: Apache-2.0
//
// Live properties that clients set: which can be, and how their values are read.
#pragma once

#include "standard/xml_elements.h"
#include <kest/status.h>

namespace standard {

struct LiveChange {
    bool isLive = false; // else the property is a dead one, whatever its value
    UINT32 kind = 0;     // a kProperty number of records_3.h
    UINT64 number = 0;
    TALSTATUS status = TAL_STATUS_SUCCESS; // code 6: protected; code 33: no value of its kind
};

// True for a property that no provider keeps as a dead one.
bool IsLive(const XmlName& name) noexcept;

// What setting a property to this text comes to. Dates are taken as RFC 4918 writes them, as
// Microsoft's clients do, and as seconds since 1970 in DAV:lastmodified.
LiveChange ReadLiveChange(const XmlName& name, std::string_view text);

// A date of RFC 3339, such as "2026-01-31T12:00:00.5+01:00", in 100 ns units since 1601; 0 for
// anything else.
UINT64 ReadIsoDate(std::string_view text) noexcept;

} // namespace standard
