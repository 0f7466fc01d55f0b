// Whatever goes wrong between the driver and its printer, in the system or with the memory: the host gets a documented
// result in time, nothing is left behind, and the next job works. Every fault meets every transfer and every call of a
// day, on every port; PASSBOOK_SWEEP=1 has all of them tried, else it is a sample.
#include <gtest/gtest.h>
#include <libusb.h>

#include <fcntl.h>
#include <malloc.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <regex>
#include <thread>

#include "device/outcome.h"
#include "sim/program/running.h"
#include "tests/day.h"
#include "tests/failing_line.h"
#include "tests/recorded.h"

#if defined(__SANITIZE_ADDRESS__)
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace passbook::tests {
namespace {

/// What the driver holds of a USB that has one printer, at the end of the current line.
struct Usb {
    int contexts = 0, devices = 0, claims = 0, descriptors = 0;
    bool stalled = false;
    char context = 0, device = 0;
} usb;

}  // namespace

extern "C" {
int __wrap_libusb_init(libusb_context** made) {
    *made = reinterpret_cast<libusb_context*>(&usb.context);
    ++usb.contexts;
    return 0;
}
void __wrap_libusb_exit(libusb_context*) {
    --usb.contexts;
}
libusb_device_handle* __wrap_libusb_open_device_with_vid_pid(libusb_context*, uint16_t, uint16_t product) {
    if (product != 0x0003)
        return nullptr;
    ++usb.devices;
    return reinterpret_cast<libusb_device_handle*>(&usb.device);
}
void __wrap_libusb_close(libusb_device_handle*) {
    --usb.devices;
}
int __wrap_libusb_claim_interface(libusb_device_handle*, int) {
    ++usb.claims;
    return 0;
}
int __wrap_libusb_release_interface(libusb_device_handle*, int) {
    --usb.claims;
    return 0;
}
libusb_device* __wrap_libusb_get_device(libusb_device_handle*) {
    return nullptr;
}
int __wrap_libusb_get_config_descriptor(libusb_device*, uint8_t, libusb_config_descriptor** configuration) {
    static libusb_endpoint_descriptor endpoints[2];
    static libusb_interface_descriptor setting;
    static const libusb_interface interface { &setting, 1 };
    static libusb_config_descriptor whole;
    endpoints[0].bEndpointAddress = LIBUSB_ENDPOINT_IN;
    setting.endpoint = endpoints;
    setting.bNumEndpoints = 2;
    whole.interface = &interface;
    whole.bNumInterfaces = 1;
    *configuration = &whole;
    ++usb.descriptors;
    return 0;
}
void __wrap_libusb_free_config_descriptor(libusb_config_descriptor*) {
    --usb.descriptors;
}
int __wrap_libusb_clear_halt(libusb_device_handle*, unsigned char) {
    usb.stalled = false;
    return 0;
}
int __wrap_libusb_bulk_transfer(libusb_device_handle*, unsigned char endpoint, unsigned char* data, int length,
                                int* transferred, unsigned timeoutMs) {
    const Spared spared;
    if (usb.stalled)
        return LIBUSB_ERROR_PIPE;
    DeviceFile& line = *DeviceFile::current;
    const bool in = (endpoint & LIBUSB_ENDPOINT_IN) != 0;
    auto* const bytes = reinterpret_cast<char*>(data);
    const auto size = static_cast<std::size_t>(length);
    const int ready = in ? line.poll(static_cast<int>(timeoutMs)) : 1;
    const ssize_t count = ready <= 0 ? ready : in ? line.read(bytes, size) : line.write({bytes, size});
    *transferred = static_cast<int>(std::max<ssize_t>(count, 0));
    usb.stalled = count < 0 && errno == EINTR;
    return usb.stalled                             ? LIBUSB_ERROR_PIPE
           : count < 0                             ? (errno == ENODEV ? LIBUSB_ERROR_NO_DEVICE : LIBUSB_ERROR_IO)
           : ready == 0 || (!in && count < length) ? LIBUSB_ERROR_TIMEOUT
                                                   : 0;
}
}

namespace {

/// PASSBOOK_SWEEP has everything tried, else it is a sample.
const bool everything = std::getenv("PASSBOOK_SWEEP") != nullptr;
const int stride = everything ? 1 : 17;

struct Port {
    const char *name, *device;
};
constexpr Port ports[] = {{"line", "/dev/line"}, {"LPT1", "/dev/lp0"}, {"USB", "/dev/usb"}};
constexpr sim::Family families[] = {sim::Family::oli, sim::Family::oki};

class Sweep : public Day {
 protected:
    /// A day as it was.
    struct Done {
        bool good = false;
        int transfers = 0, failed = 0;
        std::ptrdiff_t blocks = 0;  // that the driver has kept
        std::string sent;
        std::vector<std::tuple<std::string, Events, std::vector<std::string>>> steps;
        std::vector<std::string> told;  // what a host is, at each step
    };

    void SetUp() override {
        Day::SetUp();
        (void)signal(SIGXFSZ, SIG_IGN);  // the call that goes beyond a limit fails
        (void)passbook_set_progress(
            [](long long, long long, void*) {
                return !failingCalls.fails("progress") ? 0 : failingCalls.nth % 2 == 0 ? 1 : passbook_cancel();
            },
            nullptr);
        (void)passbook_set_trace(
            [](const passbook_trace_event* event, void* self) {
                const Spared spared;
                EXPECT_TRUE(event->microseconds > 0 && event->size == sizeof *event && event->function[0] != 0);
                static_cast<Sweep*>(self)->trace_ += inWords(*event) + "; ";
            },
            this);
    }
    void TearDown() override {
        (void)passbook_set_progress(nullptr, nullptr);
        (void)passbook_set_trace(nullptr, nullptr);
        Day::TearDown();
    }

    /// Spends a day. What no fault has met yet must be as it was on the first one.
    Done day(sim::Family family, const Port& port, const FailingLine::Plan& plan = {}, const FailingCalls& calls = {},
             const Done* first = nullptr) {
        Done done;
        FailingLine line(port.device, scenario(family), plan);
        redirectedPaths["/dev/parallel/"] = redirectedPaths["/dev/printers"] = "";
        line.stalls = port.name == std::string("USB");
        readSeconds_ = line.stalls && family == sim::Family::oli ? 10 : 1;
        line.lateness *= readSeconds_;
        failingCalls = calls;
        impatient_ = calls.name == "progress";
        const auto files = openFiles(), threads = entries("/proc/self/task");
        int met = 0;
        done.good = spend(steps(family, port.name), [&](const Step& step) {
            const Events events = line.takeEvents();
            const struct passbook_outcome outcome = outcomeNow();
            SCOPED_TRACE(std::string(step.name) + ": " + outcome.message);
            EXPECT_EQ(std::pair(outcome.transfers, outcome.failed_transfers),
                      std::pair(std::exchange(line.writes, 0), std::exchange(line.failed, 0)));
            if (!line.lied)
                truths_[{family, port.name}].hold(step, events);
            done.steps.emplace_back(outcome.function, events, outputs());
            done.told.push_back(inWords(outcome) + " | " + shortened(std::exchange(trace_, "")));
            done.failed = failingCalls.failed;
            const int before = std::exchange(met, line.met + done.failed);
            tried_[{trouble_, port.name, outcome.function}] += met > before ? 1 : 0;
            if (first == nullptr || line.lied)
                return;
            const auto& [function, shown, given] = first->steps[done.steps.size() - 1];
            const auto& now = std::get<2>(done.steps.back());
            EXPECT_TRUE(met > 0 || (step.result == step.good && done.steps.back() == std::tie(function, shown, given)));
            if (outcome.failed_transfers > 0)
                return;
            for (std::size_t i = 1; i < given.size(); ++i)
                EXPECT_TRUE(now[i] == "none" || now[i] == given[i])
                    << "half a file: " << now[i].size() << " bytes of " << given[i].size();
            // The first fault of the day is told, or nothing came of it.
            EXPECT_TRUE(before > 0 || step.result != step.good || outcome.missing_answers > 0 ||
                        (events == shown && now[0] == given[0]));
        });
        done.transfers = line.transfers;
        done.sent = line.sent;
        done.blocks = AnyAllocation::blocks();
        EXPECT_EQ(std::pair(openFiles(), entries("/proc/self/task")), std::pair(files, threads));
        EXPECT_EQ(std::tuple(usb.contexts, usb.devices, usb.claims, usb.descriptors), std::tuple(0, 0, 0, 0));
        EXPECT_TRUE(first == nullptr || warming_ || done.blocks == first->blocks) << done.blocks;
        return done;
    }
    /// The second day: on the first one, libraries keep what they need for good.
    Done firstDay(sim::Family family, const Port& port) {
        findTrack();
        (void)day(family, port);
        const Done first = day(family, port);
        EXPECT_TRUE(first.good);
        return first;
    }

    static void TearDownTestSuite() {
        for (const auto& [key, count] : tried_)
            if (const auto& [fault, port, function] = key; everything && count > 0)
                std::printf("tried,%s,%s,%s,%d\n", fault.c_str(), port.c_str(), function.c_str(), count);
    }

    static inline std::map<std::tuple<std::string, std::string, std::string>, int> tried_;  // fault, port, function
    std::string trouble_, trace_;
    bool warming_ = false;
    std::map<std::pair<sim::Family, std::string>, Truth> truths_;
};

std::size_t heapBytes() {
#if defined(__SANITIZE_ADDRESS__)
    return __sanitizer_get_current_allocated_bytes();
#else
    return mallinfo2().uordblks;
#endif
}

class EveryFault : public Sweep, public ::testing::WithParamInterface<std::tuple<sim::Family, Port>> {};

TEST_P(EveryFault, OfADayIsToldAndTheNextJobWorks) {
    const auto [family, port] = GetParam();
    const Done first = firstDay(family, port);
    for (std::size_t i = 0; i < first.told.size() && !everything; ++i)
        record(first.told[i]);
    for (const Trouble& each : troubles()) {
        trouble_ = each.name;
        endless_ = each.fault == FailingLine::junk;
        const bool transfer = each.fault != FailingLine::none;
        for (int at = 1, end = 1; at <= end && !HasFailure(); at += stride) {
            SCOPED_TRACE(trouble_ + ' ' + std::to_string(at));
            FailingCalls calls = each.calls;
            calls.nth = at;
            FailingLine::Plan plan;
            for (int i = 0; transfer && i < each.times; ++i)
                plan[at + i] = each.fault;
            const Done bad = day(family, port, plan, calls, &first);
            // How often memory is asked for is a matter of the libraries, too.
            int others = each.calls.name == "allocation" || everything ? 3 : 0;
            for (std::size_t i = 0; i < bad.told.size() && others < 3; ++i)
                if (bad.told[i] != first.told[i] && ++others > 0)
                    record(trouble_ + ' ' + std::to_string(at) + ": " + bad.told[i]);
            EXPECT_TRUE(each.fault != FailingLine::interrupted || port.name == std::string("USB") || bad.good);
            end = transfer ? first.transfers : bad.failed > 0 ? at + stride : 0;
            const Done next = day(family, port, {}, {}, &first);
            EXPECT_TRUE(next.good);
            EXPECT_EQ(next.sent, first.sent);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Days, EveryFault, testing::Combine(testing::ValuesIn(families), testing::ValuesIn(ports)),
                         [](const auto& row) {
                             return (std::get<0>(row.param) == sim::Family::oli ? "oli_" : "oki_") +
                                    std::string(std::get<1>(row.param).name);
                         });

TEST_F(Sweep, HasEveryFunction) {
    std::set<std::string> swept, exported;
    for (const auto family : families) {
        const Done first = firstDay(family, ports[0]);
        for (const auto& [function, events, outputs] : first.steps)
            swept.insert(function);
        for (const Port& port : ports)
            EXPECT_EQ(firstDay(family, port).sent, first.sent) << port.name;
    }
    const std::string header = readFile(PASSBOOK_SOURCE_DIR "/api/passbook.h");
    const std::regex name(R"re(PASSBOOK_API int ((?:YARDO|PT|passbook_oki|passbook_print)_\w+)\()re");
    for (std::sregex_iterator at(header.begin(), header.end(), name), none; at != none; ++at)
        exported.insert(at->str(1));
    EXPECT_EQ(swept, exported);
}

// Families, ports and faults as they come, for a day of the clock and more.
TEST_F(Sweep, ALongRunStaysAsItBegan) {
    const char* const given = std::getenv("PASSBOOK_SEED");
    const unsigned seed = given != nullptr ? static_cast<unsigned>(std::atoi(given)) : 1;
    std::printf("seed %u\n", seed);
    trouble_ = "long run";
    std::minstd_rand random(seed);
    const auto pick = [&](int from, int to) { return std::uniform_int_distribution<int>(from, to)(random); };
    std::map<std::pair<sim::Family, const char*>, Done> firsts;
    for (const auto family : families)
        for (const Port& port : ports)
            firsts[{family, port.name}] = firstDay(family, port);
    const auto all = troubles();
    const std::size_t wanted = everything ? 10'000 : 1000;
    const std::int64_t began = virtualClock.microseconds;
    std::size_t jobs = 0, good = 0, bytes = 0;
    warming_ = true;
    for (int days = 0; (jobs < wanted || virtualClock.microseconds - began < 86'400'000'000) && !HasFailure(); ++days) {
        const auto family = families[pick(0, 1)];
        const Port& port = ports[pick(0, 2)];
        const Done& first = firsts.at({family, port.name});
        FailingLine::Plan plan;
        FailingCalls calls;
        for (int faults = pick(-2, 4); faults > 0; --faults) {
            const Trouble& each = all[static_cast<std::size_t>(pick(0, static_cast<int>(all.size()) - 1))];
            if (each.fault != FailingLine::none)
                plan[pick(1, first.transfers)] = each.fault;
            else
                (calls = each.calls).nth = pick(1, 60);
        }
        SCOPED_TRACE("seed " + std::to_string(seed) + ", day " + std::to_string(days));
        endless_ =
            std::any_of(plan.begin(), plan.end(), [](const auto& each) { return each.second == FailingLine::junk; });
        const Done done = day(family, port, plan, calls, &first);
        EXPECT_TRUE(done.good || !plan.empty() || calls.nth > 0);
        jobs += done.steps.size();
        good += done.good ? 1 : 0;
        // Libraries keep something for good when it fails for the first time, too.
        if (std::exchange(warming_, jobs <= wanted / 5) && !warming_) {
            bytes = heapBytes();
            for (auto& [_, one] : firsts)
                one.blocks = done.blocks;
        }
        virtualClock.microseconds += std::int64_t{pick(0, 1200)} * 1'000'000;
    }
    EXPECT_LT(heapBytes(), bytes + 65'536);
    std::printf("%zu jobs, %zu good days, %lld hours\n", jobs, good,
                static_cast<long long>((virtualClock.microseconds - began) / 3'600'000'000));
}

/// What a host has still to do before it is killed.
struct Countdown {
    int left;
    static void next(const passbook_trace_event*, void* self) {
        if (--static_cast<Countdown*>(self)->left == 0)
            (void)raise(SIGKILL);
    }
};

/// How the line is set. Another program opens it and closes it, until the printer knows that nobody is there any more.
auto settingsOf(sim::RunningPrinter& printer) {
    termios now{};
    std::string last;
    const auto awaits = [&](const char* what) {
        for (int wait = 0; wait < 200 && last != what; ++wait) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            for (const nlohmann::json& each : shown(printer.takeEvents()))
                last = each.at("event") == "host" ? std::string(each.at("what")) : last;
        }
        return last == what;
    };
    for (int tries = 0; tries < 50 && last != "closed"; ++tries) {  // openings at one moment can be told of as one
        const int line = ::open(("/dev/" + printer.name()).c_str(), O_RDWR | O_NOCTTY);
        EXPECT_EQ(tcgetattr(line, &now), 0);
        (void)awaits("opened");
        (void)close(line);
        (void)awaits("closed");
    }
    EXPECT_EQ(last, "closed");
    return std::tuple(cfgetospeed(&now), now.c_cflag & (CSIZE | CSTOPB | PARENB), now.c_lflag & (ICANON | ECHO | ISIG),
                      now.c_cc[VMIN], now.c_cc[VTIME]);
}

TEST_F(Sweep, AHostThatIsKilledLeavesAPortThatWorks) {
    for (const auto family : families) {
        sim::Scenario equipped = scenario(family);
        equipped.hostEvents = true;
        bool killed = true;
        std::multiset<std::string> wanted;
        for (int at = 1; killed && !HasFailure(); at += stride) {
            SCOPED_TRACE("killed at event " + std::to_string(at));
            int channel[2];
            ASSERT_EQ(pipe(channel), 0);
            const pid_t host = fork();  // as long as there is no other thread
            if (host == 0) {
                char port[64] = "";
                Countdown countdown{at};
                (void)passbook_set_trace(Countdown::next, &countdown);
                if (::read(channel[0], port, sizeof port - 1) > 0)
                    for (const Step& each : steps(family, port))
                        (void)each.call();
                _exit(0);
            }
            sim::RunningPrinter printer(equipped);
            const auto before = settingsOf(printer);
            ASSERT_GT(::write(channel[1], printer.name().data(), printer.name().size()), 0);
            int status = 0;
            ASSERT_EQ(waitpid(host, &status, 0), host);
            killed = WIFSIGNALED(status);
            EXPECT_TRUE(killed || at > 100);
            (void)close(channel[0]);
            (void)close(channel[1]);
            clean(true);
            const auto left = settingsOf(printer);
            EXPECT_TRUE(left == before ||
                        left == std::tuple(speed_t{B9600}, tcflag_t{CS8}, tcflag_t{0}, cc_t{0}, cc_t{10}));
            // As the header has it: nobody knows whether the printer waits for stripe data or for columns of a picture.
            const std::string rest = (family == sim::Family::oli ? "\x1D\x1B\\" : "") + std::string(3 * 60, '\0');
            const std::vector<int> ended = {YARDO_PR2_OpenPort(printer.name().c_str()),
                                            YARDO_PR2_Command(octets(rest.data()), static_cast<int>(rest.size())),
                                            YARDO_PR2_ClosePort()};
            EXPECT_EQ(ended, std::vector(3, 0));
            (void)printer.takeEvents();
            (void)spend(steps(family, printer.name()), [](const Step& each) {
                EXPECT_EQ(each.result, each.good) << each.name << ": " << outcomeNow().message;
            });
            printer.stop();
            std::multiset<std::string> texts;
            for (const nlohmann::json& each : shown(printer.takeEvents()))
                if (each.at("event") == "text")
                    texts.insert(std::string(each.at("text")));
            if (wanted.empty())
                wanted = texts;  // the first host was killed before it had sent anything
            EXPECT_TRUE(std::includes(texts.begin(), texts.end(), wanted.begin(), wanted.end()));
        }
    }
}

}  // namespace
}  // namespace passbook::tests
