"""The port as a context manager."""

from types import TracebackType

from . import functions as f
from .errors import PassbookError


class Port:
    """The one port of the process, open from its making until it is closed, or until its block ends.

        with passbook.Port("ttyS0") as port:
            port.init_printer(passbook.Reset.RESET_ALL, 10)

    Its methods are the functions that work on the open port.
    """

    def __init__(self, name: f.Path) -> None:
        f.YARDO_PR2_OpenPort(name)
        self.name = name
        self.closed = False

    def close(self) -> None:
        if not self.closed:
            self.closed = True
            f.YARDO_PR2_ClosePort()

    def __enter__(self) -> "Port":
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        try:
            self.close()
        except PassbookError:
            # What went wrong first is what the program has to decide about.
            if error is None:
                raise

    command = staticmethod(f.YARDO_PR2_Command)
    init_printer = staticmethod(f.YARDO_PR2_InitPrinter)
    print_data = staticmethod(f.YARDO_PR2_PrintData)
    print_text = staticmethod(f.passbook_print_text)
    set_format = staticmethod(f.YARDO_PR2_SetFormat)
    set_line_space = staticmethod(f.YARDO_PR2_SetLineSpace)
    set_underline = staticmethod(f.YARDO_PR2_SetUnderLine)
    new_line = staticmethod(f.YARDO_PR2_LR)
    insert_paper = staticmethod(f.YARDO_PR2_InsertPaper)
    eject_paper = staticmethod(f.YARDO_PR2_EjectPaper)
    wait_until_taken = staticmethod(f.YARDO_PR2_SPB)
    clear_error = staticmethod(f.YARDO_PR2_ClearError)
    clear_all = staticmethod(f.YARDO_PR2_CLearAll)
    firmware = staticmethod(f.YARDO_PR2_GetFWID)
    printer_status = staticmethod(f.YARDO_PR2_GetPrinterStatus)
    paper_status = staticmethod(f.YARDO_PR2_GetPaperStatus)
    read_stripe = staticmethod(f.YARDO_PR2_MSR)
    read_stripes = staticmethod(f.YARDO_PR2_MSRALL)
    write_stripe = staticmethod(f.YARDO_PR2_MSW)
    print_bmp = staticmethod(f.YARDO_PrintBmpOLI)
    scan_oli = staticmethod(f.YARDO_ScantoFileOLI)
    scan_oki = staticmethod(f.YARDO_ScantoFileOKI)
