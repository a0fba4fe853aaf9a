#!/usr/bin/env python3
"""Whole exchanges of the real request handler with servers that nobody here wrote.

Each server stands in front of the backend simulator, over TLS or in clear. `rows` says what
comes of each case at the client; docs/peers.md says it to a reader.
"""

import collections
import contextlib
import json
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time
import types
import unittest

sys.dont_write_bytecode = True
import servers  # noqa: E402

BINARIES = pathlib.Path(sys.argv[1]).resolve()
OPERATION = "QUBA-GenerateTIVCert-C003.COSendCSR"
VIN = "VNTREL00000000001"
LIMIT = 60
MEDIA_TYPE = b"application/QUBA_CT_KoruCertificateResponse_v2+proto"
ANSWER = b"\x0a\x04peer"
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


def run(*command):
    subprocess.run([str(part) for part in command], check=True, capture_output=True,
                   timeout=LIMIT)


def wait_for(what, condition):
    deadline = time.monotonic() + LIMIT
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"not seen within {LIMIT} s: {what}")
        time.sleep(0.02)


class Upstream:
    """A backend of a few lines: its interim response is late, its answer may have no length."""

    def __init__(self):
        self.expectations = []
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.thread = threading.Thread(target=self.serve)
        self.thread.start()

    def stop(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.thread.join()
        self.listener.close()

    def serve(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            # A server that gives up on us is its own business.
            with contextlib.suppress(OSError), connection, connection.makefile("rwb") as stream:
                self.answer(stream)

    def answer(self, stream):
        target = stream.readline().split()[1]
        header = {}
        while line := stream.readline().strip():
            name, value = line.split(b":", 1)
            header[name.lower()] = value.strip().lower()
        self.expectations.append(b"expect" in header)
        if b"expect" in header:
            time.sleep(0.5)
            stream.write(b"HTTP/1.1 100 Continue\r\n\r\n")
            stream.flush()
        if b"content-length" in header:
            stream.read(int(header[b"content-length"]))
        length = b"Content-Length: %d\r\n" % len(ANSWER) if target == b"/late" else b""
        stream.write(b"HTTP/1.1 200 OK\r\nContent-Type: " + MEDIA_TYPE + b"\r\n" + length +
                     b"Connection: close\r\n\r\n" + ANSWER)


class ServerTest(unittest.TestCase):
    """All cases with one server, which stands before the backend simulator."""

    @classmethod
    def setUpClass(cls):
        directory = tempfile.TemporaryDirectory(prefix="vintrel-peers-")
        cls.addClassCleanup(directory.cleanup)
        cls.directory = pathlib.Path(directory.name)
        cls.directory.chmod(0o755)
        cls.container = cls.directory / "container.pem"
        cls.long_container = cls.directory / "long.pem"
        cls.long_container.write_text("x" * 100000)
        cls.other_anchor = cls.directory / "other.pem"
        cls.make_server_certificate(cls.other_anchor)
        cls.make_container()

    @classmethod
    def make_server_certificate(cls, path):
        run("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
            "-nodes", "-days", "2", "-subj", "/CN=peer", "-addext", "subjectAltName=DNS:peer.test",
            "-keyout", path, "-out", f"{path}.crt")
        with open(path, "a") as file:
            file.write(pathlib.Path(f"{path}.crt").read_text())

    @classmethod
    def make_container(cls):
        base, request = cls.directory / "base.pem", cls.directory / "request.der"
        run(BINARIES / "vintrel-pki", "create", cls.directory / "pki")
        run(BINARIES / "vintrel-pki", "unit", cls.directory / "pki", "--vin", VIN, "--out", base)
        run("openssl", "req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
            "-nodes", "-keyout", cls.directory / "key.pem", "-subj", f"/CN={VIN}:C003",
            "-outform", "DER", "-out", request)
        run("openssl", "cms", "-sign", "-binary", "-nodetach", "-md", "sha256", "-in", request,
            "-signer", base, "-inkey", base, "-certfile",
            cls.directory / "pki" / "factory-ca.pem", "-outform", "PEM",
            "-out", cls.container)

    def launch(self, command, **options):
        """Starts a process and sees to its end; what it says is shown if the test fails."""
        log = tempfile.TemporaryFile()
        process = subprocess.Popen([str(part) for part in command], stdin=subprocess.DEVNULL,
                                   stdout=log, stderr=log, **options)

        def end():
            process.terminate()
            status = process.wait(LIMIT)
            log.seek(0)
            print(f"{command[0]} ended with {status}:\n{log.read().decode(errors='replace')}")
            log.close()
        self.addCleanup(end)
        return process

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
        options = {}
        if os.geteuid() == 0:
            options = {"user": "nobody", "group": "nogroup", "extra_groups": []}
            for path in (directory, *directory.iterdir()):
                shutil.chown(path, "nobody", "nogroup")
        print(f"met: {server.version()}", flush=True)
        process = self.launch(command, **options)

        def listens():
            self.assertIsNone(process.poll(), f"{server.program} did not start")
            with socket.socket() as probe:
                return probe.connect_ex((HOST, port)) == 0
        wait_for(f"{server.program} to listen", listens)
        return place

    def start_backend(self, scenarios):
        port_file = self.directory / "backend.port"
        self.launch([BINARIES / "vintrel-backend", "--pki", self.directory / "pki", "--port-file",
                     port_file, "--port", 0, "--journal", self.directory / "journal.jsonl",
                     "--scenario", ",".join(scenarios)])
        wait_for("the backend's port", port_file.exists)
        return int(port_file.read_text())

    def journal(self):
        path = self.directory / "journal.jsonl"
        return [json.loads(line) for line in path.read_text().splitlines()] if path.exists() else []

    def begin_exchange(self, place, path, container=None, anchors=None):
        """Starts an exchange; what ends it and gives its result."""
        tls = place.server.tls and {
            "trustAnchors": str(anchors or place.directory / "server.pem.crt"),
            "serverName": "peer.test"}
        file = place.directory / "connector.json"
        file.write_text(json.dumps({
            "sessionStatus": "started",
            "transactionTypes": {"QUBA-GenerateTIVCert-C003": {"activated": True}},
            "invocationUrls": {
                OPERATION: f"http{'s' if tls else ''}://{HOST}:{place.port}{path}"},
            "operations": {OPERATION: {"tls": tls}}}))
        process = subprocess.Popen(
            [BINARIES / "peers-exchange", container or self.container], text=True,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            env={**os.environ, "ZEM_CONNECTOR_CONFIG": str(file), "ARA_LOG_LEVEL": "debug"})
        self.addCleanup(process.kill)

        def end():
            output, log = process.communicate(timeout=LIMIT)
            self.assertEqual(process.returncode, 0, log)
            print(log)
            status = re.findall(r"Unexpected HTTP response: (\d+)!", log)
            return types.SimpleNamespace(
                **json.loads(output), log=log, status=int(status[-1]) if status else None,
                interim="The Payload was sent successfully." in log)
        return end

    def exchange(self, *arguments, **options):
        return self.begin_exchange(*arguments, **options)()

    def meet(self, server, expected, chunks_unsized=False):
        if server.path() is None:
            self.skipTest(f"{server.program} is not installed: skipped")
        upstream = Upstream()
        self.addCleanup(upstream.stop)
        backend = self.start_backend([case for case in expected if not case.startswith("/")])
        place = self.start_server(server, backend, upstream.port)
        for case, row in expected.items():
            with self.subTest(case):
                before, upstream.expectations = len(self.journal()), []
                result = self.exchange(
                    place, case if case.startswith("/") else "/enrol",
                    self.long_container if case == "/too-long" else self.container)
                entries = self.journal()[before:]
                seen = [entry["outcome"] for entry in entries] + upstream.expectations
                self.assertLessEqual(len(seen), 1, "one request for one exchange")
                if case == "close-after-interim" and result.status == LOST:
                    result.status = row.status
                met = Row(result.interim, result.code, result.status, seen[0] if seen else None)
                print(f"{server.program} {case}: {met}", flush=True)
                self.assertEqual(met, row, result.log)
                self.judge_response(result, entries, case == "/unsized" and chunks_unsized)
        if server.tls:
            self.refuse_certificate(place)
        return place

    def judge_response(self, result, entries, is_chunked):
        """What the client gets is what the backend has sent, to the byte, unless in chunks."""
        self.assertNotIn("may lack its end", result.log)
        if is_chunked:
            self.assertFalse(result.isMessage)
        elif result.code == SUCCESS:
            self.assertEqual(result.text, entries[0]["issued_chain"] if entries else "peer")
        elif result.interim and entries and entries[0]["outcome"] == "refused":
            self.assertIn(entries[0]["transaction_id"], result.text)
        else:
            self.assertEqual(result.size, 0)

    def refuse_certificate(self, place):
        before = len(self.journal())
        result = self.exchange(place, "/enrol", anchors=self.other_anchor)
        self.assertEqual((result.code, result.interim), (FAILED, False), result.log)
        self.assertIn("Connection failed: 7", result.log)
        self.assertEqual(len(self.journal()), before)

    def test_nginx(self):
        place = self.meet(servers.Nginx(), rows(hands_on=False), chunks_unsized=True)
        hasty = self.exchange(place, "/hasty")
        self.assertEqual((hasty.interim, hasty.code, hasty.size), (True, HTTP_ERROR, 0))
        self.assertIn(hasty.status, (403, LOST))

    def test_apache(self):
        self.meet(servers.Apache(), rows(hands_on=True, silent=503), chunks_unsized=True)

    def test_lighttpd(self):
        self.meet(servers.Lighttpd(), rows(hands_on=False, closed=500))

    def test_haproxy(self):
        self.meet(servers.HAProxy(), rows(hands_on=True))

    def test_node(self):
        success = Row(True, SUCCESS, None, None)
        refusals = {case: rows(True)[case] for case in ("/forbidden", "/too-long")}
        self.meet(servers.Node(), {"/enrol": success, "/late": success, "/unsized": success,
                                   **refusals}, chunks_unsized=True)

    def test_closing(self):
        """Nothing but the time limit ends the wait for an interim response."""
        here = [server for server in (servers.Nginx(), servers.HAProxy(), servers.Node())
                if server.path() is not None]
        if not here:
            self.skipTest("no server that closes without an answer is installed: skipped")
        ends = {server.program: self.begin_exchange(self.start_server(server), "/close")
                for server in here}
        for program, end in ends.items():
            with self.subTest(program):
                result = end()
                self.assertEqual((result.interim, result.code, result.size), (False, TIMEOUT, 0))


if __name__ == "__main__":
    unittest.main(verbosity=2, argv=[sys.argv[0], *sys.argv[2:]])
