"""A small fictitious host: it posts bookings into passbooks. Its tests show how a host is tested, see tests/."""

from dataclasses import dataclass

from passbook import PaperStatus, PassbookError, Port, PrinterStatus, Reset, Unit


@dataclass(frozen=True)
class Booking:
    date: str
    amount: str
    balance: str


@dataclass(frozen=True)
class Posted:
    """What became of the bookings of a book."""

    lines: int  # that stand in the book
    doubtful: bool = False  # the next line can be there, or a part of it: a person looks
    problem: str = ""


class Counter:
    first_line_mm = 20
    line_mm = 6
    lines = 25

    def __init__(self, port_name: str) -> None:
        self._port_name = port_name

    def account(self) -> str:
        """The account number on the book's stripe."""
        with Port(self._port_name) as port:
            return port.read_stripe(0).decode()

    def post(self, bookings: list[Booking], line: int = 0) -> Posted:
        """Prints bookings, from this line of the page on. What is told as posted is on the paper, and only once."""
        if line + len(bookings) > self.lines:
            return Posted(0, problem="the page is full")
        done, doubtful = 0, False
        try:
            with Port(self._port_name) as port:
                port.init_printer(Reset.RESET_ALL, 2)
                port.insert_paper()
                if port.paper_status() != PaperStatus.PAPER_IN_PLACE:
                    return Posted(0, problem="there is no book")
                for booking in bookings:
                    y = self.first_line_mm + (line + done) * self.line_mm
                    row = f"{booking.date} {booking.amount:>12} {booking.balance:>12}"
                    doubtful = True
                    port.print_data(Unit.MILLIMETRES, 12, y, row)
                    # That the line took it does not say that the printer did.
                    if port.printer_status() != PrinterStatus.PRINTER_READY:
                        return Posted(done, doubtful, "the printer is not ready")
                    done, doubtful = done + 1, False
                port.eject_paper()
        except PassbookError as error:
            if error.function == "YARDO_PR2_PrintData" and error.outcome:
                doubtful = not error.outcome.can_be_repeated
            return Posted(done, doubtful, str(error))
        return Posted(done)
