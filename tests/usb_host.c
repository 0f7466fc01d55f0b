/* A short job for the tests of passbook-sim: prints a line on the printer at the port named by the argument.
 */
#include <stdio.h>

#include "passbook.h"

int main(int argc, char** argv) {
    unsigned char identifier[13];
    int result = YARDO_PR2_OpenPort(argc > 1 ? argv[1] : "USB");
    if (result != 0) {
        printf("open %d\n", result);
        return 3;
    }
    result = YARDO_PR2_GetFWID(identifier);
    if (result == 0) result = YARDO_PR2_SetFormat(12, 1, 1, 1);
    if (result == 0) result = YARDO_PR2_PrintData(0, 20, 40, "存入 Deposit", -1);
    if (result == 0) result = YARDO_PR2_GetPaperStatus() == 4 ? 0 : -20;
    if (result == 0) result = YARDO_PR2_EjectPaper();
    printf("printed %d, %.13s\n", result, (const char*)identifier);
    YARDO_PR2_ClosePort();
    return result < 0;
}
