// SPDX-License-Identifier: Apache-2.0
//
// A disk in memory, and the record of everything that was done to it: from both, the states that a
// power cut can leave are made (states.h).
//
// What the model assumes of a file system: a change of names (a link, an unlinking, a rename, an
// exchange) happens whole or not at all; two of them reach the disk in any order unless they touch
// the same name in the same directory; a synced directory keeps every change of its names so far,
// and what those depend on. The content of a file is there as far as it was synced; what was
// written since is there or not. Mode, dates and tags reach the disk like content, apart from it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace crashstates {

using InodeId = uint32_t;
inline constexpr InodeId kNoInode = 0;

struct Inode {
    bool isDirectory = false;
    uint32_t mode = 0;
    uint64_t modified = 0;
    std::string content;
    std::map<std::string, InodeId, std::less<>> entries;
    std::map<std::string, std::string, std::less<>> tags;
};

// What happened to a disk. Applying an event to a disk that lacks its inode changes nothing.
struct Event {
    enum Kind : uint8_t {
        Make,     // `inode` exists from now on; without a name nobody sees it
        Link,     // (directory, name) -> inode; what bore the name is gone
        Unlink,   // (directory, name)
        Rename,   // (directory, name) -> (toDirectory, toName)
        Exchange, // the two names change places
        Write,    // `bytes` at `number`
        Truncate, // to `number` bytes
        SetMode,  // to `number`
        SetDate,  // to `number`
        SetTag,   // `name` = `bytes`
        Sync,     // of `inode`; `number` is 1 when more than content is synced
        Answer,   // operation `number` has been answered
    };
    Kind kind;
    InodeId inode = kNoInode;
    InodeId directory = kNoInode;
    InodeId toDirectory = kNoInode;
    std::string name{};
    std::string toName{};
    uint64_t number = 0;
    std::string bytes{};
    bool isDirectory = false; // Make
    bool endsCommit = false;  // Write to a write-ahead log: its last transaction is whole with it

    bool ChangesNames() const { return kind >= Link && kind <= Exchange; }
    bool ChangesContent() const { return kind == Write || kind == Truncate; }
    bool ChangesAttributes() const { return kind >= SetMode && kind <= SetTag; }
};

class Disk {
  public:
    void Apply(const Event& event);
    const Inode* Find(InodeId id) const;
    // What the path below `top` leads to; kNoInode for nothing.
    InodeId Resolve(InodeId top, std::string_view path) const;
    // The same tree gives the same text, whatever the numbers of its inodes.
    void Print(InodeId top, std::string* out) const;

    InodeId Next() const { return static_cast<InodeId>(inodes_.size() + 1); }

  private:
    void ApplyRename(const Event& event);
    Inode* Get(InodeId id);
    // An inode is copied when a disk that shares it with another changes it.
    std::vector<std::shared_ptr<const Inode>> inodes_; // by number, the first is 1
};

} // namespace crashstates
