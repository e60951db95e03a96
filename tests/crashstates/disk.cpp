// SPDX-License-Identifier: Apache-2.0
#include "tests/crashstates/disk.h"

namespace crashstates {

const Inode* Disk::Find(InodeId id) const
{
    return id == kNoInode || id > inodes_.size() ? nullptr : inodes_[id - 1].get();
}

Inode* Disk::Get(InodeId id)
{
    if (!Find(id))
        return nullptr;
    std::shared_ptr<const Inode>& held = inodes_[id - 1];
    if (held.use_count() > 1)
        held = std::make_shared<Inode>(*held);
    return const_cast<Inode*>(held.get()); // made as an Inode, and nobody else has it
}

InodeId Disk::Resolve(InodeId top, std::string_view path) const
{
    InodeId at = top;
    while (!path.empty()) {
        const std::string_view name = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(path.size(), name.size() + 1));
        const Inode* const inode = Find(at);
        if (!inode)
            return kNoInode;
        const auto found = inode->entries.find(name);
        if (found == inode->entries.end())
            return kNoInode;
        at = found->second;
    }
    return at;
}

void Disk::ApplyRename(const Event& e)
{
    const InodeId from = Resolve(e.directory, e.name);
    const InodeId to = Resolve(e.toDirectory, e.toName);
    if (from == kNoInode || !Get(e.directory) || !Get(e.toDirectory))
        return;
    if (e.kind == Event::Exchange && to != kNoInode)
        Get(e.directory)->entries[e.name] = to;
    else
        Get(e.directory)->entries.erase(e.name);
    Get(e.toDirectory)->entries[e.toName] = from;
}

void Disk::Apply(const Event& e)
{
    switch (e.kind) {
    case Event::Make: {
        if (inodes_.size() < e.inode)
            inodes_.resize(e.inode);
        auto made = std::make_shared<Inode>();
        made->isDirectory = e.isDirectory;
        made->mode = static_cast<uint32_t>(e.number);
        inodes_[e.inode - 1] = std::move(made);
        break;
    }
    case Event::Link:
        if (Inode* const directory = Get(e.directory))
            directory->entries[e.name] = e.inode;
        break;
    case Event::Unlink:
        if (Inode* const directory = Get(e.directory))
            directory->entries.erase(e.name);
        break;
    case Event::Rename:
    case Event::Exchange:
        ApplyRename(e);
        break;
    case Event::Write:
        if (Inode* const inode = Get(e.inode)) {
            if (inode->content.size() < e.number + e.bytes.size())
                inode->content.resize(e.number + e.bytes.size());
            inode->content.replace(e.number, e.bytes.size(), e.bytes);
        }
        break;
    case Event::Truncate:
        if (Inode* const inode = Get(e.inode))
            inode->content.resize(e.number);
        break;
    case Event::SetMode:
        if (Inode* const inode = Get(e.inode))
            inode->mode = static_cast<uint32_t>(e.number);
        break;
    case Event::SetDate:
        if (Inode* const inode = Get(e.inode))
            inode->modified = e.number;
        break;
    case Event::SetTag:
        if (Inode* const inode = Get(e.inode))
            inode->tags[e.name] = e.bytes;
        break;
    case Event::Sync:
    case Event::Answer:
        break;
    }
}

void Disk::Print(InodeId top, std::string* out) const
{
    const Inode* const inode = Find(top);
    if (!inode)
        return;
    *out += inode->isDirectory ? 'd' : 'f';
    *out += std::to_string(inode->mode) + ',' + std::to_string(inode->modified) + ',' +
            std::to_string(inode->content.size()) + ':' + inode->content;
    for (const auto& [tag, value] : inode->tags)
        *out += '@' + tag + '=' + value;
    for (const auto& [name, id] : inode->entries) {
        *out += '/' + name + '{';
        Print(id, out);
        *out += '}';
    }
}

} // namespace crashstates
