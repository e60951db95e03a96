// SPDX-License-Identifier: Apache-2.0
//
// The files of an uploaded form, stored one after the other as they arrive.
#pragma once

#include <kest/io.h>

struct Upload {
    IKestIO_5* io;
    SCHANDLE session;
    // The collection's provider path. MaximumLength leaves room for the files' names behind it.
    UNICODE_STRING target;
    bool overwrite; // existing files may be replaced
};

// Stores every file of the request's body in the collection; fields that are no files and file
// fields without a file are passed over. A file that cannot be stored does not keep the others from
// being stored; the first failure is returned. Code 8 when the body ended before the form did. A
// content type without "boundary=" is a form without parts. The caller holds g_hHandlerLock.
[[nodiscard]] TALSTATUS StoreForm(Upload& upload, const char* contentType);
