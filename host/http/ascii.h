// SPDX-License-Identifier: Apache-2.0
//
// The text helpers of base/ under the host's own names, for who has not changed over.
#pragma once

#include "base/ascii.h"
#include "base/hex.h"

namespace kestd {

using base::EqualsIgnoringCase;
using base::HasControl;
using base::HexValue;
using base::IsAscii;
using base::IsBlank;
using base::IsDigit;
using base::IsTokenChar;
using base::Lower;
using base::NextElement;
using base::ParseDecimal;
using base::Trimmed;

} // namespace kestd
