// SPDX-License-Identifier: Apache-2.0
#include "host/transport.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include <openssl/ssl.h>

#include "host/tls.h"

namespace kestd {

namespace {

constexpr int kPieces = 8;           // of one call
constexpr size_t kTlsRecord = 16384; // plain bytes in one TLS record

void SetTimeout(int fd, int option, std::chrono::milliseconds time)
{
    const auto ms = std::max<int64_t>(time.count(), 1);
    timeval value{};
    value.tv_sec = ms / 1000;
    value.tv_usec = ms % 1000 * 1000;
    (void)setsockopt(fd, SOL_SOCKET, option, &value, sizeof value); // cannot fail for a socket
}

bool IsWouldBlock(int error) noexcept
{
    return error == EAGAIN || error == EWOULDBLOCK;
}

// Takes `sent` bytes off the front of the pieces.
void Advance(iovec*& pieces, int& count, size_t sent)
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

Transport::Transport(int fd, ssl_ctx_st* context) : fd_(fd)
{
    if (context)
        ssl_ = MakeTlsSession(context, fd);
}

Transport::~Transport()
{
    SSL_free(ssl_);
}

ssize_t Transport::Receive(void* to, size_t size)
{
    if (ssl_)
        return ReceiveTls(to, size);
    for (;;) {
        const ssize_t got = recv(fd_, to, size, MSG_DONTWAIT);
        if (got >= 0)
            return got;
        if (errno != EINTR)
            return IsWouldBlock(errno) ? kWouldBlock : kBroken;
    }
}

ssize_t Transport::ReceiveWaiting(void* to, size_t size, std::chrono::milliseconds idle,
                                  WaitWatcher& watcher)
{
    return ReceiveInTime(to, size, idle, watcher, true);
}

ssize_t Transport::ReceiveSome(void* to, size_t size, std::chrono::milliseconds idle,
                               WaitWatcher& watcher)
{
    return ReceiveInTime(to, size, idle, watcher, false);
}

ssize_t Transport::ReceiveInTime(void* to, size_t size, std::chrono::milliseconds idle,
                                 WaitWatcher& watcher, bool fills)
{
    ssize_t got = Receive(to, size);
    if (ssl_) {
        while (got == kWouldBlock) {
            if (!WaitFor(wantsToSend_ ? POLLOUT : POLLIN, idle, watcher))
                return kTooSlow;
            got = Receive(to, size);
        }
        return got;
    }
    if (got != kWouldBlock)
        return got;
    if (receiveTimeout_ != idle) {
        SetTimeout(fd_, SO_RCVTIMEO, idle);
        receiveTimeout_ = idle;
    }
    watcher.BeforeWait();
    for (;;) {
        // Waiting for a full buffer saves calls into the store; the timeout ends it with what came.
        got = recv(fd_, to, size, fills ? MSG_WAITALL : 0);
        if (got >= 0)
            return got;
        if (errno != EINTR)
            return IsWouldBlock(errno) ? kTooSlow : kBroken;
    }
}

bool Transport::Send(const iovec* pieces, int count, std::chrono::milliseconds stall,
                     WaitWatcher& watcher)
{
    if (isBroken_)
        return false;
    if (!ssl_) {
        iovec copy[kPieces];
        count = std::min(count, kPieces);
        std::copy(pieces, pieces + count, copy);
        isBroken_ = !SendPlain(copy, count, stall, watcher);
        return !isBroken_;
    }
    if (count == 1)
        return !(isBroken_ = !SendTls(static_cast<const char*>(pieces->iov_base), pieces->iov_len,
                                      stall, watcher));
    // Small pieces share a record: a head and its body then cost one, not two.
    char record[kTlsRecord];
    size_t used = 0;
    for (int i = 0; i < count && !isBroken_; ++i) {
        const char* bytes = static_cast<const char*>(pieces[i].iov_base);
        size_t left = pieces[i].iov_len;
        while (left && !isBroken_) {
            if (used == 0 && left >= kTlsRecord) {
                isBroken_ = !SendTls(bytes, left, stall, watcher);
                break;
            }
            const size_t take = std::min(left, kTlsRecord - used);
            std::memcpy(record + used, bytes, take);
            used += take;
            bytes += take;
            left -= take;
            if (used == kTlsRecord) {
                isBroken_ = !SendTls(record, used, stall, watcher);
                used = 0;
            }
        }
    }
    if (used && !isBroken_)
        isBroken_ = !SendTls(record, used, stall, watcher);
    return !isBroken_;
}

bool Transport::SendPlain(iovec* pieces, int count, std::chrono::milliseconds stall,
                          WaitWatcher& watcher)
{
    Advance(pieces, count, 0); // drops empty pieces
    int flags = MSG_NOSIGNAL | MSG_DONTWAIT;
    while (count) {
        msghdr message{};
        message.msg_iov = pieces;
        message.msg_iovlen = static_cast<size_t>(count);
        const ssize_t sent = count == 1 ? send(fd_, pieces->iov_base, pieces->iov_len, flags)
                                        : sendmsg(fd_, &message, flags);
        if (sent >= 0) {
            Advance(pieces, count, static_cast<size_t>(sent));
        } else if (errno != EINTR && (!IsWouldBlock(errno) || !(flags & MSG_DONTWAIT))) {
            return false; // gone, or took nothing for the whole time
        }
        if (count && (flags & MSG_DONTWAIT)) {
            if (stall.count() == 0)
                return false;
            if (sendTimeout_ != stall) {
                SetTimeout(fd_, SO_SNDTIMEO, stall);
                sendTimeout_ = stall;
            }
            watcher.BeforeWait();
            flags = MSG_NOSIGNAL;
        }
    }
    return true;
}

bool Transport::SendTls(const char* bytes, size_t size, std::chrono::milliseconds stall,
                        WaitWatcher& watcher)
{
    while (size) {
        size_t written = 0;
        const int result = TlsWrite(ssl_, bytes, size, written);
        if (result == SSL_ERROR_NONE) {
            bytes += written;
            size -= written;
        } else if (result == SSL_ERROR_WANT_WRITE || result == SSL_ERROR_WANT_READ) {
            const short events = result == SSL_ERROR_WANT_WRITE ? POLLOUT : POLLIN;
            if (stall.count() == 0 || !WaitFor(events, stall, watcher))
                return false;
        } else {
            return false;
        }
    }
    return true;
}

ssize_t Transport::ReceiveTls(void* to, size_t size)
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

bool Transport::WaitFor(short events, std::chrono::milliseconds time, WaitWatcher& watcher) const
{
    watcher.BeforeWait();
    const auto end = std::chrono::steady_clock::now() + time;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return false;
        pollfd entry{fd_, events, 0};
        const int ready =
            poll(&entry, 1, static_cast<int>(std::min<int64_t>(left.count(), 1 << 30)));
        if (ready > 0)
            return true;
        if (ready == 0 || errno != EINTR)
            return false;
    }
}

void Transport::EndSending()
{
    if (ssl_ && !isBroken_)
        TlsEnd(ssl_);
    (void)shutdown(fd_, SHUT_WR); // fails when the client is gone, which is as good
}

void Transport::ResetAtEnd() noexcept
{
    const linger atOnce{1, 0};
    (void)setsockopt(fd_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce); // cannot fail
}

} // namespace kestd
