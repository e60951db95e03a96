// SPDX-License-Identifier: Apache-2.0
//
// What a PROPFIND asks for (RFC 4918 section 9.1): its headers and its body.
#pragma once

#include "standard/preferences.h"
#include "standard/xml_elements.h"
#include <kest/io.h>

namespace standard {

// Live properties, a bit each.
enum LiveProperty : UINT32 {
    kLiveCreationDate = 0x1,
    kLiveDisplayName = 0x2,
    kLiveContentLength = 0x4,
    kLiveContentType = 0x8,
    kLiveTag = 0x10,
    kLiveLastModified = 0x20,
    kLiveResourceType = 0x40,
    kLiveLockDiscovery = 0x80,
    kLiveSupportedLock = 0x100,
    kLiveQuotaAvailable = 0x200,
    kLiveQuotaUsed = 0x400,
    kLivePrivileges = 0x800,
    kLiveWin32Created = 0x1000,
    kLiveWin32Modified = 0x2000,
    kLiveWin32Attributes = 0x4000,
    kLivePermissions = 0x8000, // ownCloud's
};
inline constexpr UINT32 kLiveCount = 16;

// Those of RFC 4918, which "allprop" stands for.
inline constexpr UINT32 kLiveAll = 0x1FF;
inline constexpr UINT32 kLiveEvery = (1U << kLiveCount) - 1;

struct LiveName {
    std::string_view space;
    std::string_view local;
};
// In the order of their bits.
extern const LiveName kLiveNames[kLiveCount];

// The bit of a live property; 0 for any other name.
UINT32 FindLiveProperty(const XmlName& name) noexcept;

enum class Depth { Zero, One, Infinity };

struct PropFindRequest {
    enum class Kind { Named, All, Names };

    Kind kind = Kind::All;
    Depth depth = Depth::Infinity;
    Preferences preferences;
    UINT32 live = 0; // asked for by name, or included
    struct Name {    // a property that is not live; its texts are in `names`
        UINT32 at;
        UINT32 spaceLength;
        UINT32 localLength;
    };
    GrowingArray<Name> dead;
    GrowingText names;

    XmlName NameOf(const Name& name) const
    {
        return {names.Text(name.at, name.spaceLength),
                names.Text(name.at + name.spaceLength, name.localLength)};
    }
    bool WantsDead() const { return kind != Kind::Named || !dead.empty(); }
};

// More properties than that in one request are refused.
inline constexpr size_t kMostAskedProperties = 1000;

// Reads headers and body. Fails with code 16 for a malformed one (400), with code 5 when memory is
// short, and with the host's status when the body cannot be read.
[[nodiscard]] TALSTATUS ReadPropFind(IKestIO_5* io, PropFindRequest& request);

// Reads a body that is XML, into `body`; its size is 0 when there is none. Fails with code 16 when
// it breaks off, with code 5 when memory is short, and as the host does when it cannot tell.
struct XmlBodyText {
    Paged<char> memory;
    UINT32 size = 0;
    std::string_view Text() const { return {memory.get(), size}; }
};
[[nodiscard]] TALSTATUS ReadBody(IKestIO_5* io, XmlBodyText& body);

// The status of a reader's result.
[[nodiscard]] TALSTATUS StatusOf(XmlResult result) noexcept;

// Reads "Depth": 0, 1 or infinity, and "1,noroot" and the like. Without one it is Infinity. Fails
// with code 16 for anything else, with code 5 when memory is short.
[[nodiscard]] TALSTATUS ReadDepth(IKestIO_5* io, Depth& depth, bool& withoutRoot);

} // namespace standard
