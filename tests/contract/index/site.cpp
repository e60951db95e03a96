// SPDX-License-Identifier: Apache-2.0
#include "site.h"

#include <cstdlib>
#include <cstring>
#include <fstream>

#include <gtest/gtest.h>

using harness::ProviderFailure;
using harness::Reply;
using harness::Request;
using harness::Setup;

namespace site {

TemplateDir::TemplateDir()
{
    std::string name = (std::filesystem::temp_directory_path() / "kest-pages-XXXXXX").string();
    EXPECT_NE(mkdtemp(name.data()), nullptr);
    path_ = name;
}

TemplateDir::~TemplateDir()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void TemplateDir::Write(const std::string& name, const std::string& text) const
{
    std::ofstream(path_ / name, std::ios::binary) << text;
}

void TemplateDir::Remove(const std::string& name) const
{
    std::filesystem::remove(path_ / name);
}

namespace {

Setup WithTemplates(Setup setup, const TemplateDir& dir)
{
    setup.moduleValues += "\n'Template Directory' = '" + dir.Path() + "'";
    return setup;
}

} // namespace

Site::Site(std::vector<harness::ProviderSpec> providers, Setup setup)
    : world(std::move(providers), WithTemplates(std::move(setup), dir))
{
    Page("<!--OlmDAV:Files-->");
    Entry("[<!--OlmDAV:DisplayName-->]");
}

Request Site::Asks(const std::string& path)
{
    return Request(KestMethodGet, path).Header("User-Agent", kModern);
}

Reply Site::Get(const std::string& path, const std::string& query)
{
    return world.Run(Asks(path).Query(query));
}

std::string Site::Body(const std::string& path, const std::string& query)
{
    const Reply reply = Get(path, query);
    EXPECT_EQ(reply.heads, 1);
    EXPECT_EQ(reply.text.substr(0, 4), "200\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_SUCCESS);
    return reply.body;
}

std::string Site::Render(const std::string& page)
{
    Page(page);
    return Body();
}

void Site::Preferences(UINT32 flags, int session)
{
    world.Run(Request(KestMethodOptions, "/Ferro/vol").Session(session));
    auto* words = static_cast<UINT32*>(world.attributes.Data(session));
    ASSERT_NE(words, nullptr);
    words[1] = flags;
}

void KeepDeleted(harness::Provider& provider, const std::vector<Deleted>& entries)
{
    auto next = std::make_shared<size_t>(0);
    provider.onIoctl = [&entries, next](const std::string&, UINT32 code, UINT32* size,
                                        void* output) -> TALSTATUS {
        if (code != kIoctlFirstDeletedChild && code != kIoctlNextDeletedChild)
            return ProviderFailure(kCodeNotImplemented);
        if (code == kIoctlFirstDeletedChild)
            *next = 0;
        if (*next == entries.size())
            return ProviderFailure(kCodeNoMoreEntries);
        const Deleted& entry = entries[(*next)++];
        const std::u16string name = harness::Wide(entry.name);
        const size_t bytes = name.size() * sizeof(WCHAR);
        const size_t nameAt =
            offsetof(DAV_DELETED_ENTRY, Enum) + offsetof(DAV_COMMON_ENUM, DisplayName);
        if (nameAt + bytes > *size)
            return ProviderFailure(kCodeBufferTooSmall);
        std::memset(output, 0, nameAt);
        auto& record = *static_cast<DAV_DELETED_ENTRY*>(output);
        record.FileID = entry.id;
        record.Enum.Type = entry.type;
        record.Enum.ResourceSize = entry.size;
        record.Enum.ModificationDate = entry.modified;
        record.Enum.State = entry.state;
        record.Enum.URILength = static_cast<UINT32>(entry.uri.size() * sizeof(WCHAR));
        record.Enum.pURI = entry.uri.empty() ? nullptr : const_cast<WCHAR*>(entry.uri.data());
        record.Enum.DisplayNameLength = static_cast<UINT32>(bytes);
        std::memcpy(static_cast<char*>(output) + nameAt, name.data(), bytes);
        *size = static_cast<UINT32>(nameAt + bytes);
        return TAL_STATUS_SUCCESS;
    };
}

} // namespace site
