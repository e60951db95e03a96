// SPDX-License-Identifier: Apache-2.0
//
// The error template, in place of a list.
#include "index/error_page.h"

#include <cstdio>

#include "index/template.h"

TALSTATUS returnErrorHTML(IKestIO_5* pKestIo, TALSTATUS status)
{
    TemplateFile file;
    if (const TALSTATUS opened = file.Open("error.html"); Failed(opened))
        return opened;
    RenderTemplate(
        pKestIo, file,
        [pKestIo, status](char* keyword, char* resume) {
            if (IsDirective(keyword, "ErrorCode", 9)) {
                char code[16];
                (void)std::snprintf(code, sizeof(code), "%X", status);
                Put(pKestIo, code);
            }
            return resume;
        },
        DropRestOfLine);
    return TAL_STATUS_SUCCESS;
}
