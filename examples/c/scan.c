/*
 * Scans both sides of a document, in C.
 *
 *     scan PORT oki|oli FRONT BACK
 *
 * On OKI printers in colour: files named .jpg become JPEG. On OLI printers in 256 greys, as BMP.
 */
#include <stdbool.h>
#include <stdio.h>
#include <string.h>

#include "passbook.h"

enum { grey = 2, color = 3, bothSides = 2, dpi = 200, upright = 0 };

int main(int argc, char** argv) {
    int result;

    if (argc != 5 || (strcmp(argv[2], "oki") != 0 && strcmp(argv[2], "oli") != 0)) {
        fprintf(stderr, "usage: scan PORT oki|oli FRONT BACK\n");
        return 2;
    }
    result = YARDO_PR2_OpenPort(argv[1]);
    if (result == 0) {
        if (strcmp(argv[2], "oki") == 0)
            result = YARDO_ScantoFileOKI(argv[3], argv[4], color, 0, 0, 0, false, bothSides, dpi, upright);
        else
            result = YARDO_ScantoFileOLI(argv[3], argv[4], grey, 0, 0, false, bothSides, dpi, upright);
        (void)YARDO_PR2_ClosePort();
    }
    if (result != 0)
        fprintf(stderr, "scan: result %d\n", result);
    return result != 0;
}
