"""The far end of a SOME/IP communication, made of scapy's layers, and the networks it can be on."""

import collections
import contextlib
import ctypes
import os
import shutil
import socket
import struct
import subprocess
import time
import unittest

from scapy.contrib.automotive.someip import (
    SD, SDENTRY_TYPE_EVTGRP_SUBSCRIBE, SDENTRY_TYPE_EVTGRP_SUBSCRIBE_ACK,
    SDENTRY_TYPE_SRV_FINDSERVICE, SDENTRY_TYPE_SRV_OFFERSERVICE, SDEntry_EventGroup,
    SDEntry_Service, SDOption_IP4_EndPoint, SOMEIP)
from scapy.packet import Raw

LIMIT = 30
SD_PORT = 30490
SERVICE, INSTANCE, EVENT, EVENTGROUP = 0x4D01, 1, 0x8001, 1
UNTIL_REBOOT = 0xFFFFFF
KINDS = {SDENTRY_TYPE_SRV_FINDSERVICE: "find", SDENTRY_TYPE_SRV_OFFERSERVICE: "offer",
         SDENTRY_TYPE_EVTGRP_SUBSCRIBE: "subscribe", SDENTRY_TYPE_EVTGRP_SUBSCRIBE_ACK: "ack"}

Heard = collections.namedtuple("Heard", "kind ttl entry endpoint session reboot multicast sender")


class Loopback:
    """Two addresses that no other process has."""
    interface = "lo"
    command = []

    def __init__(self):
        low = f"{os.getpid() >> 8 & 255}.{os.getpid() & 255}"
        high = os.getpid() >> 16
        self.peer, self.own = f"127.{192 + high}.{low}", f"127.{high}.{low}"
        self.group = f"239.{128 + high}.{low}"

    def inside(self, _=0):
        return contextlib.nullcontext()

    def close(self):
        pass


class Namespaces:
    """Two network namespaces with a cable between them. The product's end has a second interface,
    which has the default route."""
    interface = "cable"
    peer, own, group = "198.51.100.2", "198.51.100.3", "239.128.0.1"

    def __init__(self):
        if os.geteuid() != 0:
            raise unittest.SkipTest("network namespaces need root: skipped")
        self.names = [f"vintrel-{os.getpid()}-{end}" for end in ("peer", "own")]
        self.command = ["ip", "netns", "exec", self.names[1]]
        try:
            for name in self.names:
                self.ip("netns", "add", name)
            self.ip("-n", self.names[0], "link", "add", "cable", "type", "veth", "peer", "name",
                    "cable", "netns", self.names[1])
            for name, address in zip(self.names, (self.peer, self.own)):
                self.ip("-n", name, "link", "set", "lo", "up")
                self.ip("-n", name, "address", "add", f"{address}/24", "dev", "cable")
                self.ip("-n", name, "link", "set", "cable", "up")
            other = ("-n", self.names[1])
            self.ip(*other, "link", "add", "other", "type", "veth", "peer", "name", "other-end")
            self.ip(*other, "address", "add", "203.0.113.3/24", "dev", "other")
            for link in ("other", "other-end"):
                self.ip(*other, "link", "set", link, "up")
            self.ip(*other, "route", "add", "default", "dev", "other")
        except (OSError, subprocess.CalledProcessError) as error:
            self.close()
            reason = getattr(error, "stderr", None) or error
            raise unittest.SkipTest(f"no network namespaces here ({reason}): skipped") from error

    @staticmethod
    def ip(*arguments):
        subprocess.run(["ip", *arguments], check=True, capture_output=True, text=True,
                       timeout=LIMIT)

    @contextlib.contextmanager
    def inside(self, index=0):
        """Sockets made in here are in the peer's namespace, or in the product's."""
        libc = ctypes.CDLL(None, use_errno=True)
        with open("/proc/thread-self/ns/net") as home, \
                open(f"/run/netns/{self.names[index]}") as away:
            if libc.setns(away.fileno(), 0) != 0:
                raise OSError(ctypes.get_errno(), "setns")
            try:
                yield
            finally:
                libc.setns(home.fileno(), 0)

    def close(self):
        for name in self.names:
            subprocess.run(["ip", "netns", "delete", name], capture_output=True, check=False)


class Peer:
    """One end of service discovery and of a service. Answers nothing by itself."""

    def __init__(self, network):
        self.network = network
        with network.inside():
            self.discovery = self.socket(SD_PORT)
            self.service = self.socket(0)
            self.group = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        own, group = socket.inet_aton(network.peer), socket.inet_aton(network.group)
        self.discovery.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, own)
        self.group.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.group.bind((network.group, SD_PORT))
        self.group.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, group + own)
        self.group.settimeout(LIMIT)
        self.endpoint = self.service.getsockname()
        self.sessions = collections.Counter()
        self.reboot = 1

    def socket(self, port):
        made = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        made.bind((self.network.peer, port))
        made.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
        made.settimeout(LIMIT)
        return made

    def close(self):
        for each in (self.discovery, self.service, self.group):
            each.close()

    def start_anew(self):
        self.sessions.clear()
        self.reboot = 1

    def entry(self, kind, ttl, **fields):
        number = {name: number for number, name in KINDS.items()}[kind]
        common = {"type": number, "srv_id": SERVICE, "inst_id": INSTANCE, "major_ver": 1,
                  "ttl": ttl}
        if kind in ("find", "offer"):
            return SDEntry_Service(**{**common, "minor_ver": 0, **fields})
        return SDEntry_EventGroup(**{**common, "eventgroup_id": EVENTGROUP, **fields})

    def send(self, entries, endpoint=None, multicast=False):
        """Entries with one option for all of them, if there is an endpoint."""
        to = (self.network.group if multicast else self.network.own, SD_PORT)
        self.sessions[multicast] += 1
        sd = SD(flags=self.reboot << 7 | 0x40)
        for entry in entries:
            entry.n_opt_1 = 1 if endpoint else 0
        sd.set_entryArray(entries)
        if endpoint:
            sd.set_optionArray(SDOption_IP4_EndPoint(addr=endpoint[0], port=endpoint[1]))
        message = SOMEIP(srv_id=0xFFFF, sub_id=1, event_id=0x100, session_id=self.sessions[multicast],
                         iface_ver=1, msg_type=SOMEIP.TYPE_NOTIFICATION) / sd
        self.discovery.sendto(bytes(message), to)

    def offer(self, ttl=UNTIL_REBOOT, multicast=False, endpoint=None):
        self.send([self.entry("offer", ttl)], endpoint or self.endpoint, multicast)

    def ack(self, heard, ttl=None):
        self.send([self.entry("ack", heard.ttl if ttl is None else ttl,
                              eventgroup_id=heard.entry.eventgroup_id)])

    def subscribe(self, ttl=UNTIL_REBOOT, **fields):
        endpoint = fields.pop("endpoint", self.endpoint)
        self.send([self.entry("subscribe", ttl, **fields)], endpoint)

    def notify(self, to, payload, **fields):
        header = {"srv_id": SERVICE, "sub_id": 1, "event_id": EVENT & 0x7FFF, "session_id": 1,
                  "msg_type": SOMEIP.TYPE_NOTIFICATION, **fields}
        self.service.sendto(bytes(SOMEIP(**header) / Raw(payload)), to)

    def hear(self, kind, multicast=False):
        """The next message of discovery with an entry of this kind."""
        end = time.monotonic() + LIMIT
        while time.monotonic() < end:
            data, sender = (self.group if multicast else self.discovery).recvfrom(65536)
            message = SOMEIP(data)
            if sender[0] != self.network.own or SD not in message:
                continue
            sd = message[SD]
            for entry in sd.entry_array:
                if KINDS[entry.type] == kind:
                    option = sd.option_array[entry.index_1] if entry.n_opt_1 else None
                    return Heard(kind, entry.ttl, entry, option and (option.addr, option.port),
                                 message.session_id, sd.get_flag("REBOOT"), multicast, sender)
        raise AssertionError(f"no {kind} came")

    def event(self):
        """The next message at the service's endpoint."""
        return SOMEIP(self.service.recv(65536))


def record(sw, part=b""):
    """A value of the field identificationData with one record."""
    members = b"".join(struct.pack(">HI", tag, len(value)) + value
                       for tag, value in ((0x7002, sw), (0x7004, part)))
    return struct.pack(">II", len(members) + 4, len(members)) + members


class Capture:
    """What passes by an interface, recorded by tshark."""

    def __init__(self, command, interface, path, only):
        self.path = path
        if shutil.which("tshark") is None:
            raise unittest.SkipTest("tshark is not installed: skipped")
        self.process = subprocess.Popen(
            [*command, "tshark", "-i", interface, "-f", only, "-w", path],
            stderr=subprocess.PIPE, text=True, env={**os.environ, "LC_ALL": "C"})
        if not any("Capture started" in line for line in self.process.stderr):
            self.process.communicate()
            raise unittest.SkipTest("tshark may not capture here: skipped")

    def end_behind(self, marker):
        """Ends when a packet that holds the marker has been recorded."""
        end = time.monotonic() + LIMIT
        while marker not in self.path.read_bytes() and time.monotonic() < end:
            time.sleep(0.02)
        self.close()

    def close(self):
        if not self.process.stderr.closed:
            self.process.terminate()
            self.process.communicate(timeout=LIMIT)

    def dissect(self, *fields, ports=()):
        command = ["tshark", "-r", self.path, "-T", "fields"]
        for port in (SD_PORT, *ports):
            command += ["-d", f"udp.port=={port},someip"]
        for field in fields:
            command += ["-e", field]
        output = subprocess.run(command, check=True, capture_output=True, text=True,
                                timeout=LIMIT).stdout
        return [line.split("\t") for line in output.splitlines()]
