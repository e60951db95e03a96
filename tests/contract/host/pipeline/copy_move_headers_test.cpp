// SPDX-License-Identifier: Apache-2.0
//
// COPY and MOVE as the module is told about them.
#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

class Relocations : public ServerTest {
  protected:
    void SetUp() override
    {
        module.handler = [this](IKestIO_5& io, UINT32 method) {
            UNICODE_STRING* text = nullptr;
            overwrites = 9;
            depth = 9;
            EXPECT_EQ(method == KestMethodCopy ? io.GetCopyInfo(&overwrites, &depth, &text)
                                               : io.GetMoveInfo(&overwrites, &text),
                      TAL_STATUS_SUCCESS);
            destination.assign(text->Buffer, text->Length / sizeof(WCHAR));
            EXPECT_EQ(text->Buffer[destination.size()], 0);
            return io.SendHeader(201);
        };
    }
    int Status(const std::string& method, const std::string& fields,
               const std::string& source = "/Ferro/docs/a")
    {
        destination.clear();
        return Ask(method + " " + source + " HTTP/1.1\r\nHost: h:81\r\n" + fields + "\r\n").status;
    }

    std::u16string destination;
    BOOLEAN overwrites = 9;
    INT32 depth = 9;
};

TEST_F(Relocations, DestinationsComeInTheFormsOfTheModule)
{
    const Running running = Start();
    static constexpr struct {
        const char* sent;
        const char16_t* move;
        const char16_t* copy;
    } kRows[] = {
        {"/Ferro/docs/b", u"/Ferro/docs/b", u"http://h:81/Ferro/docs/b"},
        {"http://h:81/Ferro/docs/b", u"/Ferro/docs/b", u"http://h:81/Ferro/docs/b"},
        {"HTTPS://H:81/Ferro/docs/b", u"/Ferro/docs/b", u"http://h:81/Ferro/docs/b"},
        {"webdavs://h:81/Ferro/docs/b/", u"/Ferro/docs/b", u"http://h:81/Ferro/docs/b"},
        {"/Ferro/docs/b%20c%2B+", u"/Ferro/docs/b c++", u"http://h:81/Ferro/docs/b c++"},
        {"/Ferro/docs/100%25", u"/Ferro/docs/100%", u"http://h:81/Ferro/docs/100%25"},
        {"/Ferro/docs/%2520", u"/Ferro/docs/%20", u"http://h:81/Ferro/docs/%2520"},
        {"/Ferro/docs/%c3%a9%F0%9F%98%80", u"/Ferro/docs/\u00e9\U0001F600",
         u"http://h:81/Ferro/docs/\u00e9\U0001F600"},
        {"/x/../Ferro/./docs/b", u"/Ferro/docs/b", u"http://h:81/Ferro/docs/b"},
        {"/Ferro", u"/Ferro", u"http://h:81/Ferro"},
    };
    for (const auto& row : kRows) {
        const std::string fields = std::string("Destination: ") + row.sent + "\r\n";
        EXPECT_EQ(Status("MOVE", fields), 201) << row.sent;
        EXPECT_EQ(destination, row.move) << row.sent;
        EXPECT_EQ(Status("COPY", fields), 201) << row.sent;
        EXPECT_EQ(destination, row.copy) << row.sent;
    }
}

TEST_F(Relocations, HeadersThatCannotBeFollowedAreRefused)
{
    const Running running = Start();
    static constexpr struct {
        const char* fields;
        int copy;
        int move;
    } kRows[] = {
        {"", 400, 400},
        {"Destination:\r\n", 400, 400},
        {"Destination: b\r\n", 400, 400},
        {"Destination: docs/b\r\n", 400, 400},
        {"Destination: ftp://h:81/Ferro/b\r\n", 400, 400},
        {"Destination: http://u@h:81/Ferro/b\r\n", 400, 400},
        {"Destination: /Ferro/%zz\r\n", 400, 400},
        {"Destination: /Ferro/a%2Fb\r\n", 400, 400},
        {"Destination: /Ferro/%FF\r\n", 400, 400},
        {"Destination: /Ferro/b?c\r\n", 400, 400},
        {"Destination: /Ferro/b#c\r\n", 400, 400},
        {"Destination: /Ferro/b\r\nDestination: /Ferro/c\r\n", 400, 400},
        {"Destination: http://other:81/Ferro/b\r\n", 502, 502},
        {"Destination: http://h:82/Ferro/b\r\n", 502, 502},
        {"Destination: /elsewhere/b\r\n", 502, 502},
        {"Destination: /\r\n", 502, 502},
        {"Destination: /Ferro/../x\r\n", 502, 502},
        {"Destination: http://h:81\r\n", 502, 502},
        {"Destination: /Ferro/b\r\nOverwrite: maybe\r\n", 400, 400},
        {"Destination: /Ferro/b\r\nOverwrite:\r\n", 400, 400},
        {"Destination: /Ferro/b\r\nDepth: 1\r\n", 400, 400},
        {"Destination: /Ferro/b\r\nDepth: -1\r\n", 400, 400},
        {"Destination: /Ferro/b\r\nDepth: 0\r\n", 201, 400},
        {"Destination: /Ferro/b\r\nDepth: Infinity\r\n", 201, 201},
        {"Destination: /Ferro/docs/a/b\r\n", 403, 403},
        {"Destination: /Ferro/docs/a/b/c/\r\n", 403, 403},
        {"Destination: /Ferro/docs/ab\r\n", 201, 201},
        {"Destination: /Ferro/docs\r\n", 201, 201},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(Status("COPY", row.fields), row.copy) << row.fields;
        EXPECT_EQ(Status("MOVE", row.fields), row.move) << row.fields;
    }
    EXPECT_EQ(Status("COPY", "Destination: /Ferro/docs/a/b\r\n", "/Ferro/docs/a/"), 403);
    EXPECT_EQ(Status("COPY", "Destination: /Ferro/" + std::string(9000, 'x') + "\r\n"), 414);
}

TEST_F(Relocations, FlagsAreReported)
{
    const Running running = Start();
    const std::string to = "Destination: /Ferro/b\r\n";
    EXPECT_EQ(Status("COPY", to), 201);
    EXPECT_EQ(overwrites, 1);
    EXPECT_EQ(depth, -1);
    EXPECT_EQ(Status("COPY", to + "Overwrite: T\r\nDepth: 0\r\n"), 201);
    EXPECT_EQ(overwrites, 1);
    EXPECT_EQ(depth, 0);
    EXPECT_EQ(Status("MOVE", to + "Overwrite: F\r\n"), 201);
    EXPECT_EQ(overwrites, 0);
    EXPECT_EQ(module.calls, 3); // nothing is looked for before
}

TEST_F(Relocations, PublicNameIsOurs)
{
    ServerSettings settings = QuietSettings();
    settings.publicUrl = "https://files.example.org";
    const Running running = Start(settings);
    EXPECT_EQ(Status("COPY", "Destination: https://Files.example.org/Ferro/b\r\n"), 201);
    EXPECT_EQ(destination, u"https://files.example.org:443/Ferro/b");
    EXPECT_EQ(Status("COPY", "Destination: https://files.example.org:443/Ferro/b\r\n"), 201);
    EXPECT_EQ(Status("COPY", "Destination: http://h:81/Ferro/b\r\n"), 201);
    EXPECT_EQ(Status("COPY", "Destination: https://files.example.org:444/Ferro/b\r\n"), 502);
}

} // namespace

} // namespace kestd::test
