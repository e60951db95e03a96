// SPDX-License-Identifier: Apache-2.0
//
// Lays the command line over the configuration file and reads the settings.
#include "host/commands/setup.h"

#include <array>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include "base/host_name.h"
#include "base/uri.h"
#include "base/utf.h"
#include "host/auth/htpasswd.h"
#include "host/auth/passwords.h"
#include "host/components/directory_names.h"
#include "host/config/access_settings.h"
#include "host/config/addresses.h"
#include "host/config/class_settings.h"
#include "host/config/configured_paths.h"
#include "host/config/file_checks.h"
#include "host/config/known_settings.h"
#include "host/config/module_settings.h"
#include "host/config/server_settings.h"
#include "host/config/store_settings.h"
#include <kest/tolm.h>

namespace kestd {
namespace {

constexpr const char* kDefaultVolume = "files";

std::u16string Braced(const GUID& id)
{
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  id.Data1, id.Data2, id.Data3, id.Data4[0], id.Data4[1], id.Data4[2], id.Data4[3],
                  id.Data4[4], id.Data4[5], id.Data4[6], id.Data4[7]);
    return base::ToUtf16(text.data()).value_or(u"");
}

std::u16string Below(const char16_t* key, const std::u16string& name)
{
    return std::u16string(key) + u"\\" + name;
}

// Lays a text over the registry. Empty on success.
std::string LayText(const std::u16string& key, const std::u16string& name, const std::string& value)
{
    const auto wide = base::ToUtf16(value);
    if (!wide)
        return "'" + value + "' is not valid UTF-8";
    const auto bytes = static_cast<UINT32>((wide->size() + 1) * sizeof(char16_t));
    if (Failed(
            TolmRegistrySetOverride(key.c_str(), name.c_str(), TALX_REG_SZ, wide->c_str(), bytes)))
        return "the setting '" + base::ToUtf8(name).value_or("") + "' cannot be held";
    return {};
}

std::string LayTexts(const std::u16string& key, const std::u16string& name,
                     const std::vector<std::string>& values)
{
    std::u16string all;
    for (const std::string& value : values) {
        all += base::ToUtf16(value).value_or(u"");
        all += u'\0';
    }
    all += u'\0';
    const auto bytes = static_cast<UINT32>(all.size() * sizeof(char16_t));
    if (Failed(TolmRegistrySetOverride(key.c_str(), name.c_str(), TALX_REG_MULTI_SZ, all.data(),
                                       bytes)))
        return "the setting '" + base::ToUtf8(name).value_or("") + "' cannot be held";
    return {};
}

// Where a default of the installation was laid over the file: taken away, so that the file's own
// value shows. Failures mean that there was none.
void TakeAway(const std::u16string& key, const std::u16string& name)
{
    (void)TolmRegistrySetOverride(key.c_str(), name.c_str(), TALX_REG_SZ, nullptr, 0);
}

std::string Absolute(const std::string& path)
{
    if (path.empty() || path.front() == '/')
        return path;
    std::array<char, 4096> here{};
    return getcwd(here.data(), here.size()) ? std::string(here.data()) + "/" + path : path;
}

} // namespace

Setup::Setup(ServeArguments arguments, const Places& places, bool isCheck)
    : arguments_(std::move(arguments)), places_(places),
      config_(Absolute(arguments_.config.empty() ? places.config : arguments_.config)),
      state_(
          Absolute(arguments_.stateDirectory.empty() ? places.state : arguments_.stateDirectory)),
      isCheck_(isCheck)
{
}

std::string Setup::LoadRegistry(bool isReload)
{
    if (!platform_ && Failed(Create(CLSID_HadranTalpl, platform_)))
        return "the platform layer cannot be made";
    if (!isReload || !config_.empty()) {
        std::array<char, 2048> error{};
        if (Failed(TolmRegistryLoad(config_.empty() ? nullptr : config_.c_str(), error.data(),
                                    error.size())))
            return error.data();
    }
    if (std::string problem = LayDefaults(); !problem.empty())
        return problem;
    if (std::string problem = LayCommandLine(); !problem.empty())
        return problem;
    return LayPrefix();
}

// What a proxy publishes below a path is there for the module, too: all that it says of paths is
// then what clients see. Whether the proxy takes the path off is not known; see ReadRequest.
std::string Setup::LayPrefix()
{
    TakeAway(kModuleKey, u"Moniker");
    std::string url;
    RegistryReader(Platform(), kServerKey).Text(u"Public URL", url);
    const std::string prefix = PathOfPublicUrl(url);
    std::string moniker = "/Ferro";
    RegistryReader(Platform(), kModuleKey).Text(u"Moniker", moniker);
    if (prefix.empty() || base::IsUnder(moniker, prefix))
        return {};
    return LayText(kModuleKey, u"Moniker", prefix + moniker);
}

std::string Setup::LayCommandLine()
{
    std::string problem;
    const auto lay = [&](const char16_t* name, const std::string& value) {
        if (problem.empty() && !value.empty())
            problem = LayText(kServerKey, name, value);
    };
    if (!arguments_.dialect.empty())
        problem = LayText(kModuleKey, u"Dialect", arguments_.dialect);
    lay(u"Public URL", arguments_.publicUrl);
    lay(u"TLS Certificate", Absolute(arguments_.tlsCertificate));
    lay(u"TLS Key", Absolute(arguments_.tlsKey));
    if (problem.empty() && !arguments_.listen.empty())
        problem = LayTexts(kServerKey, u"Listen", arguments_.listen);
    for (const VolumeArgument& volume : arguments_.volumes) {
        if (!problem.empty())
            break;
        const std::string directory = ExistingDirectory(volume.directory, problem);
        if (problem.empty())
            problem = LayText(kVolumesKey, base::ToUtf16(volume.name).value_or(u""), directory);
    }
    return problem;
}

// What an installation knows without a file: its classes, its provider, its dialect, its data, its
// volume.
std::string Setup::LayDefaults()
{
    const std::vector<Default> defaults = {
        {Below(kClassesKey, Braced(CLSID_KestDavHandler)), u"Library", "kestdav.so"},
        {Below(kClassesKey, Braced(CLSID_FileStore)), u"Library", "filestore.so"},
        {kModuleKey, u"Dialect", "standard"}, // the module's own is what it has always answered
        {kModuleKey, u"Template Directory", places_.templates},
        {kServerKey, u"Wharf Directory", places_.wharf},
    };
    for (const Default& one : defaults) {
        TakeAway(one.key, one.name);
        if (one.value.empty() || RegistryReader(Platform(), one.key.c_str()).Has(one.name.c_str()))
            continue;
        if (std::string problem = LayText(one.key, one.name, one.value); !problem.empty())
            return problem;
    }
    const std::u16string provider = Below(kProvidersKey, Braced(CLSID_FileStore));
    if (ownsProvider_)
        TakeAway(provider, u"Name");
    std::u16string first;
    ownsProvider_ =
        kest::RegistryKey(Platform(), kProvidersKey).KeyAt(0, first) == kest::ReadResult::Missing;
    if (ownsProvider_)
        if (std::string problem = LayText(provider, u"Name", "FileStore"); !problem.empty())
            return problem;
    return LayVolumes();
}

std::string Setup::LayVolumes()
{
    const std::u16string name = base::ToUtf16(kDefaultVolume).value_or(u"");
    if (ownsVolume_)
        TakeAway(kVolumesKey, name);
    std::u16string first;
    ownsVolume_ =
        arguments_.volumes.empty() &&
        kest::RegistryKey(Platform(), kVolumesKey).NameAt(0, first) == kest::ReadResult::Missing;
    if (!ownsVolume_)
        return {};
    const std::string directory = state_ + "/" + kDefaultVolume;
    if (isCheck_ && access(directory.c_str(), F_OK) != 0)
        return {}; // it is made at the start
    if (std::string problem = MakeDirectories(directory); !problem.empty())
        return problem;
    return LayText(kVolumesKey, name, directory);
}

std::string Setup::ReadSettings(HostSettings& settings)
{
    std::string problems = ReadHostSettings(Platform(), settings);
    AddProblems(problems, ReadAccessRules(Platform(), settings.server.access,
                                          settings.users.signIn.HasUnlistedUsers()));
    AddProblems(problems, CheckComponentSettings(Platform()));
    return problems;
}

std::string Setup::CheckPathsAndNames()
{
    std::string problems = CheckConfiguredPaths(Platform());
    AddProblems(problems, UnknownSettings(Platform(),
                                          {Braced(CLSID_KestDavHandler), Braced(CLSID_FileStore)}));
    return problems;
}

std::string Setup::CheckState() const
{
    const bool isNamed = !arguments_.stateDirectory.empty() ||
                         (!places_.isCheckout && std::getenv("STATE_DIRECTORY") != nullptr);
    const std::string wrong = isNamed ? WhatIsWrongWithDirectory(state_) : std::string();
    return wrong.empty() ? wrong : "the state directory " + wrong;
}

std::vector<std::string> AccessWarnings(const HostSettings& settings, const UserLists& lists,
                                        ITalpl& platform)
{
    const bool hasOthers = settings.users.signIn.HasUnlistedUsers(); // whom nobody lists
    const auto isUser = [&](const std::string& name) { return hasOthers || lists.Contains(name); };
    return settings.server.access ? WarningsAbout(*settings.server.access, platform, isUser)
                                  : std::vector<std::string>();
}

bool HasOtherSources(const HostSettings& settings)
{
    const SignInSettings& signIn = settings.users.signIn;
    return signIn.Uses("htpasswd") || signIn.HasUnlistedUsers();
}

std::string UsersFileOf(const HostSettings& settings, const std::string& stateDirectory)
{
    return settings.users.usersFile.empty() ? stateDirectory + "/users" : settings.users.usersFile;
}

std::string AppPasswordsFileOf(const HostSettings& settings, const std::string& stateDirectory)
{
    const std::string& named = settings.users.signIn.appPasswordsFile;
    return named.empty() ? stateDirectory + "/app-passwords" : named;
}

namespace {

// Who has no name in the directory gets one made of what he signs in with.
void CompleteNames(const std::string& tree, UserMap& users)
{
    for (auto& [name, user] : users) {
        if (!user->dottedName.empty() && !user->tree.empty())
            continue;
        User complete = *user;
        if (complete.dottedName.empty())
            complete.dottedName = DottedNameOfUser(name);
        if (complete.tree.empty())
            complete.tree = tree;
        user = std::make_shared<const User>(std::move(complete));
    }
}

} // namespace

std::string Setup::ReadUsersFile(const HostSettings& settings, UserMap& users)
{
    if (!settings.users.usersFile.empty())
        if (std::string problem = WhatIsWrongWithFile(settings.users.usersFile); !problem.empty())
            return "'Users File': " + problem;
    return LoadUsers(UsersFileOf(settings, state_), users);
}

std::string Setup::ReadUsers(const HostSettings& settings, UserLists& lists)
{
    UserLists fresh;
    UserMap& read = fresh.users;
    const SignInSettings& signIn = settings.users.signIn;
    if (signIn.Uses("users"))
        if (std::string problem = ReadUsersFile(settings, read); !problem.empty())
            return problem;
    if (signIn.Uses("htpasswd"))
        if (std::string problem = LoadHtpasswd(signIn.htpasswdFile, fresh.htpasswd);
            !problem.empty())
            return problem;
    if (std::string problem = LoadAppPasswords(AppPasswordsFileOf(settings, state_), fresh.apps);
        !problem.empty())
        return problem;
    if (!haveHashed_) {
        for (const auto& [name, password] : arguments_.users) {
            std::string hash = HashPassword(password);
            if (hash.empty())
                return "the password of --user " + name + " cannot be hashed: it has more than " +
                       std::to_string(kLongestPassword) + " bytes, or memory is short";
            commandLineUsers_.push_back({name, std::move(hash), {}, {}, {}});
        }
        haveHashed_ = true;
    }
    for (const User& user : commandLineUsers_) { // they win; names in the directory are kept
        User merged = user;
        if (const auto found = read.find(user.name); found != read.end()) {
            merged = *found->second;
            merged.hash = user.hash;
        }
        read[user.name] = std::make_shared<const User>(std::move(merged));
    }
    CompleteNames(settings.directory.tree, read);
    CompleteNames(settings.directory.tree, fresh.htpasswd);
    lists = std::move(fresh);
    return {};
}

std::string Setup::CheckAccessPolicy(const HostSettings& settings, const UserLists& lists)
{
    if (!lists.users.empty() || HasOtherSources(settings))
        return {};
    for (const ListenAddress& address : settings.server.listen)
        if (!base::IsLoopbackAddress(address.address))
            return "refusing to listen on " + FormatListenAddress(address) +
                   " without users: everybody could read and change everything; add a user "
                   "(kestd user add NAME, or --user NAME:PASSWORD) or listen on a loopback address";
    return {};
}

} // namespace kestd
