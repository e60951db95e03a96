// SPDX-License-Identifier: Apache-2.0
//
// Starts the module in two stages: the first DllGetClassObject runs stage one, the first
// CreateInstance stage two. Both run under g_hModuleMutex. The module is never shut down.
#pragma once

#include <atomic>
#include <pthread.h>

#include "support/globals.h"

// Serialises both stages.
extern pthread_mutex_t g_hModuleMutex;

// Set under g_hModuleMutex, tested outside it first.
extern std::atomic<bool> g_bInitialized;  // stage one succeeded
extern std::atomic<bool> g_vtInitialized; // stage two succeeded

// Under g_hModuleMutex.
extern bool g_bDavInitialized;     // stage one was attempted
extern TALSTATUS g_InitStatus;     // stage one's status
extern bool g_KestDavUnloading;    // the module tears itself down
extern const WCHAR kModuleKey[];   // the module's registry key
extern const WCHAR kProviderKey[]; // the subkeys of this one name the providers

class ModuleMutex {
  public:
    ModuleMutex() { pthread_mutex_lock(&g_hModuleMutex); }
    ~ModuleMutex() { pthread_mutex_unlock(&g_hModuleMutex); }
    ModuleMutex(const ModuleMutex&) = delete;
    ModuleMutex& operator=(const ModuleMutex&) = delete;
};

// Stage one: platform layer, start time, provider lock, factory, resolution cache. Attempted once;
// later calls return how that ended. Any code but 0 is a failure. Under g_hModuleMutex.
[[nodiscard]] TALSTATUS KestDavInitialization();

// Gives back what stage one made. Only after a failed start.
TALSTATUS KestDavCleanup();

// Stage two, unless it has succeeded before: configuration, events, session attribute, host
// utilities, providers. A failure is retried at the next call.
[[nodiscard]] TALSTATUS KestDavStageTwo();
