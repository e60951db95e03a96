// SPDX-License-Identifier: Apache-2.0
//
// Every operation of the host's classes in its slot.
#include "tests/contract/host/components/classes.h"

#include <array>

namespace kestd {
namespace {

struct ClassRow {
    const char* name;
    const GUID& clazz;
    const GUID& iid;
};

const ClassRow kClasses[] = {
    {"configuration", CLSID_KestSrv, IID_KestConfig_1},
    {"session", CLSID_KestSrv, IID_KestSession_1},
    {"utilities", CLSID_KestUtil, IID_KestUtil_1},
    {"events", CLSID_EventMgr, IID_Event_1},
    {"attributes", CLSID_SecurityAttributeManager, IID_IPassiveContextAttribute_1},
    {"objects", CLSID_ObjectManagerDataStore, IID_ISCObjectManager_1},
    {"directory", CLSID_Directory_1, IID_IDirectory_1},
};

TEST_F(HostClasses, FirstThreeSlots_AreTheCommonOnes)
{
    for (const ClassRow& row : kClasses) {
        void* const object = Make(row.clazz, row.iid);
        const UINT32 count = CallSlot<UINT32>(object, 1);
        EXPECT_EQ(CallSlot<UINT32>(object, 2), count - 1) << row.name;
        for (const GUID& iid : {row.iid, IID_IUnknown}) {
            void* other = nullptr;
            EXPECT_EQ(Call(object, 0, &iid, &other), 0U) << row.name;
            EXPECT_EQ(other, object) << row.name;
            Release(other);
        }
        void* out = object;
        EXPECT_EQ(Code(Call(object, 0, &IID_KestReq_2, &out)), kCodeNoInterface) << row.name;
        EXPECT_EQ(out, nullptr) << row.name;
        EXPECT_EQ(Code(Call(object, 0, &row.iid, static_cast<void**>(nullptr))),
                  kCodeInvalidParameter)
            << row.name;
        Release(object);
    }
}

TEST_F(HostClasses, UnknownInterfaceOfAClass_IsRefused)
{
    for (const ClassRow& row : kClasses) {
        void* out = nullptr;
        EXPECT_EQ(Code(TolmCreateInstance(&row.clazz, nullptr, &IID_KestReq_2, &out)),
                  kCodeNoInterface)
            << row.name;
        EXPECT_EQ(out, nullptr) << row.name;
    }
}

TEST_F(HostClasses, Configuration)
{
    void* const config = Make(CLSID_KestSrv, IID_KestConfig_1);
    std::array<char, 64> text{};
    const auto read = [&](size_t slot, UINT32 room) {
        UINT32 length = room;
        text.fill('?');
        const TALSTATUS status = Call(config, slot, &length, text.data());
        return Failed(status)
                   ? "code " + std::to_string(Code(status)) + " for " + std::to_string(length)
                   : std::string(text.data()) + "/" + std::to_string(length);
    };
    EXPECT_EQ(Code(Call(config, 3, static_cast<GUID*>(nullptr), KestAccessUser,
                        static_cast<UNICODE_STRING*>(nullptr))),
              kCodeNotImplemented);
    EXPECT_EQ(read(4, 64), "files.example.org:8443/22");
    EXPECT_EQ(read(4, 23), "files.example.org:8443/22");
    EXPECT_EQ(read(4, 22), "code 7 for 22");
    EXPECT_EQ(read(5, 64), "/0");
    EXPECT_EQ(read(6, 64), "8443/4");
    UINT32 seconds = 0;
    EXPECT_EQ(Call(config, 7, &seconds), 0U);
    EXPECT_EQ(seconds, 77U);
    UNICODE_STRING* proxy = nullptr;
    EXPECT_EQ(Code(Call(config, 8, &proxy)), kCodeNotFound);
    EXPECT_EQ(Code(Call(config, 9, UINT32{0}, &proxy)), kCodeNoMoreEntries);
    EXPECT_EQ(Code(Call(config, 10, proxy, UINT32{0}, &proxy)), kCodeNotFound);
    EXPECT_EQ(Code(Call(config, 11, proxy, proxy)), kCodeNotImplemented);
    Release(config);
}

TEST_F(HostClasses, Session)
{
    void* const object = Make(CLSID_KestSrv, IID_KestSession_1);
    const SCHANDLE session = HoldSession(*services_, "anna", "CN=anna.O=org", "TREE");
    UNICODE_STRING* user = nullptr;
    UNICODE_STRING* domain = nullptr;
    EXPECT_EQ(Code(Call(object, 4, &user, &domain)), kCodeInvalidParameter); // not associated yet
    EXPECT_EQ(Call(object, 3, session), 0U);
    EXPECT_EQ(Call(object, 4, &user, &domain), 0U);
    EXPECT_EQ(std::u16string_view(user->Buffer, user->Length / 2), u"CN=anna.O=org");
    EXPECT_EQ(std::u16string_view(domain->Buffer, domain->Length / 2), u"TREE");
    EXPECT_EQ(Call(object, 4, static_cast<UNICODE_STRING**>(nullptr), &domain), 0U);
    EXPECT_EQ(Call(object, 4, &user, static_cast<UNICODE_STRING**>(nullptr)), 0U);
    EXPECT_EQ(Code(Call(object, 3, SCHANDLE{})), kCodeNotFound);
    services_->sessions.ReleaseSession(session);
    Release(object);
}

TEST_F(HostClasses, LocalUser_HasNoDirectoryName)
{
    void* const object = Make(CLSID_KestSrv, IID_KestSession_1);
    const SCHANDLE session = HoldSession(*services_, "");
    UNICODE_STRING* user = nullptr;
    EXPECT_EQ(Call(object, 3, session), 0U);
    EXPECT_EQ(Code(Call(object, 4, &user, &user)), kCodeNotFound);
    services_->sessions.ReleaseSession(session);
    Release(object);
}

struct Heard {
    int calls = 0;
    UINT32 type = 0;
    void* data = nullptr;
};

class Listener final : public Object<Listener, IEventHandler> {
  public:
    explicit Listener(Heard& heard) : heard_(heard) {}
    TALSTATUS ConsumeEvent(GUID*, UINT32 type, void* data) override
    {
        heard_ = {heard_.calls + 1, type, data};
        return TAL_STATUS_SUCCESS;
    }

  private:
    Heard& heard_;
};

TEST_F(HostClasses, Events)
{
    void* const events = Make(CLSID_EventMgr, IID_Event_1);
    Heard heard;
    GUID clazz = Global_Event_Class;
    int data = 0;
    EXPECT_EQ(Call(events, 3, &clazz, static_cast<IEventHandler*>(new Listener(heard))), 0U);
    EXPECT_EQ(Call(events, 5, &clazz, UINT32{1}, static_cast<void*>(&data)), 0U);
    EXPECT_EQ(heard.calls, 1);
    EXPECT_EQ(heard.type, 1U);
    EXPECT_EQ(heard.data, &data);
    EXPECT_EQ(Call(events, 4, &clazz), 0U);
    EXPECT_EQ(Call(events, 5, &clazz, UINT32{1}, static_cast<void*>(&data)), 0U);
    EXPECT_EQ(heard.calls, 1);
    Release(events);
}

TALSTATUS InitAttribute(Attribute* attribute, void* data)
{
    *static_cast<uint64_t*>(attribute->pData) = *static_cast<uint64_t*>(data);
    return TAL_STATUS_SUCCESS;
}

TEST_F(HostClasses, Attributes)
{
    void* const service = Make(CLSID_SecurityAttributeManager, IID_IPassiveContextAttribute_1);
    const SCHANDLE session = HoldSession(*services_, "anna");
    HANDLE registration = nullptr;
    ASSERT_EQ(Call(service, 3, &KESTDAV_SESSION_ATTRIBUTE, UINT32{8},
                   static_cast<SA_CLEANUP_CALLBACK>(nullptr),
                   static_cast<SA_FREE_CALLBACK>(nullptr), &registration),
              0U);
    uint64_t value = 5;
    Attribute* attribute = nullptr;
    UINT32 mode = 0;
    ASSERT_EQ(Call(service, 5, session, registration, static_cast<void*>(&value),
                   static_cast<SA_INIT_CALLBACK>(InitAttribute), UINT32{1}, UINT32{2}, &attribute,
                   &mode),
              0U);
    EXPECT_EQ(mode, 1U);
    EXPECT_EQ(*static_cast<uint64_t*>(attribute->pData), 5U);
    EXPECT_EQ(Call(service, 8, UINT32{1}, attribute), 0U); // SADereference
    Attribute* same = nullptr;
    EXPECT_EQ(Call(service, 7, session, registration, UINT32{2}, &same), 0U); // SAReference
    EXPECT_EQ(same, attribute);
    SCHANDLE of{};
    EXPECT_EQ(Call(service, 9, attribute, &of), 0U);
    EXPECT_EQ(of.hId, session.hId);
    GUID id{};
    EXPECT_EQ(Call(service, 10, session, UINT32{0}, &id), 0U);
    EXPECT_EQ(id, KESTDAV_SESSION_ATTRIBUTE);
    EXPECT_EQ(Code(Call(service, 10, session, UINT32{1}, &id)), kCodeNoMoreEntries);
    EXPECT_EQ(Call(service, 12, attribute), 0U);            // SARelease
    EXPECT_EQ(Call(service, 11, UINT32{1}, attribute), 0U); // SAAcquire
    EXPECT_EQ(Call(service, 6, UINT32{1}, attribute), 0U);  // SADelete
    EXPECT_EQ(Code(Call(service, 7, session, registration, UINT32{2}, &same)), kCodeNotFound);
    EXPECT_EQ(Call(service, 4, registration), 0U);
    EXPECT_EQ(Code(Call(service, 4, registration)), kCodeNotFound);
    services_->sessions.ReleaseSession(session);
    Release(service);
}

TALSTATUS ConstructObject(void* object, void* data)
{
    *static_cast<int*>(object) = *static_cast<int*>(data);
    return TAL_STATUS_SUCCESS;
}
BOOLEAN IsObject(void* object, void* key)
{
    return *static_cast<int*>(object) == *static_cast<int*>(key);
}
TALSTATUS DestroyObject(void*)
{
    return TAL_STATUS_SUCCESS;
}

TEST_F(HostClasses, Objects)
{
    void* const store = Make(CLSID_ObjectManagerDataStore, IID_ISCObjectManager_1);
    const SCHANDLE session = HoldSession(*services_, "anna");
    ASSERT_EQ(Call(store, 3, &KESTDAV_MODULE_ID, UINT32{4}, UINT16{1}, UINT32{0}, UINT32{31},
                   static_cast<SC_DESTRUCTOR>(DestroyObject), static_cast<SC_CONSTRUCTOR>(nullptr),
                   static_cast<SC_SESSION_CLEANUP>(nullptr), UINT32{6}),
              0U);
    int key = 9;
    void* object = nullptr;
    void* other = nullptr;
    UINT32 mode = 0;
    const auto keyed = static_cast<void*>(&key);
    const auto compare = static_cast<SC_COMPARE>(IsObject);
    ASSERT_EQ(Call(store, 4, session, keyed, static_cast<SC_CONSTRUCTOR>(ConstructObject), keyed,
                   compare, UINT32{0}, UINT32{1}, UINT32{1}, &object, &mode),
              0U);
    EXPECT_EQ(mode, kObjectCreated);
    HANDLE handle = nullptr;
    EXPECT_EQ(Call(store, 9, object, &handle), 0U); // GetObjectHandle
    EXPECT_EQ(Call(store, 6, handle, &other), 0U);  // ReferenceObjectByHandle
    EXPECT_EQ(other, object);
    EXPECT_EQ(Call(store, 7, object, UINT32{1}), 0U);          // DereferenceObject
    EXPECT_EQ(Call(store, 8, session, UINT32{0}, &other), 0U); // EnumerateObjects
    EXPECT_EQ(Call(store, 14, other), 0U);                     // DecrementReference
    EXPECT_EQ(Call(store, 13, object), 0U);                    // IncrementReference
    EXPECT_EQ(Call(store, 10, session, keyed, compare, UINT32{0}, UINT32{2}, &other), 0U);
    EXPECT_EQ(other, object);
    EXPECT_EQ(Call(store, 11, object), 0U); // AcquireObject
    EXPECT_EQ(Call(store, 12, object), 0U); // ReleaseObject
    SCHANDLE of{};
    EXPECT_EQ(Call(store, 15, object, &of), 0U);
    EXPECT_EQ(of.hId, session.hId);
    UINT32 objects = 0;
    UINT64 bytes = 0;
    EXPECT_EQ(Call(store, 19, &objects, &bytes), 0U);
    EXPECT_EQ(objects, 1U);
    EXPECT_EQ(bytes, 4U);
    EXPECT_EQ(Call(store, 16, &other), 0U);                  // AllocateObject
    EXPECT_EQ(Call(store, 17, other), 0U);                   // DeallocateObject
    EXPECT_EQ(Call(store, 18, session, handle, &other), 0U); // OpenObject
    for (int references = 4; references > 0; --references)
        EXPECT_EQ(Call(store, 7, object, UINT32{1}), 0U) << references;
    EXPECT_EQ(Call(store, 5, object), 0U); // DeleteObject
    EXPECT_EQ(Code(Call(store, 6, handle, &other)), kCodeNotFound);
    services_->sessions.ReleaseSession(session);
    Release(store);
}

TEST_F(HostClasses, OneAttributeServiceAndOneUtility_ServeAll)
{
    for (const ClassRow& row : {kClasses[2], kClasses[4]}) {
        void* const first = Make(row.clazz, row.iid);
        void* const second = Make(row.clazz, row.iid);
        EXPECT_EQ(first, second) << row.name;
        Release(first);
        Release(second);
    }
}

} // namespace
} // namespace kestd
