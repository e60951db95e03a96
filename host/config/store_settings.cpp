// SPDX-License-Identifier: Apache-2.0
//
// Checks the file store's tables.
#include "host/config/store_settings.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <sys/stat.h>

#include "base/host_name.h"
#include "base/uri.h"
#include "base/utf.h"

namespace kestd {
namespace {

std::string CheckStore(ITalpl& platform)
{
    RegistryReader in(platform, kStoreKey);
    std::string sync = "data";
    in.Text(u"Sync", sync);
    if (sync != "none" && sync != "data" && sync != "full")
        in.Refuse(u"Sync", "expected 'none', 'data' or 'full'");
    uint32_t days = 0;
    in.Number(u"Keep Deleted", days, 0, 36'500);
    uint32_t size = 0;
    in.Number(u"Keep Free", size, 0, 1U << 30);
    in.Number(u"Reserve", size, 0, 1U << 20);
    uint32_t seconds = 0;
    in.Number(u"Upload Time", seconds, 0, 31'536'000);
    std::string address = "127.0.0.1";
    in.Text(u"Server Address", address);
    if (!base::IsIpv4Address(address))
        in.Refuse(u"Server Address", "expected an IPv4 address");
    return in.Problem();
}

struct Volume {
    std::u16string name;
    std::string directory; // without symbolic links
};

// Two volumes with the same entries would each keep locks and properties of their own for them.
void CheckApart(RegistryReader& in, const Volume& volume, const std::vector<Volume>& others)
{
    for (const Volume& other : others) {
        const std::string name = "that of the volume '" + NarrowedName(other.name) + "'";
        if (volume.directory == other.directory)
            in.Refuse(volume.name.c_str(), "its directory is " + name);
        else if (base::IsUnder(volume.directory, other.directory) || other.directory == "/")
            in.Refuse(volume.name.c_str(), "its directory lies in " + name);
        else if (base::IsUnder(other.directory, volume.directory) || volume.directory == "/")
            in.Refuse(volume.name.c_str(), "its directory holds " + name);
    }
}

std::string CheckVolumes(ITalpl& platform)
{
    RegistryReader in(platform, kVolumesKey);
    std::vector<std::pair<std::string, std::string>> volumes;
    in.AllTexts(volumes);
    std::vector<Volume> seen;
    for (const auto& [name, directory] : volumes) {
        const std::u16string wide = base::ToUtf16(name).value_or(u"?");
        struct stat info {};
        if (name.find('/') != std::string::npos || name == "." || name == "..")
            in.Refuse(wide.c_str(), "a volume's name holds no '/' and is neither '.' nor '..'");
        std::error_code error;
        const std::string real = std::filesystem::canonical(directory, error);
        if (stat(directory.c_str(), &info) != 0) {
            in.Refuse(wide.c_str(), "'" + directory + "': " + std::strerror(errno));
        } else if (!S_ISDIR(info.st_mode)) {
            in.Refuse(wide.c_str(), "'" + directory + "' is not a directory");
        } else if (!error) {
            CheckApart(in, {wide, real}, seen);
            seen.push_back({wide, real});
        }
    }
    return in.Problem();
}

} // namespace

KnownNames StoreSettingNames()
{
    return {
        kStoreKey,
        true,
        {u"Sync", u"Keep Deleted", u"Server Address", u"Keep Free", u"Reserve", u"Upload Time"}};
}

std::vector<std::string> VolumeNames(ITalpl& platform)
{
    std::vector<std::u16string> wide;
    (void)NamesOf(platform, kVolumesKey, wide); // CheckStoreSettings tells of one that is wrong
    std::vector<std::string> names;
    for (const std::u16string& name : wide)
        names.push_back(NarrowedName(name));
    return names;
}

std::string CheckStoreSettings(ITalpl& platform)
{
    std::string problems = CheckStore(platform);
    AddProblems(problems, CheckVolumes(platform));
    return problems;
}

} // namespace kestd
