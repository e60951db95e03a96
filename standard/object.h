// SPDX-License-Identifier: Apache-2.0
//
// What a provider of the third generation says of an object, and the headers that tell it.
#pragma once

#include <cstddef>

#include "standard/conditions.h"
#include "support/dates.h"
#include "support/globals.h"
#include <kest/dav/namespace_3.h>
#include <kest/dav/resource_3.h>

namespace standard {

// An empty record for a provider to fill.
inline DAV_OBJECT_INFO EmptyInfo() noexcept
{
    DAV_OBJECT_INFO info{};
    info.Size = sizeof info;
    return info;
}

// For what asks of an object whether it is there, and whether it is a collection: the provider need
// not look for the rest.
inline DAV_OBJECT_INFO TypeOnly() noexcept
{
    DAV_OBJECT_INFO info{};
    info.Size = offsetof(DAV_OBJECT_INFO, Attributes);
    return info;
}

inline DAV_CHANGE EmptyChange() noexcept
{
    DAV_CHANGE change{};
    change.Size = sizeof change;
    change.Info = EmptyInfo();
    return change;
}

// For a change of which the outcome alone is told: the provider need not look at what has become of
// it.
inline DAV_CHANGE OutcomeOnly() noexcept
{
    DAV_CHANGE change{};
    change.Size = offsetof(DAV_CHANGE, Info);
    return change;
}

// The tag's text; empty when there is none. No longer than it can be, whatever a provider says.
inline std::string_view TagText(const DAV_OBJECT_INFO& info) noexcept
{
    return {info.Tag.Text, info.Tag.Length < kTagBytes ? info.Tag.Length : kTagBytes};
}

// What conditions are judged by. Refers to `info`.
inline Current CurrentOf(const DAV_OBJECT_INFO& info) noexcept
{
    return {true, ReadEntityTag(TagText(info)), info.ModificationDate};
}

// Sets "ETag" and "Last-Modified".
inline void SetValidators(IKestIO_5* io, DAV_OBJECT_INFO info)
{
    if (const std::string_view tag = TagText(info); !tag.empty()) {
        char name[] = "ETag";
        (void)io->SetReplyHeader(name, static_cast<UINT32>(tag.size()), info.Tag.Text);
    }
    SetDateHeader(io, "Last-Modified", info.ModificationDate);
}

// The object through which one resource's content goes.
[[nodiscard]] inline TALSTATUS CreateResource(const KESTDAV_HANDLER& handler,
                                              Ref<IKestDAVResource3>& resource)
{
    Ref<IKestDAVResource2> second;
    const TALSTATUS status = Create(handler.ClassId, second);
    return Failed(status) ? status : Query(second.Get(), resource);
}

} // namespace standard
