// SPDX-License-Identifier: Apache-2.0
//
// What "kestd help" and "kestd --help" say.
#include <algorithm>
#include <cstdio>

#include "host/commands/commands.h"

namespace kestd {

void PrintHelp()
{
    std::fputs(
        R"(kestd, a WebDAV server

kestd serve [OPTIONS] [[NAME=]DIR ...]
    Serves each directory as a volume, named NAME or by its last component, at
    http://ADDRESS:PORT/Ferro/NAME/. Without a directory and without volumes in the configuration
    it serves the volume "files" of the state directory.

    --config FILE          configuration (TOML); options given here win over it
    --listen ADDRESS:PORT  where to listen, numeric, [ADDRESS]:PORT for IPv6; may be repeated;
                           port 0 takes a free one (default 127.0.0.1:8080)
    --user NAME:PASSWORD   a user besides those of the users file; may be repeated. Other users of
                           this machine can read command lines: prefer "kestd user add"
    --public-url URL       the address that clients see, behind a reverse proxy
    --tls-cert FILE        certificate chain, PEM; with --tls-key the server speaks https
    --tls-key FILE         its private key, PEM
    --dialect DIALECT      how WebDAV requests are answered: standard or classic
    --state-dir DIR        where the users file and the volume "files" are kept

    Without users only loopback addresses are served, and everybody is the local user.
    Prints "kestd: serving URL" when it accepts connections. SIGTERM and SIGINT stop it when the
    running requests are done; SIGHUP makes it read configuration, users and certificate again.

kestd check [--running] [OPTIONS] [[NAME=]DIR ...]
    Reads the configuration as "kestd serve" would with the same arguments and says all that is
    wrong, or "ok". Changes nothing. With --running, as the first argument, the addresses to listen
    on may be in use: by the server whose configuration it is.

kestd user add NAME [--dotted-name TEXT] [--tree TEXT] [--mail TEXT]
kestd user passwd NAME
kestd user remove NAME
kestd user list
    Change the users file. The password is asked for on a terminal, else read from the first line of
    standard input. --users-file FILE, --state-dir DIR and --config FILE say which file; a running
    server takes it over on SIGHUP.

kestd user app-password add USER NAME [--days N] [--volume VOLUME] [--read-only]
kestd user app-password list [USER]
kestd user app-password revoke USER NAME
    Makes a password for one program of a user, such as a backup, and shows it once; lists them with
    their ends and last uses; or takes one away by its name or identifier, which a running server
    follows within a second. One ends after N days (default 365, 0 for never), and may be bound to a
    volume and to reading. --state-dir DIR and --config FILE say where they are kept.

kestd locks list [OPTIONS] [[NAME=]DIR ...]
kestd locks break TOKEN [OPTIONS] [[NAME=]DIR ...]
    Shows who holds which locks, or takes one away from its holder, on the volumes that "kestd serve"
    would serve with the same arguments; also while a server is running.

kestd access explain USER PATH [--group NAME]... [OPTIONS] [[NAME=]DIR ...]
    Says which access rule decides about each right that USER ("-": not signed in) has on PATH, such
    as /docs/reports, as "kestd serve" would with the same arguments. --group: one that a proxy names.

kestd --help
kestd --version
)",
        stdout);
}

int UsageError(const std::string& problem)
{
    std::fprintf(stderr, "kestd: %s (see kestd --help)\n", problem.c_str());
    return kExitUsage;
}

int Failure(const std::string& problem)
{
    for (size_t at = 0; at <= problem.size();) {
        const size_t end = std::min(problem.find('\n', at), problem.size());
        std::fprintf(stderr, "kestd: %s\n", problem.substr(at, end - at).c_str());
        at = end + 1;
    }
    return kExitFailure;
}

} // namespace kestd
