"""Takes the pictures of the documentation; tools/screenshots runs it."""

import argparse
import pathlib
import signal
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
import page_driver  # noqa: E402
import unit_day  # noqa: E402

IMAGES = unit_day.PROJECT / "docs" / "images"


def take_page(address, path):
    with page_driver.PageDriver(1440, 1240) as person:
        person.open(address)
        person.wait_text("#now-state", "WaitTrigger")
        person.wait_text("fieldset[data-group='TLS alert'] legend", "1 listening")
        person.press("Ignition", "on")
        person.wait_text("#now-pass", "certificate stored")
        person.wait_text("#client-card .badge", "in order")
        person.set("Backend", "Scenario", "empty,ok")
        person.wait_text("#said", "^Done: Backend")
        person.press("TLS alert", "Send")
        person.wait_text("#now-left", "^[1-4].* left")
        person.take_picture(path, "light")
        person.wait_text("#now-pass", "TLS alert – certificate stored")


def take_timeline(binaries, log, path):
    with tempfile.TemporaryDirectory() as directory:
        page = pathlib.Path(directory) / "timeline.html"
        subprocess.run([binaries / "vintrel-timeline", "-o", page, log], check=True,
                       stdout=subprocess.DEVNULL)
        with page_driver.PageDriver(1440, 900) as person:
            person.open(page.as_uri())
            person.find("button[aria-label='Show everything']").click()
            person.take_picture(path, "light")


def shrink(path):
    """Fewer colours make a smaller file; a picture of a page has few."""
    subprocess.run(["pngquant", "--force", "--strip", "--output", path, "64", path], check=True)
    print(f"{path.relative_to(unit_day.PROJECT)}: {path.stat().st_size} bytes")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bin", type=pathlib.Path, default=unit_day.PROJECT / "build/release/bin",
                        help="where the built programs are")
    binaries = parser.parse_args().bin.resolve()
    if not page_driver.is_available():
        sys.exit("needs chromium, chromium-driver and python3-selenium")
    IMAGES.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(prefix="vintrel-pictures-") as directory:
        page = subprocess.Popen(
            [unit_day.PROJECT / "tools" / "open-page", "--bin", binaries, "--dir", directory,
             "--units", "2"], stdout=subprocess.PIPE, text=True,
            env={"PATH": "/usr/bin:/bin"})
        try:
            address = next(line.split()[-1] for line in page.stdout
                           if line.startswith("The page: "))
            take_page(address, IMAGES / "page.png")
        finally:
            page.send_signal(signal.SIGTERM)
            page.communicate()
        log = pathlib.Path(directory) / "unit-1" / "logs" / "vintrel-client.log"
        take_timeline(binaries, log, IMAGES / "timeline.png")
    for name in ("page.png", "timeline.png"):
        shrink(IMAGES / name)


if __name__ == "__main__":
    main()
