// SPDX-License-Identifier: Apache-2.0
//
// THE ORDER of the stages, and their hooks at each point of a request's way.
#include "host/pipeline/pipeline.h"

#include <cstdint>

#include "host/http/short_reply.h"
#include "host/pipeline/access.h"
#include "host/pipeline/authentication.h"
#include "host/pipeline/body_limits.h"
#include "host/pipeline/compression.h"
#include "host/pipeline/condition_headers.h"
#include "host/pipeline/copy_move_headers.h"
#include "host/pipeline/csrf.h"
#include "host/pipeline/error_page.h"
#include "host/pipeline/granted_lock.h"
#include "host/pipeline/host_check.h"
#include "host/pipeline/partial_put.h"
#include "host/pipeline/router.h"
#include "host/pipeline/security_headers.h"

namespace kestd {

namespace {

using Methods = uint32_t; // a bit for each number of a method

template <class... Number> constexpr Methods Of(Number... number) noexcept
{
    return ((Methods{1} << number) | ...);
}

// The dialects in which a stage stands. The classic one gets what protects the host and the data,
// and nothing that would change what the module says or is asked for.
enum class Speakers { Both, Classic, Standard };

constexpr bool Stands(Speakers speakers, Dialect dialect) noexcept
{
    return speakers == Speakers::Both ||
           (speakers == Speakers::Classic) == (dialect == Dialect::Classic);
}

constexpr Methods kAll = ~Methods{0};
constexpr Methods kListing = Of(KestMethodGet, KestMethodHead, KestMethodPost, KestMethodPropFind);
constexpr Methods kCopyMove = Of(KestMethodCopy, KestMethodMove);
constexpr Methods kChanging =
    kCopyMove | Of(KestMethodPut, KestMethodPost, KestMethodDelete, KestMethodPropPatch,
                   KestMethodMkCol, KestMethodLock, KestMethodPatch);

// From what size a piece counts as a block of content, unlike a line of a page; bytes.
constexpr size_t kBlock = 4096;

} // namespace

struct Pipeline::AllStages {
    AllStages(AccessControl& accessControl, RequestHandler& handler, const std::string& location)
        : securityHeaders(location), hostCheck(accessControl), router(location),
          authentication(accessControl), copyMoveHeaders(location), access(location),
          grantedLocks(handler)
    {
    }

    const Compression compression;
    const SecurityHeaders securityHeaders;
    const HostCheck hostCheck;
    const Router router;
    const Authentication authentication;
    const Csrf csrf;
    const StoredScripts storedScripts;
    const PartialPut partialPut;
    const CopyMoveHeaders copyMoveHeaders;
    const Access access;
    const BodyLimits bodyLimits;
    const ConditionHeaders conditionHeaders;
    const GrantedLocks grantedLocks;
};

struct Pipeline::Row {
    std::string_view name;
    const Stage& stage;
    unsigned hooks;
    Methods methods;
    Speakers speakers;
};

Pipeline::Pipeline(Dialect dialect, AccessControl& accessControl, RequestHandler& handler,
                   std::string location)
    : handler_(handler), showsErrorPages_(dialect == Dialect::Standard),
      stages_(std::make_unique<const AllStages>(accessControl, handler, location))
{
    const auto at = [](auto... hook) { return ((1U << hook) | ...); };
    const AllStages& all = *stages_;
    // The order. A request goes through the stages from the first to the last, its reply from the
    // last to the first.
    const Row order[] = {
        // clang-format off
        {"compression", all.compression, at(kReplyHead), kListing, Speakers::Standard},
        {"security_headers", all.securityHeaders, at(kReplyHead), Of(KestMethodGet, KestMethodPost), Speakers::Both},
        {"host_check", all.hostCheck, at(kRequest), kAll, Speakers::Both},
        {"router", all.router, at(kRequest), kAll, Speakers::Both},
        {"authentication", all.authentication, at(kRequest, kReplyHead), kAll, Speakers::Both},
        {"csrf", all.csrf, at(kRequest), Of(KestMethodPost), Speakers::Both},
        {"stored_scripts", all.storedScripts, at(kRequest), Of(KestMethodGet), Speakers::Both},
        // The standard dialect's handlers store parts, or refuse them themselves.
        {"partial_put", all.partialPut, at(kRequest), Of(KestMethodPut), Speakers::Classic},
        {"copy_move_headers", all.copyMoveHeaders, at(kRequest), kCopyMove, Speakers::Both},
        {"access", all.access, at(kRequest, kReplyEnd), kAll, Speakers::Both},
        {"body_limits", all.bodyLimits, at(kRequest, kReplyEnd), kAll, Speakers::Both},
        {"condition_headers", all.conditionHeaders, at(kBody), kChanging, Speakers::Standard},
        {"granted_lock", all.grantedLocks, at(kBody, kReplyHead, kReplyBody, kReplySent), Of(KestMethodLock), Speakers::Both},
        // clang-format on
    };
    for (const Row& row : order)
        if (Stands(row.speakers, dialect))
            Place(row);
}

Pipeline::~Pipeline() = default;

void Pipeline::Place(const Row& row)
{
    if (names_.empty() || names_.back() != row.name)
        names_.push_back(row.name);
    for (unsigned hook = 0; hook < kHooks; ++hook) {
        if (!(row.hooks & 1U << hook))
            continue;
        for (size_t method = 0; method < kMethods; ++method) {
            Run& run = runs_[hook][method];
            if (row.methods & Methods{1} << method)
                run.insert(hook < kReplyHead ? run.end() : run.begin(), &row.stage);
        }
    }
}

bool Pipeline::OnRequest(Exchange& exchange) const
{
    for (const Stage* stage : StagesOf(exchange, kRequest)) {
        const Decision decision = stage->OnRequest(exchange);
        if (decision.GoesOn())
            continue;
        if (const int status = decision.Refusal())
            SendError(exchange.response, status);
        return false;
    }
    return true;
}

void Pipeline::Call(Exchange& exchange) const
{
    for (const Stage* stage : StagesOf(exchange, kBody)) {
        const Decision decision = stage->OnBody(exchange);
        if (decision.GoesOn())
            continue;
        if (const int status = decision.Refusal())
            SendError(exchange.response, status);
        return;
    }
    handler_.Handle(exchange);
}

bool Pipeline::BeginReply(Exchange& exchange, int status) const
{
    if (exchange.response.HasBegun())
        return false;
    for (const Stage* stage : StagesOf(exchange, kReplyHead))
        stage->OnReplyHead(exchange, status);
    exchange.response.Begin(status);
    exchange.ApplyReportedFailure();
    return true;
}

bool Pipeline::WriteReply(Exchange& exchange, std::string_view piece) const
{
    // Of a reply that was replaced nothing is sent, so that only a look tells who has left.
    if (piece.size() >= kBlock && exchange.response.HasClientLeft())
        return false;
    for (const Stage* stage : StagesOf(exchange, kReplyBody))
        stage->OnReplyBody(exchange, piece);
    exchange.ApplyReportedFailure();
    return exchange.response.Append(piece.data(), piece.size());
}

Response::FileOutcome Pipeline::SendFile(Exchange& exchange, int file, uint64_t offset,
                                         uint64_t length, uint64_t& sent) const
{
    sent = 0;
    const auto& stages = StagesOf(exchange, kReplyBody); // they have to see what is sent
    if (stages.begin() != stages.end())
        return Response::FileOutcome::Cannot;
    exchange.ApplyReportedFailure();
    return exchange.response.HasClientLeft()
               ? Response::FileOutcome::Broken
               : exchange.response.AppendFile(file, offset, length, sent);
}

bool Pipeline::Finish(Exchange& exchange) const
{
    Response& response = exchange.response;
    if (response.Status() >= 400 && !exchange.body.HasArrived())
        response.Close();
    exchange.ApplyReportedFailure();
    for (const Stage* stage : StagesOf(exchange, kReplyEnd))
        stage->OnReplyEnd(exchange);
    if (!response.HasBegun())
        response.Replace(500, {}, {});
    exchange.ApplyErrorPage();
    if (showsErrorPages_)
        ShowErrorPage(exchange);
    const bool goesOn = response.Finish();
    for (const Stage* stage : StagesOf(exchange, kReplySent))
        stage->OnReplySent(exchange);
    return goesOn;
}

} // namespace kestd
