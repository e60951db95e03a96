// SPDX-License-Identifier: Apache-2.0
//
// Opened objects of scripted providers.
#pragma once

#include "provider.h"

namespace harness {

// Each makes an object with one reference.
IKestDAVResource* NewResource1(Provider& provider);
IKestDAVResource2* NewResource2(Provider& provider);
IKestDAVCollection* NewCollection1(Provider& provider);
IKestDAVCollection2* NewCollection2(Provider& provider);

} // namespace harness
