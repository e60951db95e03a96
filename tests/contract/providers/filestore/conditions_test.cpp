// SPDX-License-Identifier: Apache-2.0
//
// What a client wants to be so for its change to happen is judged where the name changes: what
// somebody else does between the host's look and that is not overwritten.
#include "tests/contract/providers/filestore/fixture.h"

#include <atomic>
#include <cstring>
#include <functional>
#include <thread>

using namespace filestore_test;
namespace fs = std::filesystem;

namespace {

constexpr int kClients = 16;

class FileStoreConditions : public FileStoreTest {
  protected:
    // A request for "/docs/name" that says what it wants in `set`.
    ScriptedRequest Asking(UINT32 method, const std::function<void(ScriptedRequest&)>& set)
    {
        ScriptedRequest request;
        request.method = method;
        request.path = "/Ferro/docs/name";
        set(request);
        return request;
    }
    // Content for "/docs/name" on its way in; `meanwhile` happens before its last moment. What the
    // client hears of.
    TALSTATUS PutWhile(ScriptedRequest request, const std::function<void()>& meanwhile)
    {
        const RunningRequest running(request);
        TALSTATUS status = 0;
        {
            Ref<IKestDAVResource2> resource = NewResource();
            Wstr wide("/docs/name");
            status =
                resource->Associate(session_, TRUE, kAccessReplaceContent, 1, 0, &wide, nullptr);
            char text[] = "mine";
            UINT32 written = 0;
            if (!Failed(status))
                status = resource->Write(0, 4, text, &written);
            meanwhile();
        }
        return !Failed(status) && !request.failures.empty() ? request.failures.back() : status;
    }
    TALSTATUS PutUnder(
        const std::function<void(ScriptedRequest&)>& set,
        const std::function<void()>& meanwhile = [] {})
    {
        return PutWhile(Asking(KestMethodPut, set), meanwhile);
    }
    std::string Tag()
    {
        DAV_ETAG tag{};
        EXPECT_EQ(0u, Opened("/docs/name")->GetETag(&tag));
        std::string text = "\"";
        for (const UINT8 byte : tag.Bytes) {
            char hex[3];
            std::snprintf(hex, sizeof hex, "%02x", byte);
            text += hex;
        }
        return text + "\"";
    }
    void Theirs() { WriteFile(Docs() / "name", "theirs"); }
    // As another program replaces a file.
    void ReplacedByThem()
    {
        WriteFile(Docs() / "other", "theirs");
        fs::rename(Docs() / "other", Docs() / "name");
    }
    std::string Now() { return Get("/docs/name").value_or("(none)"); }
    TALSTATUS Delete(ScriptedRequest request)
    {
        const RunningRequest running(request);
        Wstr wide("/docs/name");
        DAV_ERROR_ID id = 0;
        return Namespace()->Delete(session_, &wide, nullptr, &id);
    }
    TALSTATUS MoveAway(ScriptedRequest request)
    {
        request.destination = "/Ferro/docs/elsewhere";
        const RunningRequest running(request);
        Wstr from("/docs/name"), to("/docs/elsewhere");
        DAV_ERROR_ID id = 0;
        return Namespace()->Move(session_, FALSE, -1, &from, &to, nullptr, &id);
    }
    TALSTATUS Lock(ScriptedRequest request)
    {
        const RunningRequest running(request);
        Wstr wide("/docs/name");
        char buffer[64];
        DAV_LOCK_TOKEN token{0, sizeof buffer, buffer};
        STRING owner{};
        const TALSTATUS status = Namespace()->Lock(session_, 0, 600'000'000, Exclusive, Write,
                                                   &wide, &owner, &token, nullptr);
        // The cases that follow want to write.
        return Failed(status) ? status : Namespace()->Unlock(session_, &wide, &token);
    }
    // All reported failures are the whole request's.
    TALSTATUS PatchProperty(ScriptedRequest request)
    {
        const RunningRequest running(request);
        Wstr name("p");
        char value[] = "v";
        UINT32 length = 0;
        Ref<IKestDAVResource2> resource = Opened("/docs/name", kAccessAttributesOnly);
        if (!resource)
            return TAL_STATUS_NOT_FOUND;
        const TALSTATUS status = resource->SetNamedPropertyEnh(&name, 1, value, &length, nullptr);
        EXPECT_EQ(Failed(status), !request.failures.empty());
        return status;
    }
};

void MustBeFree(ScriptedRequest& request)
{
    request.noneMatch = "*";
}

void MustExist(ScriptedRequest& request)
{
    request.match = "*";
}

} // namespace

TEST_F(FileStoreConditions, ANameThatHasToBeFreeIsNotTakenFromAnother)
{
    EXPECT_EQ(kCodePreconditionFailed, Code(PutUnder(MustBeFree, [&] { Theirs(); })));
    EXPECT_EQ("theirs", Now());
    EXPECT_EQ(kCodePreconditionFailed, Code(PutUnder(MustBeFree)));
    EXPECT_EQ("theirs", Now());
    fs::remove(Docs() / "name");
    EXPECT_EQ(kCodePreconditionFailed,
              Code(PutUnder(MustBeFree, [&] { fs::create_directory(Docs() / "name"); })));
    fs::remove(Docs() / "name");
    EXPECT_EQ(0u, PutUnder(MustBeFree));
    EXPECT_EQ("mine", Now());
    EXPECT_TRUE(Entries(Docs() / ".kest/tmp").empty());
}

TEST_F(FileStoreConditions, WhatHasToExistIsNotMade)
{
    EXPECT_EQ(kCodePreconditionFailed, Code(PutUnder(MustExist)));
    Theirs();
    EXPECT_EQ(kCodePreconditionFailed,
              Code(PutUnder(MustExist, [&] { fs::remove(Docs() / "name"); })));
    EXPECT_EQ("(none)", Now());
    Theirs();
    EXPECT_EQ(0u, PutUnder(MustExist));
    EXPECT_EQ("mine", Now());
    EXPECT_TRUE(Entries(Docs() / ".kest/tmp").empty());
}

TEST_F(FileStoreConditions, WhatWasReplacedMeanwhileStays)
{
    const std::function<void(ScriptedRequest&)> same = [this](ScriptedRequest& request) {
        request.match = "\"0\", " + Tag();
    };
    const auto unmodified = [](ScriptedRequest& request) {
        request.unmodifiedSince = 130'000'000'000'000'000; // years ago
    };
    Theirs();
    EXPECT_EQ(0u, PutUnder(same));
    EXPECT_EQ("mine", Now());
    EXPECT_EQ(kCodePreconditionFailed, Code(PutUnder(same, [&] { ReplacedByThem(); })));
    EXPECT_EQ("theirs", Now());
    EXPECT_EQ(kCodePreconditionFailed, Code(PutUnder(unmodified)));
    ASSERT_EQ(0u, Opened("/docs/name")->SetModificationDate(129'000'000'000'000'000));
    EXPECT_EQ(kCodePreconditionFailed, Code(PutUnder(unmodified, [&] { ReplacedByThem(); })));
    EXPECT_EQ("theirs", Now());
    ASSERT_EQ(0u, Opened("/docs/name")->SetModificationDate(129'000'000'000'000'000));
    EXPECT_EQ(0u, PutUnder(unmodified));
    EXPECT_EQ("mine", Now());
}

TEST_F(FileStoreConditions, TagsAreComparedAsTheyAreMeant)
{
    Theirs();
    const std::string tag = Tag();
    const struct {
        std::string match, noneMatch;
        bool holds;
    } rows[] = {{tag, "", true},         {"\"a\"," + tag, "", true},
                {"W/" + tag, "", false}, // a weak tag is enough for no change
                {"\"a\"", "", false},    {"", tag, false},
                {"", "W/" + tag, false}, {"", "\"a\", W/\"b\"", true},
                {tag, "*", false},       {"*", "\"a\"", true}};
    for (const auto& row : rows) {
        ScriptedRequest request = Asking(KestMethodPropPatch, [&](ScriptedRequest& r) {
            r.match = row.match;
            r.noneMatch = row.noneMatch;
        });
        EXPECT_EQ(row.holds ? 0u : kCodePreconditionFailed, Code(PatchProperty(std::move(request))))
            << row.match << " " << row.noneMatch;
    }
}

TEST_F(FileStoreConditions, EveryChangeIsHeldToThem)
{
    const std::vector<std::pair<UINT32, std::function<TALSTATUS(ScriptedRequest)>>> changes = {
        {KestMethodDelete, [&](ScriptedRequest r) { return Delete(std::move(r)); }},
        {KestMethodMove, [&](ScriptedRequest r) { return MoveAway(std::move(r)); }},
        {KestMethodPropPatch, [&](ScriptedRequest r) { return PatchProperty(std::move(r)); }},
        {KestMethodLock, [&](ScriptedRequest r) { return Lock(std::move(r)); }},
    };
    for (const auto& [method, change] : changes) {
        Theirs();
        for (const auto& set : std::initializer_list<std::function<void(ScriptedRequest&)>>{
                 MustBeFree, [](ScriptedRequest& r) { r.match = "\"another\""; },
                 [](ScriptedRequest& r) { r.unmodifiedSince = 130'000'000'000'000'000; }}) {
            EXPECT_EQ(kCodePreconditionFailed, Code(change(Asking(method, set)))) << method;
            EXPECT_EQ("theirs", Now()) << method;
            EXPECT_FALSE(fs::exists(Docs() / "elsewhere"));
        }
        EXPECT_EQ(0u, change(Asking(method, MustExist))) << method;
        fs::remove(Docs() / "elsewhere");
    }
}

TEST_F(FileStoreConditions, OfAnotherNameAreNotAsked)
{
    Theirs();
    ScriptedRequest request = Asking(KestMethodMove, MustBeFree);
    request.path = "/Ferro/docs/x/docs/name";
    EXPECT_EQ(0u, MoveAway(std::move(request)));
}

TEST_F(FileStoreConditions, ACollectionIsMadeUnderThem)
{
    const auto make = [&](const std::function<void(ScriptedRequest&)>& set) {
        ScriptedRequest request = Asking(KestMethodMkCol, set);
        const RunningRequest running(request);
        return Code(MkCol("/docs/name"));
    };
    EXPECT_EQ(kCodePreconditionFailed, make(MustExist));
    EXPECT_FALSE(fs::exists(Docs() / "name"));
    EXPECT_EQ(0u, make(MustBeFree));
    EXPECT_EQ(kCodePreconditionFailed, make(MustBeFree));
    EXPECT_EQ(kCodeObjectExists, make(MustExist));
}

// COPY with "Overwrite: F", and an upload that is to keep what is there, look first.
TEST_F(FileStoreConditions, WhoLookedForANameInVainDoesNotReplaceWhatTookItMeanwhile)
{
    const struct {
        UINT32 method;
        DAV_OPEN_ACCESS access;
        bool mayReplace, replaces;
    } rows[] = {{KestMethodCopy, kAccessWriteContent, false, false},
                {KestMethodMove, kAccessWriteContent, false, false},
                {KestMethodPost, kAccessReplaceContent, false, false},
                {KestMethodCopy, kAccessWriteContent, true, true}};
    for (const auto& row : rows) {
        fs::remove(Docs() / "name");
        ScriptedRequest request;
        request.method = row.method;
        request.path = row.method == KestMethodPost ? "/Ferro/docs" : "/Ferro/docs/source";
        request.destination = "/Ferro/docs/name";
        request.mayReplace = row.mayReplace;
        {
            const RunningRequest running(request);
            Ref<IKestDAVResource2> resource = NewResource();
            Wstr wide("/docs/name");
            EXPECT_EQ(kCodeNotFound, Code(resource->Associate(session_, FALSE, kAccessWriteContent,
                                                              0, 0, &wide, nullptr)));
            ASSERT_EQ(0u, resource->Associate(session_, TRUE, row.access, 1, 0, &wide, nullptr));
            char text[] = "mine";
            UINT32 written = 0;
            EXPECT_EQ(0u, resource->Write(0, 4, text, &written));
            Theirs();
        }
        EXPECT_EQ(row.replaces, request.failures.empty()) << row.method;
        EXPECT_EQ(row.replaces ? "mine" : "theirs", Now()) << row.method;
        EXPECT_TRUE(Entries(Docs() / ".kest/tmp").empty());
    }
}

TEST_F(FileStoreConditions, OfManyWhoWantAFreeNameOneGetsIt)
{
    for (int round = 0; round < 40; ++round) {
        fs::remove(Docs() / "name");
        std::atomic<int> won{0};
        std::vector<std::thread> clients;
        for (int i = 0; i < kClients; ++i)
            clients.emplace_back([&] {
                const TALSTATUS status = PutUnder(MustBeFree);
                EXPECT_TRUE(!Failed(status) || Code(status) == kCodePreconditionFailed) << status;
                won += !Failed(status);
            });
        for (std::thread& client : clients)
            client.join();
        EXPECT_EQ(1, won) << round;
    }
}

TEST_F(FileStoreConditions, OfManyWhoReplaceWhatTheyHaveSeenOneDoes)
{
    Theirs();
    for (int round = 0; round < 40; ++round) {
        const std::string tag = Tag();
        std::atomic<int> won{0};
        std::vector<std::thread> clients;
        for (int i = 0; i < kClients; ++i)
            clients.emplace_back([&] {
                const TALSTATUS status =
                    PutUnder([&](ScriptedRequest& request) { request.match = tag; });
                EXPECT_TRUE(!Failed(status) || Code(status) == kCodePreconditionFailed) << status;
                won += !Failed(status);
            });
        for (std::thread& client : clients)
            client.join();
        EXPECT_EQ(1, won) << round;
    }
}

TEST_F(FileStoreConditions, ALockThatIsGivenUpWhileContentArrivesFailsWhatAskedForIt)
{
    for (const bool isDeleted : {false, true}) {
        Theirs();
        Wstr path("/docs/name");
        char token[64];
        DAV_LOCK_TOKEN made{0, sizeof token, token};
        STRING owner{};
        ASSERT_EQ(0u, Namespace()->Lock(session_, 0, 1'000'000'000, Exclusive, Write, &path, &owner,
                                        &made, nullptr));
        const std::string header = "(<opaquelocktoken:" + std::string(token, made.Length) + ">)";
        const TALSTATUS status = PutUnder(
            [&](ScriptedRequest& request) { request.headers["If"] = header; },
            [&] {
                EXPECT_EQ(0u, isDeleted ? Namespace()->Delete(session_, &path, nullptr, nullptr)
                                        : Namespace()->Unlock(session_, &path, &made));
            });
        EXPECT_EQ(kCodePreconditionFailed, Code(status)) << isDeleted;
        EXPECT_EQ(isDeleted ? "(none)" : "theirs", Now());
        EXPECT_TRUE(Entries(Docs() / ".kest/tmp").empty());
    }
}
