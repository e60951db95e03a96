// SPDX-License-Identifier: Apache-2.0
#include "tests/crashstates/states.h"

#include <algorithm>
#include <random>
#include <set>
#include <tuple>

namespace crashstates {

namespace {

// Something that is on the disk or not, apart from the others: one change of names, or what was
// done to one inode's content or attributes since that was synced. A log of SQLite is there up to
// the end of some transaction.
struct Unit {
    std::vector<size_t> events;
    std::vector<size_t> needs; // units without which it cannot be there
    std::vector<size_t> ends;  // how many of `events` can be there, besides none and all
    size_t Choices() const { return 2 + ends.size(); }
    size_t Count(size_t choice) const // of events that are there
    {
        if (choice == 0)
            return 0;
        return choice <= ends.size() ? ends[choice - 1] : events.size();
    }
};

using Slot = std::pair<InodeId, std::string>;

std::vector<Slot> SlotsOf(const Event& e)
{
    if (!e.ChangesNames())
        return {};
    std::vector<Slot> out{{e.directory, e.name}};
    if (e.kind == Event::Rename || e.kind == Event::Exchange)
        out.emplace_back(e.toDirectory, e.toName);
    return out;
}

// Which of the first `count` events are on the disk for sure.
std::vector<bool> Persistent(const std::vector<Event>& events, size_t count)
{
    std::vector<bool> kept(count, false);
    std::set<Slot> needed; // by changes that are kept
    for (size_t at = count; at-- > 0;) {
        const Event& sync = events[at];
        if (sync.kind != Event::Sync)
            continue;
        for (size_t i = 0; i < at; ++i) {
            const Event& e = events[i];
            const bool byDirectory =
                e.ChangesNames() && (e.directory == sync.inode || e.toDirectory == sync.inode);
            const bool byFile = e.inode == sync.inode &&
                                (e.ChangesContent() || (e.ChangesAttributes() && sync.number != 0));
            kept[i] = kept[i] || byDirectory || byFile;
        }
    }
    for (size_t i = count; i-- > 0;) {
        const std::vector<Slot> slots = SlotsOf(events[i]);
        for (const Slot& slot : slots)
            kept[i] = kept[i] || needed.contains(slot);
        if (kept[i])
            needed.insert(slots.begin(), slots.end());
        kept[i] = kept[i] || events[i].kind == Event::Make;
    }
    return kept;
}

// What may or may not be on the disk of the first `count` events.
std::vector<Unit> Volatile(const std::vector<Event>& events, size_t count,
                           const std::vector<bool>& kept)
{
    std::vector<Unit> units;
    std::map<Slot, size_t> lastChange;                   // unit by name
    std::map<std::tuple<InodeId, bool>, size_t> ofInode; // unit by inode, attributes or not
    for (size_t i = 0; i < count; ++i) {
        const Event& e = events[i];
        if (kept[i])
            continue;
        if (e.ChangesNames()) {
            Unit unit{{i}, {}, {}};
            for (const Slot& slot : SlotsOf(e)) {
                const auto found = lastChange.find(slot);
                if (found != lastChange.end())
                    unit.needs.push_back(found->second);
                lastChange[slot] = units.size();
            }
            units.push_back(std::move(unit));
        } else if (e.ChangesContent() || e.ChangesAttributes()) {
            const auto [found, isNew] =
                ofInode.emplace(std::tuple(e.inode, e.ChangesAttributes()), units.size());
            if (isNew)
                units.emplace_back();
            Unit& unit = units[found->second];
            unit.events.push_back(i);
            if (e.endsCommit)
                unit.ends.push_back(unit.events.size());
        }
    }
    for (Unit& unit : units)
        std::erase(unit.ends, unit.events.size());
    return units;
}

class Enumeration {
  public:
    Enumeration(const Machine& machine, const Cut& cut, const Sampling& sampling,
                const std::function<void(const Disk&, const Cut&)>& each)
        : machine_(machine), cut_(cut), each_(each),
          kept_(Persistent(machine.Events(), cut.events)),
          units_(Volatile(machine.Events(), cut.events, kept_)), dice_(sampling.seed)
    {
        size_t total = 1;
        for (const Unit& unit : units_)
            total = std::min(total * unit.Choices(), sampling.most + 1);
        std::vector<size_t> choice(units_.size(), 0);
        if (total <= sampling.most)
            All(choice, 0);
        else
            Drawn(choice, sampling.most);
    }

  private:
    void All(std::vector<size_t>& choice, size_t at)
    {
        if (at == units_.size())
            return Give(choice);
        const bool isPossible = std::all_of(units_[at].needs.begin(), units_[at].needs.end(),
                                            [&](size_t need) { return choice[need] != 0; });
        const size_t choices = isPossible ? units_[at].Choices() : 1;
        for (choice[at] = 0; choice[at] < choices; ++choice[at])
            All(choice, at + 1);
        choice[at] = 0;
    }
    // None, all, each alone, all but each, then what the dice say.
    void Drawn(std::vector<size_t>& choice, size_t most)
    {
        const auto all = [&](size_t unit) { return units_[unit].Choices() - 1; };
        for (const bool base : {false, true}) {
            for (size_t i = 0; i <= units_.size(); ++i) { // the last: none changed
                for (size_t unit = 0; unit < units_.size(); ++unit)
                    choice[unit] = base != (unit == i) ? all(unit) : 0;
                GivePossible(choice);
            }
        }
        for (size_t i = 2 * units_.size(); i < most; ++i) {
            for (size_t unit = 0; unit < units_.size(); ++unit)
                choice[unit] = dice_() % units_[unit].Choices();
            GivePossible(choice);
        }
    }
    void GivePossible(std::vector<size_t> choice)
    {
        for (size_t unit = 0; unit < units_.size(); ++unit)
            for (const size_t need : units_[unit].needs)
                if (choice[need] == 0)
                    choice[unit] = 0;
        Give(choice);
    }
    void Give(const std::vector<size_t>& choice)
    {
        std::vector<bool> there = kept_;
        for (size_t unit = 0; unit < units_.size(); ++unit)
            for (size_t i = 0; i < units_[unit].Count(choice[unit]); ++i)
                there[units_[unit].events[i]] = true;
        Disk disk = machine_.Start();
        for (size_t i = 0; i < there.size(); ++i)
            if (there[i])
                disk.Apply(machine_.Events()[i]);
        each_(disk, cut_);
    }

    const Machine& machine_;
    const Cut cut_;
    const std::function<void(const Disk&, const Cut&)>& each_;
    const std::vector<bool> kept_;
    const std::vector<Unit> units_;
    std::mt19937_64 dice_;
};

} // namespace

void EachState(const Machine& machine, size_t first, const Sampling& sampling,
               const std::function<void(const Disk&, const Cut&)>& each)
{
    const std::vector<Event>& events = machine.Events();
    Cut cut;
    bool hasChanged = true; // since the cut before
    for (size_t i = 0; i <= events.size(); ++i) {
        const bool isEnd = i == events.size();
        if (i >= first && hasChanged && (isEnd || events[i].kind == Event::Sync)) {
            cut.events = i;
            Enumeration(machine, cut, sampling, each);
            hasChanged = false;
        }
        if (isEnd)
            break;
        if (events[i].kind == Event::Answer) {
            ++cut.answered;
            if (i >= first) {
                cut.events = i + 1;
                Enumeration(machine, cut, sampling, each);
            }
            hasChanged = false;
        } else if (events[i].kind != Event::Sync) {
            hasChanged = true;
        }
    }
}

} // namespace crashstates
