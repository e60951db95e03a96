// SPDX-License-Identifier: Apache-2.0
#include "form.h"

using harness::Request;

namespace form {

const char kSuccess[] = "200\n"
                        "Content-Type: text/html; charset=\"utf-8\"\n"
                        "Transfer-Encoding: chunked\n"
                        "\n"
                        "<html><body><Script>window.close()</script></body></html>";

const char kError[] =
    "200\n"
    "Content-Type: text/html; charset=\"utf-8\"\n"
    "Transfer-Encoding: chunked\n"
    "\n"
    "<html><body><script language='JavaScript' charset='utf-8' type='text/javascript' "
    "src='/Wharf/messages.js'></script><script language='JavaScript' charset='utf-8' "
    "type='text/javascript' src='/Wharf/common.js'></script>"
    "<script>document.write(msgUploadError)</script></body></html>";

std::string Body(const std::vector<Part>& parts)
{
    std::string body;
    for (const Part& part : parts) {
        body += std::string("--") + kBoundary + "\r\nContent-Disposition: form-data; name=\"f\"";
        if (part.file != nullptr)
            body += std::string("; filename=\"") + part.file +
                    "\"\r\nContent-Type: application/octet-stream";
        body += "\r\n" + part.moreHeaders + "\r\n" + part.content + "\r\n";
    }
    return body + "--" + kBoundary + "--\r\n";
}

std::vector<std::string> Pieces(const std::string& text, size_t size)
{
    std::vector<std::string> pieces;
    for (size_t at = 0; at < text.size(); at += size)
        pieces.push_back(text.substr(at, size));
    return pieces;
}

Request Upload(const std::string& body, const std::string& path)
{
    Request request(KestMethodPost, path);
    request.Header("Content-Type", std::string("multipart/form-data; boundary=") + kBoundary);
    if (!body.empty())
        request.Body({body});
    return request;
}

std::unique_ptr<harness::World> MakeWorld(int generations, harness::Setup setup)
{
    auto world = std::make_unique<harness::World>(
        std::vector<harness::ProviderSpec>{{.name = "vol", .generations = generations}},
        std::move(setup));
    (*world)["vol"].AddCollection("/vol/dir");
    return world;
}

std::string Bytes(size_t size, unsigned seed)
{
    std::string text(size, '\0');
    for (char& c : text) {
        seed = seed * 1664525 + 1013904223;
        c = static_cast<char>(seed >> 24);
    }
    return text;
}

} // namespace form
