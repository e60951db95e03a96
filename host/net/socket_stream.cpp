// SPDX-License-Identifier: Apache-2.0
//
// Receives and sends without keeping the thread, and keeps the end of a reply.
#include "host/net/socket_stream.h"

#include <poll.h>
#include <sys/sendfile.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include <openssl/ssl.h>

#include "host/net/monotonic_clock.h"
#include "host/net/tls.h"

namespace kestd {

namespace {

constexpr int kPieces = 8;           // of one call
constexpr size_t kTlsRecord = 16384; // plain bytes in one TLS record

constexpr ssize_t kCannot = -4; // this file cannot be sent from

// The system calls stand in functions of their own: errno's address, which differs between
// threads, must not stay in a function that waits. They return what the call does, kWouldBlock or
// kBroken.
ssize_t Outcome(ssize_t result) noexcept
{
    if (result >= 0)
        return result;
    return errno == EAGAIN || errno == EWOULDBLOCK ? SocketStream::kWouldBlock
                                                   : SocketStream::kBroken;
}

[[gnu::noinline]] ssize_t ReceiveNow(int fd, void* to, size_t size) noexcept
{
    ssize_t got = 0;
    do
        got = recv(fd, to, size, MSG_DONTWAIT);
    while (got < 0 && errno == EINTR);
    return Outcome(got);
}

[[gnu::noinline]] ssize_t SendNow(int fd, iovec* pieces, int count, bool isMoreComing) noexcept
{
    const int flags = MSG_NOSIGNAL | MSG_DONTWAIT | (isMoreComing ? MSG_MORE : 0);
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = static_cast<size_t>(count);
    ssize_t sent = 0;
    do
        sent = count == 1 ? send(fd, pieces->iov_base, pieces->iov_len, flags)
                          : sendmsg(fd, &message, flags);
    while (sent < 0 && errno == EINTR);
    return Outcome(sent);
}

[[gnu::noinline]] ssize_t SendFileNow(int fd, int file, uint64_t offset, size_t size) noexcept
{
    auto at = static_cast<off_t>(offset);
    ssize_t sent = 0;
    do
        sent = sendfile(fd, file, &at, size);
    while (sent < 0 && errno == EINTR);
    const bool isNoSuchFile = sent < 0 && (errno == EINVAL || errno == ENOSYS);
    return isNoSuchFile ? kCannot : Outcome(sent);
}

size_t SizeOf(const iovec* pieces, int count) noexcept
{
    size_t size = 0;
    for (int i = 0; i < count; ++i)
        size += pieces[i].iov_len;
    return size;
}

// Takes `sent` bytes off the front of the pieces, and empty pieces.
void Advance(iovec*& pieces, int& count, size_t sent) noexcept
{
    while (count && sent >= pieces->iov_len) {
        sent -= pieces->iov_len;
        ++pieces;
        --count;
    }
    if (count) {
        pieces->iov_base = static_cast<char*>(pieces->iov_base) + sent;
        pieces->iov_len -= sent;
    }
}

} // namespace

SocketStream::SocketStream(int fd, ssl_ctx_st* context) : fd_(fd)
{
    if (context)
        ssl_ = MakeTlsSession(context, fd);
}

SocketStream::~SocketStream()
{
    SSL_free(ssl_);
}

std::string SocketStream::ClientName() const
{
    return ssl_ ? TlsClientName(ssl_) : std::string();
}

ssize_t SocketStream::Receive(void* to, size_t size)
{
    const ssize_t got = ssl_ ? ReceiveTls(to, size) : ReceivePlain(to, size);
    if (got > 0)
        moved_ += static_cast<uint64_t>(got);
    return got;
}

ssize_t SocketStream::ReceivePlain(void* to, size_t size)
{
    return ReceiveNow(fd_, to, size);
}

ssize_t SocketStream::ReceiveSome(void* to, size_t size, std::chrono::milliseconds idle,
                                  Waiter& waiter)
{
    ssize_t got = isTooSlow_ ? kTooSlow : Receive(to, size);
    if (got != kWouldBlock)
        return got;
    const int64_t deadline = NowMs() + idle.count();
    while (got == kWouldBlock) {
        isTooSlow_ = !waiter.Wait(ToReceive(), deadline);
        if (isTooSlow_)
            return kTooSlow;
        got = Receive(to, size);
    }
    return got;
}

ssize_t SocketStream::ReceiveFull(void* to, size_t size, std::chrono::milliseconds idle,
                                  Waiter& waiter)
{
    const ssize_t first = isTooSlow_ ? kTooSlow : Receive(to, size);
    if (first != kWouldBlock)
        return first;
    // A full buffer saves calls into the store.
    ssize_t got = 0;
    for (size_t used = 0;; used += static_cast<size_t>(got)) {
        got =
            used < size ? ReceiveSome(static_cast<char*>(to) + used, size - used, idle, waiter) : 0;
        if (got <= 0)
            return used ? static_cast<ssize_t>(used) : got;
    }
}

bool SocketStream::Send(const iovec* pieces, int count, bool isLast,
                        std::chrono::milliseconds stall, Waiter& waiter)
{
    iovec rest[kPieces + 1];
    int used = 0;
    if (HasUnsent())
        rest[used++] = {const_cast<char*>(unsent_.Data()), unsent_.Size()};
    count = std::min(count, kPieces);
    std::copy(pieces, pieces + count, rest + used);
    Buffer earlier = std::move(unsent_); // stays where `rest` points to
    if (!isBroken_)
        isBroken_ = !SendAll(rest, used + count, isLast, stall, waiter);
    return !isBroken_;
}

bool SocketStream::SendAll(iovec* pieces, int count, bool isLast, std::chrono::milliseconds stall,
                           Waiter& waiter)
{
    int64_t deadline = 0; // while the client takes nothing
    for (Advance(pieces, count, 0); count;) {
        const size_t size = SizeOf(pieces, count);
        const ssize_t sent = SendSome(pieces, count);
        if (sent == kBroken)
            return false;
        if (sent > 0) {
            Advance(pieces, count, static_cast<size_t>(sent));
            deadline = 0;
            if (ssl_ || static_cast<size_t>(sent) == size)
                continue; // TLS takes a part at a time
        }
        if (isLast && SizeOf(pieces, count) <= kMostUnsent) {
            Keep(pieces, count);
            return !isBroken_;
        }
        if (deadline == 0)
            deadline = NowMs() + stall.count();
        if (!waiter.Wait(ToSend(), deadline))
            return false;
    }
    return true;
}

bool SocketStream::SendAhead(const iovec* pieces, int count, std::chrono::milliseconds stall,
                             Waiter& waiter)
{
    isMoreComing_ = true;
    const bool isSent = Send(pieces, count, false, stall, waiter);
    isMoreComing_ = false;
    return isSent;
}

SocketStream::FileOutcome SocketStream::SendFile(int file, uint64_t offset, uint64_t length,
                                                 std::chrono::milliseconds stall, Waiter& waiter,
                                                 uint64_t& sent)
{
    constexpr uint64_t kMost = 1024 * 1024; // of one call: other connections wait for the thread
    int64_t deadline = 0;                   // while the client takes nothing
    sent = 0;
    if (HasUnsent() && !SendAhead(nullptr, 0, stall, waiter))
        return FileOutcome::Broken;
    while (sent < length && !isBroken_) {
        const ssize_t now = SendFileNow(fd_, file, offset + sent,
                                        static_cast<size_t>(std::min(length - sent, kMost)));
        if (now == 0)
            break; // the file has become shorter
        if (now > 0) {
            sent += static_cast<uint64_t>(now);
            moved_ += static_cast<uint64_t>(now);
            deadline = 0;
        } else if (now == kCannot && sent == 0) {
            return FileOutcome::Cannot;
        } else {
            if (deadline == 0)
                deadline = NowMs() + stall.count();
            isBroken_ = now != kWouldBlock || !waiter.Wait(Waiter::For::Output, deadline);
        }
    }
    return isBroken_ ? FileOutcome::Broken : FileOutcome::Sent;
}

void SocketStream::Keep(const iovec* pieces, int count)
{
    try {
        for (int i = 0; i < count; ++i)
            unsent_.Append(pieces[i].iov_base, pieces[i].iov_len);
    } catch (const std::bad_alloc&) {
        isBroken_ = true;
    }
}

// The number of bytes, kWouldBlock or kBroken.
ssize_t SocketStream::SendSome(iovec* pieces, int count)
{
    ssize_t sent = kBroken;
    if (!ssl_) {
        sent = SendNow(fd_, pieces, count, isMoreComing_);
    } else {
        // Small pieces share a record: a head and its body then cost one, not two.
        char record[kTlsRecord];
        const char* from = static_cast<const char*>(pieces->iov_base);
        size_t size = pieces->iov_len;
        if (size < kTlsRecord && count > 1) {
            size = 0;
            for (int i = 0; i < count && size < kTlsRecord; ++i) {
                const size_t take = std::min(pieces[i].iov_len, kTlsRecord - size);
                std::memcpy(record + size, pieces[i].iov_base, take);
                size += take;
            }
            from = record;
        }
        size_t written = 0;
        const int result = TlsWrite(ssl_, from, size, written);
        wantsToReceive_ = result == SSL_ERROR_WANT_READ;
        if (result == SSL_ERROR_NONE)
            sent = static_cast<ssize_t>(written);
        else if (result == SSL_ERROR_WANT_WRITE || wantsToReceive_)
            sent = kWouldBlock;
    }
    if (sent > 0)
        moved_ += static_cast<uint64_t>(sent);
    return sent;
}

bool SocketStream::Flush()
{
    while (HasUnsent() && !isBroken_) {
        iovec piece{const_cast<char*>(unsent_.Data()), unsent_.Size()};
        const ssize_t sent = SendSome(&piece, 1);
        if (sent == kWouldBlock)
            return false;
        isBroken_ = sent < 0;
        if (sent > 0)
            unsent_.Consume(static_cast<size_t>(sent));
    }
    unsent_.Release();
    return true;
}

ssize_t SocketStream::ReceiveTls(void* to, size_t size)
{
    size_t got = 0;
    const int result = isBroken_ ? SSL_ERROR_SSL : TlsRead(ssl_, to, size, got);
    wantsToSend_ = result == SSL_ERROR_WANT_WRITE;
    switch (result) {
    case SSL_ERROR_NONE:
        return static_cast<ssize_t>(got);
    case SSL_ERROR_WANT_READ:
    case SSL_ERROR_WANT_WRITE:
        return kWouldBlock;
    case SSL_ERROR_ZERO_RETURN:
        return 0;
    default:
        isBroken_ = true;
        return kBroken;
    }
}

SocketStream::Peer SocketStream::Look() const noexcept
{
    pollfd entry{fd_, POLLRDHUP, 0};
    if (poll(&entry, 1, 0) <= 0)
        return Peer::Present; // or it cannot be told
    return entry.revents & (POLLHUP | POLLERR) ? Peer::Gone : Peer::HasEnded;
}

void SocketStream::EndSending()
{
    if (ssl_ && !isBroken_)
        TlsEnd(ssl_);
    (void)shutdown(fd_, SHUT_WR); // fails when the client is gone, which is as good
}

void SocketStream::ResetAtEnd() noexcept
{
    const linger atOnce{1, 0};
    (void)setsockopt(fd_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce); // cannot fail
}

} // namespace kestd
