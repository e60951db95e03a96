// SPDX-License-Identifier: Apache-2.0
//
// Each change of the third generation has happened or has not, whichever call of the file system or
// the metadata fails, and wherever memory runs out.
#include "providers/filestore/namespace.h"
#include "providers/filestore/resource.h"
#include "tests/contract/filestore/faults.h"
#include "tests/contract/truth/failing_memory.h"

using namespace faults;
using filestore::Client;

namespace {

constexpr UINT64 kDate = 12'900'000'000ull * 10'000'000;

DAV_TEXT Text(std::string_view text)
{
    return {text.data(), static_cast<UINT32>(text.size())};
}

// Counted strings over ASCII, which take no memory.
class Name {
  public:
    explicit Name(std::string_view text)
    {
        std::copy(text.begin(), text.end(), text_);
        value_ = {static_cast<UINT16>(text.size() * 2), static_cast<UINT16>(text.size() * 2),
                  text_};
    }
    UNICODE_STRING* operator&() { return &value_; }

  private:
    WCHAR text_[64];
    UNICODE_STRING value_;
};

void Fill(Client& client)
{
    ASSERT_EQ(0u, client.Put("/one/file", "content of the file"));
    ASSERT_EQ(0u, client.SetProperty("/one/file", "color", "red"));
    ASSERT_EQ(0u, client.Put("/one/old", "of before"));
    ASSERT_EQ(0u, client.MkCol("/one/tree"));
    ASSERT_EQ(0u, client.Put("/one/tree/a", "first"));
    ASSERT_EQ(0u, client.SetProperty("/one/tree/a", "color", "blue"));
    ASSERT_EQ(0u, client.MkCol("/two/folder"));
    ASSERT_EQ(0u, client.Put("/two/folder/member", "of before"));
}

// With a reference of its own: the faces go with their objects.
template <class Object, class I, class F> TALSTATUS With(filestore::Store& store, F&& work)
{
    void* face = nullptr;
    Object* object = nullptr;
    TALSTATUS status = filestore::Protected([&] {
        object = new Object(store);
        return object->QueryInterface(&IidOf<I>::value, &face);
    });
    if (!Failed(status)) {
        status = work(*static_cast<I*>(face));
        static_cast<I*>(face)->Release();
    }
    if (object)
        object->Release();
    return status;
}

using Work = TALSTATUS (*)(filestore::Store&);

template <class F> TALSTATUS InNamespace(filestore::Store& store, F&& work)
{
    return With<filestore::FileNamespace, IKestDAV3>(store, std::forward<F>(work));
}

TALSTATUS StoreContent(filestore::Store& store, const char* path, UINT32 purpose)
{
    return With<filestore::FileResource, IKestDAVResource3>(store, [&](IKestDAVResource3& content) {
        Name name(path);
        DAV_CHANGE change{};
        change.Size = sizeof change;
        TALSTATUS status = content.Open({}, &name, purpose, 3, nullptr, nullptr, nullptr);
        if (!Failed(status))
            status = content.Write(2, 3, "new");
        return Failed(status) ? status : content.Publish(kDate, kDate, nullptr, &change);
    });
}

TALSTATUS Relocate(filestore::Store& store, bool isMove, const char* from, const char* to)
{
    return InNamespace(store, [&](IKestDAV3& space) {
        Name source(from), destination(to);
        return isMove ? space.Move({}, &source, &destination, kRelocateOverwrite, nullptr, nullptr,
                                   nullptr)
                      : space.Copy({}, &source, &destination, kRelocateOverwrite, nullptr, nullptr,
                                   nullptr);
    });
}

struct Patch {
    DAV_PROPERTY_CHANGE list[5] = {
        {sizeof(DAV_PROPERTY_CHANGE), kPropertySet, Text("urn:x"), Text("p"), Text("<p/>"), 0, 0},
        {sizeof(DAV_PROPERTY_CHANGE), kPropertyRemove, Text(""), Text("color"), {}, 0, 0},
        {sizeof(DAV_PROPERTY_CHANGE), kPropertyModified, {}, {}, {}, kDate, 0},
        {sizeof(DAV_PROPERTY_CHANGE), kPropertyCreated, {}, {}, {}, kDate, 0},
        {sizeof(DAV_PROPERTY_CHANGE), kPropertyAttributes, {}, {}, {}, 3, 0}};
};

TALSTATUS TakeLock(filestore::Store& store, const char* path)
{
    return InNamespace(store, [&](IKestDAV3& space) {
        Name name(path);
        const DAV_LOCK_REQUEST request{sizeof request, Exclusive, Write, -1, -1, Text("me")};
        alignas(8) char lock[512];
        UINT32 size = sizeof lock;
        return space.Lock({}, &name, &request, nullptr, nullptr, &size,
                          reinterpret_cast<DAV_LOCK_INFO_3*>(lock), nullptr);
    });
}

struct Row {
    const char* name;
    Work work;
    bool goesForGood = false; // on a full disk: nothing is kept where it cannot be written down
};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << row.name;
}

const Row kRows[] = {
    {"PublishNew", [](auto& s) { return StoreContent(s, "/one/new", kOpenReplace); }},
    {"PublishOver", [](auto& s) { return StoreContent(s, "/one/file", kOpenReplace); }},
    {"PublishRange", [](auto& s) { return StoreContent(s, "/one/file", kOpenModify); }},
    {"MakeCollection",
     [](auto& s) {
         return InNamespace(s, [](IKestDAV3& space) {
             Name name("/one/new");
             Patch patch;
             return space.MakeCollection({}, &name, nullptr, 5, patch.list, nullptr, nullptr);
         });
     }},
    {"Delete",
     [](auto& s) {
         return InNamespace(s, [](IKestDAV3& space) {
             Name name("/one/tree");
             return space.Delete({}, &name, nullptr, nullptr);
         });
     },
     true},
    {"CopyTree", [](auto& s) { return Relocate(s, false, "/one/tree", "/one/new"); }},
    {"CopyFileOver", [](auto& s) { return Relocate(s, false, "/one/file", "/one/old"); }},
    {"CopyTreeOverFolderAcross",
     [](auto& s) { return Relocate(s, false, "/one/tree", "/two/folder"); }},
    {"MoveTreeOverFile", [](auto& s) { return Relocate(s, true, "/one/tree", "/one/old"); }},
    {"MoveTreeOverFolderAcross",
     [](auto& s) { return Relocate(s, true, "/one/tree", "/two/folder"); }},
    {"PatchProperties",
     [](auto& s) {
         return InNamespace(s, [](IKestDAV3& space) {
             Name name("/one/file");
             Patch patch;
             return space.PatchProperties({}, &name, nullptr, 5, patch.list, nullptr, nullptr);
         });
     }},
    {"LockNew", [](auto& s) { return TakeLock(s, "/one/new"); }},
    {"LockTree", [](auto& s) { return TakeLock(s, "/one/tree"); }},
};

class ThirdGeneration : public testing::TestWithParam<Row> {
  protected:
    static Outcome Do(Installation& place) { return place.Run(GetParam().work); }
};

TEST_P(ThirdGeneration, IsWholeOrNotDoneWhateverFails)
{
    FailEveryCall({.keepDays = 0, .fill = Fill}, Task(Do));
}

TEST_P(ThirdGeneration, IsWholeOrNotDoneOnADiskThatFillsUp)
{
    FailEveryCall({.keepDays = GetParam().goesForGood ? 0u : 30u,
                   .sync = filestore::SyncLevel::Full,
                   .fill = Fill},
                  Task(Do), {.errors = {ENOSPC}});
}

TEST_P(ThirdGeneration, IsWholeOrNotDoneWhereMemoryRunsOut)
{
    FailEach({.keepDays = 0, .fill = Fill, .isPlain = true}, Task(Do), failing_memory::FailAt,
             failing_memory::HasFailed);
}

INSTANTIATE_TEST_SUITE_P(Of, ThirdGeneration, testing::ValuesIn(kRows),
                         [](const auto& each) { return std::string(each.param.name); });

} // namespace
