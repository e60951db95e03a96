// SPDX-License-Identifier: Apache-2.0
//
// Writes a collection's entries into a page: filtered, sorted, one page of them.
#pragma once

#include "index/context.h"

// Lists the collection of the running request into the page: the entries that pass the filter,
// sorted, of which one page is written with the entry template. `pUrl` is the request's path
// without "/.index_xml"; when it is as long as the moniker, the roots of all second-generation
// providers are listed. numberOfFiles is then the number of all entries that passed the filter. A
// collection that cannot be opened shows the error template instead, and its status is returned.
// Takes g_hHandlerLock for reading while it enumerates.
TALSTATUS HTMLIndexListFiles(NodeContext* nodeContext, const UNICODE_STRING* pUrl);
