// SPDX-License-Identifier: Apache-2.0
//
// IKestConfig: what the host is configured to be. Implemented by the host, CLSID_KestSrv as
// IID_KestConfig_1.
//
// Lengths: the buffer's room in bytes on entry (terminator included), the text's length on return;
// code 7 when it does not fit. Null pointers: code 4.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

struct IKestConfig : IUnknown {
    // Moves a module to another location. Not offered by kestd (code 13): a location holds until
    // the server ends. [any thread; concurrent; no reply]
    virtual TALSTATUS SetLocation(GUID* module, KEST_LOCATION_ACCESS access,
                                  UNICODE_STRING* location) = 0;
    // The name the server is known under, with the port unless it is the protocol's own.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS GetHostname(UINT32* length, char* buffer) = 0;
    // The path under which all modules are mounted: empty, or "/…" without a trailing "/".
    // [any thread; concurrent; no reply]
    virtual TALSTATUS GetLocation(UINT32* length, char* buffer) = 0;
    // The port of the name that GetHostname gives, in decimal. [any thread; concurrent; no reply]
    virtual TALSTATUS GetPort(UINT32* length, char* buffer) = 0;
    // After how many seconds without a request a session ends. [any thread; concurrent; no reply]
    virtual TALSTATUS GetSessionTimeout(UINT32* seconds) = 0;
    // The proxy for requests that components make. Code 11: there is none. [any thread; concurrent;
    // no reply]
    virtual TALSTATUS GetProxyInformation(UNICODE_STRING** proxy) = 0;
    // The `index`-th domain (from 0) against which users sign in. Borrowed; code 9 past the last.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS EnumAuthenticationDomains(UINT32 index, UNICODE_STRING** domain) = 0;
    // The `index`-th context of a domain in which names are looked for. Borrowed; code 9 past the
    // last, 11 for an unknown domain. [any thread; concurrent; no reply]
    virtual TALSTATUS EnumDomainContexts(UNICODE_STRING* domain, UINT32 index,
                                         UNICODE_STRING** context) = 0;
    // The credentials for the proxy. Not offered by kestd (code 13). [any thread; concurrent; no
    // reply]
    virtual TALSTATUS SetProxyCredentials(UNICODE_STRING* user, UNICODE_STRING* password) = 0;

  protected:
    ~IKestConfig() = default;
};
