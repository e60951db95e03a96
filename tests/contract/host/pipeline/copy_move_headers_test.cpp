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
            if (method == KestMethodHead) {
                ++probes;
                probed = Url(io);
                EXPECT_EQ(Header(io, "Host"), "(none)");
                return io.SendHeader(probeStatus);
            }
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

    int probeStatus = 200;
    int moduleStatus = 200;
    int probes = 0;
    std::u16string probed;
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
        EXPECT_EQ(probed, row.move) << row.sent;
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
    probes = 0;
    EXPECT_EQ(Status("MOVE", to + "Overwrite: F\r\n"), 201);
    EXPECT_EQ(overwrites, 0);
    EXPECT_EQ(probes, 0);
}

TEST_F(Relocations, OverwriteIsClearWhereNothingExists)
{
    const Running running = Start();
    static constexpr struct {
        int found;
        BOOLEAN flag;
    } kRows[] = {{404, 0}, {200, 1}, {403, 1}, {500, 1}, {0, 1}};
    for (const auto& row : kRows) {
        probeStatus = row.found;
        EXPECT_EQ(Status("COPY", "Destination: /Ferro/b\r\n"), 201);
        EXPECT_EQ(overwrites, row.flag) << row.found;
        EXPECT_EQ(Status("MOVE", "Destination: /Ferro/b\r\nOverwrite: T\r\n"), 201);
        EXPECT_EQ(overwrites, row.flag) << row.found;
    }
}

TEST_F(Relocations, ProbeIsACallOfItsOwn)
{
    std::vector<UINT32> methods;
    const auto inner = module.handler;
    module.handler = [&](IKestIO_5& io, UINT32 method) {
        void* out = nullptr;
        EXPECT_EQ(CallContextFactory()->CreateInstance(nullptr, &IID_KestCallContext_1, &out),
                  TAL_STATUS_SUCCESS);
        auto* context = static_cast<IKestCallContext*>(out);
        IKestIO_5* current = nullptr;
        UINT32 number = 0;
        EXPECT_EQ(context->GetRequest(&current), TAL_STATUS_SUCCESS);
        EXPECT_EQ(current, &io);
        EXPECT_EQ(context->GetMethod(&number), TAL_STATUS_SUCCESS);
        methods.push_back(number);
        return inner(io, method);
    };
    const Running running = Start();
    EXPECT_EQ(Status("MOVE", "Destination: /Ferro/b\r\n"), 201);
    // A look that is answered as PROPFIND is: for the literal name only.
    EXPECT_EQ(methods, (std::vector<UINT32>{KestMethodPropFind, KestMethodMove}));
}

// The destination comes to be between the look and the module's own.
TEST_F(Relocations, ATakenNameIsNoRefusalForAClientThatAllowsOverwriting)
{
    std::vector<BOOLEAN> told;
    module.handler = [&](IKestIO_5& io, UINT32 method) {
        if (method == KestMethodHead)
            return io.SendHeader(told.empty() ? 404 : 200);
        UNICODE_STRING* text = nullptr;
        EXPECT_EQ(method == KestMethodCopy ? io.GetCopyInfo(&overwrites, &depth, &text)
                                           : io.GetMoveInfo(&overwrites, &text),
                  TAL_STATUS_SUCCESS);
        told.push_back(overwrites);
        return io.SendHeader(overwrites ? 200 : 412);
    };
    const Running running = Start();
    for (const char* method : {"COPY", "MOVE"}) {
        told.clear();
        EXPECT_EQ(Status(method, "Destination: /Ferro/b\r\n"), 204) << method;
        EXPECT_EQ(told, (std::vector<BOOLEAN>{0, 1})) << method;
        told.clear();
        EXPECT_EQ(Status(method, "Destination: /Ferro/b\r\nOverwrite: F\r\n"), 412) << method;
        EXPECT_EQ(told, (std::vector<BOOLEAN>{0})) << method;
    }
}

// A destination that comes and goes with each look is an answer in the end.
TEST_F(Relocations, ANameThatIsTakenEveryTimeEndsInARefusal)
{
    int asked = 0;
    module.handler = [&](IKestIO_5& io, UINT32 method) {
        asked += method != KestMethodHead;
        return io.SendHeader(method == KestMethodHead ? 404 : 412);
    };
    const Running running = Start();
    EXPECT_EQ(Status("COPY", "Destination: /Ferro/b\r\n"), 412);
    EXPECT_GT(asked, 1);
    EXPECT_LT(asked, 20);
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

// What clients take for a success of these methods, whatever the module's own is.
TEST_F(Relocations, SuccessesTellWhetherSomethingWasReplaced)
{
    module.handler = [this](IKestIO_5& io, UINT32 method) {
        return io.SendHeader(method == KestMethodHead ? probeStatus : moduleStatus);
    };
    const Running running = Start();
    for (const char* method : {"COPY", "MOVE"}) {
        probeStatus = 404;
        EXPECT_EQ(Status(method, "Destination: /Ferro/b\r\n"), 201) << method;
        probeStatus = 200;
        EXPECT_EQ(Status(method, "Destination: /Ferro/b\r\n"), 204) << method;
        EXPECT_EQ(Status(method, "Destination: /Ferro/b\r\nOverwrite: F\r\n"), 201) << method;
        moduleStatus = 412;
        EXPECT_EQ(Status(method, "Destination: /Ferro/b\r\n"), 412) << method;
        moduleStatus = 200;
    }
}

} // namespace

} // namespace kestd::test
