// SPDX-License-Identifier: Apache-2.0
//
// Which set of templates a client gets.
#pragma once

#include "index/context.h"

// Chooses by the "Cookie" and "user-agent" headers. `agent` (kIndexBuffer + 1 bytes) receives
// the agent's text, or nothing when the cookie decided. Headers that do not fit the buffers count
// as missing.
InterfaceMode SelectMode(IKestIO_5* pKestIo, char* agent);
// The part of the choice that looks at the agent's text.
InterfaceMode ModeOfAgent(const char* agent);
// True when the whole "Accept" header is "text/xml".
bool AcceptsOnlyXml(IKestIO_5* pKestIo);

// Reads a request header of at most kIndexBuffer bytes into `value`, which has room for one more,
// and terminates it; empty when the header is missing or does not fit.
void ReadHeader(IKestIO_5* pKestIo, const char* name, char* value);

// The files of each mode, indexed by it. Both script-capable modes share theirs.
extern const char* const mainTemplateFiles[kModeCount];
extern const char* const fileTemplateFiles[kModeCount];
