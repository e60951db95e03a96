// SPDX-License-Identifier: Apache-2.0
//
// The directory service by slot, over the users' own records.
#include "tests/contract/host/components/classes.h"

#include "host/components/directory_names.h"

namespace kestd {
namespace {

class Identity : public HostClasses {
  protected:
    void SetUp() override
    {
        HostClasses::SetUp();
        UserMap users;
        users["anna"] = std::make_shared<const User>(
            User{"anna", "x", "CN=an\\.na.OU=dev.O=org", "TREE", "anna@example.org"});
        users["otto"] = std::make_shared<const User>(User{"otto", "x", "otto.org", "TREE", ""});
        services_->directory.Use(std::make_shared<UserDirectory>(users));
        directory_ = Make(CLSID_Directory_1, IID_IDirectory_1);
        session_ = HoldSession(*services_, "anna");
    }
    void TearDown() override
    {
        Release(directory_);
        services_->sessions.ReleaseSession(session_);
        HostClasses::TearDown();
    }
    TALSTATUS Open(const WCHAR* name, void** entry, UINT32 flags = 1)
    {
        return Call(directory_, 3, name, flags, session_, &IID_IDirectoryObject_1, entry);
    }

    void* directory_ = nullptr;
    SCHANDLE session_{};
};

TEST_F(Identity, MailOfAUser_IsReadThroughThreeObjects)
{
    void* entry = nullptr;
    ASSERT_EQ(Open(u"\\\\tree\\O=org\\ou=DEV\\CN=an.na", &entry), 0U); // names have no case
    void* results = nullptr;
    ASSERT_EQ(Call(entry, 3, u"internet email address", &IID_IDmReadAttributeResults_1, &results),
              0U);
    Release(entry);
    UINT32 bytes = 0;
    WCHAR* value = nullptr;
    EXPECT_EQ(Call(results, 3, &bytes, &value), 0U);
    EXPECT_EQ(std::u16string_view(value, bytes / 2), u"anna@example.org");
    EXPECT_EQ(value[bytes / 2], 0);
    EXPECT_EQ(Code(Call(results, 3, &bytes, &value)), kCodeNoMoreEntries);
    Release(results);
}

TEST_F(Identity, UserWithoutMail_HasNoSuchAttribute)
{
    void* entry = nullptr;
    ASSERT_EQ(Open(u"\\\\TREE\\org\\otto", &entry), 0U);
    void* results = entry;
    EXPECT_EQ(Code(Call(entry, 3, kMailAttribute, &IID_IDmReadAttributeResults_1, &results)),
              kCodeNotFound);
    EXPECT_EQ(results, nullptr);
    EXPECT_EQ(Code(Call(entry, 3, static_cast<const WCHAR*>(nullptr),
                        &IID_IDmReadAttributeResults_1, &results)),
              kCodeInvalidParameter);
    Release(entry);
}

TEST_F(Identity, WhatIsNotThere_IsNotOpened)
{
    void* entry = directory_;
    EXPECT_EQ(Code(Open(u"\\\\TREE\\O=org\\CN=nobody", &entry)), kCodeNotFound);
    EXPECT_EQ(entry, nullptr);
    EXPECT_EQ(Code(Open(u"\\\\OTHER\\org\\otto", &entry)), kCodeNotFound);
    for (const WCHAR* name :
         {u"otto", u"\\TREE\\otto", u"\\\\TREE", u"\\\\TREE\\", u"\\\\TREE\\\\x"})
        EXPECT_EQ(Code(Open(name, &entry)), kCodeInvalidRequest);
    EXPECT_EQ(Code(Open(nullptr, &entry)), kCodeInvalidParameter);
    EXPECT_EQ(Code(Open(u"", &entry)), kCodeInvalidParameter);
    EXPECT_EQ(Code(Open(u"\\\\TREE\\org\\otto", &entry, 2)), kCodeInvalidParameter);
    EXPECT_EQ(Code(Call(directory_, 3, u"\\\\TREE\\org\\otto", UINT32{1}, SCHANDLE{},
                        &IID_IDirectoryObject_1, &entry)),
              kCodeAccessDenied);
    const std::u16string endless(100000, u'x');
    EXPECT_EQ(Code(Open(endless.c_str(), &entry)), kCodeInvalidParameter);
}

TEST(DirectoryNames, DottedNamesTurnRound)
{
    struct Row {
        const char16_t* dotted;
        const char16_t* full;
    };
    for (const Row& row :
         {Row{u"CN=admin.O=org", u"\\\\T\\O=org\\CN=admin"},
          Row{u".CN=admin.O=org.", u"\\\\T\\O=org\\CN=admin"}, Row{u"a\\.b.c", u"\\\\T\\c\\a.b"},
          Row{u"a\\", u"\\\\T\\a\\"}, Row{u"one", u"\\\\T\\one"}, Row{u"", u"\\\\T"}})
        EXPECT_EQ(FullName(u"T", row.dotted), row.full);
    EXPECT_EQ(DottedNameOfUser("a.b\\c"), "CN=a\\.b\\\\c");
}

TEST(DirectoryNames, LdapNamesAreEscaped)
{
    struct Row {
        const char16_t* full;
        const char* base;
        const char* ldap;
    };
    for (const Row& row :
         {Row{u"\\\\T\\O=org\\CN=admin", "", "CN=admin,O=org"},
          Row{u"\\\\T\\O=org\\CN=admin", "dc=example,dc=org", "CN=admin,O=org,dc=example,dc=org"},
          Row{u"\\\\T\\org\\dev\\admin", "", "CN=admin,OU=dev,O=org"},
          Row{u"\\\\T\\admin", "dc=x", "CN=admin,dc=x"},
          Row{u"\\\\T\\CN=a,b+c=d\"e<f>g;h#", "", "CN=a\\2Cb\\2Bc\\3Dd\\22e\\3Cf\\3Eg\\3Bh\\23"},
          Row{u"\\\\T\\CN= a b ", "", "CN=\\20a b\\20"},
          Row{u"\\\\T\\CN=\u00e9", "", "CN=\u00e9"}}) {
        const auto parsed = ParseFullName(row.full);
        ASSERT_TRUE(parsed);
        EXPECT_EQ(LdapName(*parsed, row.base), row.ldap);
    }
    for (const char16_t* name : {u"\\\\T\\=x", u"\\\\T\\CN=", u"\\\\T\\a b=x", u"\\\\T\\(=x"}) {
        const auto parsed = ParseFullName(name);
        ASSERT_TRUE(parsed);
        EXPECT_FALSE(LdapName(*parsed, ""));
    }
}

} // namespace
} // namespace kestd
