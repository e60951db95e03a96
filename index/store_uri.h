// SPDX-License-Identifier: Apache-2.0
//
// The provider path of an index request.
#pragma once

#include "index/context.h"
#include "support/memory.h"

// The provider path of an index request: its path behind the moniker, unescaped, without a trailing
// "/" and without "/.index_xml".
class StoreUri {
  public:
    // Fails with GetUrl's status, or with code 5 when memory is short.
    [[nodiscard]] TALSTATUS Convert(IKestIO_5* pKestIo, bool indexXml);
    UNICODE_STRING* Get() { return &uri_; }

  private:
    Paged<WCHAR> buffer_;
    UNICODE_STRING uri_ = {};
};
