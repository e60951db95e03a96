// SPDX-License-Identifier: Apache-2.0
//
// Templates: read, and taken apart into lines and directives.
#include "index/template.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <strings.h>
#include <unistd.h>

#include "support/registry_key.h"

namespace {

constexpr char kNotConfigured[] = "/";
constexpr char kUnusable[] = "c:\\"; // kept: no such directory exists, so no template is found

// The first directory that was read. Whoever comes first fills it; others who read it meanwhile go
// on with what they read themselves, which is the same.
char g_TemplateDir[kTemplateDirBytes];
enum class Fill { kEmpty, kFilling, kFilled };
std::atomic<Fill> g_templateDirFill{Fill::kEmpty};

constexpr UINT32 kValueBytes = 536;

// Reads the registry value; null when it cannot be had. `units` does not count its terminator.
const WCHAR* QueryTemplateDir(char* buffer, UINT32& units)
{
    RegistryKey key;
    if (Code(key.Open(u"Kest\\Configuration\\KestDav")) != 0)
        return nullptr;
    UINT32 resultLength = 0;
    const TALSTATUS status = pITalpl->TalxQueryValueKey(key.Get(), u"Template Directory", buffer,
                                                        kValueBytes, &resultLength);
    if (Code(status) != 0)
        return nullptr;
    UINT32 length = 0;
    const auto* value = reinterpret_cast<const WCHAR*>(ValueData(buffer, kValueBytes, length));
    if (!value)
        return nullptr;
    units = static_cast<UINT32>(length / sizeof(WCHAR));
    while (units > 0 && value[units - 1] == 0)
        --units;
    return value;
}

// A template that nobody has installed is no failure: what it would show is left out.
void ReportUnlessMissing(int error)
{
    if (error == EMFILE || error == ENFILE || error == ENOMEM)
        ReportFailure(TAL_STATUS_INSUFFICIENT_RESOURCES);
    else if (error != ENOENT && error != ENOTDIR && error != EACCES && error != ENAMETOOLONG)
        ReportFailure(TAL_STATUS_UNSUCCESSFUL);
}

constexpr size_t kLongestName = 32; // the template names are ours

struct TemplatePath {
    explicit TemplatePath(const char* name)
    {
        TemplateDirectory(text);
        std::strncat(text, name, kLongestName - 1);
    }
    char text[kTemplateDirBytes + kLongestName];
};

} // namespace

TALSTATUS GetTemplateDir(char* directory)
{
    alignas(TALX_KEY_VALUE_INFORMATION) char buffer[kValueBytes];
    UINT32 units = 0;
    const WCHAR* value = QueryTemplateDir(buffer, units);
    if (value == nullptr) {
        std::memcpy(directory, kNotConfigured, sizeof(kNotConfigured));
        return TAL_STATUS_SUCCESS;
    }
    directory[0] = '\0';
    if (units == 0)
        return TAL_STATUS_SUCCESS;
    UINT32 bytes = kTemplateDirBytes - 1;
    const TALSTATUS status =
        pITalpl->TalxWideCharToMultiByte(kCodePageUtf8, value, units, directory, &bytes);
    directory[Code(status) == 0 ? bytes : 0] = '\0';
    return status;
}

void TemplateDirectory(char* directory)
{
    if (g_templateDirFill.load(std::memory_order_acquire) == Fill::kFilled) {
        std::memcpy(directory, g_TemplateDir, kTemplateDirBytes);
        return;
    }
    if (Code(GetTemplateDir(directory)) != 0)
        std::memcpy(directory, kUnusable, sizeof(kUnusable));
    if (directory[0] == '\0')
        return; // an empty setting is read again
    Fill empty = Fill::kEmpty;
    if (g_templateDirFill.compare_exchange_strong(empty, Fill::kFilling)) {
        std::memcpy(g_TemplateDir, directory, std::strlen(directory) + 1);
        g_templateDirFill.store(Fill::kFilled, std::memory_order_release);
    }
}

bool HasTemplate(const char* name)
{
    const TemplatePath path(name);
    return access(path.text, F_OK) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

TALSTATUS TemplateFile::Open(const char* name)
{
    const TemplatePath path(name);
    do
        file_.reset(std::fopen(path.text, "r"));
    while (!file_ && errno == EINTR);
    if (!file_) {
        ReportUnlessMissing(errno);
        return TAL_STATUS_OPEN_FAILED;
    }
    line_ = AllocPaged<char>(kIndexBuffer);
    return line_ ? TAL_STATUS_SUCCESS : TAL_STATUS_INSUFFICIENT_RESOURCES;
}

char* TemplateFile::NextLine()
{
    char* const line = std::fgets(line_.get(), kIndexBuffer, file_.get());
    if (line == nullptr && std::ferror(file_.get()) != 0)
        ReportFailure(TAL_STATUS_UNSUCCESSFUL); // the rest of the page is missing
    return line;
}

bool IsDirective(const char* text, const char* name, size_t prefix)
{
    return strncasecmp(text, name, std::min(prefix, std::strlen(name))) == 0;
}

const char* ArgumentOf(const char* text, const char* name)
{
    return text + std::min(std::strlen(text), std::strlen(name));
}
