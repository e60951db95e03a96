// SPDX-License-Identifier: Apache-2.0
//
// Reading multipart/form-data.
#include "methods/multipart.h"

#include <cstring>

#include "support/reply.h"

namespace {

constexpr std::string_view kLineBreak = "\r\n";
constexpr std::string_view kHeadersEnd = "\r\n\r\n";
constexpr std::string_view kDashes = "--";
constexpr std::string_view kNameKey = "filename";
constexpr std::string_view kNameOpen = "=\"";
constexpr size_t kNameMarker = kNameKey.size() + kNameOpen.size();

size_t Find(std::string_view bytes, std::string_view what)
{
    const void* found = memmem(bytes.data(), bytes.size(), what.data(), what.size());
    return found == nullptr ? std::string_view::npos
                            : static_cast<size_t>(static_cast<const char*>(found) - bytes.data());
}

// As much of `count` as is whole pages, or all of a smaller one: content that starts at 0 is then
// written page by page, and no page of the stored file is touched twice.
size_t WholePages(size_t count)
{
    constexpr size_t kPageBytes = 4096;
    return count < kPageBytes ? count : count - count % kPageBytes;
}

bool EndsLine(char c)
{
    return c == '\r' || c == '\n';
}

// Where the content in front of a delimiter ends: before the line break in front of it.
size_t ContentEnd(std::string_view bytes, size_t boundaryAt)
{
    size_t at = boundaryAt;
    while (at > 0 && !EndsLine(bytes[at - 1]))
        --at;
    if (at == 0) { // no line break: the delimiter's dashes go, nothing else
        const std::string_view before = bytes.substr(0, boundaryAt);
        return before.ends_with(kDashes) ? boundaryAt - kDashes.size() : boundaryAt;
    }
    --at;
    return at > 0 && bytes[at] == '\n' && bytes[at - 1] == '\r' ? at - 1 : at;
}

bool IsEscaped(std::string_view bytes, size_t begin, size_t at)
{
    return at > begin && bytes[at - 1] == '\\';
}

// A quoted name from its first character on. Names do not span lines. A quote behind a backslash
// ends a path ("C:\temp\") where the value ends; elsewhere it is a part of a name that would be
// lost.
HeaderScan ReadName(std::string_view bytes, size_t markerAt)
{
    const size_t nameAt = markerAt + kNameMarker;
    for (size_t i = nameAt; i < bytes.size(); ++i) {
        if (bytes[i] == '"' && IsEscaped(bytes, nameAt, i)) {
            if (i + 1 == bytes.size())
                break; // what follows tells
            if (bytes[i + 1] != ';' && bytes[i + 1] != ' ' && !EndsLine(bytes[i + 1]))
                return {HeaderFind::kBadName, i + 1, {}};
        }
        if (bytes[i] == '"')
            return {HeaderFind::kFileName, i + 1, bytes.substr(nameAt, i - nameAt)};
        if (EndsLine(bytes[i]))
            return {HeaderFind::kBadName, i, {}};
    }
    return {HeaderFind::kNeedMore, markerAt, {}};
}

} // namespace

void PayloadWindow::Fill()
{
    while (!ended_ && !Full()) {
        UINT32 read = 0;
        const TALSTATUS status =
            io_->ReadClientPayload(static_cast<UINT32>(buffer_.size - used_),
                                   reinterpret_cast<UINT8*>(buffer_.data.get() + used_), &read);
        if (Code(status) != 0) {
            ended_ = true;
            // A status that does not fail has not brought any bytes either.
            endStatus_ =
                Failed(status) && Code(status) != kCodeEndOfFile ? status : TAL_STATUS_END_OF_FILE;
        } else if (read == 0) {
            ended_ = true;
        } else {
            used_ += read;
            untouched_ = false;
        }
    }
}

void PayloadWindow::Drop(size_t count)
{
    used_ -= count;
    std::memmove(buffer_.data.get(), buffer_.data.get() + count, used_);
}

size_t scanForBoundary(std::string_view boundary, std::string_view bytes, bool includeCRLF)
{
    const size_t at = Find(bytes, boundary);
    return at == std::string_view::npos || !includeCRLF ? at : ContentEnd(bytes, at);
}

HeaderScan scanForFilename(std::string_view bytes)
{
    size_t at = 0;
    for (; at + kNameMarker <= bytes.size(); ++at) {
        const std::string_view rest = bytes.substr(at);
        if (rest.starts_with(kHeadersEnd))
            return {HeaderFind::kPlainPart, at + kHeadersEnd.size(), {}};
        if (!rest.starts_with(kNameKey))
            continue;
        const std::string_view after = rest.substr(kNameKey.size());
        if (after.starts_with(kNameOpen))
            return ReadName(bytes, at);
        // A name in another form than a quoted string: stored under a guess it would be lost.
        if (after.starts_with('=') || after.starts_with("*="))
            return {HeaderFind::kBadName, at + kNameKey.size(), {}};
    }
    // The last bytes may be the end of the headers even where no name fits into them.
    if (const size_t end = Find(bytes.substr(at), kHeadersEnd); end != std::string_view::npos)
        return {HeaderFind::kPlainPart, at + end + kHeadersEnd.size(), {}};
    return {HeaderFind::kNeedMore, at, {}};
}

size_t scanForFileStart(std::string_view bytes, size_t& at)
{
    if (const size_t end = Find(bytes, kHeadersEnd); end != std::string_view::npos)
        return end + kHeadersEnd.size();
    const size_t keep = kHeadersEnd.size() - 1;
    at = bytes.size() > keep ? bytes.size() - keep : 0;
    return std::string_view::npos;
}

std::string_view LastComponent(std::string_view path)
{
    const size_t separator = path.find_last_of("/\\");
    return separator == std::string_view::npos ? path : path.substr(separator + 1);
}

bool FormReader::Advance(size_t looked)
{
    if (window_.Ended() || (looked == 0 && window_.Full()))
        return false;
    window_.Drop(looked);
    return true;
}

bool FormReader::findFormPart(TALSTATUS* status)
{
    for (;;) {
        window_.Fill();
        const size_t at = scanForBoundary(boundary_, window_.Bytes(), false);
        if (at != std::string_view::npos) {
            window_.Drop(at + boundary_.size());
            break;
        }
        const size_t keep = boundary_.size() - 1;
        const size_t used = window_.Bytes().size();
        if (!Advance(used > keep ? used - keep : 0)) {
            // A body without a single byte holds no part; in any other one a delimiter is missing.
            *status = window_.Untouched() && Code(window_.EndStatus()) == kCodeEndOfFile
                          ? TAL_STATUS_SUCCESS
                          : window_.EndStatus();
            return false;
        }
    }
    window_.Fill();
    const std::string_view rest = window_.Bytes();
    const bool nothingFollows = window_.Ended() && (rest.empty() || rest == kLineBreak);
    if (!rest.starts_with(kDashes) && !nothingFollows)
        return true;
    *status = nothingFollows && Code(window_.EndStatus()) != kCodeEndOfFile ? window_.EndStatus()
                                                                            : TAL_STATUS_SUCCESS;
    return false;
}

bool FormReader::SkipHeaders()
{
    for (;;) {
        window_.Fill();
        size_t looked = 0;
        const size_t start = scanForFileStart(window_.Bytes(), looked);
        if (start != std::string_view::npos) {
            window_.Drop(start);
            return true;
        }
        if (!Advance(looked))
            return false;
    }
}

// A name that fills the whole buffer is longer than any target.
HeaderFind FormReader::LongName()
{
    window_.Drop(kNameMarker);
    return SkipHeaders() ? HeaderFind::kBadName : HeaderFind::kNeedMore;
}

TALSTATUS FormReader::writeOrSkipContent(PartSink* sink)
{
    // What could be the beginning of a line break and a delimiter stays for the next round. Content
    // types are so bounded that the smallest buffer is longer than that.
    const size_t keep = kLineBreak.size() + kDashes.size() + boundary_.size() - 1;
    TALSTATUS written = TAL_STATUS_SUCCESS;
    for (;;) {
        window_.Fill();
        const std::string_view bytes = window_.Bytes();
        const size_t end = scanForBoundary(boundary_, bytes, true);
        const bool found = end != std::string_view::npos;
        const bool last = found || window_.Ended();
        const size_t ready = found             ? end
                             : window_.Ended() ? bytes.size()
                                               : WholePages(bytes.size() - keep);
        if (sink != nullptr && ready > 0 && !Failed(written))
            written = sink->Write(window_.Data(), static_cast<UINT32>(ready));
        window_.Drop(ready);
        if (last)
            return Failed(written) || found ? written : window_.EndStatus();
    }
}
