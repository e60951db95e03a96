// SPDX-License-Identifier: Apache-2.0
//
// The component manager. Classes stand in a hash table that readers use without a lock: a table is
// never changed once it is published, except that an entry's factory may change, and a table that
// was replaced is kept, since a reader may still look at it. Tables grow by doubling, so all the
// old ones together are no larger than the current one.
#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/utf.h"
#include <kest/identifiers.h>
#include <kest/sdk/class_object.h>
#include <kest/tolm.h>

#include "platform/caseless.h"
#include "platform/guid_text.h"
#include "platform/internal.h"
#include "platform/registry.h"
#include "platform/talpl.h"

namespace tolm {
namespace {

struct ClassEntry {
    explicit ClassEntry(const GUID& c) noexcept : clazz(c) {}
    const GUID clazz;
    // Each holds a reference of the manager's, for the life of the process once it was published.
    std::atomic<IClassFactory*> registered{nullptr}; // by the process; wins
    std::atomic<IClassFactory*> loaded{nullptr};     // from a library
};

std::size_t HashOf(const GUID& g) noexcept
{
    UINT64 halves[2];
    std::memcpy(halves, &g, sizeof halves);
    const UINT64 mixed = (halves[0] ^ halves[1]) * 0x9E3779B97F4A7C15;
    return static_cast<std::size_t>(mixed >> 32);
}

// Open addressing; at most half full, so that a search always meets an empty slot.
struct ClassTable {
    explicit ClassTable(std::size_t slotCount)
        : mask(slotCount - 1), slots(std::make_unique<std::atomic<ClassEntry*>[]>(slotCount))
    {
    }
    ClassEntry* Find(const GUID& clazz) const noexcept
    {
        for (std::size_t i = HashOf(clazz) & mask;; i = (i + 1) & mask) {
            ClassEntry* entry = slots[i].load(std::memory_order_acquire);
            if (!entry || entry->clazz == clazz)
                return entry;
        }
    }
    void Insert(ClassEntry* entry) noexcept
    {
        std::size_t i = HashOf(entry->clazz) & mask;
        while (slots[i].load(std::memory_order_relaxed))
            i = (i + 1) & mask;
        slots[i].store(entry, std::memory_order_release);
    }
    const std::size_t mask;
    const std::unique_ptr<std::atomic<ClassEntry*>[]> slots;
};

TALSTATUS AskTalpl(const GUID* iid, void** out)
{
    return SharedTalpl().QueryInterface(iid, out);
}

constinit kest::StaticClassObject<PlatformComponent> g_talplClass(AskTalpl);

class ClassManager {
  public:
    // The first use allocates, and throws when there is no memory; a later one tries again.
    static ClassManager& Get()
    {
        static ClassManager* const manager = new ClassManager; // outlives every thread
        return *manager;
    }

    // What makes objects of `clazz`, or null when no use was made of it yet. Takes no lock.
    IClassFactory* Find(const GUID& clazz) const noexcept
    {
        const ClassEntry* entry = table_.load(std::memory_order_acquire)->Find(clazz);
        if (!entry)
            return nullptr;
        IClassFactory* factory = entry->registered.load(std::memory_order_acquire);
        return factory ? factory : entry->loaded.load(std::memory_order_acquire);
    }

    TALSTATUS Register(const GUID& clazz, IClassFactory* factory)
    {
        const std::lock_guard lock(writer_);
        ClassEntry& entry = Ensure(clazz);
        retired_.reserve(retired_.size() + 1);
        if (factory)
            factory->AddRef();
        IClassFactory* old = entry.registered.exchange(factory, std::memory_order_acq_rel);
        if (old)
            retired_.push_back(old); // reachable, so that a leak check does not report it
        return TAL_STATUS_SUCCESS;
    }

    TALSTATUS LoadClass(const GUID& clazz, IClassFactory*& factory);

  private:
    ClassManager()
    {
        tables_.push_back(std::make_unique<ClassTable>(64));
        table_ = tables_.back().get();
        Ensure(CLSID_HadranTalpl).registered = &g_talplClass;
    }

    ClassEntry& Ensure(const GUID& clazz); // under writer_
    IClassFactory* Publish(const GUID& clazz, IClassFactory* factory);
    void LogOnce(const GUID& clazz, const std::string& library, const std::string& reason);

    std::atomic<ClassTable*> table_;
    std::mutex writer_; // guards the rest
    std::vector<std::unique_ptr<ClassTable>> tables_;
    std::vector<std::unique_ptr<ClassEntry>> entries_;
    std::vector<IClassFactory*> retired_;
    std::vector<std::string> logged_;
};

ClassEntry& ClassManager::Ensure(const GUID& clazz)
{
    ClassTable* table = tables_.back().get();
    if (ClassEntry* entry = table->Find(clazz))
        return *entry;
    // Whatever can fail for memory comes before the first change.
    auto entry = std::make_unique<ClassEntry>(clazz);
    entries_.reserve(entries_.size() + 1);
    if (2 * (entries_.size() + 1) > table->mask + 1) {
        tables_.push_back(std::make_unique<ClassTable>(2 * (table->mask + 1)));
        table = tables_.back().get();
        for (const auto& old : entries_)
            table->Insert(old.get());
    }
    table->Insert(entry.get());
    entries_.push_back(std::move(entry));
    table_.store(table, std::memory_order_release);
    return *entries_.back();
}

IClassFactory* ClassManager::Publish(const GUID& clazz, IClassFactory* factory)
{
    const std::lock_guard lock(writer_);
    IClassFactory* expected = nullptr;
    if (Ensure(clazz).loaded.compare_exchange_strong(expected, factory, std::memory_order_acq_rel))
        return factory;
    return expected; // another thread was faster; its factory is the one to keep
}

void ClassManager::LogOnce(const GUID& clazz, const std::string& library, const std::string& reason)
{
    constexpr std::size_t kMost = 256; // a program that asks for made-up classes fills no memory
    char guid[kGuidText + 1];
    FormatGuid(clazz, guid);
    const std::string line = std::string("class ") + guid + ": " +
                             (library.empty() ? "no library" : "library '" + library + "'") + ": " +
                             reason;
    {
        const std::lock_guard lock(writer_);
        for (const std::string& before : logged_)
            if (before == line)
                return;
        if (logged_.size() == kMost)
            return;
        logged_.push_back(line);
    }
    TolmLog(kLogError, "tolm", line.c_str());
}

// The directory of this library, with its slash.
std::string OwnDirectory()
{
    Dl_info info{};
    if (!dladdr(reinterpret_cast<const void*>(&TolmCreateInstance), &info) || !info.dli_fname)
        return {};
    const std::string path = info.dli_fname;
    return path.substr(0, path.rfind('/') + 1);
}

// Opens an absolute path as it is, a name beside this library if it is there, and else wherever
// the dynamic linker looks.
void* OpenLibrary(const std::string& name, std::string& reason)
{
    std::string path = name;
    if (name.front() != '/') {
        const std::string beside = OwnDirectory() + name;
        if (name.find('/') != std::string::npos || access(beside.c_str(), F_OK) == 0)
            path = beside;
    }
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        const char* error = dlerror();
        reason = error ? error : "cannot be loaded";
    }
    return library;
}

TALSTATUS ClassManager::LoadClass(const GUID& clazz, IClassFactory*& factory)
{
    char guid[kGuidText + 1];
    FormatGuid(clazz, guid);
    const std::u16string key = Folded(u"Tolm\\Classes\\" + base::ToUtf16Replacing(guid));
    const std::string name = base::ToUtf8Replacing(ReadRegistryString(key, u"LIBRARY"));
    if (name.empty()) {
        LogOnce(clazz, name, "the class is neither registered nor in the registry");
        return Fail(kCodeNotFound);
    }
    // No lock is held from here to Publish: a library's entry point may create objects itself, and
    // may wait for a thread that does.
    std::string reason;
    void* library = OpenLibrary(name, reason);
    if (!library) {
        LogOnce(clazz, name, reason);
        return Fail(kCodeOpenFailed);
    }
    const auto getClassObject =
        reinterpret_cast<DllGetClassObjectFn>(dlsym(library, "DllGetClassObject"));
    void* made = nullptr;
    if (!getClassObject || getClassObject(&clazz, &IID_IClassFactory, &made) != 0 || !made) {
        LogOnce(clazz, name,
                getClassObject ? "DllGetClassObject offers no factory for the class"
                               : "the library has no DllGetClassObject");
        // Not unloaded: its entry point has run, and may have left threads or callbacks behind.
        return Fail(kCodeOpenFailed);
    }
    auto* mine = static_cast<IClassFactory*>(made);
    factory = Publish(clazz, mine);
    if (factory != mine)
        mine->Release();
    return TAL_STATUS_SUCCESS;
}

} // namespace
} // namespace tolm

using namespace tolm;

extern "C" {

TALSTATUS TolmCreateInstance(const GUID* clazz, IUnknown* outer, const GUID* iid, void** out)
{
    if (!out)
        return Fail(kCodeInvalidParameter);
    *out = nullptr;
    if (!clazz || !iid || outer)
        return Fail(kCodeInvalidParameter);
    IClassFactory* factory = nullptr;
    const TALSTATUS found = Guarded([&] {
        ClassManager& manager = ClassManager::Get();
        factory = manager.Find(*clazz);
        return factory ? TAL_STATUS_SUCCESS : manager.LoadClass(*clazz, factory);
    });
    if (Failed(found))
        return found;
    const TALSTATUS status = factory->CreateInstance(nullptr, iid, out);
    if (Failed(status))
        *out = nullptr; // whatever the factory left there
    return !Failed(status) && !*out ? Fail(kCodeNoInterface) : status;
}

TALSTATUS TolmRegisterClassObject(const GUID* clazz, IClassFactory* factory)
{
    if (!clazz)
        return Fail(kCodeInvalidParameter);
    return Guarded([&] { return ClassManager::Get().Register(*clazz, factory); });
}

} // extern "C"
