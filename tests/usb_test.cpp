// The driver on real libusb, and the virtual printer on an emulated bus. What no emulated printer can be brought to is
// answered in libusb's place.
#include <gtest/gtest.h>
#include <libusb.h>
#include <sys/time.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <optional>
#include <regex>
#include <thread>

#include "api/passbook.h"
#include "device/hidusbdriver.h"
#include "sim/program/running.h"
#include "sim/usb/usb_port.h"
#include "tests/day.h"
#include "tests/recorded.h"

namespace passbook::tests {
namespace {

struct Transfer {
    int result = 0, count = 0;
};

/// What the driver asked libusb for, and what it is to hear instead of libusb's own answer.
struct Libusb {
    std::string asked;       // contexts and devices
    int contexts = 0;        // that have not ended
    unsigned timeoutMs = 0;  // of the last transfer
    int init = 0, descriptor = 0, opening = 0;
    std::deque<int> claims;  // one a claim
    std::optional<Transfer> transfer;
} libusb;

}  // namespace

extern "C" {
int __real_libusb_init(libusb_context** made);
int __wrap_libusb_init(libusb_context** made) {
    libusb.asked += "init ";
    const int result = libusb.init != 0 ? libusb.init : __real_libusb_init(made);
    libusb.contexts += result == 0 ? 1 : 0;
    return result;
}

void __real_libusb_exit(libusb_context* ended);
void __wrap_libusb_exit(libusb_context* ended) {
    libusb.asked += "exit ";
    --libusb.contexts;
    __real_libusb_exit(ended);
}

libusb_device_handle* __real_libusb_open_device_with_vid_pid(libusb_context* within, uint16_t vendor, uint16_t product);
libusb_device_handle* __wrap_libusb_open_device_with_vid_pid(libusb_context* within, uint16_t vendor,
                                                             uint16_t product) {
    char id[16];
    (void)std::snprintf(id, sizeof id, "%04x:%04x ", vendor, product);
    libusb.asked += id;
    return libusb.opening != 0 ? nullptr : __real_libusb_open_device_with_vid_pid(within, vendor, product);
}

int __real_libusb_open(libusb_device* device, libusb_device_handle** opened);
int __wrap_libusb_open(libusb_device* device, libusb_device_handle** opened) {
    return libusb.opening != 0 ? libusb.opening : __real_libusb_open(device, opened);
}

int __real_libusb_claim_interface(libusb_device_handle* device, int number);
int __wrap_libusb_claim_interface(libusb_device_handle* device, int number) {
    if (libusb.claims.empty())
        return __real_libusb_claim_interface(device, number);
    const int result = libusb.claims.front();
    libusb.claims.pop_front();
    return result;
}

int __real_libusb_get_config_descriptor(libusb_device* device, uint8_t index, libusb_config_descriptor** configuration);
int __wrap_libusb_get_config_descriptor(libusb_device* device, uint8_t index,
                                        libusb_config_descriptor** configuration) {
    return libusb.descriptor != 0 ? libusb.descriptor
                                  : __real_libusb_get_config_descriptor(device, index, configuration);
}

decltype(libusb_bulk_transfer) __real_libusb_bulk_transfer;
int __wrap_libusb_bulk_transfer(libusb_device_handle* device, unsigned char endpoint, unsigned char* data, int length,
                                int* transferred, unsigned timeoutMs) {
    virtualClock.microseconds += 100'000;  // or a wait that only asks and never sleeps would have no end
    libusb.timeoutMs = timeoutMs;
    if (!libusb.transfer)
        return __real_libusb_bulk_transfer(device, endpoint, data, length, transferred, timeoutMs);
    if ((endpoint & LIBUSB_ENDPOINT_IN) != 0)
        std::memcpy(data, "0123456789", 10);
    *transferred = libusb.transfer->count;
    return libusb.transfer->result;
}
}

namespace {

class Usb : public Day {
 protected:
    void SetUp() override {
        const char* preload = std::getenv("LD_PRELOAD");
        ASSERT_NE(std::string(preload != nullptr ? preload : "").find("umockdev"), std::string::npos)
            << "run these under umockdev-wrapper, or they print on a real printer";
        Day::SetUp();
        libusb = {};
        g_timeout = 10;
    }
};

/// A printer on the bus that remembers what happened to it. When it goes, the driver must hold nothing any more.
class UsbPrinter {
 public:
    explicit UsbPrinter(const sim::UsbDevice& device = {}, const sim::Scenario& scenario = {})
        : printer_(scenario, [this](const sim::Event& event) { events_.push_back(sim::toJson(event)); }) {
        std::string error;
        port_ = sim::UsbPort::open(printer_, device, error);
        EXPECT_NE(port_, nullptr) << error;
    }
    ~UsbPrinter() { expectNothingHeld(); }
    sim::UsbPort* operator->() { return port_.get(); }

    Events takeEvents() {
        Events taken;
        port_->with([&] {
            printer_.printWaitingText();
            taken.swap(events_);
        });
        return taken;
    }
    /// The bus hears of a closed device a little later.
    void expectNothingHeld() {
        const auto held = [this] {
            const sim::UsbUse use = port_->use();
            return std::tuple(use.openDevices, use.pendingTransfers, use.claimed, libusb.contexts);
        };
        const std::tuple nothing(0, 0, false, 0);
        for (int i = 0; i < 1000 && held() != nothing; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_EQ(held(), nothing);
    }

 private:
    Events events_;
    sim::Printer printer_;
    std::unique_ptr<sim::UsbPort> port_;
};

/// Whether the printer can be used.
bool printsALine() {
    int done = 0;
    for (const Call& each : {call(YARDO_PR2_OpenPort, "USB"), Call(YARDO_PR2_LR), Call(YARDO_PR2_ClosePort)}) {
        done += each() == 0 ? 1 : 0;
        if (done == 0)
            record(inWords(outcomeNow()));
    }
    return done == 3;
}

/// A host with a timer of a kilohertz, whose handler interrupts the system's calls or has them made again.
class Signals {
 public:
    explicit Signals(int flags) {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        action.sa_flags = flags;
        EXPECT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
        every(1000);
    }
    ~Signals() { every(0); }

 private:
    static void every(suseconds_t microseconds) {
        const itimerval timer{{0, microseconds}, {0, microseconds}};
        EXPECT_EQ(setitimer(ITIMER_REAL, &timer, nullptr), 0);
    }
};

// The same happens on a line and on the USB, whatever signals the host gets meanwhile.
TEST_F(Usb, ADayIsTheSameOnEveryPort) {
    for (const auto family : {sim::Family::oli, sim::Family::oki}) {
        Events first;
        for (const auto& [usb, flags] : {std::pair(false, 0), {false, SA_RESTART}, {true, 0}, {true, SA_RESTART}}) {
            SCOPED_TRACE(testing::Message()
                         << "family " << static_cast<int>(family) << ", usb " << usb << ", flags " << flags);
            std::optional<sim::RunningPrinter> line;
            std::optional<UsbPrinter> device;
            if (usb)
                device.emplace(sim::UsbDevice{}, scenario(family));
            else
                line.emplace(scenario(family));
            {
                const Signals timer(flags);
                readSeconds_ = usb ? 10 : 1;
                EXPECT_TRUE(spend(steps(family, usb ? "USB" : line->name())));
            }
            if (line)
                line->stop();
            const auto events = usb ? device->takeEvents() : shown(line->takeEvents());
            if (first.empty())
                first = events;
            EXPECT_EQ(events, first);
        }
        EXPECT_GT(first.size(), 8U);
    }
}

TEST_F(Usb, TheListIsTriedInOrderAndTheRuleForUdevHasIt) {
    const std::string rules = readFile(PASSBOOK_SOURCE_DIR "/packaging/70-passbook-printers.rules");
    const std::regex line(R"re(\nATTR\{idVendor\}=="(\w+)", ATTR\{idProduct\}=="(\w+)", GROUP="lp", MODE="0660")re");
    std::vector<std::string> ids;
    for (std::sregex_iterator at(rules.begin(), rules.end(), line), end; at != end; ++at)
        ids.push_back(at->str(1) + ":" + at->str(2) + " ");
    ASSERT_EQ(ids.size(), 5U);
    const struct {
        sim::UsbDevice device;
        std::ptrdiff_t tried;
        bool known = true;
    } rows[] = {
        {{0x2086, 0x0011}, 1},
        {{0x2086, 0x0003}, 2},
        {{0x0B3C, 0x0001}, 3},
        {{0x067B, 0x2305}, 4},
        {{0x0FE6, 0x811E}, 5},
        {{0x0B3C, 0x0002}, 5, false},
        // It talks on the last endpoints, of whatever setting and type.
        {{.settings = {{0, 0, {{0x83}, {0x04}}}, {1, 0, {{0x82, 3}, {0x01}}}, {1, 1, {{0x81, 3}, {0x05}}}}}, 3},
    };
    for (const auto& row : rows) {
        libusb = {};
        UsbPrinter printer(row.device);
        EXPECT_EQ(printsALine(), row.known) << row.device.productId;
        EXPECT_EQ(libusb.asked, std::accumulate(ids.begin(), ids.begin() + row.tried, std::string("init ")) + "exit ");
    }
    const UsbPrinter printer;
    for (const int opening : {LIBUSB_ERROR_ACCESS, LIBUSB_ERROR_BUSY, LIBUSB_ERROR_IO}) {
        libusb.opening = opening;
        EXPECT_FALSE(printsALine());
    }
    EXPECT_EQ(PRSinit("usb"), -1);  // a serial line of that name
    EXPECT_EQ(OpenUSBDevice(nullptr), -1);
}

TEST_F(Usb, AnInterfaceIsClaimedSixTimesAtMost) {
    constexpr int busy = LIBUSB_ERROR_BUSY;
    const struct {
        const char* name;
        sim::UsbDevice device;
        int result, seconds;
        std::deque<int> claims = {};
        int descriptor = 0;
    } rows[] = {
        {"free", {}, 0, 0},
        {"held by the system's driver", {.kernelDriver = true}, 0, 1},
        {"held for 3 seconds", {.busyClaims = 3}, 0, 3},
        {"held for 5 seconds", {.busyClaims = 5}, 0, 5},
        {"held for 7 seconds", {.busyClaims = 7}, busy, 6},
        {"not to be claimed", {.claimError = EIO}, LIBUSB_ERROR_OTHER, 0},
        {"not for this user", {}, LIBUSB_ERROR_ACCESS, 0, {LIBUSB_ERROR_ACCESS}},
        {"gone", {}, LIBUSB_ERROR_NO_DEVICE, 0, {LIBUSB_ERROR_NO_DEVICE}},
        {"busy, then gone", {}, LIBUSB_ERROR_NO_DEVICE, 1, {busy, LIBUSB_ERROR_NO_DEVICE}},
        {"no descriptor", {}, LIBUSB_ERROR_IO, 1, {busy}, LIBUSB_ERROR_IO},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        UsbPrinter printer(row.device);
        virtualClock = {};
        libusb.claims = row.claims;
        libusb.descriptor = row.descriptor;
        {
            HidUsb device;
            EXPECT_EQ(device.OpenDevice(), row.result);
            EXPECT_EQ(virtualClock.sleptSeconds(), row.seconds);
            EXPECT_FALSE(printer->use().kernelDriver);
            EXPECT_EQ(device.CloseDevice(), row.result == 0 ? 0 : -1);
        }
        printer.expectNothingHeld();
        libusb.claims = row.claims;
        (void)printsALine();
        libusb.claims = {};
        libusb.descriptor = 0;
        EXPECT_EQ(printsALine(), row.device.claimError == 0);
    }
}

TEST_F(Usb, WhatATransferCameTo) {
    const std::string untouched(16, '.');
    const struct {
        const char* name;
        std::optional<Transfer> transfer;
        sim::UsbFault fault;  // of the printer, when libusb may answer itself
        int sent;             // what SendData makes of it, of 2 bytes
        std::string after;    // the buffer after GetData
        int read;             // what GetData makes of it
    } rows[] = {
        {"all", Transfer{0, 10}, {}, 2, "0123456789......", 10},
        {"short", Transfer{0, 1}, {}, 0, "0...............", 1},
        {"nothing", Transfer{}, {}, 0, untouched, 0},
        {"timed out in the middle", Transfer{LIBUSB_ERROR_TIMEOUT, 8}, {}, 0, untouched, 0},
        {"timed out at the end", Transfer{LIBUSB_ERROR_TIMEOUT, 10}, {}, 0, untouched, 0},
        {"a real answer", {}, sim::UsbFault::none, 2, "\x1BrP.............", 3},
        {"a real short one", {}, sim::UsbFault::cutShort, 0, untouched, 0},
        {"a stall", {}, sim::UsbFault::stall, 0, untouched, 0},
        {"a hang", {}, sim::UsbFault::hang, 0, untouched, 0},
        {"the cable out", {}, sim::UsbFault::unplug, 0, untouched, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        UsbPrinter printer;
        ASSERT_EQ(PRSinit("USB"), 0);
        dynamic_cast<HidUsb&>(*protocol).timeoutMs = row.fault == sim::UsbFault::hang ? 100 : 1000;
        ASSERT_EQ(SendData(octets("\x1Bj"), 2), 2);
        libusb.transfer = row.transfer;
        printer->setFault(row.fault, 1);
        std::string buffer = untouched;
        EXPECT_EQ(GetData(reinterpret_cast<unsigned char*>(buffer.data()), 16), row.read);
        EXPECT_EQ(buffer, row.after);
        printer->setFault(row.fault, 1);
        EXPECT_EQ(SendData(octets("\x1Bj"), 2), row.sent);
        record(row.name + std::string(": ") + std::to_string(protocol->taken) + ' ' +
               std::to_string(protocol->systemError));
        libusb.transfer.reset();
        unsigned char byte = 7;
        EXPECT_EQ(SendData(&byte, -1) + GetData(&byte, -1), 0);
        EXPECT_EQ(PRSexit(), 0);
    }
}

TEST_F(Usb, WithoutADeviceNothingIsTransferred) {
    libusb.init = LIBUSB_ERROR_OTHER;
    unsigned char byte = 7;
    HidUsb printer;  // there is no context to look for a device in
    EXPECT_EQ(
        (std::vector{printer.OpenDevice(), printer.ReadPipe(&byte), printer.WritePipe(&byte), printer.CloseDevice()}),
        (std::vector{-2, -32, -32, -1}));
    EXPECT_EQ(std::pair(printer.taken, printer.systemError), std::pair(0, 0));
    EXPECT_EQ(libusb.asked, "init ");
}

TEST_F(Usb, TheTimeOutIsThatOfTheMomentOfOpening) {
    constexpr std::pair<int, unsigned> rows[] = {{0, 0}, {2'147'483, 2'147'483'000}, {2'147'484, 2'147'483'647}};
    for (const auto& [seconds, timeoutMs] : rows) {
        UsbPrinter printer;
        g_timeout = seconds;
        ASSERT_EQ(PRSinit("USB"), 0);
        g_timeout = 77;
        EXPECT_EQ(SendData(octets("\n"), 1), 1);
        EXPECT_EQ(libusb.timeoutMs, timeoutMs);
        EXPECT_EQ(PRSexit(), 0);
    }
}

}  // namespace
}  // namespace passbook::tests
