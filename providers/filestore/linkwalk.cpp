// SPDX-License-Identifier: Apache-2.0
//
// The way along symbolic links, checked step by step.
#include "providers/filestore/linkwalk.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include "base/descriptor.h"
#include "providers/filestore/names.h"

namespace filestore {

using base::Retry;

namespace {

// Which directory it is, by whatever name.
using Identity = std::pair<dev_t, ino_t>;

struct PrivateDirectories {
    std::mutex mutex;
    std::vector<Identity> known;
};

// Never destroyed: a store that lives until the process ends takes its directories out of it after
// the destructors of local statics have run.
PrivateDirectories& Private()
{
    static auto& directories = *new PrivateDirectories;
    return directories;
}

bool IsPrivate(const struct stat& directory)
{
    PrivateDirectories& all = Private();
    const std::lock_guard lock(all.mutex);
    return std::ranges::find(all.known, Identity{directory.st_dev, directory.st_ino}) !=
           all.known.end();
}

// Descriptors of the directories that the walk has gone down into.
class WayDown {
  public:
    explicit WayDown(int top) : top_(top) {}
    ~WayDown()
    {
        while (Up())
            ;
    }
    WayDown(const WayDown&) = delete;
    WayDown& operator=(const WayDown&) = delete;

    int Here() const { return open_.empty() ? top_ : open_.back(); }
    void Reserve() // so that Down cannot fail
    {
        open_.reserve(open_.size() + 1);
        names_.reserve(names_.size() + 1);
    }
    void Down(int directory, std::string name) noexcept
    {
        open_.push_back(directory);
        names_.push_back(std::move(name));
    }
    bool Up() // false at the top
    {
        if (open_.empty())
            return false;
        ::close(open_.back());
        open_.pop_back();
        names_.pop_back();
        return true;
    }
    // The names that lead here, a "/" before each.
    std::string Names() const
    {
        std::string names;
        for (const std::string& name : names_)
            names.append("/").append(name);
        return names;
    }

  private:
    const int top_;
    std::vector<int> open_;
    std::vector<std::string> names_;
};

class LinkWalk {
  public:
    LinkWalk(int top, std::string_view path, int flags) : way_(top), rest_(path), flags_(flags) {}

    // 0 or an errno value. See OpenThroughLinks.
    int Open(int* out, std::string* real)
    {
        while (!rest_.empty()) {
            const bool isFromLink = fromLink_ > 0;
            const std::string name = TakeName();
            bool done = false;
            if (real)
                *real = way_.Names() + "/" + name; // while it can fail: a file ends the way
            if (const int error = Step(name, isFromLink, &done, out); error || done)
                return error;
        }
        if (real)
            *real = way_.Names();
        if (real && real->empty())
            *real = "/";
        return Reopen(".", out);
    }

  private:
    std::string TakeName()
    {
        const size_t length = std::min(rest_.find('/'), rest_.size());
        const size_t taken = std::min(length + 1, rest_.size());
        std::string name = rest_.substr(0, length);
        rest_.erase(0, taken);
        fromLink_ -= std::min(fromLink_, taken);
        return name;
    }
    int Step(const std::string& name, bool isFromLink, bool* done, int* out)
    {
        if (name.empty() || name == ".")
            return 0;
        if (name == "..")
            return way_.Up() ? 0 : EXDEV;
        if (isFromLink && IsPrivateName(name))
            return ENOENT;
        std::string kept = name; // before anything is open
        way_.Reserve();
        const int fd = Retry(
            [&] { return ::openat(way_.Here(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC); });
        if (fd < 0)
            return errno;
        struct stat found;
        if (Retry([&] { return ::fstat(fd, &found); }) != 0) {
            const int error = errno;
            ::close(fd);
            return error;
        }
        if (S_ISDIR(found.st_mode)) {
            way_.Down(fd, std::move(kept));
            return links_ > 0 && IsPrivate(found) ? ENOENT : 0;
        }
        const base::Descriptor own(fd);
        if (S_ISLNK(found.st_mode))
            return Follow(own.Number());
        if (!rest_.empty())
            return ENOTDIR;
        *done = true;
        return Reopen(name.c_str(), out);
    }
    int Follow(int link)
    {
        constexpr int kMostLinks = 40; // as many as the kernel follows
        if (++links_ > kMostLinks)
            return ELOOP;
        char target[PATH_MAX];
        const ssize_t length = Retry([&] { return ::readlinkat(link, "", target, sizeof target); });
        if (length < 0)
            return errno;
        if (length == 0 || target[0] == '/')
            return length == 0 ? ENOENT : EXDEV;
        const auto bytes = static_cast<size_t>(length);
        if (bytes == sizeof target || rest_.size() > size_t{PATH_MAX})
            return ENAMETOOLONG;
        rest_.insert(0, std::string(target, bytes) + (rest_.empty() ? "" : "/"));
        fromLink_ += bytes + 1;
        return 0;
    }
    int Reopen(const char* name, int* out)
    {
        const int fd =
            Retry([&] { return ::openat(way_.Here(), name, flags_ | O_NOFOLLOW | O_CLOEXEC); });
        if (fd < 0)
            return errno;
        *out = fd;
        return 0;
    }

    WayDown way_;
    std::string rest_;    // of the path, with the links on the way put in their places
    size_t fromLink_ = 0; // bytes at its beginning that a link has brought
    int links_ = 0;
    const int flags_;
};

} // namespace

int KeepPrivate(int directory)
{
    struct stat found;
    if (Retry([&] { return ::fstat(directory, &found); }) != 0)
        return errno;
    PrivateDirectories& all = Private();
    const std::lock_guard lock(all.mutex);
    all.known.emplace_back(found.st_dev, found.st_ino);
    return 0;
}

void EndPrivate(int directory)
{
    struct stat found;
    if (Retry([&] { return ::fstat(directory, &found); }) != 0)
        return;
    PrivateDirectories& all = Private();
    const std::lock_guard lock(all.mutex);
    const auto known = std::ranges::find(all.known, Identity{found.st_dev, found.st_ino});
    if (known != all.known.end())
        all.known.erase(known);
}

int OpenThroughLinks(int top, std::string_view path, int flags, std::string* real)
{
    int fd = -1;
    int error;
    try {
        error = LinkWalk(top, path, flags).Open(&fd, real);
    } catch (const std::bad_alloc&) {
        error = ENOMEM;
    }
    if (error)
        errno = error;
    return error ? -1 : fd;
}

} // namespace filestore
