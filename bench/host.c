/* A host as it is measured: prints a picture, turned by as many quarters as told. Without one it only opens the port. */
#include <stdlib.h>

#include "passbook.h"

int main(int argc, char** argv) {
    if (argc > 1)
        return PT_PrintImageFileRevolve("null", 0, 1, 0, 0, 0, argv[1], argc > 2 ? atoi(argv[2]) : 0) != 0;
    return YARDO_PR2_OpenPort("null") != 0 || YARDO_PR2_ClosePort() != 0;
}
