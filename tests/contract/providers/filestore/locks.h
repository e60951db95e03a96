// SPDX-License-Identifier: Apache-2.0
//
// Locks through the second generation of the provider interface.
#pragma once

#include "tests/contract/providers/filestore/fixture.h"
#include <cstring>
#include <functional>

namespace filestore_test {

inline constexpr INT64 kSecond = 10'000'000;

class FileStoreLocks : public FileStoreTest {
  protected:
    TALSTATUS Lock(std::string_view path, std::string* token, DAV_LOCK_SCOPE scope = Exclusive,
                   std::string owner = "me", INT64 timeout = 100 * kSecond, INT32 depth = 0)
    {
        Wstr wide(path);
        char buffer[128];
        DAV_LOCK_TOKEN out{0, sizeof buffer, buffer};
        STRING ownerText{static_cast<UINT16>(owner.size()), static_cast<UINT16>(owner.size()),
                         owner.data()};
        DAV_ERROR_ID id = 7;
        const TALSTATUS status =
            Namespace()->Lock(session_, depth, timeout, scope, Write, &wide, &ownerText, &out, &id);
        if (!Failed(status))
            token->assign(buffer, out.Length);
        return status;
    }
    std::string MustLock(std::string_view path)
    {
        std::string token;
        EXPECT_EQ(0u, Lock(path, &token)) << path;
        return token;
    }
    struct Token {
        explicit Token(std::string text) : held(std::move(text))
        {
            value = {static_cast<UINT16>(held.size()), static_cast<UINT16>(held.size()),
                     held.data()};
        }
        std::string held;
        DAV_LOCK_TOKEN value;
    };
    TALSTATUS Unlock(std::string_view path, const std::string& text)
    {
        Wstr wide(path);
        Token token(text);
        return Namespace()->Unlock(session_, &wide, &token.value);
    }
    TALSTATUS Refresh(std::string_view path, const std::string& text, INT64 timeout,
                      DAV_LOCK_2* out)
    {
        Wstr wide(path);
        Token token(text);
        return Namespace()->LockRefresh(session_, static_cast<UINT64>(timeout), &wide, &token.value,
                                        out);
    }
    // Every lock that is found at the path, as "token".
    std::vector<std::string> Found(std::string_view path, DAV_LOCK_2* last = nullptr)
    {
        std::vector<std::string> out;
        Ref<IKestDAVResource2> resource = Opened(path);
        alignas(DAV_LOCK_2) char buffer[kLockRecordBytes];
        auto* const record = reinterpret_cast<DAV_LOCK_2*>(buffer);
        UINT32 size = sizeof buffer;
        TALSTATUS status = resource->GetFirstLock(&size, record);
        while (!Failed(status)) {
            out.emplace_back(buffer + offsetof(DAV_LOCK_2, Token), record->TokenLength);
            if (last)
                *last = *record;
            size = sizeof buffer;
            status = resource->GetNextLock(&size, record);
        }
        EXPECT_EQ(kCodeNoMoreEntries, Code(status));
        return out;
    }
    TALSTATUS PutWith(std::string_view path, const std::string& text)
    {
        Token token(text);
        Wstr wide(path);
        Ref<IKestDAVResource2> resource = NewResource();
        return resource->Associate(session_, TRUE, 7, 1, 0, &wide, &token.value);
    }
    TALSTATUS SetProperty(std::string_view path)
    {
        Wstr name("p");
        char value[] = "v";
        UINT32 length = 0;
        return Opened(path, 0)->SetNamedPropertyEnh(&name, 1, value, &length, nullptr);
    }
    // Runs `operation` within a request with this "If" header.
    TALSTATUS WithIf(std::string_view path, const std::string& header,
                     const std::function<TALSTATUS()>& operation, UINT32 method = KestMethodPut)
    {
        ScriptedRequest request;
        request.method = method;
        request.path = "/Ferro" + std::string(path);
        request.headers["If"] = header;
        const RunningRequest running(request);
        return operation();
    }
    TALSTATUS Delete(std::string_view path)
    {
        Wstr wide(path);
        return Namespace()->Delete(session_, &wide, nullptr, nullptr);
    }
    TALSTATUS Move(std::string_view from, std::string_view to)
    {
        Wstr source(from), destination(to);
        return Namespace()->Move(session_, TRUE, -1, &source, &destination, nullptr, nullptr);
    }
};

} // namespace filestore_test
