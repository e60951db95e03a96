// SPDX-License-Identifier: Apache-2.0
#include "tests/crashstates/operations.h"

#include <algorithm>
#include <map>

#include <sqlite3.h>

#include "providers/filestore/pending_upload.h"
#include "tests/crashstates/machine.h"
#include "tests/unit/providers/filestore/third_generation.h"

namespace crashstates {

using namespace filestore;

namespace {

constexpr INT64 kLockTime = INT64{3600} * 10'000'000;
constexpr UINT32 kReadOnly = kAttributeReadOnly;
constexpr UINT32 kHidden = kAttributeHidden;
constexpr UINT64 kDate = 129'000'000'000'000'000;
std::string g_token; // of the lock in the first tree

template <class F> TALSTATUS WithAttributes(Store& store, const char* path, F&& change)
{
    auto* const resource = new FileResource(store);
    TALSTATUS status =
        resource->Associate({}, FALSE, kAccessAttributesOnly, 3, 0, Path(path).Get(), nullptr);
    if (!Failed(status))
        status = change(*resource);
    resource->Release();
    return status;
}

// Ends the server and starts it again, as far as its database is concerned.
TALSTATUS BringLogIn(Store& store, Client&)
{
    for (const auto& volume : store.Volumes())
        volume->Meta()->Checkpoint();
    return TAL_STATUS_SUCCESS;
}

} // namespace

#define OPERATION(text, expression)                                                                \
    Operation                                                                                      \
    {                                                                                              \
        text, [](Store&, Client& c) -> TALSTATUS { return expression; }                            \
    }
#define ACROSS(text, expression)                                                                   \
    Operation                                                                                      \
    {                                                                                              \
        text, [](Store&, Client& c) -> TALSTATUS { return expression; }, true                      \
    }

#define THIRD(text, expression)                                                                    \
    Operation                                                                                      \
    {                                                                                              \
        text, [](Store& s, Client&) -> TALSTATUS { return third::expression; }                     \
    }

constexpr bool kIsInTwoPlaces = true;

const std::vector<Operation> kOperations = {
    OPERATION("PUT new", c.Put("/v/n", "new")),
    OPERATION("PUT over", c.Put("/v/f", "newer")),
    OPERATION("PUT empty over", c.Put("/v/g", "")),
    OPERATION("PUT over a member", c.Put("/v/d/x", "newer")),
    OPERATION("MKCOL", c.MkCol("/v/n")),
    OPERATION("MKCOL in a folder", c.MkCol("/v/d/m")),
    OPERATION("DELETE file", c.Delete("/v/f")),
    OPERATION("DELETE member", c.Delete("/v/d/x")),
    OPERATION("DELETE folder", c.Delete("/v/d")),
    OPERATION("DELETE plain file", c.Delete("/v/g")),
    OPERATION("COPY file", c.Copy("/v/f", "/v/n")),
    OPERATION("COPY file onto file", c.Copy("/v/g", "/v/f")),
    OPERATION("COPY folder", c.Copy("/v/d", "/v/n")),
    OPERATION("COPY folder onto folder", c.Copy("/v/d", "/v/e")),
    OPERATION("COPY folder onto file", c.Copy("/v/d", "/v/f")),
    OPERATION("COPY file onto folder", c.Copy("/v/f", "/v/e")),
    ACROSS("COPY file between volumes", c.Copy("/v/f", "/w/n")),
    ACROSS("COPY file between volumes onto file", c.Copy("/v/f", "/w/h")),
    ACROSS("COPY folder between volumes", c.Copy("/v/d", "/w/n")),
    OPERATION("MOVE file", c.Move("/v/f", "/v/n")),
    OPERATION("MOVE plain file", c.Move("/v/g", "/v/n")),
    OPERATION("MOVE file into a folder", c.Move("/v/f", "/v/d/n")),
    OPERATION("MOVE member out", c.Move("/v/d/x", "/v/n")),
    OPERATION("MOVE file onto file", c.Move("/v/f", "/v/g")),
    OPERATION("MOVE plain file onto file", c.Move("/v/g", "/v/f")),
    OPERATION("MOVE file onto member", c.Move("/v/f", "/v/d/x")),
    OPERATION("MOVE folder", c.Move("/v/d", "/v/n")),
    OPERATION("MOVE folder into a folder", c.Move("/v/d", "/v/e/n")),
    OPERATION("MOVE folder onto folder", c.Move("/v/d", "/v/e")),
    OPERATION("MOVE folder onto file", c.Move("/v/d", "/v/g")),
    OPERATION("MOVE file onto folder", c.Move("/v/f", "/v/e")),
    ACROSS("MOVE file between volumes", c.Move("/v/f", "/w/n")),
    ACROSS("MOVE file between volumes onto file", c.Move("/v/f", "/w/h")),
    ACROSS("MOVE folder between volumes", c.Move("/v/d", "/w/n")),
    OPERATION("PROPPATCH set", c.SetProperty("/v/f", "color", "blue")),
    OPERATION("PROPPATCH first", c.SetProperty("/v/g", "color", "blue")),
    OPERATION("PROPPATCH remove", c.RemoveProperty("/v/f", "color")),
    OPERATION("PROPPATCH member", c.SetProperty("/v/d/x", "color", "blue")),
    Operation{"LOCK",
              [](Store&, Client& c) -> TALSTATUS {
                  std::string token;
                  return c.Lock("/v/f", kLockTime, &token);
              },
              false, "/v/f holds ''"},
    // The lock comes after the file: nobody is kept out by a lock of something that is not there.
    Operation{"LOCK new",
              [](Store&, Client& c) -> TALSTATUS {
                  std::string token;
                  return c.Lock("/v/n", kLockTime, &token);
              },
              false, "/v/n holds ''"},
    OPERATION("LOCK refresh", c.Refresh("/v/k", 2 * kLockTime, g_token)),
    OPERATION("UNLOCK", c.Unlock("/v/k", g_token)),
    OPERATION("restore", c.Move("/v/.kest/deleted/1/old", "/v/old", false)),
    OPERATION("restore onto file", c.Move("/v/.kest/deleted/1/old", "/v/g")),
    OPERATION("DELETE deleted entry", c.Delete("/v/.kest/deleted/1/old")),
    Operation{"set date",
              [](Store& s, Client&) -> TALSTATUS {
                  return WithAttributes(
                      s, "/v/f", [](auto& file) { return file.SetModificationDate(kDate); });
              }},
    Operation{"set read-only",
              [](Store& s, Client&) -> TALSTATUS {
                  return WithAttributes(
                      s, "/v/g", [](auto& file) { return file.SetLiveAttributes(kReadOnly); });
              },
              false, nullptr, kIsInTwoPlaces},
    Operation{"set hidden",
              [](Store& s, Client&) -> TALSTATUS {
                  return WithAttributes(
                      s, "/v/g", [](auto& file) { return file.SetLiveAttributes(kHidden); });
              },
              false, nullptr, kIsInTwoPlaces},
    Operation{"checkpoint", BringLogIn},
    THIRD("third PUT new", StoreContent(s, "/v/n", kOpenReplace)),
    THIRD("third PUT over", StoreContent(s, "/v/f", kOpenReplace)),
    THIRD("third PUT of a range", StoreContent(s, "/v/f", kOpenModify)),
    // Until it is published, what has arrived is an upload under way.
    Operation{"third PUT in parts",
              [](Store& s, Client&) -> TALSTATUS { return third::StoreInParts(s, "/v/n"); }, false,
              "upload /v/n has '"},
    Operation{"third PUT over in parts",
              [](Store& s, Client&) -> TALSTATUS { return third::StoreInParts(s, "/v/f"); }, false,
              "upload /v/f has '"},
    Operation{"third PUT of a first part",
              [](Store& s, Client&) -> TALSTATUS { return third::StoreFirstPart(s, "/v/n"); },
              false, "upload /v/n has ''"},
    THIRD("third MKCOL", MakeFolder(s, "/v/n")),
    THIRD("third DELETE", DeleteObject(s, "/v/d")),
    THIRD("third COPY folder onto file", Relocate(s, false, "/v/d", "/v/f")),
    THIRD("third MOVE folder onto folder", Relocate(s, true, "/v/d", "/v/e")),
    // Both kinds together can be cut apart: files have no part in the database's transactions.
    THIRD("third PROPPATCH", PatchObject(s, "/v/f", 0, 2)),
    THIRD("third PROPPATCH of a date", PatchObject(s, "/v/f", 2, 1)),
};

void MakeFirstTree(Client& client, bool keepsDeleted)
{
    const auto must = [](TALSTATUS status) { EXPECT_EQ(0u, status); };
    if (keepsDeleted) {
        must(client.Put("/v/old", "old"));
        must(client.SetProperty("/v/old", "color", "grey"));
        must(client.Delete("/v/old"));
    }
    must(client.Put("/v/f", "f of the first tree"));
    must(client.SetProperty("/v/f", "color", "red"));
    must(client.Put("/v/g", "g of the first tree"));
    must(client.Put("/w/h", "h of the first tree"));
    must(client.SetProperty("/w/h", "color", "white"));
    for (const std::string folder : {"d", "e"}) {
        const std::string member = folder == "d" ? "/x" : "/y";
        must(client.MkCol("/v/" + folder));
        must(client.Put("/v/" + folder + member, folder + " of the first tree"));
        must(client.SetProperty("/v/" + folder, "color", folder));
        must(client.SetProperty("/v/" + folder + member, "color", folder + " member"));
    }
    must(client.Put("/v/k", "locked"));
    must(client.Lock("/v/k", kLockTime, &g_token));
}

namespace {

class Description {
  public:
    Description(const Machine& machine, const Store& store, bool exact)
        : machine_(machine), store_(store), exact_(exact)
    {
    }
    std::vector<std::string> Lines()
    {
        for (const auto& volume : store_.Volumes())
            Add(*volume);
        std::sort(lines_.begin(), lines_.end());
        return std::move(lines_);
    }

  private:
    void Add(const Volume& volume)
    {
        OpenFile top;
        EXPECT_EQ(0, volume.Fs().Open("", OpenFor::Directory, top.Out(volume.Fs())));
        const InodeId inode = machine_.handles.at(top.Get()).inode;
        const std::string name = "/" + volume.Name();
        AddTree(inode, name, "");
        if (!volume.IsWritable()) {
            lines_.push_back("fault " + name + " is served for reading only");
            return;
        }
        AddUploads(inode, name);
        char path[256];
        EXPECT_EQ(0, volume.Fs().ExternalPath(".kest/meta.db", path, sizeof path));
        sqlite3* database = nullptr;
        EXPECT_EQ(SQLITE_OK, sqlite3_open_v2(path, &database, SQLITE_OPEN_READWRITE, nullptr));
        AddDeleted(database, machine_.Now().Resolve(inode, ".kest/deleted"), name);
        AddRows(database, name);
        sqlite3_close(database);
    }
    // All rows, those of paths that are not there among them.
    using Row = std::vector<std::string>;
    static std::vector<Row> Rows(sqlite3* database, const char* query)
    {
        std::vector<Row> rows;
        const auto take = [](void* out, int count, char** values, char**) {
            Row row;
            for (int i = 0; i < count; ++i)
                row.emplace_back(values[i] ? values[i] : "");
            static_cast<std::vector<Row>*>(out)->push_back(std::move(row));
            return 0;
        };
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(database, query, take, &rows, nullptr))
            << sqlite3_errmsg(database);
        return rows;
    }
    void AddTree(InodeId id, const std::string& path, const std::string& mark)
    {
        const Busy busy;
        const Inode& inode = *machine_.Now().Find(id);
        std::string line =
            mark + path + (inode.isDirectory ? "/" : " holds '" + inode.content + "'");
        if (exact_ && mark.empty())
            line += " " + std::to_string(inode.mode) + " " + std::to_string(inode.modified);
        lines_.push_back(line);
        for (const auto& [name, child] : inode.entries)
            if (name != ".kest")
                AddTree(child, path + "/" + name, mark);
    }
    // What a client would be told of them; a record without content says that there is none.
    void AddUploads(InodeId top, const std::string& volume)
    {
        const Busy busy;
        const Inode* const directory =
            machine_.Now().Find(machine_.Now().Resolve(top, ".kest/uploads"));
        if (!directory)
            return;
        for (const auto& [name, id] : directory->entries) {
            UploadRecord record;
            const auto state = directory->entries.find(name + std::string(kUploadRecordSuffix));
            if (state == directory->entries.end() ||
                !ReadUploadText(machine_.Now().Find(state->second)->content, &record))
                continue;
            const std::string& content = machine_.Now().Find(id)->content;
            const std::string where = "upload " + volume + "/" + record.path + " has '";
            lines_.push_back(content.size() < record.offset
                                 ? "fault " + where + content + "' of " +
                                       std::to_string(record.offset)
                                 : where + content.substr(0, record.offset) + "'");
        }
    }
    // An entry of the list without its file is harmless: it is shown to nobody for long. A file
    // without its entry is lost.
    void AddDeleted(sqlite3* database, InodeId directory, const std::string& volume)
    {
        std::map<std::string, Row> listed;
        for (Row& row : Rows(database, "SELECT id, parent, name FROM deleted"))
            listed[row[0]] = std::move(row);
        for (const auto& [name, id] : machine_.Now().Find(directory)->entries) {
            const auto found = listed.find(name);
            if (found == listed.end()) {
                lines_.push_back("fault " + volume + ": deleted " + name + " is in no list");
                continue;
            }
            const std::string at = "deleted " + volume + "/" + found->second[1];
            ids_[name] = at + "/" + found->second[2];
            AddTree(id, "/" + found->second[2], at);
            listed.erase(found);
        }
        for (const auto& [name, row] : listed)
            ids_[name] = "";
    }
    // Empty for what belongs to an entry without its file.
    std::string ShownPath(const std::string& volume, const std::string& path) const
    {
        const std::string kDeleted = ".kest/deleted/";
        if (!path.starts_with(kDeleted))
            return volume + "/" + path;
        const std::string rest = path.substr(kDeleted.size());
        const size_t slash = std::min(rest.find('/'), rest.size());
        const auto found = ids_.find(rest.substr(0, slash));
        if (found == ids_.end())
            return "lost deleted " + rest;
        return found->second.empty() ? "" : found->second + rest.substr(slash);
    }
    void AddRow(const std::string& place, const std::string& what)
    {
        if (!place.empty())
            lines_.push_back(place + what);
    }
    void AddRows(sqlite3* database, const std::string& volume)
    {
        for (const Row& row : Rows(database, "SELECT path, name, value FROM props"))
            AddRow(ShownPath(volume, row[0]), " has " + row[1] + " = " + row[2]);
        for (const Row& row : Rows(database, "SELECT parent, leaf FROM hidden"))
            AddRow(ShownPath(volume, row[0]), " hides " + row[1]);
        for (const Row& row : Rows(database, "SELECT path, expires FROM locks"))
            AddRow(ShownPath(volume, row[0]), " is locked until " + row[1]);
    }

    const Machine& machine_;
    const Store& store_;
    const bool exact_;
    std::vector<std::string> lines_;
    std::map<std::string, std::string> ids_; // of deleted entries: what they are called here
};

} // namespace

std::vector<std::string> Describe(const Machine& machine, const Store& store, bool exact)
{
    return Description(machine, store, exact).Lines();
}

} // namespace crashstates
