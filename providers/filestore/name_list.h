// SPDX-License-Identifier: Apache-2.0
//
// The names of one directory, in the order of listings.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include <kest/types.h>

namespace filestore {

// Maps code units to upper case, one to one, in place.
using UpperCase = void (*)(WCHAR* text, UINT32 units);

// The names of one directory, sorted as the platform layer compares without regard to case: by code
// unit after simple upper-casing. Names that differ in case only stand in byte order. Costs about
// 16 bytes per name beside its text, and while it sorts the text once more in UTF-16 when a name is
// not ASCII.
class NameList {
  public:
    explicit NameList(UpperCase upper) : upper_(upper) {}
    void Add(std::string_view name);
    void Sort();
    size_t Count() const { return entries_.size(); }
    // Valid until the list changes; NUL-terminated.
    std::string_view At(size_t index) const
    {
        const Entry& e = entries_[index];
        return {arena_.data() + e.offset, e.length};
    }

    // The same as UTF-16: how many units it has, and the units themselves.
    size_t UnitsAt(size_t index) const;
    void WideAt(size_t index, WCHAR* out) const;
    // What follows the name will be asked for soon. Sorted names lie scattered in memory.
    void ExpectAfter(size_t index) const
    {
        constexpr size_t kAhead = 4;
        if (index + kAhead < entries_.size())
            __builtin_prefetch(arena_.data() + entries_[index + kAhead].offset);
    }

  private:
    struct Entry {
        UINT64 key;
        UINT32 offset;
        UINT16 length;
        bool ascii;
    };
    bool Less(const Entry& a, const Entry& b) const;
    size_t SharedPrefix() const;
    void SetKeys();
    void SortAscii();
    void SortWide();

    UpperCase upper_;
    std::vector<char> arena_;
    std::vector<Entry> entries_;
};

} // namespace filestore
