// SPDX-License-Identifier: Apache-2.0
//
// The operation tables: every operation of every interface is called through C++ on an object whose
// table is a plain array, and must arrive at the index that the binary contract gives it.
#include <array>
#include <cstddef>
#include <utility>

#include <gtest/gtest.h>

#include <kest/dav.h>
#include <kest/directory.h>
#include <kest/host.h>
#include <kest/io.h>
#include <kest/req.h>
#include <kest/talpl.h>
#include <kest/talpl_fault_injection.h>

namespace {

constexpr size_t kSlots = 100;
size_t g_called;

// Stands at every index of the table and says which one was reached.
template <size_t I> std::uintptr_t Reached(void*)
{
    g_called = I;
    return 0;
}

template <size_t... I> constexpr auto MakeTable(std::index_sequence<I...>)
{
    return std::array<std::uintptr_t (*)(void*), sizeof...(I)>{Reached<I>...};
}
constexpr auto kTable = MakeTable(std::make_index_sequence<kSlots>());

// What any object of the contract begins with.
struct RawObject {
    const void* table;
};

template <class I, class C, class R, class... A>
void ExpectSlot(I* object, size_t index, R (C::*operation)(A...))
{
    g_called = kSlots;
    (void)(object->*operation)(A{}...);
    EXPECT_EQ(g_called, index);
}
// The one with variable arguments.
template <class I>
void ExpectSlot(I* object, size_t index, TALSTATUS (ITalpl::*operation)(const char*, ...))
{
    g_called = kSlots;
    (void)(object->*operation)("");
    EXPECT_EQ(g_called, index);
}

// The operations in slot order, behind the three of IUnknown.
template <class I, class... M> void ExpectOrder(M... operations)
{
    RawObject raw = {kTable.data()};
    auto* object = reinterpret_cast<I*>(&raw);
    size_t index = 0;
    ExpectSlot(object, index++, &I::QueryInterface);
    ExpectSlot(object, index++, &I::AddRef);
    ExpectSlot(object, index++, &I::Release);
    (ExpectSlot(object, index++, operations), ...);
}

TEST(Slots, IClassFactory)
{
    ExpectOrder<IClassFactory>(&IClassFactory::CreateInstance, &IClassFactory::LockServer);
}

TEST(Slots, ITalpl)
{
    ExpectOrder<ITalpl>(
        &ITalpl::TalxCloseKey, &ITalpl::TalxCreateKey, &ITalpl::TalxDeleteKey,
        &ITalpl::TalxEnumerateKey, &ITalpl::TalxEnumerateValueKey, &ITalpl::TalxOpenKey,
        &ITalpl::TalxQueryValueKey, &ITalpl::TalxSetValueKey, &ITalpl::TalxDebugBreakPoint,
        &ITalpl::TalxDebugPrintf, &ITalpl::TalxInitializeListHead, &ITalpl::TalxInsertEntryAfter,
        &ITalpl::TalxInsertEntryBefore, &ITalpl::TalxInsertHeadList, &ITalpl::TalxInsertTailList,
        &ITalpl::TalxIsListEmpty, &ITalpl::TalxRemoveEntryList, &ITalpl::TalxRemoveHeadList,
        &ITalpl::TalxRemoveTailList, &ITalpl::TalxCharUpperBuff, &ITalpl::TalxMultiByteToWideChar,
        &ITalpl::TalxWideCharToMultiByte, &ITalpl::TalxAllocNonPagedMemory,
        &ITalpl::TalxAllocPagedMemory, &ITalpl::TalxFreeMemory, &ITalpl::TalxAllocTimer,
        &ITalpl::TalxAllocWorkItem, &ITalpl::TalxCancelTimer, &ITalpl::TalxDestroyTimer,
        &ITalpl::TalxDestroyWorkItem, &ITalpl::TalxScheduleTimer, &ITalpl::TalxScheduleWorkItem,
        &ITalpl::TalxSleep, &ITalpl::TalxCompareMemory, &ITalpl::TalxCopyMemory,
        &ITalpl::TalxFillMemory, &ITalpl::TalxMoveMemory, &ITalpl::TalxStrHash,
        &ITalpl::TalxStrHashW, &ITalpl::TalxStrlen, &ITalpl::TalxStrlenW, &ITalpl::TalxZeroMemory,
        &ITalpl::TalxAppendUnicodeStringToString, &ITalpl::TalxAppendUnicodeToString,
        &ITalpl::TalxCompareString, &ITalpl::TalxCompareUnicodeString, &ITalpl::TalxCopyString,
        &ITalpl::TalxCopyUnicodeString, &ITalpl::TalxEqualString, &ITalpl::TalxEqualUnicodeString,
        &ITalpl::TalxInitString, &ITalpl::TalxInitUnicodeString,
        &ITalpl::TalxIntegerToUnicodeString, &ITalpl::TalxUnicodeStringToInteger,
        &ITalpl::TalxAcquireLockForReadAccess, &ITalpl::TalxAcquireLockForWriteAccess,
        &ITalpl::TalxAcquireMutex, &ITalpl::TalxAcquireSpinLock, &ITalpl::TalxAllocEvent,
        &ITalpl::TalxAllocMutex, &ITalpl::TalxAllocReadWriteLock, &ITalpl::TalxAllocSpinLock,
        &ITalpl::TalxDestroyEvent, &ITalpl::TalxDestroyMutex, &ITalpl::TalxDestroyReadWriteLock,
        &ITalpl::TalxDestroySpinLock, &ITalpl::TalxGetCurrentIrql,
        &ITalpl::TalxInterlockedDecrement, &ITalpl::TalxInterlockedExchange,
        &ITalpl::TalxInterlockedIncrement, &ITalpl::TalxReleaseMutex,
        &ITalpl::TalxReleaseReadWriteLock, &ITalpl::TalxReleaseSpinLock, &ITalpl::TalxResetEvent,
        &ITalpl::TalxSignalEvent, &ITalpl::TalxWaitForMultipleEvents,
        &ITalpl::TalxWaitForSingleEvent, &ITalpl::TalxCreateThread, &ITalpl::TalxDestroyThread,
        &ITalpl::TalxExitThread, &ITalpl::TalxGetThreadExitStatus, &ITalpl::TalxSetThreadPriority,
        &ITalpl::TalxWaitForThreadExit, &ITalpl::TalxGetSystemTime, &ITalpl::TalxRegisterModuleName,
        &ITalpl::TalxGetGeneralTalplStatistics, &ITalpl::TalxDeleteValue);
}

TEST(Slots, IKestIO_3)
{
    ExpectOrder<IKestIO_3>(
        &IKestIO_3::DiscardClientPayload, &IKestIO_3::GetCopyInfo, &IKestIO_3::GetMoveInfo,
        &IKestIO_3::GetRawUrl, &IKestIO_3::GetRemoteAddress, &IKestIO_3::GetRemoteHost,
        &IKestIO_3::GetUrl, &IKestIO_3::GetUrlArguments, &IKestIO_3::GetRequestHeader,
        &IKestIO_3::GetRequestMethod, &IKestIO_3::GetReplyHeader, &IKestIO_3::GetUserAgent,
        &IKestIO_3::IsClientPayloadAvailable, &IKestIO_3::ReadClientPayload, &IKestIO_3::PutString,
        &IKestIO_3::SendHeader, &IKestIO_3::SetRequestHeader, &IKestIO_3::SetReplyHeader,
        &IKestIO_3::Working, &IKestIO_3::Write, &IKestIO_3::AllocMemory, &IKestIO_3::GetRawHeaders,
        &IKestIO_3::GetHostname, &IKestIO_3::GetPort, &IKestIO_3::GetProtocolName);
}

TEST(Slots, IKestIO_5)
{
    ExpectOrder<IKestIO_5>(
        &IKestIO_5::DiscardClientPayload, &IKestIO_5::GetCopyInfo, &IKestIO_5::GetMoveInfo,
        &IKestIO_5::GetRawUrl, &IKestIO_5::GetRemoteAddress, &IKestIO_5::GetRemoteHost,
        &IKestIO_5::GetUrl, &IKestIO_5::GetUrlArguments, &IKestIO_5::GetRequestHeader,
        &IKestIO_5::GetRequestMethod, &IKestIO_5::GetReplyHeader, &IKestIO_5::GetUserAgent,
        &IKestIO_5::IsClientPayloadAvailable, &IKestIO_5::ReadClientPayload, &IKestIO_5::PutString,
        &IKestIO_5::SendHeader, &IKestIO_5::SetRequestHeader, &IKestIO_5::SetReplyHeader,
        &IKestIO_5::Working, &IKestIO_5::Write, &IKestIO_5::AllocMemory, &IKestIO_5::GetRawHeaders,
        &IKestIO_5::GetHostname, &IKestIO_5::GetPort, &IKestIO_5::GetProtocolName,
        &IKestIO_5::SetCustomError, &IKestIO_5::GetAuthRealm, &IKestIO_5::IsSecure);
}

TEST(Slots, IKestReq_2)
{
    ExpectOrder<IKestReq_2>(&IKestReq_2::ModuleInit, &IKestReq_2::RequestHandler);
}

TEST(Slots, IKestDAV)
{
    ExpectOrder<IKestDAV>(&IKestDAV::Copy, &IKestDAV::Delete, &IKestDAV::BeginSession,
                          &IKestDAV::EndSession, &IKestDAV::GetDAVSupport,
                          &IKestDAV::GetMultiStatus, &IKestDAV::GetType, &IKestDAV::Janitor,
                          &IKestDAV::Lock, &IKestDAV::LockRefresh, &IKestDAV::Unlock,
                          &IKestDAV::MkCol, &IKestDAV::Move, &IKestDAV::IoctlRequest);
}

TEST(Slots, IKestDAV2)
{
    ExpectOrder<IKestDAV2>(&IKestDAV2::Copy, &IKestDAV2::Delete, &IKestDAV2::BeginSession,
                           &IKestDAV2::EndSession, &IKestDAV2::GetDAVSupport,
                           &IKestDAV2::GetMultiStatus, &IKestDAV2::GetType, &IKestDAV2::Lock,
                           &IKestDAV2::LockRefresh, &IKestDAV2::Unlock, &IKestDAV2::MkCol,
                           &IKestDAV2::Move, &IKestDAV2::IoctlRequest);
}

TEST(Slots, IKestDAVResource)
{
    ExpectOrder<IKestDAVResource>(
        &IKestDAVResource::Associate, &IKestDAVResource::GetFirstLock,
        &IKestDAVResource::GetNextLock, &IKestDAVResource::GetFirstProperty,
        &IKestDAVResource::GetNextProperty, &IKestDAVResource::GetCreationDate,
        &IKestDAVResource::GetDisplayName, &IKestDAVResource::GetETag,
        &IKestDAVResource::GetModificationDate, &IKestDAVResource::GetNamedProperty,
        &IKestDAVResource::GetResourceSize, &IKestDAVResource::Read,
        &IKestDAVResource::SetNamedProperty, &IKestDAVResource::Write,
        &IKestDAVResource::SetCreationDate, &IKestDAVResource::SetModificationDate,
        &IKestDAVResource::GetLiveAttributes, &IKestDAVResource::SetLiveAttributes);
}

TEST(Slots, IKestDAVResource2)
{
    ExpectOrder<IKestDAVResource2>(
        &IKestDAVResource2::Associate, &IKestDAVResource2::GetFirstLock,
        &IKestDAVResource2::GetNextLock, &IKestDAVResource2::GetFirstProperty,
        &IKestDAVResource2::GetNextProperty, &IKestDAVResource2::GetCreationDate,
        &IKestDAVResource2::GetDisplayName, &IKestDAVResource2::GetETag,
        &IKestDAVResource2::GetModificationDate, &IKestDAVResource2::GetNamedProperty,
        &IKestDAVResource2::GetResourceSize, &IKestDAVResource2::Read,
        &IKestDAVResource2::SetNamedProperty, &IKestDAVResource2::Write,
        &IKestDAVResource2::SetCreationDate, &IKestDAVResource2::SetModificationDate,
        &IKestDAVResource2::GetLiveAttributes, &IKestDAVResource2::SetLiveAttributes,
        &IKestDAVResource2::IoctlRequest, &IKestDAVResource2::SetNamedPropertyEnh);
}

TEST(Slots, IKestDAVCollection)
{
    ExpectOrder<IKestDAVCollection>(
        &IKestDAVCollection::Associate, &IKestDAVCollection::GetFirstChild,
        &IKestDAVCollection::GetNextChild, &IKestDAVCollection::GetCreationDate,
        &IKestDAVCollection::GetDisplayName, &IKestDAVCollection::GetETag,
        &IKestDAVCollection::GetFirstLock, &IKestDAVCollection::GetNextLock,
        &IKestDAVCollection::GetModificationDate, &IKestDAVCollection::SetCreationDate,
        &IKestDAVCollection::SetModificationDate, &IKestDAVCollection::GetLiveAttributes,
        &IKestDAVCollection::SetLiveAttributes);
}

TEST(Slots, IKestDAVCollection2)
{
    ExpectOrder<IKestDAVCollection2>(
        &IKestDAVCollection2::Associate, &IKestDAVCollection2::GetFirstChild,
        &IKestDAVCollection2::GetNextChild, &IKestDAVCollection2::GetCreationDate,
        &IKestDAVCollection2::GetDisplayName, &IKestDAVCollection2::GetETag,
        &IKestDAVCollection2::GetFirstLock, &IKestDAVCollection2::GetNextLock,
        &IKestDAVCollection2::GetModificationDate, &IKestDAVCollection2::SetCreationDate,
        &IKestDAVCollection2::SetModificationDate, &IKestDAVCollection2::GetLiveAttributes,
        &IKestDAVCollection2::SetLiveAttributes, &IKestDAVCollection2::IoctlRequest,
        &IKestDAVCollection2::GetFirstProperty, &IKestDAVCollection2::GetNextProperty,
        &IKestDAVCollection2::GetNamedProperty, &IKestDAVCollection2::SetNamedPropertyEnh);
}

TEST(Slots, IKestDAV3)
{
    ExpectOrder<IKestDAV3>(&IKestDAV3::GetInfo, &IKestDAV3::Judge, &IKestDAV3::MakeCollection,
                           &IKestDAV3::Delete, &IKestDAV3::Copy, &IKestDAV3::Move,
                           &IKestDAV3::PatchProperties, &IKestDAV3::GetProperties, &IKestDAV3::Lock,
                           &IKestDAV3::RefreshLock, &IKestDAV3::Unlock, &IKestDAV3::GetLocks,
                           &IKestDAV3::GetQuota);
}

TEST(Slots, IKestDAVResource3)
{
    ExpectOrder<IKestDAVResource3>(&IKestDAVResource3::Open, &IKestDAVResource3::Read,
                                   &IKestDAVResource3::Write, &IKestDAVResource3::SetLength,
                                   &IKestDAVResource3::Publish);
}

TEST(Slots, IKestDAVCollection3)
{
    ExpectOrder<IKestDAVCollection3>(&IKestDAVCollection3::Open, &IKestDAVCollection3::GetMembers);
}

TEST(Slots, IKestDAVFailures3)
{
    ExpectOrder<IKestDAVFailures3>(&IKestDAVFailures3::OnFailure);
}

TEST(Slots, IKestConfig)
{
    ExpectOrder<IKestConfig>(&IKestConfig::SetLocation, &IKestConfig::GetHostname,
                             &IKestConfig::GetLocation, &IKestConfig::GetPort,
                             &IKestConfig::GetSessionTimeout, &IKestConfig::GetProxyInformation,
                             &IKestConfig::EnumAuthenticationDomains,
                             &IKestConfig::EnumDomainContexts, &IKestConfig::SetProxyCredentials);
}

TEST(Slots, IKestUtil)
{
    ExpectOrder<IKestUtil>(&IKestUtil::SystemTimeTo8601Time, &IKestUtil::SystemTimeToHttpTime,
                           &IKestUtil::HttpTimeToSystemTime, &IKestUtil::SystemTimeToTime_t,
                           &IKestUtil::SystemTimeToTm, &IKestUtil::Time_tToSystemTime,
                           &IKestUtil::EscapeUri, &IKestUtil::EscapeUnicodeUri,
                           &IKestUtil::GetMimeTypeFromUnicodeObject,
                           &IKestUtil::GetMimeTypeFromUTF8Object, &IKestUtil::UnescapeUri,
                           &IKestUtil::MapPlatformErrorToTalStatus);
}

TEST(Slots, IEvent)
{
    ExpectOrder<IEvent>(&IEvent::RegisterEventHandlerIf, &IEvent::DeRegisterEventHandlerIf,
                        &IEvent::PublishEvent);
}

TEST(Slots, IEventHandler)
{
    ExpectOrder<IEventHandler>(&IEventHandler::ConsumeEvent);
}

TEST(Slots, ISA)
{
    ExpectOrder<ISA>(&ISA::SARegisterAttribute, &ISA::SADeregisterAttribute, &ISA::SACreate,
                     &ISA::SADelete, &ISA::SAReference, &ISA::SADereference, &ISA::SAGetSCHandle,
                     &ISA::SAEnumerate, &ISA::SAAcquire, &ISA::SARelease);
}

TEST(Slots, ISCOM)
{
    ExpectOrder<ISCOM>(&ISCOM::Initialize, &ISCOM::CreateObject, &ISCOM::DeleteObject,
                       &ISCOM::ReferenceObjectByHandle, &ISCOM::DereferenceObject,
                       &ISCOM::EnumerateObjects, &ISCOM::GetObjectHandle, &ISCOM::FindObject,
                       &ISCOM::AcquireObject, &ISCOM::ReleaseObject, &ISCOM::IncrementReference,
                       &ISCOM::DecrementReference, &ISCOM::GetObjectSecurityContext,
                       &ISCOM::AllocateObject, &ISCOM::DeallocateObject, &ISCOM::OpenObject,
                       &ISCOM::GetObjectStats);
}

TEST(Slots, IKestSession)
{
    ExpectOrder<IKestSession>(&IKestSession::Associate, &IKestSession::GetPrimaryCredentials);
}

TEST(Slots, IKestDigest)
{
    ExpectOrder<IKestDigest>(&IKestDigest::Begin, &IKestDigest::Add, &IKestDigest::Finish);
}

TEST(Slots, IKestAccess)
{
    ExpectOrder<IKestAccess>(&IKestAccess::IsRestricted, &IKestAccess::GetRights,
                             &IKestAccess::GetMemberRights, &IKestAccess::GetRightsBelow,
                             &IKestAccess::ReportDenied);
}

TEST(Slots, IKestCallContext)
{
    ExpectOrder<IKestCallContext>(
        &IKestCallContext::GetRequest, &IKestCallContext::GetMethod,
        &IKestCallContext::IsBodyComplete, &IKestCallContext::ReportFailure,
        &IKestCallContext::IsCancelled, &IKestCallContext::SetAttachment,
        &IKestCallContext::GetAttachment, &IKestCallContext::GetConditions);
}

TEST(Slots, IDirectory)
{
    ExpectOrder<IDirectory>(&IDirectory::Open);
}

TEST(Slots, IDirectoryObject)
{
    ExpectOrder<IDirectoryObject>(&IDirectoryObject::ReadAttribute);
}

TEST(Slots, IReadAttrResults)
{
    ExpectOrder<IReadAttrResults>(&IReadAttrResults::NextValue);
}

TEST(Slots, ITalplFaultInjection)
{
    ExpectOrder<ITalplFaultInjection>(&ITalplFaultInjection::FailAllocation,
                                      &ITalplFaultInjection::GetAllocationCount);
}

} // namespace
