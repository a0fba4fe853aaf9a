"""Servers that nobody here wrote: how each is configured and started.

All serve the same paths: /enrol goes to the backend simulator, /late and /unsized to the small
upstream; /forbidden is the server's own refusal, and /close a connection that it closes without an
answer; nginx refuses /hasty in the same breath as it asks for the body. No body may be longer than 64 KiB, and an upstream has five seconds to say something.
"""

import pathlib
import re
import shutil
import subprocess

NODE_SCRIPT = pathlib.Path(__file__).with_name("node_server.js")


class Server:
    """`place` has the fields host, port, backend, upstream (ports) and directory."""

    program = ""
    tls = False
    version_option = "-v"

    def path(self):
        """Where the program is; None if it is not installed. Debian keeps it out of users' paths."""
        return shutil.which(self.program) or shutil.which(self.program, path="/usr/sbin")

    def version(self):
        result = subprocess.run([self.path(), self.version_option], capture_output=True, text=True,
                                check=True)
        number = re.search(r"\d+\.\d+\.\d+[^\s/]*", result.stdout + result.stderr).group()
        return f"{self.program} {number}"

    def command(self, place):
        path = pathlib.Path(place.directory) / "server.conf"
        path.write_text(self.configuration(place))
        return [self.path(), *self.arguments(path)]


class Nginx(Server):
    program = "nginx"
    tls = True

    def arguments(self, path):
        return ["-e", "stderr", "-p", path.parent, "-c", path]

    def configuration(self, place):
        temporary = "\n".join(f"{kind}_temp_path {place.directory}/{kind};" for kind in
                              ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
        return f"""
            daemon off; worker_processes 1; pid {place.directory}/nginx.pid; error_log stderr;
            events {{}}
            http {{
                access_log off; {temporary}
                client_max_body_size 64k; proxy_read_timeout 5s;
                server {{
                    listen {place.host}:{place.port} ssl;
                    ssl_certificate {place.directory}/server.pem;
                    ssl_certificate_key {place.directory}/server.pem;
                    location = /enrol {{ proxy_pass http://127.0.0.1:{place.backend}; }}
                    location / {{ proxy_pass http://127.0.0.1:{place.upstream}; }}
                    location = /forbidden {{ return 403; }}
                    location = /hasty {{ return 403 "no"; }}
                    location = /close {{ return 444; }}
                }}
            }}"""


class Apache(Server):
    program = "apache2"

    def arguments(self, path):
        return ["-DFOREGROUND", "-d", path.parent, "-f", path]

    def configuration(self, place):
        modules = "\n".join(f"LoadModule {name}_module /usr/lib/apache2/modules/mod_{name}.so"
                            for name in ("mpm_event", "authz_core", "proxy", "proxy_http",
                                         "rewrite"))
        return f"""{modules}
            ServerName {place.host}
            Listen {place.host}:{place.port}
            DefaultRuntimeDir {place.directory}
            PidFile {place.directory}/apache.pid
            ErrorLog {place.directory}/error.log
            # LimitRequestBody does not hold for requests that are handed on.
            RewriteEngine On
            RewriteCond expr "%{{HTTP:Content-Length}} -gt 65536"
            RewriteRule ^ - [R=413,L]
            ProxyTimeout 5
            ProxyPass /enrol http://127.0.0.1:{place.backend}/enrol
            ProxyPass /late http://127.0.0.1:{place.upstream}/late
            ProxyPass /unsized http://127.0.0.1:{place.upstream}/unsized
            <Location /forbidden>
                Require all denied
            </Location>
            """


class Lighttpd(Server):
    program = "lighttpd"

    def arguments(self, path):
        return ["-D", "-f", path]

    def configuration(self, place):
        def to(port):
            return f"""{{ proxy.server = ("" => (("host" => "127.0.0.1", "port" => {port},
                          "read-timeout" => 5))) }}"""
        return f"""
            server.modules = ("mod_access", "mod_proxy")
            server.document-root = "{place.directory}"
            server.upload-dirs = ("{place.directory}")
            server.bind = "{place.host}"
            server.port = {place.port}
            server.max-request-size = 64
            $HTTP["url"] == "/enrol" {to(place.backend)}
            $HTTP["url"] =~ "^/(late|unsized)$" {to(place.upstream)}
            $HTTP["url"] == "/forbidden" {{ url.access-deny = ("") }}
            """


class HAProxy(Server):
    program = "haproxy"
    tls = True

    def arguments(self, path):
        return ["-db", "-f", path]

    def configuration(self, place):
        return f"""
defaults
    mode http
    timeout connect 5s
    timeout client 60s
    timeout server 5s
frontend peer
    bind {place.host}:{place.port} ssl crt {place.directory}/server.pem
    http-request deny deny_status 403 if {{ path /forbidden }}
    http-request deny deny_status 413 if {{ req.hdr(content-length) -m int gt 65536 }}
    http-request reject if {{ path /close }}
    use_backend upstream if {{ path /late /unsized }}
    default_backend simulator
backend simulator
    server simulator 127.0.0.1:{place.backend}
backend upstream
    server upstream 127.0.0.1:{place.upstream}
"""


class Node(Server):
    """Node's http, which answers by itself."""

    program = "node"

    def command(self, place):
        return [self.path(), NODE_SCRIPT, place.host, place.port]
