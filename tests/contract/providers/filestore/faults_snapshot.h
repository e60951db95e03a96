// SPDX-License-Identifier: Apache-2.0
//
// What stands in a volume, as text: files, properties, locks, deleted entries.
#pragma once

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "tests/unit/providers/filestore/scratch.h"

namespace faults {

using namespace filestore;
namespace fs = std::filesystem;

inline void Rows(const fs::path& database, const char* sql,
                 const std::function<void(const std::vector<std::string>&)>& each)
{
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr));
    ASSERT_EQ(SQLITE_OK, sqlite3_prepare_v2(db, sql, -1, &statement, nullptr)) << sql;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        std::vector<std::string> row;
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, i));
            row.emplace_back(text ? text : "");
        }
        each(row);
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
}

// The dates that tests set, and not those of the store's clock or the system's.
inline bool IsSet(time_t date)
{
    constexpr time_t kFilled = 1'600'000'123, kGiven = 1'255'526'400;
    return date == kFilled || date == kGiven;
}

class Describer {
  public:
    Describer(const fs::path& volume, std::set<std::string>* out) : volume_(volume), out_(out)
    {
        // Numbers of deleted entries depend on how often one was begun: their names do not.
        Rows(Database(), "SELECT id, parent, name FROM deleted",
             [&](const auto& row) { deleted_[row[0]] = "deleted(" + row[1] + "/" + row[2] + ")"; });
    }
    void Describe()
    {
        DescribeTree(volume_, "");
        for (const auto& [id, shown] : deleted_) {
            const fs::path kept = volume_ / ".kest/deleted" / id;
            if (fs::symlink_status(kept).type() == fs::file_type::not_found)
                Add(shown + " without its files");
            else
                DescribeObject(kept, shown);
        }
        for (const auto& entry : fs::directory_iterator(volume_ / ".kest/deleted"))
            if (!deleted_.contains(entry.path().filename()))
                Add("deleted files without an entry");
        Rows(Database(), "SELECT path, space, name, value FROM props", [&](const auto& row) {
            const std::string space = row[1] == kClassicSpace ? "" : "{" + row[1] + "}";
            Add(Shown(row[0]) + " property " + space + row[2] + "=" + row[3] + Orphan(row[0]));
        });
        Rows(Database(), "SELECT parent, leaf FROM hidden", [&](const auto& row) {
            const std::string path = row[0].empty() ? row[1] : row[0] + "/" + row[1];
            Add(Shown(path) + " hidden" + Orphan(path));
        });
        Rows(Database(), "SELECT path, token FROM locks",
             [&](const auto& row) { Add(Shown(row[0]) + " locked"); });
        Rows(Database(), "SELECT source, target FROM intents",
             [&](const auto& row) { Add("intent " + row[0] + " " + row[1]); });
    }

  private:
    fs::path Database() const { return volume_ / ".kest/meta.db"; }
    void Add(const std::string& line) { out_->insert(volume_.filename().string() + ":" + line); }
    std::string Shown(const std::string& path) const
    {
        constexpr std::string_view kDeleted = ".kest/deleted/";
        if (!path.starts_with(kDeleted))
            return path;
        const std::string rest = path.substr(kDeleted.size());
        const std::string id = rest.substr(0, rest.find('/'));
        const auto found = deleted_.find(id);
        return (found == deleted_.end() ? "deleted(none)" : found->second) + rest.substr(id.size());
    }
    std::string Orphan(const std::string& path) const
    {
        return fs::symlink_status(volume_ / path).type() == fs::file_type::not_found ? " (orphan)"
                                                                                     : "";
    }
    void DescribeTree(const fs::path& directory, const std::string& shown)
    {
        for (const auto& entry : fs::directory_iterator(directory)) {
            const std::string name = entry.path().filename();
            if (shown.empty() && name == ".kest")
                continue;
            DescribeObject(entry.path(), shown.empty() ? name : shown + "/" + name);
        }
    }
    void DescribeObject(const fs::path& path, const std::string& shown)
    {
        struct stat info {};
        ASSERT_EQ(0, ::lstat(path.c_str(), &info));
        std::ostringstream line;
        line << shown << " mode " << std::oct << (info.st_mode & 07777) << std::dec;
        if (S_ISREG(info.st_mode))
            line << (!IsSet(info.st_mtim.tv_sec)
                         ? " from now"
                         : " from " + std::to_string(info.st_mtim.tv_sec % 1000))
                 << " file " << Contents(path);
        else if (S_ISLNK(info.st_mode))
            line << " link " << fs::read_symlink(path).string();
        else
            line << (S_ISDIR(info.st_mode) ? " folder" : " special");
        Add(line.str());
        if (S_ISDIR(info.st_mode))
            DescribeTree(path, shown);
    }

    const fs::path volume_;
    std::set<std::string>* const out_;
    std::map<std::string, std::string> deleted_;
};

} // namespace faults
