// SPDX-License-Identifier: Apache-2.0
//
// Changes to the registry file's text that leave everything else in it as it is, comments included.
// `tree` is the parsed form of `text`. Each throws std::bad_alloc.
#pragma once

#include <string>
#include <string_view>

#include "platform/registry_tree.h"

namespace tolm {

// Whether the file's form has a place for the value: no binary data, no number past 2^63 - 1, texts
// and lists of texts well formed.
bool CanWrite(UINT32 type, const void* data, UINT32 size) noexcept;

std::string WithKey(const std::string& text, std::u16string_view path);
std::string WithoutKey(const std::string& text, const RegistryTree& tree, std::u16string_view path);
std::string WithValue(const std::string& text, const RegistryTree& tree, std::u16string_view key,
                      std::u16string_view name, UINT32 type, const void* data, UINT32 size);
std::string WithoutValue(const std::string& text, const RegistryTree& tree, std::u16string_view key,
                         std::u16string_view name);

} // namespace tolm
