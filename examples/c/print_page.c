/*
 * A teller's job in C: prints a page of a passbook, reads the printer's status, writes the magnetic stripe
 * and reads it back, and ejects the book.
 *
 *     print_page PORT STAMP.bmp
 *
 * PORT is a port name for YARDO_PR2_OpenPort, such as ttyS0, or what the virtual printer says: pts/3.
 */
#include <stdio.h>
#include <string.h>

#include "passbook.h"

struct Booking {
    const char *date, *text, *withdrawn, *deposited, *balance;
};

static const struct Booking bookings[] = {
    {"2026-01-05", "开户 Opening", "", "500.00", "500.00"},
    {"2026-01-31", "工资 Salary", "", "12,480.00", "12,980.00"},
    {"2026-02-03", "取现 ATM 0417", "2,000.00", "", "10,980.00"},
    {"2026-02-14", "转账 林小姐", "520.00", "", "10,460.00"},
    {"2026-02-28", "工资 Salary", "", "12,480.00", "22,940.00"},
    {"2026-03-09", "水电费 Utilities", "318.65", "", "22,621.35"},
    {"2026-03-21", "利息 Interest", "", "17.42", "22,638.77"},
    {"2026-04-02", "消费 POS 8831", "1,299.00", "", "21,339.77"},
    {"2026-04-30", "工资 Salary", "", "12,480.00", "33,819.77"},
    {"2026-05-06", "定期 Term deposit", "20,000.00", "", "13,819.77"},
};

/* Money is posted here: the first thing that goes wrong ends the job, and says which and how. */
static int failed;

static void check(const char* what, int result) {
    if (result < 0 && !failed) {
        fprintf(stderr, "print_page: %s: result %d\n", what, result);
        failed = 1;
    }
}

static void text(int xMm, int yMm, const char* line) {
    if (!failed)
        check(line, YARDO_PR2_PrintData(0, xMm, yMm, line, -1));
}

static void format(double pitch, int bold, int width, int height) {
    if (!failed)
        check("format", YARDO_PR2_SetFormat(pitch, bold, width, height));
}

static void amount(int xMm, int yMm, const char* money) {
    char field[16];
    if (money[0] == '\0')
        return;
    snprintf(field, sizeof field, "%11s", money); /* to the right of its column */
    text(xMm, yMm, field);
}

static void page(const char* stamp) {
    size_t i;
    int y = 46;

    format(10, 1, 1, 1);
    text(12, 8, "示范银行 活期储蓄存折");
    format(12, 0, 0, 0);
    text(12, 20, "DEMONSTRATION BANK   SAVINGS PASSBOOK");
    format(15, 0, 0, 0);
    text(12, 27, "户名 Name: 张 伟 ZHANG WEI       账号 Account: 6222 0202 0011 2233");
    check("underline", YARDO_PR2_SetUnderLine(1));
    format(15, 1, 0, 0);
    text(12, 37, "日期 Date   摘要 Text              支出 Out     存入 In 余额 Balance");
    check("underline", YARDO_PR2_SetUnderLine(3));
    for (i = 0; i < sizeof bookings / sizeof bookings[0]; i++, y += 7) {
        format(15, 0, 0, 0);
        text(12, y, bookings[i].date);
        text(32, y, bookings[i].text);
        amount(66, y, bookings[i].withdrawn);
        amount(86, y, bookings[i].deposited);
        format(15, 1, 0, 0);
        amount(108, y, bookings[i].balance);
    }
    format(17, 0, 0, 0);
    text(12, y + 6, "本折须妥善保管。Please keep this book safe; report its loss to any branch at once.");
    if (!failed)
        check("stamp", YARDO_PrintBmpOLI(stamp, false, 104, y + 14));
    format(12, 0, 0, 0);
    text(12, y + 24, "柜员 Teller 0088   网点 Branch 010");
}

int main(int argc, char** argv) {
    static const char account[] = "6222020200112233=4912";
    unsigned char identifier[13];
    char stripe[128] = "";
    int status;

    if (argc != 3) {
        fprintf(stderr, "usage: print_page PORT STAMP.bmp\n");
        return 2;
    }
    check("open", YARDO_PR2_OpenPort(argv[1]));
    if (failed)
        return 1;
    check("initialise", YARDO_PR2_InitPrinter(2, 10));
    if (!failed)
        check("firmware", YARDO_PR2_GetFWID(identifier));
    if (!failed)
        printf("printer    %.13s\n", (const char*)identifier);
    if (!failed)
        check("insert", YARDO_PR2_InsertPaper());
    status = failed ? -1 : YARDO_PR2_GetPaperStatus();
    check("paper status", status);
    if (!failed && status != 4) {
        fprintf(stderr, "print_page: no document in place (paper status %d)\n", status);
        failed = 1;
    }
    if (!failed)
        page(argv[2]);
    status = failed ? -1 : YARDO_PR2_GetPrinterStatus();
    check("printer status", status);
    if (!failed)
        printf("status     %d%s\n", status, status == 1 ? " (ready)" : "");
    if (!failed)
        check("stripe write", YARDO_PR2_MSW(0, account, (int)strlen(account)));
    if (!failed)
        check("stripe read", YARDO_PR2_MSR(0, stripe, (int)sizeof stripe));
    if (!failed && strcmp(stripe, account) != 0) {
        fprintf(stderr, "print_page: the stripe reads back as \"%s\"\n", stripe);
        failed = 1;
    }
    if (!failed)
        printf("stripe     %s\n", stripe);
    check("eject", YARDO_PR2_SPB(30)); /* the customer gets the book back in any case */
    (void)YARDO_PR2_ClosePort();
    return failed;
}
