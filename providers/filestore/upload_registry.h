// SPDX-License-Identifier: Apache-2.0
//
// The uploads of a volume that requests of this process are working on: one object for each, so
// that a request meets the one that it takes the upload from.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace filestore {

class PendingUpload;

class UploadRegistry {
  public:
    // A hold on one upload. Its files are closed when the last one goes.
    class Hold {
      public:
        Hold() = default;
        Hold(UploadRegistry& registry, std::string_view name,
             const std::function<std::shared_ptr<PendingUpload>()>& make)
            : registry_(&registry), upload_(registry.Acquire(name, make)), name_(name)
        {
        }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;
        ~Hold()
        {
            if (upload_)
                registry_->Release(name_, std::move(upload_));
        }
        PendingUpload* operator->() const { return upload_.get(); }
        PendingUpload& operator*() const { return *upload_; }

      private:
        UploadRegistry* registry_ = nullptr;
        std::shared_ptr<PendingUpload> upload_;
        std::string name_;
    };

    bool IsInUse(std::string_view name) const
    {
        const std::lock_guard lock(mutex_);
        return uploads_.contains(name);
    }

  private:
    std::shared_ptr<PendingUpload>
    Acquire(std::string_view name, const std::function<std::shared_ptr<PendingUpload>()>& make)
    {
        const std::lock_guard lock(mutex_);
        auto found = uploads_.find(name);
        if (found == uploads_.end())
            found = uploads_.emplace(name, make()).first;
        return found->second;
    }
    // Whoever comes next finds the files closed, or this very object.
    void Release(const std::string& name, std::shared_ptr<PendingUpload> upload) noexcept
    {
        constexpr long kOwnAndTheMaps = 2;
        const std::lock_guard lock(mutex_);
        if (upload.use_count() == kOwnAndTheMaps)
            uploads_.erase(name);
        upload.reset();
    }

    mutable std::mutex mutex_;
    std::map<std::string, std::shared_ptr<PendingUpload>, std::less<>> uploads_;
};

} // namespace filestore
