// SPDX-License-Identifier: Apache-2.0
//
// Changes through the third generation of the provider interface, on a store without its library.
// They take no memory of their own: tests let that fail.
#pragma once

#include <algorithm>
#include <string_view>
#include <utility>

#include "providers/filestore/namespace.h"
#include "providers/filestore/resource.h"

namespace filestore::third {

inline constexpr UINT64 kDate = 12'900'000'000ull * 10'000'000;

inline DAV_TEXT Text(std::string_view text)
{
    return {text.data(), static_cast<UINT32>(text.size())};
}

// Counted strings over ASCII, which take no memory.
class Name {
  public:
    explicit Name(std::string_view text)
    {
        std::copy(text.begin(), text.end(), text_);
        value_ = {static_cast<UINT16>(text.size() * 2), static_cast<UINT16>(text.size() * 2),
                  text_};
    }
    UNICODE_STRING* operator&() { return &value_; }

  private:
    WCHAR text_[64];
    UNICODE_STRING value_;
};

// With a reference of its own: the faces go with their objects.
template <class Object, class I, class F> TALSTATUS With(Store& store, F&& work)
{
    void* face = nullptr;
    Object* object = nullptr;
    TALSTATUS status = Protected([&] {
        object = new Object(store);
        return object->QueryInterface(&IidOf<I>::value, &face);
    });
    if (!Failed(status)) {
        status = work(*static_cast<I*>(face));
        static_cast<I*>(face)->Release();
    }
    if (object)
        object->Release();
    return status;
}

template <class F> TALSTATUS InNamespace(Store& store, F&& work)
{
    return With<FileNamespace, IKestDAV3>(store, std::forward<F>(work));
}

inline TALSTATUS StoreContent(Store& store, const char* path, UINT32 purpose)
{
    return With<FileResource, IKestDAVResource3>(store, [&](IKestDAVResource3& content) {
        Name name(path);
        DAV_CHANGE change{};
        change.Size = sizeof change;
        TALSTATUS status = content.Open({}, &name, purpose, 3, nullptr, nullptr, nullptr);
        if (!Failed(status))
            status = content.Write(2, 3, "new");
        return Failed(status) ? status : content.Publish(kDate, kDate, nullptr, &change);
    });
}

// The place of an upload that was begun.
struct Begun {
    char name[kUploadNameBytes] = {};
    UINT32 length = 0;
    DAV_TEXT Text() const { return {name, length}; }
};

inline TALSTATUS BeginUpload(IKestDAVUploads3& uploads, const char* path, UINT64 length,
                             Begun* begun)
{
    Name name(path);
    const DAV_TEXT terms = Text("terms");
    DAV_UPLOAD upload{};
    upload.Size = sizeof upload;
    const TALSTATUS status = uploads.Begin({}, &name, length, &terms, nullptr, nullptr, &upload);
    begun->length = upload.NameLength;
    std::copy_n(upload.Name, upload.NameLength, begun->name);
    return status;
}

// Adds a text at `offset` and keeps it, or with `isLast` publishes all of it.
inline TALSTATUS AppendToUpload(IKestDAVUploads3& uploads, const char* path, const Begun& begun,
                                UINT64 offset, std::string_view text, bool isLast)
{
    Name name(path);
    const DAV_TEXT place = begun.Text();
    DAV_CHANGE change{};
    change.Size = sizeof change;
    IKestDAVResource3* content = nullptr;
    TALSTATUS status =
        uploads.Continue({}, &name, &place, offset, kUploadLengthUnknown, nullptr, &content);
    if (Failed(status))
        return status;
    status = content->Write(offset, static_cast<UINT32>(text.size()), text.data());
    if (!Failed(status) && isLast)
        status = content->Publish(kDate, kDate, nullptr, &change);
    content->Release();
    return status;
}

// How far it has come; UINT64's most for a failure.
inline UINT64 OffsetOfUpload(IKestDAVUploads3& uploads, const char* path, const Begun& begun)
{
    Name name(path);
    const DAV_TEXT place = begun.Text();
    DAV_UPLOAD upload{};
    upload.Size = sizeof upload;
    return Failed(uploads.Find({}, &name, &place, nullptr, nullptr, &upload)) ? ~UINT64{0}
                                                                              : upload.Offset;
}

template <class F> TALSTATUS WithUploads(Store& store, F&& work)
{
    return With<FileNamespace, IKestDAVUploads3>(store, std::forward<F>(work));
}

// An upload in two parts, of which nothing is left but the file. What fails is dropped.
inline TALSTATUS StoreInParts(Store& store, const char* path)
{
    return WithUploads(store, [&](IKestDAVUploads3& uploads) {
        Begun begun;
        TALSTATUS status = BeginUpload(uploads, path, 6, &begun);
        if (Failed(status))
            return status;
        status = AppendToUpload(uploads, path, begun, 0, "old", false);
        if (!Failed(status) && OffsetOfUpload(uploads, path, begun) != 3)
            status = TAL_STATUS_UNSUCCESSFUL;
        if (!Failed(status))
            status = AppendToUpload(uploads, path, begun, 3, "new", true);
        Name name(path);
        const DAV_TEXT place = begun.Text();
        for (int attempt = 0; attempt < 2; ++attempt)
            if (!Failed(uploads.Cancel({}, &name, &place)))
                break;
        return status;
    });
}

inline TALSTATUS BeginAndCancel(Store& store, const char* path)
{
    return WithUploads(store, [&](IKestDAVUploads3& uploads) {
        Begun begun;
        Name name(path);
        const TALSTATUS status = BeginUpload(uploads, path, 6, &begun);
        const DAV_TEXT place = begun.Text();
        return Failed(status) ? status : uploads.Cancel({}, &name, &place);
    });
}

// The first part of one, of which the caller hears how far it has come.
inline TALSTATUS StoreFirstPart(Store& store, const char* path)
{
    return WithUploads(store, [&](IKestDAVUploads3& uploads) {
        Begun begun;
        TALSTATUS status = BeginUpload(uploads, path, 6, &begun);
        if (!Failed(status))
            status = AppendToUpload(uploads, path, begun, 0, "old", false);
        if (!Failed(status) && OffsetOfUpload(uploads, path, begun) != 3)
            status = TAL_STATUS_UNSUCCESSFUL;
        return status;
    });
}

inline TALSTATUS Relocate(Store& store, bool isMove, const char* from, const char* to)
{
    return InNamespace(store, [&](IKestDAV3& space) {
        Name source(from), destination(to);
        return isMove ? space.Move({}, &source, &destination, kRelocateOverwrite, nullptr, nullptr,
                                   nullptr)
                      : space.Copy({}, &source, &destination, kRelocateOverwrite, nullptr, nullptr,
                                   nullptr);
    });
}

struct Patch {
    DAV_PROPERTY_CHANGE list[5] = {
        {sizeof(DAV_PROPERTY_CHANGE), kPropertySet, Text("urn:x"), Text("p"), Text("<p/>"), 0, 0},
        {sizeof(DAV_PROPERTY_CHANGE), kPropertyRemove, Text(""), Text("color"), {}, 0, 0},
        {sizeof(DAV_PROPERTY_CHANGE), kPropertyModified, {}, {}, {}, kDate, 0},
        {sizeof(DAV_PROPERTY_CHANGE), kPropertyCreated, {}, {}, {}, kDate, 0},
        {sizeof(DAV_PROPERTY_CHANGE), kPropertyAttributes, {}, {}, {}, 3, 0}};
};

inline TALSTATUS TakeLock(Store& store, const char* path)
{
    return InNamespace(store, [&](IKestDAV3& space) {
        Name name(path);
        const DAV_LOCK_REQUEST request{sizeof request, Exclusive, Write, -1, -1, Text("me")};
        alignas(8) char lock[512];
        UINT32 size = sizeof lock;
        return space.Lock({}, &name, &request, nullptr, nullptr, &size,
                          reinterpret_cast<DAV_LOCK_INFO_3*>(lock), nullptr);
    });
}

// The changes of a Patch from `first` on, `count` of them: two dead ones, then dates and
// attributes.
inline TALSTATUS PatchObject(Store& store, const char* path, size_t first = 0, UINT32 count = 5)
{
    return InNamespace(store, [&](IKestDAV3& space) {
        Name name(path);
        Patch patch;
        return space.PatchProperties({}, &name, nullptr, count, patch.list + first, nullptr,
                                     nullptr);
    });
}

inline TALSTATUS MakeFolder(Store& store, const char* path)
{
    return InNamespace(store, [&](IKestDAV3& space) {
        Name name(path);
        Patch patch;
        return space.MakeCollection({}, &name, nullptr, 5, patch.list, nullptr, nullptr);
    });
}

inline TALSTATUS DeleteObject(Store& store, const char* path)
{
    return InNamespace(store, [&](IKestDAV3& space) {
        Name name(path);
        return space.Delete({}, &name, nullptr, nullptr);
    });
}

} // namespace filestore::third
