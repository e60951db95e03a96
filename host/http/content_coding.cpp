// SPDX-License-Identifier: Apache-2.0
//
// Gzip by zlib and zstd by libzstd, with small windows: what the server says repeats itself at
// once.
#include "host/http/content_coding.h"

#include <algorithm>
#include <new>

#include <zlib.h>
#include <zstd.h>

#include "base/ascii.h"
#include "host/http/quality.h"

namespace kestd {

namespace {

constexpr size_t kRoomAtOnce = 16 * 1024; // of room for what comes out

class GzipCoder final : public ContentCoder {
  public:
    GzipCoder() noexcept
    {
        constexpr int kWindow = 14; // bits; 64 KiB of memory
        constexpr int kGzip = 16;   // a gzip header instead of zlib's
        constexpr int kMemory = 7;  // 64 KiB
        isOpen_ = deflateInit2(&stream_, 4, Z_DEFLATED, kWindow + kGzip, kMemory,
                               Z_DEFAULT_STRATEGY) == Z_OK;
    }
    ~GzipCoder() override
    {
        if (isOpen_)
            (void)deflateEnd(&stream_); // says only that it was not at the end
    }
    GzipCoder(const GzipCoder&) = delete;
    GzipCoder& operator=(const GzipCoder&) = delete;
    bool IsOpen() const noexcept { return isOpen_; }

    bool Code(std::string_view piece, bool isLast, Buffer& out) override
    {
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(piece.data()));
        stream_.avail_in = static_cast<uInt>(piece.size()); // pieces are below 1 MiB
        const int flush = isLast ? Z_FINISH : Z_SYNC_FLUSH;
        for (;;) {
            const size_t room = out.Reserve(kRoomAtOnce);
            stream_.next_out = reinterpret_cast<Bytef*>(out.Tail());
            stream_.avail_out = static_cast<uInt>(room);
            const int result = deflate(&stream_, flush);
            out.Grew(room - stream_.avail_out);
            if (result == Z_STREAM_END)
                return true;
            if (result != Z_OK && result != Z_BUF_ERROR)
                return false;
            if (stream_.avail_out != 0) // all is out
                return !isLast && stream_.avail_in == 0;
        }
    }

  private:
    z_stream stream_{};
    bool isOpen_ = false;
};

class ZstdCoder final : public ContentCoder {
  public:
    ZstdCoder() noexcept : context_(ZSTD_createCCtx())
    {
        if (!context_)
            return;
        isOpen_ = !ZSTD_isError(ZSTD_CCtx_setParameter(context_, ZSTD_c_compressionLevel, 2)) &&
                  !ZSTD_isError(ZSTD_CCtx_setParameter(context_, ZSTD_c_windowLog, 15)) &&
                  !ZSTD_isError(ZSTD_CCtx_setParameter(context_, ZSTD_c_checksumFlag, 0));
    }
    ~ZstdCoder() override { ZSTD_freeCCtx(context_); }
    ZstdCoder(const ZstdCoder&) = delete;
    ZstdCoder& operator=(const ZstdCoder&) = delete;
    bool IsOpen() const noexcept { return isOpen_; }

    bool Code(std::string_view piece, bool isLast, Buffer& out) override
    {
        ZSTD_inBuffer in{piece.data(), piece.size(), 0};
        for (;;) {
            ZSTD_outBuffer to{nullptr, out.Reserve(kRoomAtOnce), 0};
            to.dst = out.Tail();
            const size_t left =
                ZSTD_compressStream2(context_, &to, &in, isLast ? ZSTD_e_end : ZSTD_e_flush);
            out.Grew(to.pos);
            if (ZSTD_isError(left))
                return false;
            if (left == 0)
                return true;
        }
    }

  private:
    ZSTD_CCtx* const context_;
    bool isOpen_ = false;
};

template <class Coder> std::unique_ptr<ContentCoder> MakeCoder() noexcept
{
    std::unique_ptr<Coder> coder(new (std::nothrow) Coder);
    if (!coder || !coder->IsOpen())
        return nullptr;
    return coder;
}

} // namespace

ContentCoding ChooseCoding(std::string_view accepted) noexcept
{
    constexpr unsigned kUnsaid = 2000; // more than any weight
    unsigned gzip = kUnsaid;
    unsigned zstd = kUnsaid;
    unsigned identity = kUnsaid;
    unsigned others = kUnsaid;
    WeightedElement element;
    while (NextWeighted(accepted, element)) {
        const auto is = [&](std::string_view name) {
            return base::EqualsIgnoringCase(element.value, name);
        };
        if (is("gzip") || is("x-gzip"))
            gzip = element.weight;
        else if (is("zstd"))
            zstd = element.weight;
        else if (is("identity"))
            identity = element.weight;
        else if (is("*"))
            others = element.weight;
    }
    const auto orElse = [](unsigned weight, unsigned instead) {
        return weight == kUnsaid ? instead : weight;
    };
    others = orElse(others, kUnsaid);
    gzip = orElse(orElse(gzip, others), 0);
    zstd = orElse(orElse(zstd, others), 0);
    const unsigned best = std::max(gzip, zstd);
    // Identity is there unless it is ruled out, but a coding that is named goes before one that is
    // not.
    if (best == 0 || best > 1000 || (identity != kUnsaid && identity > best))
        return ContentCoding::Identity;
    return zstd == best ? ContentCoding::Zstd : ContentCoding::Gzip;
}

std::string_view CodingName(ContentCoding coding) noexcept
{
    switch (coding) {
    case ContentCoding::Gzip:
        return "gzip";
    case ContentCoding::Zstd:
        return "zstd";
    default:
        return "identity";
    }
}

std::unique_ptr<ContentCoder> ContentCoder::Make(ContentCoding coding) noexcept
{
    if (coding == ContentCoding::Gzip)
        return MakeCoder<GzipCoder>();
    return coding == ContentCoding::Zstd ? MakeCoder<ZstdCoder>() : nullptr;
}

} // namespace kestd
