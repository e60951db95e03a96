// SPDX-License-Identifier: Apache-2.0
//
// The lock token of the "If" header: its room, its statuses, and what is asked of the host.
#include <gmock/gmock.h>

#include "frame.h"
#include "support/lock_header.h"

using harness::kInjected;
using harness::Request;
using testing::ElementsAre;

namespace {

// Notes the rooms that it is asked with.
class NotingIo final : public harness::ScriptedIo {
  public:
    using ScriptedIo::ScriptedIo;
    std::vector<UINT32> rooms;
    UINT32 claimed = 0;       // the length that a short room is said to need, if not 0
    std::string unterminated; // a value that fills the room without a terminator
    TALSTATUS GetRequestHeader(char* name, UINT32* length, char* buffer) override
    {
        rooms.push_back(*length);
        if (!unterminated.empty()) {
            std::memcpy(buffer, unterminated.data(), unterminated.size());
            *length = static_cast<UINT32>(unterminated.size());
            return TAL_STATUS_SUCCESS;
        }
        const TALSTATUS status = ScriptedIo::GetRequestHeader(name, length, buffer);
        if (Code(status) == kCodeBufferTooSmall && claimed != 0)
            *length = claimed;
        return status;
    }
};

class LockToken : public Frame {
  protected:
    // Asks for the token of a request with this header, in `room` bytes.
    TALSTATUS Ask(const std::string& header, UINT16 room = 128)
    {
        Request request(KestMethodPut, "/Ferro/a");
        if (!header.empty())
            request.Header("If", header);
        io.emplace(recorder, *platform, request);
        return AskIo(room);
    }
    TALSTATUS AskIo(UINT16 room = 128)
    {
        token = {77, room, buffer};
        std::memset(buffer, '?', sizeof buffer);
        return GetLockTokenFromRequestHeader(&*io, &token);
    }
    std::string Token() const { return {token.Buffer, token.Length}; }
    void ExpectUntouched() const
    {
        EXPECT_EQ(token.Length, 77);
        EXPECT_EQ(std::string(buffer, sizeof buffer), std::string(sizeof buffer, '?'));
    }

    char buffer[160];
    STRING token{};
    std::optional<NotingIo> io;
};

TEST_F(LockToken, Short_IsReadOnce)
{
    EXPECT_EQ(Ask("(<opaquelocktoken:abc>)"), TAL_STATUS_SUCCESS);
    EXPECT_EQ(Token(), "abc");
    EXPECT_EQ(buffer[3], '?') << "no terminator";
    EXPECT_THAT(io->rooms, ElementsAre(128U));
}

TEST_F(LockToken, OfALongHeader_IsReadAgainWithRoomToSpare)
{
    const std::string header = "(<opaquelocktoken:abc>)" + std::string(177, ' ');
    EXPECT_EQ(Ask(header), TAL_STATUS_SUCCESS);
    EXPECT_EQ(Token(), "abc");
    EXPECT_THAT(io->rooms, ElementsAre(128U, 201U + 64U)) << "the host needs 200 and a terminator";
}

TEST_F(LockToken, NeedsMoreRoomThanItsLength)
{
    EXPECT_EQ(Ask("(<opaquelocktoken:abc>)", 4), TAL_STATUS_SUCCESS);
    EXPECT_EQ(Token(), "abc");
    for (const UINT16 room : std::initializer_list<UINT16>{3, 2, 0}) {
        EXPECT_EQ(Ask("(<opaquelocktoken:abc>)", room), TAL_STATUS_BUFFER_TOO_SMALL);
        ExpectUntouched();
    }
    EXPECT_EQ(Ask("(<opaquelocktoken:>)", 0), TAL_STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(Ask("(<opaquelocktoken:>)", 1), TAL_STATUS_SUCCESS);
    EXPECT_EQ(token.Length, 0);
}

TEST_F(LockToken, Missing_HasAStatusForEachReason)
{
    EXPECT_EQ(Ask(""), MakeStatus(kFacilityHost, kCodeNotFound)) << "the host's";
    EXPECT_EQ(Ask("(<urn:uuid:abc>)"), TAL_STATUS_NOT_FOUND);
    EXPECT_EQ(Ask("opaquelocktoken"), TAL_STATUS_NOT_FOUND);
    const std::string longHeader = "(<opaquelocktoken:abc>)" + std::string(177, ' ');
    recorder.Fail("io.GetRequestHeader", kInjected, 2);
    EXPECT_EQ(Ask(longHeader), kInjected);
    recorder.Fail("platform.TalxAllocPagedMemory", kInjected);
    EXPECT_EQ(Ask(longHeader), TAL_STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(Ask(std::string(200, 'x') + ":" + "opaquelocktoken>"), TAL_STATUS_NOT_FOUND)
        << "the colon is behind what is searched";
    ExpectUntouched();
}

TEST_F(LockToken, HeaderOfAnImpossibleLength_IsNotAllocated)
{
    Request request(KestMethodPut, "/Ferro/a");
    request.Header("If", std::string(200, ' '));
    for (const UINT32 claimed : {(1U << 24) + 1, 0xFFFFFFFFU, 0xFFFFFFC0U}) {
        io.emplace(recorder, *platform, request);
        io->claimed = claimed;
        EXPECT_EQ(AskIo(), TAL_STATUS_INSUFFICIENT_RESOURCES);
        EXPECT_THAT(io->rooms, ElementsAre(128U));
        EXPECT_TRUE(platform->freed.empty());
    }
}

TEST_F(LockToken, HeaderThatFillsTheRoom_IsTerminated)
{
    io.emplace(recorder, *platform, Request(KestMethodPut, "/Ferro/a"));
    io->unterminated = "(<opaquelocktoken:" + std::string(108, 't') + ">)"; // 128 bytes
    EXPECT_EQ(AskIo(), TAL_STATUS_SUCCESS);
    EXPECT_EQ(Token(), std::string(108, 't'));
    io->unterminated = std::string(113, 'x') + "opaquelocktoken"; // 128, no colon
    EXPECT_EQ(AskIo(), TAL_STATUS_NOT_FOUND);
}

} // namespace
