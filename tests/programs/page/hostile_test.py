#!/usr/bin/env python3
"""Requests that the page would never send, and what else must get nothing."""

import json
import socket
import sys
import urllib.parse

sys.dont_write_bytecode = True
import page_case  # noqa: E402

COMMAND = json.dumps({"control": "clamp", "values": ["on"]})


class HostileTest(page_case.PageCase):
    def setUp(self):
        address = urllib.parse.urlsplit(self.address)
        self.port = address.port
        self.token = address.path.strip("/")
        self.host = f"127.0.0.1:{self.port}"

    def exchange(self, request, half_close=True):
        """Sends raw bytes; the whole answer."""
        with socket.create_connection(("127.0.0.1", self.port), timeout=page_case.LIMIT) as link:
            link.sendall(request)
            if half_close:
                link.shutdown(socket.SHUT_WR)
            answer = b""
            while piece := link.recv(65536):
                answer += piece
        return answer.decode(errors="replace")

    def ask(self, path, method="GET", body="", **headers):
        fields = {"Host": self.host, "Content-Length": len(body.encode()),
                  "Content-Type": "application/json"}
        fields.update({name.replace("_", "-"): text for name, text in headers.items()})
        head = "".join(f"{name}: {text}\r\n" for name, text in fields.items() if text is not None)
        answer = self.exchange(f"{method} {path} HTTP/1.1\r\n{head}\r\n{body}".encode())
        return int(answer.split()[1]), answer

    def test_only_the_page_itself_gets_an_answer(self):
        good = f"/{self.token}/"
        commands = f"{good}units/1/commands"
        status, answer = self.ask(good, Origin=f"http://{self.host}")
        self.assertEqual(status, 200)
        for header in ("Content-Security-Policy: default-src 'none'; script-src 'self'",
                       "X-Content-Type-Options: nosniff", "Referrer-Policy: no-referrer",
                       "Cache-Control: no-store"):
            self.assertIn(header, answer)
        wrong = self.token[:-1] + ("0" if self.token[-1] != "0" else "1")
        rows = [
            ("no token", 403, "/", {}),
            ("a token that differs in its last digit", 403, f"/{wrong}/", {}),
            ("half a token", 403, f"/{self.token[:32]}/", {}),
            ("a token and no end", 403, f"/{self.token}", {}),
            ("a token in the query", 403, f"/?{self.token}/", {}),
            ("another site's name", 403, good, {"Host": f"evil.example:{self.port}"}),
            ("another port's name", 403, good, {"Host": "127.0.0.1:1"}),
            ("no name", 403, good, {"Host": None}),
            ("another site's page", 403, good, {"Origin": "http://evil.example"}),
            ("another port's page", 403, commands,
             {"method": "POST", "body": COMMAND, "Origin": "http://127.0.0.1:1"}),
            ("a page without an origin", 403, commands,
             {"method": "POST", "body": COMMAND, "Origin": "null"}),
            ("what another site loads", 403, f"{good}page.js", {"Sec_Fetch_Site": "cross-site"}),
            ("a parent directory", 404, f"{good}../../../../etc/passwd", {}),
            ("an escaped parent directory", 404, f"{good}%2e%2e%2fetc/passwd", {}),
            ("an absolute path", 404, f"{good}/etc/passwd", {}),
            ("a path with a null", 404, f"{good}page.js%00.css", {}),
            ("the page's source folder", 404, f"{good}web/page.js", {}),
            ("a unit beyond the last", 404, f"{good}units/2/events", {}),
            ("a unit before the first", 404, f"{good}units/0/events", {}),
            ("a unit by a path", 404, f"{good}units/../1/events", {}),
            ("a unit without an end", 404, f"{good}units/99999999999999999999/events", {}),
            ("deleting", 405, good, {"method": "DELETE"}),
            ("a command by GET", 405, commands, {}),
            ("a form", 415, commands, {"method": "POST", "body": COMMAND,
                                       "Content_Type": "text/plain"}),
            ("a body of 5000 bytes", 413, commands, {"method": "POST", "body": "x" * 5000}),
            ("a body of a gigabyte", 413, commands,
             {"method": "POST", "Content_Length": str(1 << 30)}),
            ("a header of 20000 bytes", 431, good, {"X_Long": "x" * 20000}),
        ]
        for name, status, path, request in rows:
            with self.subTest(name):
                self.assertEqual(self.ask(path, **request)[0], status)
        for text in (b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n", b"GET / HTTP/9.9\r\n\r\n"):
            self.assertRegex(self.exchange(text), "^HTTP/1.1 4")

    def test_a_command_is_one_of_the_list_and_nothing_more(self):
        path = f"/{self.token}/units/1/commands"
        refused = [
            "", "[]", "{", "null", '{"control": "clamp"}', '{"control": 1, "values": []}',
            *(json.dumps({"control": control, "values": values}) for control, values in [
                ("quit", []), ("status", []), ("clamp", []), ("clamp", ["on", "on"]),
                ("clamp", ["on\nquit"]), ("vin", ["A\nquit"]), ("vin", ["A\u0000"]),
                ("vin", ["x" * 600]), ("alert", ["an oid", "44"]), ("alert", ["oid", "256"]),
                ("alert", ["oid", "-1"]), ("scenario", ["ok quit"]), ("service", ["-reset"]),
                ("service", ["start; touch /tmp/x"])]),
        ]
        for body in refused:
            with self.subTest(body):
                self.assertEqual(self.ask(path, "POST", body)[0], 400)
        scenario = json.dumps({"control": "scenario", "values": ["$(id)"]})
        status, answer = self.ask(path, "POST", scenario)
        self.assertEqual(status, 409)
        self.assertIn("unknown scenario '$(id)'", answer)
        self.assertEqual(self.ask(path, "POST", COMMAND)[0], 204)

    def test_it_listens_on_the_loopback_alone(self):
        with open("/proc/net/tcp", encoding="ascii") as table:
            listeners = [line.split()[1] for line in table if line.split()[3] == "0A"]
        self.assertIn(f"0100007F:{self.port:04X}", listeners)
        with open("/proc/net/tcp6", encoding="ascii") as table:
            self.assertNotIn(f":{self.port:04X} ", table.read())


if __name__ == "__main__":
    page_case.main()
