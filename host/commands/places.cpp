// SPDX-License-Identifier: Apache-2.0
//
// Finds the checkout or the installation around the program's own file.
#include "host/commands/places.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

namespace kestd {
namespace {

namespace fs = std::filesystem;

bool IsDirectory(const fs::path& path)
{
    std::error_code error;
    return fs::is_directory(path, error);
}

bool IsFile(const fs::path& path)
{
    std::error_code error;
    return fs::is_regular_file(path, error);
}

std::string Variable(const char* name)
{
    const char* const value = std::getenv(name);
    return value ? value : "";
}

// The state directory of an installed program: the service manager's, the system's for root, else
// the user's own.
std::string InstalledState()
{
    if (const std::string given = Variable("STATE_DIRECTORY"); !given.empty())
        return given.substr(0, given.find(':'));
    if (geteuid() == 0)
        return "/var/lib/kest";
    if (const std::string home = Variable("XDG_STATE_HOME"); !home.empty())
        return home + "/kest";
    if (const std::string home = Variable("HOME"); !home.empty())
        return home + "/.local/state/kest";
    return "/var/lib/kest";
}

} // namespace

Places FindPlaces()
{
    Places places;
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    if (error)
        return places;
    const fs::path prefix = program.parent_path().parent_path();  // of PREFIX/bin/kestd
    const fs::path checkout = prefix.parent_path().parent_path(); // of ROOT/build/PRESET/bin/kestd
    places.isCheckout =
        prefix.parent_path().filename() == "build" && IsDirectory(checkout / "web" / "templates");
    places.root = places.isCheckout ? checkout : prefix;
    const fs::path data = places.isCheckout ? checkout / "web" : prefix / "share" / "kest";
    if (IsDirectory(data / "templates"))
        places.templates = (data / "templates").string() + "/";
    if (IsDirectory(data / "wharf"))
        places.wharf = data / "wharf";
    if (places.isCheckout) {
        places.state = checkout / "var";
        return places;
    }
    places.state = InstalledState();
    for (const fs::path& file : {prefix / "etc/kest/kest.toml", fs::path("/etc/kest/kest.toml")})
        if (places.config.empty() && IsFile(file))
            places.config = file;
    return places;
}

std::string MakeDirectories(const std::string& path)
{
    std::string made;
    for (const fs::path& part : fs::path(path)) {
        made = made.empty() ? part.string() : (fs::path(made) / part).string();
        if (IsDirectory(made))
            continue;
        if (mkdir(made.c_str(), 0750) != 0 && !IsDirectory(made))
            return "cannot make the directory '" + made +
                   "': " + std::error_code(errno, std::generic_category()).message();
    }
    return {};
}

std::string ExistingDirectory(const std::string& path, std::string& problem)
{
    std::error_code error;
    const fs::path real = fs::canonical(path, error);
    if (error) {
        problem = "'" + path + "': " + error.message();
        return {};
    }
    if (!IsDirectory(real)) {
        problem = "'" + path + "' is not a directory";
        return {};
    }
    return real;
}

} // namespace kestd
