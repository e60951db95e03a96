// SPDX-License-Identifier: Apache-2.0
#include "tests/contract/providers/filestore/faults.h"

#include <algorithm>
#include <ostream>
#include <set>

#include <sys/stat.h>

#include "providers/filestore/failures.h"
#include "providers/filestore/purge.h"
#include "tests/contract/providers/filestore/failing_metadata.h"
#include "tests/contract/providers/filestore/faults_module.h"
#include "tests/contract/providers/filestore/faults_snapshot.h"
#include "tests/support/temporary_directory.h"

namespace faults {

using namespace filestore;
namespace fs = std::filesystem;

// A name that changes within its directories finds its room there.
static bool NeedsRoom(const std::string& operation)
{
    static const std::set<std::string> kOperations = {
        "CreateFile",  "CreateUnnamed", "MakeDirectory", "Write",
        "CopyContent", "SetSize",       "Allocate",      "meta Commit"};
    return kOperations.contains(operation);
}

int Plan::Judge(const std::string& operation)
{
    if (!isArmed || (isFullAfter && !NeedsRoom(operation)))
        return 0;
    ++calls;
    if (failAt == 0 || calls < failAt || (calls > failAt && !isFullAfter))
        return 0;
    if (failed.empty())
        failed = operation;
    return error;
}

std::ostream& operator<<(std::ostream& out, const Outcome& outcome)
{
    out << "said " << outcome.said;
    for (const TALSTATUS status : outcome.reported)
        out << ", reported " << Code(status);
    return out;
}

Installation::Installation(const Setup& setup)
    : setup_(setup), directory_(test_support::FastestPlace())
{
    (void)Module(); // the call context is there before the store looks for it
    fs::create_directory(One());
    fs::create_directory(Two());
    Start();
    if (!setup_.fill)
        return;
    Client client(*store_);
    setup_.fill(client);
    // Old enough to tell a copied date from a new one.
    for (const fs::path& volume : {One(), Two()})
        for (const auto& entry : fs::recursive_directory_iterator(volume))
            if (entry.is_regular_file() &&
                entry.path().native().find("/.kest/") == std::string::npos) {
                const timespec times[2] = {{0, UTIME_OMIT}, {1'600'000'123, 0}};
                EXPECT_EQ(0, ::utimensat(AT_FDCWD, entry.path().c_str(), times, 0));
            }
}

Installation::~Installation()
{
    g_store = nullptr;
}

void Installation::Start()
{
    systems_.clear();
    std::vector<std::unique_ptr<Volume>> volumes;
    for (const fs::path& path : {One(), Two()}) {
        int error = 0;
        if (setup_.isPlain) {
            volumes.push_back(std::make_unique<Volume>(path.filename(),
                                                       OpenPosixFileSystem(path.c_str(), &error),
                                                       setup_.sync, OpenSqliteMetadata));
            continue;
        }
        auto failing =
            std::make_unique<FailingFileSystem>(OpenPosixFileSystem(path.c_str(), &error));
        const auto judge = [this](const std::string& operation) {
            if (plan.isArmed && onCall)
                onCall(operation);
            return plan.Judge(operation);
        };
        failing->judge = judge;
        systems_.push_back(failing.get());
        volumes.push_back(std::make_unique<Volume>(
            path.filename(), std::move(failing), setup_.sync,
            [this, judge](const std::string& directory, bool durable, std::string* reason) {
                std::unique_ptr<Metadata> real = OpenSqliteMetadata(directory, durable, reason);
                return real ? std::make_unique<FailingMetadata>(std::move(real), judge,
                                                                &transactions_)
                            : nullptr;
            }));
    }
    filestore::Store::Options options;
    options.sync = setup_.sync;
    options.keepDeletedDays = setup_.keepDays;
    options.now = [] { return g_now; };
    store_ = std::make_unique<filestore::Store>(std::move(volumes), options);
}

Outcome Installation::Run(const harness::Request& request)
{
    harness::World& world = Module();
    g_store = store_.get();
    harness::ScriptedIo io(world.recorder, world.platform, request);
    Running running{&io, request.method, {}, isCancelled, {}, request.overwrite != FALSE};
    g_running = &running;
    plan.calls = 0;
    plan.isArmed = true;
    (void)world.module->RequestHandler(&io, harness::SessionHandle(1), request.method);
    running.attached.clear();
    plan.isArmed = false;
    g_running = nullptr;
    world.recorder.Clear();
    Outcome outcome;
    outcome.said = std::atoi(io.TakeReply().text.c_str());
    outcome.reported = running.reported;
    return outcome;
}

Outcome Installation::Run(const std::function<TALSTATUS(filestore::Store&)>& work)
{
    plan.calls = 0;
    plan.isArmed = true;
    const TALSTATUS status = work(*store_);
    plan.isArmed = false;
    Outcome outcome;
    outcome.said = Failed(status) ? Code(status) : 200;
    return outcome;
}

void Installation::AsAnother(const std::function<void(Client&)>& work)
{
    Running* const running = std::exchange(g_running, nullptr);
    plan.isArmed = false;
    Client client(*store_);
    work(client);
    plan.isArmed = true;
    g_running = running;
}

int Installation::OpenHandles() const
{
    int open = 0;
    for (const FailingFileSystem* system : systems_)
        open += system->open;
    return open;
}

std::vector<std::string> Installation::Leftovers() const
{
    std::vector<std::string> out;
    for (const fs::path& volume : {One(), Two()})
        for (const char* const directory : {".kest/tmp", ".kest/uploads"})
            if (fs::exists(volume / directory))
                for (const std::string& name : filestore::Leftovers(volume / directory))
                    out.push_back(volume.filename().string() + "/" + name);
    return out;
}

void Installation::Restart()
{
    store_.reset();
    Start();
    g_now += 10'000'000; // what is kept for no time at all is over
    for (const auto& volume : store_->Volumes()) {
        if (setup_.keepDays == 0)
            RetireDeleted(*store_, *volume);
        EmptyPurge(*volume, [] { return true; });
        EXPECT_TRUE(filestore::Leftovers((volume->Name() == "one" ? One() : Two()) / ".kest/purge")
                        .empty());
    }
}

std::string Installation::Snapshot() const
{
    std::set<std::string> lines;
    for (const fs::path& volume : {One(), Two()})
        Describer(volume, &lines).Describe();
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

namespace {

// What is there before, and what a run without failures makes of it.
struct Expected {
    std::string before;
    std::string after;
};

Expected Find(const Setup& setup, const Task& task, const Sweep& sweep)
{
    Expected expected;
    Installation place(setup);
    place.Restart();
    expected.before = place.Snapshot();
    const Outcome outcome = task(place);
    EXPECT_EQ(!sweep.isRefused, outcome.IsSuccess()) << outcome;
    EXPECT_TRUE(place.Leftovers().empty());
    place.Restart();
    expected.after = place.Snapshot();
    EXPECT_EQ(sweep.isRefused, expected.before == expected.after) << expected.after;
    return expected;
}

bool IsCleanUp(const std::string& operation)
{
    return operation == "RemoveFile" || operation == "RemoveDirectory" || operation == "Rename" ||
           operation.starts_with("meta ");
}

// Whether that is what is to be, and what could not be dropped is still among the deleted entries,
// with or without its files: it goes in time.
bool IsWithMoreKept(const std::string& found, const std::string& wanted)
{
    std::istringstream foundLines(found), wantedLines(wanted);
    std::string next, line;
    bool hasNext = static_cast<bool>(std::getline(wantedLines, next));
    while (std::getline(foundLines, line)) {
        if (hasNext && line == next)
            hasNext = static_cast<bool>(std::getline(wantedLines, next));
        else if (line.find(":deleted(/") == line.npos)
            return false;
    }
    return !hasNext;
}

std::string WithoutOrphans(const std::string& snapshot)
{
    std::istringstream lines(snapshot);
    std::string line, rest;
    while (std::getline(lines, line))
        if (!line.ends_with(" (orphan)"))
            rest += line + "\n";
    return rest;
}

// False when the run met no failure.
bool RunOnce(const Setup& setup, const Task& task, const Sweep& sweep, int error, int failAt,
             const Expected& expected)
{
    Installation place(setup);
    const int open = place.OpenHandles();
    place.plan.failAt = failAt;
    place.plan.isFullAfter = sweep.isFullAfter;
    place.plan.error = error;
    const Outcome outcome = task(place);
    SCOPED_TRACE("call " + std::to_string(failAt) + ", " + place.plan.failed + ", " +
                 std::strerror(error));
    EXPECT_EQ(open, place.OpenHandles());
    if (!sweep.isFullAfter && !IsCleanUp(place.plan.failed)) {
        EXPECT_EQ(std::vector<std::string>(), place.Leftovers());
    }
    place.Restart();
    EXPECT_EQ(std::vector<std::string>(), place.Leftovers());
    const std::string found =
        sweep.mayLeaveRows ? WithoutOrphans(place.Snapshot()) : place.Snapshot();
    // A name that was not synced is not taken off the list: the next who looks through it does.
    const bool mayKeepMore =
        !outcome.IsSuccess() || IsCleanUp(place.plan.failed) || place.plan.failed == "Sync";
    if (outcome.IsSuccess() && !(mayKeepMore && IsWithMoreKept(found, expected.after))) {
        EXPECT_EQ(expected.after, found) << outcome;
    } else if (!IsWithMoreKept(found, expected.after) &&
               !(sweep.isFullAfter && IsWithMoreKept(found, expected.before))) {
        EXPECT_EQ(expected.before, found) << outcome;
    }
    return place.plan.HasFailed();
}

} // namespace

void FailEveryCall(const Setup& setup, const harness::Request& request, const Sweep& sweep)
{
    FailEveryCall(
        setup, [&](Installation& place) { return place.Run(request); }, sweep);
}

void FailEveryCall(const Setup& setup, const Task& task, const Sweep& sweep)
{
    const Expected expected = Find(setup, task, sweep);
    for (const int error : sweep.errors)
        for (int failAt = 1; !testing::Test::HasFailure(); ++failAt) {
            ASSERT_LT(failAt, 2000);
            if (!RunOnce(setup, task, sweep, error, failAt, expected))
                break;
        }
}

void FailEach(const Setup& setup, const Task& task, const std::function<void(int)>& fail,
              const std::function<bool()>& hasFailed)
{
    const Expected expected = Find(setup, task, {});
    // Neighbours mostly fail alike.
    const int sparing = std::getenv("KEST_FULL_TESTS") ? 1 << 30 : 32;
    for (int failAt = 1; !testing::Test::HasFailure(); failAt += 1 + failAt / sparing) {
        ASSERT_LT(failAt, 100000);
        SCOPED_TRACE("failure " + std::to_string(failAt));
        Installation place(setup);
        fail(failAt);
        const Outcome outcome = task(place);
        const bool isOver = !hasFailed();
        fail(0);
        place.Restart();
        EXPECT_EQ(std::vector<std::string>(), place.Leftovers());
        const std::string found = place.Snapshot();
        if (outcome.IsSuccess()) {
            EXPECT_EQ(expected.after, found);
        } else if (!IsWithMoreKept(found, expected.after)) {
            EXPECT_EQ(expected.before, found);
        }
        if (isOver)
            break;
    }
}

} // namespace faults
