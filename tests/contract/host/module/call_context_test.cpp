// SPDX-License-Identifier: Apache-2.0
//
// What components may ask about the running request, and tie to it.
#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

class Context : public ServerTest {
  protected:
    static IKestCallContext* Get()
    {
        void* out = nullptr;
        EXPECT_EQ(CallContextFactory()->CreateInstance(nullptr, &IID_KestCallContext_1, &out),
                  TAL_STATUS_SUCCESS);
        return static_cast<IKestCallContext*>(out);
    }
};

TEST_F(Context, NamesTheRunningCallAndNoOther)
{
    IKestIO_5* request = nullptr;
    UINT32 method = 0;
    BOOLEAN complete = 0;
    EXPECT_EQ(Code(Get()->GetRequest(&request)), kCodeNotFound);
    EXPECT_EQ(Code(Get()->GetMethod(&method)), kCodeNotFound);
    EXPECT_EQ(Code(Get()->IsBodyComplete(&complete)), kCodeNotFound);
    EXPECT_EQ(Code(Get()->ReportFailure(TAL_STATUS_UNSUCCESSFUL)), kCodeNotFound);
    module.handler = [](IKestIO_5& io, UINT32 number) {
        IKestIO_5* current = nullptr;
        UINT32 itsMethod = 99;
        BOOLEAN isComplete = 0;
        EXPECT_EQ(Get()->GetRequest(&current), TAL_STATUS_SUCCESS);
        EXPECT_EQ(current, &io);
        EXPECT_EQ(Get()->GetMethod(&itsMethod), TAL_STATUS_SUCCESS);
        EXPECT_EQ(itsMethod, number);
        EXPECT_EQ(Get()->IsBodyComplete(&isComplete), TAL_STATUS_SUCCESS);
        EXPECT_TRUE(isComplete);
        return io.SendHeader(200);
    };
    const Running running = Start();
    EXPECT_EQ(Ask(kGetWithFields).status, 200);
}

// Counts its references; whoever made it owns one.
class Counted final : public IUnknown {
  public:
    TALSTATUS QueryInterface(const GUID*, void** out) override
    {
        *out = nullptr;
        return TAL_STATUS_NOT_SUPPORTED;
    }
    UINT32 AddRef() override { return ++references; }
    UINT32 Release() override { return --references; }
    std::atomic<UINT32> references{1};
};

TEST_F(Context, AttachedObjectsBelongToTheRequestAndGoWithIt)
{
    constexpr GUID kFirst{1, 2, 3, {4}};
    constexpr GUID kSecond{5, 6, 7, {8}};
    Counted first;
    Counted second;
    module.handler = [&](IKestIO_5& io, UINT32) {
        IUnknown* found = &second;
        EXPECT_EQ(Get()->GetAttachment(&kFirst, &found), TAL_STATUS_SUCCESS);
        EXPECT_EQ(found, nullptr) << "left by the request before";
        EXPECT_EQ(Get()->SetAttachment(&kFirst, &first), TAL_STATUS_SUCCESS);
        EXPECT_EQ(Get()->SetAttachment(&kSecond, &second), TAL_STATUS_SUCCESS);
        EXPECT_EQ(Get()->GetAttachment(&kFirst, &found), TAL_STATUS_SUCCESS);
        EXPECT_EQ(found, &first);
        EXPECT_EQ(Get()->SetAttachment(&kFirst, &second), TAL_STATUS_SUCCESS) << "in its place";
        EXPECT_EQ(first.references, 1u);
        EXPECT_EQ(second.references, 3u);
        EXPECT_EQ(Get()->SetAttachment(&kFirst, nullptr), TAL_STATUS_SUCCESS);
        EXPECT_EQ(second.references, 2u);
        return io.SendHeader(200);
    };
    for (int i = 0; i < 2; ++i) {
        const Running running = Start();
        EXPECT_EQ(Ask(kGetWithFields).status, 200);
        Stop(); // the handler releases them after its reply
        EXPECT_EQ(first.references, 1u);
        EXPECT_EQ(second.references, 1u);
    }
}

TEST_F(Context, AttachmentsAreBoundedAndCheckTheirArguments)
{
    Counted object;
    module.handler = [&](IKestIO_5& io, UINT32) {
        GUID key{};
        for (key.Data1 = 1; key.Data1 <= 8; ++key.Data1)
            EXPECT_EQ(Get()->SetAttachment(&key, &object), TAL_STATUS_SUCCESS);
        EXPECT_EQ(Code(Get()->SetAttachment(&key, &object)), kCodeInsufficientResources);
        EXPECT_EQ(object.references, 9u);
        IUnknown* found = nullptr;
        EXPECT_EQ(Code(Get()->SetAttachment(nullptr, &object)), kCodeInvalidParameter);
        EXPECT_EQ(Code(Get()->GetAttachment(nullptr, &found)), kCodeInvalidParameter);
        EXPECT_EQ(Code(Get()->GetAttachment(&key, nullptr)), kCodeInvalidParameter);
        EXPECT_EQ(Code(Get()->IsCancelled(nullptr)), kCodeInvalidParameter);
        return io.SendHeader(200);
    };
    const Running running = Start();
    EXPECT_EQ(Ask(kGetWithFields).status, 200);
    GUID key{};
    IUnknown* found = nullptr;
    BOOLEAN cancelled = TRUE;
    EXPECT_EQ(Code(Get()->SetAttachment(&key, &object)), kCodeNotFound) << "no request runs here";
    EXPECT_EQ(Code(Get()->GetAttachment(&key, &found)), kCodeNotFound);
    EXPECT_EQ(Code(Get()->IsCancelled(&cancelled)), kCodeNotFound);
    EXPECT_FALSE(cancelled);
    server->Stop(); // the handler releases the object after its reply
    EXPECT_EQ(object.references, 1u);
}

TEST_F(Context, LateFailureTakesThePlaceOfASuccess)
{
    int moment = 0;
    module.handler = [&](IKestIO_5& io, UINT32) {
        const TALSTATUS full = MakeStatus(kFacilityFileStore, kCodeStorageFull);
        SetHeader(io, "ETag", "\"1\"");
        if (moment == 0)
            Get()->ReportFailure(full);
        io.SendHeader(moment == 3 ? 404 : 201);
        if (moment == 1)
            Get()->ReportFailure(full);
        Write(io, "done");
        if (moment == 2 || moment == 3)
            Get()->ReportFailure(full);
        if (moment == 4)
            Get()->ReportFailure(TAL_STATUS_INFO_END_OF_FILE); // no failure
        return TAL_STATUS_SUCCESS;
    };
    const Running running = Start();
    for (; moment < 3; ++moment) {
        const Answer answer = Ask(kGetWithFields);
        EXPECT_EQ(answer.status, 507) << moment;
        EXPECT_EQ(answer.Header("ETag"), "(none)");
        EXPECT_EQ(answer.body, "507 Insufficient Storage\n");
    }
    EXPECT_EQ(Ask(kGetWithFields).status, 507); // what could not be looked at is not missing
    ++moment;
    EXPECT_EQ(Ask(kGetWithFields).status, 201);
}

} // namespace

} // namespace kestd::test
