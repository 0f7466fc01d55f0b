// The driver on real libusb, and the virtual printer on an emulated bus.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <thread>

#include "api/passbook.h"
#include "device/hidusbdriver.h"
#include "sim/port.h"
#include "sim/usb.h"
#include "tests/support.h"
#include "tests/usb_support.h"

namespace passbook::tests {
namespace {

/// A printer that remembers what happened to it.
struct LoggingPrinter {
    std::vector<std::string> events;
    sim::Printer printer;

    explicit LoggingPrinter(sim::Scenario scenario = {})
        : printer(std::move(scenario), [this](const nlohmann::json& event) { events.push_back(event.dump()); }) {}
};

class UsbPrinter {
 public:
    explicit UsbPrinter(const sim::UsbDevice& device = {}, sim::Scenario scenario = {}) : logging_(std::move(scenario)) {
        std::string error;
        port_ = sim::UsbPort::open(logging_.printer, device, error);
        EXPECT_NE(port_, nullptr) << error;
    }
    sim::UsbPort* operator->() { return port_.get(); }

    std::vector<std::string> takeEvents() {
        std::vector<std::string> taken;
        port_->with([&] { taken.swap(logging_.events); });
        return taken;
    }

    /// Nothing is held any more, neither by the driver nor on the bus. The bus hears of a closed device a
    /// little later.
    void expectNothingHeld() {
        for (int i = 0; i < 1000 && port_->use().openDevices > 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        const sim::UsbUse use = port_->use();
        EXPECT_EQ(use.openDevices, 0);
        EXPECT_EQ(use.pendingTransfers, 0);
        EXPECT_FALSE(use.claimed);
        EXPECT_EQ(libusbCalls.handles, 0);
        EXPECT_EQ(libusbCalls.contexts, 0);
    }

 private:
    LoggingPrinter logging_;
    std::unique_ptr<sim::UsbPort> port_;
};

class Usb : public ::testing::Test {
 protected:
    void SetUp() override {
        const char* preload = std::getenv("LD_PRELOAD");
        ASSERT_NE(std::string(preload != nullptr ? preload : "").find("umockdev"), std::string::npos)
            << "run these under umockdev-wrapper, or they print on a real printer";
        virtualClock = {};
        libusbCalls = {};
        Picture picture(40, 60);
        for (int y = 0; y < picture.height; ++y) picture.at(y % picture.width, y) = picture.at(0, y) = 0;
        writeFile(path_, picture.bmp(24, true));
    }
    void TearDown() override { EXPECT_EQ(protocol, nullptr); }

    /// A short job. Each call's result must be one that the header lists for it.
    std::vector<int> printPage() {
        char stripe[64];
        const struct {
            const char* name;
            std::function<int()> call;
            std::set<int> documented;
        } calls[] = {
            {"init", [] { return YARDO_PR2_InitPrinter(2, 3); }, {0, -30}},
            {"insert", YARDO_PR2_InsertPaper, {0, -3}},
            {"format", [] { return YARDO_PR2_SetFormat(12, 1, 1, 1); }, {0, -3}},
            {"text", [] { return YARDO_PR2_PrintData(0, 10, 10, "存款 100.00", -1); }, {0, -3}},
            {"picture", [&] { return YARDO_PrintBmpOLI(path_.c_str(), false, 20, 20); }, {0, -3}},
            {"paper", YARDO_PR2_GetPaperStatus, {1, 2, 3, 4, -3, -20}},
            {"stripe write", [] { return YARDO_PR2_MSW(0, "12=34", 5); }, {0, -3}},
            {"stripe read", [&] { return YARDO_PR2_MSR(0, stripe, sizeof stripe); }, {0, -3, -4}},
            {"removal", [] { return YARDO_PR2_SPB(4); }, {0, -3, -20}},
        };
        std::vector<int> results;
        for (const auto& each : calls) {
            results.push_back(each.call());
            EXPECT_TRUE(each.documented.contains(results.back())) << each.name << ": " << results.back();
        }
        return results;
    }
    const std::vector<int> good = {0, 0, 0, 0, 0, 4, 0, 0, 0};

    /// The same over the port "USB", opened and closed. `timeoutMs` is short where a transfer shall hang.
    std::vector<int> printPageOverUsb(int timeoutMs = 5000) {
        if (YARDO_PR2_OpenPort("USB") != 0) return {};
        dynamic_cast<HidUsb&>(*protocol).timeoutMs = timeoutMs;
        std::vector<int> results = printPage();
        EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
        return results;
    }

    /// An answer that never came is remembered beyond the port, and costs the next query a whole time-out.
    static void forgetLostAnswers() {
        auto* port = new ScriptedPort;
        port->replies = {"", bytes("00 00 00 43 00 00")};
        installPort(port);
        ASSERT_EQ(YARDO_PR2_OpenPort("scripted"), 0);
        EXPECT_EQ(YARDO_PR2_GetPaperStatus(), 4);
        EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
    }

    TemporaryDirectory directory_;
    std::string path_ = directory_.file("a.bmp");
};

/// What a job does to a printer on a serial line.
std::vector<std::string> eventsOverSerial(const sim::Scenario& scenario, const std::function<void(const char*)>& job) {
    LoggingPrinter logging(scenario);
    std::string error;
    const auto line = sim::PtyPort::open(logging.printer, error);
    EXPECT_NE(line, nullptr) << error;
    std::atomic<bool> stop = false;
    std::thread thread([&] {
        while (!stop && line->serve(20)) {
        }
    });
    job(line->name().c_str());
    stop = true;
    thread.join();
    EXPECT_TRUE(line->serve(20));  // what was on its way
    return logging.events;
}

TEST_F(Usb, APageIsThatOfASerialLine) {
    const auto oli = [this](const char* port) {
        EXPECT_EQ(YARDO_PR2_OpenPort(port), 0);
        EXPECT_EQ(printPage(), good);
        EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
    };
    const auto oki = [this](const char* port) {  // each call opens and closes; a time-out of 0 is none
        EXPECT_EQ(PT_PrintTxtStream(port, 0, 3, 100, 50, "对账单\nStatement\n", -1), 0);
        EXPECT_EQ(PT_PrintImageFile(port, 0, 0, 100, 50, 0, path_.c_str()), 0);
        EXPECT_EQ(PT_Eject(port, 0), 0);
        g_timeout = 10;
    };
    const std::pair<sim::Family, std::function<void(const char*)>> rows[] = {{sim::Family::kOli, oli}, {sim::Family::kOki, oki}};
    for (const auto& [family, job] : rows) {
        const sim::Scenario scenario{.family = family};
        const auto overSerial = eventsOverSerial(scenario, job);
        UsbPrinter printer({}, scenario);
        job("USB");
        printer.expectNothingHeld();
        EXPECT_EQ(printer.takeEvents(), overSerial);
        EXPECT_GT(overSerial.size(), 8U);
    }
}

TEST_F(Usb, AnswersInPiecesAreReadWhole) {
    sim::Scenario scenario;
    scenario.split = 2;
    UsbPrinter printer({}, scenario);
    EXPECT_EQ(printPageOverUsb(), good);
}

TEST_F(Usb, ABusyInterfaceIsWaitedFor) {
    const struct {
        const char* name;
        sim::UsbDevice device;
        int result, seconds, claims;
    } rows[] = {
        {"free", {}, 0, 0, 1},
        {"held by the system's driver", {.kernelDriver = true}, 0, 1, 2},
        {"held for 3 seconds", {.busyClaims = 3}, 0, 3, 4},
        {"held for 7 seconds", {.busyClaims = 7}, -1, 6, 6},
        {"not to be claimed", {.claimError = EIO}, -1, 0, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        virtualClock = {};
        UsbPrinter printer(row.device);
        EXPECT_EQ(YARDO_PR2_OpenPort("USB"), row.result);
        EXPECT_EQ(virtualClock.sleptSeconds, row.seconds);
        EXPECT_EQ(printer->use().claims, row.claims);
        EXPECT_FALSE(printer->use().kernelDriver);
        EXPECT_EQ(YARDO_PR2_ClosePort(), row.result == 0 ? 0 : -6);
        printer.expectNothingHeld();
        const std::vector<int> nothing;
        EXPECT_EQ(printPageOverUsb(), row.device.claimError == 0 ? good : nothing);
    }
}

TEST_F(Usb, AnyKnownPrinterIsFoundAndNoOther) {
    constexpr struct {
        std::uint16_t vendor, product;
        int result;
    } rows[] = {{0x2086, 0x0011, 0}, {0x2086, 0x0003, 0}, {0x0B3C, 0x0001, 0},
                {0x067B, 0x2305, 0}, {0x0FE6, 0x811E, 0}, {0x0B3C, 0x0002, -1}};
    for (const auto& row : rows) {
        UsbPrinter printer({.vendorId = row.vendor, .productId = row.product});
        EXPECT_EQ(PRSinit("USB"), row.result) << row.vendor << ":" << row.product;
        EXPECT_EQ(PRSexit(), 0);
    }
}

TEST_F(Usb, TheLastEndpointOfADirectionCounts) {
    const std::vector<sim::UsbSetting> rows[] = {
        {{0, 0, {{0x02}, {0x81}}}},
        {{0, 0, {{0x81}, {0x02}, {0x83, 3}, {0x04, 3}}}},
        {{0, 0, {{0x81}, {0x01}}}, {0, 1, {{0x02}}}, {0, 2, {{0x82}}}},
        {{0, 0, {{0x86}, {0x06}}}, {1, 0, {}}, {1, 1, {{0x05}, {0x82}, {0x81}}}},
    };
    for (const auto& settings : rows) {
        UsbPrinter printer({.settings = settings});
        EXPECT_EQ(printPageOverUsb(200), good);
    }
}

TEST_F(Usb, AnyTransferMayFail) {
    int transfers = 0;
    {
        UsbPrinter printer;
        ASSERT_EQ(printPageOverUsb(), good);
        transfers = printer->use().transfers;
    }
    using sim::UsbFault;
    const UsbFault faults[] = {UsbFault::kStall, UsbFault::kShort, UsbFault::kHang, UsbFault::kUnplug};
    for (int i = 0; i < 4; ++i) {
        const UsbFault fault = faults[i];
        for (int at = 1 + i; at <= transfers; at += 4) {  // between them they meet every transfer
            SCOPED_TRACE("fault " + std::to_string(static_cast<int>(fault)) + " at transfer " + std::to_string(at));
            UsbPrinter printer;
            printer->setFault(fault, at);
            (void)printPageOverUsb(10);
            printer.expectNothingHeld();
            forgetLostAnswers();
            if (fault == UsbFault::kUnplug) {
                EXPECT_EQ(YARDO_PR2_OpenPort("USB"), -1);
                printer->plug();
            }
            ASSERT_EQ(YARDO_PR2_OpenPort("USB"), 0);
            EXPECT_EQ(YARDO_PR2_LR(), 0);
            EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
            if (HasFailure()) return;
        }
    }
}

TEST_F(Usb, WhatAFailedTransferLeaves) {
    using sim::UsbFault;
    const struct {
        UsbFault fault;
        int writeResult;
        int readCount;  // of the answer's 3 bytes
    } rows[] = {
        {UsbFault::kNone, 2, 3}, {UsbFault::kStall, 0, 0}, {UsbFault::kShort, 0, 0}, {UsbFault::kHang, 0, 0}, {UsbFault::kUnplug, 0, 0}};
    const auto* request = reinterpret_cast<const unsigned char*>("\x1Bj");
    for (const auto& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.fault));
        UsbPrinter printer;
        ASSERT_EQ(PRSinit("USB"), 0);
        dynamic_cast<HidUsb&>(*protocol).timeoutMs = 50;
        printer->setFault(row.fault, 2);
        ASSERT_EQ(SendData(request, 2), 2);
        std::string buffer(8, '.');
        EXPECT_EQ(GetData(reinterpret_cast<unsigned char*>(buffer.data()), 8), row.readCount);
        EXPECT_EQ(buffer, row.readCount > 0 ? bytes("1B 72 50") + "....." : "........");
        printer->setFault(row.fault, 1);
        EXPECT_EQ(SendData(request, 2), row.writeResult);
        EXPECT_EQ(PRSexit(), 0);
        printer.expectNothingHeld();
    }
}

TEST_F(Usb, TheCableComesOutAndGoesInAgain) {
    const auto descriptors = [] {
        const std::filesystem::directory_iterator open("/proc/self/fd"), end;
        return std::distance(open, end);
    };
    UsbPrinter printer;
    ASSERT_EQ(printPageOverUsb(), good);
    printer.expectNothingHeld();
    const auto before = descriptors();
    ASSERT_EQ(YARDO_PR2_OpenPort("USB"), 0);
    EXPECT_EQ(YARDO_PR2_LR(), 0);
    printer->unplug();
    EXPECT_EQ(YARDO_PR2_LR(), -3);
    EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), -3);
    EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
    EXPECT_EQ(YARDO_PR2_OpenPort("USB"), -1);
    printer.expectNothingHeld();
    EXPECT_EQ(descriptors(), before);
    printer->plug();
    EXPECT_EQ(printPageOverUsb(), good);
}

TEST_F(Usb, AnAnswerLargerThanTheBufferIsReadInTwo) {
    sim::Scenario scenario;
    scenario.stripes[0] = std::string(1000, 'x');
    UsbPrinter printer({}, scenario);
    ASSERT_EQ(YARDO_PR2_OpenPort("USB"), 0);
    ASSERT_EQ(YARDO_PR2_Command(reinterpret_cast<const unsigned char*>("\x1B]"), 2), 0);
    std::vector<unsigned char> buffer(16384);
    int received = GetData(buffer.data(), 512);
    EXPECT_EQ(received, 512);
    received += GetData(buffer.data() + received, 16384 - received);
    EXPECT_EQ(received, 1003);
    EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
}

}  // namespace
}  // namespace passbook::tests
