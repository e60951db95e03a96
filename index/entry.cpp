// SPDX-License-Identifier: Apache-2.0
//
// The entry template, rendered for every entry.
#include "index/entry.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <strings.h>

#include "index/calendar.h"
#include "index/clientmode.h"
#include "index/identity.h"
#include "index/template.h"
#include "index/text.h"
#include "support/utf8.h"

namespace {

// Names the entries of all pages; never reset. Its values only have to differ within a page.
std::atomic<UINT64> fileID{0};

class EntryWriter {
  public:
    EntryWriter(SortNode& node, TemplateFile& file, const char* name, UINT64 id)
        : node_(node), context_(*node.context), head_(*node.context->dHead),
          io_(node.context->pKestIo), file_(file), name_(name), id_(id)
    {
    }

    char* Run(char* keyword, char* resume);

  private:
    struct Directive {
        const char* name;
        size_t prefix;
        void (EntryWriter::*write)(const char* argument);
    };
    static const Directive kDirectives[];

    void DisplayName(const char*) { Put(io_, name_); }
    void FileSize(const char*);
    void FileIndex(const char*);
    void FileType(const char*) { Put(io_, TypeText()); }
    void FileUrl(const char*);
    void IsFolderText(const char*) { Put(io_, IsFolder() ? "true" : "false"); }
    void IsDeletedText(const char*);
    void ShortName(const char* argument);
    void ModifyTime(const char* format);
    void DevicePath(const char*);

    bool IsFolder() const { return node_.resInfo.Type == Collection; }
    bool Holds(const char* condition) const;
    const char* TypeText() const;
    char* SkipBlock(char* text);

    const SortNode& node_;
    const NodeContext& context_;
    const DictionaryHead& head_;
    IKestIO_5* io_;
    TemplateFile& file_;
    const char* name_; // the display name in UTF-8
    UINT64 id_;
};

const EntryWriter::Directive EntryWriter::kDirectives[] = {
    {"DisplayName", 11, &EntryWriter::DisplayName}, {"FileSize", 8, &EntryWriter::FileSize},
    {"FileIndex", 9, &EntryWriter::FileIndex},      {"Filetype", 8, &EntryWriter::FileType},
    {"FileURL", 7, &EntryWriter::FileUrl},          {"IsFolder", 8, &EntryWriter::IsFolderText},
    {"IsDeleted", 9, &EntryWriter::IsDeletedText},  {"ShortName", 9, &EntryWriter::ShortName},
    {"ModifyTime", 10, &EntryWriter::ModifyTime},   {"DevicePath", 10, &EntryWriter::DevicePath},
};

constexpr char kIf[] = "if:";
constexpr char kEndIf[] = "endIf";

char* EntryWriter::Run(char* keyword, char* resume)
{
    for (const Directive& directive : kDirectives) {
        if (IsDirective(keyword, directive.name, directive.prefix)) {
            (this->*directive.write)(ArgumentOf(keyword, directive.name));
            return resume;
        }
    }
    if (IsDirective(keyword, kIf, sizeof(kIf) - 1) && !Holds(ArgumentOf(keyword, kIf)))
        return SkipBlock(resume);
    return resume;
}

bool EntryWriter::Holds(const char* condition) const
{
    if (strcasecmp(condition, "odd") == 0)
        return head_.numberOfFiles % 2 != 0;
    if (strcasecmp(condition, "isFolder") == 0)
        return IsFolder();
    if (strcasecmp(condition, "isFile") == 0)
        return !IsFolder();
    if (strcasecmp(condition, "isDeleted") == 0)
        return node_.deleted != 0;
    return strcasecmp(condition, "isNotDeleted") == 0 && node_.deleted == 0;
}

// Drops everything up to the next "endIf", reading further lines as needed. Blocks do not nest.
char* EntryWriter::SkipBlock(char* text)
{
    for (; text != nullptr; text = file_.NextLine()) {
        char* mark = std::strstr(text, kDirectiveMark);
        for (; mark != nullptr; mark = std::strstr(text, kDirectiveMark)) {
            text = mark + kDirectiveMarkLength;
            if (!IsDirective(text, kEndIf, sizeof(kEndIf) - 1))
                continue;
            char* end = std::strstr(text, kDirectiveEnd);
            return end != nullptr ? end + kDirectiveEndLength : DropRestOfLine(text);
        }
    }
    return nullptr;
}

void EntryWriter::FileSize(const char*)
{
    constexpr unsigned long long kMega = 1048576;
    constexpr unsigned long long kKilo = 1024;
    const unsigned long long size = node_.resInfo.ResourceSize;
    char text[32];
    if (size > kMega)
        (void)std::snprintf(text, sizeof(text), "%lluM", size / kMega);
    else if (size > kKilo)
        (void)std::snprintf(text, sizeof(text), "%lluK", size / kKilo);
    else
        (void)std::snprintf(text, sizeof(text), "%llu", size);
    Put(io_, text);
}

void EntryWriter::FileIndex(const char*)
{
    char text[32];
    (void)std::snprintf(text, sizeof(text), "file%u", static_cast<UINT32>(id_));
    Put(io_, text);
}

const char* EntryWriter::TypeText() const
{
    if (IsFolder())
        return head_.folderFileType;
    if (const char* dot = std::strrchr(name_, '.'))
        for (const Dictionary* entry = head_.dictionary; entry != nullptr; entry = entry->next)
            if (strcasecmp(entry->key, dot + 1) == 0)
                return entry->value;
    return head_.defaultFileType;
}

void EntryWriter::FileUrl(const char*)
{
    if (node_.resInfo.State != 0) {
        if (node_.resInfo.pURI != nullptr)
            PutWide(io_, node_.resInfo.pURI, node_.resInfo.URILength / sizeof(WCHAR));
        return;
    }
    const size_t length = std::strlen(context_.srcURL);
    PutUriEscaped(io_, context_.srcURL, length);
    if (length == 0 || context_.srcURL[length - 1] != '/')
        Put(io_, "/");
    PutUriEscaped(io_, name_, std::strlen(name_));
}

// A deleted entry's identifier and, behind a colon, its URI read as a byte string: of a UTF-16 URI
// that begins with an ASCII character that one character shows (kept: that is the form that the
// identifier has always had).
void EntryWriter::IsDeletedText(const char*)
{
    if (node_.deleted == 0) {
        Put(io_, "0");
        return;
    }
    char text[32];
    (void)std::snprintf(text, sizeof(text), "%llu", static_cast<unsigned long long>(node_.deleted));
    Put(io_, text);
    if (node_.resInfo.pURI != nullptr) {
        Put(io_, ":");
        Put(io_, reinterpret_cast<const char*>(node_.resInfo.pURI));
    }
}

// The length counts bytes, so that a character of several bytes may be cut in the middle (kept).
void EntryWriter::ShortName(const char* argument)
{
    const long asked = std::strtol(argument, nullptr, 10);
    const size_t most = asked < 0 ? 0 : static_cast<size_t>(asked);
    if (utf8strlen(name_) <= most) {
        Put(io_, name_);
        return;
    }
    if (most > 0)
        PutBytes(io_, name_, static_cast<UINT32>(most));
    Put(io_, "...");
}

void EntryWriter::ModifyTime(const char* format)
{
    struct tm time;
    char text[kIndexBuffer];
    if (KestServTALDateTimeToTm(node_.resInfo.ModificationDate, &time) == 0 &&
        std::strftime(text, sizeof(text), format, &time) > 0)
        Put(io_, text);
}

void EntryWriter::DevicePath(const char*)
{
    if (node_.isRoot)
        (void)ReverseLookupProvider(io_, context_.hSession, node_.resInfo); // best effort
}

} // namespace

TALSTATUS writeObjectHTML(SortNode* node)
{
    NodeContext& context = *node->context;
    TemplateFile file;
    if (const TALSTATUS status = file.Open(fileTemplateFiles[context.interfaceMode]);
        Failed(status))
        return status;

    const UINT64 id = fileID.fetch_add(1, std::memory_order_relaxed) + 1;
    char name[kIndexBuffer]; // a longer name is cut behind a whole character
    WideToUtf8Cut(node->resInfo.DisplayName, node->resInfo.DisplayNameLength / sizeof(WCHAR), name,
                  sizeof(name));

    EntryWriter entry(*node, file, name, id);
    RenderTemplate(
        context.pKestIo, file,
        [&entry](char* keyword, char* resume) { return entry.Run(keyword, resume); },
        DropRestOfLine);
    ++context.dHead->numberOfFiles;
    return TAL_STATUS_SUCCESS;
}
