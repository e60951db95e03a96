# SPDX-License-Identifier: Apache-2.0
"""A directory server of a test's own: slapd on a free loopback port, over a temporary directory."""

import os
import shutil
import socket
import subprocess
import tempfile

from harness import wait_for

PROGRAM = "/usr/sbin/slapd"

CONFIGURATION = """\
include /etc/ldap/schema/core.schema
include /etc/ldap/schema/cosine.schema
include /etc/ldap/schema/inetorgperson.schema
modulepath /usr/lib/ldap
moduleload back_mdb
moduleload memberof
database mdb
maxsize 16777216
suffix "o=org"
directory {directory}/db
rootdn "cn=root,o=org"
rootpw secret
overlay memberof
access to attrs=userPassword by anonymous auth by * none
access to * by * read
"""


def person(name, password, *groups):
    """The entry of a user."""
    lines = [f"dn: uid={name},o=org", "objectClass: inetOrgPerson", f"uid: {name}", f"cn: {name}",
             f"sn: {name}", f"userPassword: {password}", f"mail: {name}@example.org"]
    return "\n".join(lines + [f"memberOf: cn={group},o=org" for group in groups]) + "\n"


class Slapd:
    """people: texts of `person`."""

    def __init__(self, *people):
        self.directory = tempfile.mkdtemp(prefix="slapd-")
        self.process = None
        os.mkdir(os.path.join(self.directory, "db"))
        self.write("slapd.conf", CONFIGURATION.format(directory=self.directory))
        self.write("entries.ldif", "\n".join(
            ["dn: o=org\nobjectClass: organization\no: org\n", *people]))
        subprocess.run(["/usr/sbin/slapadd", "-f", self.path("slapd.conf"), "-l",
                        self.path("entries.ldif")], check=True, capture_output=True)
        with socket.create_server(("127.0.0.1", 0)) as probe:
            self.port = probe.getsockname()[1]
        self.start()

    def path(self, name):
        return os.path.join(self.directory, name)

    def write(self, name, text):
        with open(self.path(name), "w", encoding="utf-8") as out:
            out.write(text)

    @property
    def url(self):
        return f"ldap://127.0.0.1:{self.port}"

    def answers(self):
        with socket.socket() as probe:
            return probe.connect_ex(("127.0.0.1", self.port)) == 0

    def start(self):
        # A debug level keeps it in the foreground; 0 says nothing.
        self.process = subprocess.Popen([PROGRAM, "-d", "0", "-h", self.url, "-f",
                                         self.path("slapd.conf")], stderr=subprocess.DEVNULL)
        wait_for(lambda: self.process.poll() is not None or self.answers(), "slapd")
        if self.process.poll() is not None:
            raise RuntimeError("slapd does not start")

    def stop(self):
        if self.process:
            self.process.terminate()
            self.process.wait()
            self.process = None

    def close(self):
        self.stop()
        shutil.rmtree(self.directory, ignore_errors=True)
