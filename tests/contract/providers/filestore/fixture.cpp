// SPDX-License-Identifier: Apache-2.0
#include "tests/contract/providers/filestore/fixture.h"

#include <algorithm>
#include <cstdlib>

#include <dlfcn.h>
#include <unistd.h>

#include <kest/tolm.h>

namespace filestore_test {

namespace fs = std::filesystem;

namespace {

thread_local ScriptedRequest* t_request = nullptr;

// The parts of a request that the store looks at. Everything else is not offered.
class ScriptedIo final : public IKestIO_5 {
  public:
    TALSTATUS QueryInterface(const GUID*, void**) override { return TAL_STATUS_NO_INTERFACE; }
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }
    TALSTATUS DiscardClientPayload() override { return TAL_STATUS_NOT_SUPPORTED; }
    TALSTATUS GetCopyInfo(BOOLEAN* overwrite, INT32* depth, UNICODE_STRING** destination) override
    {
        *overwrite = TRUE;
        *depth = -1;
        *destination = Hold(t_request->destination);
        return 0;
    }
    TALSTATUS GetMoveInfo(BOOLEAN* overwrite, UNICODE_STRING** destination) override
    {
        *overwrite = TRUE;
        *destination = Hold(t_request->destination);
        return 0;
    }
    TALSTATUS GetRawUrl(STRING**) override { return TAL_STATUS_NOT_SUPPORTED; }
    TALSTATUS GetRemoteAddress(UNICODE_STRING*) override { return TAL_STATUS_NOT_SUPPORTED; }
    TALSTATUS GetRemoteHost(UNICODE_STRING*) override { return TAL_STATUS_NOT_SUPPORTED; }
    TALSTATUS GetUrl(UINT32*, UNICODE_STRING** url) override
    {
        *url = Hold(t_request->path);
        return 0;
    }
    TALSTATUS GetUrlArguments(UINT32*, UNICODE_STRING**) override { return TAL_STATUS_NOT_FOUND; }
    TALSTATUS GetRequestHeader(char* name, UINT32* length, char* buffer) override
    {
        const auto found = t_request->headers.find(name);
        if (found == t_request->headers.end())
            return TAL_STATUS_NOT_FOUND;
        const auto needed = static_cast<UINT32>(found->second.size());
        if (*length < needed + 1) {
            *length = needed + 1;
            return TAL_STATUS_BUFFER_TOO_SMALL;
        }
        std::copy_n(found->second.c_str(), needed + 1, buffer);
        *length = needed;
        return 0;
    }
    TALSTATUS GetRequestMethod(UINT32* method) override
    {
        *method = t_request->method;
        return 0;
    }
    TALSTATUS GetReplyHeader(char*, UINT32*, char*) override { return TAL_STATUS_NOT_FOUND; }
    TALSTATUS GetUserAgent(UINT32*) override { return TAL_STATUS_NOT_SUPPORTED; }
    TALSTATUS IsClientPayloadAvailable(UINT32* available) override
    {
        *available = t_request->bodyLeft;
        return 0;
    }
    TALSTATUS ReadClientPayload(UINT32, UINT8*, UINT32*) override { return TAL_STATUS_END_OF_FILE; }
    TALSTATUS PutString(char*) override { return 0; }
    TALSTATUS SendHeader(HTTPSTATUS) override { return 0; }
    TALSTATUS SetRequestHeader(char*, UINT32, char*) override { return 0; }
    TALSTATUS SetReplyHeader(char*, UINT32, char*) override { return 0; }
    TALSTATUS Working() override { return 0; }
    TALSTATUS Write(UINT32, UINT8*) override { return 0; }
    void* AllocMemory(UINT32) override { return nullptr; }
    TALSTATUS GetRawHeaders(UINT8**) override { return TAL_STATUS_NOT_SUPPORTED; }
    TALSTATUS GetHostname(UINT32*, char*) override { return TAL_STATUS_NOT_SUPPORTED; }
    TALSTATUS GetPort(UINT32*, char*) override { return TAL_STATUS_NOT_SUPPORTED; }
    TALSTATUS GetProtocolName(UINT32*, char*) override { return TAL_STATUS_NOT_SUPPORTED; }
    TALSTATUS SetCustomError(HTTPSTATUS, char*) override { return 0; }
    TALSTATUS GetAuthRealm(UINT32*, char*) override { return TAL_STATUS_NOT_SUPPORTED; }
    BOOLEAN IsSecure() override { return FALSE; }

  private:
    UNICODE_STRING* Hold(const std::string& text)
    {
        held_ = Wide(text);
        value_ = {static_cast<UINT16>(held_.size() * 2), static_cast<UINT16>(held_.size() * 2),
                  held_.data()};
        return &value_;
    }
    std::u16string held_;
    UNICODE_STRING value_{};
};

thread_local ScriptedIo t_io;

class ScriptedContext final : public IKestCallContext {
  public:
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        const bool isKnown = *iid == IID_KestCallContext_1 || *iid == IID_IUnknown;
        *out = isKnown ? this : nullptr;
        return isKnown ? TAL_STATUS_SUCCESS : TAL_STATUS_NO_INTERFACE;
    }
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }
    TALSTATUS GetRequest(IKestIO_5** request) override
    {
        if (!t_request)
            return TAL_STATUS_NOT_FOUND;
        *request = &t_io;
        return 0;
    }
    TALSTATUS GetMethod(UINT32* method) override
    {
        if (!t_request)
            return TAL_STATUS_NOT_FOUND;
        *method = t_request->method;
        return 0;
    }
    TALSTATUS IsBodyComplete(BOOLEAN* complete) override
    {
        if (!t_request)
            return TAL_STATUS_NOT_FOUND;
        *complete = t_request->bodyComplete ? TRUE : FALSE;
        return 0;
    }
    TALSTATUS ReportFailure(TALSTATUS failure) override
    {
        if (!t_request)
            return TAL_STATUS_NOT_FOUND;
        t_request->failures.push_back(failure);
        return 0;
    }
    TALSTATUS IsCancelled(BOOLEAN* cancelled) override
    {
        if (!t_request)
            return TAL_STATUS_NOT_FOUND;
        *cancelled = t_request->isCancelled && t_request->isCancelled() ? TRUE : FALSE;
        return 0;
    }
    // The store is the only one that ties something, so the key tells nothing here.
    TALSTATUS SetAttachment(const GUID*, IUnknown* object) override
    {
        if (!t_request)
            return TAL_STATUS_NOT_FOUND;
        t_request->attachment = Ref<IUnknown>::Share(object);
        return 0;
    }
    TALSTATUS GetAttachment(const GUID*, IUnknown** object) override
    {
        if (!t_request)
            return TAL_STATUS_NOT_FOUND;
        *object = t_request->attachment.Get();
        return 0;
    }
    TALSTATUS GetConditions(KEST_CONDITIONS* conditions) override
    {
        if (!t_request)
            return TAL_STATUS_NOT_FOUND;
        const auto text = [](std::string& value) {
            const auto size = static_cast<UINT16>(value.size());
            return STRING{size, size, value.data()};
        };
        *conditions = {text(t_request->match), text(t_request->noneMatch),
                       t_request->unmodifiedSince, t_request->mayReplace};
        return 0;
    }
};

// The signed-in user of the request that runs.
class ScriptedSession final : public IKestSession {
  public:
    TALSTATUS QueryInterface(const GUID*, void** out) override
    {
        *out = this;
        return 0;
    }
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }
    TALSTATUS Associate(SCHANDLE) override { return 0; }
    TALSTATUS GetPrimaryCredentials(UNICODE_STRING** user, UNICODE_STRING** domain) override
    {
        if (!t_request || t_request->user == "local")
            return TAL_STATUS_NOT_FOUND;
        held_ = Wide(t_request->user);
        user_ = {static_cast<UINT16>(held_.size() * 2), static_cast<UINT16>(held_.size() * 2),
                 held_.data()};
        if (user)
            *user = &user_;
        if (domain)
            *domain = &domain_;
        return 0;
    }

  private:
    std::u16string held_;
    std::u16string tree_ = u"TREE";
    UNICODE_STRING user_{};
    UNICODE_STRING domain_{8, 8, tree_.data()};
};

// Gives out one object of T: each thread its own, or all the same.
template <class T, bool isShared> class SingleObjectFactory final : public IClassFactory {
  public:
    TALSTATUS QueryInterface(const GUID*, void** out) override
    {
        *out = this;
        return 0;
    }
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }
    TALSTATUS CreateInstance(IUnknown*, const GUID* iid, void** out) override
    {
        if constexpr (isShared) {
            static T object;
            return object.QueryInterface(iid, out);
        } else {
            thread_local T object;
            return object.QueryInterface(iid, out);
        }
    }
    TALSTATUS LockServer(BOOLEAN) override { return 0; }
};

SingleObjectFactory<ScriptedContext, true> g_contexts; // the store keeps it
SingleObjectFactory<ScriptedSession, false> g_sessions;
IClassFactory* g_factory = nullptr;
fs::path g_base;

void SetVolume(const char16_t* name, const fs::path& directory)
{
    const std::u16string value = Wide(directory.string());
    ASSERT_EQ(0u, TolmRegistrySetOverride(u"Kest\\Configuration\\FileStore\\Volumes", name,
                                          2 /* text */, value.c_str(),
                                          static_cast<UINT32>((value.size() + 1) * 2)));
}

void RemoveBase()
{
    fs::remove_all(g_base);
}

} // namespace

std::u16string Wide(std::string_view text)
{
    std::u16string out(text.size(), u'\0');
    size_t n = 0;
    for (size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        const size_t bytes = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
        UINT32 value = bytes == 1 ? c : c & (0x7Fu >> bytes);
        for (size_t k = 1; k < bytes; ++k)
            value = value << 6 | (static_cast<unsigned char>(text[i + k]) & 0x3Fu);
        i += bytes;
        if (value >= 0x10000) {
            out[n++] = static_cast<char16_t>(0xD800 + ((value - 0x10000) >> 10));
            value = 0xDC00 + ((value - 0x10000) & 0x3FF);
        }
        out[n++] = static_cast<char16_t>(value);
    }
    out.resize(n);
    return out;
}

std::string Narrow(const WCHAR* text, size_t units)
{
    std::string out;
    for (size_t i = 0; i < units; ++i) {
        UINT32 c = text[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < units)
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00u);
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += {static_cast<char>(0xC0 | c >> 6), static_cast<char>(0x80 | (c & 0x3F))};
        } else if (c < 0x10000) {
            out += {static_cast<char>(0xE0 | c >> 12), static_cast<char>(0x80 | (c >> 6 & 0x3F)),
                    static_cast<char>(0x80 | (c & 0x3F))};
        } else {
            out +=
                {static_cast<char>(0xF0 | c >> 18), static_cast<char>(0x80 | (c >> 12 & 0x3F)),
                 static_cast<char>(0x80 | (c >> 6 & 0x3F)), static_cast<char>(0x80 | (c & 0x3F))};
        }
    }
    return out;
}

RunningRequest::RunningRequest(ScriptedRequest& request)
{
    t_request = &request;
}

RunningRequest::~RunningRequest()
{
    t_request->attachment = {};
    t_request = nullptr;
}

void FileStoreTest::SetUpTestSuite()
{
    if (g_factory)
        return;
    char name[] = "/tmp/filestore-test-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(name));
    g_base = name;
    std::atexit(RemoveBase);
    fs::create_directories(g_base / "docs");
    fs::create_directories(g_base / "other");
    ASSERT_EQ(0u, TolmRegisterClassObject(&CLSID_KestCallContext, &g_contexts));
    ASSERT_EQ(0u, TolmRegisterClassObject(&CLSID_KestSrv, &g_sessions));
    SetVolume(u"docs", g_base / "docs");
    SetVolume(u"Other", g_base / "other");

    void* const library = dlopen(FILESTORE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, library) << dlerror();
    const auto entry = reinterpret_cast<DllGetClassObjectFn>(dlsym(library, "DllGetClassObject"));
    ASSERT_NE(nullptr, entry);
    void* factory = nullptr;
    ASSERT_EQ(0, entry(&CLSID_FileStore, &IID_IClassFactory, &factory));
    g_factory = static_cast<IClassFactory*>(factory);
}

void FileStoreTest::SetUp()
{
    (void)Namespace(); // the store has its private directories
    for (const fs::path& volume : {Docs(), Other()})
        for (const fs::directory_entry& entry : fs::directory_iterator(volume))
            if (entry.path().filename() != ".kest")
                fs::remove_all(entry.path());
}

fs::path FileStoreTest::Docs()
{
    return g_base / "docs";
}

fs::path FileStoreTest::Other()
{
    return g_base / "other";
}

template <class I> static Ref<I> Make()
{
    void* out = nullptr;
    EXPECT_EQ(0u, g_factory->CreateInstance(nullptr, &IidOf<I>::value, &out));
    return Ref<I>::Adopt(static_cast<I*>(out));
}

Ref<IKestDAV2> FileStoreTest::Namespace()
{
    return Make<IKestDAV2>();
}

Ref<IKestDAVResource2> FileStoreTest::NewResource()
{
    return Make<IKestDAVResource2>();
}

Ref<IKestDAVCollection2> FileStoreTest::NewCollection()
{
    return Make<IKestDAVCollection2>();
}

TALSTATUS FileStoreTest::Type(std::string_view path, DAV_TYPE* type)
{
    Wstr wide(path);
    return Namespace()->GetType(session_, &wide, type);
}

TALSTATUS FileStoreTest::MkCol(std::string_view path)
{
    Wstr wide(path);
    return Namespace()->MkCol(session_, nullptr, &wide);
}

TALSTATUS FileStoreTest::Put(std::string_view path, std::string_view content)
{
    ScriptedRequest own;
    own.method = KestMethodPut;
    own.path = "/Ferro" + std::string(path);
    ScriptedRequest* const outer = t_request;
    if (!outer)
        t_request = &own;
    const size_t reported = t_request->failures.size();
    TALSTATUS status = 0;
    {
        Ref<IKestDAVResource2> resource = NewResource();
        Wstr wide(path);
        status = resource->Associate(session_, TRUE, kAccessReplaceContent, 1, 0, &wide, nullptr);
        UINT32 written = 0;
        if (!Failed(status) && !content.empty())
            status = resource->Write(0, static_cast<UINT32>(content.size()),
                                     const_cast<char*>(content.data()), &written);
    }
    if (!Failed(status) && t_request->failures.size() > reported)
        status = t_request->failures.back();
    t_request = outer;
    return status;
}

Ref<IKestDAVResource2> FileStoreTest::Opened(std::string_view path, DAV_OPEN_ACCESS access)
{
    Ref<IKestDAVResource2> resource = NewResource();
    Wstr wide(path);
    if (Failed(resource->Associate(session_, FALSE, access, 3, 0, &wide, nullptr)))
        return {};
    return resource;
}

Ref<IKestDAVCollection2> FileStoreTest::OpenedCollection(std::string_view path)
{
    Ref<IKestDAVCollection2> collection = NewCollection();
    Wstr wide(path);
    if (Failed(collection->Associate(session_, &wide, nullptr)))
        return {};
    return collection;
}

std::optional<std::string> FileStoreTest::Get(std::string_view path)
{
    Ref<IKestDAVResource2> resource = Opened(path, kAccessReadContent);
    UINT64 size = 0;
    if (!resource || Failed(resource->GetResourceSize(&size)))
        return {};
    std::string content(size, '\0');
    UINT32 read = 0;
    for (size_t at = 0; at < size; at += read)
        if (Failed(
                resource->Read(at, static_cast<UINT32>(size - at), content.data() + at, &read)) ||
            read == 0)
            return {};
    return content;
}

std::vector<Child> FileStoreTest::Children(std::string_view path)
{
    std::vector<Child> out;
    Ref<IKestDAVCollection2> collection = OpenedCollection(path);
    if (!collection)
        return out;
    alignas(DAV_COMMON_ENUM) char buffer[1088];
    auto* const record = reinterpret_cast<DAV_COMMON_ENUM*>(buffer);
    UINT32 size = sizeof buffer;
    TALSTATUS status = collection->GetFirstChild(&size, record);
    while (!Failed(status)) {
        out.push_back({Narrow(record->DisplayName, record->DisplayNameLength / 2), record->Type,
                       record->Attributes, record->ResourceSize, record->CreationDate,
                       record->ModificationDate});
        size = sizeof buffer;
        status = collection->GetNextChild(&size, record);
    }
    EXPECT_EQ(kCodeNoMoreEntries, Code(status));
    return out;
}

std::vector<std::string> FileStoreTest::Names(std::string_view path)
{
    std::vector<std::string> out;
    for (const Child& child : Children(path))
        out.push_back(child.name);
    return out;
}

void WriteFile(const fs::path& path, std::string_view content)
{
    std::ofstream(path, std::ios::binary) << content;
}

std::string ReadFile(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<std::string> Entries(const fs::path& path)
{
    std::vector<std::string> out;
    for (const fs::directory_entry& entry : fs::directory_iterator(path))
        if (entry.path().extension() != ".lock")
            out.push_back(entry.path().filename());
    std::sort(out.begin(), out.end());
    return out;
}

} // namespace filestore_test
