// SPDX-License-Identifier: Apache-2.0
//
// The page template and its directives.
#pragma once

#include "index/context.h"
#include "index/template.h"

// Renders the opened page template of a collection to its end. `pUrl` is the request's path without
// "/.index_xml", `agent` the "user-agent" text as received.
void RenderPage(NodeContext& context, UNICODE_STRING* pUrl, const char* agent, TemplateFile& file);

// Gives the file types that the page's template has set back.
void FreeDictionary(DictionaryHead& head);
