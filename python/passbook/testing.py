"""A plugin for pytest: virtual printers for tests of host programs, in whatever language those are written.

    def test_a_booking(passbook_oli):
        subprocess.run(["./host", passbook_oli.port], check=True)
        assert [text.text for text in passbook_oli.texts()] == ["12.50"]

Each printer is a passbook-sim with a pseudo-terminal of its own. The program is that of PASSBOOK_SIM, or passbook-sim
in the PATH. passbook_oli and passbook_oki are printers of these families, passbook_printer starts further ones, and
@pytest.mark.passbook(stripe0="4711", taken_after=2) gives them options.
"""

import io
import json
import os
import select
import shutil
import signal
import socket
import subprocess
import time
from collections.abc import Callable, Iterator, Mapping
from dataclasses import dataclass
from pathlib import Path
from types import TracebackType
from typing import Any

import pytest

try:
    from PIL import Image
except ImportError:
    Image = None  # type: ignore[assignment]

Event = dict[str, Any]

_START_S = 20.0
_POLL_S = 0.002
_KILLED = 128 + signal.SIGKILL

# Stands between the tests and the printer, in a session of its own. When the tests close its standard input, or are
# killed, the printer ends and its files go. Nobody else waits for the printer, so its process id stays its own.
_KEEPER = """
trap '' PIPE  # the tests may be gone before they are told
trap : HUP INT TERM
base=${TMPDIR:-/tmp}
[ ${#base} -le 80 ] || base=/tmp  # the name of a socket is short
directory=$(mktemp -d "$base/passbook.XXXXXX") || exit 1
mkdir "$directory/pages"
"$@" --control "$directory/control" --pages "$directory/pages" &
printer=$!
echo "kept: $printer $directory"
exec >/dev/null 2>&1
read -r order
signal=KILL
[ "$order" != end ] || signal=TERM
kill -s $signal $printer
wait $printer
status=$?
rm -rf "$directory"
exit $status
"""


class PrinterError(Exception):
    """The virtual printer could not be started, has ended, or refused a request."""


@dataclass(frozen=True)
class Text:
    """A printed text, and where it begins, in millimetres and in dots of 1/180 inch. event has all that is known."""

    text: str
    x_mm: float
    y_mm: float
    x_dots: int
    y_dots: int
    event: Event


class Control:
    """A connection to the control socket of a passbook-sim."""

    def __init__(self, path: str | os.PathLike[str], timeout: float = 10) -> None:
        self._timeout = timeout
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        try:
            self._socket.settimeout(timeout)
            self._socket.connect(os.fspath(path))
            self._answers = self._socket.makefile("rb")
        except OSError:
            self._socket.close()
            raise

    def request(self, timeout: float | None = None, **request: Any) -> dict[str, Any]:
        """Makes a request, and gives its answer; what is refused raises PrinterError. timeout: of a wait."""
        if timeout is not None:
            request["timeout"] = timeout
        self._socket.settimeout(self._timeout + (timeout or 0))
        try:
            self._socket.sendall(json.dumps(request).encode() + b"\n")
            line = self._answers.readline()
        except OSError as error:
            raise PrinterError(f"{json.dumps(request)}: {error}") from error
        answer: dict[str, Any] = json.loads(line) if line.endswith(b"\n") else {"error": "the printer is gone"}
        if not answer.get("ok"):
            raise PrinterError(f"{json.dumps(request)}: {answer.get('error')}")
        return answer

    def close(self) -> None:
        self._answers.close()
        self._socket.close()


def _program() -> str:
    program = os.environ.get("PASSBOOK_SIM") or shutil.which("passbook-sim")
    if not program:
        raise PrinterError("passbook-sim is not in the PATH, and PASSBOOK_SIM does not name it")
    return program


def _argument(name: str, value: Any) -> list[str]:
    option = "--" + name.replace("_", "-")
    if value is None or value is False:
        return []
    return [option] if value is True else [f"{option}={value}"]


class VirtualPrinter:
    """A passbook-sim on a pseudo-terminal of its own.

    family    "oli" or "oki"
    scenario  the name of a scenario file, or what stands in one
    options   those of passbook-sim, "_" for "-": stripe0="4711", silent=True, page_size="150x200"
    """

    def __init__(
        self,
        family: str = "oli",
        *,
        scenario: Mapping[str, Any] | str | os.PathLike[str] | None = None,
        **options: Any,
    ) -> None:
        self.family = family
        self._scenario = scenario
        self._options = options
        self._keeper: subprocess.Popen[bytes] | None = None
        self._start()

    def _start(self) -> None:
        program = _program()
        # Files without a name: nothing is left of them, however the tests end.
        self._log, self._errors = os.memfd_create("events"), os.memfd_create("errors")
        self._read = 0
        self._events: list[Event] = []
        self._unplugged = self._stalled = False
        self._pid = 0
        self.control: Control | None = None
        scenario, inherited = self._scenario, [self._log]
        if isinstance(scenario, Mapping):
            inherited.append(os.memfd_create("scenario"))
            os.write(inherited[-1], json.dumps(scenario).encode())
            scenario = f"/proc/self/fd/{inherited[-1]}"
        arguments = [program, f"--family={self.family}", f"--events=/proc/self/fd/{self._log}"]
        for name, value in {**self._options, "scenario": scenario and os.fspath(scenario)}.items():
            arguments += _argument(name, value)
        try:
            self._keeper = subprocess.Popen(
                ["/bin/sh", "-c", _KEEPER, "passbook-keeper", *arguments],
                stdin=subprocess.PIPE,
                stdout=subprocess.PIPE,
                stderr=self._errors,
                pass_fds=inherited,
                start_new_session=True,
            )
            self._port, self._pid, self._directory = self._await_start(self._keeper)
            self.control = Control(self._directory / "control")
        except BaseException:
            self._end()
            raise
        finally:
            for descriptor in inherited[1:]:
                os.close(descriptor)

    def _await_start(self, keeper: subprocess.Popen[bytes]) -> tuple[str, int, Path]:
        assert keeper.stdout
        told, until = b"", time.monotonic() + _START_S
        while told.count(b"\n") < 2:
            ready, _, _ = select.select([keeper.stdout], [], [], max(0.0, until - time.monotonic()))
            piece = os.read(keeper.stdout.fileno(), 4096) if ready else b""
            if not piece:
                raise PrinterError(f"passbook-sim did not start: {self._said()}")
            told += piece
        lines = dict(line.split(": ", 1) for line in told.decode().splitlines())
        process, directory = lines["kept"].split(" ", 1)
        return lines["port"], int(process), Path(directory)

    def _said(self) -> str:
        return os.pread(self._errors, 1 << 16, 0).decode(errors="replace").strip()

    # ---- What happened

    @property
    def port(self) -> str:
        """The name for YARDO_PR2_OpenPort. A line that was dropped comes back under another one."""
        names: list[str] = [each["port"] for each in self._all_events() if each["event"] == "line" and "port" in each]
        return names[-1] if names else self._port

    @property
    def path(self) -> str:
        """The name of the device."""
        return f"/dev/{self.port}"

    @property
    def running(self) -> bool:
        """Whether the program runs. It does so until it is stopped, unplugged, or fails."""
        try:
            state = Path(f"/proc/{self._pid}/stat").read_text().rsplit(")", 1)[1].split()[0]
        except OSError:
            return False
        return self._keeper is not None and state not in "ZX"

    def settle(self, timeout: float = 10) -> None:
        """Has the printer do all that hosts have sent until now.

        SIGUSR1 has that effect. A second one is taken up when the first is done with.
        """
        until = time.monotonic() + timeout
        for _ in range(2):
            if self._stalled or not self.running:
                return
            os.kill(self._pid, signal.SIGUSR1)
            while self.running and self._signal_waits():
                if time.monotonic() > until:
                    raise PrinterError("passbook-sim does not come to rest")
                time.sleep(_POLL_S / 10)

    def _signal_waits(self) -> bool:
        try:
            status = Path(f"/proc/{self._pid}/status").read_text()
        except OSError:
            return False
        waiting = next((line.split()[1] for line in status.splitlines() if line.startswith("ShdPnd:")), "0")
        return bool(int(waiting, 16) >> (signal.SIGUSR1 - 1) & 1)

    def events(self, event: str | None = None, **fields: Any) -> list[Event]:
        """What happened since the start: all of it, or events of a kind, with these fields. See passbook-sim(1)."""
        self.settle()
        if event is not None:
            fields["event"] = event
        return [each for each in self._all_events() if _has(each, fields)]

    def _all_events(self) -> list[Event]:
        if self._keeper is not None:
            told = os.pread(self._log, os.fstat(self._log).st_size - self._read, self._read)
            whole = told[: told.rfind(b"\n") + 1]
            self._read += len(whole)
            self._events += [json.loads(line) for line in whole.splitlines()]
        return self._events

    def wait_for(self, event: str, timeout: float = 10, **fields: Any) -> Event:
        """The first event of that kind, with these fields, since the start; waits until there is one."""
        fields["event"] = event
        until = time.monotonic() + timeout
        self.settle()
        while True:
            running, late = self.running, time.monotonic() > until
            if late:
                self.settle()  # a text ends with what comes behind it
            found = next((each for each in self._all_events() if _has(each, fields)), None)
            if found:
                return found
            if late or not running:
                raise PrinterError(f"no event {fields} within {timeout} s: {self._said()}")
            time.sleep(_POLL_S)

    def texts(self) -> list[Text]:
        """What was printed as text, with its places."""
        return [
            Text(each["text"], each["xMm"], each["yMm"], each["xDots"], each["yDots"], each)
            for each in self.events("text")
        ]

    def page(self) -> Any:
        """The picture of the page that was printed on last, a PIL image, or PNG bytes without Pillow. None: of none."""
        pages = self.pages()
        return pages[-1] if pages else None

    def pages(self) -> list[Any]:
        """The pictures of all pages with something on them."""
        if self._keeper is None:
            raise PrinterError("the printer was stopped, and its pages are gone")
        self.settle()
        assert self.control
        ended = sorted((self._directory / "pages").glob("*.png"))
        if not self.running or (self.control.request(page="texts").get("page") or 0) <= len(ended):
            return [_picture(page) for page in ended]
        current = self._directory / "current.png"
        self.control.request(page={"png": str(current)})
        return [_picture(page) for page in (*ended, current)]

    # ---- Trouble

    def do(self, *actions: Mapping[str, Any]) -> None:
        """Has things happen now, as in the rules of a scenario: do({"jam": True})."""
        assert self.control
        self.control.request(do=list(actions))

    def stall(self) -> None:
        """The printer takes nothing and answers nothing until resume(). What the line holds is sent without it."""
        self._kill(signal.SIGSTOP)
        self._stalled = True

    def resume(self) -> None:
        self._kill(signal.SIGCONT)
        self._stalled = False

    def unplug(self) -> None:
        """The line breaks: the printer is gone, for good. Its events and pages stay."""
        self.settle()
        self._unplugged = True
        self._kill(signal.SIGKILL)
        until = time.monotonic() + _START_S
        while self.running and time.monotonic() < until:
            time.sleep(_POLL_S)

    def _kill(self, number: signal.Signals) -> None:
        # Only while the keeper is there: a process id that nobody waits for is not given to another.
        if self._keeper is not None and self.running:
            os.kill(self._pid, number)

    def restart(self, **options: Any) -> None:
        """Another printer in the place of this one, with these options over the former ones, and another port."""
        self.stop()
        self._options = {**self._options, **options}
        self._scenario = self._options.pop("scenario", self._scenario)
        self._start()

    # ---- The end

    def stop(self) -> None:
        """Ends the printer, and removes its files. Raises PrinterError if it has failed or expectations are unmet."""
        if self._keeper is None:
            return
        self._all_events()
        ended = not self.running and not self._unplugged
        self.resume()
        # Only a scenario has expectations to be judged at the end. Without one there is no need to wait for it.
        status, said = self._end(b"end" if self._scenario else b"now")
        if ended or (status != (0 if self._scenario else _KILLED) and not self._unplugged):
            raise PrinterError(f"passbook-sim: exit status {status}: {said}")

    def _end(self, how: bytes = b"now") -> tuple[int, str]:
        if self.control:
            self.control.close()
        keeper, self._keeper = self._keeper, None
        status = 0
        if keeper:
            try:
                keeper.communicate(how + b"\n", timeout=_START_S)
            except subprocess.TimeoutExpired:
                if self._pid:
                    os.kill(self._pid, signal.SIGKILL)  # the keeper, which waits for it, ends then
                else:
                    keeper.kill()
                keeper.communicate()
            status = keeper.returncode
        said = self._said()
        os.close(self._log)
        os.close(self._errors)
        return status, said

    def __enter__(self) -> "VirtualPrinter":
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.stop()


def _has(event: Event, fields: Mapping[str, Any]) -> bool:
    return all(event.get(key) == value for key, value in fields.items())


def _picture(file: Path) -> Any:
    data = file.read_bytes()
    if Image is None:
        return data
    image = Image.open(io.BytesIO(data))
    image.load()
    return image


# ---- The plugin


def pytest_configure(config: pytest.Config) -> None:
    config.addinivalue_line("markers", "passbook(*families, **options): options of the virtual printers of a test")


def _started(request: pytest.FixtureRequest, family: str, **options: Any) -> VirtualPrinter:
    marked: dict[str, Any] = {}
    for marker in request.node.iter_markers("passbook"):  # the nearest one first
        if not marker.args or family in marker.args:
            marked = {**marker.kwargs, **marked}
    return VirtualPrinter(family, **{**marked, **options})


@pytest.fixture
def passbook_printer(request: pytest.FixtureRequest) -> Iterator[Callable[..., VirtualPrinter]]:
    """Starts printers: passbook_printer("oki", silent=True). They end with the test."""
    printers: list[VirtualPrinter] = []

    def start(family: str = "oli", **options: Any) -> VirtualPrinter:
        printers.append(_started(request, family, **options))
        return printers[-1]

    yield start
    failures = []
    for printer in printers:
        try:
            printer.stop()
        except PrinterError as error:
            failures.append(str(error))
    if failures:
        pytest.fail("\n".join(failures), pytrace=False)


@pytest.fixture
def passbook_oli(passbook_printer: Callable[..., VirtualPrinter]) -> VirtualPrinter:
    """A printer of the OLI family, that ends with the test."""
    return passbook_printer("oli")


@pytest.fixture
def passbook_oki(passbook_printer: Callable[..., VirtualPrinter]) -> VirtualPrinter:
    """A printer of the OKI family, that ends with the test."""
    return passbook_printer("oki")
