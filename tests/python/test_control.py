"""Scenarios and the control of a printer that runs, as far as passbook-sim has them."""

import pytest
from passbook import Port, PrinterStatus
from passbook.testing import PrinterError, VirtualPrinter, _options_of, _program

needs = {
    option: pytest.mark.skipif(option not in _options_of(_program()), reason=f"passbook-sim has no {option}")
    for option in ("--scenario", "--control")
}


@needs["--scenario"]
def test_expectations():
    printer = VirtualPrinter(scenario={"expect": [{"text": "Balance"}]})
    with pytest.raises(PrinterError, match="Balance"):
        printer.stop()
    with pytest.raises(PrinterError, match="/rules"):
        VirtualPrinter(scenario={"rules": [{"when": {"wobble": 1}, "then": []}]})


@needs["--control"]
def test_steps(passbook_oli):
    control = passbook_oli.control
    with Port(passbook_oli.port) as port:
        port.print_data(0, 10, 10, "before")
        passbook_oli.settle()
        passbook_oli.do({"jam": True})
        port.print_data(0, 10, 20, "lost")
        assert port.printer_status() != PrinterStatus.PRINTER_READY
        assert passbook_oli.wait_for("jammed", name="text", text="lost")
        passbook_oli.do({"jam": False}, {"take": True}, {"insert": True})
        assert control.request(wait={"paper": "out"}, timeout=0)["met"] is False
        port.insert_paper()
        port.print_data(0, 10, 20, "behind")
    assert [text.text for text in passbook_oli.texts()] == ["before", "behind"]
    assert len(passbook_oli.pages()) == 2
    with pytest.raises(PrinterError, match="/do"):
        passbook_oli.do({"jam": 3.5})
