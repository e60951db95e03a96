// SPDX-License-Identifier: Apache-2.0
//
// The command "kestd serve": starts everything, reloads, stops.
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/percent.h"
#include "base/utf.h"
#include "host/commands/app_password_watch.h"
#include "host/commands/arguments.h"
#include "host/commands/check_process.h"
#include "host/commands/commands.h"
#include "host/commands/monitoring.h"
#include "host/commands/service_manager.h"
#include "host/commands/setting_changes.h"
#include "host/commands/setup.h"
#include "host/commands/sources.h"
#include "host/components/directory_ldap.h"
#include "host/components/host_classes.h"
#include "host/config/addresses.h"
#include "host/config/store_settings.h"
#include "host/log/audit.h"
#include "host/module/call_context.h"
#include "host/server/server.h"
#include <kest/req.h>
#include <kest/sdk/text.h>
#include <kest/tolm.h>

namespace kestd {
namespace {

constexpr std::chrono::seconds kLook{1}; // between two looks at the file of app passwords
constexpr int kHousekeeping = 5;         // so many of them between two for idle sessions
constexpr rlim_t kMostFiles = 1 << 20;

void Log(UINT32 severity, const std::string& text)
{
    TolmLog(severity, "kestd", text.c_str());
}

// The signals that Host::Wait takes. Blocked in every thread, and before any is started.
sigset_t WaitedSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1})
        sigaddset(&set, signal);
    return set;
}

// Gives the parts of the log the files that the settings name. The text says what is wrong.
std::string OpenLogs(const LogFiles& files)
{
    const struct {
        UINT32 part;
        const char* name;
        const std::string& path;
    } kFiles[] = {{kLogEvents, "Log File", files.events},
                  {kLogRequests, "Access Log File", files.requests},
                  {kLogAudit, "Audit Log File", files.audit}};
    for (const auto& file : kFiles)
        if (!file.path.empty())
            if (const int reason = TolmLogToFile(file.part, file.path.c_str()))
                return std::string("'Kest\\Configuration\\Server' '") + file.name + "': '" +
                       file.path + "': " + std::strerror(reason);
    if (!files.audit.empty())
        StartAudit();
    return {};
}

void PrepareProcess()
{
    const sigset_t waited = WaitedSignals();
    pthread_sigmask(SIG_BLOCK, &waited, nullptr);
    std::signal(SIGPIPE, SIG_IGN); // a client that went away is a failed write
    std::signal(SIGXFSZ, SIG_IGN); // so is a file that grows beyond what the process may write
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) != 0)
        return;
    const rlim_t wanted = std::min(files.rlim_max, kMostFiles);
    if (files.rlim_cur < wanted) {
        files.rlim_cur = wanted;
        (void)setrlimit(RLIMIT_NOFILE, &files); // without it there are fewer connections
    }
}

void ReportUnread()
{
    TolmRegistryReportUnread([](const char* line, void*) { TolmLog(kLogWarning, "kestd", line); },
                             nullptr);
}

void WarnOfOpenUsersFile(const std::string& path)
{
    struct stat info {};
    if (stat(path.c_str(), &info) == 0 && (info.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        Log(kLogWarning, path + ": others can read the password hashes; its mode should be 0600");
}

// For the directory, in which the lists are one.
UserMap AllOf(const UserLists& lists)
{
    UserMap all = lists.users;
    all.insert(lists.htpasswd.begin(), lists.htpasswd.end());
    return all;
}

// A running host, from the loaded settings to the last session's end.
class Host {
  public:
    Host(std::vector<std::string> words, ServeArguments arguments, const Places& places)
        : words_(std::move(words)), setup_(std::move(arguments), places)
    {
    }

    // Empty on success.
    std::string Start();
    void Wait(); // until it is told to stop
    void Stop();

  private:
    std::string StartModule();
    std::string StartServer();
    void MakeServices();
    bool WantsUsers(const HostSettings& settings) const;
    void UseSources(const HostSettings& settings);
    void UseDirectory(const HostSettings& settings);
    void Announce();
    void Reload();
    void TellChanges();
    void ReloadUsers(const HostSettings& settings);
    bool IsNewFileRight();
    void PublishChange();
    void ShowLife();

    const std::vector<std::string> words_; // the command line behind "serve"
    Setup setup_;
    HostSettings settings_;
    SettingChanges changes_;
    UserLists users_;
    std::shared_ptr<CredentialsSource> ldap_; // of `ldapSettings_`
    LdapSignIn ldapSettings_;
    SteadyClock* clock_ = nullptr;     // these two live as long as the process: components hold
    HostServices* services_ = nullptr; // references to what is in them
    Ref<IKestReq_2> module_;
    std::string location_;
    Monitoring monitoring_;
    std::unique_ptr<Server> server_;
    std::unique_ptr<AppPasswordWatch> watch_; // from the services on
    ServiceManager manager_;
    uint64_t shownTicks_ = 0; // of the server, when the service manager was last told
};

std::string Host::Start()
{
    if (std::string problem = setup_.CheckState(); !problem.empty())
        return problem;
    if (std::string problem = setup_.LoadRegistry(false); !problem.empty())
        return problem;
    std::string problems = setup_.ReadSettings(settings_);
    AddProblems(problems, setup_.CheckPathsAndNames());
    if (!problems.empty())
        return problems;
    if (std::string problem = setup_.ReadUsers(settings_, users_); !problem.empty())
        return problem;
    if (std::string problem = Setup::CheckAccessPolicy(settings_, users_); !problem.empty())
        return problem;
    if (std::string problem = OpenLogs(settings_.server.logFiles); !problem.empty())
        return problem;
    WarnOfOpenUsersFile(UsersFileOf(settings_, setup_.StateDirectory()));
    for (const std::string& warning : AccessWarnings(settings_, users_, setup_.Platform()))
        Log(kLogWarning, warning);
    MakeServices();
    if (std::string problem = StartModule(); !problem.empty())
        return problem;
    if (std::string problem = StartServer(); !problem.empty())
        return problem;
    changes_.Begin(setup_.Platform());
    ReportUnread();
    // What was said so far has been read before the line that says that all is ready.
    if (Failed(TolmLogQueue()))
        return "the log cannot be started: no memory or no thread";
    Announce();
    return {};
}

// Whether somebody has to sign in. A users file that the settings name says so even when nobody
// stands in it, as when it was cut short.
bool Host::WantsUsers(const HostSettings& settings) const
{
    const bool hasUsers = !users_.users.empty() || HasOtherSources(settings);
    if (!hasUsers && !settings.users.usersFile.empty())
        Log(kLogWarning,
            settings.users.usersFile + ": there are no users, so that nobody can sign in");
    return hasUsers || !settings.users.usersFile.empty();
}

void Host::MakeServices()
{
    const HostName name = NameOfHost(settings_.server);
    HostServices::Settings settings;
    settings.users = settings_.users;
    settings.identity = {name.hostname, name.port, {}};
    static SteadyClock clock;
    clock_ = &clock;
    static HostServices* services = nullptr; // reachable to the end, so that no check calls it lost
    services = new HostServices(settings, clock);
    services_ = services;
    services_->sessionAdmission.RequireCredentials(WantsUsers(settings_));
    services_->sessionAdmission.SetRealm(settings_.server.realm);
    UseSources(settings_);
    UseDirectory(settings_);
}

// Users sign in by what the settings list. An LDAP server that is the same keeps its connections.
void Host::UseSources(const HostSettings& settings)
{
    const LdapSignIn& ldap = settings.users.signIn.ldap;
    if (!settings.users.signIn.Uses("ldap"))
        ldap_.reset();
    else if (!ldap_ || !(ldapSettings_ == ldap))
        ldap_ = MakeSource("ldap", settings, users_, *clock_);
    ldapSettings_ = ldap;
    CredentialsSources sources = MakeSources(settings, users_, *clock_, ldap_);
    services_->authenticator.SetSources(std::move(sources));
    if (!watch_)
        watch_ = std::make_unique<AppPasswordWatch>(services_->authenticator, services_->sessions);
    watch_->Use(AppPasswordsFileOf(settings, setup_.StateDirectory()), users_.apps);
}

// The names of users come from where the settings say, as of now.
void Host::UseDirectory(const HostSettings& settings)
{
    if (settings.directory.usesLdap)
        services_->directory.Use(MakeLdapDirectory(settings.directory.ldap, *clock_));
    else
        services_->directory.Use(std::make_shared<UserDirectory>(AllOf(users_)));
}

// Loads the WebDAV module and asks it where it serves.
std::string Host::StartModule()
{
    const GUID callContext = CLSID_KestCallContext;
    if (Failed(RegisterHostClasses(*services_)) ||
        Failed(TolmRegisterClassObject(&callContext, CallContextFactory())))
        return "the host's classes cannot be registered";
    if (const TALSTATUS status = Create(CLSID_KestDavHandler, module_); Failed(status))
        return "the WebDAV module cannot be loaded (status " + std::to_string(status) + ")";
    std::array<WCHAR, 256> text{};
    UNICODE_STRING location{0, static_cast<UINT16>((text.size() - 1) * sizeof(WCHAR)), text.data()};
    KEST_LOCATION_ACCESS access = KestAccessAdmin;
    GUID id{};
    if (Failed(module_->ModuleInit({}, &access, &location, &id)))
        return "the WebDAV module cannot be initialised";
    const auto utf8 = base::ToUtf8(kest::ViewOf(location));
    if (!utf8 || utf8->size() < 2 || utf8->front() != '/' || utf8->back() == '/')
        return "'Kest\\Configuration\\KestDav' 'Moniker': expected a path such as /Ferro, with a "
               "leading '/' and without a trailing one";
    location_ = *utf8;
    services_->sessionAdmission.SetLocation(location_);
    return {};
}

std::string Host::StartServer()
{
    if (std::string problem = monitoring_.Open(settings_.server.metricsListen, location_,
                                               VolumeNames(setup_.Platform()));
        !problem.empty())
        return problem;
    server_ = std::make_unique<Server>(settings_.server, services_->sessionAdmission, module_.Get(),
                                       location_, monitoring_.Counts());
    if (std::string problem = server_->Start(); !problem.empty())
        return problem;
    Ref<IKestDAV2> provider; // of the volumes, if the settings know them
    if (monitoring_.Counts() && !VolumeNames(setup_.Platform()).empty())
        (void)Create(CLSID_FileStore, provider); // without it nothing is told of them
    monitoring_.Begin(*server_, services_->authenticator, std::move(provider));
    return {};
}

// The line that tells whoever started the program that it can be used now.
void Host::Announce()
{
    const std::vector<ListenAddress> addresses = server_->Addresses();
    const char* const scheme = settings_.server.tlsCertificate.empty() ? "http" : "https";
    const auto urlOf = [&](const ListenAddress& address) {
        return std::string(scheme) + "://" + FormatListenAddress(address) +
               base::PercentEncode(location_) + "/";
    };
    for (size_t i = 1; i < addresses.size(); ++i)
        Log(kLogInfo, "also serving " + urlOf(addresses[i]));
    if (services_->sessionAdmission.AllowsAnonymous())
        Log(kLogInfo, "no users: everybody who reaches a loopback address is the local user");
    std::printf("kestd: serving %s\n", urlOf(addresses.front()).c_str());
    std::fflush(stdout);
    manager_.SetStatus("Serving " + urlOf(addresses.front()));
    manager_.TellReady();
}

// Tells the watchdog that the server goes on, unless its clock stands still.
void Host::ShowLife()
{
    const uint64_t ticks = server_->Ticks();
    if (ticks != std::exchange(shownTicks_, ticks))
        manager_.TellAlive();
}

void Host::Wait()
{
    const sigset_t waited = WaitedSignals();
    const std::chrono::milliseconds watchdog = manager_.WatchdogTime();
    const std::chrono::milliseconds pause =
        watchdog.count() > 0 ? std::min<std::chrono::milliseconds>(watchdog / 3, kLook) : kLook;
    const timespec tick{pause.count() / 1000, pause.count() % 1000 * 1'000'000};
    for (unsigned looks = 0;;) {
        const int signal = sigtimedwait(&waited, nullptr, &tick);
        if (signal == SIGTERM || signal == SIGINT)
            return;
        ShowLife();
        if (signal == SIGUSR1)
            TolmLogReopen();
        if (signal == SIGHUP)
            manager_.TellReloading();
        try {
            if (signal == SIGHUP)
                Reload();
            watch_->Look();
            if (looks++ % kHousekeeping == 0)
                services_->sessions.EndIdle();
        } catch (const std::exception& error) { // memory is short: later, then
            Log(kLogError, error.what());
        }
        if (signal == SIGHUP)
            manager_.TellReady();
    }
}

// Whether the configuration as it is now would do for a start. The log says what would not.
bool Host::IsNewFileRight()
{
    std::string problems = CheckInOtherProcess(words_);
    const bool isRight = problems.empty();
    while (!problems.empty()) {
        const size_t end = std::min(problems.find('\n'), problems.size());
        Log(kLogError, problems.substr(0, end));
        problems.erase(0, end + 1);
    }
    return isRight;
}

void Host::Reload()
{
    Log(kLogInfo, "reading the configuration again");
    if (!IsNewFileRight()) {
        Log(kLogError, "the new configuration is wrong; the old settings stay");
        return;
    }
    HostSettings fresh;
    changes_.Release();
    std::string problem = setup_.LoadRegistry(true);
    if (problem.empty())
        problem = setup_.ReadSettings(fresh);
    if (problem.empty())
        TellChanges();
    changes_.Hold(location_);
    if (!problem.empty()) {
        Log(kLogError, problem + "; the old settings stay");
        return;
    }
    ReloadUsers(fresh);
    UseDirectory(fresh);
    for (const std::string& warning : AccessWarnings(fresh, users_, setup_.Platform()))
        Log(kLogWarning, warning);
    services_->sessions.SetLimits(fresh.users.sessions);
    services_->authenticator.SetLimits(fresh.users.auth);
    services_->sessionAdmission.SetRealm(fresh.server.realm);
    if (problem = server_->Apply(fresh.server); !problem.empty())
        Log(kLogError, problem);
    settings_ = std::move(fresh);
    PublishChange();
    ReportUnread();
}

// Each setting that is not as it was: whether it counts from now on or from the next start on.
void Host::TellChanges()
{
    for (const SettingChanges::Change& change : changes_.Compare(setup_.Platform()))
        if (change.waits)
            Log(kLogWarning, change.name + " has changed: it waits for the next start");
        else
            Log(kLogInfo, change.name + " has changed: it is taken over");
}

void Host::ReloadUsers(const HostSettings& settings)
{
    UserLists fresh;
    if (const std::string problem = setup_.ReadUsers(settings, fresh); !problem.empty())
        return Log(kLogError, problem + "; the old users stay");
    users_ = std::move(fresh);
    Authenticator& authenticator = services_->authenticator;
    UseSources(settings);
    if (WantsUsers(settings)) // never the other way round: a door that was closed stays closed
        services_->sessionAdmission.RequireCredentials(true);
    const bool isOpen = !services_->sessionAdmission.RequiresCredentials();
    services_->sessions.EndWhere([&](const Principal& principal) {
        return principal.name.empty() ? !isOpen : !authenticator.IsCurrent(principal);
    });
}

void Host::PublishChange()
{
    const GUID global = Global_Event_Class;
    (void)services_->events.Publish(global, kEventConfigurationChanged, nullptr); // not stopping
}

// The log is written by a thread of its own, which ends with the process. Says nothing where the
// reader of standard error takes nothing.
void SayLast(std::string_view line)
{
    pollfd room{STDERR_FILENO, POLLOUT, 0};
    if (poll(&room, 1, 0) == 1)
        (void)!write(STDERR_FILENO, line.data(), line.size());
}

void Host::Stop()
{
    manager_.TellStopping();
    monitoring_.TellStopping();
    if (server_ && !server_->Stop()) {
        SayLast("kestd: a request does not end; the process ends without it\n");
        std::fflush(nullptr);
        _exit(1); // what has been answered is kept
    }
    if (services_) {
        if (watch_) // not where memory was short in between
            watch_->Stop();
        services_->sessions.EndAll();
        services_->events.Stop();
    }
    monitoring_.End();
    server_.reset();
    module_ = {};
}

} // namespace

int RunServe(const std::vector<std::string>& arguments)
{
    ServeArguments parsed;
    if (const std::string problem = ParseServe(arguments, parsed); !problem.empty())
        return UsageError(problem);
    if (parsed.wantsHelp) {
        PrintHelp();
        return 0;
    }
    PrepareProcess();
    Host host(arguments, std::move(parsed), FindPlaces());
    if (const std::string problem = host.Start(); !problem.empty()) {
        host.Stop();
        return Failure(problem);
    }
    host.Wait();
    Log(kLogInfo, "stopping");
    host.Stop();
    return 0;
}

} // namespace kestd
