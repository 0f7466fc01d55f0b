"""Scenarios and the control of a printer that runs."""

import pytest
from passbook import Port, PrinterStatus
from passbook.testing import PrinterError, VirtualPrinter


def test_expectations():
    printer = VirtualPrinter(scenario={"expect": [{"text": "Balance"}]})
    with pytest.raises(PrinterError, match="Balance"):
        printer.stop()
    with pytest.raises(PrinterError, match="/rules"):
        VirtualPrinter(scenario={"rules": [{"when": {"wobble": 1}, "then": []}]})


def test_steps(passbook_oli):
    with Port(passbook_oli.port) as port:
        port.print_data(0, 10, 10, "before")
        passbook_oli.settle()
        passbook_oli.do({"jam": True})
        port.print_data(0, 10, 20, "lost")
        assert port.printer_status() != PrinterStatus.PRINTER_READY
        assert passbook_oli.wait_for("jammed", name="text", text="lost")
        passbook_oli.do({"jam": False}, {"take": True}, {"insert": True})
        assert passbook_oli.control.request(wait={"paper": "out"}, timeout=0)["met"] is False
        port.insert_paper()
        port.print_data(0, 10, 20, "behind")
    assert [text.text for text in passbook_oli.texts()] == ["before", "behind"]
    assert len(passbook_oli.pages()) == 2
    with pytest.raises(PrinterError, match="/do"):
        passbook_oli.do({"jam": 3.5})
