// SPDX-License-Identifier: Apache-2.0
//
// Records of the third generation.
#include "records3.h"

#include <algorithm>
#include <cstring>

namespace harness {

namespace {

constexpr INT64 kUnitsPerSecond = 10'000'000;

std::string TextOf(const DAV_TEXT& text)
{
    return {text.Text ? text.Text : "", text.Length};
}

void Apply(Node& node, const DAV_PROPERTY_CHANGE& change)
{
    switch (change.Kind) {
    case kPropertyModified:
        node.modified = change.Number;
        return;
    case kPropertyCreated:
        node.created = change.Number;
        return;
    case kPropertyAttributes:
        node.attributes = static_cast<UINT32>(change.Number);
        return;
    default:
        break;
    }
    const DeadProperty wanted = {TextOf(change.Namespace), TextOf(change.Name),
                                 TextOf(change.Value)};
    const auto found =
        std::find_if(node.dead.begin(), node.dead.end(), [&](const DeadProperty& each) {
            return each.space == wanted.space && each.local == wanted.local;
        });
    if (change.Kind == kPropertySet && found != node.dead.end())
        found->value = wanted.value;
    else if (change.Kind == kPropertySet)
        node.dead.push_back(wanted);
    else if (found != node.dead.end())
        node.dead.erase(found);
}

} // namespace

std::string ChangesText(UINT32 count, const DAV_PROPERTY_CHANGE* changes)
{
    static constexpr const char* kKinds[] = {"set ", "remove ",
                                             "modified=", "created=", "attributes="};
    std::string text;
    for (UINT32 i = 0; i < count; ++i) {
        const DAV_PROPERTY_CHANGE& change = changes[i];
        text += std::string(", ") + kKinds[change.Kind];
        if (change.Kind > kPropertyRemove)
            text += std::to_string(change.Number);
        else
            text += "{" + TextOf(change.Namespace) + "}" + TextOf(change.Name);
        if (change.Kind == kPropertySet)
            text += "=" + TextOf(change.Value);
    }
    return text;
}

TALSTATUS PatchNode(Node& node, UINT32 count, DAV_PROPERTY_CHANGE* changes,
                    const std::string& refused)
{
    TALSTATUS result = TAL_STATUS_SUCCESS;
    for (UINT32 i = 0; i < count; ++i) {
        changes[i].Status = TAL_STATUS_SUCCESS;
        if (!refused.empty() && TextOf(changes[i].Name) == refused)
            result = changes[i].Status = ProviderFailure(kCodeAccessDenied);
    }
    for (UINT32 i = 0; i < count && !Failed(result); ++i)
        Apply(node, changes[i]);
    return result;
}

TALSTATUS PackProperties(const Node& node, UINT64* place, UINT32* size, DAV_PROPERTY* buffer)
{
    if (*place >= node.dead.size())
        return ProviderFailure(kCodeNoMoreEntries);
    const DeadProperty& property = node.dead[*place];
    const std::string text = property.space + property.local + property.value;
    const auto used = static_cast<UINT32>((offsetof(DAV_PROPERTY, Text) + text.size() + 7) / 8 * 8);
    const UINT32 room = std::exchange(*size, used);
    if (used > room)
        return ProviderFailure(kCodeBufferTooSmall);
    buffer->NextEntryOffset = 0;
    buffer->NamespaceLength = static_cast<UINT32>(property.space.size());
    buffer->NameLength = static_cast<UINT32>(property.local.size());
    buffer->ValueLength = static_cast<UINT32>(property.value.size());
    std::memcpy(reinterpret_cast<char*>(buffer) + offsetof(DAV_PROPERTY, Text), text.data(),
                text.size());
    ++*place;
    return TAL_STATUS_SUCCESS;
}

std::string LockText(const DAV_LOCK_REQUEST& request)
{
    return ", depth=" + std::to_string(request.Depth) +
           ", timeout=" + std::to_string(request.Timeout / kUnitsPerSecond) +
           (request.Scope == Shared ? ", shared" : ", exclusive") +
           ", owner=" + TextOf(request.Owner);
}

TALSTATUS PackLock3(const LockRecord& lock, const std::string& root, UINT32* size,
                    DAV_LOCK_INFO_3* buffer)
{
    const std::string text = lock.token + lock.owner + root;
    const auto used =
        static_cast<UINT32>((offsetof(DAV_LOCK_INFO_3, Text) + text.size() + 7) / 8 * 8);
    const UINT32 room = std::exchange(*size, used);
    if (used > room)
        return ProviderFailure(kCodeBufferTooSmall);
    buffer->NextEntryOffset = 0;
    buffer->Scope = lock.scope;
    buffer->Type = lock.type;
    buffer->Depth = lock.depth;
    buffer->Timeout = lock.timeout;
    buffer->TokenLength = static_cast<UINT32>(lock.token.size());
    buffer->OwnerLength = static_cast<UINT32>(lock.owner.size());
    buffer->RootLength = static_cast<UINT32>(root.size());
    if (lock.claimsMore)
        buffer->OwnerLength = buffer->RootLength = used;
    std::memcpy(reinterpret_cast<char*>(buffer) + offsetof(DAV_LOCK_INFO_3, Text), text.data(),
                text.size());
    return TAL_STATUS_SUCCESS;
}

} // namespace harness
