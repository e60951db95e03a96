// SPDX-License-Identifier: Apache-2.0
//
// Debugging aids. A component registers its name once; what it prints then carries that name. The
// component is known by the library that the call came from.
#include <dlfcn.h>
#include <signal.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include <kest/tolm.h>

#include "platform/internal.h"
#include "platform/talpl.h"

namespace tolm {
namespace {

constexpr std::size_t kLongestModuleName = 63;
constexpr std::size_t kMostModules = 64;

struct Module {
    const void* base; // where its library is loaded
    char name[kLongestModuleName + 1];
};

std::mutex g_modulesLock;
Module g_modules[kMostModules]; // under g_modulesLock
std::size_t g_moduleCount = 0;  // under g_modulesLock

// The library's start, and its file name in `info`.
const void* LibraryOf(const void* address, Dl_info& info) noexcept
{
    return dladdr(address, &info) ? info.dli_fbase : nullptr;
}

Module* Find(const void* base) noexcept
{
    for (std::size_t i = 0; i < g_moduleCount; ++i)
        if (g_modules[i].base == base)
            return &g_modules[i];
    return nullptr;
}

void NameOf(const void* address, char (&name)[kLongestModuleName + 1]) noexcept
{
    Dl_info info{};
    const void* base = LibraryOf(address, info);
    const std::lock_guard lock(g_modulesLock);
    if (const Module* module = Find(base)) {
        std::memcpy(name, module->name, sizeof name);
        return;
    }
    const char* file = info.dli_fname ? info.dli_fname : "unknown";
    const char* slash = std::strrchr(file, '/');
    std::snprintf(name, sizeof name, "%s", slash ? slash + 1 : file);
}

bool HasDebugger() noexcept
{
    FILE* status = std::fopen("/proc/self/status", "re");
    if (!status)
        return false;
    char line[128];
    bool traced = false;
    while (std::fgets(line, sizeof line, status))
        if (std::strncmp(line, "TracerPid:", 10) == 0)
            traced = std::atoi(line + 10) != 0;
    std::fclose(status);
    return traced;
}

} // namespace

TALSTATUS Talpl::TalxDebugBreakPoint()
{
    if (!HasDebugger()) // the signal would end the process
        return Fail(kCodeNotSupported);
    raise(SIGTRAP);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxDebugPrintf(const char* format, ...)
{
    if (!format)
        return Fail(kCodeInvalidParameter);
    char name[kLongestModuleName + 1];
    NameOf(__builtin_return_address(0), name);
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length < 0)
        return Fail(kCodeInvalidRequest);
    // A format usually ends its line itself; the log does too.
    const std::size_t end = std::strlen(text);
    if (end > 0 && text[end - 1] == '\n')
        text[end - 1] = 0;
    TolmLog(kLogInfo, name, text);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxRegisterModuleName(const char* name)
{
    if (!name || !*name)
        return Fail(kCodeInvalidParameter);
    if (std::strlen(name) > kLongestModuleName)
        return Fail(kCodeNameTooLong);
    Dl_info info{};
    const void* base = LibraryOf(__builtin_return_address(0), info);
    const std::lock_guard lock(g_modulesLock);
    Module* module = Find(base);
    if (!module) {
        if (g_moduleCount == kMostModules)
            return Fail(kCodeInsufficientResources);
        module = &g_modules[g_moduleCount++];
        module->base = base;
    }
    std::snprintf(module->name, sizeof module->name, "%s", name);
    return TAL_STATUS_SUCCESS;
}

} // namespace tolm
