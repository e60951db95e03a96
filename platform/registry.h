// SPDX-License-Identifier: Apache-2.0
//
// The registry of the process: the file's keys with the overrides laid over them.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "platform/registry_tree.h"

namespace tolm {

class Registry {
  public:
    static Registry& Get() noexcept;

    // What is current. Never waits for a file: writers publish a finished tree.
    std::shared_ptr<const RegistryTree> Current() const;

    // As TolmRegistryLoad. A null path takes the file away.
    TALSTATUS Load(const char* path, std::string& error);
    // A null `data` takes the override away.
    TALSTATUS SetOverride(std::u16string_view key, std::u16string_view name, UINT32 type,
                          const void* data, UINT32 size);

    // Changes to the file. Each edits the text in place, so that comments and order stay, checks
    // the result, replaces the file and publishes the new tree; or fails and changes nothing.
    TALSTATUS CreateKey(std::u16string_view path);
    TALSTATUS DeleteKey(std::u16string_view path);
    TALSTATUS SetValue(std::u16string_view key, std::u16string_view name, UINT32 type,
                       const void* data, UINT32 size);
    TALSTATUS DeleteValue(std::u16string_view key, std::u16string_view name);

  private:
    struct Override {
        std::u16string key;
        RegistryValue value;
    };
    template <class Edit> TALSTATUS Change(Edit&& edit);
    TALSTATUS WriteBack(const std::string& text, UINT64& lastWrite);
    // `file` with the overrides laid over it. Under writer_.
    std::shared_ptr<RegistryTree> Overlay(const RegistryTree& file) const;
    void Publish(std::shared_ptr<RegistryTree>&& tree) noexcept;

    // Held by whoever changes something, also while the file is read and written. Guards the next
    // four.
    std::mutex writer_;
    std::string path_; // resolved; empty without a file
    std::string text_;
    RegistryTree file_;
    std::vector<Override> overrides_;

    mutable std::mutex current_; // held only to copy or replace the pointer
    std::shared_ptr<const RegistryTree> tree_ = std::make_shared<const RegistryTree>();
};

// A value's data from its registry form, for callers inside the library. Empty when missing or of
// another type. Counts as read.
std::u16string ReadRegistryString(const std::u16string& foldedKey, std::u16string_view foldedName);

} // namespace tolm
