// A host that gets signals, on the library as it is installed and on the real clock: by itself, for nothing here is
// wrapped.
#include <gtest/gtest.h>
#include <sys/time.h>

#include <chrono>
#include <csignal>

#include "api/passbook.h"
#include "sim/program/running.h"

namespace passbook::tests {
namespace {

double secondsOf(int (*job)(), int result) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(job(), result);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(Signals, NeitherShortenPausesNorProlongReads) {
    sim::RunningPrinter printer({.answers = {{.how = sim::AnswerTrouble::How::missing}}});
    ASSERT_EQ(YARDO_PR2_OpenPort(printer.name().c_str()), 0);
    for (const int flags : {0, SA_RESTART}) {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        action.sa_flags = flags;
        ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
        const itimerval timer{{0, 10'000}, {0, 10'000}};
        ASSERT_EQ(setitimer(ITIMER_REAL, &timer, nullptr), 0);
        // A read and a pause, a second each; three reads, and as many of the drain behind an answer that did not come.
        EXPECT_NEAR(secondsOf([] { return YARDO_PR2_InitPrinter(1, 1); }, -30), 2, 0.9) << "flags " << flags;
        EXPECT_NEAR(secondsOf(YARDO_PR2_GetPaperStatus, -20), flags == 0 ? 3 : 4, 0.9) << "flags " << flags;
    }
    const itimerval off{};
    EXPECT_EQ(setitimer(ITIMER_REAL, &off, nullptr), 0);
    EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
}

}  // namespace
}  // namespace passbook::tests
