// SPDX-License-Identifier: Apache-2.0
//
// A buffer between the writers of a multistatus body and the host's IKestIO_5: the pieces of one
// response element go to the host in one call. With a call for each piece, calls would be most of
// the time that a large listing takes.
#pragma once

#include <cstring>
#include <string_view>

#include "support/globals.h"
#include "support/reply.h"

class BufferedIo {
  public:
    explicit BufferedIo(IKestIO_5* io) : io_(io) {}
    ~BufferedIo() { Flush(); }
    BufferedIo(const BufferedIo&) = delete;
    BufferedIo& operator=(const BufferedIo&) = delete;

    // The I/O object itself, for all but the body.
    IKestIO_5* Host() const { return io_; }

    // Appends to the body, and sends what was buffered before where there is no room for more.
    void Add(const void* data, UINT32 size)
    {
        if (size > kRoom - used_) {
            Flush();
            if (size > kRoom) {
                PutBytes(io_, data, size);
                return;
            }
        }
        if (size != 0)
            std::memcpy(text_ + used_, data, size);
        used_ += size;
    }

    // Sends what is buffered. PutString ends at a NUL, which a provider's value may hold.
    void Flush()
    {
        text_[used_] = '\0';
        if (std::memchr(text_, '\0', used_))
            PutBytes(io_, text_, used_);
        else if (used_ != 0)
            ::Put(io_, text_);
        used_ = 0;
    }

    // What hrefs of this request begin with: scheme, "://" and host. Asked of the host once.
    std::string_view Origin();

  private:
    static constexpr UINT32 kRoom = 4096;
    static constexpr UINT32 kOriginRoom = 256 + 3 + kConfigTextBytes; // protocol, "://", host

    IKestIO_5* io_;
    UINT32 used_ = 0;
    UINT32 originLength_ = 0; // 0: not asked yet
    char origin_[kOriginRoom];
    char text_[kRoom + 1]; // and a terminator
};

// Fixed text. Its length is that of the literal; text made at run time goes through PutBytes.
template <size_t N> void Put(BufferedIo* io, const char (&literal)[N])
{
    io->Add(literal, N - 1);
}
template <size_t N> void Put(BufferedIo* io, char (&buffer)[N]) = delete;

inline void PutBytes(BufferedIo* io, const void* data, UINT32 size)
{
    io->Add(data, size);
}

inline void PutText(BufferedIo* io, std::string_view text)
{
    io->Add(text.data(), static_cast<UINT32>(text.size()));
}
