// SPDX-License-Identifier: Apache-2.0
//
// The request that runs on the calling thread, as far as the store wants to know it. Everything
// here works without one: then there is no request, and what is asked about it is answered with
// the harmless default.
#pragma once

#include <cstddef>
#include <string>

#include <kest/host.h>
#include <kest/io.h>
#include <kest/status.h>

namespace filestore::call {

// Borrowed until the call ends; null when no request runs on this thread.
[[nodiscard]] IKestIO_5* Request();
// KestMethodUnknown when no request runs.
[[nodiscard]] UINT32 Method();
// Whether everything that an upload should hold has been handed out. True for requests that do not
// store their body, and when no request runs.
[[nodiscard]] bool UploadArrived();
// Tells the host of a failure that the module cannot see, or takes for something else.
void ReportFailure(TALSTATUS failure) noexcept;
// Holds back what is reported on this thread while it lives: for a try that may be followed by
// another one. Scopes nest.
class HeldReports {
  public:
    HeldReports() noexcept;
    ~HeldReports(); // reports what was not dropped
    HeldReports(const HeldReports&) = delete;
    HeldReports& operator=(const HeldReports&) = delete;
    void Drop() noexcept { count_ = 0; }

  private:
    friend void ReportFailure(TALSTATUS failure) noexcept;
    static constexpr size_t kMost = 8; // the first ones say it all
    HeldReports* const outer_;
    TALSTATUS held_[kMost];
    size_t count_ = 0;
};
// Whether the reply can reach nobody any more: long work ends with a failure then. False when no
// request runs.
[[nodiscard]] bool IsCancelled();
// Names that a listing goes on for between two such looks: one costs as much as what is said of a
// name.
inline constexpr size_t kNamesPerLook = 16;
// Ties an object to the running request under a key; the request releases it at its end. False
// when no request runs, or without memory.
[[nodiscard]] bool Attach(const GUID& key, IUnknown* object);
// Borrowed; null when there is none.
[[nodiscard]] IUnknown* Attached(const GUID& key);
// The value of a request header; false when it is missing. Throws std::bad_alloc, as Path does.
[[nodiscard]] bool Header(const char* name, std::string* value);
// The request's path as UTF-8, unescaped, with the module's location, without trailing "/"; empty
// when no request runs.
[[nodiscard]] std::string Path();
// Whether the running request is about to bring `path` (a provider path) into being: PUT, MKCOL and
// LOCK their own path, COPY and MOVE their destination, an upload form names in its folder.
[[nodiscard]] bool IsAboutToCreate(std::string_view path);

// What the client wants to be so for its change to happen; false when no request runs, or the host
// does not tell.
[[nodiscard]] bool GetConditions(KEST_CONDITIONS* out);

} // namespace filestore::call
