// SPDX-License-Identifier: Apache-2.0
//
// Requests of the standard dialect alone: parts of files, uploads that go on, replacing,
// refreshing.
#include "tests/contract/truth/requests.h"

namespace truth_test {

namespace {

std::string g_place; // of the upload that the running case has begun before

// More than a connection receives before it calls the handler, so that the upload is announced.
const std::string kLong(100'000, 'n');

std::function<std::string(bool)> Holds(const std::string& path, const std::string& wanted)
{
    const auto before = std::string("content");
    return [=](bool isTold) {
        const std::string now = Content(path);
        return now == wanted || (now == before && !isTold) ? "" : path + " holds: " + now;
    };
}

std::string Marked(const std::string& path, const std::string& complete, const std::string& body)
{
    return World::Request("PUT", path, "Upload-Complete: " + complete + "\r\n", body);
}

// The volume keeps the directory of uploads open from the first one on: that is another one's.
std::function<std::string()> BeginUpload(const std::string& complete, const std::string& body)
{
    return [=] {
        World::Get().Prepare(Marked("dir/two", "?0", "another"), 201);
        return Marked("file", complete, body);
    };
}

// A request about an upload that has its first five bytes.
std::function<std::string()> OfUpload(const std::string& method, const std::string& headers,
                                      const std::string& body)
{
    return [=] {
        const auto begun = World::Get().Ask(Marked("file", "?0", "hello"), false);
        EXPECT_EQ(201, begun.status) << begun.body;
        g_place = begun.Header("Location");
        std::string request = World::Request(method, "", headers, body);
        const std::string root = "/Ferro/v ";
        return request.replace(request.find(root), root.size(), g_place + " ");
    };
}

std::function<std::string()> Append(const std::string& complete)
{
    return OfUpload("PATCH",
                    "Content-Type: application/partial-upload\r\nUpload-Offset: 5\r\n"
                    "Upload-Complete: " +
                        complete + "\r\n",
                    "!");
}

kestd::test::Answer Look()
{
    return World::Get().Ask("HEAD " + g_place + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n", true);
}

std::string CheckUnchanged(bool)
{
    return Content("file") == "content" ? "" : "an upload that has not ended is seen";
}

std::string CheckAppended(bool isTold)
{
    const std::string offset = Look().Header("Upload-Offset");
    return offset == "6" || (offset == "5" && !isTold) ? CheckUnchanged(isTold)
                                                       : "it has come to " + offset;
}

// Whoever was told so finds the file, and until then the upload is there to go on with.
std::string CheckEnded(bool isTold)
{
    if (Content("file") == "hello!")
        return "";
    if (Content("file") != "content" || isTold)
        return "the file holds: " + Content("file");
    return Look().status == 204 ? "" : "neither the file nor the upload is there";
}

std::string CheckCancelled(bool isTold)
{
    return isTold && Look().status != 404 ? "it is still there" : CheckUnchanged(isTold);
}

std::string CheckRefreshed(bool)
{
    const int status = World::Get().Ask(World::Request("PUT", "file", "", "new"), false).status;
    return status == 423 ? "" : "the lock is lost";
}

std::string CheckLargeCopied(bool isTold)
{
    const std::string large(300'000, 'x');
    const std::string now = Content("file");
    if (Content("large") != large)
        return "the source is damaged";
    return now == large || (now == "content" && !isTold) ? "" : "the file is a mix";
}

std::string CheckLargeMoved(bool isTold)
{
    const std::string large(300'000, 'x');
    if (Has("large"))
        return isTold || Content("file") != "content" ? "it is in two places" : "";
    return Content("file") == large ? "" : "it is lost";
}

std::string Refresh()
{
    return World::Request("LOCK", "file",
                          "Timeout: Second-100\r\nIf: (" + World::Get().Lock("file") + ")\r\n");
}

const std::string kExtended =
    "<D:mkcol xmlns:D=\"DAV:\"><D:set><D:prop><D:resourcetype><D:collection/></D:resourcetype>"
    "<p>first</p></D:prop></D:set></D:mkcol>";

std::string CheckMadeWithProperty(bool isTold)
{
    if (!Has("dir/made"))
        return isTold ? "the folder is not there" : "";
    const auto found = World::Get().Ask(
        World::Request("PROPFIND", "dir/made", "Depth: 0\r\n",
                       "<D:propfind xmlns:D=\"DAV:\"><D:prop><p/></D:prop></D:propfind>"),
        false);
    return found.body.find("first</p>") != found.body.npos ? "" : "it lacks its property";
}

} // namespace

std::vector<Case> StandardCases()
{
    const std::string update = "Content-Type: application/x-sabredav-partialupdate\r\n"
                               "X-Update-Range: append\r\n";
    const std::string over = "Destination: /Ferro/v/file\r\nOverwrite: T\r\n";
    return {
        {"PUT of a part",
         Plain(World::Request("PUT", "file", "Content-Range: bytes 0-2/7\r\n", "new")), false, true,
         Holds("file", "newtent")},
        {"PATCH", Plain(World::Request("PATCH", "file", update, "!")), false, true,
         Holds("file", "content!")},
        {"COPY over a file", Plain(World::Request("COPY", "large", over)), false, true,
         CheckLargeCopied},
        {"MOVE over a file", Plain(World::Request("MOVE", "large", over)), false, true,
         CheckLargeMoved},
        {"MKCOL with properties",
         Plain(World::Request("MKCOL", "dir/made", "Content-Type: text/xml\r\n", kExtended)), false,
         true, CheckMadeWithProperty},
        {"LOCK that refreshes", Refresh, false, true, CheckRefreshed},
        {"PUT that begins an upload", BeginUpload("?0", "hello"), false, true, CheckUnchanged,
         true},
        {"PUT that is announced", BeginUpload("?1", kLong), false, true, Holds("file", kLong),
         true},
        {"PATCH of an upload", Append("?0"), false, true, CheckAppended},
        {"PATCH that ends an upload", Append("?1"), false, true, CheckEnded},
        {"HEAD of an upload", OfUpload("HEAD", "", ""), true, true, CheckUnchanged},
        {"DELETE of an upload", OfUpload("DELETE", "", ""), false, true, CheckCancelled},
        {"OPTIONS of an upload", OfUpload("OPTIONS", "", ""), false, true, CheckUnchanged},
    };
}

} // namespace truth_test
