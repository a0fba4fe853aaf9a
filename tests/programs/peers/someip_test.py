#!/usr/bin/env python3
"""Our SOME/IP client with a provider, and our vehicle's provider with a consumer, that nobody here
wrote: scapy plays them, on loopback and between two network namespaces; tshark reads along."""

import json
import os
import pathlib
import queue
import re
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

sys.dont_write_bytecode = True
try:
    import someip_peer
    from someip_peer import EVENT, SD_PORT, SERVICE, UNTIL_REBOOT, record
except ImportError:
    print("scapy is not installed: skipped")
    sys.exit(0)

BINARIES = pathlib.Path(sys.argv[1]).resolve()
NAME = "orv::services::diagnosticinfo::DiagnosticInfo"
LIMIT = someip_peer.LIMIT
MARKER = b"the end of the capture"


class Program:
    """A program of ours; its lines come one by one."""

    def __init__(self, test, command, environment=None):
        self.log = tempfile.TemporaryFile(mode="w+")
        self.process = subprocess.Popen(
            [str(part) for part in command], text=True, stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, stderr=self.log, env={**os.environ, **(environment or {})})
        self.queue = queue.Queue()
        self.reader = threading.Thread(target=self.read)
        self.reader.start()
        test.addCleanup(self.end)

    def read(self):
        for line in self.process.stdout:
            self.queue.put(line.strip())

    def line(self):
        return self.queue.get(timeout=LIMIT)

    def ask(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()
        return self.line()

    def end(self):
        self.process.stdin.close()
        if self.reader.is_alive() or not self.log.closed:
            status = self.process.wait(LIMIT)
            self.reader.join()
            self.process.stdout.close()
            print(f"ended with {status}:\n{self.said()}")
            self.log.close()
            assert status == 0, status

    def said(self):
        self.log.seek(0)
        return self.log.read()

    def await_said(self, pattern):
        end = time.monotonic() + LIMIT
        while not (found := re.findall(pattern, self.said())):
            if time.monotonic() > end:
                raise AssertionError(f"not said: {pattern}\n{self.said()}")
            time.sleep(0.02)
        return found


class NetworkCase:
    """On the network that a subclass names."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="vintrel-someip-")
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.network = self.network_type()
        self.addCleanup(self.network.close)
        self.peer = someip_peer.Peer(self.network)
        self.addCleanup(self.peer.close)

    def start_client(self, retry=2000):
        deployment = self.directory / "Deployment.json"
        deployment.write_text(json.dumps({
            "address": self.network.own, "interface": self.network.interface,
            "serviceDiscovery": {"multicast": self.network.group, "ttl": 3600,
                                 "cyclicOfferDelayMs": 1000, "subscribeRetryMs": retry},
            "services": [{"name": NAME, "serviceId": SERVICE, "events": {
                "identificationData": {"id": EVENT, "eventgroup": 1}}}]}))
        client = Program(self, [*self.network.command, BINARIES / "peers-someip-client"],
                         {"SOMEIP_DEPLOYMENT": str(deployment)})
        self.find = self.peer.hear("find", multicast=True)
        return client

    def start_vehicle(self):
        vehicle = Program(self, [
            *self.network.command, BINARIES / "vintrel-vehicle", "--stdin", "--root",
            self.directory, "--someip-address", self.network.own, "--someip-unit-address",
            self.network.peer, "--someip-multicast", self.network.group, "--ecu-sw", "SW-1"])
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

    def test_finds_subscribes_and_gets_values_of_any_size(self):
        client = self.start_client()
        for session, find in ((1, self.find), (2, self.peer.hear("find", multicast=True))):
            self.assertEqual((find.session, find.reboot, find.sender),
                             (session, 1, (self.network.own, SD_PORT)))
            self.assertEqual((find.entry.srv_id, find.entry.inst_id, find.entry.major_ver,
                              find.entry.minor_ver), (SERVICE, 1, 1, 0xFFFFFFFF))
        subscribe = self.connect(client, multicast=True)
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
        self.assertIn("Deserialization calculated invalid end position.", client.said())

        for datagram in (b"", b"\xff" * 40, bytes.fromhex(
                "ffff8100 00000014 00000001 01010200 c0000000 00000001 00000000")):
            self.peer.discovery.sendto(datagram, (self.network.own, SD_PORT))
        self.peer.offer(endpoint=("192.0.2.77", 4000))
        client.await_said(r"leads to another host \(12 so far\)")
        client.await_said(r"of service discovery dropped: .* \(3 so far\)")

    def test_refused_subscription_is_tried_again(self):
        client = self.start_client(retry=100)
        self.peer.offer()
        for _ in range(2):
            self.peer.ack(self.peer.hear("subscribe"), ttl=0)
        subscribe = self.peer.hear("subscribe")
        self.peer.ack(subscribe)
        self.peer.notify(subscribe.endpoint, record(b"SW"))
        self.assertEqual([client.line(), client.line()], ["up", "value SW 0"])
        self.assertEqual(len(client.await_said("refuses the subscription to eventgroup 1")), 1)

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
        self.assertEqual(len(vehicle.await_said("dropped: ")), 7 + 6, vehicle.said())


class CaptureCases(NetworkCase):
    """tshark reads along."""

    def capture(self, interface, only="udp"):
        capture = someip_peer.Capture(self.network.command, interface,
                                      self.directory / f"{interface}.pcap", only)
        self.addCleanup(capture.close)
        return capture

    def mark_end(self, capture, index, address):
        """Sends a last datagram, to port 9, from the peer's end or the product's."""
        with self.network.inside(index), socket.socket(type=socket.SOCK_DGRAM) as marker:
            marker.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
            marker.sendto(MARKER, (address, 9))
        capture.end_behind(MARKER)

    def test_nothing_is_malformed(self):
        ours = f"udp and host {self.network.own}"
        capture = self.capture(self.network.interface, ours)
        other = self.capture("other") if self.network.command else None
        client = self.start_client()
        subscribe = self.connect(client, multicast=True)
        self.peer.notify(subscribe.endpoint, record(b"SW", b"x" * 30000))
        client.line()
        client.end()
        self.peer.hear("subscribe")
        vehicle = self.start_vehicle()
        self.peer.hear("offer", multicast=True)
        self.peer.subscribe()
        self.peer.hear("ack")
        self.peer.event()
        self.assertEqual(vehicle.ask("ecu down"), "ok")
        while self.peer.hear("offer", multicast=True).ttl:
            pass
        vehicle.end()
        self.mark_end(capture, 0, self.network.own)
        rows = capture.dissect("_ws.malformed", "_ws.expert.severity", "someip.serviceid",
                               "someipsd.entry.type", "udp.dstport",
                               ports=(self.peer.endpoint[1], subscribe.endpoint[1]))
        self.assertEqual([row for row in rows if row[0] or row[1]], [])
        kinds = {kind for row in rows for kind in row[3].split(",")}
        self.assertEqual({int(kind, 0) for kind in kinds if kind}, {0, 1, 6, 7})
        whole = [row for row in rows if row[4] not in ("", "9")]  # neither fragment nor marker
        self.assertEqual([row for row in whole if not row[2]], [])
        print(f"{len(whole)} messages dissected")
        if other:
            self.mark_end(other, 1, "203.0.113.255")
            self.assertEqual({row[0] for row in other.dissect("udp.dstport")}, {"9"},
                             "nothing of ours leaves by the other interface")


for cases in (ClientCases, ProviderCases, CaptureCases):
    for network in (someip_peer.Loopback, someip_peer.Namespaces):
        name = cases.__name__.replace("Cases", network.__name__)
        globals()[name] = type(name, (cases, unittest.TestCase), {"network_type": network})

if __name__ == "__main__":
    unittest.main(verbosity=2, argv=[sys.argv[0], *sys.argv[2:]])
