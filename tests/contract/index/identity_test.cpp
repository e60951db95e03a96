// SPDX-License-Identifier: Apache-2.0
//
// Who is signed in, and where a folder really lives.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <optional>

#include "referenced.h"
#include "site.h"
#include <kest/directory.h>

using harness::Counted;
using harness::ProviderFailure;
using harness::Recorder;
using harness::Wide;
using site::D;
using site::Site;
using testing::ElementsAre;

namespace {

// Counts how many of its kind live.
template <class I> class Object : public harness::Referenced<I> {
  public:
    explicit Object(int& live) : live_(live) { ++live_; }

  protected:
    ~Object() override { --live_; }

  private:
    int& live_;
};

// What the services know, and how often they were asked.
struct People {
    Recorder& recorder;
    std::u16string user = u"CN=admin.O=org";
    std::u16string domain = u"TREE";
    std::optional<std::u16string> mail = u"admin@example.org";
    int live = 0;
    SCHANDLE session{};
    std::string opened = {};
    UINT32 openFlags = 0;
};

class Session final : public Object<IKestSession> {
  public:
    explicit Session(People& people) : Object(people.live), people_(people) {}
    TALSTATUS Associate(SCHANDLE session) override
    {
        if (const auto status = people_.recorder.Enter("session.Associate"))
            return *status;
        people_.session = session;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS GetPrimaryCredentials(UNICODE_STRING** user, UNICODE_STRING** domain) override
    {
        if (const auto status = people_.recorder.Enter("session.GetPrimaryCredentials"))
            return *status;
        user_ = Counted(people_.user);
        domain_ = Counted(people_.domain);
        *user = &user_;
        *domain = &domain_;
        return TAL_STATUS_SUCCESS;
    }

  private:
    People& people_;
    UNICODE_STRING user_{};
    UNICODE_STRING domain_{};
};

class Values final : public Object<IReadAttrResults> {
  public:
    explicit Values(People& people) : Object(people.live), people_(people) {}
    TALSTATUS NextValue(UINT32* bytes, WCHAR** value) override
    {
        if (const auto status = people_.recorder.Enter("values.NextValue"))
            return *status;
        *bytes = static_cast<UINT32>(people_.mail->size() * sizeof(WCHAR));
        *value = people_.mail->data();
        return TAL_STATUS_SUCCESS;
    }

  private:
    People& people_;
};

class Entry final : public Object<IDirectoryObject> {
  public:
    explicit Entry(People& people) : Object(people.live), people_(people) {}
    TALSTATUS ReadAttribute(const WCHAR* attribute, const GUID* iid, void** out) override
    {
        *out = nullptr;
        if (const auto status =
                people_.recorder.Enter("entry.ReadAttribute", harness::Narrow(attribute)))
            return *status;
        EXPECT_EQ(*iid, IID_IDmReadAttributeResults_1);
        if (!people_.mail)
            return MakeStatus(kFacilityHost, kCodeNotFound);
        *out = static_cast<IReadAttrResults*>(new Values(people_));
        return TAL_STATUS_SUCCESS;
    }

  private:
    People& people_;
};

class Directory final : public Object<IDirectory> {
  public:
    explicit Directory(People& people) : Object(people.live), people_(people) {}
    TALSTATUS Open(const WCHAR* name, UINT32 flags, SCHANDLE, const GUID* iid, void** out) override
    {
        *out = nullptr;
        people_.opened = harness::Narrow(name);
        people_.openFlags = flags;
        if (const auto status = people_.recorder.Enter("directory.Open"))
            return *status;
        EXPECT_EQ(*iid, IID_IDirectoryObject_1);
        *out = static_cast<IDirectoryObject*>(new Entry(people_));
        return TAL_STATUS_SUCCESS;
    }

  private:
    People& people_;
};

// A site whose host knows people.
class PeopleSite : public Site {
  public:
    PeopleSite() : people{world.recorder}
    {
        world.Offer(CLSID_KestSrv, [this](const GUID& iid, void** out) -> TALSTATUS {
            if (const auto status = world.recorder.Enter("create.Session"))
                return *status;
            EXPECT_EQ(iid, IID_KestSession_1);
            *out = static_cast<IKestSession*>(new Session(people));
            return TAL_STATUS_SUCCESS;
        });
        world.Offer(CLSID_Directory_1, [this](const GUID& iid, void** out) -> TALSTATUS {
            if (const auto status = world.recorder.Enter("create.Directory"))
                return *status;
            EXPECT_EQ(iid, IID_IDirectory_1);
            *out = static_cast<IDirectory*>(new Directory(people));
            return TAL_STATUS_SUCCESS;
        });
    }
    ~PeopleSite()
    {
        EXPECT_EQ(people.live, 0) << "objects that were not released";
        world.ExpectAtRest();
    }

    People people;
};

// The answer to a reverse look-up.
harness::Provider* AnswerLookup(harness::Provider& provider, const std::u16string& path)
{
    provider.onIoctl = [path](const std::string&, UINT32 code, UINT32* size,
                              void* output) -> TALSTATUS {
        if (code != kIoctlReverseLookup)
            return ProviderFailure(kCodeNotImplemented);
        EXPECT_EQ(*size, 1024U);
        auto* bytes = static_cast<char*>(output);
        std::memset(bytes, 0xEE, *size);
        const UINT8 address[] = {192, 0, 2, 255};
        std::memcpy(bytes + 24, address, sizeof address);
        const size_t length = std::min<size_t>((path.size() + 1) * sizeof(WCHAR), *size - 52);
        std::memcpy(bytes + 52, path.c_str(), length);
        return TAL_STATUS_SUCCESS;
    };
    return &provider;
}

} // namespace

TEST(UserName, DirectoryName_IsPrintedFromItsLastComponent)
{
    const struct {
        const char* why;
        const char16_t* user;
        const char* shown;
    } rows[] = {
        {"typed", u"CN=admin.O=org", ".admin.org.TREE"},
        {"a leading dot", u".CN=admin.O=org", ".admin.org.TREE"},
        {"typeless", u"admin.org", ".admin.org.TREE"},
        {"an escaped dot", u"CN=a\\.b.O=c", ".a.b.c.TREE"},
        {"one component", u"admin", ".admin.TREE"},
        {"more equals signs", u"CN=a=b", ".a=b.TREE"},
        {"beyond ASCII", u"CN=J\u00fcrgen.O=\u20ac", ".J\u00fcrgen.\u20ac.TREE"},
    };
    PeopleSite site;
    for (const auto& row : rows) {
        site.people.user = row.user;
        EXPECT_EQ(site.Render(D("UserName")), row.shown) << row.why;
    }
    EXPECT_EQ(site.people.session.hId, harness::SessionHandle(1).hId);
}

TEST(UserName, NameThatDoesNotFit_PrintsNothing)
{
    PeopleSite site;
    const auto shown = [&](size_t user, size_t domain) {
        site.people.user = std::u16string(user, u'a');
        site.people.domain = std::u16string(domain, u'b');
        return site.Render("<" + D("UserName") + ">").size();
    };
    EXPECT_EQ(shown(254, 1), 2U) << "no room for the domain";
    EXPECT_EQ(shown(255, 1), 2U) << "510 bytes are too many";
    EXPECT_EQ(shown(253, 1), 2U + 255 + 1);
    EXPECT_EQ(shown(100, 154), 2U + 256);
    EXPECT_EQ(shown(100, 155), 2U);
    EXPECT_EQ(shown(0, 5), 2U) << "no name";
    EXPECT_EQ(shown(5, 0), 2U) << "no domain";
}

TEST(EmailAddress, FirstValueOfTheAttribute_IsPrinted)
{
    PeopleSite site;
    EXPECT_EQ(site.Render(D("EmailAddress")), "admin@example.org");
    EXPECT_EQ(site.people.opened, "\\\\TREE\\O=org\\CN=admin");
    EXPECT_EQ(site.people.openFlags, 1U);
    EXPECT_THAT(site.world.Calls({"entry."}),
                ElementsAre("entry.ReadAttribute(Internet EMail Address)"));
    site.people.mail = u"j\u00fcrgen@example.org";
    EXPECT_EQ(site.Render(D("EmailAddress")), "j\u00fcrgen@example.org");
}

TEST(EmailAddress, LengthOfTheBufferOrMore_GivesNone)
{
    PeopleSite site;
    const auto shown = [&](size_t units) {
        site.people.mail = std::u16string(units, u'm');
        return site.Render(D("EmailAddress")).size();
    };
    EXPECT_EQ(shown(2047), 2047U);
    EXPECT_EQ(shown(2048), 0U);
    EXPECT_EQ(shown(2049), 0U);
    EXPECT_EQ(shown(0), 0U);
    site.people.mail.reset();
    EXPECT_EQ(site.Render("<" + D("EmailAddress") + ">"), "<>");
}

TEST(Identity, EveryFailingStep_PrintsNothing)
{
    for (const char* call :
         {"create.Session", "session.Associate", "session.GetPrimaryCredentials"}) {
        PeopleSite site;
        site.world.recorder.FailAlways(call, MakeStatus(kFacilityHost, kCodeNotFound));
        EXPECT_EQ(site.Render("<" + D("UserName") + D("EmailAddress") + ">"), "<>") << call;
    }
    for (const char* call :
         {"create.Directory", "directory.Open", "entry.ReadAttribute", "values.NextValue"}) {
        PeopleSite site;
        site.world.Fail(call, MakeStatus(kFacilityHost, kCodeNotFound));
        EXPECT_EQ(site.Render("<" + D("EmailAddress") + ">"), "<>") << call;
    }
}

TEST(Identity, EveryAllocation_MayFail)
{
    bool whole = false;
    for (int n = 1; n < 100 && !whole; ++n) {
        PeopleSite site;
        AnswerLookup(site.world["vol"], u"X");
        site.Page(D("UserName") + D("EmailAddress") + D("DevicePath") + "end");
        site.world.Remember("/Ferro/vol");
        site.world.Fail("platform.TalxAllocPagedMemory", TAL_STATUS_INSUFFICIENT_RESOURCES, n);
        const harness::Reply reply = site.Get();
        whole = !site.world.recorder.FailureHappened();
        SCOPED_TRACE(n);
        if (reply.text.starts_with("200\n")) {
            EXPECT_THAT(reply.body, testing::EndsWith("end"));
        }
    }
    EXPECT_TRUE(whole);
}

TEST(Identity, HostWithoutTheseServices_PrintsNothing)
{
    Site site;
    EXPECT_EQ(site.Render("<" + D("UserName") + D("EmailAddress") + D("DevicePath") + ">"), "<>");
    site.world.ExpectAtRest();
}

TEST(DevicePath, Location_IsAddressAndVolumePath)
{
    const struct {
        const char16_t* path;
        const char* shown;
    } rows[] = {
        {u"VOL1\\users\\bob", "192.0.2.255:VOL1:users/bob"},
        {u"VOL1/users/bob", "192.0.2.255:VOL1:users/bob"},
        {u"\\srv\\docs", "192.0.2.255::srv/docs"},
        {u"VOL1", "192.0.2.255:VOL1"},
        {u"", "192.0.2.255:"},
        {u"V\u00f6l\\x", "192.0.2.255:V\u00f6l:x"},
    };
    for (const auto& row : rows) {
        Site site;
        AnswerLookup(site.world["vol"], row.path);
        EXPECT_EQ(site.Render(D("DevicePath")), row.shown);
        EXPECT_THAT(site.world.Calls({"vol.col.Associate"}),
                    ElementsAre("vol.col.Associate(/vol, token=null)"));
        site.world.ExpectAtRest();
    }
}

TEST(DevicePath, PathWithoutEnd_IsCutWithTheBuffer)
{
    Site site;
    AnswerLookup(site.world["vol"], std::u16string(2000, u'\u20ac'));
    const std::string shown = site.Render(D("DevicePath"));
    EXPECT_EQ(shown.size(), std::string("192.0.2.255:").size() + 1023);
}

TEST(DevicePath, IndexXmlSuffix_IsNotPartOfTheFolder)
{
    Site site;
    AnswerLookup(site.world["vol"], u"X");
    site.world["vol"].AddCollection("/vol/dir");
    site.dir.Write("index.xml", D("DevicePath"));
    EXPECT_EQ(site.Body("/Ferro/vol/dir/.index_xml"), "192.0.2.255:X");
    EXPECT_THAT(site.world.Calls({"vol.col.Associate"}),
                ElementsAre("vol.col.Associate(/vol/dir, token=null)"));
}

TEST(DevicePath, OfEntries_IsShownForProviderRootsOnly)
{
    Site site({{.name = "one"}, {.name = "two"}});
    site.world["one"].serveRoot = site.world["two"].serveRoot = true;
    AnswerLookup(site.world["one"], u"A\\1");
    site.Entry("[" + D("DisplayName") + D("DevicePath") + "]");
    EXPECT_EQ(site.Body("/Ferro"), "[one192.0.2.255:A:1][two]")
        << "a provider without the control code shows nothing";
    // The name of the first of these is that of a root.
    site.world["one"].AddCollection("/one/one");
    site.world["one"].AddCollection("/one/two");
    EXPECT_EQ(site.Body("/Ferro/one"), "[one][two]");
    site.world.ExpectAtRest();
}

TEST(DevicePath, EveryFailingStep_PrintsNothing)
{
    for (const char* call : {"vol.Create", "vol.col.Associate", "vol.col.IoctlRequest"}) {
        Site site;
        AnswerLookup(site.world["vol"], u"X");
        site.Page("<" + D("DevicePath") + ">");
        site.world.Fail(call, ProviderFailure(kCodeAccessDenied));
        EXPECT_EQ(site.Body(), "<>") << call;
        site.world.ExpectAtRest();
    }
    Site first({{.name = "vol", .generations = 1}});
    AnswerLookup(first.world["vol"], u"X");
    EXPECT_EQ(first.Render("<" + D("DevicePath") + ">"), "<>");
    first.world.ExpectAtRest();
}
