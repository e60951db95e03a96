// SPDX-License-Identifier: Apache-2.0
//
// What a client asks for by "Range" and "If-Range" (RFC 9110 sections 13.1.5 and 14.2), and how it
// is had from the module. The module takes closed ranges with numbers below 2^31, knows no
// "If-Range", and sends of a whole body no more than the low 32 bits of its length. The rest is
// made up for here: what the module is asked for is chosen so that its reply contains what the
// client wants, that is cut out, and where only a reply tells what to ask for, the module is asked
// again.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kestd {

// One range of bytes as a client writes it. At least one of the numbers is there; only `last`: that
// many bytes at the end.
struct ByteRange {
    std::optional<uint64_t> first;
    std::optional<uint64_t> last; // included
};

// Reads a "Range" header. Nothing when it is not one well-formed range of bytes; the whole is then
// the right answer. Numbers beyond 64 bits become the largest.
std::optional<ByteRange> ParseByteRange(std::string_view header) noexcept;

class RangeRequest {
  public:
    // What the module's reply says of itself; empty for what it does not say.
    struct ModuleReply {
        int status;
        std::string_view length;   // "Content-Length"
        std::string_view range;    // "Content-Range"
        std::string_view modified; // "Last-Modified"
    };
    enum class Action {
        Send,          // as it is
        SendPart,      // as Content-Length and Content-Range here tell, cut by Cut
        SendWhole,     // the part is everything: 200
        Unsatisfiable, // 416
        Retry,         // send nothing; the module has to answer ForModule as it is now
    };

    void Reset() noexcept
    {
        if (isUsed_)
            *this = RangeRequest();
    }
    // The client's headers; `ifRange` is null when it did not send one. Its text must outlive this.
    // Throws std::bad_alloc.
    void Read(std::string_view range, const std::string_view* ifRange);
    // True when the client wants everything, as most do.
    bool IsWhole() const noexcept { return !wanted_ && !wantsWhole_; }
    // What the module is to find as "Range"; empty: no such header.
    std::string_view ForModule() const noexcept { return forModule_; }
    // To be called when the module has answered a GET and nothing has been sent. Retry is
    // answered a bounded number of times. Throws std::bad_alloc.
    Action Evaluate(const ModuleReply& told);

    // After SendPart, SendWhole and Unsatisfiable: the headers' values. Throw std::bad_alloc.
    std::string ContentLength() const;
    std::string ContentRange() const;
    // Takes from a piece of the module's body what the client is to get. `isOver` says that nothing
    // that follows belongs to it.
    std::string_view Cut(std::string_view piece, bool& isOver) noexcept;

  private:
    Action EvaluateWhole(const ModuleReply& told);
    Action EvaluatePart(const ModuleReply& told);
    bool IsOutdated(const ModuleReply& told) const noexcept;
    void Ask();

    std::optional<ByteRange> wanted_;
    std::optional<std::string_view> ifRange_;
    std::string forModule_;
    bool wantsWhole_ = false; // asked for by a range, since it is too long for a whole body
    uint64_t first_ = 0;      // of the part to be sent
    uint64_t length_ = 0;     // of the part; 0: there is none
    uint64_t size_ = 0;       // of everything
    uint64_t skip_ = 0;       // to come before the part
    uint64_t left_ = UINT64_MAX;
    bool isUsed_ = false; // anything above has changed
};

} // namespace kestd
