// SPDX-License-Identifier: Apache-2.0
//
// The parts of an uploaded form (RFC 7578), read through one buffer of fixed size: nothing of a
// part is held whole, neither its headers nor its content.
#pragma once

#include <string_view>

#include "support/memory.h"
#include <kest/io.h>

// The buffer that the request's body passes through: bytes that were read and not yet dropped.
class PayloadWindow {
  public:
    PayloadWindow(IKestIO_5* io, TransferBuffer buffer) : io_(io), buffer_(std::move(buffer)) {}

    // Reads until the buffer is full or the body has ended.
    void Fill();
    // Takes `count` bytes off the front.
    void Drop(size_t count);

    std::string_view Bytes() const { return {buffer_.data.get(), used_}; }
    char* Data() { return buffer_.data.get(); }
    bool Full() const { return used_ == buffer_.size; }
    bool Ended() const { return ended_; }
    // Why the body ended: code 8 at its end, anything else when it broke off.
    TALSTATUS EndStatus() const { return endStatus_; }
    // True until the first byte has come.
    bool Untouched() const { return untouched_; }

  private:
    IKestIO_5* io_;
    TransferBuffer buffer_;
    size_t used_ = 0;
    bool ended_ = false;
    bool untouched_ = true;
    TALSTATUS endStatus_ = TAL_STATUS_END_OF_FILE;
};

// Finds the boundary in what has been read. With `includeCRLF` the position is moved back to the
// line break before the delimiter, which is where a part's content ends; a delimiter without a line
// break before it ends the content where it begins. npos when there is no boundary.
size_t scanForBoundary(std::string_view boundary, std::string_view bytes, bool includeCRLF);

// What a look at a part's header lines has found.
enum class HeaderFind {
    kNeedMore,  // nothing yet in the first `at` bytes
    kPlainPart, // the headers ended at `at` without a file name
    kFileName,  // a name; header lines go on at `at`
    kBadName,   // a file name in a form that is not understood; header lines go on at `at`
};
struct HeaderScan {
    HeaderFind find;
    size_t at;
    std::string_view name; // as sent
};
HeaderScan scanForFilename(std::string_view bytes);

// The position behind the empty line that ends a part's headers; npos when it has not come yet, and
// `at` is then what can be dropped.
size_t scanForFileStart(std::string_view bytes, size_t& at);

// The last component of a path with separators of either kind, as browsers may send it.
std::string_view LastComponent(std::string_view path);

// Receives the content of a part. A failure ends the receiving, not the reading.
class PartSink {
  public:
    virtual TALSTATUS Write(char* data, UINT32 size) = 0;

  protected:
    ~PartSink() = default;
};

// Reads the parts in order: findFormPart, then getFileName, then writeOrSkipContent, for each part.
class FormReader {
  public:
    FormReader(IKestIO_5* io, TransferBuffer buffer, std::string_view boundary)
        : window_(io, std::move(buffer)), boundary_(boundary)
    {
    }

    // Moves behind the next boundary. False at the end of the form, with *status telling how it
    // ended: 0 when nothing is missing, else code 8 or what reading the body failed with.
    [[nodiscard]] bool findFormPart(TALSTATUS* status);

    // Reads the part's headers and leaves the first byte of its content in front. kNeedMore means
    // that the body ended in the headers. The name is valid only inside `onName`, which is called
    // at most once.
    template <class OnName> HeaderFind getFileName(OnName onName)
    {
        for (;;) {
            window_.Fill();
            const HeaderScan scan = scanForFilename(window_.Bytes());
            if (scan.find == HeaderFind::kFileName)
                onName(scan.name);
            if (scan.find == HeaderFind::kNeedMore && !Advance(scan.at))
                return window_.Ended() ? HeaderFind::kNeedMore : LongName();
            if (scan.find == HeaderFind::kNeedMore)
                continue;
            window_.Drop(scan.at);
            if (scan.find == HeaderFind::kPlainPart)
                return scan.find;
            return SkipHeaders() ? scan.find : HeaderFind::kNeedMore;
        }
    }

    // Hands the part's content to `sink` (null: drops it) and leaves the next delimiter in front.
    // The sink's first failure is returned, and nothing more is handed to it. Code 8, or what
    // reading failed with, when the body ended before the delimiter.
    TALSTATUS writeOrSkipContent(PartSink* sink);

    // Why the body ended, where it did.
    TALSTATUS EndStatus() const { return window_.EndStatus(); }

  private:
    // Drops what has been looked at. False when the body has no more, or when nothing can be
    // dropped from a full buffer.
    bool Advance(size_t looked);
    bool SkipHeaders();
    HeaderFind LongName();

    PayloadWindow window_;
    std::string_view boundary_;
};
