// SPDX-License-Identifier: Apache-2.0
#include "tests/contract/truth/world.h"

#include <atomic>
#include <cstdlib>
#include <thread>

#include <dlfcn.h>

#include "host/auth/clock.h"
#include "host/components/host_classes.h"
#include "host/server/server.h"
#include "providers/filestore/collection.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/namespace.h"
#include "providers/filestore/posixfs.h"
#include "providers/filestore/resource.h"
#include "providers/filestore/sqlitemeta.h"
#include "providers/filestore/store.h"
#include "tests/contract/truth/served3.h"
#include "tests/support/temporary_directory.h"
#include "tests/unit/providers/filestore/system_calls.h"
#include <kest/com.h>
#include <kest/talpl.h>
#include <kest/tolm.h>

namespace truth_test {

using namespace filestore;
namespace fs = std::filesystem;
using test_support::WriteFile;

namespace {

std::unique_ptr<Store> g_store; // the one that is served now

Store& CurrentStore()
{
    return *g_store;
}

ServedNamespace3<CurrentStore> g_third;

// The module keeps its provider for the life of the process; the store behind it changes.
class ServedNamespace final : public Object<ServedNamespace, IKestDAV2> {
  public:
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        if (!iid || !out || !(*iid == IID_KestDAV_3))
            return Object::QueryInterface(iid, out);
        *out = static_cast<IKestDAV3*>(&g_third);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Copy(SCHANDLE s, BOOLEAN overwrite, INT32 depth, UNICODE_STRING* from,
                   UNICODE_STRING* to, DAV_LOCK_TOKEN* token, DAV_ERROR_ID* id) override
    {
        return Now(
            [&](FileNamespace& now) { return now.Copy(s, overwrite, depth, from, to, token, id); });
    }
    TALSTATUS Delete(SCHANDLE s, UNICODE_STRING* path, DAV_LOCK_TOKEN* token,
                     DAV_ERROR_ID* id) override
    {
        return Now([&](FileNamespace& now) { return now.Delete(s, path, token, id); });
    }
    TALSTATUS BeginSession(SCHANDLE s) override
    {
        return Now([&](FileNamespace& now) { return now.BeginSession(s); });
    }
    TALSTATUS EndSession(SCHANDLE s) override
    {
        return Now([&](FileNamespace& now) { return now.EndSession(s); });
    }
    TALSTATUS GetDAVSupport(UINT32* caps) override
    {
        return Now([&](FileNamespace& now) { return now.GetDAVSupport(caps); });
    }
    TALSTATUS GetMultiStatus(SCHANDLE s, DAV_ERROR_ID* id, UINT32* size,
                             DAV_MULTI_STATUS* buffer) override
    {
        return Now([&](FileNamespace& now) { return now.GetMultiStatus(s, id, size, buffer); });
    }
    TALSTATUS GetType(SCHANDLE s, UNICODE_STRING* path, DAV_TYPE* type) override
    {
        return Now([&](FileNamespace& now) { return now.GetType(s, path, type); });
    }
    TALSTATUS Lock(SCHANDLE s, INT32 depth, INT64 timeout, DAV_LOCK_SCOPE scope, DAV_LOCK_TYPE type,
                   UNICODE_STRING* path, STRING* owner, DAV_LOCK_TOKEN* token,
                   DAV_ERROR_ID* id) override
    {
        return Now([&](FileNamespace& now) {
            return now.Lock(s, depth, timeout, scope, type, path, owner, token, id);
        });
    }
    TALSTATUS LockRefresh(SCHANDLE s, DAV_DATETIME timeout, UNICODE_STRING* path,
                          DAV_LOCK_TOKEN* token, DAV_LOCK_2* lock) override
    {
        return Now(
            [&](FileNamespace& now) { return now.LockRefresh(s, timeout, path, token, lock); });
    }
    TALSTATUS Unlock(SCHANDLE s, UNICODE_STRING* path, DAV_LOCK_TOKEN* token) override
    {
        return Now([&](FileNamespace& now) { return now.Unlock(s, path, token); });
    }
    TALSTATUS MkCol(SCHANDLE s, DAV_LOCK_TOKEN* token, UNICODE_STRING* path) override
    {
        return Now([&](FileNamespace& now) { return now.MkCol(s, token, path); });
    }
    TALSTATUS Move(SCHANDLE s, BOOLEAN overwrite, INT32 depth, UNICODE_STRING* from,
                   UNICODE_STRING* to, DAV_LOCK_TOKEN* token, DAV_ERROR_ID* id) override
    {
        return Now(
            [&](FileNamespace& now) { return now.Move(s, overwrite, depth, from, to, token, id); });
    }
    TALSTATUS IoctlRequest(SCHANDLE s, UINT32 code, UINT32 size, void* in, UINT32* room,
                           void* out) override
    {
        return Now(
            [&](FileNamespace& now) { return now.IoctlRequest(s, code, size, in, room, out); });
    }

  private:
    template <class F> static TALSTATUS Now(F&& operation)
    {
        return Protected([&] { // nothing is thrown through the module
            const auto now = Ref<FileNamespace>::Adopt(new FileNamespace(*g_store));
            return operation(*now.Get());
        });
    }
};

class StoreFactory final : public IClassFactory {
  public:
    TALSTATUS QueryInterface(const GUID*, void** out) override
    {
        *out = this;
        return TAL_STATUS_SUCCESS;
    }
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }
    TALSTATUS CreateInstance(IUnknown*, const GUID* iid, void** out) override
    {
        *out = nullptr;
        if (*iid == IID_KestResource_2 || *iid == IID_KestResource_3)
            return Make([] { return new FileResource(*g_store); }, iid, out);
        if (*iid == IID_KestCollection_2 || *iid == IID_KestCollection_3)
            return Make([] { return new FileCollection(*g_store); }, iid, out);
        if (*iid == IID_KestDAV_2)
            return Make([] { return new ServedNamespace; }, iid, out);
        return TAL_STATUS_NO_INTERFACE;
    }
    TALSTATUS LockServer(BOOLEAN) override { return TAL_STATUS_SUCCESS; }

  private:
    template <class F> static TALSTATUS Make(F&& make, const GUID* iid, void** out)
    {
        return Protected([&] {
            auto* const object = make();
            const TALSTATUS status = object->QueryInterface(iid, out);
            object->Release();
            return status;
        });
    }
};

StoreFactory g_factory;

void Set(const std::u16string& key, const char16_t* name, const std::string& value)
{
    const std::u16string wide(value.begin(), value.end());
    ASSERT_EQ(0u, TolmRegistrySetOverride(key.c_str(), name, TALX_REG_SZ, wide.c_str(),
                                          static_cast<UINT32>((wide.size() + 1) * 2)));
}

std::u16string Braced(const GUID& id)
{
    char text[40];
    std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", id.Data1,
                  id.Data2, id.Data3, id.Data4[0], id.Data4[1], id.Data4[2], id.Data4[3],
                  id.Data4[4], id.Data4[5], id.Data4[6], id.Data4[7]);
    return {text, text + std::strlen(text)};
}

Ref<IKestReq_2> LoadModule()
{
    void* const library = dlopen(KESTDAV_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(nullptr, library) << dlerror();
    const auto entry = reinterpret_cast<DllGetClassObjectFn>(dlsym(library, "DllGetClassObject"));
    void* factory = nullptr;
    EXPECT_EQ(0, entry(&CLSID_KestDavHandler, &IID_IClassFactory, &factory));
    void* module = nullptr;
    EXPECT_EQ(0u, static_cast<IClassFactory*>(factory)->CreateInstance(
                      nullptr, &IidOf<IKestReq_2>::value, &module));
    return Ref<IKestReq_2>::Adopt(static_cast<IKestReq_2*>(module));
}

// The module, and how many requests are in it: a connection can end before its handler has let go
// of the store, when the reply is cut short.
class WatchedModule final : public IKestReq_2 {
  public:
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        return module.Get()->QueryInterface(iid, out);
    }
    UINT32 AddRef() override { return 1; } // lives as long as the process
    UINT32 Release() override { return 1; }
    TALSTATUS ModuleInit(SCHANDLE session, KEST_LOCATION_ACCESS* access, UNICODE_STRING* location,
                         GUID* id) override
    {
        return module.Get()->ModuleInit(session, access, location, id);
    }
    TALSTATUS RequestHandler(IKestIO_5* io, SCHANDLE session, UINT32 method) override
    {
        ++inside_;
        const TALSTATUS status = module.Get()->RequestHandler(io, session, method);
        --inside_;
        inside_.notify_all();
        return status;
    }
    void WaitUntilEmpty() const
    {
        for (int inside = inside_; inside != 0; inside = inside_)
            inside_.wait(inside);
    }

    Ref<IKestReq_2> module;

  private:
    std::atomic<int> inside_{0};
};

WatchedModule g_module;

struct Parts {
    kestd::SteadyClock clock;
    kestd::HostServices services{{}, clock};
    std::unique_ptr<kestd::Server> server;
};

} // namespace

bool IsStandard()
{
    const char* const variant = std::getenv("KEST_VARIANT");
    return variant && std::string_view(variant) == "standard";
}

World::World()
{
    system_calls::SyncNothing();
    static const test_support::TemporaryDirectory directory(test_support::FastestPlace());
    directory_ = directory.Path();
    Set(u"Kest\\Configuration\\KestDav", u"Template Directory", TEMPLATE_DIRECTORY);
    Set(u"Kest\\Configuration\\KestDav", u"Dialect", IsStandard() ? "standard" : "classic");
    Set(u"Kest\\Policies\\DAV Handlers\\Configured\\" + Braced(CLSID_FileStore), u"Name", "store");
    static Parts* const parts = new Parts; // components hold parts of it until the process ends
    EXPECT_EQ(0u, RegisterHostClasses(parts->services));
    EXPECT_EQ(0u, TolmRegisterClassObject(&CLSID_KestCallContext, kestd::CallContextFactory()));
    EXPECT_EQ(0u, TolmRegisterClassObject(&CLSID_FileStore, &g_factory));
    Renew();
    g_module.module = LoadModule();
    WCHAR text[256];
    UNICODE_STRING location{0, sizeof text - 2, text};
    KEST_LOCATION_ACCESS access{};
    GUID id{};
    EXPECT_EQ(0u, g_module.ModuleInit({}, &access, &location, &id));
    parts->services.sessionAdmission.RequireCredentials(false);
    parts->services.sessionAdmission.SetLocation("/Ferro");
    // One thread: what it keeps for itself is there once it has served a request.
    kestd::ServerSettings settings = kestd::test::QuietSettings();
    settings.limits.workerThreads = 1;
    settings.dialect = IsStandard() ? kestd::Dialect::Standard : kestd::Dialect::Classic;
    parts->server = std::make_unique<kestd::Server>(settings, parts->services.sessionAdmission,
                                                    &g_module, "/Ferro");
    EXPECT_EQ("", parts->server->Start());
    port_ = parts->server->Addresses()[0].port;
    std::atexit([] { parts->server->Stop(); });
}

World& World::Get()
{
    static World* const world = new World;
    return *world;
}

void World::Renew()
{
    g_module.WaitUntilEmpty();
    g_store.reset();
    fs::remove_all(Volume());
    fs::create_directories(Volume() / "dir/folder");
    WriteFile(Volume() / "file", "content");
    WriteFile(Volume() / "large", std::string(300'000, 'x'));
    for (const char* name : {"dir/one", "dir/two", "dir/three"})
        WriteFile(Volume() / name, "content");
    fs::create_symlink("one", Volume() / "dir/link");
    fs::create_directory(Volume() / "many"); // more than leaves in one piece
    for (int i = 0; i < 40; ++i)
        WriteFile(Volume() / ("many/member of a folder with many of them " + std::to_string(i)),
                  "");
    int error = 0;
    auto failing =
        std::make_unique<FailingFileSystem>(OpenPosixFileSystem(Volume().c_str(), &error));
    files_ = failing.get();
    std::vector<std::unique_ptr<filestore::Volume>> volumes;
    volumes.push_back(std::make_unique<filestore::Volume>("v", std::move(failing), SyncLevel::None,
                                                          OpenSqliteMetadata));
    Store::Options options;
    options.sync = SyncLevel::None;
    options.now = [] { return UINT64{134'000'000'000'000'000}; };
    g_store = std::make_unique<Store>(std::move(volumes), options);
    if (port_ == 0)
        return;
    const auto set = [](const std::string& what) {
        return "<D:propertyupdate xmlns:D=\"DAV:\"><D:set><D:prop>" + what +
               "</D:prop></D:set></D:propertyupdate>";
    };
    Prepare(Request("PROPPATCH", "file", "", set("<p>kept</p>")), 207);
    auto* const two = new FileResource(*g_store); // it keeps a date of its own
    std::u16string path = u"/v/dir/two";
    UNICODE_STRING name{static_cast<UINT16>(path.size() * 2), static_cast<UINT16>(path.size() * 2),
                        path.data()};
    EXPECT_EQ(0u, two->Associate({}, FALSE, kAccessAttributesOnly, 3, 0, &name, nullptr));
    EXPECT_EQ(0u, two->SetCreationDate(120'000'000'000'000'000));
    two->Release();
}

bool World::HasClosedAllBut(int open) const
{
    for (int i = 0; i < 500 && files_->open > open; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return files_->open <= open;
}

kestd::test::Answer World::Ask(const std::string& request, bool isHead)
{
    kestd::test::Client client(port_);
    kestd::test::Answer answer = client.Ask(request, isHead);
    for (interims_ = 0; answer.status >= 100 && answer.status < 200; ++interims_)
        answer = client.Receive(isHead);
    client.EndSending();
    EXPECT_TRUE(client.IsClosed()); // what the server does after the reply is done, too
    return answer;
}

std::string World::Request(const std::string& method, const std::string& path,
                           const std::string& more, const std::string& body)
{
    return method + " /Ferro/v" + (path.empty() ? "" : "/") + path +
           " HTTP/1.1\r\nHost: 127.0.0.1\r\n" + more +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

void World::Prepare(const std::string& request, int status)
{
    EXPECT_EQ(status, Ask(request, false).status) << request;
}

std::string World::Lock(const std::string& path)
{
    const auto answer =
        Ask(Request("LOCK", path, "Timeout: Second-3600\r\n",
                    "<D:lockinfo xmlns:D=\"DAV:\"><D:lockscope><D:exclusive/></D:lockscope>"
                    "<D:locktype><D:write/></D:locktype></D:lockinfo>"),
            false);
    EXPECT_EQ(200, answer.status);
    const size_t begin = answer.body.rfind("href>opaquelocktoken:");
    EXPECT_NE(begin, std::string::npos) << answer.body;
    const std::string token = answer.body.substr(begin + std::strlen("href>"));
    return "<" + token.substr(0, token.find('<')) + ">";
}

size_t World::OpenDescriptors()
{
    size_t count = 0;
    for (int patience = 0; patience < 100; ++patience) {
        const size_t before = count;
        count = 0;
        for ([[maybe_unused]] const auto& each : fs::directory_iterator("/proc/self/fd"))
            ++count;
        if (count == before)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return count;
}

} // namespace truth_test
