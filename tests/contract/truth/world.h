// SPDX-License-Identifier: Apache-2.0
//
// A whole server in this process: the host, the module as it is built, and the store, over a file
// system that fails when a test says so.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "tests/contract/host/harness.h"
#include "tests/unit/providers/filestore/failing_filesystem.h"

namespace filestore {
class Store;
}

namespace truth_test {

// The dialect of all requests of this process: that of KEST_VARIANT, the classic one without.
bool IsStandard();

// The one server of the process, with the volume "v".
class World {
  public:
    static World& Get();

    // A volume with known content in place of the one before: "file", "large", "dir" with members,
    // among them a folder, a link and one that keeps its date; "file" has the property "p".
    void Renew();
    filestore::FailingFileSystem& Files() { return *files_; }
    // Waits until no more handles of the file system are open: a request lets go of its own after
    // its reply. False when that does not come.
    bool HasClosedAllBut(int open) const;
    std::filesystem::path Volume() const { return directory_ / "volume"; }

    // One request on a connection of its own, and its whole reply, without those before it: status
    // 0 when the connection ended before there was a head.
    kestd::test::Answer Ask(const std::string& request, bool isHead);
    // How many replies came before that of the last request (1xx).
    int Interims() const { return interims_; }
    // "METHOD /Ferro/v/PATH" with the headers that every request has, and `more`, each with its
    // line break; then the body.
    static std::string Request(const std::string& method, const std::string& path,
                               const std::string& more = {}, const std::string& body = {});
    // Sets the property, takes a lock: what a client would do first.
    void Prepare(const std::string& request, int status);
    std::string Lock(const std::string& path); // its token

    // Descriptors of this process, once every connection has ended.
    static size_t OpenDescriptors();

  private:
    World();
    uint16_t port_ = 0;
    int interims_ = 0;
    std::filesystem::path directory_;
    filestore::FailingFileSystem* files_ = nullptr;
};

} // namespace truth_test
