// SPDX-License-Identifier: Apache-2.0
//
// The request as a module sees it.
#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

using Io = ServerTest;

TEST_F(Io, RequestHeadersFollowTheLengthRules)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        char name[] = "RANGE";
        char small[9] = {};
        UINT32 length = 9;
        EXPECT_EQ(Code(io.GetRequestHeader(name, &length, small)), kCodeBufferTooSmall);
        EXPECT_EQ(length, 10u);
        EXPECT_EQ(std::string_view(small, sizeof small), "bytes=0-1") << "its first bytes";
        char exact[10];
        length = sizeof exact;
        EXPECT_EQ(io.GetRequestHeader(name, &length, exact), TAL_STATUS_SUCCESS);
        EXPECT_EQ(length, 9u);
        EXPECT_STREQ(exact, "bytes=0-1");
        char missing[] = "Missing";
        length = sizeof exact;
        EXPECT_EQ(Code(io.GetRequestHeader(missing, &length, exact)), kCodeNotFound);
        EXPECT_EQ(Header(io, "X-ONE"), "1, 2");
        char one[] = "x-One";
        char three[] = "three";
        EXPECT_EQ(io.SetRequestHeader(one, 5, three), TAL_STATUS_SUCCESS);
        EXPECT_EQ(Header(io, "X-One"), "three");
        return io.SendHeader(200);
    };
    const Running running = Start();
    EXPECT_EQ(Ask(kGetWithFields).status, 200);
}

TEST_F(Io, RequestIsDescribed)
{
    module.handler = [](IKestIO_5& io, UINT32 method) {
        EXPECT_EQ(method, 0u);
        UINT32 number = 99;
        EXPECT_EQ(io.GetRequestMethod(&number), TAL_STATUS_SUCCESS);
        EXPECT_EQ(number, 0u);
        UNICODE_STRING* arguments = nullptr;
        EXPECT_EQ(io.GetUrlArguments(nullptr, &arguments), TAL_STATUS_SUCCESS);
        EXPECT_EQ(std::u16string_view(arguments->Buffer, arguments->Length / 2), u"x=%20y");
        STRING* raw = nullptr;
        EXPECT_EQ(io.GetRawUrl(&raw), TAL_STATUS_SUCCESS);
        EXPECT_EQ(std::string_view(raw->Buffer, raw->Length), "/Ferro/a");
        WCHAR units[64];
        UNICODE_STRING address{0, sizeof units, units};
        EXPECT_EQ(io.GetRemoteAddress(&address), TAL_STATUS_SUCCESS);
        EXPECT_EQ(std::u16string_view(units, address.Length / 2), u"127.0.0.1");
        UNICODE_STRING tight{0, 4, units};
        EXPECT_EQ(Code(io.GetRemoteHost(&tight)), kCodeBufferTooSmall);
        UINT32 kind = 9;
        EXPECT_EQ(io.GetUserAgent(&kind), TAL_STATUS_SUCCESS);
        EXPECT_EQ(kind, 1u);
        UINT8* lines = nullptr;
        EXPECT_EQ(io.GetRawHeaders(&lines), TAL_STATUS_SUCCESS);
        EXPECT_STREQ(reinterpret_cast<char*>(lines),
                     "Host: h:81\r\nAccept: text/html\r\nX-One: 1\r\nx-one: 2\r\n"
                     "Range: bytes=0-1\r\n");
        char realm[32];
        UINT32 length = sizeof realm;
        EXPECT_EQ(io.GetAuthRealm(&length, realm), TAL_STATUS_SUCCESS);
        EXPECT_STREQ(realm, "Kest");
        EXPECT_FALSE(io.IsSecure());
        UINT32 available = 9;
        EXPECT_EQ(io.IsClientPayloadAvailable(&available), TAL_STATUS_SUCCESS);
        EXPECT_EQ(available, 0u);
        EXPECT_EQ(io.Working(), TAL_STATUS_SUCCESS);
        EXPECT_NE(io.AllocMemory(100000), nullptr);
        EXPECT_EQ(io.AllocMemory(0xFFFFFFFF), nullptr);
        BOOLEAN overwrite = 0;
        UNICODE_STRING* destination = nullptr;
        EXPECT_TRUE(Failed(io.GetMoveInfo(&overwrite, &destination)));
        return io.SendHeader(200);
    };
    const Running running = Start();
    EXPECT_EQ(Ask(kGetWithFields).status, 200);
}

TEST_F(Io, NullArgumentsAreRefused)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        char name[] = "Host";
        EXPECT_TRUE(Failed(io.GetUrl(nullptr, nullptr)));
        EXPECT_TRUE(Failed(io.GetUrlArguments(nullptr, nullptr)));
        EXPECT_TRUE(Failed(io.GetRawUrl(nullptr)));
        EXPECT_TRUE(Failed(io.GetRequestHeader(nullptr, nullptr, nullptr)));
        EXPECT_TRUE(Failed(io.GetRequestHeader(name, nullptr, nullptr)));
        UINT32 length = 100;
        EXPECT_EQ(Code(io.GetRequestHeader(name, &length, nullptr)), kCodeBufferTooSmall);
        EXPECT_EQ(length, 5u);
        EXPECT_TRUE(Failed(io.GetReplyHeader(nullptr, &length, nullptr)));
        EXPECT_TRUE(Failed(io.SetReplyHeader(nullptr, 0, nullptr)));
        EXPECT_TRUE(Failed(io.SetReplyHeader(name, 3, nullptr)));
        EXPECT_TRUE(Failed(io.SetRequestHeader(nullptr, 0, nullptr)));
        EXPECT_TRUE(Failed(io.PutString(nullptr)));
        EXPECT_TRUE(Failed(io.Write(1, nullptr)));
        EXPECT_TRUE(Failed(io.ReadClientPayload(1, nullptr, nullptr)));
        EXPECT_TRUE(Failed(io.GetRawHeaders(nullptr)));
        EXPECT_TRUE(Failed(io.GetUserAgent(nullptr)));
        EXPECT_TRUE(Failed(io.GetRequestMethod(nullptr)));
        EXPECT_TRUE(Failed(io.IsClientPayloadAvailable(nullptr)));
        EXPECT_TRUE(Failed(io.GetRemoteAddress(nullptr)));
        EXPECT_TRUE(Failed(io.SetCustomError(404, nullptr)));
        EXPECT_TRUE(Failed(io.QueryInterface(&IID_KestIO_3, nullptr)));
        return io.SendHeader(200);
    };
    const Running running = Start();
    EXPECT_EQ(Ask(kGetWithFields).status, 200);
}

TEST_F(Io, OlderInterfaceIsOffered)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        void* out = nullptr;
        EXPECT_EQ(io.QueryInterface(&IID_KestIO_3, &out), TAL_STATUS_SUCCESS);
        auto* older = static_cast<IKestIO_3*>(out);
        char name[8];
        UINT32 length = sizeof name;
        EXPECT_EQ(older->GetProtocolName(&length, name), TAL_STATUS_SUCCESS);
        EXPECT_STREQ(name, "http");
        EXPECT_EQ(older->Release(), 1u);
        EXPECT_EQ(Code(io.QueryInterface(&IID_IDirectory_1, &out)), kCodeNoInterface);
        EXPECT_EQ(out, nullptr);
        return io.SendHeader(200);
    };
    const Running running = Start();
    EXPECT_EQ(Ask(kGetWithFields).status, 200);
}

} // namespace

} // namespace kestd::test
