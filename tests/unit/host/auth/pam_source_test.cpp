// SPDX-License-Identifier: Apache-2.0
//
// Sign-in by PAM, over scripted modules: this program has PAM's functions itself.
#include "host/auth/pam_source.h"

#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>
#include <security/pam_appl.h>

namespace {

// What the modules do, and what they were asked.
struct Script {
    int start = PAM_SUCCESS;
    int authenticate = PAM_SUCCESS;
    int account = PAM_SUCCESS;
    std::vector<int> questions{PAM_PROMPT_ECHO_OFF};
    std::string user; // that they make of the name; empty: the same
    // -- Seen.
    std::string service, password;
    int talk = PAM_SUCCESS; // the conversation's result
    int open = 0;
    int authenticated = 0;
} g_script;

pam_conv g_conversation;
void (*g_delay)(int, unsigned, void*) = nullptr;

} // namespace

struct pam_handle {
    std::string user;
};

extern "C" {

int pam_start(const char* service, const char* user, const pam_conv* conversation,
              pam_handle_t** handle)
{
    if (g_script.start != PAM_SUCCESS)
        return g_script.start;
    g_script.service = service;
    g_conversation = *conversation;
    *handle = new pam_handle{g_script.user.empty() ? user : g_script.user};
    ++g_script.open;
    return PAM_SUCCESS;
}
int pam_end(pam_handle_t* handle, int)
{
    --g_script.open;
    delete handle;
    return PAM_SUCCESS;
}
int pam_set_item(pam_handle_t*, int type, const void* item)
{
    if (type == PAM_FAIL_DELAY)
        g_delay = reinterpret_cast<void (*)(int, unsigned, void*)>(const_cast<void*>(item));
    return PAM_SUCCESS;
}
int pam_get_item(const pam_handle_t* handle, int, const void** item)
{
    *item = handle->user.c_str();
    return PAM_SUCCESS;
}
int pam_authenticate(pam_handle_t*, int)
{
    ++g_script.authenticated;
    std::vector<pam_message> messages;
    for (const int style : g_script.questions)
        messages.push_back({style, "question"});
    std::vector<const pam_message*> pointers;
    for (const pam_message& message : messages)
        pointers.push_back(&message);
    pam_response* replies = nullptr;
    g_script.talk = g_conversation.conv(static_cast<int>(messages.size()), pointers.data(),
                                        &replies, g_conversation.appdata_ptr);
    if (g_script.talk != PAM_SUCCESS)
        return g_script.talk;
    for (size_t i = 0; i < messages.size(); ++i)
        if (replies[i].resp) {
            g_script.password += replies[i].resp;
            free(replies[i].resp);
        }
    free(replies);
    return g_script.authenticate;
}
int pam_acct_mgmt(pam_handle_t*, int)
{
    return g_script.account;
}
const char* pam_strerror(pam_handle_t*, int)
{
    return "scripted";
}

} // extern "C"

namespace kestd {
namespace {

using Outcome = Verdict::Outcome;

class Pam : public testing::Test {
  protected:
    void SetUp() override { g_script = {}; }
    void TearDown() override { EXPECT_EQ(g_script.open, 0); }

    const std::shared_ptr<CredentialsSource> source_ = MakePamSource("files");
};

TEST_F(Pam, AnswersTheQuestionForThePassword)
{
    const Verdict verdict = source_->Check("anna", "pass word");
    EXPECT_EQ(verdict.outcome, Outcome::Granted);
    ASSERT_TRUE(verdict.who);
    EXPECT_EQ(verdict.who->name, "anna");
    EXPECT_EQ(verdict.who->source, "pam");
    EXPECT_EQ(g_script.service, "files");
    EXPECT_EQ(g_script.password, "pass word");
    ASSERT_TRUE(g_delay); // else a wrong password would keep a thread for seconds
    g_delay(PAM_AUTH_ERR, 3'000'000, nullptr);
}

TEST_F(Pam, TheNameIsWhatTheModulesMakeOfIt)
{
    g_script.user = "anna";
    EXPECT_EQ(source_->Check("ANNA", "x").who->name, "anna");
    g_script.user = "a:b";
    EXPECT_EQ(source_->Check("ANNA", "x").outcome, Outcome::Unavailable);
}

TEST_F(Pam, GroupsAreThoseOfTheSystem)
{
    const Verdict root = source_->Check("root", "x");
    EXPECT_EQ(root.who->groups.at(0), "root");
    EXPECT_TRUE(source_->Check("no such user of the system", "x").who->groups.empty());
    EXPECT_NE(root.who->key, source_->Check("roo", "x").who->key);
}

TEST_F(Pam, WhatModulesSayDecides)
{
    const struct {
        int authenticate, account;
        Outcome outcome;
    } kRows[] = {
        {PAM_AUTH_ERR, PAM_SUCCESS, Outcome::Wrong},
        {PAM_PERM_DENIED, PAM_SUCCESS, Outcome::Wrong},
        {PAM_MAXTRIES, PAM_SUCCESS, Outcome::Wrong},
        {PAM_CRED_INSUFFICIENT, PAM_SUCCESS, Outcome::Wrong},
        {PAM_USER_UNKNOWN, PAM_SUCCESS, Outcome::UnknownUser},
        {PAM_AUTHINFO_UNAVAIL, PAM_SUCCESS, Outcome::Unavailable},
        {PAM_SYSTEM_ERR, PAM_SUCCESS, Outcome::Unavailable},
        {PAM_BUF_ERR, PAM_SUCCESS, Outcome::Unavailable},
        {PAM_SUCCESS, PAM_ACCT_EXPIRED, Outcome::Wrong},
        {PAM_SUCCESS, PAM_NEW_AUTHTOK_REQD, Outcome::Wrong},
        {PAM_SUCCESS, PAM_PERM_DENIED, Outcome::Wrong},
        {PAM_SUCCESS, PAM_USER_UNKNOWN, Outcome::UnknownUser},
        {PAM_SUCCESS, PAM_SUCCESS, Outcome::Granted},
    };
    for (const auto& row : kRows) {
        g_script.authenticate = row.authenticate;
        g_script.account = row.account;
        EXPECT_EQ(source_->Check("anna", "x").outcome, row.outcome)
            << row.authenticate << ", " << row.account;
    }
    g_script = {};
    g_script.start = PAM_ABORT;
    EXPECT_EQ(source_->Check("anna", "x").outcome, Outcome::Unavailable);
}

TEST_F(Pam, ModulesThatAskForMoreThanAPasswordFail)
{
    g_script.questions = {PAM_TEXT_INFO, PAM_PROMPT_ECHO_OFF, PAM_ERROR_MSG};
    EXPECT_EQ(source_->Check("anna", "x").outcome, Outcome::Granted);
    EXPECT_EQ(g_script.password, "x");
    g_script.questions = {PAM_PROMPT_ECHO_OFF, PAM_PROMPT_ECHO_ON};
    EXPECT_EQ(source_->Check("anna", "x").outcome, Outcome::Unavailable);
    EXPECT_EQ(g_script.talk, PAM_CONV_ERR);
    g_script.questions = {};
    EXPECT_EQ(source_->Check("anna", "x").outcome, Outcome::Unavailable);
    g_script.questions.assign(PAM_MAX_NUM_MSG + 1, PAM_TEXT_INFO);
    EXPECT_EQ(source_->Check("anna", "x").outcome, Outcome::Unavailable);
}

TEST_F(Pam, IsNotAskedAboutWhatNoModuleMaySee)
{
    using namespace std::string_view_literals;
    EXPECT_EQ(source_->Check("anna", "").outcome, Outcome::Wrong);
    EXPECT_EQ(source_->Check("anna", "right\0more"sv).outcome, Outcome::Wrong);
    EXPECT_EQ(source_->Check("a\nb", "x").outcome, Outcome::UnknownUser);
    EXPECT_EQ(g_script.authenticated, 0);
}

TEST_F(Pam, WithoutAPasswordTheAccountDecides)
{
    EXPECT_EQ(source_->Find("anna").outcome, Outcome::Granted);
    EXPECT_EQ(g_script.authenticated, 0);
    g_script.account = PAM_ACCT_EXPIRED;
    EXPECT_NE(source_->Find("anna").outcome, Outcome::Granted);
    g_script.account = PAM_USER_UNKNOWN;
    EXPECT_EQ(source_->Find("nobody").outcome, Outcome::UnknownUser);
}

} // namespace
} // namespace kestd
