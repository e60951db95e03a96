// SPDX-License-Identifier: Apache-2.0
//
// THE ORDER of the stages, and their hooks at each point of a request's way.
#include "host/pipeline/pipeline.h"

#include <cstdint>

#include "host/http/short_reply.h"
#include "host/pipeline/authentication.h"
#include "host/pipeline/body_limits.h"
#include "host/pipeline/client_compatibility.h"
#include "host/pipeline/conditional_requests.h"
#include "host/pipeline/copy_move_headers.h"
#include "host/pipeline/csrf.h"
#include "host/pipeline/granted_lock.h"
#include "host/pipeline/host_check.h"
#include "host/pipeline/overwrite_resolution.h"
#include "host/pipeline/range_requests.h"
#include "host/pipeline/router.h"
#include "host/pipeline/security_headers.h"

namespace kestd {

namespace {

using Methods = uint32_t; // a bit for each number of a method

template <class... Number> constexpr Methods Of(Number... number) noexcept
{
    return ((Methods{1} << number) | ...);
}

constexpr Methods kAll = ~Methods{0};
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
          authentication(accessControl), copyMoveHeaders(location), conditionalRequests(handler),
          overwriteResolution(handler), grantedLocks(handler)
    {
    }

    const SecurityHeaders securityHeaders;
    const HostCheck hostCheck;
    const Router router;
    const Authentication authentication;
    const AuthoringHeader authoringHeader;
    const Csrf csrf;
    const StoredScripts storedScripts;
    const ClientCompatibility clientCompatibility;
    const RangeRequests rangeRequests;
    const CopyMoveHeaders copyMoveHeaders;
    const BodyLimits bodyLimits;
    const ConditionHeaders conditionHeaders;
    const ConditionalRequests conditionalRequests;
    const OverwriteResolution overwriteResolution;
    const GrantedLocks grantedLocks;
};

struct Pipeline::Row {
    std::string_view name;
    const Stage& stage;
    unsigned hooks;
    Methods methods;
    bool isClassicOnly; // the standard dialect's handlers do it themselves
};

Pipeline::Pipeline(Dialect dialect, AccessControl& accessControl, RequestHandler& handler,
                   std::string location)
    : handler_(handler),
      stages_(std::make_unique<const AllStages>(accessControl, handler, location))
{
    const auto at = [](auto... hook) { return ((1U << hook) | ...); };
    const AllStages& all = *stages_;
    // The order. A request goes through the stages from the first to the last, its reply from the
    // last to the first.
    const Row order[] = {
        // clang-format off
        {"security_headers", all.securityHeaders, at(kReplyHead), Of(KestMethodGet, KestMethodPost), false},
        {"host_check", all.hostCheck, at(kRequest), kAll, false},
        {"router", all.router, at(kRequest), kAll, false},
        {"authentication", all.authentication, at(kRequest, kReplyHead), kAll, false},
        {"authoring_header", all.authoringHeader, at(kRequest), Of(KestMethodOptions), false},
        {"csrf", all.csrf, at(kRequest), Of(KestMethodPost), false},
        {"stored_scripts", all.storedScripts, at(kRequest), Of(KestMethodGet), false},
        {"client_compatibility", all.clientCompatibility, at(kReplyEnd), kCopyMove | Of(KestMethodLock), true},
        {"range_requests", all.rangeRequests, at(kRequest, kReplyHead, kReplyBody), Of(KestMethodGet), true},
        {"range_requests", all.rangeRequests, at(kRequest), Of(KestMethodPut), true},
        {"copy_move_headers", all.copyMoveHeaders, at(kRequest), kCopyMove, false},
        {"body_limits", all.bodyLimits, at(kRequest, kReplyEnd), kAll, false},
        {"condition_headers", all.conditionHeaders, at(kBody), kChanging, false},
        {"conditional_requests", all.conditionalRequests, at(kBody), kChanging, true},
        {"overwrite_resolution", all.overwriteResolution, at(kCall, kReplyHead), kCopyMove, true},
        {"granted_lock", all.grantedLocks, at(kReplyHead, kReplyBody, kReplySent), Of(KestMethodLock), true},
        // clang-format on
    };
    for (const Row& row : order)
        if (dialect == Dialect::Classic || !row.isClassicOnly)
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
    do {
        for (const Stage* stage : StagesOf(exchange, kCall))
            stage->OnCall(exchange);
        if (exchange.HasFailed()) // what there is could not be looked at
            return;
        handler_.Handle(exchange);
    } while (exchange.TakeAskAgain());
}

Pipeline::Begun Pipeline::BeginReply(Exchange& exchange, int status) const
{
    if (exchange.response.HasBegun())
        return Begun::Before;
    for (const Stage* stage : StagesOf(exchange, kReplyHead)) {
        if (!stage->OnReplyHead(exchange, status)) {
            exchange.AskAgain();
            return Begun::AskAgain;
        }
    }
    exchange.response.Begin(status);
    exchange.ApplyReportedFailure();
    return Begun::Yes;
}

bool Pipeline::WriteReply(Exchange& exchange, std::string_view piece) const
{
    // A block of content may be dropped unsent, up to the range that is asked for.
    if (exchange.MustAskAgain() || (piece.size() >= kBlock && exchange.response.HasClientLeft()))
        return false;
    bool isOver = false;
    for (const Stage* stage : StagesOf(exchange, kReplyBody))
        piece = stage->OnReplyBody(exchange, piece, isOver);
    exchange.ApplyReportedFailure();
    return exchange.response.Append(piece.data(), piece.size()) && !isOver;
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
    const bool goesOn = response.Finish();
    for (const Stage* stage : StagesOf(exchange, kReplySent))
        stage->OnReplySent(exchange);
    return goesOn;
}

} // namespace kestd
