// Bookings in a passbook, line by line, in C++. After every failure it decides by what became of the call.
//
//     teller_cpp PORT
//
// It does what examples/c/teller.c does, and says the same. The rule, and what it prints, stand there.
#include <array>
#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>
#include <thread>

#include "passbook.h"

namespace {

struct Booking {
    const char *date, *text, *amount, *balance;
};

constexpr std::array bookings = {
    Booking{"2026-01-05", "Opening", "500.00", "500.00"},
    Booking{"2026-01-31", "Salary", "12,480.00", "12,980.00"},
    Booking{"2026-02-03", "ATM 0417", "-2,000.00", "10,980.00"},
    Booking{"2026-02-14", "Transfer", "-520.00", "10,460.00"},
    Booking{"2026-02-28", "Salary", "12,480.00", "22,940.00"},
    Booking{"2026-03-09", "Utilities", "-318.65", "22,621.35"},
    Booking{"2026-03-21", "Interest", "17.42", "22,638.77"},
    Booking{"2026-04-02", "POS 8831", "-1,299.00", "21,339.77"},
    Booking{"2026-04-30", "Salary", "12,480.00", "33,819.77"},
    Booking{"2026-05-06", "Deposit", "-20,000.00", "13,819.77"},
};
constexpr std::string_view account = "6222020200112233";
constexpr int xMm = 12;
constexpr int firstLineMm = 20;
constexpr int lineMm = 7;
constexpr int readySeconds = 2;
constexpr int writeLimitMs = 10000;
constexpr int takenSeconds = 30;
constexpr int tries = 3;

/// How a call or a part of the job ended.
enum class How { done, again, stopped, doubtful };

struct End {
    How how = How::done;
    const char* why = "";
    [[nodiscard]] bool isDone() const { return how == How::done; }
};

/// Decides by what became of a call. With `why` for a reason, if it is not done.
[[nodiscard]] End became(const char* function, int result, const char* why) {
    struct passbook_outcome outcome = {};
    outcome.size = sizeof outcome;
    if (::passbook_outcome(&outcome) != 0)
        return {How::doubtful, why};
    if (result >= 0 && outcome.failed_transfers == 0 && outcome.missing_answers == 0)
        return {};
    const passbook_meaning* meaning = result < 0 ? passbook_explain(function, result) : nullptr;
    std::fprintf(stderr, "teller: %s: result %d: %s\n", function, result,
                 outcome.message[0] == '\0' && meaning != nullptr ? meaning->cause : outcome.message);
    if (outcome.ink == PASSBOOK_INK_SENT && outcome.in_place == 1)
        return {};
    if (outcome.ink != PASSBOOK_INK_NONE)
        return {How::doubtful, why};
    // Nothing is on the paper. A line that broke can be opened anew; what else is wrong would be so again.
    return {outcome.failed_transfers > 0 ? How::again : How::stopped, why};
}

/// The open port. It is closed with the end of the scope.
class Port {
 public:
    explicit Port(const char* name)
        : opened_(became("YARDO_PR2_OpenPort", YARDO_PR2_OpenPort(name), "the port cannot be opened")) {}
    ~Port() {
        if (opened_.isDone())
            (void)YARDO_PR2_ClosePort();
    }
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    [[nodiscard]] bool isOpen() const { return opened_.isDone(); }
    [[nodiscard]] const char* why() const { return opened_.why; }

 private:
    End opened_;
};

/// Asks once more when there is no answer: it can be late. What the second answer is counts.
[[nodiscard]] End ask(const char* function, int (*question)(), int& answer) {
    constexpr const char* why = "the printer does not answer";
    const End first = became(function, answer = question(), why);
    return first.how != How::stopped ? first : became(function, answer = question(), why);
}

[[nodiscard]] End askPaper() {
    int paper = 0;
    const End end = ask("YARDO_PR2_GetPaperStatus", YARDO_PR2_GetPaperStatus, paper);
    return !end.isDone() || paper == PASSBOOK_PAPER_IN_PLACE ? end
                                                             : End{How::stopped, "there is no book in the printer"};
}

[[nodiscard]] End readStripe(std::string& stripe, const char* why) {
    std::array<char, 64> buffer{};
    const End end = became("YARDO_PR2_MSR", YARDO_PR2_MSR(0, buffer.data(), int{buffer.size()}), why);
    stripe = buffer.data();
    return end;
}

/// Looks before anything is printed: is the printer ready, is there a book, and whose?
[[nodiscard]] End look() {
    constexpr const char* broken = "the line to the printer is broken";
    End end = became("YARDO_PR2_InitPrinter", YARDO_PR2_InitPrinter(PASSBOOK_RESET_ALL, readySeconds), broken);
    if (end.how == How::stopped) {
        int status = 0;
        end = ask("YARDO_PR2_GetPrinterStatus", YARDO_PR2_GetPrinterStatus, status);
        return end.isDone() ? End{How::stopped, "the printer is not ready"} : end;
    }
    if (end.isDone())
        end = became("YARDO_PR2_InsertPaper", YARDO_PR2_InsertPaper(), broken);
    if (end.isDone())
        end = askPaper();
    std::string stripe;
    if (end.isDone())
        end = readStripe(stripe, "the stripe cannot be read");
    return !end.isDone() || stripe == account ? end : End{How::stopped, "it is the book of another account"};
}

/// Prints one line.
[[nodiscard]] End post(const Booking& booking, int yMm) {
    End end = askPaper();
    if (!end.isDone())
        return end;
    std::array<char, 64> line{};
    (void)std::snprintf(line.data(), line.size(), "%s  %-12s%12s%12s", booking.date, booking.text, booking.amount,
                        booking.balance);
    end = became("YARDO_PR2_PrintData", YARDO_PR2_PrintData(PASSBOOK_MILLIMETRES, xMm, yMm, line.data(), -1),
                 "the line cannot be printed");
    if (!end.isDone())
        return end;
    // That it was handed over does not say that it is printed. The printer says so.
    int status = 0;
    end = ask("YARDO_PR2_GetPrinterStatus", YARDO_PR2_GetPrinterStatus, status);
    return end.isDone() && status == PASSBOOK_PRINTER_READY ? end : End{How::doubtful, ""};
}

/// Writes the stripe. The printer does not confirm that, so it is read back. Nothing can be printed twice by it.
[[nodiscard]] End writeStripe() {
    constexpr const char* why = "the stripe is not written";
    End end{How::stopped, why};
    for (int i = 0; i < tries && end.how == How::stopped; ++i) {
        end = became("YARDO_PR2_MSW", YARDO_PR2_MSW(0, account.data(), int{account.size()}), why);
        std::string stripe;
        if (end.isDone())
            end = readStripe(stripe, why);
        if (end.isDone() && stripe != account)
            end = {How::stopped, why};
    }
    return end;
}

/// Goes on behind the lines that are posted.
[[nodiscard]] End job(const char* portName, std::size_t& posted) {
    const Port port(portName);
    if (!port.isOpen())
        return {How::again, port.why()};
    End end = look();
    while (end.isDone() && posted < bookings.size()) {
        end = post(bookings.at(posted), firstLineMm + static_cast<int>(posted) * lineMm);
        posted += end.isDone() ? 1 : 0;
    }
    if (end.isDone())
        end = writeStripe();
    // The customer gets the book back. Only a job that goes on keeps it.
    if (end.how != How::again)
        (void)YARDO_PR2_SPB(takenSeconds);
    return end;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: teller_cpp PORT\n", stderr);
        return 2;
    }
    (void)passbook_set_write_limit(writeLimitMs);  // a printer that takes nothing does not hold the counter up
    std::size_t posted = 0;
    End end = job(argv[1], posted);
    for (int i = 1; i < tries && end.how == How::again; ++i) {
        std::this_thread::sleep_for(
            std::chrono::seconds(1));  // the cable, the printer or the other program can need it
        end = job(argv[1], posted);
    }
    std::string said = "posted " + std::to_string(posted) + " of " + std::to_string(bookings.size()) + " lines";
    if (end.how == How::doubtful)
        said += "; look at line " + std::to_string(posted + 1);
    else if (!end.isDone())
        said += std::string("; ") + end.why;
    std::puts(said.c_str());
    return end.isDone() ? 0 : end.how == How::doubtful ? 5 : 1;
}
