// SPDX-License-Identifier: Apache-2.0
//
// What scripted providers do with their trees of nodes.
#include <algorithm>
#include <cstring>
#include <memory>

#include "provider.h"
#include "text.h"

namespace harness {

namespace {

std::u16string Parent(const std::u16string& path)
{
    const size_t slash = path.rfind(u'/');
    return slash == std::u16string::npos || slash == 0 ? std::u16string() : path.substr(0, slash);
}

bool IsBelow(const std::u16string& path, const std::u16string& top)
{
    return path.size() > top.size() && path.starts_with(top) && path[top.size()] == u'/';
}

} // namespace

bool Provider::Serves(const std::u16string& path) const
{
    const std::u16string top = Wide("/" + spec_.name);
    return path == top || IsBelow(path, top) || (serveRoot && (path.empty() || path == u"/"));
}

TALSTATUS Provider::GetType(const std::u16string& path, DAV_TYPE* type)
{
    const std::lock_guard lock(mutex_);
    if (!Serves(path))
        return ProviderFailure(kCodeNotFound);
    if (path.empty() || path == u"/") {
        *type = Collection;
        return TAL_STATUS_SUCCESS;
    }
    if (const Node* node = Find(path)) {
        *type = node->type;
        return TAL_STATUS_SUCCESS;
    }
    *type = Resource;
    return spec_.servesNew ? TAL_STATUS_SUCCESS : ProviderFailure(kCodeNotFound);
}

TALSTATUS Provider::MakeCollection(const std::u16string& path)
{
    const std::lock_guard lock(mutex_);
    if (Find(path))
        return ProviderFailure(kCodeObjectExists);
    if (!Find(Parent(path)))
        return ProviderFailure(kCodeConflict);
    AddCollection(Narrow(path));
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Provider::Remove(const std::u16string& path)
{
    const std::lock_guard lock(mutex_);
    Node* node = Find(path);
    if (!node)
        return ProviderFailure(kCodeNotFound);
    if (node->attributes & kAttributeReadOnly)
        return ProviderFailure(kCodeAccessDenied);
    const bool hasChildren = !Children(path).empty();
    if (hasChildren && !(spec_.caps & kCapsDeletesTrees))
        return ProviderFailure(kCodeConflict);
    EraseTree(path);
    return TAL_STATUS_SUCCESS;
}

void Provider::EraseTree(const std::u16string& path)
{
    nodes_.erase(path);
    nodes_.erase(nodes_.lower_bound(path + u"/"), nodes_.lower_bound(path + u"0"));
}

TALSTATUS Provider::CopyTree(bool overwrite, const std::u16string& from, const std::u16string& to)
{
    const std::lock_guard lock(mutex_);
    if (!Find(from))
        return ProviderFailure(kCodeNotFound);
    if (!Find(Parent(to)))
        return ProviderFailure(kCodeConflict);
    if (Find(to) && !overwrite)
        return ProviderFailure(kCodeObjectExists);
    std::erase_if(nodes_,
                  [&](const auto& entry) { return entry.first == to || IsBelow(entry.first, to); });
    std::map<std::u16string, Node> copies;
    for (const auto& [path, node] : nodes_)
        if (path == from || IsBelow(path, from))
            copies[to + path.substr(from.size())] = node;
    nodes_.merge(copies);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Provider::MoveTree(bool overwrite, const std::u16string& from, const std::u16string& to)
{
    const std::lock_guard lock(mutex_);
    if (!moveSupported)
        return ProviderFailure(kCodeNotImplemented);
    if (const TALSTATUS status = CopyTree(overwrite, from, to); Failed(status))
        return status;
    std::erase_if(nodes_, [&](const auto& entry) {
        return entry.first == from || IsBelow(entry.first, from);
    });
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Provider::AddLock(const std::u16string& path, LockRecord lock, DAV_LOCK_TOKEN* token)
{
    const std::lock_guard guard(mutex_);
    Node* node = Find(path);
    if (!node) {
        if (!Find(Parent(path)))
            return ProviderFailure(kCodeConflict);
        node = &AddFile(Narrow(path));
    }
    for (const LockRecord& held : node->locks)
        if (held.scope == Exclusive || lock.scope == Exclusive)
            return ProviderFailure(kCodeLocked);
    if (token->MaximumLength < nextToken.size())
        return ProviderFailure(kCodeBufferTooSmall);
    std::memcpy(token->Buffer, nextToken.data(), nextToken.size());
    token->Length = static_cast<UINT16>(nextToken.size());
    lock.token = nextToken;
    if (!nextToken.empty() && nextToken.back() < '9')
        ++nextToken.back();
    node->locks.push_back(std::move(lock));
    return TAL_STATUS_SUCCESS;
}

LockRecord* Provider::FindLock(const std::u16string& path, const DAV_LOCK_TOKEN* token)
{
    const std::lock_guard lock(mutex_);
    Node* node = Find(path);
    if (!node || !token)
        return nullptr;
    for (LockRecord& held : node->locks)
        if (held.token == Narrow(token))
            return &held;
    return nullptr;
}

TALSTATUS Provider::RemoveLock(const std::u16string& path, const DAV_LOCK_TOKEN* token)
{
    const std::lock_guard lock(mutex_);
    if (!FindLock(path, token))
        return ProviderFailure(kCodeNotFound);
    std::erase_if(Find(path)->locks,
                  [&](const LockRecord& held) { return held.token == Narrow(token); });
    return TAL_STATUS_SUCCESS;
}

std::vector<std::u16string> Provider::Children(const std::u16string& path) const
{
    std::vector<std::u16string> names;
    if (const auto order = orders_.find(path); order != orders_.end()) {
        for (const std::u16string& name : order->second)
            if (nodes_.contains(path + u"/" + name))
                names.push_back(name);
        return names;
    }
    const std::u16string below = path + u"/";
    for (auto at = nodes_.lower_bound(below); at != nodes_.end() && at->first.starts_with(below);) {
        const size_t slash = at->first.find(u'/', below.size());
        if (slash == std::u16string::npos) {
            names.push_back(at->first.substr(below.size()));
            ++at;
        } else { // past all that lies below this child: "0" follows "/"
            at = nodes_.lower_bound(at->first.substr(0, slash) + u"0");
        }
    }
    return names;
}

std::u16string_view LastSegment(std::u16string_view path)
{
    const size_t slash = path.rfind(u'/');
    return slash == std::u16string_view::npos ? path : path.substr(slash + 1);
}

TALSTATUS PackLock(const LockRecord& lock, UINT32* size, DAV_LOCK_2* buffer)
{
    const size_t needed = offsetof(DAV_LOCK_2, Token) + lock.token.size();
    if (needed > *size)
        return ProviderFailure(kCodeBufferTooSmall);
    buffer->NextEntryOffset = 0;
    buffer->Type = lock.type;
    buffer->Scope = lock.scope;
    buffer->Depth = lock.depth;
    buffer->Timeout = lock.timeout;
    buffer->OwnerLength = static_cast<UINT32>(std::min<size_t>(lock.owner.size(), kLockOwnerBytes));
    std::memcpy(buffer->Owner, lock.owner.data(), buffer->OwnerLength);
    buffer->TokenLength = static_cast<UINT32>(lock.token.size());
    std::memcpy(reinterpret_cast<char*>(buffer) + offsetof(DAV_LOCK_2, Token), lock.token.data(),
                lock.token.size());
    if (lock.claimsMore)
        buffer->OwnerLength = buffer->TokenLength = 0xFFFFFFFF;
    *size = static_cast<UINT32>(needed);
    return TAL_STATUS_SUCCESS;
}

} // namespace harness
