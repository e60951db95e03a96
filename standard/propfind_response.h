// SPDX-License-Identifier: Apache-2.0
//
// The "response" element of one object in a PROPFIND's multistatus (RFC 4918 section 14.24).
#pragma once

#include "standard/lock_element.h"
#include "standard/privileges.h"
#include "standard/propfind_request.h"
#include "standard/reply_writer.h"
#include "standard/tree_path.h"

namespace standard {

// Writes a property's empty element.
void PutPropertyName(ReplyWriter& out, const XmlName& name);

// What a response is about.
struct PropFindObject {
    IKestDAV3* provider =
        nullptr;              // null for what no third generation serves: it has no more to say
    TreePath* tree = nullptr; // the provider path, as the provider takes it
    std::string_view path;    // the same in UTF-8, without a trailing "/"
    std::string_view name;    // to show
    size_t nameAt = 0;        // of a member: where `name` begins in `path`
    DAV_OBJECT_INFO info{};

    bool IsCollection() const { return info.Type == Collection; }
};

// Writes the responses of one request.
class PropFindResponses {
  public:
    PropFindResponses(ReplyWriter& out, SCHANDLE session, const PropFindRequest& request)
        : out_(out), session_(session), request_(request)
    {
    }
    PropFindResponses(const PropFindResponses&) = delete;
    PropFindResponses& operator=(const PropFindResponses&) = delete;

    // Code 5 when memory is short for what the request asks for: the reply cannot be whole then.
    // What a provider cannot be asked for is reported to the host.
    [[nodiscard]] TALSTATUS Put(const PropFindObject& object);

  private:
    void PutMemberHref(const PropFindObject& object);
    bool EscapeParent(std::string_view parent);
    // Of one object: what it is told to have, and which of the request's names it lacks.
    void PutFound(const PropFindObject& object);
    void PutMissing();
    void PutLiveNames(UINT32 live);
    // False when the object has no such property.
    bool PutLive(const PropFindObject& object, UINT32 property);
    // Those whose values are elements, and the ones of another namespace.
    bool PutLiveElement(const PropFindObject& object, UINT32 property);
    // The path for a call of the provider; null, and reported, when it cannot be told.
    static UNICODE_STRING* WidePath(const PropFindObject& object);
    bool PutText(const char* before, std::string_view text, const char* behind);
    bool PutContentType(const PropFindObject& object);
    bool PutQuota(const PropFindObject& object, UINT32 property);
    const DAV_QUOTA* QuotaOf(const PropFindObject& object);
    bool PutWin32(const PropFindObject& object, UINT32 property);
    Privileges PrivilegesOn(const PropFindObject& object);
    void PutDead(const PropFindObject& object);
    void PutDeadProperty(const DAV_PROPERTY& property);
    void BeginFound(); // the first property opens its element
    void EndFound(bool isEmptyAllowed);

    ReplyWriter& out_;
    const SCHANDLE session_;
    const PropFindRequest& request_;
    PrivilegeReader privileges_;
    GrowingText parent_;     // of the members at hand: the path up to their names,
    GrowingText parentHref_; // and what their hrefs begin with
    RecordBuffer records_;
    GrowingArray<UINT8> isFound_; // of the request's dead names, for the object at hand
    DAV_QUOTA quota_{};           // of the object at hand, once it was asked for
    bool hasAskedQuota_ = false;
    bool hasQuota_ = false;
    UINT32 missing_ = 0;  // live properties that the object at hand lacks
    bool isOpen_ = false; // the propstat of what was found
};

} // namespace standard
