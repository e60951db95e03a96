// SPDX-License-Identifier: Apache-2.0
//
// What a tree consisted of, in a few bytes.
#include "providers/filestore/fingerprint.h"

#include <vector>

namespace filestore {

namespace {

// FNV-1a, with a last step that spreads the bits: what is added up does not cancel out.
class Hash {
  public:
    Hash& Text(std::string_view text)
    {
        for (const char c : text)
            Byte(static_cast<UINT8>(c));
        return Number(text.size());
    }
    Hash& Number(UINT64 value)
    {
        for (int i = 0; i < 8; ++i, value >>= 8)
            Byte(static_cast<UINT8>(value));
        return *this;
    }
    UINT64 Value() const
    {
        UINT64 mixed = value_;
        mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9u;
        mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EBu;
        return mixed ^ mixed >> 31;
    }

  private:
    void Byte(UINT8 byte) { value_ = (value_ ^ byte) * 0x100000001B3u; }
    UINT64 value_ = 0xCBF29CE484222325u;
};

} // namespace

void Fingerprint::Add(std::string_view path, const FileInfo& info)
{
    Hash hash;
    hash.Text(path).Number(info.inode).Number(info.isDirectory);
    if (!info.isDirectory)
        hash.Number(info.size).Number(info.modified);
    sum_ += hash.Value();
    ++count_;
}

void Fingerprint::AddRow(std::string_view path, const Property* property)
{
    Hash hash;
    hash.Text(path);
    if (property)
        hash.Text(property->space).Text(property->name).Text(property->value);
    sum_ += hash.Value();
    ++count_;
}

// With a list of what is open on the way down: a tree can be deeper than a stack.
int Fingerprint::AddTree(FileSystem& fs, FileHandle directory, const std::string& name)
{
    struct Level {
        OpenFile directory;
        std::vector<std::string> names;
        size_t pathBytes = 0;
    };
    std::vector<Level> levels;
    std::string path;
    const auto add = [&](FileHandle in, const std::string& leaf) {
        FileInfo info;
        Level level;
        NameCollector found;
        if (const int error = fs.InspectAt(in, leaf.c_str(), &info))
            return error;
        Add(path, info);
        if (!info.isDirectory)
            return 0;
        int error = fs.OpenAt(in, leaf.c_str(), OpenFor::Directory, level.directory.Out(fs));
        if (error == 0)
            error = fs.List(level.directory.Get(), found);
        level.names = std::move(found.names);
        level.pathBytes = path.size();
        levels.push_back(std::move(level));
        return error;
    };
    int error = add(directory, name);
    while (error == 0 && !levels.empty()) {
        Level& level = levels.back();
        path.resize(level.pathBytes);
        if (level.names.empty()) {
            levels.pop_back();
            continue;
        }
        const std::string next = std::move(level.names.back());
        level.names.pop_back();
        path.append("/").append(next);
        error = add(level.directory.Get(), next);
    }
    return error;
}

TALSTATUS Fingerprint::AddRows(MetadataSession& session, std::string_view tree)
{
    return session.ExportTree(tree, true, [&](std::string_view path, const Property* property) {
        AddRow(path.substr(tree.size()), property);
        return TAL_STATUS_SUCCESS;
    });
}

} // namespace filestore
