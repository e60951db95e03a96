// SPDX-License-Identifier: Apache-2.0
#include <string>

#include <gtest/gtest.h>

#include "io.h"
#include "platform.h"
#include "support/lock_header.h"
#include "support/uri.h"

namespace {

std::u16string Convert(std::u16string text)
{
    const auto bytes = static_cast<UINT16>(text.size() * sizeof(WCHAR));
    UNICODE_STRING in = {bytes, bytes, text.data()};
    std::u16string out(text.size() + 1, u'?');
    UNICODE_STRING result = {0, static_cast<UINT16>(out.size() * sizeof(WCHAR)), out.data()};
    EXPECT_EQ(ConvertUriToDavStoreUri(&in, &result), TAL_STATUS_SUCCESS);
    EXPECT_EQ(out[result.Length / sizeof(WCHAR)], 0) << "terminated";
    return out.substr(0, result.Length / sizeof(WCHAR));
}

TEST(ConvertUriToDavStoreUri, DecodesItsEscapes)
{
    EXPECT_EQ(Convert(u"%20%21%22%23%24%25%26%27%28%29%2B%2C%2F%3A%3B%40%5E%60"),
              u" !\"#$%&'()+,/:;@^`");
}

TEST(ConvertUriToDavStoreUri, LeavesEverythingElse)
{
    for (const char16_t* text :
         {u"/plain/path", u"%2b", u"%2c%2f", u"%41", u"%00", u"%", u"%2", u"a%", u"a%2", u"%%",
          u"%zz", u"%2A", u"%3D", u"%7E", u"Grüße", u"+"})
        EXPECT_EQ(Convert(text), text);
}

TEST(ConvertUriToDavStoreUri, GoesOnBehindWhatItLeaves)
{
    EXPECT_EQ(Convert(u"%%20"), u"% ");
    EXPECT_EQ(Convert(u"%2%20"), u"%2 ");
    EXPECT_EQ(Convert(u"%2520"), u"%20") << "once";
    EXPECT_EQ(Convert(u"x%20"), u"x ");
}

TEST(ConvertUriToDavStoreUri, LooksAtNothingBehindItsLength)
{
    WCHAR text[] = u"a%20";
    UNICODE_STRING in = {6, sizeof text, text};
    WCHAR out[8] = {};
    UNICODE_STRING result = {0, sizeof out, out};
    ConvertUriToDavStoreUri(&in, &result);
    EXPECT_EQ(std::u16string(out, result.Length / sizeof(WCHAR)), u"a%2");
}

TEST(ConvertUriToDavStoreUri, EmptyStaysEmpty)
{
    EXPECT_EQ(Convert(u""), u"");
}

// As long as a case runs: the text is its own.
class ServedAtFerro {
  public:
    ServedAtFerro() { g_MonikerU = {12, 14, text_}; }
    ~ServedAtFerro() { g_MonikerU = before_; }
    ServedAtFerro(const ServedAtFerro&) = delete;
    ServedAtFerro& operator=(const ServedAtFerro&) = delete;

  private:
    const UNICODE_STRING before_ = g_MonikerU;
    WCHAR text_[7] = u"/Ferro";
};

TEST(ConvertPathUriToDavStoreUri, ConvertsTheRequestsPathBehindTheMoniker)
{
    harness::Recorder recorder;
    const harness::WatchedPlatform platform(recorder, nullptr);
    const ServedAtFerro moniker;
    WCHAR out[16];
    UNICODE_STRING result = {0, sizeof out, out};
    harness::ScriptedIo io(recorder, platform, harness::Request(0, "/Ferro/a%20b%2f"));
    EXPECT_EQ(ConvertPathUriToDavStoreUri(&io, &result), TAL_STATUS_SUCCESS);
    EXPECT_EQ(std::u16string(out, result.Length / sizeof(WCHAR)), u"/a b%2f");
    recorder.Fail("io.GetUrl", TAL_STATUS_INFO_END_OF_FILE);
    EXPECT_EQ(ConvertPathUriToDavStoreUri(&io, &result), TAL_STATUS_INFO_END_OF_FILE);
}

TEST(ProviderPath, CutsTheMonikersLength)
{
    const ServedAtFerro moniker;
    WCHAR text[] = u"/Other/vol";
    const UNICODE_STRING url = {20, 22, text};
    const UNICODE_STRING path = ProviderPath(url);
    EXPECT_EQ(std::u16string(path.Buffer, path.Length / sizeof(WCHAR)), u"/vol");
    EXPECT_EQ(path.MaximumLength, 10);
    const UNICODE_STRING shorter = {8, 8, text};
    EXPECT_EQ(ProviderPath(shorter).Length, 0);
    EXPECT_EQ(ProviderPath(shorter).Buffer, text + 4);
}

TEST(FindLockToken, StaysWithinItsText)
{
    EXPECT_EQ(FindLockToken("a:b>c", 5), "b");
    EXPECT_EQ(FindLockToken("a:b>c", 3), "b") << "ends with the text";
    EXPECT_EQ(FindLockToken("a:b>c", 2), "");
    EXPECT_NE(FindLockToken("a:b>c", 2).data(), nullptr);
    EXPECT_EQ(FindLockToken("abc", 3).data(), nullptr);
    EXPECT_EQ(FindLockToken("a\0:b>", 5).data(), nullptr) << "a NUL ends it";
}

} // namespace
