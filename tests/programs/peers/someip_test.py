#!/usr/bin/env python3
"""Our SOME/IP client with a provider, and our vehicle's provider with a consumer, that nobody here
wrote: scapy plays them, on loopback and between two network namespaces; tshark reads along."""

import json
import pathlib
import re
import socket
import subprocess
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "end_to_end"))
import unit_case  # noqa: E402
import unit_day  # noqa: E402
try:
    import someip_peer
    from someip_peer import EVENT, SD_PORT, SERVICE, UNTIL_REBOOT, record
except ImportError:
    print("scapy is not installed: skipped")
    sys.exit(0)

NAME = "orv::services::diagnosticinfo::DiagnosticInfo"
MARKER = b"the end of the capture"


class Program:
    """A program of ours, which ends with its input; its lines come one by one."""

    def __init__(self, case, name, command):
        self.day, self.name, self.lines_taken = case.day, name, 0
        self.log = unit_day.Log(self.day.logs / f"{name}.log")
        self.process = self.day.launch(name, [str(part) for part in command], self.log.path.name,
                                       stdin=subprocess.PIPE)
        case.addCleanup(self.end)

    def await_said(self, pattern, count=1):
        """What it has written of this pattern, once that is so much."""
        def found():
            matches = re.findall(pattern, self.log.text(), re.MULTILINE)
            return matches if len(matches) >= count else None
        return self.day.wait_for(f"{count} times '{pattern}'", found)

    def line(self):
        self.lines_taken += 1
        return self.await_said("^(?:up|down|value|ready|ok|error).*$",
                               self.lines_taken)[self.lines_taken - 1]

    def ask(self, command):
        self.process.stdin.write(f"{command}\n".encode())
        self.process.stdin.flush()
        return self.line()

    def end(self):
        self.process.stdin.close()
        if self.day.processes.pop(self.name, None):
            status = self.process.wait(self.day.limit)
            print(f"{self.name} ended with {status}:\n{self.log.text()}")
            assert status == 0, status


class NetworkCase(unit_case.UnitCase):
    """On the network that a subclass names."""

    def setUp(self):
        super().setUp()
        self.day.logs.mkdir()
        self.programs = []
        self.network = self.network_type()
        self.addCleanup(self.network.close)
        self.peer = someip_peer.Peer(self.network)
        self.addCleanup(self.peer.close)

    def start(self, name, command):
        program = Program(self, name, [*self.network.command, *command])
        self.programs.append(program)
        return program

    def start_client(self, retry=2000):
        deployment = self.day.directory / "Deployment.json"
        deployment.write_text(json.dumps({
            "address": self.network.own, "interface": self.network.interface,
            "serviceDiscovery": {"multicast": self.network.group, "ttl": 3600,
                                 "cyclicOfferDelayMs": 1000, "subscribeRetryMs": retry},
            "services": [{"name": NAME, "serviceId": SERVICE, "events": {
                "identificationData": {"id": EVENT, "eventgroup": 1}}}]}))
        client = self.start("client", ["env", f"SOMEIP_DEPLOYMENT={deployment}",
                                       unit_case.binaries() / "peers-someip-client"])
        self.find = self.peer.hear("find", multicast=True)
        return client

    def start_vehicle(self):
        vehicle = self.start("vehicle", [
            unit_case.binaries() / "vintrel-vehicle", "--stdin", "--root", self.day.directory,
            "--someip-address", self.network.own, "--someip-unit-address", self.network.peer,
            "--someip-multicast", self.network.group, "--ecu-sw", "SW-1"])
        self.assertEqual(vehicle.line(), "ready")
        return vehicle

    def connect(self, client, **offer):
        """Offers to the client; its Subscribe, which has been acknowledged."""
        self.peer.offer(**offer)
        self.assertEqual(client.line(), "up")
        subscribe = self.peer.hear("subscribe")
        self.peer.ack(subscribe)
        return subscribe


class ClientCases(NetworkCase):
    """scapy is the provider."""

    def test_finds_subscribes_even_after_a_refusal_and_gets_values_of_any_size(self):
        client = self.start_client(retry=100)
        for session, find in ((1, self.find), (2, self.peer.hear("find", multicast=True))):
            self.assertEqual((find.session, find.reboot, find.sender),
                             (session, 1, (self.network.own, SD_PORT)))
            self.assertEqual((find.entry.srv_id, find.entry.inst_id, find.entry.major_ver,
                              find.entry.minor_ver), (SERVICE, 1, 1, 0xFFFFFFFF))
        self.peer.offer(multicast=True)
        self.peer.ack(self.peer.hear("subscribe"), ttl=0)
        client.await_said("refuses the subscription to eventgroup 1")
        subscribe = self.connect(client)
        self.assertEqual((subscribe.ttl, subscribe.endpoint[0]), (3600, self.network.own))
        self.peer.notify(subscribe.endpoint, record(b"SW-1"))
        self.assertEqual(client.line(), "value SW-1 0")
        largest = 65507 - 16 - len(record(b"SW-2"))
        self.peer.notify(subscribe.endpoint, record(b"SW-2", b"x" * largest))
        self.assertEqual(client.line(), f"value SW-2 {largest}")
        client.process.stdin.close()
        stop = self.peer.hear("subscribe")
        self.assertEqual((stop.ttl, stop.endpoint), (0, subscribe.endpoint))

    def test_what_is_no_message_of_the_service_is_dropped_and_counted(self):
        client = self.start_client()
        to = self.connect(client).endpoint
        for fields in ({"srv_id": 1}, {"event_id": 2}, {"iface_ver": 2}, {"proto_ver": 2},
                       {"msg_type": 0}, {"msg_type": 0x22}, {"retcode": 1}, {"len": 7},
                       {"len": 99999}):
            self.peer.notify(to, record(b"bad"), **fields)
        for datagram in (b"", b"\x4d\x01\x80\x01"):
            self.peer.service.sendto(datagram, to)
        self.peer.discovery.sendto(record(b"bad"), to)  # not from the service's endpoint
        self.peer.notify(to, b"\0\0\0\1")
        self.peer.notify(to, record(b"good"))
        self.assertEqual(client.line(), "value good 0")
        dropped = client.await_said(rf"message of {NAME} dropped: .* \((\d+) so far\)")
        self.assertEqual([int(number) for number in dropped], list(range(1, 12)))
        self.assertIn("Deserialization calculated invalid end position.", client.log.text())

        for datagram in (b"", b"\xff" * 40, bytes.fromhex(
                "ffff8100 00000014 00000001 01010200 c0000000 00000001 00000000")):
            self.peer.discovery.sendto(datagram, (self.network.own, SD_PORT))
        self.peer.offer(endpoint=("192.0.2.77", 4000))
        client.await_said(r"leads to another host \(12 so far\)")
        client.await_said(r"of service discovery dropped: .* \(3 so far\)")

    def test_service_that_goes_comes_back_or_reboots_is_subscribed_anew(self):
        client = self.start_client()
        self.connect(client)
        self.peer.offer(ttl=0, multicast=True)
        self.assertEqual(client.line(), "down")
        self.connect(client, ttl=1)
        self.assertEqual(client.line(), "down")  # the time to live has run out
        self.peer.hear("find", multicast=True)
        self.connect(client)
        self.peer.start_anew()
        self.peer.offer()
        anew = self.peer.hear("subscribe")
        self.peer.ack(anew)
        self.peer.notify(anew.endpoint, record(b"SW-3"))
        self.assertEqual(client.line(), "value SW-3 0")


class ProviderCases(NetworkCase):
    """scapy is the consumer."""

    def subscribers(self, vehicle):
        return json.loads(vehicle.ask("status")[3:])["ecu"]["subscribers"]

    def subscribe(self, **fields):
        self.peer.subscribe(**fields)
        return self.peer.hear("ack")

    def first_value(self, sw):
        event = self.peer.event()
        self.assertEqual((event.srv_id, event.sub_id, event.event_id, event.msg_type),
                         (SERVICE, 1, EVENT & 0x7FFF, 2))
        self.assertIn(sw, bytes(event.payload))

    def test_offers_answers_and_withdraws(self):
        vehicle = self.start_vehicle()
        for session in (1, 2):
            offer = self.peer.hear("offer", multicast=True)
            self.assertEqual((offer.session, offer.reboot, offer.ttl, offer.endpoint[0]),
                             (session, 1, 3, self.network.own))
        self.peer.send([self.peer.entry("find", 3, inst_id=0xFFFF, minor_ver=0xFFFFFFFF)],
                       multicast=True)
        self.assertEqual(self.peer.hear("offer").endpoint, offer.endpoint)
        self.assertEqual(vehicle.ask("ecu down"), "ok")
        while offer.ttl:
            offer = self.peer.hear("offer", multicast=True)
        self.assertEqual(self.subscribe().ttl, 0)
        self.assertEqual(vehicle.ask("ecu up"), "ok")
        self.assertEqual(self.peer.hear("offer", multicast=True).ttl, 3)
        vehicle.end()
        while self.peer.hear("offer", multicast=True).ttl:
            pass

    def test_subscriber_gets_the_value_and_its_changes_until_it_ends_or_reboots(self):
        vehicle = self.start_vehicle()
        self.peer.hear("offer", multicast=True)
        self.assertEqual(self.subscribe(ttl=77).ttl, 77)
        self.first_value(b"SW-1")
        self.subscribe()  # no first value for a renewal
        self.assertEqual(vehicle.ask("ecu sw SW-2"), "ok")
        self.first_value(b"SW-2")
        self.peer.subscribe(ttl=0)
        self.subscribe()
        self.first_value(b"SW-2")
        self.assertEqual(self.subscribers(vehicle), 1)
        self.peer.start_anew()
        self.peer.send([self.peer.entry("find", 3, minor_ver=0xFFFFFFFF)])
        self.peer.hear("offer")
        self.assertEqual(self.subscribers(vehicle), 0)

    def test_what_it_does_not_serve_is_refused(self):
        vehicle = self.start_vehicle()
        service = self.peer.hear("offer", multicast=True).endpoint
        for fields in ({"srv_id": 1}, {"inst_id": 2}, {"major_ver": 2}, {"eventgroup_id": 2},
                       {"endpoint": ("192.0.2.77", 4000)}, {"endpoint": ("239.0.0.1", 4000)},
                       {"endpoint": None}):
            self.assertEqual(self.subscribe(**fields).ttl, 0, fields)
        for datagram in (b"", b"\0" * 30, b"\xff" * 65507):
            self.peer.discovery.sendto(datagram, (self.network.own, SD_PORT))
            self.peer.service.sendto(datagram, service)
        for version, code in ((1, 3), (2, 8)):
            self.peer.notify(service, b"", sub_id=0, method_id=1, msg_type=0, iface_ver=version)
            answer = self.peer.event()
            self.assertEqual((answer.msg_type, answer.retcode), (0x81, code))
        self.assertEqual(self.subscribe().ttl, UNTIL_REBOOT)
        self.first_value(b"SW-1")
        self.assertEqual(len(vehicle.await_said("dropped: ")), 7 + 6, vehicle.log.text())


class CaptureCases(ClientCases, ProviderCases):
    """The same once more, while tshark reads along."""

    def setUp(self):
        super().setUp()
        self.ours = self.capture(self.network.interface, f"udp and src host {self.network.own}")
        self.other = self.capture("other", "udp") if self.network.command else None

    def capture(self, interface, only):
        capture = someip_peer.Capture(self.network.command, interface,
                                      self.day.directory / f"{interface}.pcap", only)
        self.addCleanup(capture.close)
        return capture

    def end_capture(self, capture, source, address):
        """Ends it with a last datagram from the product's end, to port 9."""
        with self.network.inside(1), socket.socket(type=socket.SOCK_DGRAM) as marker:
            marker.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
            marker.bind((source, 0))
            marker.sendto(MARKER, (address, 9))
        capture.end_behind(MARKER)

    def tearDown(self):
        """Nothing of ours is malformed, or leaves by another interface."""
        for program in self.programs:
            program.end()
        self.end_capture(self.ours, self.network.own, self.network.peer)
        rows = [row for row in self.ours.dissect(
            "udp.dstport", "someip.serviceid", "_ws.malformed", "_ws.expert.severity",
            ports=(self.peer.endpoint[1],)) if row[0] != "9"]
        self.assertTrue(rows)
        for row in rows:
            self.assertTrue(row[1] and not row[2] and not row[3], row)
        print(f"{len(rows)} messages dissected")
        if self.other:
            self.end_capture(self.other, "203.0.113.3", "203.0.113.255")
            self.assertEqual({row[0] for row in self.other.dissect("udp.dstport")}, {"9"})


for cases in (ClientCases, ProviderCases, CaptureCases):
    for network in (someip_peer.Loopback, someip_peer.Namespaces):
        name = cases.__name__.replace("Cases", network.__name__)
        globals()[name] = type(name, (cases,), {"network_type": network})

if __name__ == "__main__":
    unit_case.main()
