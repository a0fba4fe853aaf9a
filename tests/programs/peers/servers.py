"""Servers that nobody here wrote: how each is configured and started.

All serve the same paths: /enrol goes to the backend simulator, /late and /unsized to the small
upstream; /forbidden is the server's own refusal, and /close a connection that it closes without an
answer; nginx refuses /hasty in the same breath as it asks for the body. No body may be longer than
64 KiB, and an upstream has five seconds to say something.
"""

import dataclasses
import pathlib
import re
import shutil
import subprocess


@dataclasses.dataclass
class Server:
    """In the texts stand the fields of its place: host, port, backend, upstream (ports) and
    directory, where the configuration is the file server.conf."""

    program: str
    arguments: tuple
    configuration: str = ""
    tls: bool = False

    def path(self):
        """Where the program is; None if it is not installed. Debian keeps it out of users' paths."""
        return shutil.which(self.program) or shutil.which(self.program, path="/usr/sbin")

    def version(self):
        result = subprocess.run([self.path(), "-v"], capture_output=True, text=True, check=True)
        number = re.search(r"\d+\.\d+\.\d+[^\s/]*", result.stdout + result.stderr).group()
        return f"{self.program} {number}"

    def command(self, place):
        fields = vars(place)
        (place.directory / "server.conf").write_text(self.configuration.format(**fields))
        return [self.path(), *(part.format(**fields) for part in self.arguments)]


NGINX = Server("nginx", ("-e", "stderr", "-p", "{directory}", "-c", "{directory}/server.conf"),
               tls=True, configuration="""
    daemon off; worker_processes 1; pid nginx.pid; error_log stderr;
    events {{}}
    http {{
        access_log off; client_max_body_size 64k; proxy_read_timeout 5s;
        client_body_temp_path body; proxy_temp_path proxy; fastcgi_temp_path fastcgi;
        uwsgi_temp_path uwsgi; scgi_temp_path scgi;
        server {{
            listen {host}:{port} ssl;
            ssl_certificate {directory}/server.pem;
            ssl_certificate_key {directory}/server.pem;
            location = /enrol {{ proxy_pass http://127.0.0.1:{backend}; }}
            location / {{ proxy_pass http://127.0.0.1:{upstream}; }}
            location = /forbidden {{ return 403; }}
            location = /hasty {{ return 403 "no"; }}
            location = /close {{ return 444; }}
        }}
    }}""")

MODULES = ("mpm_event", "authz_core", "proxy", "proxy_http", "rewrite")
# LimitRequestBody does not hold for requests that are handed on.
LOADING = "".join(f"LoadModule {name}_module /usr/lib/apache2/modules/mod_{name}.so\n"
                  for name in MODULES)
APACHE = Server("apache2", ("-DFOREGROUND", "-d", "{directory}", "-f", "{directory}/server.conf"),
                LOADING + """
    ServerName {host}
    Listen {host}:{port}
    DefaultRuntimeDir {directory}
    PidFile {directory}/apache.pid
    ErrorLog {directory}/error.log
    RewriteEngine On
    RewriteCond expr "%{{HTTP:Content-Length}} -gt 65536"
    RewriteRule ^ - [R=413,L]
    ProxyTimeout 5
    ProxyPass /enrol http://127.0.0.1:{backend}/enrol
    ProxyPass /late http://127.0.0.1:{upstream}/late
    ProxyPass /unsized http://127.0.0.1:{upstream}/unsized
    <Location /forbidden>
        Require all denied
    </Location>
    """)

LIGHTTPD = Server("lighttpd", ("-D", "-f", "{directory}/server.conf"), """
    server.modules = ("mod_access", "mod_proxy")
    server.document-root = "{directory}"
    server.upload-dirs = ("{directory}")
    server.bind = "{host}"
    server.port = {port}
    server.max-request-size = 64
    $HTTP["url"] == "/enrol" {{
        proxy.server = ("" => (("host" => "127.0.0.1", "port" => {backend}, "read-timeout" => 5)))
    }}
    $HTTP["url"] =~ "^/(late|unsized)$" {{
        proxy.server = ("" => (("host" => "127.0.0.1", "port" => {upstream}, "read-timeout" => 5)))
    }}
    $HTTP["url"] == "/forbidden" {{ url.access-deny = ("") }}
    """)

HAPROXY = Server("haproxy", ("-db", "-f", "{directory}/server.conf"), tls=True, configuration="""
defaults
    mode http
    timeout connect 5s
    timeout client 60s
    timeout server 5s
frontend peer
    bind {host}:{port} ssl crt {directory}/server.pem
    http-request deny deny_status 403 if {{ path /forbidden }}
    http-request deny deny_status 413 if {{ req.hdr(content-length) -m int gt 65536 }}
    http-request reject if {{ path /close }}
    use_backend upstream if {{ path /late /unsized }}
    default_backend simulator
backend simulator
    server simulator 127.0.0.1:{backend}
backend upstream
    server upstream 127.0.0.1:{upstream}
""")

# Node's http, which answers by itself.
NODE = Server("node", (str(pathlib.Path(__file__).with_name("node_server.js")), "{host}", "{port}"))
