// SPDX-License-Identifier: Apache-2.0
//
// Tear-off interfaces of the objects that the store hands out: those of a later generation, made
// when QueryInterface asks for one, and the records that they exchange.
#pragma once

#include <algorithm>
#include <cstring>
#include <memory>

#include <kest/dav.h>

#include "providers/filestore/failures.h"

namespace filestore {

// Lives in the object that it is an interface of, and shares its references.
template <class I> class TearOff : public I {
  public:
    explicit TearOff(IUnknown& whole) : whole_(whole) {}
    TearOff(const TearOff&) = delete;
    TearOff& operator=(const TearOff&) = delete;

    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        return whole_.QueryInterface(iid, out);
    }
    UINT32 AddRef() override { return whole_.AddRef(); }
    UINT32 Release() override { return whole_.Release(); }

  protected:
    ~TearOff() = default;

  private:
    IUnknown& whole_;
};

// Hands out the tear-off `F` of an object, and makes it where there is none yet.
template <class I, class F, class Store>
TALSTATUS QueryTearOff(std::unique_ptr<F>* tearOff, IUnknown& whole, Store& store, void** out)
{
    return Protected([&] {
        if (!*tearOff)
            *tearOff = std::make_unique<F>(whole, store);
        whole.AddRef();
        *out = static_cast<I*>(tearOff->get());
        return TAL_STATUS_SUCCESS;
    });
}

// Takes over a caller's record of whatever age; what it lacks is zero. A null pointer is a record
// of zeros. False for one that cannot be a record.
template <class R> [[nodiscard]] bool ReadRecord(const R* from, R* out)
{
    std::memset(static_cast<void*>(out), 0, sizeof *out);
    if (!from)
        return true;
    constexpr UINT32 kLeast = 8;
    if (from->Size < kLeast)
        return false;
    std::memcpy(static_cast<void*>(out), from, std::min<size_t>(from->Size, sizeof *out));
    out->Size = sizeof *out;
    return true;
}

// Fills a caller's record of whatever age; it may be null.
template <class R> void WriteRecord(const R& from, R* out)
{
    if (!out)
        return;
    const UINT32 size = out->Size;
    std::memcpy(static_cast<void*>(out), &from, std::min<size_t>(size, sizeof from));
    if (size >= sizeof size)
        out->Size = size;
}

} // namespace filestore
