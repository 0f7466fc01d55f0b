/*
 * A page on an OKI printer, in C: text, a JPEG, a PNG turned by a quarter, and a stamp that comes as base64 text.
 *
 *     print_oki PORT DIRECTORY
 *
 * DIRECTORY holds building.jpg, logo.png and stamp.b64. Every call opens the port by itself and closes it again, and
 * places what it prints below where the paper stands when it begins.
 */
#include <stdio.h>
#include <stdlib.h>

#include "passbook.h"

enum { tenths = 0, timeoutSeconds = 10, unused = 0 };

static int failed;

static void check(const char* what, int result) {
    if (result < 0 && !failed) {
        fprintf(stderr, "print_oki: %s: result %d\n", what, result);
        failed = 1;
    }
}

static const char* path(const char* directory, const char* name) {
    static char whole[1024];
    snprintf(whole, sizeof whole, "%s/%s", directory, name);
    return whole;
}

static void printBase64(const char* port, const char* file) {
    static unsigned char text[1 << 20];
    FILE* in = fopen(file, "rb");
    size_t length = in != NULL ? fread(text, 1, sizeof text, in) : 0;
    if (in != NULL)
        fclose(in);
    check("stamp", PT_PrintImageStream(port, tenths, timeoutSeconds, 1000, 60, unused, text, (int)length));
}

int main(int argc, char** argv) {
    static const char heading[] =
        "示范银行 DEMONSTRATION BANK\n"
        "对账单 Statement of account 6222 0202 0011 2233\n"
        "户名 张伟 ZHANG WEI           2026-11-22\n";
    static const char closing[] =
        "期初余额 Opening balance      500.00\n"
        "期末余额 Closing balance   13,819.77\n"
        "请核对 Please check every entry.\n";
    const char* port;
    const char* directory;

    if (argc != 3) {
        fprintf(stderr, "usage: print_oki PORT DIRECTORY\n");
        return 2;
    }
    port = argv[1];
    directory = argv[2];
    check("heading", PT_PrintTxtStream(port, tenths, timeoutSeconds, 120, 100, heading, -1));
    if (!failed)
        check("building",
              PT_PrintImageFile(port, tenths, timeoutSeconds, 120, 100, unused, path(directory, "building.jpg")));
    if (!failed)
        check("logo", PT_PrintImageFileRevolve(port, tenths, timeoutSeconds, 1200, 100, unused,
                                               path(directory, "logo.png"), 1));
    if (!failed)
        check("closing", PT_PrintTxtStream(port, tenths, timeoutSeconds, 120, 60, closing, -1));
    if (!failed)
        printBase64(port, path(directory, "stamp.b64"));
    check("eject", PT_Eject(port, unused)); /* the customer gets the book back in any case */
    return failed;
}
