// SPDX-License-Identifier: Apache-2.0
//
// A world with a template directory of its own.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "../harness/text.h"
#include "../harness/world.h"

namespace site {

inline constexpr char kModern[] = "Mozilla/5.0 (X11; Linux x86_64)";

// A directive of a page.
inline std::string D(const std::string& text)
{
    return "<!--OlmDAV:" + text + "-->";
}

class TemplateDir {
  public:
    TemplateDir();
    ~TemplateDir();
    TemplateDir(const TemplateDir&) = delete;
    TemplateDir& operator=(const TemplateDir&) = delete;

    void Write(const std::string& name, const std::string& text) const;
    void Remove(const std::string& name) const;
    std::string Path() const { return path_.string() + "/"; }

  private:
    std::filesystem::path path_;
};

// One provider "vol" and templates for the newer browsers: the page is the list alone and an entry
// "[NAME]", until a case writes others.
class Site {
  public:
    explicit Site(std::vector<harness::ProviderSpec> providers = {{.name = "vol"}},
                  harness::Setup setup = {});

    void Page(const std::string& text) const { dir.Write("ecmaindex.html", text); }
    void Entry(const std::string& text) const { dir.Write("ecmaentry.html", text); }

    // A GET by a newer browser.
    static harness::Request Asks(const std::string& path = "/Ferro/vol");
    harness::Reply Get(const std::string& path = "/Ferro/vol", const std::string& query = "");
    // The body of the page, which has to come with 200.
    std::string Body(const std::string& path = "/Ferro/vol", const std::string& query = "");
    // The page of a page template.
    std::string Render(const std::string& page);

    // Sets the preferences that the session keeps.
    void Preferences(UINT32 flags, int session = 1);

    TemplateDir dir;
    harness::World world;
};

// A deleted child, as the provider's control codes hand it out.
struct Deleted {
    UINT64 id = 0;
    std::string name;
    DAV_TYPE type = Resource;
    UINT64 size = 0;
    DAV_DATETIME modified = 0;
    DAV_PROVIDER_STATE state = 0;
    std::u16string uri = {};
};

// Makes the provider keep deleted children in every collection. `entries` must live on.
void KeepDeleted(harness::Provider& provider, const std::vector<Deleted>& entries);

} // namespace site
