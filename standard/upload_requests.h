// SPDX-License-Identifier: Apache-2.0
//
// The methods of an upload resource, and the PUT that begins one.
#pragma once

#include "standard/upload_resource.h"

namespace standard {

// Whether a request path is that of an upload resource, in `out` then. A provider of an older
// generation has none: under such a path it may have a file like any other. The caller does not
// hold the providers' list.
[[nodiscard]] bool NamesUpload(SCHANDLE session, const UNICODE_STRING& url, UploadResource& out);

// Each sends its whole reply and returns its last status.
TALSTATUS HeadUpload(SCHANDLE session, UploadResource& resource, IKestIO_5* io);
TALSTATUS PatchUpload(SCHANDLE session, UploadResource& resource, IKestIO_5* io);
TALSTATUS DeleteUpload(SCHANDLE session, UploadResource& resource, IKestIO_5* io);
TALSTATUS OptionsOfUpload(IKestIO_5* io);

// Sets what OPTIONS of a path says of uploads for it. False when none are offered there. `handler`
// serves the path; null where nothing is there yet. The caller holds the providers' list.
bool SetUploadOptions(SCHANDLE session, UNICODE_STRING path, KESTDAV_HANDLER* handler,
                      IKestIO_5* io);

} // namespace standard
