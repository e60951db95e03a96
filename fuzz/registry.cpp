// SPDX-License-Identifier: Apache-2.0
//
// One registry file per input. A file that can be read can also be changed: writing a value over
// itself gives the same registry, and removing a key leaves a file that reads without it.
#include <cstdlib>
#include <string>

#include "platform/caseless.h"
#include "platform/registry_edit.h"
#include "platform/registry_tree.h"

namespace {

using namespace tolm;

void Require(bool holds)
{
    if (!holds)
        std::abort();
}

bool Parse(const std::string& text, RegistryTree& tree)
{
    std::string error;
    const bool isRead = ParseRegistry(text, "input", tree, error);
    Require(isRead == error.empty());
    Require(error.find('\n') == std::string::npos);
    Require(isRead || error.starts_with("input:"));
    return isRead;
}

// Keys and values in order, with names, types and data.
bool IsSame(const RegistryTree& a, const RegistryTree& b)
{
    if (a.keys.size() != b.keys.size())
        return false;
    for (std::size_t k = 0; k < a.keys.size(); ++k) {
        if (a.keys[k].path != b.keys[k].path || a.keys[k].values.size() != b.keys[k].values.size())
            return false;
        for (std::size_t v = 0; v < a.keys[k].values.size(); ++v) {
            const RegistryValue& before = a.keys[k].values[v];
            const RegistryValue& after = b.keys[k].values[v];
            if (before.name != after.name || before.type != after.type || before.data != after.data)
                return false;
        }
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    RegistryTree tree;
    if (!Parse(text, tree))
        return 0;
    for (const RegistryKey& key : tree.keys) {
        for (const RegistryValue& value : key.values) {
            const auto bytes = static_cast<UINT32>(value.data.size());
            Require(CanWrite(value.type, value.data.data(), bytes));
            RegistryTree again;
            Require(Parse(
                WithValue(text, tree, key.path, value.name, value.type, value.data.data(), bytes),
                again));
            Require(IsSame(tree, again));
        }
        if (key.line == 0)
            continue;
        RegistryTree without;
        Require(Parse(WithoutKey(text, tree, key.path), without));
        Require(!without.Find(Folded(key.path)) || without.Find(Folded(key.path))->line == 0);
    }
    return 0;
}
