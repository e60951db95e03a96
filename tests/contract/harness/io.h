// SPDX-License-Identifier: Apache-2.0
//
// One scripted request, and the reply that a handler made of it.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform.h"
#include "recorder.h"
#include <kest/com.h>
#include <kest/host/interim_reply.h>
#include <kest/io.h>

namespace harness {

// What the client sent and what the host made of it. `path` is the unescaped request path with the
// moniker ("/Ferro/vol/a"); text is UTF-8.
struct Request {
    UINT32 method = 0;
    std::string path;
    std::vector<std::pair<std::string, std::string>> headers;
    std::vector<std::pair<std::string, std::string>>
        hostHeaders;               // of the reply, set before the call
    std::vector<std::string> body; // each piece arrives in a read of its own
    TALSTATUS bodyEnd = MakeStatus(kFacilityHost, kCodeEndOfFile);
    std::string arguments; // the query
    std::string rawUrl;    // the path when empty
    std::string rawHeaders;
    std::string protocol = "http";
    std::string hostname = "server.example";
    std::string port = "8080";
    std::string realm = "realm";
    UINT32 userAgent = 0;
    size_t spareUnits = 1024;               // GetUrl's room behind the path
    std::optional<UINT32> payloadAvailable; // what the host announces; the body's size when unset
    BOOLEAN overwrite = TRUE;
    INT32 depth = -1;
    std::string destination;   // of COPY a URL, of MOVE a path
    bool exactHeaders = false; // a header value needs no room for its terminator, and has none
    bool nullUrl = false;      // GetUrl succeeds without a path
    bool nullTexts = false; // the other texts that the host gives by pointer are null, with success
    bool nullBuffers = false;   // they are there, but empty and without a buffer
    bool takesInterims = false; // the host and the client know replies before the reply
    int session = 1;

    Request(UINT32 methodCode, std::string requestPath)
        : method(methodCode), path(std::move(requestPath))
    {
    }
    Request& Header(std::string name, std::string value)
    {
        headers.emplace_back(std::move(name), std::move(value));
        return *this;
    }
    Request& HostSets(std::string name, std::string value)
    {
        hostHeaders.emplace_back(std::move(name), std::move(value));
        return *this;
    }
    Request& Body(std::vector<std::string> pieces)
    {
        body = std::move(pieces);
        return *this;
    }
    Request& BodyEndsWith(TALSTATUS status)
    {
        bodyEnd = status;
        return *this;
    }
    Request& Query(std::string text)
    {
        arguments = std::move(text);
        return *this;
    }
    Request& Raw(std::string text)
    {
        rawUrl = std::move(text);
        return *this;
    }
    Request& Protocol(std::string text)
    {
        protocol = std::move(text);
        return *this;
    }
    Request& To(std::string target, BOOLEAN mayOverwrite = TRUE, INT32 wantedDepth = -1)
    {
        destination = std::move(target);
        overwrite = mayOverwrite;
        depth = wantedDepth;
        return *this;
    }
    Request& ExactHeaders()
    {
        exactHeaders = true;
        return *this;
    }
    Request& TakesInterims()
    {
        takesInterims = true;
        return *this;
    }
    Request& Session(int number)
    {
        session = number;
        return *this;
    }
};

struct Reply {
    // "STATUS\nName: value\n…\n\nbody": the status first, the headers in the order set. Without a
    // SendHeader the status line is "none"; a second SendHeader shows as a second status, a header
    // set after the first as "late Name: value". Interim replies come before it in the same form.
    std::string text;
    std::string body;
    int heads = 0;              // SendHeader calls, failed ones included
    TALSTATUS returned = 0;     // by RequestHandler
    size_t bodyReads = 0;       // bytes of body that were read
    std::vector<size_t> writes; // sizes of the Write calls
    std::string unguarded; // what left while no read/write lock was held: "STATUS\n", then the body
};

// IKestIO_5 over a Request. Everything that it hands out lives as long as it does.
class ScriptedIo : public IKestIO_5 {
  public:
    ScriptedIo(Recorder& recorder, const WatchedPlatform& platform, Request request);
    virtual ~ScriptedIo() = default; // behind the contract's slots

    Reply TakeReply() const;
    int References() const { return references_; }

    TALSTATUS QueryInterface(const GUID* iid, void** out) override;
    UINT32 AddRef() override;
    UINT32 Release() override;
    TALSTATUS DiscardClientPayload() override;
    TALSTATUS GetCopyInfo(BOOLEAN* overwrite, INT32* depth, UNICODE_STRING** destination) override;
    TALSTATUS GetMoveInfo(BOOLEAN* overwrite, UNICODE_STRING** destination) override;
    TALSTATUS GetRawUrl(STRING** url) override;
    TALSTATUS GetRemoteAddress(UNICODE_STRING* address) override;
    TALSTATUS GetRemoteHost(UNICODE_STRING* host) override;
    TALSTATUS GetUrl(UINT32* reserved, UNICODE_STRING** url) override;
    TALSTATUS GetUrlArguments(UINT32* reserved, UNICODE_STRING** arguments) override;
    TALSTATUS GetRequestHeader(char* name, UINT32* length, char* buffer) override;
    TALSTATUS GetRequestMethod(UINT32* method) override;
    TALSTATUS GetReplyHeader(char* name, UINT32* length, char* buffer) override;
    TALSTATUS GetUserAgent(UINT32* kind) override;
    TALSTATUS IsClientPayloadAvailable(UINT32* available) override;
    TALSTATUS ReadClientPayload(UINT32 size, UINT8* buffer, UINT32* read) override;
    TALSTATUS PutString(char* text) override;
    TALSTATUS SendHeader(HTTPSTATUS status) override;
    TALSTATUS SetRequestHeader(char* name, UINT32 length, char* value) override;
    TALSTATUS SetReplyHeader(char* name, UINT32 length, char* value) override;
    TALSTATUS Working() override;
    TALSTATUS Write(UINT32 size, UINT8* data) override;
    void* AllocMemory(UINT32 size) override;
    TALSTATUS GetRawHeaders(UINT8** headers) override;
    TALSTATUS GetHostname(UINT32* length, char* buffer) override;
    TALSTATUS GetPort(UINT32* length, char* buffer) override;
    TALSTATUS GetProtocolName(UINT32* length, char* buffer) override;
    TALSTATUS SetCustomError(HTTPSTATUS status, char* text) override;
    TALSTATUS GetAuthRealm(UINT32* length, char* buffer) override;
    BOOLEAN IsSecure() override;

  private:
    // The face that sends replies before the reply.
    struct Interims final : IKestInterimReply {
        explicit Interims(ScriptedIo& owner) : io(owner) {}
        virtual ~Interims() = default;
        TALSTATUS QueryInterface(const GUID* iid, void** out) override
        {
            return io.QueryInterface(iid, out);
        }
        UINT32 AddRef() override { return io.AddRef(); }
        UINT32 Release() override { return io.Release(); }
        TALSTATUS SendInterim(HTTPSTATUS status, UINT32 count,
                              const KEST_HEADER_LINE* lines) override
        {
            return io.SendInterim(status, count, lines);
        }
        ScriptedIo& io;
    };

    TALSTATUS SendInterim(HTTPSTATUS status, UINT32 count, const KEST_HEADER_LINE* lines);
    TALSTATUS Text(const char* call, const std::string& value, UINT32* length, char* buffer);

    void Leave(std::string_view text);
    // What the host gives for a text of its own, by the request's wish.
    template <class Text> Text* Given(Text& text);

    Recorder& recorder_;
    const WatchedPlatform& platform_;
    Request request_;
    std::u16string url_;
    UNICODE_STRING urlU_{};
    std::u16string arguments_;
    UNICODE_STRING argumentsU_{};
    std::u16string destination_;
    UNICODE_STRING destinationU_{};
    std::string raw_;
    STRING rawS_{};
    std::deque<std::string> body_;
    std::vector<std::pair<std::string, std::string>> replyHeaders_;
    Interims interims_{*this};
    std::string before_; // the interim replies
    std::string head_;   // once sent
    std::string late_;
    Reply reply_;
    std::vector<std::unique_ptr<char[]>> memory_;
    int references_ = 0;
};

} // namespace harness
