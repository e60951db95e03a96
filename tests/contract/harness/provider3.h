// SPDX-License-Identifier: Apache-2.0
//
// The third generation of scripted providers, over the same tree as the other two. Its calls go
// through the recorder as "NAME.3.Op" (namespace) and "NAME.res3.Op" (opened resource), with the
// preconditions that they were handed last.
//
// Preconditions are judged for real: tags against what stands at the path, tokens and locks
// against the nodes' locks, of which one with depth -1 holds for everything below.
#pragma once

#include "provider.h"
#include <kest/dav/collection_3.h>
#include <kest/dav/namespace_3.h>
#include <kest/dav/resource_3.h>
#include <kest/dav/uploads_3.h>

namespace harness {

// The namespace object; its references are the provider's.
std::shared_ptr<IKestDAV3> MakeNamespace3(Provider& provider);
// The face of it that takes uploads; its calls are "NAME.up3.Op", those of the content that it
// hands out "NAME.more3.Op".
std::shared_ptr<IKestDAVUploads3> MakeUploads3(Provider& provider);
// An opened object with one reference.
IKestDAVResource3* NewResource3(Provider& provider);

// An opened collection with one reference; its calls are "NAME.col3.Op".
IKestDAVCollection3* NewCollection3(Provider& provider);

// Makes `content` that of a path, or a new file of it.
void PutUnderName(Provider& provider, const std::u16string& path, const std::string& content,
                  DAV_DATETIME modified, DAV_CHANGE* change);

// What is told of a node.
void Describe(const Node& node, DAV_OBJECT_INFO* info);

// A node's entity tag: its own text, or "vN" in quotes, where N counts its contents.
std::string TagOf(const Node& node);

// "-" for none, else "match=…; none-match=…; since=…; if=COUNT; tokens=a,b", what was sent of it.
std::string PreconditionsText(const DAV_PRECONDITIONS* preconditions);

} // namespace harness
