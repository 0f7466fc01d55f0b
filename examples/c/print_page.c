/*
 * A teller's job in C: prints a page of a passbook, reads the printer's status, writes the magnetic stripe and reads it
 * back, and ejects the book. After every call it decides by what became of the call.
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

/* Set when the job cannot go on. */
static int failed;

/*
 * Money is posted here. After every call this decides what is to be done, by what became of the call: 1, make it again;
 * 0, go on, or stop if failed is set.
 */
static int again(const char* what, int result, int tries) {
    struct passbook_outcome outcome;
    const struct passbook_meaning* meaning;

    outcome.size = sizeof outcome;
    if (passbook_outcome(&outcome) != 0) {
        failed = 1;
        return 0;
    }
    /* Nothing was lost, not even what the result does not tell. */
    if (result >= 0 && outcome.failed_transfers == 0 && outcome.missing_answers == 0)
        return 0;
    meaning = passbook_explain(outcome.function, result);
    fprintf(stderr, "print_page: %s: result %d: %s\n", what, result, outcome.message);
    if (outcome.ink == PASSBOOK_INK_NONE && tries < 2 &&
        (meaning == NULL || meaning->repeat != PASSBOOK_REPEAT_USELESS)) {
        fprintf(stderr, "print_page: nothing of it is on the paper; once more\n");
        return 1;
    }
    if (outcome.ink == PASSBOOK_INK_SENT && outcome.in_place == 1) {
        fprintf(stderr, "print_page: all of it is in its place; on\n");
        return 0;
    }
    if (outcome.ink != PASSBOOK_INK_NONE && outcome.in_place == 1)
        fprintf(stderr, "print_page: look at the page, %d mm across and %d mm down: a part of it is there\n",
                outcome.x_dots * 254 / 1800, outcome.y_dots * 254 / 1800);
    else if (outcome.ink != PASSBOOK_INK_NONE)
        fprintf(stderr, "print_page: look at the page: it can stand in another place\n");
    if (meaning != NULL && result < 0)
        fprintf(stderr, "print_page: %s\n", meaning->remedy);
    failed = 1;
    return 0;
}

/* Makes a call, as often as it is worth it, unless the job has failed before. */
#define DO(what, call)                                                \
    do {                                                              \
        int tries;                                                    \
        for (tries = 0; !failed && again(what, call, tries); tries++) \
            ;                                                         \
    } while (0)

static void text(int xMm, int yMm, const char* line) {
    DO(line, YARDO_PR2_PrintData(PASSBOOK_MILLIMETRES, xMm, yMm, line, -1));
}

static void format(double pitch, int bold, int width, int height) {
    DO("format", YARDO_PR2_SetFormat(pitch, bold, width, height));
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
    DO("underline", YARDO_PR2_SetUnderLine(PASSBOOK_UNDERLINE_SECOND));
    format(15, 1, 0, 0);
    text(12, 37, "日期 Date   摘要 Text              支出 Out     存入 In 余额 Balance");
    DO("underline", YARDO_PR2_SetUnderLine(PASSBOOK_UNDERLINE_OFF));
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
    DO("stamp", YARDO_PrintBmpOLI(stamp, false, 104, y + 14));
    format(12, 0, 0, 0);
    text(12, y + 24, "柜员 Teller 0088   网点 Branch 010");
}

int main(int argc, char** argv) {
    static const char account[] = "6222020200112233=4912";
    unsigned char identifier[13];
    char stripe[128] = "";
    int status = 0;

    if (argc != 3) {
        fprintf(stderr, "usage: print_page PORT STAMP.bmp\n");
        return 2;
    }
    DO("open", YARDO_PR2_OpenPort(argv[1]));
    if (failed)
        return 1;
    DO("initialise", YARDO_PR2_InitPrinter(PASSBOOK_RESET_ALL, 10));
    DO("firmware", YARDO_PR2_GetFWID(identifier));
    if (!failed)
        printf("printer    %.13s\n", (const char*)identifier);
    DO("insert", YARDO_PR2_InsertPaper());
    DO("paper status", status = YARDO_PR2_GetPaperStatus());
    if (!failed && status != PASSBOOK_PAPER_IN_PLACE) {
        fprintf(stderr, "print_page: %s\n", passbook_paper_text(status));
        failed = 1;
    }
    if (!failed)
        page(argv[2]);
    DO("printer status", status = YARDO_PR2_GetPrinterStatus());
    if (!failed)
        printf("status     %d (%s)\n", status, passbook_status_text(status));
    if (!failed && status != PASSBOOK_PRINTER_READY) {
        /* The line took all texts. That does not say that the printer printed them. */
        fprintf(stderr, "print_page: look at the page: the printer may not have printed all of it\n");
        failed = 1;
    }
    DO("stripe write", YARDO_PR2_MSW(0, account, (int)strlen(account)));
    DO("stripe read", YARDO_PR2_MSR(0, stripe, (int)sizeof stripe));
    if (!failed && strcmp(stripe, account) != 0) {
        fprintf(stderr, "print_page: the stripe reads back as \"%s\"\n", stripe);
        failed = 1;
    }
    if (!failed)
        printf("stripe     %s\n", stripe);
    (void)YARDO_PR2_SPB(30); /* the customer gets the book back in any case */
    (void)YARDO_PR2_ClosePort();
    return failed;
}
