// SPDX-License-Identifier: Apache-2.0
//
// The error template, in place of a list.
#pragma once

#include <kest/io.h>

// Writes the error template in place of a list, with the failed status in upper-case hexadecimal
// for its directive "ErrorCode". Sends no headers. Fails with code 15 when the template cannot be
// opened; nothing is written then.
TALSTATUS returnErrorHTML(IKestIO_5* pKestIo, TALSTATUS status);
