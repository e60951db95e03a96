// SPDX-License-Identifier: Apache-2.0
//
// The registry as it stands at one moment: keys by full path, their values and subkeys in the
// order of the file. A tree is never changed after it was published; a change makes a new one.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <kest/talpl.h>

namespace tolm {

inline constexpr std::size_t kLongestPath = 1024; // code units of a key's path
inline constexpr std::size_t kLongestName = 1024; // code units of a value's name
inline constexpr UINT32 kLargestValue = 1024 * 1024;

// Whether anybody has asked for a key or value since the file was loaded. Shared by the trees that
// follow from one load.
struct Usage {
    std::atomic<bool> used{false};
    void Mark() noexcept
    {
        if (!used.load(std::memory_order_relaxed)) // keeps the line shared between readers
            used.store(true, std::memory_order_relaxed);
    }
};

// A place in the file's text: line from 1, column in code points from 1.
struct Place {
    UINT32 line = 0;
    UINT32 column = 0;
};

struct RegistryValue {
    std::u16string name;
    std::u16string folded;
    UINT32 type = TALX_REG_SZ;
    std::vector<UINT8> data;
    bool isOverride = false;
    bool isTruth = false; // written as true or false, which are kept as 1 and 0
    Place begin;          // of the entry; line 0 for an override
    Place valueBegin;
    Place valueEnd; // just past the value
    std::shared_ptr<Usage> usage = std::make_shared<Usage>();
};

struct RegistryKey {
    std::u16string path; // as first written
    UINT32 line = 0;     // of its header; 0 for a key that only its subkeys or overrides imply
    std::vector<RegistryValue> values;
    std::vector<std::size_t> children; // positions in RegistryTree::keys
    std::shared_ptr<Usage> usage = std::make_shared<Usage>();

    const RegistryValue* Find(std::u16string_view foldedName) const;
    // The last component of the path.
    std::u16string_view Name() const;
};

struct RegistryTree {
    std::vector<RegistryKey> keys;
    std::unordered_map<std::u16string, std::size_t> byFoldedPath;
    UINT64 lastWrite = 0; // of the file; 100 ns units since 1601
    std::string label;    // the file's path as given, for messages; empty without a file

    const RegistryKey* Find(const std::u16string& foldedPath) const;
    // The key and its parents, made if need be; throws std::bad_alloc.
    RegistryKey& Ensure(std::u16string_view path);
};

// "A\B\C": components that are not empty, within the bound, no NUL.
bool IsKeyPath(std::u16string_view path) noexcept;

// Reads the file's text. On failure `error` is "LABEL:LINE: reason". Throws std::bad_alloc.
bool ParseRegistry(const std::string& text, const std::string& label, RegistryTree& tree,
                   std::string& error); // `tree` comes empty

// Encodes registry data.
std::vector<UINT8> EncodeString(std::u16string_view text); // with its terminator

} // namespace tolm
