// SPDX-License-Identifier: Apache-2.0
#include "tests/crashstates/check.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "providers/filestore/purge.h"

namespace crashstates {

using namespace filestore;

const std::vector<Setting> kSettings = {
    {SyncLevel::Data, 30, "Sync = data"},
    {SyncLevel::Full, 30, "Sync = full"},
    {SyncLevel::None, 30, "Sync = none"},
    {SyncLevel::Data, 0, "Sync = data, Keep Deleted = 0"},
};

namespace {

std::string Joined(const std::vector<std::string>& lines, const char* mark)
{
    std::string out;
    for (const std::string& line : lines)
        out += mark + line + "\n";
    return out;
}

std::vector<std::string> Missing(const std::vector<std::string>& in,
                                 const std::vector<std::string>& from)
{
    std::vector<std::string> out;
    std::set_difference(from.begin(), from.end(), in.begin(), in.end(), std::back_inserter(out));
    return out;
}

} // namespace

Checker::Checker(const Setting& setting, std::string directory, const Sampling& sampling,
                 OnFault onFault)
    : setting_(setting), directory_(std::move(directory)), sampling_(sampling),
      onFault_(std::move(onFault)), first_(FirstDisk())
{
}

void Checker::Report(std::string what, std::string detail)
{
    ++counts.faults;
    onFault_({std::move(what), std::move(detail)});
}

// Two volumes as a server left them that was stopped well.
Disk Checker::FirstDisk()
{
    Machine machine(Disk(), 0);
    for (InodeId& top : tops_)
        top = machine.MakeInode(true, 0755);
    {
        const auto store = Start(machine);
        Client client(*store);
        MakeFirstTree(client, setting_.keepDays != 0);
    }
    return machine.Now();
}

std::unique_ptr<Store> Checker::Start(Machine& machine) const
{
    std::vector<std::unique_ptr<Volume>> volumes;
    const char* const names[] = {"v", "w"};
    for (int i = 0; i < (usesOther_ ? 2 : 1); ++i)
        volumes.push_back(
            std::make_unique<Volume>(names[i], machine.Mount(tops_[i], directory_ + "/" + names[i]),
                                     setting_.sync, OpenSqliteMetadata));
    Store::Options options;
    options.sync = setting_.sync;
    options.keepDeletedDays = setting_.keepDays;
    options.now = [] { return g_now; };
    return std::make_unique<Store>(std::move(volumes), options);
}

void Checker::Check(const std::vector<const Operation*>& sequence, size_t repairs)
{
    usesOther_ = std::any_of(sequence.begin(), sequence.end(),
                             [](const Operation* operation) { return operation->usesOther; });
    Machine machine(first_, 1);
    Expected expected;
    expected.repairs = repairs;
    expected.halfway = sequence.back()->halfway;
    expected.isInTwoPlaces = sequence.back()->isInTwoPlaces;
    expected.isMoveAcross =
        sequence.back()->usesOther && std::string_view(sequence.back()->name).starts_with("MOVE");
    expected.name = setting_.name;
    size_t first = 0; // event of the last operation
    lastWasWhole = true;
    {
        const auto store = Start(machine);
        Client client(*store);
        expected.after.push_back(Describe(machine, *store, IsExact()));
        for (const Operation* operation : sequence) {
            first = sequence.size() == 1 ? 0 : machine.Events().size();
            expected.name += std::string(": ") + operation->name;
            const TALSTATUS status = operation->run(*store, client);
            machine.Do({.kind = Event::Answer});
            expected.after.push_back(Describe(machine, *store, IsExact()));
            lastWasWhole = !Failed(status);
            if (Failed(status) && expected.after.back() != expected.after.end()[-2])
                Report(expected.name + ": it failed and changed something",
                       Joined(expected.after.back(), "  "));
            if (Failed(status) && operation != sequence.back())
                return;
        }
    }
    ++counts.sequences;
    // The store has ended since: what that did is no part of the sequence.
    const auto& events = machine.Events();
    size_t end = events.size();
    while (end > 0 && events[end - 1].kind != Event::Answer)
        --end;
    const std::function<void(const Disk&, const Cut&)> check = [&](const Disk& disk,
                                                                   const Cut& cut) {
        if (cut.events <= end)
            CheckState(disk, cut, expected, false);
    };
    EachState(machine, first, sampling_, check);
}

void Checker::CheckState(const Disk& disk, const Cut& cut, const Expected& expected, bool isRepair)
{
    std::string text;
    for (const InodeId top : tops_)
        disk.Print(top, &text);
    for (size_t i = 0; i < expected.after.size(); ++i)
        if (setting_.sync == SyncLevel::None || i == cut.answered || i == cut.answered + 1)
            text += Joined(expected.after[i], "|");
    if (!seen_.insert(std::hash<std::string>()(text)).second) {
        ++counts.repeats;
        return;
    }
    ++(isRepair ? counts.repairs : counts.states);
    Machine machine(disk, isRepair ? 3 : 2);
    std::string wrong;
    {
        const auto store = Start(machine);
        Lines found = Describe(machine, *store, IsExact());
        wrong = Compare(found, cut, expected);
        if (wrong.empty())
            wrong = Leftovers(machine, *store);
    }
    if (!wrong.empty()) {
        const char* const when = isRepair                                    ? " (a second cut)"
                                 : cut.answered + 1 == expected.after.size() ? " (answered)"
                                                                             : " (not answered)";
        Report(expected.name + when, wrong);
        return;
    }
    if (isRepair || expected.repairs == 0 || counts.states % expected.repairs != 0)
        return;
    const std::function<void(const Disk&, const Cut&)> again = [&](const Disk& state, const Cut&) {
        CheckState(state, cut, expected, true);
    };
    EachState(machine, 0, {16, sampling_.seed}, again);
}

// Without syncing only what no operation has touched is promised.
std::string Checker::CompareUntouched(const Lines& found, const Expected& expected) const
{
    const auto pathOf = [](const std::string& line) {
        std::string path = line.substr(0, line.find(line.starts_with("deleted ") ? '\'' : ' '));
        return path.ends_with('/') ? path : path + "/";
    };
    std::set<std::string> touched;
    for (const Lines& lines : expected.after)
        for (const Lines& changed :
             {Missing(lines, expected.after.front()), Missing(expected.after.front(), lines)})
            for (const std::string& line : changed)
                touched.insert(pathOf(line));
    Lines lost = Missing(found, expected.after.front());
    std::erase_if(lost, [&](const std::string& line) {
        const std::string path = pathOf(line);
        return std::any_of(touched.begin(), touched.end(), [&](const std::string& other) {
            return path.starts_with(other) || other.starts_with(path);
        });
    });
    return Joined(lost, "  lost: ");
}

using Lines = std::vector<std::string>;

// What clients see of a volume, "/v" or "/w".
static Lines OnVolume(const Lines& lines, std::string_view volume)
{
    Lines out;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(out),
                 [&](const std::string& line) { return line.starts_with(volume); });
    return out;
}

// Whether a move between volumes was cut in the middle. It stands at its destination before its
// source goes, and until it has ended what it replaces and its source are among the deleted:
// nothing is lost. A volume may look the same before and after: what is replaced holds the same.
static bool IsHalfMoved(const Lines& found, const Lines& before, const Lines& after)
{
    bool isOld[2];
    bool isMade[2];
    for (const int i : {0, 1}) {
        const std::string_view volume = i == 0 ? "/v" : "/w";
        const Lines old = OnVolume(before, volume);
        const Lines made = OnVolume(after, volume);
        const Lines now = OnVolume(found, volume);
        isOld[i] = now == old;
        isMade[i] = now == made;
        if (!isOld[i] && !isMade[i])
            return false;
    }
    const auto isLost = [&](const std::string& line) {
        return line.starts_with("deleted ") &&
               std::find(after.begin(), after.end(), line) != after.end() &&
               std::find(found.begin(), found.end(), line) == found.end();
    };
    const auto isFault = [](const std::string& line) { return line.starts_with("fault "); };
    return (isOld[0] || isMade[1]) && std::none_of(before.begin(), before.end(), isLost) &&
           std::none_of(found.begin(), found.end(), isFault);
}

// Whether each line that changes is as it was or as it is to be.
static bool IsInPart(const Lines& found, const Lines& before, const Lines& after)
{
    const auto isIn = [](const Lines& lines) {
        return [&](const std::string& line) { return std::ranges::binary_search(lines, line); };
    };
    return std::ranges::all_of(
               found, [&](const auto& line) { return isIn(before)(line) || isIn(after)(line); }) &&
           std::ranges::all_of(
               before, [&](const auto& line) { return !isIn(after)(line) || isIn(found)(line); });
}

// Empty when what was found is what the setting promises.
std::string Checker::Compare(const Lines& found, const Cut& cut, const Expected& expected) const
{
    if (setting_.sync == SyncLevel::None)
        return CompareUntouched(found, expected);
    const Lines& before = expected.after[cut.answered];
    const Lines& after = expected.after[std::min(cut.answered + 1, expected.after.size() - 1)];
    const Lines more = Missing(before, found);
    if (found == before || found == after ||
        (expected.isMoveAcross && IsHalfMoved(found, before, after)) ||
        (expected.isInTwoPlaces && IsInPart(found, before, after)) ||
        (expected.halfway && more.size() == 1 && more.front().starts_with(expected.halfway) &&
         Missing(found, before).empty()))
        return {};
    std::string out =
        "  against before:\n" + Joined(Missing(found, before), "    - ") + Joined(more, "    + ");
    if (&before != &after)
        out += "  against after:\n" + Joined(Missing(found, after), "    - ") +
               Joined(Missing(after, found), "    + ");
    return out;
}

// What is still in the private directories when the store has tidied up.
std::string Checker::Leftovers(const Machine& machine, Store& store) const
{
    std::string out;
    for (const auto& volume : store.Volumes()) {
        EmptyPurge(*volume, [] { return true; });
        const InodeId top = tops_[volume->Name() == "v" ? 0 : 1];
        for (const char* const directory : {"tmp", "purge"}) {
            const InodeId at = machine.Now().Resolve(top, std::string(".kest/") + directory);
            for (const auto& [name, id] : machine.Now().Find(at)->entries)
                if (name != volume->Token() + ".lock")
                    out +=
                        "  left in " + volume->Name() + "/.kest/" + directory + ": " + name + "\n";
        }
    }
    return out;
}

} // namespace crashstates
