// SPDX-License-Identifier: Apache-2.0
//
// The page template and its directives, and the error template.
#pragma once

#include "index/context.h"
#include "index/template.h"

// Renders the opened page template of a collection to its end. `pUrl` is the request's path without
// "/.index_xml", `agent` the "user-agent" text as received.
void RenderPage(NodeContext& context, UNICODE_STRING* pUrl, const char* agent, TemplateFile& file);

// Writes the error template in place of a list, with the failed status in upper-case hexadecimal
// for its directive "ErrorCode". Sends no headers. Fails with code 15 when the template cannot be
// opened; nothing is written then.
TALSTATUS returnErrorHTML(IKestIO_5* pKestIo, TALSTATUS status);

// Gives the file types that the page's template has set back.
void FreeDictionary(DictionaryHead& head);
