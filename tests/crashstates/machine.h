// SPDX-License-Identifier: Apache-2.0
//
// A machine whose disk can be cut off at any moment: a disk in memory, the record of what was done
// to it, and the store's two ways to it, its file system interface and SQLite's.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "providers/filestore/filesystem.h"
#include "tests/crashstates/disk.h"

namespace crashstates {

// Held by whoever uses a machine: the store closes a database that is idle on a thread of its own.
class Busy {
  public:
    Busy();

  private:
    static std::recursive_mutex& Mutex();
    const std::lock_guard<std::recursive_mutex> lock_;
};

class Machine {
  public:
    // `start`: how often it has been switched on before; random numbers depend on it.
    Machine(Disk disk, uint64_t start);
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    ~Machine();

    const Disk& Start() const { return start_; } // as it was when the machine was switched on
    const Disk& Now() const { return disk_; }
    const std::vector<Event>& Events() const { return events_; }

    void Do(Event event);
    InodeId MakeInode(bool isDirectory, uint32_t mode);
    uint64_t Random();

    // The file system whose top is `top`. SQLite finds the files below it under `directory`, a
    // directory of the real disk that can be anything, see RegisterMemoryVfs.
    std::unique_ptr<filestore::FileSystem> Mount(InodeId top, const std::string& directory);

    // For the file systems: what is open, and who holds the locks.
    struct Handle {
        InodeId inode = kNoInode;
        InodeId top = kNoInode;
    };
    std::map<int, Handle> handles;
    std::map<InodeId, int> locked; // by the handle
    int nextHandle = 100;

    // For SQLite: the locks on its files, see memoryvfs.cpp.
    struct Shared;
    Shared& SharedOf(InodeId inode);

  private:
    const Disk start_;
    Disk disk_;
    std::vector<Event> events_;
    uint64_t random_ = 0;
    std::map<InodeId, std::unique_ptr<Shared>> shared_;
};

// Makes a file system of SQLite the default one, and the one that the store asks for by name, that
// looks into the machine mounted at a path. It has to be called once, before anything else uses
// SQLite. Nothing else is found by it.
void RegisterMemoryVfs();
void MapDirectory(const std::string& directory, Machine* machine, InodeId top); // null: no more
// How many files it has opened so far.
size_t FilesOpened();

} // namespace crashstates
