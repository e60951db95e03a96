// SPDX-License-Identifier: Apache-2.0
//
// Requests through the built module to the store over two volumes, "one" and "two", whose file
// system and metadata fail where a test says so. A case reads:
//
//     FailEveryCall({.fill = …}, Request(KestMethodMove, "/Ferro/one/a").To("/Ferro/two/a"));
//
// which makes call N of the two seams fail, for N = 1, 2, … until a run meets no failure, and
// compares what a server that starts afterwards finds with what was there before and what is to be.
#pragma once

#include <cerrno>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/contract/harness/io.h"
#include "tests/unit/providers/filestore/failing_filesystem.h"
#include "tests/unit/providers/filestore/scratch.h"

namespace faults {

// Which call of the seams fails, counted over both volumes.
struct Plan {
    int failAt = 0;           // counts from 1 while `isArmed`; 0: none
    bool isFullAfter = false; // and whatever needs room on the disk after it
    int error = EIO;          // the metadata fails with the status that it stands for
    bool isArmed = false;
    int calls = 0;
    std::string failed; // the first one that did

    bool HasFailed() const { return !failed.empty(); }
    int Judge(const std::string& operation); // 0, or the error to fail with
};

struct Setup {
    UINT32 keepDays = 30;
    filestore::SyncLevel sync = filestore::SyncLevel::None;
    // Makes what is there before the request, without failures.
    std::function<void(filestore::Client&)> fill = {};
    bool isPlain = false; // without the seams that fail, which take memory themselves
};

struct Outcome {
    int said = 0;                    // the status that the module answered with
    std::vector<TALSTATUS> reported; // failures, to the host
    bool IsSuccess() const { return said >= 200 && said < 300 && reported.empty(); }
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome);

class Installation {
  public:
    explicit Installation(const Setup& setup);
    ~Installation();
    Installation(const Installation&) = delete;
    Installation& operator=(const Installation&) = delete;

    Plan plan;
    std::function<bool()> isCancelled = {}; // what the request is told; none: never
    // Called at every call of a seam, while the request runs.
    std::function<void(const std::string& operation)> onCall = {};

    std::filesystem::path One() const { return directory_.Path() / "one"; }
    std::filesystem::path Two() const { return directory_.Path() / "two"; }
    filestore::Store& Store() { return *store_; }

    // Serves one request as the host does, with the plan.
    Outcome Run(const harness::Request& request);
    // Works on the store without the module, with the plan. A status of 0 counts as 200.
    Outcome Run(const std::function<TALSTATUS(filestore::Store&)>& work);
    // For `onCall`: lets another client do something in between, without failures.
    void AsAnother(const std::function<void(filestore::Client&)>& work);
    // Whether the request keeps everybody else from the metadata just now: they would wait for it.
    bool HoldsMetadata() const { return transactions_ > 0; }
    // Handles that the file systems have open.
    int OpenHandles() const;
    // What lies in the private directories besides deleted entries that are kept.
    std::vector<std::string> Leftovers() const;
    // Ends the store and starts another one on the same volumes, without failures.
    void Restart();
    // Everything that a client could find: names, kinds, permissions and content, hidden marks,
    // properties, deleted entries, locks; and orphaned metadata. One line each, sorted.
    std::string Snapshot() const;

  private:
    void Start();

    const Setup setup_;
    const filestore::TempDirectory directory_;
    int transactions_ = 0;
    std::vector<filestore::FailingFileSystem*> systems_; // of the store
    std::unique_ptr<filestore::Store> store_;
};

struct Sweep {
    std::vector<int> errors = {EIO};
    bool isFullAfter = false; // from there on nothing finds room, until the store starts again
    // Rows of what has gone may stay: nobody finds them, and whoever makes the name forgets them.
    bool mayLeaveRows = false;
    // The request is one that is refused: it has to leave everything as it was.
    bool isRefused = false;
};

// What is run over and over.
using Task = std::function<Outcome(Installation&)>;

// See above. Every run has to end with what was there before or what is to be, whole, and a
// success only with the latter; nothing is left over and no handle stays open.
void FailEveryCall(const Setup& setup, const Task& task, const Sweep& sweep = {});
void FailEveryCall(const Setup& setup, const harness::Request& request, const Sweep& sweep = {});

// The same for one failure of another kind, for every N at first and for some of the later ones:
// `fail(N)` arms the N-th, `hasFailed` says whether it came, and fail(0) ends it.
void FailEach(const Setup& setup, const Task& task, const std::function<void(int)>& fail,
              const std::function<bool()>& hasFailed);

} // namespace faults
