#!/usr/bin/env python3
"""Whole exchanges of the real request handler with servers that nobody here wrote.

Each server stands in front of the backend simulator, over TLS or in clear. `rows` says what
comes of each case at the client; docs/peers.md says it to a reader.
"""

import collections
import http.server
import json
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import threading
import time
import types

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "end_to_end"))
import servers  # noqa: E402
import unit_case  # noqa: E402
import unit_day  # noqa: E402

TRANSACTION_TYPE = "QUBA-GenerateTIVCert-C003"
OPERATION = TRANSACTION_TYPE + ".COSendCSR"
MEDIA_TYPE = "application/QUBA_CT_KoruCertificateResponse_v2+proto"
ANSWER = b"\x0a\x04peer"
ANSWER_IN_CHUNKS = b"6\r\n" + ANSWER + b"\r\n0\r\n\r\n"
# All of 127.0.0.0/8 is this host: with an address of its own a test has all ports to itself.
HOST = f"127.{64 + (os.getpid() >> 16)}.{os.getpid() >> 8 & 255}.{os.getpid() & 255}"

# The status of an answer that came in one read with the interim response, and is lost with it.
LOST = 4095
SUCCESS, TIMEOUT, FAILED, HTTP_ERROR, EMPTY, UNKNOWN = 0, 2, 7, 9, 10, 11


class Row(collections.namedtuple("Row", "interim code status seen")):
    """interim: whether one came, so that the body was sent; code: the handler's return code;
    status: the last one in its log, None without a complaint; seen: the simulator's outcome, or
    whether the upstream was asked for an interim response, None if no request reached them."""


def rows(hands_on, closed=502, silent=504):
    """What comes of each case with a proxy that hands the expectation on, or answers it itself;
    `closed` and `silent` are its statuses for a backend that is so."""
    return {
        "ok": Row(True, SUCCESS, None, "issued"),
        "pieces": Row(True, SUCCESS, None, "issued"),
        "refuse:403": Row(True, HTTP_ERROR, 403, "refused"),
        "empty": Row(True, EMPTY, None, "issued"),
        "wrong-media-type": Row(True, UNKNOWN, None, "issued"),
        "no-interim": Row(not hands_on, HTTP_ERROR, 417, "refused"),
        "close-early": Row(not hands_on, HTTP_ERROR, closed, "closed"),
        "close-after-interim": Row(True, HTTP_ERROR, closed, "closed"),
        "silent": Row(not hands_on, HTTP_ERROR, silent, "silent"),
        "/late": Row(True, SUCCESS, None, hands_on),
        "/unsized": Row(True, SUCCESS, None, hands_on),
        "/forbidden": Row(False, HTTP_ERROR, 403, None),
        "/too-long": Row(False, HTTP_ERROR, 413, None),
    }


class Upstream(http.server.BaseHTTPRequestHandler):
    """A backend of a few lines: its interim response is late, its answer may have no length."""

    protocol_version = "HTTP/1.1"

    def handle_expect_100(self):
        time.sleep(0.5)
        return super().handle_expect_100()

    def do_PUT(self):
        self.server.expectations.append("Expect" in self.headers)
        self.rfile.read(int(self.headers.get("Content-Length", 0)))
        self.send_response(200)
        self.send_header("Content-Type", MEDIA_TYPE)
        self.send_header("Connection", "close")
        if self.path == "/late":
            self.send_header("Content-Length", str(len(ANSWER)))
        self.end_headers()
        self.wfile.write(ANSWER)


class ServerTest(unit_case.UnitCase):
    """All cases with one server, which stands before the backend simulator."""

    def setUp(self):
        super().setUp()
        self.directory = self.day.directory
        self.directory.chmod(0o755)
        self.day.provision()
        self.request = self.directory / "request.bin"
        self.request.write_bytes(
            self.day.run(*self.day.in_unit("bench-request", unit_day.VIN), text=False))

    def make_server_certificate(self, path):
        self.day.run("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                     "ec_paramgen_curve:P-256", "-nodes", "-days", "2", "-subj", "/CN=peer",
                     "-addext", "subjectAltName=DNS:peer.test", "-keyout", path, "-out",
                     f"{path}.crt")
        with open(path, "a") as file:
            file.write(pathlib.Path(f"{path}.crt").read_text())

    def start_server(self, server, backend=1, upstream=1):
        """Starts it in the foreground, without privileges; where it is."""
        directory = self.directory / server.program
        directory.mkdir()
        with socket.create_server((HOST, 0)) as probe:
            port = probe.getsockname()[1]
        place = types.SimpleNamespace(host=HOST, port=port, backend=backend, upstream=upstream,
                                      directory=directory, server=server)
        self.make_server_certificate(directory / "server.pem")
        command = server.command(place)
        if os.geteuid() == 0:
            command = ["setpriv", "--reuid", "nobody", "--regid", "nogroup", "--clear-groups",
                       *command]
            for path in (directory, *directory.iterdir()):
                shutil.chown(path, "nobody", "nogroup")
        print(f"met: {server.version()}", flush=True)
        log = self.day.logs / f"{server.program}.log"
        self.day.launch(server.program, [str(part) for part in command], log.name)
        self.addCleanup(lambda: print(log.read_text(errors="replace")))

        def listens():
            with socket.socket() as probe:
                return probe.connect_ex((HOST, port)) == 0
        self.day.wait_for(f"{server.program} to listen", listens)
        return place

    def start_upstream(self):
        upstream = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Upstream)
        upstream.expectations = []
        threading.Thread(target=upstream.serve_forever).start()
        self.addCleanup(upstream.server_close)
        self.addCleanup(upstream.shutdown)
        return upstream

    def begin_exchange(self, place, path, request=None, anchors=None):
        """Starts an exchange; what ends it and gives its result."""
        tls = place.server.tls and {
            "trustAnchors": str(anchors or place.directory / "server.pem.crt"),
            "serverName": "peer.test"}
        settings, response = place.directory / "connector.json", place.directory / "response.bin"
        settings.write_text(json.dumps({
            "transactionTypes": {TRANSACTION_TYPE: {}},
            "invocationUrls": {
                OPERATION: f"http{'s' if tls else ''}://{HOST}:{place.port}{path}"},
            "operations": {OPERATION: {"tls": tls}}}))
        process = subprocess.Popen(
            [unit_case.binaries() / "bench-exchange", request or self.request, response], text=True,
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
            env={**os.environ, "ZEM_CONNECTOR_CONFIG": str(settings), "ARA_LOG_LEVEL": "debug"})
        self.addCleanup(process.kill)

        def end():
            _, log = process.communicate(timeout=self.day.limit)
            print(log)
            status = re.findall(r"Unexpected HTTP response: (\d+)!", log)
            return types.SimpleNamespace(
                code=process.returncode, body=response.read_bytes(), log=log,
                status=int(status[-1]) if status else None,
                interim="The Payload was sent successfully." in log)
        return end

    def exchange(self, *arguments, **options):
        return self.begin_exchange(*arguments, **options)()

    def meet(self, server, expected, chunks_unsized=False):
        if server.path() is None:
            self.skipTest(f"{server.program} is not installed: skipped")
        upstream = self.start_upstream()
        self.day.start_simulators("--scenario", ",".join(
            case for case in expected if not case.startswith("/")) or "ok")
        too_long = self.directory / "long.bin"
        too_long.write_bytes(b"x" * 100000)
        place = self.start_server(server, int((self.directory / "backend.port").read_text()),
                                  upstream.server_port)
        for case, row in expected.items():
            with self.subTest(case):
                before = len(self.day.requests())
                upstream.expectations.clear()
                result = self.exchange(place, case if case.startswith("/") else "/enrol",
                                       too_long if case == "/too-long" else self.request)
                entries = self.day.requests()[before:]
                seen = [entry["outcome"] for entry in entries] + upstream.expectations
                self.assertLessEqual(len(seen), 1, "one request for one exchange")
                if case == "close-after-interim" and result.status == LOST:
                    result.status = row.status
                met = Row(result.interim, result.code, result.status, seen[0] if seen else None)
                print(f"{server.program} {case}: {met}", flush=True)
                self.assertEqual(met, row, result.log)
                self.judge_body(result, entries, case == "/unsized" and chunks_unsized)
        if server.tls:
            self.refuse_certificate(place)
        return place

    def judge_body(self, result, entries, is_chunked):
        """What the client gets is what the backend has sent, to the byte."""
        self.assertNotIn("may lack its end", result.log)
        if result.code == SUCCESS and entries:
            chain = entries[0]["issued_chain"].encode()
            self.assertEqual(result.body, bytes([0x0A, len(chain) & 127 | 128, len(chain) >> 7])
                             + chain)
        elif result.code == SUCCESS:
            self.assertEqual(result.body, ANSWER_IN_CHUNKS if is_chunked else ANSWER)
        elif result.interim and entries and entries[0]["outcome"] == "refused":
            self.assertIn(entries[0]["transaction_id"].encode(), result.body)
        else:
            self.assertEqual(result.body, b"")

    def refuse_certificate(self, place):
        before = len(self.day.requests())
        other_anchor = self.directory / "other.pem"
        self.make_server_certificate(other_anchor)
        result = self.exchange(place, "/enrol", anchors=other_anchor)
        self.assertEqual((result.code, result.interim), (FAILED, False), result.log)
        self.assertIn("Connection failed: 7", result.log)
        self.assertEqual(len(self.day.requests()), before)

    def test_nginx(self):
        place = self.meet(servers.NGINX, rows(hands_on=False), chunks_unsized=True)
        hasty = self.exchange(place, "/hasty")
        self.assertEqual((hasty.interim, hasty.code, len(hasty.body)), (True, HTTP_ERROR, 0))
        self.assertIn(hasty.status, (403, LOST))

    def test_apache(self):
        self.meet(servers.APACHE, rows(hands_on=True, silent=503), chunks_unsized=True)

    def test_lighttpd(self):
        self.meet(servers.LIGHTTPD, rows(hands_on=False, closed=500))

    def test_haproxy(self):
        self.meet(servers.HAPROXY, rows(hands_on=True))

    def test_node(self):
        success = Row(True, SUCCESS, None, None)
        refusals = {case: rows(True)[case] for case in ("/forbidden", "/too-long")}
        self.meet(servers.NODE, {"/enrol": success, "/late": success, "/unsized": success,
                                   **refusals}, chunks_unsized=True)

    def test_closing(self):
        """Nothing but the time limit ends the wait for an interim response."""
        here = [server for server in (servers.NGINX, servers.HAPROXY, servers.NODE)
                if server.path() is not None]
        if not here:
            self.skipTest("no server that closes without an answer is installed: skipped")
        ends = {server.program: self.begin_exchange(self.start_server(server), "/close")
                for server in here}
        for program, end in ends.items():
            with self.subTest(program):
                result = end()
                self.assertEqual((result.interim, result.code, len(result.body)), (False, TIMEOUT, 0))


if __name__ == "__main__":
    unit_case.main()
