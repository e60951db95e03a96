// SPDX-License-Identifier: Apache-2.0
//
// Looks header fields up, and joins those that stand in several lines.
#include "host/http/request.h"

#include "base/ascii.h"

namespace kestd {

const std::string_view* Request::Search(std::string_view name)
{
    for (const Field& field : joined_)
        if (base::EqualsIgnoringCase(field.name, name))
            return field.value.data() ? &field.value : nullptr;
    const Field* const first = head.Find(name);
    if (!first || !head.FindNext(*first, name))
        return first ? &first->value : nullptr;
    // RFC 9110 section 5.3; cookies are the exception (RFC 6265 section 5.4).
    const std::string_view separator = base::EqualsIgnoringCase(name, "Cookie") ? "; " : ", ";
    std::string value;
    for (const Field* field = first; field; field = head.FindNext(*field, name)) {
        if (!value.empty())
            value.append(separator);
        value.append(field->value);
    }
    joined_.push_back({first->name, arena.Copy(value)});
    return &joined_.back().value;
}

void Request::SetHeader(std::string_view name, std::string_view value)
{
    value = arena.Copy(value);
    for (Field& field : joined_) {
        if (base::EqualsIgnoringCase(field.name, name)) {
            field.value = value;
            return;
        }
    }
    joined_.push_back({arena.Copy(name), value});
}

void Request::Reset() noexcept
{
    headText.Release();
    head.Clear();
    target.Clear();
    method = KestMethodUnknown;
    isSecure = false;
    remote = {};
    isFromProxy = false;
    client.reset();
    forwardedHost = forwardedPort = {};
    hostname.clear();
    port.clear();
    joined_.clear();
    arena.Reset();
}

} // namespace kestd
