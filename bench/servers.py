# SPDX-License-Identifier: Apache-2.0
"""The servers that are compared: how each is configured and started over the same directories.

Every server gets two areas: "r", a tree that is only read and that all of them share, and "w", a
directory of its own that workloads write to. The configurations are made to be alike: one worker
process or thread per processor that the servers may use, no access log, keep-alive without a bound,
room for the same number of connections.
"""

import os
import shutil
import signal
import socket
import subprocess
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
CONNECTIONS = 12000
KESTD = os.path.join(ROOT, "build/release/bin/kestd")


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def find(*names):
    """The first of these programs or files that exists; None without any."""
    for name in names:
        path = name if os.path.isabs(name) else shutil.which(
            name, path=os.environ.get("PATH", "") + ":/usr/sbin:/usr/local/sbin")
        if path and os.path.exists(path):
            return path
    return None


class Server:
    """One server. prefix: where its areas begin in URLs."""

    name = ""
    prefix = ""
    # What it cannot do at all; workloads that need it are left out for this server.
    lacks = frozenset()

    def __init__(self, base, processors):
        self.base = os.path.join(base, self.name)
        self.read = os.path.join(base, "common", "r")
        self.write = os.path.join(self.base, "root", "w")
        self.run = os.path.join(self.base, "run")
        self.processors = processors
        self.port = free_port()
        self.process = None
        for path in (self.write, self.run):
            os.makedirs(path, exist_ok=True)

    @classmethod
    def available(cls):
        raise NotImplementedError

    def configure(self):
        """Writes the configuration, and returns the command that runs it in the foreground."""
        raise NotImplementedError

    def text(self, name, content):
        path = os.path.join(self.run, name)
        with open(path, "w", encoding="utf-8") as out:
            out.write(content)
        return path

    def start(self):
        command = self.configure()
        log = open(os.path.join(self.run, "log"), "ab")
        cpus = ",".join(str(cpu) for cpu in self.processors)
        self.process = subprocess.Popen(["taskset", "-c", cpus, *command], stdout=log, stderr=log,
                                        stdin=subprocess.DEVNULL, cwd=self.run)
        log.close()
        end = time.monotonic() + 60
        while True:
            try:
                socket.create_connection(("127.0.0.1", self.port), 1).close()
                return
            except OSError:
                if self.process.poll() is not None or time.monotonic() > end:
                    with open(os.path.join(self.run, "log"), errors="replace") as text:
                        raise RuntimeError(f"{self.name} does not start:\n{text.read()}") from None
                time.sleep(0.05)

    def stop(self):
        if self.process and self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(30)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self.process = None

    @property
    def pid(self):
        return self.process.pid

    def path(self, area, name=""):
        return f"{self.prefix}/{area}/{name}"


class Kestd(Server):
    name = "kestd"
    prefix = "/Ferro"
    sync = "none"  # the peers never sync, either
    dialect = "standard"
    keep_deleted = None  # days; None: as it is without a setting

    @classmethod
    def available(cls):
        return find(KESTD)

    def configure(self):
        keep = "" if self.keep_deleted is None else f"'Keep Deleted' = {self.keep_deleted}"
        config = self.text("kest.toml", f"""
['Kest\\Configuration\\Server']
'Access Log' = false
'Connections' = {CONNECTIONS}
['Kest\\Configuration\\FileStore']
'Sync' = '{self.sync}'
{keep}
""")
        state = os.path.join(self.run, "state")
        os.makedirs(state, exist_ok=True)
        return [self.available(), "serve", "--config", config, "--listen", f"127.0.0.1:{self.port}",
                "--state-dir", state, "--dialect", self.dialect,
                f"r={self.read}", f"w={self.write}"]


class KestdData(Kestd):
    """The default durability: what is answered has been synced."""

    name = "kestd-sync"
    sync = "data"


class Standard(Kestd):
    """Nothing is synced and nothing deleted is kept: what the peers do."""

    name = "standard"
    keep_deleted = 0


class Classic(Standard):
    name = "classic"
    dialect = "classic"


class Nginx(Server):
    name = "nginx"
    lacks = frozenset({"dead-properties", "forms"})

    @classmethod
    def available(cls):
        return find("nginx")

    def configure(self):
        module = find("/usr/lib/nginx/modules/ngx_http_dav_ext_module.so")
        load = f"load_module {module};" if module else ""
        zone = "dav_ext_lock_zone zone=locks:10m;" if module else ""
        ext = ("dav_ext_methods PROPFIND OPTIONS LOCK UNLOCK; dav_ext_lock zone=locks;"
               if module else "")
        temp = "\n".join(f"    {kind}_temp_path {self.run}/{kind};"
                         for kind in ("fastcgi", "uwsgi", "scgi", "proxy"))
        user = "user root;" if os.geteuid() == 0 else ""
        config = self.text("nginx.conf", f"""
{load}
{user}
daemon off;
worker_processes {len(self.processors)};
worker_rlimit_nofile {CONNECTIONS * 2};
pid {self.run}/nginx.pid;
error_log {self.run}/error.log crit;
events {{ worker_connections {CONNECTIONS}; }}
http {{
    access_log off;
    sendfile on;
    tcp_nopush on;
    keepalive_requests 1000000000;
    keepalive_timeout 300s;
    client_max_body_size 0;
    client_body_temp_path {self.base}/root/.tmp;
    types {{ text/plain txt; text/html html; }}
    default_type application/octet-stream;
{temp}
    {zone}
    server {{
        listen 127.0.0.1:{self.port} backlog=4096;
        root {self.base}/root;
        location / {{
            autoindex on;
            dav_methods PUT DELETE MKCOL COPY MOVE;
            {ext}
        }}
        location /r/ {{
            root {os.path.dirname(self.read)};
            autoindex on;
            {ext}
        }}
    }}
}}
""")
        os.makedirs(f"{self.base}/root/.tmp", exist_ok=True)
        return [self.available(), "-c", config, "-p", self.run]


class Apache(Server):
    name = "apache"
    lacks = frozenset({"forms"})

    @classmethod
    def available(cls):
        return find("apache2") if find("/usr/lib/apache2/modules/mod_dav.so") else None

    def configure(self):
        modules = "\n".join(f"LoadModule {name}_module /usr/lib/apache2/modules/mod_{name}.so"
                            for name in ("mpm_event", "authz_core", "mime", "dir", "alias",
                                         "autoindex", "dav", "dav_fs", "dav_lock"))
        user = ""
        if os.geteuid() == 0:
            # Apache refuses to work as root unless it was built for it: it gets the tree instead.
            user = "User www-data\nGroup www-data"
            subprocess.run(["chown", "-R", "www-data:www-data", self.base], check=True)
        threads = 32 * len(self.processors)
        config = self.text("apache.conf", f"""
ServerRoot {self.run}
ServerName 127.0.0.1
PidFile {self.run}/apache.pid
Listen 127.0.0.1:{self.port}
ListenBacklog 4096
{modules}
{user}
StartServers {len(self.processors)}
ServerLimit 64
ThreadLimit {threads}
ThreadsPerChild {threads}
MinSpareThreads {threads}
MaxSpareThreads {threads * 64}
MaxRequestWorkers {threads * 64}
AsyncRequestWorkerFactor 64
KeepAlive On
KeepAliveTimeout 300
MaxKeepAliveRequests 0
EnableSendfile On
EnableMMAP On
LimitRequestBody 0
LimitXMLRequestBody 1000000
ErrorLog {self.run}/error.log
LogLevel crit
TypesConfig /etc/mime.types
DocumentRoot {self.base}/root
DavLockDB {self.base}/davlock
Alias /r {self.read}
<Directory />
    AllowOverride None
    Require all granted
</Directory>
<Directory {self.base}/root>
    Dav On
    Options +Indexes
</Directory>
<Directory {self.read}>
    Dav On
    Options +Indexes
</Directory>
IndexOptions FancyIndexing
""")
        return [self.available(), "-f", config, "-D", "FOREGROUND"]


class Lighttpd(Server):
    name = "lighttpd"
    lacks = frozenset({"forms"})

    @classmethod
    def available(cls):
        return find("lighttpd") if find("/usr/lib/lighttpd/mod_webdav.so") else None

    def configure(self):
        workers = len(self.processors) if len(self.processors) > 1 else 0
        config = self.text("lighttpd.conf", f"""
server.modules = ("mod_alias", "mod_webdav", "mod_dirlisting")
server.document-root = "{self.base}/root"
server.bind = "127.0.0.1"
server.port = {self.port}
server.errorlog = "{self.run}/error.log"
server.pid-file = "{self.run}/lighttpd.pid"
server.upload-dirs = ("{self.base}")
server.max-worker = {workers}
server.max-connections = {CONNECTIONS}
server.max-fds = {CONNECTIONS * 2}
server.listen-backlog = 4096
server.max-keep-alive-requests = 1000000000
server.max-keep-alive-idle = 300
server.max-request-size = 0
mimetype.assign = (".txt" => "text/plain", ".html" => "text/html",
                   "" => "application/octet-stream")
alias.url = ("/r/" => "{self.read}/")
webdav.activate = "enable"
webdav.is-readonly = "disable"
webdav.sqlite-db-name = "{self.base}/lighttpd.db"
dir-listing.activate = "enable"
""")
        return [self.available(), "-D", "-f", config]


class Rclone(Server):
    name = "rclone"
    lacks = frozenset({"dead-properties", "locks", "forms"})

    @classmethod
    def available(cls):
        return find("rclone")

    def configure(self):
        link = os.path.join(self.base, "root", "r")
        if not os.path.islink(link):
            os.symlink(self.read, link)
        return [self.available(), "serve", "webdav", "--config", "/dev/null", "--copy-links",
                "--dir-cache-time", "1s", "--addr", f"127.0.0.1:{self.port}",
                os.path.join(self.base, "root")]


ALL = [Kestd, KestdData, Nginx, Apache, Lighttpd, Rclone]
