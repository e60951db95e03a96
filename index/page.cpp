// SPDX-License-Identifier: Apache-2.0
//
// The page template and its directives.
#include "index/page.h"

#include <cstdio>
#include <strings.h>

#include "index/identity.h"
#include "index/listing.h"
#include "index/text.h"
#include "support/escape.h"

namespace {

class PageWriter {
  public:
    PageWriter(NodeContext& context, UNICODE_STRING* url, const char* agent)
        : context_(context), head_(*context.dHead), io_(context.pKestIo), url_(url), agent_(agent)
    {
    }

    char* Run(char* keyword, char* resume);
    char* Unclosed(char* keyword);

  private:
    struct Directive {
        const char* name;
        size_t prefix; // how much of the name has to be there
        void (PageWriter::*write)(const char* argument);
    };
    static const Directive kDirectives[];

    void CurrentFolder(const char*) { PutUriEscaped(io_, context_.srcURL, UrlLength()); }
    void ParentUrl(const char*);
    void DevicePath(const char*);
    void SetMaxFiles(const char* argument);
    void SetFirstFile(const char* argument) { head_.firstFile = ParseDecimal(argument); }
    void Filter(const char*) { Put(io_, head_.utf8filter); }
    void WharfRoot(const char*);
    void NumberOfFiles(const char*);
    void ShowingDeleted(const char*);
    void Files(const char*);
    void UserAgent(const char*) { Put(io_, agent_); }
    void EmailAddress(const char*) { PutEmailAddress(io_, context_.hSession); }
    void UserName(const char*) { PutUserName(io_, context_.hSession); }

    void SetFileType(const char* extension, const char* text);
    size_t UrlLength() const { return std::strlen(context_.srcURL); }

    NodeContext& context_;
    DictionaryHead& head_;
    IKestIO_5* io_;
    UNICODE_STRING* url_;
    const char* agent_;
};

constexpr char kSetFiletype[] = "SetFiletype:";
constexpr size_t kSetFiletypePrefix = 11;

// In the order in which they are tried: prefixes are short, so one keyword can fit several.
const PageWriter::Directive PageWriter::kDirectives[] = {
    {"currentFolder", 13, &PageWriter::CurrentFolder},
    {"ParentURL", 9, &PageWriter::ParentUrl},
    {"DevicePath", 10, &PageWriter::DevicePath},
    {"SetMaxFiles:", 11, &PageWriter::SetMaxFiles},
    {"SetFirstFile:", 12, &PageWriter::SetFirstFile},
    {"Filter", 6, &PageWriter::Filter},
    {"WharfRoot", 14, &PageWriter::WharfRoot},
    {"NumberOfFiles", 13, &PageWriter::NumberOfFiles},
    {"ShowingDeleted", 5, &PageWriter::ShowingDeleted},
    {"Files", 5, &PageWriter::Files},
    {"UserAgent", 7, &PageWriter::UserAgent},
    {"EmailAddress", 12, &PageWriter::EmailAddress},
    {"UserName", 8, &PageWriter::UserName},
};

char* PageWriter::Run(char* keyword, char* resume)
{
    if (IsDirective(keyword, kSetFiletype, kSetFiletypePrefix)) {
        char* equals = std::strchr(keyword, '=');
        if (equals == nullptr) {
            // No directive of that name: its text goes to the page, without its first character.
            *(resume - kDirectiveEndLength) = kDirectiveEnd[0];
            return keyword - kDirectiveMarkLength + 1;
        }
        *equals = '\0';
        SetFileType(ArgumentOf(keyword, kSetFiletype), equals + 1);
        return resume;
    }
    for (const Directive& directive : kDirectives) {
        if (IsDirective(keyword, directive.name, directive.prefix)) {
            (this->*directive.write)(ArgumentOf(keyword, directive.name));
            break;
        }
    }
    return resume;
}

char* PageWriter::Unclosed(char* keyword)
{
    if (!IsDirective(keyword, kSetFiletype, kSetFiletypePrefix))
        return DropRestOfLine(keyword);
    char* equals = std::strchr(keyword, '=');
    return equals != nullptr ? equals + 1 : keyword - kDirectiveMarkLength + 1;
}

// Everything up to the last "/" but one; the first character where there is none.
void PageWriter::ParentUrl(const char*)
{
    const char* url = context_.srcURL;
    const size_t length = UrlLength();
    if (std::strcmp(url, "/") == 0)
        return;
    size_t parent = length < 1 ? length : 1;
    for (size_t i = length < 2 ? 0 : length - 2; i > 0; --i) {
        if (url[i] == '/') {
            parent = i + 1;
            break;
        }
    }
    PutUriEscaped(io_, url, parent);
}

void PageWriter::DevicePath(const char*)
{
    (void)ReverseLookup(io_, context_.hSession, context_.indexXml); // best effort
}

// The number is written as well (kept: templates rely on the echo).
void PageWriter::SetMaxFiles(const char* argument)
{
    head_.maxFiles = ParseDecimal(argument);
    Put(io_, argument);
}

void PageWriter::WharfRoot(const char*)
{
    Put(io_, g_szKestLocation);
    Put(io_, g_MonikerS.Buffer);
}

void PageWriter::NumberOfFiles(const char*)
{
    char text[16];
    (void)std::snprintf(text, sizeof(text), "%u", head_.numberOfFiles);
    Put(io_, text);
}

// The inverse of the state: the value that a toggle form sends back (kept).
void PageWriter::ShowingDeleted(const char*)
{
    Put(io_, (context_.flags & kShowDeleted) != 0 ? "0" : "1");
}

void PageWriter::Files(const char*)
{
    (void)HTMLIndexListFiles(&context_, url_); // what fails shows on the page
}

void PageWriter::SetFileType(const char* extension, const char* text)
{
    // A line is shorter than these buffers, so nothing is cut.
    if (strcasecmp(extension, "default") == 0) {
        (void)std::snprintf(head_.defaultFileType, kIndexBuffer, "%s", text);
        return;
    }
    if (strcasecmp(extension, "folder") == 0) {
        (void)std::snprintf(head_.folderFileType, kIndexBuffer, "%s", text);
        return;
    }
    // Without memory the setting is missing and the extension shows the default.
    Paged<Dictionary> entry = AllocPaged<Dictionary>(1);
    Paged<char> key(kestdav_strdup(extension));
    Paged<char> value(kestdav_strdup(text));
    if (!entry || !key || !value)
        return;
    entry[0] = {key.release(), value.release(), head_.dictionary};
    head_.dictionary = entry.release();
}

} // namespace

void RenderPage(NodeContext& context, UNICODE_STRING* pUrl, const char* agent, TemplateFile& file)
{
    PageWriter page(context, pUrl, agent);
    RenderTemplate(
        context.pKestIo, file,
        [&page](char* keyword, char* resume) { return page.Run(keyword, resume); },
        [&page](char* keyword) { return page.Unclosed(keyword); });
}

void FreeDictionary(DictionaryHead& head)
{
    while (Dictionary* entry = head.dictionary) {
        head.dictionary = entry->next;
        pITalpl->TalxFreeMemory(entry->key);
        pITalpl->TalxFreeMemory(entry->value);
        pITalpl->TalxFreeMemory(entry);
    }
}
