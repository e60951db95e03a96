// SPDX-License-Identifier: Apache-2.0
//
// CLSID_Directory_1: names and attributes of users, from the users file or from an LDAP server.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/auth/sessions.h"
#include "host/auth/users.h"
#include <kest/directory.h>

namespace kestd {

// The attribute under which components ask for a user's mail address.
inline constexpr const char16_t* kMailAttribute = u"Internet EMail Address";

// One entry as it was read: attributes by their upper-case names, values in order.
using DirectoryEntry = std::map<std::u16string, std::vector<std::u16string>>;

// Upper case as names of the directory compare.
std::u16string FoldedName(std::u16string_view name);

// Where entries come from. Called from any thread.
class DirectoryBackend {
  public:
    virtual ~DirectoryBackend() = default;
    // Reads the entry of a full distinguished name. Code 11 when there is none, 16 for a text that
    // is no such name, 1 when the directory cannot be asked.
    virtual TALSTATUS Read(std::u16string_view name,
                           std::shared_ptr<const DirectoryEntry>& entry) = 0;
};

// The users of the users file and the command line; they need a dotted name and a tree.
class UserDirectory final : public DirectoryBackend {
  public:
    explicit UserDirectory(const UserMap& users);
    TALSTATUS Read(std::u16string_view name, std::shared_ptr<const DirectoryEntry>& entry) override;

  private:
    // By folded full distinguished name; fixed.
    std::unordered_map<std::u16string, std::shared_ptr<const DirectoryEntry>> entries_;
};

// The service: holds the backend of the day. Outlives the interfaces made for it.
class DirectoryService {
  public:
    explicit DirectoryService(SessionTable& sessions) : sessions_(sessions) {}

    void Use(std::shared_ptr<DirectoryBackend> backend);
    std::shared_ptr<DirectoryBackend> Backend() const;
    SessionTable& Sessions() { return sessions_; }

  private:
    SessionTable& sessions_;
    mutable std::mutex mutex_; // guards backend_
    std::shared_ptr<DirectoryBackend> backend_;
};

// A new IDirectory with one reference.
IDirectory* MakeDirectoryInterface(DirectoryService& service);

} // namespace kestd
