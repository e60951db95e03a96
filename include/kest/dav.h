// SPDX-License-Identifier: Apache-2.0
//
// Storage providers: everything that stands between the WebDAV module and the components that keep
// resources. One interface per header below dav/; this one includes them all.
//
// A provider class is created as IID_KestDAV_2 (second generation) or, failing that, IID_KestDAV_1;
// opened objects are created from the same class as IID_KestResource_1/_2 and
// IID_KestCollection_1/_2, one per use, and released after it. The third generation is another face
// of the objects of the second, found by QueryInterface (or created as IID_KestResource_3 and
// IID_KestCollection_3): changes that judge preconditions, entity tags, properties by namespace,
// members in batches. What a provider of an earlier generation cannot do:
//
//   conditions judged in the change; Depth 0 of a COPY          generation 3 only
//   dead properties with namespaces, attributes and xml:lang    generation 3 only
//   a range of existing content replaced; quota                 generation 3 only
//   uploads that go on after their connection (uploads_3.h)     generation 3, where offered
//   entity tags, locks, dead properties by name                 generations 2 and 3
//   content, dates, attributes, members one by one              all
//
// Paths are provider paths: unescaped, beginning with "/", without a trailing "/" (the root is "/"
// or empty). They and all other arguments belong to the caller and are valid during the call.
// Out-parameters are written on success only, unless an operation says otherwise.
//
// Failures are told by their low 16 bits (status.h). The module passes them on unchanged through
// MapTalStatusToHttpStatus; the number in brackets behind a code is what the client hears. Where it
// looks away from a failure, the operation says so: what must not pass for "not there" or for a
// shorter list is then reported through IKestCallContext::ReportFailure (host/call_context.h).
//
// The tag that ends an operation's comment says, in this order:
//   request thread    called on the thread that runs the request just then; a request may go on on
//                     another thread after it has waited for its client, so nothing about it may be
//                     kept per thread (IKestCallContext::SetAttachment keeps it with the request)
//   any thread        on that or any other thread of the process
//   event thread      on the one thread that delivers events
//   start-up          before the first request, on the thread that starts the server
//   concurrent        many calls on the same object at once; one at a time: never two; once: one
//                     call in the object's life
//   before the reply  while the client has heard nothing: a failure can still be its answer
//   during the reply  perhaps after the reply's head has left
//   after the reply   when it has left
//   no reply          outside requests
#pragma once

#include <kest/dav/collection_1.h>
#include <kest/dav/collection_2.h>
#include <kest/dav/collection_3.h>
#include <kest/dav/content_file_3.h>
#include <kest/dav/failures_3.h>
#include <kest/dav/namespace_1.h>
#include <kest/dav/namespace_2.h>
#include <kest/dav/namespace_3.h>
#include <kest/dav/records.h>
#include <kest/dav/records_3.h>
#include <kest/dav/resource_1.h>
#include <kest/dav/resource_2.h>
#include <kest/dav/resource_3.h>
#include <kest/dav/uploads_3.h>
