// SPDX-License-Identifier: Apache-2.0
//
// Header lines kept with an upload: "Name: value", one per line.
#include "standard/upload_terms.h"

#include <cstring>

#include "standard/request_headers.h"

namespace standard {

namespace {

constexpr const char* kTerms[] = {
    "If",         "If-Match",    "If-None-Match", "If-Unmodified-Since",
    "X-OC-Mtime", "Repr-Digest", "OC-Checksum"};
constexpr std::string_view kColon = ": ";
constexpr size_t kMostName = 32;

// Writes into a room of kMostUploadTerms bytes. False when it is full.
class Lines {
  public:
    explicit Lines(char* room) : room_(room) {}
    bool Add(std::string_view piece)
    {
        if (piece.size() > kMostUploadTerms - size_)
            return false;
        std::memcpy(room_ + size_, piece.data(), piece.size());
        size_ += static_cast<UINT32>(piece.size());
        return true;
    }
    UINT32 Size() const { return size_; }

  private:
    char* const room_;
    UINT32 size_ = 0;
};

} // namespace

TALSTATUS GatherTerms(IKestIO_5* io, DAV_TEXT& terms)
{
    auto* const room = static_cast<char*>(io->AllocMemory(kMostUploadTerms));
    if (!room)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    Lines lines(room);
    for (const char* const name : kTerms) {
        std::string_view value;
        if (const TALSTATUS status = ReadHeader(io, name, value); Failed(status))
            return status;
        if (value.data() &&
            !(lines.Add(name) && lines.Add(kColon) && lines.Add(value) && lines.Add("\n")))
            return TAL_STATUS_BUFFER_TOO_SMALL;
    }
    terms = {room, lines.Size()};
    return TAL_STATUS_SUCCESS;
}

TALSTATUS RestoreTerms(IKestIO_5* io, std::string_view terms)
{
    while (!terms.empty()) {
        std::string_view line = terms.substr(0, terms.find('\n'));
        terms.remove_prefix(line.size() < terms.size() ? line.size() + 1 : line.size());
        const size_t colon = line.find(kColon);
        char name[kMostName + 1] = {};
        if (colon == std::string_view::npos || colon > kMostName)
            return TAL_STATUS_INVALID_PARAMETER; // not a text of ours
        std::memcpy(name, line.data(), colon);
        line.remove_prefix(colon + kColon.size());
        if (const TALSTATUS status =
                io->SetRequestHeader(name, static_cast<UINT32>(line.size()),
                                     const_cast<char*>(line.data())); // only read
            Failed(status))
            return status;
    }
    return TAL_STATUS_SUCCESS;
}

} // namespace standard
