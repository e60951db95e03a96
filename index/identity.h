// SPDX-License-Identifier: Apache-2.0
//
// Who is signed in, and where a folder really lives. All of it is best effort: what cannot be found
// out leaves its place on the page empty.
#pragma once

#include <kest/dav.h>
#include <kest/io.h>

inline constexpr TALSTATUS kFdnBadArgument = 0xC7BF0004;
inline constexpr TALSTATUS kFdnNoMemory = 0xC7BF0005;
inline constexpr TALSTATUS kUserNoMemory = 0xC7BC0005;
inline constexpr TALSTATUS kUserNameTooLong = 0xC7BC0007;
inline constexpr TALSTATUS kEmailTooLong = 0xC7BC0012;

// Builds a full distinguished name, "\\TREE\O=org\CN=admin" (in plain text) for the dotted name
// CN=admin.O=org in the domain TREE. A backslash in the dotted name takes its special meaning from
// the character behind it and is dropped. The caller frees *ppFDN; it is null on failure.
[[nodiscard]] TALSTATUS makeFDN(const WCHAR* pDomain, const WCHAR* pDN, WCHAR** ppFDN);

// The signed-in user's name in that form. The caller frees *ppUserFDN; it is null on failure.
[[nodiscard]] TALSTATUS getKestsrvUserDN(SCHANDLE hSc, WCHAR** ppUserFDN);

// The user's e-mail address from the directory. The caller sets the buffer and MaximumLength, which
// must be larger than the address. A user whose entry holds an empty value has an empty address.
[[nodiscard]] TALSTATUS getEmailAddress(SCHANDLE hSc, UNICODE_STRING* emailAddressU);

// Writes the user's name from the last component to the first, the domain last, each without its
// type and behind a dot: ".admin.org.TREE".
void PutUserName(IKestIO_5* io, SCHANDLE hSession);
// Writes the user's e-mail address, unescaped.
void PutEmailAddress(IKestIO_5* io, SCHANDLE hSession);

// Writes the server address and the server-side path of the request's folder, as its provider
// reports them: "192.0.2.1:VOL1:users/bob". `indexXml` says that the request's path ends in
// "/.index_xml". Takes g_hHandlerLock for reading.
TALSTATUS ReverseLookup(IKestIO_5* pKestIo, SCHANDLE hSession, bool indexXml);
// The same for a provider's root that is listed at the top level.
TALSTATUS ReverseLookupProvider(IKestIO_5* pKestIo, SCHANDLE hSession,
                                const DAV_COMMON_ENUM& resInfo);
