// SPDX-License-Identifier: Apache-2.0
//
// Directories and files that are gone when a test has ended.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <sys/xattr.h>

namespace test_support {

// An empty directory of its own, removed with all that is in it. The program ends without one.
class TemporaryDirectory {
  public:
    explicit TemporaryDirectory(
        const std::filesystem::path& parent = std::filesystem::temp_directory_path())
    {
        std::string name = parent / "kest-test-XXXXXX";
        if (!mkdtemp(name.data()))
            std::abort();
        path_ = name;
    }
    ~TemporaryDirectory()
    {
        std::error_code ignored;
        std::filesystem::permissions(path_, std::filesystem::perms::owner_all, ignored);
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    const std::filesystem::path& Path() const { return path_; }

  private:
    std::filesystem::path path_;
};

// In memory, if files there carry extended attributes, which hold entity tags: for tests that make
// thousands of volumes and mean no particular file system.
inline std::filesystem::path FastestPlace()
{
    static const std::filesystem::path place = [] {
        const std::filesystem::path usual = std::filesystem::temp_directory_path();
        const std::filesystem::path memory = "/dev/shm";
        std::error_code error;
        if (!std::filesystem::is_directory(memory, error))
            return usual;
        const TemporaryDirectory probe(memory);
        const bool isFit = ::setxattr(probe.Path().c_str(), "user.probe", "1", 1, 0) == 0;
        return isFit ? memory : usual;
    }();
    return place;
}

inline std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void WriteFile(const std::filesystem::path& path, std::string_view content)
{
    std::ofstream(path, std::ios::binary) << content;
}

} // namespace test_support
