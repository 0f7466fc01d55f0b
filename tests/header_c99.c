// Compiled as C99: the public header is a C header, and its functions link from C.
#include "api/passbook.h"

int passbookFromC(void);

int passbookFromC(void) {
    const bool eject = false;
    return YARDO_PrintBmpOLI("/nonexistent.bmp", eject, 0, 0);
}
