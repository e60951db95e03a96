// SPDX-License-Identifier: Apache-2.0
//
// Further faces of the objects that the store hands out: an interface of a later generation that is
// found by QueryInterface, and the records that it exchanges.
#pragma once

#include <algorithm>
#include <cstring>
#include <memory>

#include <kest/dav.h>

#include "providers/filestore/failures.h"

namespace filestore {

// Lives in the object that it is a face of, and shares its references.
template <class I> class Face : public I {
  public:
    explicit Face(IUnknown& whole) : whole_(whole) {}
    Face(const Face&) = delete;
    Face& operator=(const Face&) = delete;

    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        return whole_.QueryInterface(iid, out);
    }
    UINT32 AddRef() override { return whole_.AddRef(); }
    UINT32 Release() override { return whole_.Release(); }

  protected:
    ~Face() = default;

  private:
    IUnknown& whole_;
};

// Hands out the face `F` of an object, and makes it where there is none yet.
template <class I, class F, class Store>
TALSTATUS OfferFace(std::unique_ptr<F>* face, IUnknown& whole, Store& store, void** out)
{
    return Protected([&] {
        if (!*face)
            *face = std::make_unique<F>(whole, store);
        whole.AddRef();
        *out = static_cast<I*>(face->get());
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
