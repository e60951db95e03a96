// SPDX-License-Identifier: Apache-2.0
//
// The list of a collection's entries on a page.
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

// Lists the collection of the running request into the page: the entries that pass the filter,
// sorted, of which one page is written with the entry template. `pUrl` is the request's path
// without "/.index_xml"; when it is as long as the moniker, the roots of all second-generation
// providers are listed. numberOfFiles is then the number of all entries that passed the filter. A
// collection that cannot be opened shows the error template instead, and its status is returned.
// Takes g_hHandlerLock for reading while it enumerates.
TALSTATUS HTMLIndexListFiles(NodeContext* nodeContext, const UNICODE_STRING* pUrl);
