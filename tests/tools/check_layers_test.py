#!/usr/bin/env python3
"""tools/check-layers reports each include that docs/architecture.md forbids, and nothing else."""

import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

PROJECT = pathlib.Path(__file__).resolve().parents[2]
CRYPTO = "platform/orv_sec_crypto"
SOMEIP = "platform/support/someip"

# A forbidden arrow of each kind: the file, and what it must not include.
FORBIDDEN = [
    # between the folders of the system
    ("logging/qel_logging.cpp", "fsm/fsm.h"),
    ("fsm/fsm.cpp", "client/hsm_if.h"),
    ("process/signal_handler.cpp", "fsm/fsm.h"),
    ("backend/http_protocol.cpp", "certificates/hsm.h"),
    ("certificates/hsm.cpp", "backend/http_protocol.h"),
    ("vehicle/tls_alerts.cpp", "../backend/http_protocol.h"),
    ("backend/url_data.cpp", "client/vintrel_client_fsm.h"),
    ("client/clamp_control_if.h", "backend/http_protocol.h"),
    ("client/vintrel_client_fsm.cpp", "vehicle/tls_alerts.h"),
    ("vehicle/clamp_control_handler.cpp", "GenericError_V2.pb.h"),
    # from the system to a library that is not its own
    ("vehicle/tls_alerts.h", "zem_connector/zem_connector.h"),
    ("fsm/event_queue.cpp", "openssl/evp.h"),
    ("fsm/io_event.cpp", "ara/log/logger.h"),
    # from the system to what no unit has
    ("vehicle/immobilizer_client.cpp", "service_access/connection.h"),
    ("certificates/hsm.h", "orv_sec_crypto/store_administration.h"),
    ("certificates/crypto_api_instance.cpp", "store/store_database.h"),
    ("process/ini_file_reader.cpp", "posix/atomic_file.h"),
    ("client/program.cpp", "simulator/backend/server.h"),
    ("backend/zem_connector_fsm.cpp", "testing/captured_log.h"),
    ("logging/qel_log_entry.cpp", "provision/store_report.h"),
    # between the platform's libraries, and out of them
    ("platform/ara_exec/src/application_client.cpp", "fsm/fsm.h"),
    ("platform/zem_connector/src/host_name.cpp", "simulator/control/control_server.h"),
    ("platform/lumo/include/lumo/lumo_client.h", "service_access/connection.h"),
    ("platform/ara_log/include/ara/log/common.h", "nlohmann/json.hpp"),
    ("platform/ara_com/include/ara/com/service_handle.h", "someip/client/runtime.h"),
    ("platform/orv_sec_tive/src/cms_container.cpp", "store/store_database.h"),
    ("platform/ara_phm/src/phm_client.cpp", "vonta_socket_host/unix_server.h"),
    # within the rooms of one library, upwards, and into another room's own headers
    (f"{CRYPTO}/src/errors/crypto_error.cpp", "store/store_database.h"),
    (f"{CRYPTO}/src/x509/certificate_cache.cpp", "custody/key_custody.h"),
    (f"{SOMEIP}/wire/src/message.cpp", "someip/network/worker_pool.h"),
    (f"{SOMEIP}/network/src/worker_pool.cpp", "someip/discovery/deployment.h"),
    (f"{SOMEIP}/server/src/field_server.cpp", f"{SOMEIP}/client/src/client_node.h"),
    # between the rooms beside the system
    ("provision/store_report.cpp", "simulator/pki/authority.h"),
    ("simulator/backend/server.cpp", "provision/store_report.h"),
    ("simulator/vehicle/vehicle.cpp", "client/fsm_factory.h"),
    ("simulator/pki/authority.cpp", "simulator/backend/server.h"),
    ("timeline/log_reader.cpp", "backend/http_protocol.h"),
    ("benchmarks/bare_store.cpp", "testing/captured_log.h"),
    ("tests/support/testing/captured_log.cpp", "backend/http_protocol.h"),
    # from outside
    ("simulator/page/session.cpp", "sqlite3.h"),
]
UNKNOWN = ("simulator/page/unit.cpp", "curl/curl.h")


class CheckLayersTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.copy = pathlib.Path(directory.name) / "copy"
        listed = subprocess.run(["git", "-C", PROJECT, "ls-files"], capture_output=True, text=True,
                                check=True).stdout.split("\n")
        for name in filter(None, listed):
            if (PROJECT / name).is_file() and not name.startswith(("fuzz/corpus/", "docs/images/")):
                (self.copy / name).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(PROJECT / name, self.copy / name)
        subprocess.run(["git", "init", "-q", self.copy], check=True)

    def plant(self, name, text):
        file = self.copy / name
        self.assertTrue(file.exists(), name)
        file.write_text(text + file.read_text())

    def replace_on_page(self, old, new):
        page = self.copy / "docs" / "architecture.md"
        self.assertEqual(page.read_text().count(old), 1, old)
        page.write_text(page.read_text().replace(old, new))

    def faults(self):
        result = subprocess.run([PROJECT / "tools" / "check-layers", "--root", self.copy],
                                capture_output=True, text=True, check=False)
        *lines, _ = result.stdout.splitlines()
        self.assertEqual(result.returncode, 1 if lines else 0, result.stderr)
        return set(lines)

    def test_each_planted_include_is_reported_and_nothing_else(self):
        self.assertEqual(self.faults(), set())
        for name, include in FORBIDDEN:
            self.plant(name, f'#  include <{include}>\n' if "/" in include
                       else f'#include "{include}"\n')
        self.plant(UNKNOWN[0], f"#include <{UNKNOWN[1]}>\n")
        (self.copy / "gadgets").mkdir()
        (self.copy / "gadgets" / "gadget.cpp").touch()
        (self.copy / "tests" / "attic").mkdir()
        (self.copy / "tests" / "attic" / "attic_test.cpp").touch()
        self.assertEqual(self.faults(), {
            *(f"{name} must not include {include}" for name, include in FORBIDDEN),
            f"{UNKNOWN[0]} includes {UNKNOWN[1]}, which is in no table",
            "gadgets/gadget.cpp has no room",
            "tests/attic mirrors no folder"})

    def test_a_page_that_allows_too_much_is_reported(self):
        self.replace_on_page("on `ara::log` | `ara_log` |",
                             "on `ara::log` | `ara_log`, `process`, `boost`, `attic` |")
        self.assertEqual(self.faults(), {
            "nothing uses the arrow from logging to process",
            "nothing uses the arrow from logging to boost",
            "nothing uses the arrow from logging to attic",
            "the row of logging names attic, which has no row",
            "these rooms use each other: logging, process"})


if __name__ == "__main__":
    unittest.main(verbosity=2)
