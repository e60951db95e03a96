// SPDX-License-Identifier: Apache-2.0
//
// The browser index: a collection as a page, made from the templates for the client at hand.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <strings.h>

#include "index/clientmode.h"
#include "index/context.h"
#include "index/filter.h"
#include "index/page.h"
#include "index/template.h"
#include "index/text.h"
#include "support/escape.h"
#include "support/handlers.h"
#include "support/memory.h"
#include "support/uri.h"
#include "support/utf8.h"

namespace {

// Everything of one request but the template's line and the copy of the URL, in one allocation.
struct RequestBlock {
    NodeContext context;
    DictionaryHead head;
    char arguments[kIndexBuffer + 1];
    char agent[kIndexBuffer + 1];
};

// Owns the block and the objects that it points to.
class IndexRequest {
  public:
    IndexRequest() : block_(AllocPaged<RequestBlock>(1)) {}
    ~IndexRequest()
    {
        if (block_)
            FreeDictionary(block_[0].head);
    }
    IndexRequest(const IndexRequest&) = delete;
    IndexRequest& operator=(const IndexRequest&) = delete;
    explicit operator bool() const { return block_ != nullptr; }

    void Initialize(IKestIO_5* io, SCHANDLE session);
    void ReadArguments();
    [[nodiscard]] TALSTATUS ChooseMode(UNICODE_STRING* url);
    [[nodiscard]] TALSTATUS Answer(UNICODE_STRING* url);

  private:
    void ReadPreferences();
    void ReadFilter(char* arguments);

    Paged<RequestBlock> block_;
    Paged<char> srcUrl_;
};

void IndexRequest::Initialize(IKestIO_5* io, SCHANDLE session)
{
    RequestBlock& block = *new (block_.get()) RequestBlock();
    block.context.pKestIo = io;
    block.context.hSession = session;
    block.context.dHead = &block.head;
    block.context.interfaceMode = kModeUndecided;

    DictionaryHead& head = block.head;
    std::strcpy(head.folderFileType, "icon_folder.gif");
    std::strcpy(head.defaultFileType, "unknown.png");
    head.filter[0] = u'*';
    std::strcpy(head.utf8filter, "*");
    head.maxFiles = 100;
    ReadPreferences();
}

// Without the session's attribute: no deleted entries, by name.
void IndexRequest::ReadPreferences()
{
    NodeContext& context = block_[0].context;
    Attribute* attribute = nullptr;
    if (Failed(g_pIAttr->SAReference(context.hSession, g_hSessionAttribute, kAttributeShared,
                                     &attribute)))
        return;
    context.flags = static_cast<const KESTDAV_SESSION*>(attribute->pData)->Flags;
    (void)g_pIAttr->SADereference(kAttributeShared, attribute);
}

void IndexRequest::ReadArguments()
{
    RequestBlock& block = block_[0];
    UNICODE_STRING* query = nullptr;
    if (Code(block.context.pKestIo->GetUrlArguments(nullptr, &query)) != 0 || IsMissing(query) ||
        query->Length == 0)
        return;
    // Arguments of more than 1024 bytes are cut.
    WideToUtf8Cut(query->Buffer, query->Length / sizeof(WCHAR), block.arguments,
                  sizeof(block.arguments));

    constexpr char kStart[] = "start=";
    if (const char* start = std::strstr(block.arguments, kStart)) {
        const UINT32 number = ParseDecimal(start + sizeof(kStart) - 1);
        block.head.firstFile = number > 0 ? number - 1 : 0; // the argument counts from 1
    }
    // A malformed escape ends the decoding; what stands in the buffer is still terminated.
    (void)uri_unescape(block.arguments);
    ReadFilter(block.arguments);
}

void IndexRequest::ReadFilter(char* arguments)
{
    constexpr char kFilter[] = "filter=";
    DictionaryHead& head = block_[0].head;
    const char* value = std::strstr(arguments, kFilter);
    if (value == nullptr)
        return;
    value += sizeof(kFilter) - 1;
    char text[kIndexBuffer];
    size_t length = std::strcspn(value, "&");
    if (length >= sizeof(text))
        length = sizeof(text) - 1;
    if (length == 0)
        return; // an empty filter shows everything
    for (size_t i = 0; i < length; ++i)
        text[i] = value[i] == '+' ? ' ' : value[i];
    text[length] = '\0';
    if (Validate(text) != 1)
        return;
    WCHAR wide[kIndexBuffer];
    UINT32 units = kIndexBuffer - 1;
    if (Code(pITalpl->TalxMultiByteToWideChar(kCodePageUtf8, text, static_cast<UINT32>(length),
                                              wide, &units)) != 0)
        return; // not UTF-8: no name could match
    wide[units] = 0;
    std::memcpy(head.utf8filter, text, length + 1);
    std::memcpy(head.filter, wide, (units + 1) * sizeof(WCHAR));
    // Where upper-casing fails the filter is used as it is.
    (void)pITalpl->TalxCharUpperBuff(head.filter, units);
}

TALSTATUS IndexRequest::ChooseMode(UNICODE_STRING* url)
{
    RequestBlock& block = block_[0];
    NodeContext& context = block.context;
    context.interfaceMode = SelectMode(context.pKestIo, block.agent);

    STRING* raw = nullptr;
    if (Code(context.pKestIo->GetRawUrl(&raw)) != 0 || raw == nullptr ||
        (raw->Length != 0 && raw->Buffer == nullptr))
        return TAL_STATUS_OPEN_FAILED;
    srcUrl_ = AllocPaged<char>(size_t{raw->Length} + 1);
    if (!srcUrl_)
        return TAL_STATUS_OPEN_FAILED;
    std::copy_n(raw->Buffer, raw->Length, srcUrl_.get());
    srcUrl_[raw->Length] = '\0';
    context.srcURL = srcUrl_.get();

    if (char* suffix = std::strstr(srcUrl_.get(), kIndexXmlSuffix)) {
        *suffix = '\0';
        context.indexXml = true;
        context.interfaceMode = kModeXml;
        constexpr UINT16 kSuffixBytes = kIndexXmlUnits * sizeof(WCHAR);
        url->Length = url->Length < kSuffixBytes ? UINT16{0}
                                                 : static_cast<UINT16>(url->Length - kSuffixBytes);
    }
    if (AcceptsOnlyXml(context.pKestIo))
        context.interfaceMode = kModeXml;
    return TAL_STATUS_SUCCESS;
}

// Appends to the "Set-Cookie" header that the host has set, if it has. Fails with code 5.
TALSTATUS AppendToCookie(IKestIO_5* io, const char* attribute)
{
    char name[] = "Set-Cookie";
    UINT32 length = kIndexBuffer;
    Paged<char> value;
    TALSTATUS status;
    UINT32 room;
    do {
        room = length;
        value = AllocPaged<char>(room + std::strlen(attribute) + 1);
        if (!value)
            return TAL_STATUS_INSUFFICIENT_RESOURCES;
        status = io->GetReplyHeader(name, &length, value.get());
        if (Code(status) != kCodeBufferTooSmall || length <= room)
            break;
    } while (true);
    if (Code(status) != 0 || length > room)
        return TAL_STATUS_SUCCESS;
    std::strcpy(value.get() + length, attribute);
    SetHeaderText(io, name, value.get());
    return TAL_STATUS_SUCCESS;
}

bool IsHttps(IKestIO_5* io)
{
    constexpr UINT32 kProtocolBytes = 32;
    Ref<IKestIO_3> request;
    if (Failed(Query(io, request)))
        return false;
    char protocol[kProtocolBytes + 1] = {};
    UINT32 length = kProtocolBytes;
    return Code(request->GetProtocolName(&length, protocol)) == 0 &&
           strncasecmp(protocol, "https", 5) == 0;
}

// The session's cookie is not for scripts, and not for plain connections where there is a safe one.
TALSTATUS HardenCookie(IKestIO_5* io)
{
    if (const TALSTATUS status = AppendToCookie(io, "; HttpOnly"); Failed(status))
        return status;
    return IsHttps(io) ? AppendToCookie(io, "; Secure") : TAL_STATUS_SUCCESS;
}

TALSTATUS IndexRequest::Answer(UNICODE_STRING* url)
{
    NodeContext& context = block_[0].context;
    IKestIO_5* io = context.pKestIo;
    TemplateFile page;
    if (const TALSTATUS status = page.Open(mainTemplateFiles[context.interfaceMode]);
        Failed(status))
        return status;
    if (const TALSTATUS status = HardenCookie(io); Failed(status))
        return status;

    SetHeader(io, "Transfer-Encoding", "chunked");
    SetHeader(io, "Content-Type", "text/html; charset=\"utf-8\"");
    (void)io->SendHeader(200);
    RenderPage(context, url, block_[0].agent, page);
    return TAL_STATUS_SUCCESS;
}

} // namespace

bool HasIndexTemplate(IKestIO_5* pKestIo, bool isXml)
{
    char agent[kIndexBuffer + 1];
    isXml = isXml || AcceptsOnlyXml(pKestIo);
    return HasTemplate(mainTemplateFiles[isXml ? kModeXml : SelectMode(pKestIo, agent)]);
}

TALSTATUS HTMLIndexRequest(IKestIO_5* pKestIo, SCHANDLE hSession, UNICODE_STRING* pUrl)
{
    IndexRequest request;
    if (!request)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    request.Initialize(pKestIo, hSession);
    request.ReadArguments();
    if (const TALSTATUS status = request.ChooseMode(pUrl); Failed(status))
        return status;
    return request.Answer(pUrl);
}
