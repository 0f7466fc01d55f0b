"""The plugin as others have it: installed, in a project of their own, without the library."""

import os
import re
import signal
import subprocess
import sys
import time
from pathlib import Path

import pytest

PROJECT = {
    "test_all.py": """
        import os, signal, pytest

        @pytest.mark.parametrize("number", range(100))
        def test_in_a_row(passbook_oli, number):
            with open(passbook_oli.path, "wb") as line:
                line.write(b"%d\\r" % number)
            assert passbook_oli.wait_for("text")["text"] == str(number)

        def test_ten_at_once(passbook_printer):
            printers = [passbook_printer(family) for family in ("oli", "oki") * 5]
            for number, printer in enumerate(printers):
                with open(printer.path, "wb") as line:
                    line.write(b"%d\\r" % number)
            assert [printer.wait_for("text")["text"] for printer in printers] == [str(n) for n in range(10)]

        @pytest.mark.passbook("oki", stripe0="4711")
        @pytest.mark.passbook(page_size="80x100")
        def test_families(passbook_oli):
            assert passbook_oli.page() is None
            with open(passbook_oli.path, "wb") as line:
                line.write(b"money\\r")
            page = passbook_oli.page()
            assert page[:4] == b"\\x89PNG" if isinstance(page, bytes) else page.size == (567, 709)

        @pytest.mark.passbook(page_size="wobble")
        def test_refused_option(passbook_oli):
            pass

        def test_dies(passbook_oki):
            os.kill(passbook_oki._pid, signal.SIGSEGV)
            while passbook_oki.running:
                pass

        def test_restart(passbook_oli):
            passbook_oli.unplug()
            assert not os.path.exists(passbook_oli.path)
            passbook_oli.restart(paper="out")
            assert passbook_oli.running and passbook_oli.pages() == []
        """,
    "test_waiting.py": """
        import signal

        def test_killed(passbook_oli, passbook_oki, passbook_printer):
            passbook_printer().stall()
            with open("ready", "w"):
                signal.pause()
        """,
}


@pytest.fixture
def project(tmp_path):
    """A project elsewhere, with the package as it is installed."""
    install = ["cmake", "--install", os.environ["PASSBOOK_BUILD"] + "/python", "--prefix", tmp_path / "usr"]
    subprocess.run(install, check=True, capture_output=True)
    for name, text in PROJECT.items():
        (tmp_path / name).write_text(text.replace("\n        ", "\n"))
    (tmp_path / "tmp").mkdir()
    return tmp_path


def run(project, test):
    setting = {**os.environ, "PYTHONPATH": f"{project}/usr/lib/python3/dist-packages", "TMPDIR": f"{project}/tmp"}
    del setting["PASSBOOK_LIBRARY"]
    command = [sys.executable, "-m", "pytest", "-p", "no:cacheprovider", test]
    return subprocess.Popen(command, cwd=project, env=setting, stdout=subprocess.PIPE, text=True)


def left_behind(project):
    """Files, and processes that were started with the project's TMPDIR."""
    found = list((project / "tmp").iterdir())
    for process in Path("/proc").glob("[0-9]*"):
        try:
            if f"TMPDIR={project}/tmp".encode() in (process / "environ").read_bytes().split(b"\0"):
                found.append((process / "cmdline").read_bytes())
        except OSError:
            pass  # it has ended
    return found


def test_runs(project):
    told, _ = run(project, "test_all.py").communicate(timeout=200)
    assert " 104 passed, 2 errors in " in told, told
    assert re.search("--page-size: .*wobble", told) and re.search(r"exit status \d+", told), told
    assert left_behind(project) == []


def test_killed(project):
    tests = run(project, "test_waiting.py")
    until = time.monotonic() + 60
    while not (project / "ready").exists():
        assert tests.poll() is None and time.monotonic() < until
        time.sleep(0.01)
    assert len(left_behind(project)) >= 3 * 3  # a directory, a keeper and a printer each
    tests.send_signal(signal.SIGKILL)
    tests.communicate()
    while left := left_behind(project):
        assert time.monotonic() < until, left
        time.sleep(0.01)
