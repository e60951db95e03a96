// SPDX-License-Identifier: Apache-2.0
//
// One interface to providers of the first and the second generation: opened resources, opened
// collections, and the namespace operations. This is the only place that branches on the
// generation; what only the second one can do is reached through Second().
#pragma once

#include "support/globals.h"

// What resources and collections have in common. Open() creates the object, Associate() binds it to
// a path.
template <class Interface2, class Interface1> class DavObject {
  public:
    // Creates the provider's object of its generation.
    [[nodiscard]] TALSTATUS Open(const KESTDAV_HANDLER& handler)
    {
        return handler.pIKestDav2 ? Create(handler.ClassId, second_)
                                  : Create(handler.ClassId, first_);
    }
    TALSTATUS GetDisplayName(UNICODE_STRING* name)
    {
        return Call(&Interface2::GetDisplayName, &Interface1::GetDisplayName, name);
    }
    TALSTATUS GetCreationDate(DAV_DATETIME* date)
    {
        return Call(&Interface2::GetCreationDate, &Interface1::GetCreationDate, date);
    }
    TALSTATUS GetModificationDate(DAV_DATETIME* date)
    {
        return Call(&Interface2::GetModificationDate, &Interface1::GetModificationDate, date);
    }
    TALSTATUS SetCreationDate(DAV_DATETIME date)
    {
        return Call(&Interface2::SetCreationDate, &Interface1::SetCreationDate, date);
    }
    TALSTATUS SetModificationDate(DAV_DATETIME date)
    {
        return Call(&Interface2::SetModificationDate, &Interface1::SetModificationDate, date);
    }
    TALSTATUS GetLiveAttributes(UINT32* attributes)
    {
        return Call(&Interface2::GetLiveAttributes, &Interface1::GetLiveAttributes, attributes);
    }
    TALSTATUS SetLiveAttributes(UINT32 attributes)
    {
        return Call(&Interface2::SetLiveAttributes, &Interface1::SetLiveAttributes, attributes);
    }

    // The second-generation object, borrowed; null for a first-generation provider.
    Interface2* Second() const { return second_.Get(); }
    // Releases the object before the scope ends.
    void Close()
    {
        second_ = {};
        first_ = {};
    }

  protected:
    template <class F2, class F1, class... A> TALSTATUS Call(F2 f2, F1 f1, A... a)
    {
        return second_ ? (second_.Get()->*f2)(a...) : (first_.Get()->*f1)(a...);
    }

    Ref<Interface2> second_;
    Ref<Interface1> first_;
};

class DavResource : public DavObject<IKestDAVResource2, IKestDAVResource> {
  public:
    // The first generation takes no token.
    [[nodiscard]] TALSTATUS Associate(SCHANDLE session, BOOLEAN create, DAV_OPEN_ACCESS access,
                                      DAV_SHARE_MODE share, UNICODE_STRING* path,
                                      DAV_LOCK_TOKEN* token)
    {
        return second_ ? second_->Associate(session, create, access, share, 0, path, token)
                       : first_->Associate(session, create, access, share, 0, path);
    }
    [[nodiscard]] TALSTATUS Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read)
    {
        return Call(&IKestDAVResource2::Read, &IKestDAVResource::Read, offset, length, buffer,
                    read);
    }
    [[nodiscard]] TALSTATUS Write(UINT64 offset, UINT32 length, char* buffer, UINT32* written)
    {
        return Call(&IKestDAVResource2::Write, &IKestDAVResource::Write, offset, length, buffer,
                    written);
    }
    TALSTATUS GetResourceSize(UINT64* size)
    {
        return Call(&IKestDAVResource2::GetResourceSize, &IKestDAVResource::GetResourceSize, size);
    }
};

class DavCollection : public DavObject<IKestDAVCollection2, IKestDAVCollection> {
  public:
    // The first generation takes no token.
    [[nodiscard]] TALSTATUS Associate(SCHANDLE session, UNICODE_STRING* path, DAV_LOCK_TOKEN* token)
    {
        return second_ ? second_->Associate(session, path, token)
                       : first_->Associate(session, path);
    }
    [[nodiscard]] TALSTATUS GetFirstChild(UINT32* size, DAV_COMMON_ENUM* buffer)
    {
        return Call(&IKestDAVCollection2::GetFirstChild, &IKestDAVCollection::GetFirstChild, size,
                    buffer);
    }
    [[nodiscard]] TALSTATUS GetNextChild(UINT32* size, DAV_COMMON_ENUM* buffer)
    {
        return Call(&IKestDAVCollection2::GetNextChild, &IKestDAVCollection::GetNextChild, size,
                    buffer);
    }
};

// Namespace operations. Tokens reach second-generation providers only.
class DavNamespace {
  public:
    explicit DavNamespace(const KESTDAV_HANDLER& handler)
        : second_(handler.pIKestDav2), first_(handler.pIKestDav)
    {
    }

    [[nodiscard]] TALSTATUS GetType(SCHANDLE session, UNICODE_STRING* path, DAV_TYPE* type) const
    {
        return second_ ? second_->GetType(session, path, type)
                       : first_->GetType(session, path, type);
    }
    [[nodiscard]] TALSTATUS MkCol(SCHANDLE session, DAV_LOCK_TOKEN* token,
                                  UNICODE_STRING* path) const
    {
        return second_ ? second_->MkCol(session, token, path) : first_->MkCol(session, path);
    }
    [[nodiscard]] TALSTATUS Delete(SCHANDLE session, UNICODE_STRING* path,
                                   DAV_LOCK_TOKEN* token) const
    {
        DAV_ERROR_ID errorId = 0;
        return second_ ? second_->Delete(session, path, token, &errorId)
                       : first_->Delete(session, path, &errorId);
    }
    [[nodiscard]] TALSTATUS Move(SCHANDLE session, BOOLEAN overwrite, INT32 depth,
                                 UNICODE_STRING* source, UNICODE_STRING* destination,
                                 DAV_LOCK_TOKEN* token) const
    {
        DAV_ERROR_ID errorId = 0;
        return second_
                   ? second_->Move(session, overwrite, depth, source, destination, token, &errorId)
                   : first_->Move(session, overwrite, depth, source, destination, &errorId);
    }
    TALSTATUS BeginSession(SCHANDLE session) const
    {
        return second_ ? second_->BeginSession(session) : first_->BeginSession(session);
    }
    TALSTATUS EndSession(SCHANDLE session) const
    {
        return second_ ? second_->EndSession(session) : first_->EndSession(session);
    }
    TALSTATUS GetDAVSupport(UINT32* caps) const
    {
        return second_ ? second_->GetDAVSupport(caps) : first_->GetDAVSupport(caps);
    }

  private:
    IKestDAV2* second_;
    IKestDAV* first_;
};
