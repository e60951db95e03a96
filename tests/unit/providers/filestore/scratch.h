// SPDX-License-Identifier: Apache-2.0
//
// A store over a temporary directory, with a clock that the test turns.
#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "providers/filestore/namespace.h"
#include "providers/filestore/posixfs.h"
#include "providers/filestore/resource.h"
#include "providers/filestore/sqlitemeta.h"
#include "providers/filestore/store.h"
#include "tests/support/temporary_directory.h"

namespace filestore {

inline UINT64 g_now = 130'000'000'000'000'000;

using TempDirectory = test_support::TemporaryDirectory;

using Wrapper = std::function<std::unique_ptr<FileSystem>(std::unique_ptr<FileSystem>)>;

// A store with the one volume "v".
inline std::unique_ptr<Store> MakeStore(const std::filesystem::path& directory,
                                        UINT32 keepDays = 30, SyncLevel sync = SyncLevel::None,
                                        const Wrapper& wrap = {}, UINT64 reserve = 0,
                                        UINT64 keepFree = 0)
{
    int error = 0;
    std::unique_ptr<FileSystem> fs = OpenPosixFileSystem(directory.c_str(), &error);
    EXPECT_NE(nullptr, fs) << error;
    if (wrap)
        fs = wrap(std::move(fs));
    std::vector<std::unique_ptr<Volume>> volumes;
    volumes.push_back(std::make_unique<Volume>("v", std::move(fs), sync, OpenSqliteMetadata));
    Store::Options options;
    options.sync = sync;
    options.keepDeletedDays = keepDays;
    options.reserveBytes = reserve;
    options.keepFreeBytes = keepFree;
    options.now = [] { return g_now; };
    return std::make_unique<Store>(std::move(volumes), options);
}

// Counted strings over ASCII.
class Path {
  public:
    explicit Path(const std::string& text) : text_(text.begin(), text.end())
    {
        value_ = {static_cast<UINT16>(text_.size() * 2), static_cast<UINT16>(text_.size() * 2),
                  text_.data()};
    }
    UNICODE_STRING* Get() { return &value_; }

  private:
    std::u16string text_;
    UNICODE_STRING value_;
};

// The namespace operations and the module's ways of using a resource.
class Client {
  public:
    explicit Client(Store& store) : store_(store) {}
    Store& GetStore() { return store_; }

    TALSTATUS Put(const std::string& path, const std::string& content)
    {
        auto* const resource = new FileResource(store_);
        TALSTATUS status =
            resource->Associate({}, TRUE, kAccessReplaceContent, 1, 0, Path(path).Get(), nullptr);
        UINT32 written = 0;
        if (!Failed(status))
            status = resource->Write(0, static_cast<UINT32>(content.size()),
                                     const_cast<char*>(content.data()), &written);
        resource->Release();
        return status;
    }
    std::string Property(const std::string& path, const std::string& name)
    {
        auto* const resource = new FileResource(store_);
        std::string value(100, '\0');
        UINT32 length = 100;
        TALSTATUS status =
            resource->Associate({}, FALSE, kAccessRead, 1, 0, Path(path).Get(), nullptr);
        if (!Failed(status))
            status = resource->GetNamedProperty(Path(name).Get(), &length, value.data());
        resource->Release();
        return Failed(status) ? "(none)" : value.substr(0, length);
    }
    TALSTATUS SetProperty(const std::string& path, const std::string& name, std::string value)
    {
        auto* const resource = new FileResource(store_);
        UINT32 length = 0;
        TALSTATUS status =
            resource->Associate({}, FALSE, kAccessAttributesOnly, 3, 0, Path(path).Get(), nullptr);
        if (!Failed(status))
            status =
                resource->SetNamedPropertyEnh(Path(name).Get(), static_cast<UINT32>(value.size()),
                                              value.data(), &length, nullptr);
        resource->Release();
        return status;
    }
    TALSTATUS RemoveProperty(const std::string& path, const std::string& name)
    {
        auto* const resource = new FileResource(store_);
        UINT32 length = 0;
        TALSTATUS status =
            resource->Associate({}, FALSE, kAccessAttributesOnly, 3, 0, Path(path).Get(), nullptr);
        if (!Failed(status))
            status = resource->SetNamedPropertyEnh(Path(name).Get(), 0, nullptr, &length, nullptr);
        resource->Release();
        return status;
    }
    TALSTATUS Delete(const std::string& path, std::string token = {})
    {
        const auto size = static_cast<UINT16>(token.size());
        DAV_LOCK_TOKEN given{size, size, token.data()};
        return WithNamespace([&](auto& ns) {
            return ns.Delete({}, Path(path).Get(), size ? &given : nullptr, nullptr);
        });
    }
    TALSTATUS MkCol(const std::string& path)
    {
        return WithNamespace([&](auto& ns) { return ns.MkCol({}, nullptr, Path(path).Get()); });
    }
    TALSTATUS Move(const std::string& from, const std::string& to, bool overwrite = true)
    {
        return WithNamespace([&](auto& ns) {
            return ns.Move({}, overwrite, -1, Path(from).Get(), Path(to).Get(), nullptr, nullptr);
        });
    }
    TALSTATUS Copy(const std::string& from, const std::string& to, bool overwrite = true)
    {
        return WithNamespace([&](auto& ns) {
            return ns.Copy({}, overwrite, -1, Path(from).Get(), Path(to).Get(), nullptr, nullptr);
        });
    }
    TALSTATUS Lock(const std::string& path, INT64 timeout, std::string* token)
    {
        char buffer[64];
        DAV_LOCK_TOKEN out{0, sizeof buffer, buffer};
        STRING owner{};
        const TALSTATUS status = WithNamespace([&](auto& ns) {
            return ns.Lock({}, 0, timeout, Exclusive, Write, Path(path).Get(), &owner, &out,
                           nullptr);
        });
        if (!Failed(status))
            token->assign(buffer, out.Length);
        return status;
    }

    TALSTATUS Unlock(const std::string& path, std::string token)
    {
        const auto size = static_cast<UINT16>(token.size());
        DAV_LOCK_TOKEN given{size, size, token.data()};
        return WithNamespace([&](auto& ns) { return ns.Unlock({}, Path(path).Get(), &given); });
    }
    TALSTATUS Refresh(const std::string& path, UINT64 timeout, std::string token)
    {
        const auto size = static_cast<UINT16>(token.size());
        DAV_LOCK_TOKEN given{size, size, token.data()};
        alignas(DAV_LOCK_2) char record[kLockRecordBytes];
        return WithNamespace([&](auto& ns) {
            return ns.LockRefresh({}, timeout, Path(path).Get(), &given,
                                  reinterpret_cast<DAV_LOCK_2*>(record));
        });
    }

  private:
    template <class F> TALSTATUS WithNamespace(F&& call)
    {
        auto* const ns = new FileNamespace(store_);
        const TALSTATUS status = call(*ns);
        ns->Release();
        return status;
    }
    Store& store_;
};

inline std::string Contents(const std::filesystem::path& path)
{
    return test_support::ReadFile(path);
}

// Names in a private directory, without the files that stand for processes.
inline std::vector<std::string> Leftovers(const std::filesystem::path& directory)
{
    std::vector<std::string> out;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        if (entry.path().extension() != ".lock")
            out.push_back(entry.path().filename());
    return out;
}

} // namespace filestore
