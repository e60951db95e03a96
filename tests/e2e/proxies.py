# SPDX-License-Identifier: Apache-2.0
"""nginx, Apache, HAProxy and Caddy, each with a configuration of its own, for as long as a case runs."""

import ctypes
import os
import signal
import socket
import subprocess
import tempfile
import shutil

from harness import PATIENCE, PR_SET_PDEATHSIG, ROOT, SCRATCH, Failure, wait_for

_libc = ctypes.CDLL(None)

NGINX = """daemon off;
pid {work}/nginx.pid;
error_log stderr;
{user}{load}
events {{}}
{block} {{
    {paths}
{text}
}}
"""
NGINX_PATHS = """access_log off;
    client_body_temp_path {work}/body; proxy_temp_path {work}/proxy;
    fastcgi_temp_path {work}/fastcgi; uwsgi_temp_path {work}/uwsgi; scgi_temp_path {work}/scgi;"""
APACHE = """ServerRoot {work}
PidFile {work}/apache.pid
DefaultRuntimeDir {work}
Mutex file:{work}
ErrorLog {work}/apache.log
Listen {listen}
{modules}
{user}
{text}
"""
HAPROXY = """defaults
    timeout connect 5s
    timeout client 2m
    timeout server 2m
{text}
"""
CADDY = """{{
    admin off
    auto_https off
}}
{text}
"""


def sample(name):
    """A file of docs/proxies."""
    with open(os.path.join(ROOT, "docs", "proxies", name), encoding="utf-8") as file:
        return file.read()


def free_port():
    with socket.socket() as sock:
        sock.bind(("127.0.0.1", 0))
        return sock.getsockname()[1]


class Proxy:
    """A proxy at 127.0.0.1, in front of a server there.

    `text` is its configuration as an administrator writes it; where it listens (port 80) and whom it
    forwards to (127.0.0.1:8080) become the case's own.
    """

    def __init__(self, upstream, text):
        self.work = tempfile.mkdtemp(prefix="kest-proxy-", dir=SCRATCH)
        self.process = None
        try:
            self.start(upstream, text)
        except BaseException:
            self.close()
            raise

    def start(self, upstream, text):
        for _ in range(5):  # somebody else may be quicker to take the port
            self.port = free_port()
            config = os.path.join(self.work, "proxy.conf")
            with open(config, "w", encoding="utf-8") as out:
                out.write(self.wrap(text.replace("127.0.0.1:8080", f"127.0.0.1:{upstream}")))
            with open(os.path.join(self.work, "out"), "wb") as log:
                self.process = subprocess.Popen(
                    self.command(config), cwd=self.work, stdin=subprocess.DEVNULL, stdout=log,
                    stderr=log, env=dict(os.environ, HOME=self.work, XDG_DATA_HOME=self.work,
                                         XDG_CONFIG_HOME=self.work),
                    preexec_fn=lambda: _libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL))
            if wait_for(self.has_started_or_ended, self.name) == "started":
                return
        raise Failure(f"{self.name} does not start:\n{self.log()}")

    def has_started_or_ended(self):
        if self.process.poll() is not None:
            return "ended"
        try:
            socket.create_connection(("127.0.0.1", self.port), 5).close()
        except OSError:
            return None
        return "started"

    def log(self):
        text = ""
        for name in ("out", "apache.log"):
            path = os.path.join(self.work, name)
            if os.path.exists(path):
                with open(path, encoding="utf-8", errors="replace") as file:
                    text += file.read()
        return text

    def close(self):
        if self.process and self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(PATIENCE)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        shutil.rmtree(self.work, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


class Nginx(Proxy):
    name = "nginx"
    plain = "server {\n    listen 80;\n    location / {\n        proxy_pass http://127.0.0.1:8080;\n    }\n}\n"

    def wrap(self, text):
        return NGINX.format(work=self.work, block="http", load="",
                            user="user root;\n" if os.geteuid() == 0 else "",
                            paths=NGINX_PATHS.format(work=self.work), text=self.bind(text))

    def bind(self, text):
        return text.replace("listen 80;", f"listen 127.0.0.1:{self.port};")

    def command(self, config):
        return ["nginx", "-c", config, "-p", self.work, "-e", "stderr"]


class NginxStream(Nginx):
    def wrap(self, text):
        return NGINX.format(work=self.work, block="stream", paths="",
                            user="user root;\n" if os.geteuid() == 0 else "",
                            load="load_module /usr/lib/nginx/modules/ngx_stream_module.so;",
                            text=self.bind(text))


class Apache(Proxy):
    name = "apache2"
    plain = '<VirtualHost *:80>\n    ProxyPass "/" "http://127.0.0.1:8080/"\n</VirtualHost>\n'
    modules = ("mpm_event", "authz_core", "headers", "proxy", "proxy_http")

    def wrap(self, text):
        load = "\n".join(f"LoadModule {name}_module /usr/lib/apache2/modules/mod_{name}.so"
                         for name in self.modules)
        here = f"127.0.0.1:{self.port}"
        return APACHE.format(work=self.work, listen=here, modules=load,
                             user="User www-data\nGroup www-data" if os.geteuid() == 0 else "",
                             text=text.replace("<VirtualHost *:80>", f"<VirtualHost {here}>"))

    def command(self, config):
        return ["apache2", "-d", self.work, "-f", config, "-DFOREGROUND"]


class Haproxy(Proxy):
    name = "haproxy"
    plain = ("frontend files\n    mode http\n    bind :80\n    default_backend kestd\n"
             "backend kestd\n    mode http\n    server kestd 127.0.0.1:8080\n")

    def wrap(self, text):
        return HAPROXY.format(text=text.replace("bind :80", f"bind 127.0.0.1:{self.port}"))

    def command(self, config):
        return ["haproxy", "-db", "-f", config]


class Caddy(Proxy):
    name = "caddy"
    plain = "http://files.example.org:80 {\n    reverse_proxy 127.0.0.1:8080\n}\n"

    def wrap(self, text):
        here = f"http://:{self.port}"
        return CADDY.format(text=text.replace("http://files.example.org:80", here))

    def command(self, config):
        return ["caddy", "run", "--config", config, "--adapter", "caddyfile"]
