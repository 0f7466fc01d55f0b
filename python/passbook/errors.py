"""What became of a call: the record of it, the explanation of its result, and the exceptions that carry both."""

from dataclasses import dataclass
from typing import Any

from .enums import Ink, PtResult, Repeat, Result


def _text(value: bytes) -> str:
    # A message that is cut at its end may be cut within a character.
    return value.decode(errors="replace")


@dataclass(frozen=True)
class Outcome:
    """struct passbook_outcome: what became of a call. The fields mean what passbook.h says."""

    function: str
    result: int
    ink: Ink
    in_place: bool
    transfers: int
    failed_transfers: int
    missing_answers: int
    bytes_sent: int
    x_dots: int
    y_dots: int
    done: int
    total: int
    parts: int
    system_error: int
    message: str

    @classmethod
    def of(cls, told: Any) -> "Outcome":
        values = {name: getattr(told, name) for name in cls.__dataclass_fields__}
        values.update(function=_text(told.function), message=_text(told.message))
        values.update(ink=Ink(told.ink), in_place=bool(told.in_place))
        return cls(**values)

    @property
    def can_be_repeated(self) -> bool:
        """Nothing of the call is on the paper."""
        return self.ink == Ink.INK_NONE

    @property
    def can_go_on(self) -> bool:
        """All of the call's ink is where it belongs."""
        return self.ink == Ink.INK_SENT and self.in_place


@dataclass(frozen=True)
class Meaning:
    """struct passbook_meaning: the explanation of a result."""

    name: str
    cause: str
    paper: str
    remedy: str
    repeat: Repeat

    @classmethod
    def of(cls, told: Any) -> "Meaning":
        return cls(
            name=_text(told.name),
            cause=_text(told.cause),
            paper=_text(told.paper),
            remedy=_text(told.remedy),
            repeat=Repeat(told.repeat),
        )


class PassbookError(Exception):
    """A call that failed.

    function     its name
    result       what it returned
    name         of the result, as in passbook.h; empty if the library knows none
    outcome      what became of the call; None of functions that are not recorded
    explanation  of the result; None if the library has none
    data         what arrived all the same, of functions that read; else None
    """

    def __init__(
        self, function: str, result: int, outcome: Outcome | None, explanation: Meaning | None, data: Any = None
    ) -> None:
        super().__init__(function, result, outcome, explanation, data)
        self.function = function
        self.result = result
        self.outcome = outcome
        self.explanation = explanation
        self.data = data
        self.name = explanation.name if explanation else _name_of(function, result)

    def __str__(self) -> str:
        said = self.outcome.message if self.outcome and self.outcome.message else ""
        said = said or (self.explanation.cause if self.explanation else "")
        return f"{self.function}: {self.result} {self.name}".rstrip() + (f": {said}" if said else "")


class UntoldFailure(PassbookError):
    """The result is a success, but a transfer was not taken whole, or what was printed can be in a wrong place.

    Text can stand at the height of the line before, and data of a stripe can be missing. Text of an OKI printer can be
    in a wrong place until the document is ejected. The outcome tells what of the call can be on the paper. result is 0,
    or the answer of the function.
    """


def _name_of(function: str, result: int) -> str:
    known: type[Result] | type[PtResult] = Result
    if function.startswith("PT_") and result in set(PtResult):
        known = PtResult
    return f"PASSBOOK_{known(result).name}" if result in set(known) else ""
