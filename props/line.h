// SPDX-License-Identifier: Apache-2.0
//
// A few pieces of reply text that go to the host together: a call per piece is what a listing of a
// hundred thousand members would spend most of its time on.
#pragma once

#include <algorithm>
#include <cstring>

#include "core/reply.h"

// Room for Size bytes, on the stack. What does not fit goes out first.
template <UINT32 Size> class Line {
  public:
    explicit Line(IKestIO_5* io) : io_(io) {}
    ~Line() { Flush(); }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    template <size_t N> Line& operator<<(const char (&literal)[N])
    {
        static_assert(N - 1 <= Size);
        return Add(literal, N - 1);
    }
    Line& Add(const char* text, UINT32 length)
    {
        if (length > Size - used_)
            Flush();
        if (length > Size) {
            PutBytes(io_, text, length);
            return *this;
        }
        if (length != 0)
            std::memcpy(data_ + used_, text, length);
        used_ += length;
        return *this;
    }

  private:
    void Flush()
    {
        if (used_ != 0)
            PutBytes(io_, data_, used_);
        used_ = 0;
    }

    IKestIO_5* io_;
    UINT32 used_ = 0;
    char data_[Size];
};
