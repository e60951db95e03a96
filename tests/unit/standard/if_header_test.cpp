// SPDX-License-Identifier: Apache-2.0
//
// The "If" header as records.
#include "standard/if_header.h"

#include <gtest/gtest.h>

#include "frame.h"

namespace {

std::string Text(const DAV_TEXT& text)
{
    return {text.Text ? text.Text : "", text.Length};
}

class IfHeader : public Frame {
  protected:
    void SetUp() override
    {
        Frame::SetUp();
        moniker_ = g_MonikerS;
        g_MonikerS = {6, 6, name_};
    }
    void TearDown() override
    {
        g_MonikerS = moniker_;
        Frame::TearDown();
    }

    // "PATH(cond cond)…; tokens": kinds are t, e and n, "!" negates.
    std::string Read(const std::string& header)
    {
        harness::ScriptedIo io(recorder, *platform, harness::Request(0, "/Ferro/x"));
        DAV_PRECONDITIONS out{};
        const TALSTATUS status = standard::ParseIf(&io, header, out);
        if (Failed(status))
            return Code(status) == kCodeInvalidRequest ? "malformed" : "failed";
        std::string text;
        for (UINT32 i = 0; i < out.IfCount; ++i) {
            text += Text(out.If[i].Path) + "(";
            for (UINT32 j = 0; j < out.If[i].Count; ++j) {
                const DAV_IF_CONDITION& each = out.If[i].Conditions[j];
                text += (j ? " " : "") + std::string(each.Negated ? "!" : "") + "ten"[each.Kind] +
                        ":" + Text(each.Value);
            }
            text += ")";
        }
        text += ";";
        for (UINT32 i = 0; i < out.TokenCount; ++i)
            text += " " + Text(out.Tokens[i]);
        return text;
    }

  private:
    char name_[7] = "/Ferro";
    STRING moniker_{};
};

TEST_F(IfHeader, Lists)
{
    EXPECT_EQ(Read("(<opaquelocktoken:a>)"), "(t:a); a");
    EXPECT_EQ(Read(" ( <OpaqueLockToken:a>  [\"x\"] ) (Not<opaquelocktoken:b>) "),
              "(t:a e:\"x\")(!t:b); a");
    EXPECT_EQ(Read("([W/\"a b)]<\"] not <DAV:no-lock>)"), "(e:W/\"a b)]<\" !n:DAV:no-lock);");
    EXPECT_EQ(Read("(<urn:uuid:1>)"), "(n:urn:uuid:1);");
}

TEST_F(IfHeader, TaggedLists_NameProviderPaths)
{
    EXPECT_EQ(Read("<http://host:80/Ferro/a%20b/c/>(<opaquelocktoken:a>)([\"x\"])"
                   "</Ferro/d>(Not [\"y\"])"),
              "/a b/c(t:a)/a b/c(e:\"x\")/d(!e:\"y\"); a");
    EXPECT_EQ(Read("</Ferro>(<opaquelocktoken:a>)</Ferro/>(<opaquelocktoken:b>)"),
              "/(t:a)/(t:b); a b");
    EXPECT_EQ(Read("</Ferro/a?q#f>(<opaquelocktoken:a>)"), "/a(t:a); a");
    EXPECT_EQ(Read("</Elsewhere/a>(<opaquelocktoken:a>)"), "/\x01(t:a); a")
        << "a path that nothing bears";
    EXPECT_EQ(Read("</Ferrous/a>(<opaquelocktoken:a>)"), "/\x01(t:a); a");
    EXPECT_EQ(Read("<http://host>(<opaquelocktoken:a>)"), "/\x01(t:a); a");
}

TEST_F(IfHeader, Malformed)
{
    for (const char* header : {"",
                               " ",
                               "()",
                               "(",
                               "(<a>",
                               "<a>",
                               "</Ferro/a>",
                               "<>(<opaquelocktoken:a>)",
                               "(<a b>)",
                               "([x])",
                               "([\"x\")",
                               "([\"x)",
                               "(Not)",
                               "(<opaquelocktoken:a>) x",
                               "(<opaquelocktoken:a>) </Ferro/a> (<opaquelocktoken:b>)",
                               "</Ferro/%2>([\"x\"])",
                               "</Ferro/a%2Fb>([\"x\"])",
                               "<relative>([\"x\"])",
                               "</Ferro/a%00>([\"x\"])",
                               "<://h/Ferro/a>([\"x\"])"})
        EXPECT_EQ(Read(header), "malformed") << header;
}

TEST_F(IfHeader, CutAnywhere_IsMalformedOrShorter)
{
    const std::string header = "</Ferro/a%20b> (Not <opaquelocktoken:a> [W/\"x\"])";
    for (size_t length = 0; length < header.size(); ++length)
        EXPECT_EQ(Read(header.substr(0, length)), "malformed") << length;
}

TEST(LockToken, IsACodedUrlOfItsScheme)
{
    using Form = standard::LockToken::Form;
    for (const char* text : {" <opaquelocktoken:a-1> ", " opaquelocktoken:a-1 "}) {
        EXPECT_EQ(standard::ReadLockToken(text).form, Form::Ours) << text;
        EXPECT_EQ(standard::ReadLockToken(text).text, "a-1") << text;
    }
    for (const char* text :
         {"", "a", "<a>", "opaquelocktoken:", "<opaquelocktoken:>", "<opaquelocktoken:a",
          "<opaquelocktoken:a> b", "opaquelocktoken:a>", "opaquelocktoken:a b", "<:a>", "<1a:b>",
          "<a b:c>", "<urn:>", "<urn:a", "<urn:a>>"})
        EXPECT_EQ(standard::ReadLockToken(text).form, Form::Malformed) << text;
    for (const char* text : {"<urn:uuid:a-1>", "urn:uuid:a-1", "<DAV:no-lock>", "<x+y-1.z:q>"})
        EXPECT_EQ(standard::ReadLockToken(text).form, Form::Foreign) << text;
}

} // namespace
