"""The group `link`: an exchange with the backend against curl, and a pass against the work in it.

Both clients send the same request to the same backend in turn, each in a process of its own, started
by the same program, in clear and through HAProxy, which ends TLS in front of the backend. An exchange
counts only if the backend has issued a certificate for that request and its bytes have arrived.
"""

import json
import os
import pathlib
import socket
import statistics
import subprocess
import sys
import tempfile

import group_pass
from group_pass import unit_day

ROUNDS = 15
FIGURES = {"exchange_ms": ("wall time", "ms"), "wall_ms": ("wall time of the process", "ms"),
           "cpu_ms": ("CPU time of the process", "ms"), "peak_kib": ("peak memory", "KiB")}
CPU_AIM = 1.0
PASS_AIM = 1.5
TRANSACTION_TYPE = "QUBA-GenerateTIVCert-C003"
OPERATION = TRANSACTION_TYPE + ".COSendCSR"
MEDIA_TYPE = "application/QUBA_CO_KoruVintrelRequest_v1+proto"
HEADER_SENT = "BackendRequestHandler: The HTTP Header was sent successfully."
BODY_SENT = "BackendRequestHandler: The Payload was sent successfully."
ANSWERED = "BackendRequestHandler: The HTTP Response was received successfully."

HAPROXY = """global
    maxconn 64
defaults
    mode tcp
    timeout connect 10s
    timeout client 60s
    timeout server 60s
frontend tls
    bind fd@{descriptor} ssl crt {certificate} ssl-min-ver TLSv1.2
    default_backend backend
backend backend
    server backend 127.0.0.1:{port}
"""


class TlsFront:
    """HAProxy with a certificate of its own for 127.0.0.1, on a port that the system has chosen."""

    def __init__(self, day, directory, port):
        self.anchor = directory / "front.pem"
        self.socket = socket.create_server(("127.0.0.1", 0))
        self.port = self.socket.getsockname()[1]
        both = directory / "front-both.pem"
        key = directory / "front.key"
        day.run("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
                "-nodes", "-days", "2", "-subj", "/CN=front", "-addext",
                "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", self.anchor)
        both.write_text(self.anchor.read_text() + key.read_text())
        settings = directory / "haproxy.cfg"
        settings.write_text(HAPROXY.format(descriptor=self.socket.fileno(), certificate=both,
                                           port=port))
        with open(directory / "haproxy.log", "wb") as log:
            self.process = subprocess.Popen(
                ["/usr/sbin/haproxy", "-db", "-f", str(settings)], stdin=subprocess.DEVNULL,
                stdout=log, stderr=log, pass_fds=[self.socket.fileno()])

    def end(self):
        self.process.terminate()
        self.process.wait()
        self.socket.close()


class Clients:
    """One exchange at a time, by ours or by curl, measured from the outside."""

    def __init__(self, day, binaries, directory, port, anchor=None):
        self.day = day
        self.binaries = binaries
        self.directory = directory
        self.request = directory / "request.bin"
        self.response = directory / "response.bin"
        self.settings = directory / "connector.json"
        self.url = f"{'https' if anchor else 'http'}://127.0.0.1:{port}/enrol"
        self.anchor = anchor
        tls = {"trustAnchors": str(anchor)} if anchor else False
        self.settings.write_text(json.dumps({
            "transactionTypes": {TRANSACTION_TYPE: {}},
            "invocationUrls": {OPERATION: self.url},
            "operations": {OPERATION: {"tls": tls}}}))

    def ours(self):
        return [str(self.binaries / "bench-exchange"), str(self.request), str(self.response)]

    def curl(self):
        command = ["curl", "--disable", "--silent", "--fail", "--http1.1", "--output",
                   str(self.response), "--header", f"Content-Type: {MEDIA_TYPE}",
                   "--header", f"Accept: {unit_day.ACCEPT}", "--header", "Expect: 100-continue",
                   "--header", "Connection: close", "--request", "PUT",
                   "--data-binary", f"@{self.request}", "--write-out", "%{time_total}"]
        if self.anchor:
            command += ["--cacert", str(self.anchor)]
        return command + [self.url]

    def exchange(self, command):
        """What one process took, once its exchange is seen to be a whole one."""
        self.response.unlink(missing_ok=True)
        before = len(self.day.requests())
        figures = self.directory / "figures.json"
        with open(self.directory / "exchange.log", "w+b") as log:
            result = subprocess.run(
                [str(self.binaries / "bench-measure"), str(figures), *command], check=False,
                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=log,
                env={**os.environ, "ZEM_CONNECTOR_CONFIG": str(self.settings)})
            log.seek(0)
            said = log.read().decode(errors="replace")
        name = pathlib.Path(command[0]).name
        if result.returncode != 0:
            sys.exit(f"{name} ended with status {result.returncode}:\n{said}")
        entries = self.day.requests()[before:]
        if [entry["status"] for entry in entries] != [200]:
            sys.exit(f"the backend did not issue one certificate to {name}")
        if entries[0]["container"].encode() not in self.request.read_bytes():
            sys.exit(f"the backend got another request than {name} was given")
        if entries[0]["issued_chain"].encode() not in self.response.read_bytes():
            sys.exit(f"{name} got another certificate than the backend has issued")
        return {"exchange_ms": float(result.stdout) * 1000, **json.loads(figures.read_text())}

    def compare(self, link):
        """The rows of one link, in turn and by medians."""
        samples = {"ours": [], "curl": []}
        for _ in range(ROUNDS):
            samples["ours"].append(self.exchange(self.ours()))
            samples["curl"].append(self.exchange(self.curl()))
        rows = []
        for figure, (title, unit) in FIGURES.items():
            ours, value = (statistics.median(sample[figure] for sample in samples[client])
                           for client in ("ours", "curl"))
            row = {"item": f"exchange {link}, {title}", "unit": unit, "ours": ours,
                   "baseline": "curl", "value": value}
            rows.append({**row, "aim": CPU_AIM} if figure == "cpu_ms" else row)
        return rows


def exchanges(day, binaries, directory):
    port = int((directory / "backend.port").read_text())
    request = day.run(*day.in_unit("bench-request", unit_day.VIN), text=False)
    (directory / "request.bin").write_bytes(request)
    rows = Clients(day, binaries, directory, port).compare("in clear")
    front = TlsFront(day, directory, port)
    try:
        return rows + Clients(day, binaries, directory, front.port, front.anchor).compare(
            "over TLS")
    finally:
        front.end()
        day.seen_requests = len(day.requests())


def middle(spans):
    """The median of times that the log tells in whole milliseconds."""
    return statistics.median_grouped(spans)


def passes(day, binaries, directory):
    """Forced updates, and the bare calls in turn with them. On the loopback the header is at the
    backend when it has been sent; what the backend takes for its answer is no part of a pass."""
    calls = []
    group_pass.live(day, lambda: calls.append(group_pass.bare(binaries, directory)))
    log = day.client_log.text()
    # The first one is the ignition's, which judges no certificate.
    header = group_pass.spans_ms(log, group_pass.START, HEADER_SENT)[1:]
    whole = group_pass.spans_ms(log, group_pass.START, group_pass.STORED)[1:]
    answers = group_pass.spans_ms(log, BODY_SENT, ANSWERED)[1:]
    own = [total - answer - group_pass.FIXED_DELAY_MS for total, answer in zip(whole, answers)]
    rows = []
    for store, baseline in (("memory", "its bare OpenSSL calls"),
                            ("file", "the same on a bare SQLite file")):
        rows += [
            {"item": "trigger to header at the backend", "unit": "ms", "ours": middle(header),
             "baseline": baseline,
             "value": statistics.median(call[store]["request_wall_ms"] for call in calls)},
            {"item": "pass without its fixed delay", "unit": "ms", "ours": middle(own),
             "baseline": baseline, "aim": PASS_AIM,
             "value": statistics.median(call[store]["wall_ms"] for call in calls)}]
    return rows


def run(binaries):
    with tempfile.TemporaryDirectory(prefix="vintrel-bench-") as name:
        directory = pathlib.Path(name).resolve()
        day = group_pass.quiet_day(binaries, directory)
        try:
            day.provision()
            day.start_simulators()
            return exchanges(day, binaries, directory) + passes(day, binaries, directory)
        finally:
            day.end_all()
