// SPDX-License-Identifier: Apache-2.0
//
// The "If" request header (RFC 4918 section 10.4): lock tokens and entity tags that a client names,
// and the conditions under which its request may go on. Pure text and logic; what a resource's
// state is comes through IfState.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace filestore {

// What a condition asks about one resource. Paths are as IfHeader::Evaluate was given them or as a
// tag named them: percent-decoded, with the server's prefix still on.
class IfState {
  public:
    // True when the resource is under a lock with this token (without "opaquelocktoken:"): its own
    // or one inherited from a collection.
    virtual bool HasLock(std::string_view path, std::string_view token) = 0;
    // True when the resource's current strong entity tag, quotes included, is this one.
    virtual bool HasEntityTag(std::string_view path, std::string_view entityTag) = 0;

  protected:
    ~IfState() = default;
};

struct IfCondition {
    enum class Kind { LockToken, OtherToken, EntityTag };
    bool negated = false;
    Kind kind = Kind::OtherToken;
    std::string value; // a lock token without its prefix, another state token, or an entity tag
};

// Conditions that must all hold. `resource` is the tag's path; none means the request's own.
struct IfList {
    std::optional<std::string> resource;
    std::vector<IfCondition> conditions;
};

class IfHeader {
  public:
    // Nothing for a malformed header, an empty one included.
    static std::optional<IfHeader> Parse(std::string_view text);
    // One that others have parsed.
    static IfHeader Of(std::vector<IfList> lists)
    {
        IfHeader out;
        out.lists_ = std::move(lists);
        return out;
    }

    // True when at least one list holds (RFC 4918 section 10.4.3).
    bool Evaluate(std::string_view requestPath, IfState& state) const;

    // The lock tokens that the client submits: those of conditions that are not negated (RFC 4918
    // section 10.4.1). In the header's order; a token may come twice.
    std::vector<std::string_view> SubmittedTokens() const;

    const std::vector<IfList>& Lists() const { return lists_; }

  private:
    std::vector<IfList> lists_;
};

// The path of a resource tag: the tag's text behind its authority, without query and fragment,
// percent-decoded. Nothing when the tag is neither an absolute URI with an authority nor a path, or
// holds a malformed escape. The scheme and the authority are the client's spelling of this server
// and are not compared.
std::optional<std::string> PathOfResourceTag(std::string_view tag);

} // namespace filestore
