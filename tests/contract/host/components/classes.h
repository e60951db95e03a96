// SPDX-License-Identifier: Apache-2.0
//
// The host's classes as a component sees them: made by the component manager, called through the
// raw table of operations.
#pragma once

#include <memory>

#include <gtest/gtest.h>

#include "host/component.h"
#include "host/components/host_classes.h"
#include <kest/com.h>
#include <kest/tolm.h>

namespace kestd {

// Calls the operation in a slot of an object's table. A member that moved calls another operation
// here and is found out.
template <class Result, class... Arguments>
Result CallSlot(void* object, size_t slot, Arguments... arguments)
{
    void** const table = *static_cast<void***>(object);
    return reinterpret_cast<Result (*)(void*, Arguments...)>(table[slot])(object, arguments...);
}

template <class... Arguments> TALSTATUS Call(void* object, size_t slot, Arguments... arguments)
{
    return CallSlot<TALSTATUS>(object, slot, arguments...);
}

inline SCHANDLE HoldSession(HostServices& services, const std::string& name,
                            const std::string& dotted = {}, const std::string& tree = {})
{
    return services.sessions.HoldShared(
        std::make_shared<const Principal>(Principal{name, dotted, tree, {}, name}));
}

// The classes are registered while a case runs.
class HostClasses : public testing::Test {
  protected:
    void SetUp() override
    {
        HostServices::Settings settings;
        settings.identity = {"files.example.org:8443", "8443", {}};
        settings.users.sessions.idleTime = std::chrono::seconds(77);
        services_ = std::make_unique<HostServices>(settings, clock_);
        ASSERT_EQ(RegisterHostClasses(*services_), 0U);
    }
    void TearDown() override
    {
        UnregisterHostClasses();
        services_->sessions.EndAll();
    }
    // An object of a class as one of its interfaces, with the caller's reference.
    static void* Make(const GUID& clazz, const GUID& iid)
    {
        void* object = nullptr;
        EXPECT_EQ(TolmCreateInstance(&clazz, nullptr, &iid, &object), 0U);
        return object;
    }
    static void Release(void* object) { CallSlot<UINT32>(object, 2); }

    SteadyClock clock_;
    std::unique_ptr<HostServices> services_;
};

} // namespace kestd
