// SPDX-License-Identifier: Apache-2.0
#include "tests/contract/host/components/slapd.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kestd {
namespace {

constexpr const char* kProgram = "/usr/sbin/slapd";

constexpr const char* kEntries = R"(dn: o=org
objectClass: organization
o: org

dn: ou=dev,o=org
objectClass: organizationalUnit
ou: dev

dn: cn=anna,ou=dev,o=org
objectClass: inetOrgPerson
cn: anna
sn: Archer
displayName:: QW5uYSDDhHJjaGVy
mail: anna@example.org
mail: second@example.org
employeeType: ranger
uid: anna
userPassword: apple
memberOf: cn=Staff,ou=dev,o=org
memberOf: cn=a\2Cb,ou=dev,o=org

dn: cn=a\2Cb\2Bc\3Dd,o=org
objectClass: inetOrgPerson
cn: a,b+c=d
sn: Special
mail: special@example.org

dn: cn=star,ou=dev,o=org
objectClass: inetOrgPerson
cn: star
sn: Star
uid: st*r(x)\y
userPassword: melon

dn: cn=twin one,ou=dev,o=org
objectClass: inetOrgPerson
cn: twin one
sn: Twin
uid: twin
userPassword: pear

dn: cn=twin two,ou=dev,o=org
objectClass: inetOrgPerson
cn: twin two
sn: Twin
uid: twin
userPassword: pear

dn: cn=Staff,ou=dev,o=org
objectClass: groupOfNames
cn: Staff
member: cn=anna,ou=dev,o=org

dn: cn=Archivists,ou=dev,o=org
objectClass: groupOfNames
cn: Archivists
member: cn=anna,ou=dev,o=org
member: cn=star,ou=dev,o=org

dn: ou=private,o=org
objectClass: organizationalUnit
ou: private

dn: cn=otto,ou=private,o=org
objectClass: inetOrgPerson
cn: otto
sn: Otter
mail: otto@example.org
)";

sockaddr_in Loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A port that was free a moment ago.
int FreePort()
{
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t length = sizeof address;
    int port = 0;
    if (bind(probe, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
        getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    close(probe);
    return port;
}

bool Answers(int port)
{
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(port);
    const bool answers =
        connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    return answers;
}

} // namespace

Slapd::Slapd()
{
    std::string name = std::filesystem::temp_directory_path().string() + "/slapd.XXXXXX";
    if (!mkdtemp(name.data())) {
        problem_ = "no temporary directory";
        return;
    }
    directory_ = name;
    for (int tries = 0; tries < 3; ++tries) { // somebody else may take the port first
        port_ = FreePort();
        securePort_ = FreePort();
        if (!WriteFiles())
            return;
        Start();
        if (problem_.empty())
            return;
    }
}

Slapd::~Slapd()
{
    Stop();
    if (!directory_.empty())
        std::filesystem::remove_all(directory_);
}

std::string Slapd::Url() const
{
    return "ldap://127.0.0.1:" + std::to_string(port_);
}

std::string Slapd::SecureUrl() const
{
    return "ldaps://127.0.0.1:" + std::to_string(securePort_);
}

bool Slapd::Run(const std::string& command)
{
    if (std::system((command + " >" + directory_ + "/log 2>&1").c_str()) == 0)
        return true;
    std::ifstream log(directory_ + "/log");
    problem_ = command + ": " + std::string(std::istreambuf_iterator<char>(log), {});
    return false;
}

bool Slapd::WriteFiles()
{
    const std::string database = directory_ + "/db";
    std::filesystem::remove_all(database);
    std::filesystem::create_directory(database);
    std::ofstream(directory_ + "/entries.ldif") << kEntries;
    std::ofstream configuration(directory_ + "/slapd.conf");
    for (const char* const schema : {"core", "cosine", "inetorgperson"})
        configuration << "include /etc/ldap/schema/" << schema << ".schema\n";
    configuration << "modulepath /usr/lib/ldap\nmoduleload back_mdb\nmoduleload memberof\n"
                  << "TLSCertificateFile " << directory_ << "/cert.pem\n"
                  << "TLSCertificateKeyFile " << directory_ << "/key.pem\n"
                  << "database mdb\nmaxsize 16777216\nsuffix \"o=org\"\ndirectory " << database
                  << "\nrootdn \"cn=root,o=org\"\nrootpw secret\n"
                  << "overlay memberof\n"
                  << "access to attrs=userPassword by anonymous auth by * none\n"
                  << "access to dn.subtree=\"ou=private,o=org\" by users read by * none\n"
                  << "access to * by * read\n";
    configuration.close();
    return Run("openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1 "
               "-addext subjectAltName=IP:127.0.0.1 -keyout " +
               directory_ + "/key.pem -out " + directory_ + "/cert.pem") &&
           Run("/usr/sbin/slapadd -f " + directory_ + "/slapd.conf -l " + directory_ +
               "/entries.ldif");
}

void Slapd::Start()
{
    problem_.clear();
    const std::string urls = Url() + " " + SecureUrl();
    const std::string file = directory_ + "/slapd.conf";
    process_ = fork();
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // not left behind by a test that crashes
        const int null = open("/dev/null", O_RDWR);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        // A debug level keeps it in the foreground; 0 says nothing.
        execl(kProgram, kProgram, "-d", "0", "-h", urls.c_str(), "-f", file.c_str(), nullptr);
        _exit(127);
    }
    if (!WaitForAnswer()) {
        Stop();
        problem_ = std::string(kProgram) + " does not answer";
    }
}

bool Slapd::WaitForAnswer()
{
    for (int tries = 0; tries < 1500; ++tries) {
        if (waitpid(process_, nullptr, WNOHANG) == process_) {
            process_ = -1;
            return false;
        }
        if (Answers(port_) && Answers(securePort_))
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

void Slapd::Stop()
{
    if (process_ <= 0)
        return;
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
    process_ = -1;
}

} // namespace kestd
