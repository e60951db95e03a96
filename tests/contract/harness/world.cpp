// SPDX-License-Identifier: Apache-2.0
#include "world.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <map>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <unordered_set>

#include <gtest/gtest.h>

#include "text.h"
#include "xml_reply.h"
#include <kest/host/methods.h>

namespace harness {

namespace {

// The creators of the classes that the living world offers.
struct ClassTable {
    std::mutex mutex;
    std::vector<std::pair<GUID, World::Creator>> creators;
};
ClassTable& Classes()
{
    static ClassTable table;
    return table;
}

World::Creator FindCreator(const GUID& clazz)
{
    const std::lock_guard lock(Classes().mutex);
    for (const auto& [key, creator] : Classes().creators)
        if (key == clazz)
            return creator;
    return {};
}

// One per class and process; what it makes is the living world's.
class DispatchFactory final : public IClassFactory {
  public:
    explicit DispatchFactory(const GUID& clazz) : class_(clazz) {}
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        *out = nullptr;
        if (*iid != IID_IClassFactory && *iid != IID_IUnknown)
            return MakeStatus(kFacilityHost, kCodeNoInterface);
        *out = static_cast<IClassFactory*>(this);
        return TAL_STATUS_SUCCESS;
    }
    UINT32 AddRef() override { return 1; } // lives as long as the process
    UINT32 Release() override { return 1; }
    TALSTATUS CreateInstance(IUnknown*, const GUID* iid, void** out) override
    {
        *out = nullptr;
        const World::Creator creator = FindCreator(class_);
        return creator ? creator(*iid, out) : MakeStatus(kFacilityHost, kCodeNotFound);
    }
    TALSTATUS LockServer(BOOLEAN) override { return TAL_STATUS_SUCCESS; }

  private:
    GUID class_;
};

void RegisterOnce(const GUID& clazz)
{
    static std::vector<std::unique_ptr<DispatchFactory>> factories;
    static std::vector<GUID> known;
    for (const GUID& guid : known)
        if (guid == clazz)
            return;
    known.push_back(clazz);
    factories.push_back(std::make_unique<DispatchFactory>(clazz));
    ASSERT_EQ(TolmRegisterClassObject(&clazz, factories.back().get()), TAL_STATUS_SUCCESS);
}

// The real platform layer, made before the watched one takes its class.
ITalpl* RealPlatform()
{
    static ITalpl* const real = [] {
        void* out = nullptr;
        if (Failed(TolmCreateInstance(&CLSID_HadranTalpl, nullptr, &IID_IHadranTalpl_1, &out)))
            std::abort();
        return static_cast<ITalpl*>(out);
    }();
    return real;
}

template <class I, class S> World::Creator Serve(Recorder& recorder, S& service, const char* name)
{
    return [&recorder, &service, name](const GUID& iid, void** out) -> TALSTATUS {
        if (const auto status = recorder.Enter(name))
            return *status;
        return static_cast<I&>(service).QueryInterface(&iid, out);
    };
}

std::string TomlText(const std::string& text)
{
    return "'" + text + "'";
}

// The library again under another inode: the loader then gives it process-wide state of its own.
std::string AnotherCopy()
{
    const int from = open(KESTDAV_LIBRARY, O_RDONLY | O_CLOEXEC);
    struct stat info {};
    fstat(from, &info);
    const int to = memfd_create("kestdav.so", MFD_CLOEXEC);
    off_t at = 0;
    while (at < info.st_size &&
           sendfile(to, from, &at, static_cast<size_t>(info.st_size - at)) > 0) {
    }
    close(from);
    return "/proc/self/fd/" + std::to_string(to); // stays open: the name must never come again
}

} // namespace

GUID World::ProviderClass(size_t index)
{
    return {0x50726F76, 0x6964, 0x6572, {0, 0, 0, 0, 0, 0, 0, static_cast<UINT8>(index + 1)}};
}

std::string World::ProviderKeyName(size_t index)
{
    char text[64];
    std::snprintf(text, sizeof text, "{50726F76-6964-6572-0000-0000000000%02X}",
                  static_cast<unsigned>(index + 1));
    return text;
}

World::World(std::vector<ProviderSpec> providers, Setup setup) : platform(recorder, RealPlatform())
{
    for (size_t i = 0; i < providers.size(); ++i) {
        providers_.push_back(std::make_unique<Provider>(recorder, providers[i]));
        Provider* provider = providers_.back().get();
        setup.configuredKeys.insert(setup.configuredKeys.begin() + static_cast<std::ptrdiff_t>(i),
                                    ProviderKeyName(i));
        if (providers[i].served)
            Offer(ProviderClass(i), [provider](const GUID& iid, void** out) {
                return provider->CreateObject(iid, out);
            });
    }
    Offer(CLSID_HadranTalpl, [this](const GUID& iid, void** out) -> TALSTATUS {
        if (const auto status = recorder.EnterUnlisted("create.HadranTalpl"))
            return *status;
        return platform.QueryInterface(&iid, out);
    });
    Offer(CLSID_KestSrv, Serve<IKestConfig>(recorder, config, "create.KestSrv"));
    Offer(CLSID_KestUtil, Serve<IKestUtil>(recorder, util, "create.KestUtil"));
    Offer(CLSID_EventMgr, Serve<IEvent>(recorder, event, "create.EventMgr"));
    Offer(CLSID_SecurityAttributeManager,
          Serve<ISA>(recorder, attributes, "create.SecurityAttributeManager"));
    Offer(CLSID_ObjectManagerDataStore,
          Serve<ISCOM>(recorder, objects, "create.ObjectManagerDataStore"));
    recorder.onCall = [this](std::string_view name) { ExpectProvidersGuarded(name); };
    LoadRegistry(setup);
    LoadModule();
    if (setup.start)
        Start();
}

// The list of providers must not change under whoever uses one.
void World::ExpectProvidersGuarded(std::string_view call) const
{
    for (const auto& provider : providers_) {
        if (call.starts_with(provider->Spec().name + ".")) {
            EXPECT_GT(platform.HeldLocks(), 0) << call << " without the lock of the providers";
        }
    }
}

World::~World()
{
    for (const GUID& clazz : offered_)
        Withdraw(clazz);
    if (module)
        module->Release();
}

void World::Offer(const GUID& clazz, Creator creator)
{
    RegisterOnce(clazz);
    Withdraw(clazz);
    const std::lock_guard lock(Classes().mutex);
    Classes().creators.emplace_back(clazz, std::move(creator));
    offered_.push_back(clazz);
}

void World::Withdraw(const GUID& clazz)
{
    const std::lock_guard lock(Classes().mutex);
    std::erase_if(Classes().creators, [&](const auto& entry) { return entry.first == clazz; });
}

void World::ChangeRegistry(const Setup& setup)
{
    LoadRegistry(setup);
}

void World::LoadRegistry(const Setup& setup)
{
    speaksStandard_ = setup.moduleValues.find("'standard'") != std::string::npos;
    std::string text = "['Kest\\Configuration\\KestDav']\n";
    if (!setup.moniker.empty())
        text += "'Moniker' = " + TomlText(setup.moniker) + "\n";
    text += setup.moduleValues + "\n";
    for (const std::string& key : setup.configuredKeys)
        text += "['Kest\\Policies\\DAV Handlers\\Configured\\" + key + "']\n";
    text += setup.registryText;

    char path[] = "/tmp/kest-harness-XXXXXX";
    const int file = mkstemp(path);
    ASSERT_GE(file, 0);
    ASSERT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(file);
    char error[512] = {};
    const TALSTATUS status = TolmRegistryLoad(path, error, sizeof error);
    unlink(path);
    ASSERT_FALSE(Failed(status)) << error;
}

void World::LoadModule()
{
    static bool loadedBefore = false;
    const std::string path = loadedBefore ? AnotherCopy() : KESTDAV_LIBRARY;
    loadedBefore = true;
    // Never closed: the module has no unload, and its providers live as long as the process.
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_TRUE(library) << dlerror();
    getClassObject = reinterpret_cast<DllGetClassObjectFn>(dlsym(library, "DllGetClassObject"));
    registerServer = reinterpret_cast<int (*)()>(dlsym(library, "DllRegisterServer"));
    unregisterServer = reinterpret_cast<int (*)()>(dlsym(library, "DllUnregisterServer"));
    ASSERT_TRUE(getClassObject && registerServer && unregisterServer);
}

void World::Start()
{
    void* out = nullptr;
    ASSERT_EQ(getClassObject(&CLSID_KestDavHandler, &IID_IClassFactory, &out), 0);
    auto* factory = static_cast<IClassFactory*>(out);
    ASSERT_TRUE(factory);
    ASSERT_EQ(factory->CreateInstance(nullptr, &IID_KestReq_2, &out), TAL_STATUS_SUCCESS);
    module = static_cast<IKestReq_2*>(out);
    ASSERT_TRUE(module);
    WCHAR buffer[512];
    UNICODE_STRING where = {0, sizeof buffer, buffer};
    ASSERT_EQ(module->ModuleInit(SessionHandle(0), &access, &where, &moduleId), TAL_STATUS_SUCCESS);
    location = Narrow(&where);
    recorder.Clear();
    allocationsAtRest_ = platform.LiveAllocations();
}

Provider& World::operator[](const std::string& name)
{
    for (const auto& provider : providers_)
        if (provider->Spec().name == name)
            return *provider;
    ADD_FAILURE() << "no provider " << name;
    std::abort();
}

namespace {

// RFC 4918 section 8.3: an href of a collection ends with "/", and no other one.
void ExpectSlashes(const Provider& provider, const std::vector<std::string>& paths,
                   const Reply& reply)
{
    const std::string root = "/Ferro";
    const std::vector<std::string> all = provider.Paths();
    const std::unordered_set<std::string_view> there(all.begin(), all.end());
    const auto isThere = [&](std::string_view path) { return there.contains(path); };
    for (const std::string& path : paths) {
        const std::string own = path.substr(std::min(root.size(), path.size()));
        EXPECT_FALSE(isThere(own + "/")) << path << " is a collection\n" << reply.text;
        const bool isMarked = own.ends_with("/");
        EXPECT_FALSE(isMarked && isThere(own.substr(0, own.size() - 1))) << path << " is none\n"
                                                                         << reply.text;
    }
}

} // namespace

// In the standard dialect every XML reply is one that strict clients take, whatever a case looks
// for. A listing that a failure has cut is not whole, nor is what could not be written.
void World::ExpectReadable(const Request& request, const Reply& reply, int failures) const
{
    const bool isContent = request.method == KestMethodGet || request.method == KestMethodHead;
    const bool mayBeCut =
        recorder.Failures() != failures && (reply.text[0] == '2' || !recorder.FailedCall().empty());
    if (!speaksStandard_ || isContent || mayBeCut ||
        reply.text.find("\nContent-Type: application/xml") == std::string::npos)
        return;
    for (const auto& provider : providers_) {
        const std::string place = "/Ferro/" + provider->Spec().name;
        if (request.path.starts_with(place) && provider->Spec().generations >= 4) {
            std::vector<std::string> paths;
            EXPECT_EQ(FaultOfXml(reply.body, &paths), "") << reply.text;
            if (recorder.Failures() == failures)
                ExpectSlashes(*provider, paths, reply);
        }
    }
}

Reply World::Run(const Request& request)
{
    const int failures = recorder.Failures();
    ScriptedIo io(recorder, platform, request);
    const TALSTATUS status =
        module->RequestHandler(&io, SessionHandle(request.session), request.method);
    Reply reply = io.TakeReply();
    reply.returned = status;
    EXPECT_EQ(io.References(), 0) << "the request object's references";
    ExpectReadable(request, reply, failures);
    return reply;
}

void World::Remember(const std::string& path, int session)
{
    const Reply reply = Run(Request(KestMethodHead, path).Session(session));
    EXPECT_EQ(reply.heads, 1);
    recorder.Clear();
    allocationsAtRest_ = platform.LiveAllocations();
}

void World::ExpectAtRest()
{
    EXPECT_EQ(platform.HeldLocks(), 0) << "read/write locks held";
    EXPECT_EQ(platform.LiveAllocations(), allocationsAtRest_) << "platform memory";
    EXPECT_EQ(platform.OpenKeys(), 0) << "registry keys";
    EXPECT_EQ(attributes.Referenced(), 0) << "session attribute references";
    EXPECT_EQ(objects.Referenced(), 0) << "object store references";
    EXPECT_EQ(config.References(), 0) << "IKestConfig references";
    for (const auto& provider : providers_)
        EXPECT_EQ(provider->LiveObjects(), 0) << "opened objects of " << provider->Spec().name;
}

void ExpectEveryFailureIsSurvived(const std::function<std::unique_ptr<World>()>& make,
                                  const Request& request,
                                  const std::function<void(World&, const Reply&)>& check)
{
    for (int n = 1; n < 1000; ++n) {
        const std::unique_ptr<World> world = make();
        world->recorder.FailCall(n);
        const Reply reply = world->Run(request);
        if (!world->recorder.FailureHappened()) {
            EXPECT_GT(n, 3) << "hardly any call was made to fail";
            return;
        }
        SCOPED_TRACE("call " + std::to_string(n) + " failed: " + world->recorder.FailedCall());
        EXPECT_EQ(reply.heads, 1) << reply.text;
        world->ExpectAtRest();
        if (check)
            check(*world, reply);
        if (testing::Test::HasFailure())
            return;
    }
    ADD_FAILURE() << "the request never ran without a failure";
}

void InChild(const std::function<void()>& body)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        body();
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the child failed";
}

} // namespace harness
