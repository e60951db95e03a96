// SPDX-License-Identifier: Apache-2.0
//
// A process around the module under test: scripted host services and providers, the watched
// platform layer, and a fresh copy of kestdav.so. A case reads:
//
//     World world({{.name = "gen2"}});
//     world["gen2"].AddFile("/gen2/a.txt", "hello");
//     const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/gen2/a.txt"));
//     EXPECT_EQ(reply.text, "200\nCache-Control: no-store\n…\n\nhello");
//     EXPECT_THAT(world.Calls({"gen2."}), ElementsAre(…));
//     world.ExpectAtRest();
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "io.h"
#include "platform.h"
#include "provider.h"
#include "recorder.h"
#include "services.h"
#include <kest/req.h>
#include <kest/tolm.h>

namespace harness {

struct Setup {
    std::string moniker = {};      // the registry value; none when empty
    std::string registryText = {}; // further lines of the registry file, whole tables first line on
    std::string moduleValues = {}; // further values of the module's key, one per line
    std::vector<std::string> configuredKeys =
        {};            // subkeys of the provider key that name no provider
    bool start = true; // else the case drives the entry points itself
};

class World {
  public:
    explicit World(std::vector<ProviderSpec> providers = {}, Setup setup = {});
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    Provider& operator[](const std::string& name);

    // Serves one request through RequestHandler, on the calling thread. In the standard dialect the
    // XML of its reply is read as a strict client does, and what is wrong with it fails the case.
    Reply Run(const Request& request);
    // Makes the session know which provider serves a path (a HEAD), then forgets the calls.
    void Remember(const std::string& path, int session = 1);

    std::vector<std::string> Calls(std::vector<std::string> prefixes = {}) const
    {
        return recorder.Calls(std::move(prefixes));
    }
    void Fail(std::string name, TALSTATUS status, int nth = 1)
    {
        recorder.Fail(std::move(name), status, nth);
    }

    // Nothing is held that should not be between requests: locks, opened objects, references,
    // memory allocated since the start (or the last Remember).
    void ExpectAtRest();

    // Makes `clazz` available to the module as long as this world lives.
    using Creator = std::function<TALSTATUS(const GUID& iid, void** out)>;
    void Offer(const GUID& clazz, Creator creator);
    // Takes a class away.
    void Withdraw(const GUID& clazz);

    // The module's entry points and what start() made with them.
    DllGetClassObjectFn getClassObject = nullptr;
    int (*registerServer)() = nullptr;
    int (*unregisterServer)() = nullptr;
    IKestReq_2* module = nullptr;
    void Start(); // as the host does: class object, request handler, ModuleInit
    KEST_LOCATION_ACCESS access{};
    std::string location; // as ModuleInit reported it
    GUID moduleId{};

    // Puts new values into the registry, as an edited file would.
    void ChangeRegistry(const Setup& setup);

    Recorder recorder;
    WatchedPlatform platform;
    ConfigService config{recorder};
    UtilService util{recorder};
    EventService event{recorder};
    AttributeService attributes{recorder};
    ObjectService objects{recorder};

    // The class identifier of the n-th provider.
    static GUID ProviderClass(size_t index);
    static std::string ProviderKeyName(size_t index); // "{…}"

  private:
    void ExpectProvidersGuarded(std::string_view call) const;
    void ExpectReadable(const Request& request, const Reply& reply, int failures) const;
    void LoadModule();
    void LoadRegistry(const Setup& setup);

    std::vector<std::unique_ptr<Provider>> providers_;
    std::vector<GUID> offered_;
    int allocationsAtRest_ = 0;
    bool speaksStandard_ = false;
};

// Makes a world, lets call N fail, runs the request, and checks that exactly one head was sent and
// that nothing is held afterwards; for N = 1, 2, … until a run meets no failure. `check` may look
// at each failed run's state.
void ExpectEveryFailureIsSurvived(const std::function<std::unique_ptr<World>()>& make,
                                  const Request& request,
                                  const std::function<void(World&, const Reply&)>& check = {});

// Runs `body` in a forked child; its failures fail the calling test.
void InChild(const std::function<void()>& body);

} // namespace harness
