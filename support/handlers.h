// SPDX-License-Identifier: Apache-2.0
//
// The method handlers of the classic dialect, each defined in the room of its method.
#pragma once

#include "support/globals.h"
#include <kest/io.h>

// Each sends its whole reply and returns its last status, which the host only logs. pUrl has a
// spare code unit behind Length and loses one trailing "/" before.
TALSTATUS KestDavGet(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavHead(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavPut(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavPost(IKestIO_5* pKestIo, SCHANDLE hSession, UNICODE_STRING* pUrl);
TALSTATUS KestDavDelete(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavOptions(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavPropFind(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavPropPatch(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavMkCol(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavCopy(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavMove(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavLock(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavUnlock(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);

// What a browser's form gets: the outcome of an upload, and the page after a preference was set.
struct FormReplies {
    TALSTATUS (*outcome)(IKestIO_5* io, TALSTATUS status);
    TALSTATUS (*page)(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);
};
// POST in either dialect. `isAnswered` is cleared for a body without a type, of which nothing is
// done and which has no reply yet.
TALSTATUS AnswerForm(IKestIO_5* io, SCHANDLE session, UNICODE_STRING* url,
                     const FormReplies& replies, bool& isAnswered);
// The classic outcome, which the page's script reads: always 200.
TALSTATUS ReplyToForm(IKestIO_5* io, TALSTATUS status);

// The browser index, which GET and POST answer with.
TALSTATUS HTMLIndexRequest(IKestIO_5* pKestIo, SCHANDLE hSession, UNICODE_STRING* pUrl);
// False when there is certainly no template for the client's page, or for the XML document: the
// request fails without one.
[[nodiscard]] bool HasIndexTemplate(IKestIO_5* pKestIo, bool isXml);
