"""One day in the life of a unit: its stages, and how each is really seen.

A stage counts as seen when the service's log, the unit's secure store and the backend's journal
agree on it.
"""

import json
import pathlib
import re
import signal
import subprocess
import sys
import time

PROJECT = pathlib.Path(__file__).resolve().parent.parent
VIN = "VNTREL00000000001"
ALERT_OID = "QUBA-TokenManagement.COTokenRequest"
ALERT_CODE = 44
ACCEPT = ("application/QUBA_CT_KoruCertificateResponse_v2+proto;"
          "application/GenericError_v2+proto")
PHM_INI = """[phm]
instance-id = vintrel-client-1
supervision-entity-id = 1
checkpoint-id = 1
supervision-cycle = 10
expected-alive-indications = 1
"""


class Failure(Exception):
    """A stage was not seen."""


class Log:
    """The growing log of a process, read from where the last stage left it."""

    def __init__(self, path):
        self.path = path
        self.position = 0

    def text(self):
        if not self.path.exists():
            return ""
        return self.path.read_text(errors="replace")

    def tail(self, lines=25):
        return "\n".join(self.text().splitlines()[-lines:])

    def mark(self):
        self.position = len(self.text())

    def new_text(self):
        return self.text()[self.position:]


class Day:
    def __init__(self, binaries, directory, limit, vin=VIN):
        self.binaries = binaries
        self.directory = directory
        self.limit = limit
        self.vin = vin
        self.unit = directory / "unit"
        self.logs = directory / "logs"
        self.pki = directory / "pki"
        self.processes = {}
        self.client_log = Log(self.logs / "vintrel-client.log")
        self.vehicle_log = Log(self.logs / "vehicle.log")
        self.journal = self.logs / "journal.jsonl"
        self.start = time.monotonic()

    # Processes

    def run(self, *command, text=True):
        """Runs a command to its end; its output, or a Failure that shows what it said."""
        result = subprocess.run(
            [str(part) for part in command], capture_output=True, text=text, check=False,
            timeout=self.limit, stdin=subprocess.DEVNULL)
        if result.returncode != 0:
            said = result.stderr if text else result.stderr.decode(errors="replace")
            raise Failure(f"{pathlib.Path(command[0]).name} ended with status "
                          f"{result.returncode}: {said.strip()}")
        return result.stdout

    def in_unit(self, program, *arguments):
        return [str(PROJECT / "tools" / "unit"), str(self.unit), str(self.binaries / program),
                *map(str, arguments)]

    def launch(self, name, command, log, stdin=subprocess.DEVNULL):
        with open(self.logs / log, "ab") as output:
            process = subprocess.Popen(command, stdin=stdin, stdout=output, stderr=output)
        self.processes[name] = process
        return process

    def end(self, name):
        """Ends a process by SIGTERM; its exit status."""
        process = self.processes.pop(name)
        process.send_signal(signal.SIGTERM)
        try:
            return process.wait(self.limit)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            raise Failure(f"{name} did not end after SIGTERM") from None

    def end_all(self):
        for name in list(self.processes):
            try:
                self.end(name)
            except Failure as failure:
                print(failure, file=sys.stderr)

    # Looking

    def wait_for(self, what, condition):
        """Waits until the condition gives something true, as long as every process lives."""
        deadline = time.monotonic() + self.limit
        while True:
            result = condition()
            if result:
                return result
            for name, process in self.processes.items():
                if process.poll() is not None:
                    raise Failure(f"{name} has ended with status {process.returncode} "
                                  f"while the stage waited for {what}")
            if time.monotonic() > deadline:
                raise Failure(f"not seen within {self.limit} s: {what}")
            time.sleep(0.05)

    def wait_log(self, text):
        self.wait_for(f'"{text}" in the log', lambda: text in self.client_log.new_text())

    def requests(self):
        if not self.journal.exists():
            return []
        lines = self.journal.read_text().split("\n")[:-1]
        return [json.loads(line) for line in lines]

    def stored_certificate(self):
        """The client certificate's chain as read back from the unit's store."""
        return self.run(*self.in_unit("vintrel-provision", "show", "--pem", "TIV"))

    def command(self, text):
        """Gives the vehicle simulator a command and waits for its answer."""
        self.vehicle_log.mark()
        vehicle = self.processes["vehicle"]
        vehicle.stdin.write((text + "\n").encode())
        vehicle.stdin.flush()
        answer = self.wait_for(
            f"the vehicle's answer to '{text}'",
            lambda: re.search(r"^(ok.*|error.*)$", self.vehicle_log.new_text(), re.MULTILINE))
        if not answer.group(1).startswith("ok"):
            raise Failure(f"the vehicle answered '{text}' with '{answer.group(1)}'")

    def say(self, text):
        print(f"[{time.monotonic() - self.start:6.1f} s] {text}", flush=True)

    # The stages

    def provision(self):
        self.logs.mkdir(parents=True)
        (self.unit / "etc").mkdir(parents=True)
        (self.unit / "etc" / "vintrel-client-phm.ini").write_text(PHM_INI)
        base = self.directory / "base.pem"
        self.run(self.binaries / "vintrel-pki", "create", self.pki)
        self.run(self.binaries / "vintrel-pki", "unit", self.pki, "--vin", self.vin, "--out", base)
        self.run(*self.in_unit("vintrel-provision", "init"))
        self.run(*self.in_unit("vintrel-provision", "base", "--key", base, "--chain", base))
        self.run(*self.in_unit("vintrel-provision", "root", self.pki / "product-root.pem"))
        base.unlink()
        self.say(f"unit provisioned: VIN {self.vin}, no client certificate yet")

    def start_simulators(self, *backend_options):
        port_file = self.directory / "backend.port"
        self.launch("backend", [
            str(self.binaries / "vintrel-backend"), "--pki", str(self.pki), "--port", "0",
            "--port-file", str(port_file), "--journal", str(self.journal), *backend_options],
            "backend.log")
        port = int(self.wait_for("the backend's port",
                                 lambda: port_file.exists() and port_file.read_text().strip()))
        self.launch("vehicle", self.in_unit(
            "vintrel-vehicle", "--stdin", "--vin", self.vin,
            "--backend-url", f"http://127.0.0.1:{port}/enrol"),
            "vehicle.log", stdin=subprocess.PIPE)
        self.wait_for("the vehicle to be ready",
                      lambda: re.search("^ready", self.vehicle_log.text(), re.MULTILINE))
        self.say(f"backend simulator on 127.0.0.1:{port}, vehicle simulator inside the unit")

    def start_client(self, *arguments):
        self.client_log.mark()
        self.launch("vintrel-client", self.in_unit("vintrel-client", *arguments),
                    "vintrel-client.log")
        self.wait_log("Vintrel Client waiting for a trigger")

    def update(self, reason_name, reason):
        """Waits until an update has run through; the backend's entry for it."""
        before = self.seen_requests
        self.wait_log(f"Activation reason: {reason_name}")
        self.wait_log("EndCertificateUpdate The TIV Certificate was successfully updated")
        requests = self.requests()
        if len(requests) != before + 1:
            raise Failure(f"the backend saw {len(requests) - before} requests, not one")
        entry = requests[-1]
        if entry["status"] != 200 or entry["activation_reason"] != reason:
            raise Failure(f"the backend saw reason {entry['activation_reason']} "
                          f"and answered {entry['status']}")
        if entry["accept"] != ACCEPT:
            raise Failure(f"the backend saw the accepted types '{entry['accept']}'")
        self.seen_requests = len(requests)
        stored = self.stored_certificate()
        if stored.strip() != entry["issued_chain"].strip():
            raise Failure("the store holds another chain than the backend has issued")
        return entry

    def stop_client(self):
        status = self.end("vintrel-client")
        if status != 0:
            raise Failure(f"the service ended with status {status}")

    def ignition_on(self):
        self.start_client()
        self.client_log.mark()
        self.command("clamp on")
        self.wait_log("Vintrel Client triggered by Clamp 15")
        entry = self.update("ACTIVATIONREASON_CLAMP30_DETECTED", 0)
        self.verify(entry)
        self.say("ignition on: update with reason 0, certificate stored")
        self.print_certificate()

    def verify(self, entry):
        """Lets OpenSSL's own tools judge what went over the wire and what was stored."""
        container, csr, chain = (self.logs / name
                                 for name in ("container.pem", "request.csr", "chain.pem"))
        container.write_text(entry["container"])
        csr.write_text(entry["csr"])
        chain.write_text(entry["issued_chain"])
        payload = self.run("openssl", "cms", "-verify", "-binary", "-inform", "PEM", "-in",
                           container, "-CAfile", self.pki / "factory-root.pem", text=False)
        der = self.run("openssl", "req", "-in", csr, "-outform", "DER", text=False)
        if payload != der:
            raise Failure("the container does not hold the signing request")
        self.run("openssl", "req", "-verify", "-noout", "-in", csr)
        self.run("openssl", "verify", "-CAfile", self.pki / "product-root.pem",
                 "-untrusted", chain, chain)

    def print_certificate(self):
        text = self.run("openssl", "x509", "-noout", "-subject", "-issuer", "-dates", "-in",
                        self.write_stored())
        for line in text.strip().splitlines():
            name, value = line.split("=", 1)
            print(f"             {name:9} {value.strip()}", flush=True)

    def write_stored(self):
        path = self.logs / "stored-chain.pem"
        path.write_text(self.stored_certificate())
        return path

    def ignition_again(self):
        self.command("clamp off")
        self.client_log.mark()
        self.command("clamp on")
        self.wait_log("No TIV certificate update needed.")
        if len(self.requests()) != self.seen_requests:
            raise Failure("the backend saw a request though the certificate is good")
        self.say("ignition off and on: no update needed")

    def tls_alert(self):
        before = self.stored_certificate()
        self.client_log.mark()
        self.command(f"alert {ALERT_OID} {ALERT_CODE}")
        self.wait_log("Vintrel Client triggered by TLS Alert")
        entry = self.update("ACTIVATIONREASON_FORCE_REACTIVATION", 1)
        if entry["operationTypeId"] != ALERT_OID:
            raise Failure(f"the backend saw the operation '{entry['operationTypeId']}'")
        if self.stored_certificate() == before:
            raise Failure("the store still holds the certificate from before")
        self.say("TLS alert: forced update with reason 1, new certificate stored")

    def factory_reset(self):
        self.stop_client()
        self.start_client("-reset")
        self.wait_log("The TIV Certificate was deleted successfully")
        self.update("ACTIVATIONREASON_FACTORY_RESET", 4)
        self.say("restart with -reset: certificate deleted, update with reason 4")

    def sigterm(self):
        self.client_log.mark()
        self.stop_client()
        self.say("SIGTERM: exit status 0")

    def live(self):
        self.seen_requests = 0
        stages = [
            ("provisioning", self.provision),
            ("simulators", self.start_simulators),
            ("ignition on", self.ignition_on),
            ("ignition off and on", self.ignition_again),
            ("TLS alert", self.tls_alert),
            ("factory reset", self.factory_reset),
            ("SIGTERM", self.sigterm),
        ]
        for name, stage in stages:
            try:
                stage()
            except (Failure, OSError, subprocess.TimeoutExpired) as failure:
                self.report(name, failure)
                return False
        return True

    def report(self, stage, failure):
        print(f"FAILED at the stage '{stage}': {failure}", file=sys.stderr)
        print(f"The end of {self.client_log.path}:", file=sys.stderr)
        print(self.client_log.tail(), file=sys.stderr)
