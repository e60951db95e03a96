// SPDX-License-Identifier: Apache-2.0
//
// What a provider tells of objects that stood in the way of a change, and the reply made of it: 423
// where the request's own path is locked, 207 where members are (RFC 4918 sections 9.6.1 and 13).
#pragma once

#include <kest/dav/failures_3.h>
#include <kest/io.h>
#include <kest/types.h>

namespace standard {

// Collects failures in platform memory. Lives on the handler's stack; providers keep no reference.
class Failures final : public IKestDAVFailures3 {
  public:
    Failures() = default;
    ~Failures();
    Failures(const Failures&) = delete;
    Failures& operator=(const Failures&) = delete;

    struct Entry {
        Entry* next;
        TALSTATUS status;
        UNICODE_STRING path; // its buffer stands behind the entry, with a terminator
        bool isCollection;   // known once they have been described
    };
    const Entry* First() const { return first_; }

    // Finds out what a reply says of them once the operation is over: for hrefs, whether each is a
    // collection. The caller holds the providers' list.
    void Describe(SCHANDLE session);
    // The same after an operation on `path` that has ended with `status`, which is handed back.
    // Where a lock has refused it that nobody has named, that is the path's own.
    TALSTATUS Described(SCHANDLE session, UNICODE_STRING path, TALSTATUS status);

    // What is told beyond kMost, or when memory is short, is left out: the operation's own status
    // says that it failed.
    static constexpr UINT32 kMost = 1000;

    TALSTATUS QueryInterface(const GUID* iid, void** out) override;
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }
    TALSTATUS OnFailure(UNICODE_STRING* path, TALSTATUS failure) override;

  private:
    Entry* first_ = nullptr;
    Entry** end_ = &first_;
    UINT32 count_ = 0;
};

// Answers a change that failed with `status`, its failures being described. `path` is the provider
// path of the request, `destination` that of COPY and MOVE, null otherwise. Every status has its
// HTTP meaning; a lock at or above one of the two is a 423 that names the lock's root, anything
// below them a 207.
TALSTATUS AnswerFailure(IKestIO_5* io, TALSTATUS status, const Failures& failures,
                        const UNICODE_STRING& path, const UNICODE_STRING* destination = nullptr);

} // namespace standard
