/*
 * Bookings in a passbook, line by line, in C. After every failure it decides by what became of the call.
 *
 *     teller PORT
 *
 * The last line that it prints says how many lines stand in the book, and which one a person must look at. Exit status:
 * 0 all are posted, 1 not all, 2 wrong usage, 5 one is in doubt.
 *
 * A line is posted when it was handed over whole and the printer is ready after it. When the line to the printer broke
 * and nothing of a call is on the paper, the port is opened anew and the job goes on. All else is in doubt: this program
 * does not print such a line a second time. It gives the book back.
 */
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "passbook.h"

struct Booking {
    const char *date, *text, *amount, *balance;
};

static const struct Booking bookings[] = {
    {"2026-01-05", "Opening", "500.00", "500.00"},        {"2026-01-31", "Salary", "12,480.00", "12,980.00"},
    {"2026-02-03", "ATM 0417", "-2,000.00", "10,980.00"}, {"2026-02-14", "Transfer", "-520.00", "10,460.00"},
    {"2026-02-28", "Salary", "12,480.00", "22,940.00"},   {"2026-03-09", "Utilities", "-318.65", "22,621.35"},
    {"2026-03-21", "Interest", "17.42", "22,638.77"},     {"2026-04-02", "POS 8831", "-1,299.00", "21,339.77"},
    {"2026-04-30", "Salary", "12,480.00", "33,819.77"},   {"2026-05-06", "Deposit", "-20,000.00", "13,819.77"},
};
static const char account[] = "6222020200112233";

enum { lineCount = sizeof bookings / sizeof bookings[0], xMm = 12, firstLineMm = 20, lineMm = 7 };
enum { readySeconds = 2, writeLimitMs = 10000, takenSeconds = 30, tries = 3 };

/* How a call or a part of the job ended. */
enum End { done, again, stopped, doubtful };

static int posted;              /* lines that stand in the book */
static const char* reason = ""; /* why not all of them do */

static enum End end(enum End how, const char* why) {
    reason = why;
    return how;
}

/* Decides by what became of a call. With `why` for a reason, if it is not done. */
static enum End became(const char* function, int result, const char* why) {
    struct passbook_outcome outcome;
    const struct passbook_meaning* meaning = passbook_explain(function, result);

    outcome.size = sizeof outcome;
    if (passbook_outcome(&outcome) != 0)
        return end(doubtful, why);
    if (result >= 0 && outcome.failed_transfers == 0 && outcome.missing_answers == 0)
        return done;
    fprintf(stderr, "teller: %s: result %d: %s\n", function, result,
            outcome.message[0] == '\0' && meaning != NULL && result < 0 ? meaning->cause : outcome.message);
    if (outcome.ink == PASSBOOK_INK_SENT && outcome.in_place == 1)
        return done;
    if (outcome.ink != PASSBOOK_INK_NONE)
        return end(doubtful, why);
    /* Nothing is on the paper. A line that broke can be opened anew; what else is wrong would be so again. */
    return end(outcome.failed_transfers > 0 ? again : stopped, why);
}

/* Asks once more when there is no answer: it can be late. What the second answer is counts. */
static enum End ask(const char* function, int question(void), int* answer) {
    enum End how = became(function, *answer = question(), "the printer does not answer");
    return how != stopped ? how : became(function, *answer = question(), "the printer does not answer");
}

static enum End askPaper(void) {
    int paper = 0;
    enum End how = ask("YARDO_PR2_GetPaperStatus", YARDO_PR2_GetPaperStatus, &paper);
    return how != done || paper == PASSBOOK_PAPER_IN_PLACE ? how : end(stopped, "there is no book in the printer");
}

/* Looks before anything is printed: is the printer ready, is there a book, and whose? */
static enum End look(void) {
    char stripe[64] = "";
    int status = 0;
    enum End how = became("YARDO_PR2_InitPrinter", YARDO_PR2_InitPrinter(PASSBOOK_RESET_ALL, readySeconds),
                          "the line to the printer is broken");

    if (how == stopped && (how = ask("YARDO_PR2_GetPrinterStatus", YARDO_PR2_GetPrinterStatus, &status)) == done)
        return end(stopped, "the printer is not ready");
    if (how == done)
        how = became("YARDO_PR2_InsertPaper", YARDO_PR2_InsertPaper(), "the line to the printer is broken");
    if (how == done)
        how = askPaper();
    if (how == done)
        how = became("YARDO_PR2_MSR", YARDO_PR2_MSR(0, stripe, (int)sizeof stripe), "the stripe cannot be read");
    return how != done || strcmp(stripe, account) == 0 ? how : end(stopped, "it is the book of another account");
}

/* Prints the next line. */
static enum End post(void) {
    const struct Booking* booking = &bookings[posted];
    char line[64];
    int status = 0;
    enum End how = askPaper();

    if (how != done)
        return how;
    snprintf(line, sizeof line, "%s  %-12s%12s%12s", booking->date, booking->text, booking->amount, booking->balance);
    how = became("YARDO_PR2_PrintData",
                 YARDO_PR2_PrintData(PASSBOOK_MILLIMETRES, xMm, firstLineMm + posted * lineMm, line, -1),
                 "the line cannot be printed");
    if (how != done)
        return how;
    /* That it was handed over does not say that it is printed. The printer says so. */
    how = ask("YARDO_PR2_GetPrinterStatus", YARDO_PR2_GetPrinterStatus, &status);
    if (how != done || status != PASSBOOK_PRINTER_READY)
        return doubtful;
    ++posted;
    return done;
}

/* Writes the stripe. The printer does not confirm that, so it is read back. Nothing can be printed twice by it. */
static enum End writeStripe(void) {
    char stripe[64] = "";
    enum End how = stopped;
    int i;
    for (i = 0; i < tries && how == stopped; i++) {
        how = became("YARDO_PR2_MSW", YARDO_PR2_MSW(0, account, (int)strlen(account)), "the stripe is not written");
        if (how == done)
            how = became("YARDO_PR2_MSR", YARDO_PR2_MSR(0, stripe, (int)sizeof stripe), "the stripe is not written");
        if (how == done && strcmp(stripe, account) != 0)
            how = end(stopped, "the stripe is not written");
    }
    return how;
}

static enum End job(const char* port) {
    enum End how;
    if (became("YARDO_PR2_OpenPort", YARDO_PR2_OpenPort(port), "the port cannot be opened") != done)
        return again;
    how = look();
    while (how == done && posted < lineCount)
        how = post();
    if (how == done)
        how = writeStripe();
    /* The customer gets the book back. Only a job that goes on keeps it. */
    if (how != again)
        (void)YARDO_PR2_SPB(takenSeconds);
    (void)YARDO_PR2_ClosePort();
    return how;
}

int main(int argc, char** argv) {
    enum End how = again;
    int i;

    if (argc != 2) {
        fprintf(stderr, "usage: teller PORT\n");
        return 2;
    }
    (void)passbook_set_write_limit(writeLimitMs); /* a printer that takes nothing does not hold the counter up */
    for (i = 0; i < tries && how == again; i++) {
        if (i > 0)
            sleep(1); /* the cable, the printer or the other program can need a moment */
        how = job(argv[1]);
    }
    printf("posted %d of %d lines", posted, (int)lineCount);
    if (how == doubtful)
        printf("; look at line %d", posted + 1);
    else if (how != done)
        printf("; %s", reason);
    printf("\n");
    return how == done ? 0 : how == doubtful ? 5 : 1;
}
