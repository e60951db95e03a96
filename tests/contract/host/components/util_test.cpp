// SPDX-License-Identifier: Apache-2.0
//
// IKestUtil by slot.
#include "tests/contract/host/components/classes.h"

#include <array>
#include <cerrno>
#include <cstring>

namespace kestd {
namespace {

class Utilities : public HostClasses {
  protected:
    void SetUp() override
    {
        HostClasses::SetUp();
        util_ = Make(CLSID_KestUtil, IID_KestUtil_1);
    }
    void TearDown() override
    {
        Release(util_);
        HostClasses::TearDown();
    }
    static STRING Over(const char* text)
    {
        return {static_cast<UINT16>(std::strlen(text)), static_cast<UINT16>(std::strlen(text)),
                const_cast<char*>(text)};
    }
    // Calls an operation that writes text, with this much room; "code N" for a failure.
    template <class In> std::string Text(size_t slot, In* in, UINT16 room = 128)
    {
        buffer_.fill('?');
        STRING out{0, room, buffer_.data()};
        return Told(Call(util_, slot, in, &out), out, room);
    }
    std::string Told(TALSTATUS status, const STRING& out, UINT16 room)
    {
        EXPECT_EQ(buffer_[room], '?'); // nothing behind the room
        if (Failed(status))
            return "code " + std::to_string(Code(status));
        EXPECT_EQ(out.Buffer[out.Length], '\0');
        return {out.Buffer, out.Length};
    }

    void* util_ = nullptr;
    std::array<char, 256> buffer_{};
};

constexpr UINT64 kExample = (784111777ULL + 11644473600ULL) * 10'000'000;

TEST_F(Utilities, DatesAreWritten)
{
    UINT64 time = kExample;
    EXPECT_EQ(Text(3, &time), "1994-11-06T08:49:37Z");
    EXPECT_EQ(Text(4, &time), "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(Text(3, &time, 21), "1994-11-06T08:49:37Z");
    EXPECT_EQ(Text(3, &time, 20), "code 7");
    EXPECT_EQ(Text(4, &time, 30), "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(Text(4, &time, 29), "code 7");
    EXPECT_EQ(Text(4, &time, 0), "code 7");
    UINT64 late = ~UINT64{0};
    EXPECT_EQ(Text(4, &late), "code 4");
}

TEST_F(Utilities, DatesAreRead)
{
    for (const char* text : {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT",
                             "Sun Nov  6 08:49:37 1994"}) {
        STRING in = Over(text);
        UINT64 time = 0;
        EXPECT_EQ(Call(util_, 5, &in, &time), 0U) << text;
        EXPECT_EQ(time, kExample) << text;
    }
    STRING wrong = Over("yesterday");
    UINT64 time = 7;
    EXPECT_EQ(Code(Call(util_, 5, &wrong, &time)), kCodeInvalidRequest);
    EXPECT_EQ(time, 7U);
}

TEST_F(Utilities, TimesAreConverted)
{
    UINT64 time = kExample;
    time_t seconds = 0;
    EXPECT_EQ(Call(util_, 6, &time, &seconds), 0U);
    EXPECT_EQ(seconds, 784111777);
    struct tm calendar {};
    EXPECT_EQ(Call(util_, 7, &time, &calendar), 0U);
    EXPECT_EQ(calendar.tm_year, 94);
    EXPECT_EQ(calendar.tm_hour, 8);
    UINT64 back = 0;
    EXPECT_EQ(Call(util_, 8, seconds, &back), 0U);
    EXPECT_EQ(back, kExample);
    EXPECT_EQ(Code(Call(util_, 8, time_t{-20000000000}, &back)), kCodeInvalidParameter);
}

TEST_F(Utilities, UrisAreEscapedAndUnescaped)
{
    STRING plain = Over("/a b/\xC3\xA9~");
    EXPECT_EQ(Text(9, &plain), "/a%20b/%C3%A9~");
    EXPECT_EQ(Text(9, &plain, 15), "/a%20b/%C3%A9~");
    EXPECT_EQ(Text(9, &plain, 14), "code 7");
    char16_t wide[] = u"/\u00e9\U0001F600";
    UNICODE_STRING in{8, 8, wide};
    STRING out{0, 128, buffer_.data()};
    buffer_.fill('?');
    EXPECT_EQ(Told(Call(util_, 10, &in, UINT32{0}, &out), out, 128), "/%C3%A9%F0%9F%98%80");
    UNICODE_STRING half{6, 6, wide}; // ends within a pair
    EXPECT_EQ(Code(Call(util_, 10, &half, UINT32{0}, &out)), kCodeInvalidRequest);
    STRING escaped = Over("/a%20b%2F%c3%A9");
    EXPECT_EQ(Text(13, &escaped), "/a b/\xC3\xA9");
    for (const char* text : {"%", "%4", "%zz", "%00"}) {
        STRING wrong = Over(text);
        EXPECT_EQ(Text(13, &wrong), "code 16") << text;
    }
    STRING empty{};
    EXPECT_EQ(Text(9, &empty), "");
}

TEST_F(Utilities, MimeTypesAreFound)
{
    char16_t name[] = u"/vol/Photo.JPG";
    UNICODE_STRING wide{28, 28, name};
    char* type = nullptr;
    EXPECT_EQ(Call(util_, 11, &wide, &type), 0U);
    EXPECT_STREQ(type, "image/jpeg");
    STRING narrow = Over("index.html");
    char* second = nullptr;
    EXPECT_EQ(Call(util_, 12, &narrow, &second), 0U);
    EXPECT_STREQ(second, "text/html");
    STRING none = Over("README");
    EXPECT_EQ(Code(Call(util_, 12, &none, &second)), kCodeNotFound);
    EXPECT_STREQ(type, "image/jpeg"); // static
}

TEST_F(Utilities, PlatformErrorsAreMapped)
{
    EXPECT_EQ(Call(util_, 14, UINT32{0}), 0U);
    EXPECT_EQ(Code(Call(util_, 14, UINT32{ENOENT})), kCodeNotFound);
    EXPECT_EQ(Code(Call(util_, 14, UINT32{ENOSPC})), kCodeStorageFull);
    EXPECT_EQ(Code(Call(util_, 14, UINT32{EACCES})), kCodeAccessDenied);
    EXPECT_EQ(Code(Call(util_, 14, UINT32{ENAMETOOLONG})), kCodeNameTooLong);
    EXPECT_EQ(Code(Call(util_, 14, UINT32{99999})), kCodeUnsuccessful);
}

TEST_F(Utilities, NullArguments_AreRefused)
{
    UINT64 time = 0;
    STRING out{0, 8, nullptr};
    EXPECT_EQ(Code(Call(util_, 3, &time, static_cast<STRING*>(nullptr))), kCodeInvalidParameter);
    EXPECT_EQ(Code(Call(util_, 3, &time, &out)), kCodeInvalidParameter);
    EXPECT_EQ(Code(Call(util_, 4, static_cast<UINT64*>(nullptr), &out)), kCodeInvalidParameter);
    EXPECT_EQ(Code(Call(util_, 5, static_cast<STRING*>(nullptr), &time)), kCodeInvalidParameter);
    EXPECT_EQ(Code(Call(util_, 9, &out, &out)), kCodeInvalidParameter);
    EXPECT_EQ(Code(Call(util_, 12, &out, static_cast<char**>(nullptr))), kCodeInvalidParameter);
}

} // namespace
} // namespace kestd
