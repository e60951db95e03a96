// SPDX-License-Identifier: Apache-2.0
#include "tests/contract/truth/requests.h"

#include <cstdio>
#include <fstream>
#include <regex>

namespace truth_test {

namespace fs = std::filesystem;

std::string Content(const fs::path& path)
{
    std::ifstream in(World::Get().Volume() / path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

bool Has(const fs::path& path)
{
    return fs::exists(World::Get().Volume() / path);
}

std::function<std::string()> Plain(const std::string& request)
{
    return [request] { return request; };
}

namespace {

std::string g_token; // of the lock that the running case has taken before

std::string Find(const std::string& path, const char* depth, const std::string& body = {})
{
    return World::Request("PROPFIND", path, std::string("Depth: ") + depth + "\r\n", body);
}

const std::string kBrowser = "Accept: text/html\r\n";
const std::string kAll = "<D:propfind xmlns:D=\"DAV:\"><D:allprop/></D:propfind>";
const std::string kNamed = "<D:propfind xmlns:D=\"DAV:\"><D:prop><p/><D:getcontentlength/>"
                           "<D:lockdiscovery/></D:prop></D:propfind>";
const std::string kPatch = "<D:propertyupdate xmlns:D=\"DAV:\"><D:set><D:prop><p>new</p></D:prop>"
                           "</D:set></D:propertyupdate>";
const std::string kLockInfo =
    "<D:lockinfo xmlns:D=\"DAV:\"><D:lockscope><D:exclusive/></D:lockscope><D:locktype><D:write/>"
    "</D:locktype></D:lockinfo>";

// What a client finds without a failure: the body of the property, or what came instead.
std::string PropertyOf(const std::string& path)
{
    return World::Get().Ask(Find(path, "0", kNamed), false).body;
}

std::string CheckPatched(bool isTold)
{
    const std::string found = PropertyOf("file");
    const bool isNew = found.find("new</p>") != found.npos;
    const bool isOld = found.find("kept</p>") != found.npos;
    return isNew || (isOld && !isTold) ? "" : "the property is neither old nor new: " + found;
}

std::string CheckDeleted(bool isTold)
{
    if (!Has("dir"))
        return Has(".kest/deleted/1/two") ? "" : "the members are gone";
    if (isTold)
        return "it is still there";
    return Has("dir/two") && Has("dir/folder") ? "" : "members are missing";
}

std::string CheckUnlocked(bool isTold)
{
    const int status = World::Get().Ask(World::Request("PUT", "file", "", "new"), false).status;
    return status == 423 && isTold ? "the lock is still there" : "";
}

std::string CheckLocked(bool isTold)
{
    const int status = World::Get().Ask(World::Request("PUT", "file", "", "new"), false).status;
    return status != 423 && isTold ? "the lock is not there" : "";
}

std::string CheckPut(bool isTold)
{
    const std::string now = Content("file");
    return now == "new" || (now == "content" && !isTold) ? "" : "the file holds: " + now;
}

std::string CheckNewPut(bool isTold)
{
    if (!Has("dir/new"))
        return isTold ? "the file is not there" : "";
    return Content("dir/new") == "new" ? "" : "the file holds: " + Content("dir/new");
}

std::string CheckMade(bool isTold)
{
    return Has("dir/made") || !isTold ? "" : "the folder is not there";
}

std::string CheckCopied(bool isTold)
{
    if (Content("dir/two") != "content")
        return "the source is damaged";
    if (!Has("copy"))
        return isTold ? "there is no copy" : "";
    if (isTold && (Content("copy/two") != "content" || !Has("copy/folder") || !Has("copy/one")))
        return "members of the copy are missing";
    return "";
}

std::string CheckMoved(bool isTold)
{
    if (Has("dir/two") && isTold)
        return "the source is still there";
    const std::string at = Has("dir/two") ? "dir/" : "moved/";
    return Content(at + "two") == "content" && Has(at + "folder") && Has(at + "one")
               ? ""
               : "members are missing";
}

// Of one file: it is where it was, or where it is to be, and whole.
std::string CheckOneCopied(bool isTold)
{
    if (Content("dir/two") != "content")
        return "the source is damaged";
    if (!Has("copy"))
        return isTold ? "there is no copy" : "";
    return Content("copy") == "content" ? "" : "the copy holds: " + Content("copy");
}

std::string CheckOneMoved(bool isTold)
{
    if (isTold && Has("dir/two"))
        return "the source is still there";
    const std::string at = Has("dir/two") ? "dir/two" : "moved";
    return Content(at) == "content" ? "" : "the file is neither here nor there";
}

std::string Upload()
{
    const std::string body = "--b\r\nContent-Disposition: form-data; name=\"f\"; "
                             "filename=\"new\"\r\n\r\nnew\r\n--b--\r\n";
    return World::Request("POST", "dir",
                          kBrowser + "Content-Type: multipart/form-data; boundary=b\r\n", body);
}

std::vector<Case> Reading()
{
    return {
        {"PROPFIND of the root's members", Plain("PROPFIND /Ferro/ HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                                                 "Depth: 1\r\nContent-Length: 0\r\n\r\n")},
        {"PROPFIND of a file", Plain(Find("file", "0", kAll))},
        {"PROPFIND of a file, by names", Plain(Find("file", "0", kNamed))},
        {"PROPFIND of a file in a folder", Plain(Find("dir/two", "0"))},
        {"PROPFIND of a folder", Plain(Find("dir", "0", kAll))},
        {"PROPFIND of a folder's members", Plain(Find("dir", "1"))},
        {"PROPFIND of a folder's members, all", Plain(Find("dir", "1", kAll))},
        {"PROPFIND of the volume's members", Plain(Find("", "1"))},
        {"PROPFIND of many members", Plain(Find("many", "1"))},
        {"PROPFIND of nothing", Plain(Find("nothing", "0"))},
        {"GET", Plain(World::Request("GET", "file"))},
        {"GET of a file in a folder", Plain(World::Request("GET", "dir/two"))},
        {"GET of a large file", Plain(World::Request("GET", "large"))},
        {"GET of a part", Plain(World::Request("GET", "large", "Range: bytes=100-199\r\n"))},
        {"GET of nothing", Plain(World::Request("GET", "nothing"))},
        {"GET with an escaped name", Plain(World::Request("GET", "dir/t%2577o"))},
        {"HEAD", Plain(World::Request("HEAD", "file")), true},
        {"HEAD of a file in a folder", Plain(World::Request("HEAD", "dir/two")), true},
        {"HEAD of a folder", Plain(World::Request("HEAD", "dir")), true},
        {"HEAD of nothing", Plain(World::Request("HEAD", "nothing")), true},
        {"a folder's page", Plain(World::Request("GET", "dir", kBrowser))},
        {"the page of many members", Plain(World::Request("GET", "many", kBrowser))},
        {"a folder's page as XML", Plain(World::Request("GET", "dir/.index_xml"))},
        {"the root's page",
         Plain("GET /Ferro/ HTTP/1.1\r\nHost: 127.0.0.1\r\n" + kBrowser + "\r\n")},
        {"OPTIONS", Plain(World::Request("OPTIONS", "file"))},
    };
}

std::vector<Case> Changing()
{
    const auto withToken = [](const std::string& method, const std::string& header) {
        return [method, header] {
            g_token = World::Get().Lock("file");
            return World::Request(method, "file", header + g_token + "\r\n");
        };
    };
    return {
        {"LOCK", Plain(World::Request("LOCK", "file", "", kLockInfo)), false, true, CheckLocked},
        {"LOCK of a new name", Plain(World::Request("LOCK", "dir/new", "", kLockInfo)), false,
         true},
        {"UNLOCK", withToken("UNLOCK", "Lock-Token: "), false, true, CheckUnlocked},
        {"PROPPATCH", Plain(World::Request("PROPPATCH", "file", "", kPatch)), false, true,
         CheckPatched},
        {"PROPPATCH under a condition",
         Plain(World::Request("PROPPATCH", "file", "If: (Not <opaquelocktoken:none>)\r\n", kPatch)),
         false, true, CheckPatched},
        {"DELETE", Plain(World::Request("DELETE", "dir")), false, true, CheckDeleted},
        {"PUT", Plain(World::Request("PUT", "file", "", "new")), false, true, CheckPut},
        {"PUT of a new name", Plain(World::Request("PUT", "dir/new", "", "new")), false, true,
         CheckNewPut},
        {"an upload form", Upload, false, true, CheckNewPut},
        {"MKCOL", Plain(World::Request("MKCOL", "dir/made")), false, true, CheckMade},
        {"COPY of a tree",
         Plain(World::Request("COPY", "dir", "Destination: /Ferro/v/copy\r\nOverwrite: F\r\n")),
         false, true, CheckCopied},
        {"COPY of a file",
         Plain(World::Request("COPY", "dir/two", "Destination: /Ferro/v/copy\r\nOverwrite: F\r\n")),
         false, true, CheckOneCopied},
        {"MOVE of a file",
         Plain(
             World::Request("MOVE", "dir/two", "Destination: /Ferro/v/moved\r\nOverwrite: F\r\n")),
         false, true, CheckOneMoved},
        {"MOVE of a tree", Plain(World::Request("MOVE", "dir", "Destination: /Ferro/v/moved\r\n")),
         false, true, CheckMoved},
    };
}

} // namespace

const std::vector<Case>& Cases()
{
    static const std::vector<Case> cases = [] {
        std::vector<Case> all = Reading();
        for (Case& each : Changing())
            all.push_back(std::move(each));
        if (IsStandard())
            for (Case& each : StandardCases())
                all.push_back(std::move(each));
        return all;
    }();
    return cases;
}

std::string Essence(const kestd::test::Answer& answer)
{
    static const std::regex token("[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}");
    static const std::regex volatiles(
        "(\r\n(Date|Set-Cookie):[^\r]*)|(>file[0-9]+<)|(\"file[0-9]+\")"
        // Of what a change has made: its tag and date, and how much room is left.
        "|((W/)?(\"|&quot;)[0-9a-f]{32}(\"|&quot;))|(\r\n(Last-Modified):[^\r]*)"
        // Of an upload: its name, and how much room is left for it.
        "|(/upload/[A-Za-z0-9_-]+)|(max-size=[0-9]+)");
    constexpr size_t kMostText = 65536; // what is longer is a file's content
    const bool isText = answer.body.size() <= kMostText;
    std::string text = answer.head + "\r\n" + (isText ? answer.body : "");
    text = std::regex_replace(text, token, "TOKEN");
    return std::regex_replace(text, volatiles, "") + (isText ? "" : answer.body);
}

std::string TruthOf(const Case& each)
{
    World& world = World::Get();
    world.Renew();
    const kestd::test::Answer answer = world.Ask(each.request(), each.isHead);
    EXPECT_EQ(each.isAnnounced ? 1 : 0, world.Interims());
    EXPECT_TRUE(answer.isWhole);
    EXPECT_GE(answer.status, 200);
    EXPECT_LT(answer.status, 500);
    return Essence(answer);
}

void Tally::Print(const std::string& name) const
{
    std::printf("[ counted  ] %s: %d failures, %d told, %d cut, %d without effect\n", name.c_str(),
                unneeded + told + cut, told, cut, unneeded);
}

void CheckTrue(const Case& each, const kestd::test::Answer& answer, const std::string& truth,
               Tally& tally)
{
    if (!answer.isWhole) {
        ++tally.cut;
    } else if (answer.status >= 500) {
        ++tally.told;
    } else {
        ++tally.unneeded;
        // A granted lock is told also where what it is on cannot be looked at any more.
        const std::string tag = "ETag: \r\n";
        const size_t at = truth.find(tag);
        const bool lacksTag = truth.find("<D:lockdiscovery>") != std::string::npos &&
                              at != std::string::npos && answer.Header("ETag") == "(none)";
        EXPECT_EQ(lacksTag ? std::string(truth).erase(at, tag.size()) : truth, Essence(answer));
    }
    EXPECT_EQ("", each.check(answer.isWhole && answer.status >= 200 && answer.status < 300));
}

} // namespace truth_test
