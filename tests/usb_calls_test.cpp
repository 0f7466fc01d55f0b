// The USB transport against answers of libusb that no emulated printer can be brought to give, and the calls
// it makes.
#include <gtest/gtest.h>
#include <libusb.h>

#include <limits>
#include <regex>

#include "api/passbook.h"
#include "device/hidusbdriver.h"
#include "tests/support.h"
#include "tests/usb_support.h"

namespace passbook::tests {
namespace {

using Calls = std::vector<std::string>;

class UsbCalls : public ::testing::Test {
 protected:
    void SetUp() override {
        virtualClock = {};
        libusbCalls = {};
        libusbCalls.replaced = true;
    }
    void TearDown() override {
        EXPECT_EQ(libusbCalls.handles, 0);
        EXPECT_EQ(libusbCalls.contexts, 0);
        EXPECT_FALSE(usbFlag);
        EXPECT_EQ(protocol, nullptr);
        libusbCalls = {};
        g_timeout = 10;
    }
};

const Calls allIds = {"open 2086:0011", "open 2086:0003", "open 0b3c:0001", "open 067b:2305", "open 0fe6:811e"};

TEST_F(UsbCalls, EveryPrinterIsLookedForOnceInOneContext) {
    libusbCalls.present = false;
    EXPECT_EQ(YARDO_PR2_OpenPort("USB"), -1);
    Calls expected = allIds;
    expected.insert(expected.begin(), "init");
    expected.emplace_back("exit");
    EXPECT_EQ(libusbCalls.made, expected);
    EXPECT_EQ(virtualClock.sleptSeconds, 0);

    EXPECT_EQ(PRSinit("usb"), -1);  // a serial line of that name
    EXPECT_EQ(libusbCalls.made.size(), expected.size());
    EXPECT_EQ(OpenUSBDevice(nullptr), -1);
}

TEST_F(UsbCalls, TheRuleForUdevHasTheSamePrinters) {
    const std::string rules = readFile(PASSBOOK_SOURCE_DIR "/packaging/70-passbook-printers.rules");
    const std::regex line(R"re(\nATTR\{idVendor\}=="(\w+)", ATTR\{idProduct\}=="(\w+)", GROUP="lp", MODE="0660")re");
    Calls ids;
    for (std::sregex_iterator at(rules.begin(), rules.end(), line), end; at != end; ++at)
        ids.push_back("open " + at->str(1) + ":" + at->str(2));
    EXPECT_EQ(ids, allIds);
}

TEST_F(UsbCalls, AnOpenPortFromBeginningToEnd) {
    ASSERT_EQ(PRSinit("USB"), 0);
    EXPECT_TRUE(usbFlag);
    libusbCalls.transferred = 2;
    EXPECT_EQ(YARDO_PR2_OpenPort("USB"), 0);
    EXPECT_EQ(YARDO_PR2_LR(), 0);
    EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
    EXPECT_EQ(libusbCalls.made,
              (Calls{"init", "open 2086:0011", "claim 0", "descriptor 0", "free", "transfer 02 2 10000", "release 0", "close", "exit"}));
}

TEST_F(UsbCalls, ABusyInterfaceIsAskedForSixTimes) {
    constexpr int busy = LIBUSB_ERROR_BUSY;
    const struct {
        std::deque<int> claims;
        int descriptor, result, seconds;
    } rows[] = {
        {{}, 0, 0, 0},
        {{busy, busy, busy}, 0, 0, 3},
        {{busy, busy, busy, busy, busy}, 0, 0, 5},
        {{busy, busy, busy, busy, busy, busy}, 0, busy, 6},
        {{LIBUSB_ERROR_NO_DEVICE}, 0, LIBUSB_ERROR_NO_DEVICE, 0},
        {{busy, LIBUSB_ERROR_OTHER}, 0, LIBUSB_ERROR_OTHER, 1},
        {{busy}, LIBUSB_ERROR_IO, LIBUSB_ERROR_IO, 1},
        {{}, LIBUSB_ERROR_NOT_FOUND, LIBUSB_ERROR_NOT_FOUND, 0},
    };
    for (const int detachResult : {0, static_cast<int>(LIBUSB_ERROR_NOT_FOUND)}) {
        for (const auto& row : rows) {
            libusbCalls.made.clear();
            libusbCalls.claimResults = row.claims;
            libusbCalls.descriptorResult = row.descriptor;
            libusbCalls.detachResult = detachResult;
            virtualClock = {};
            HidUsb printer;
            EXPECT_EQ(printer.OpenDevice(), row.result);
            EXPECT_EQ(virtualClock.sleptSeconds, row.seconds);
            EXPECT_EQ(std::count(libusbCalls.made.begin(), libusbCalls.made.end(), "detach 0"), row.seconds);
            EXPECT_EQ(libusbCalls.handles, row.result == 0 ? 1 : 0);
            EXPECT_EQ(printer.CloseDevice(), row.result == 0 ? 0 : -1);
        }
    }
}

TEST_F(UsbCalls, WithoutADeviceNothingIsTransferred) {
    libusbCalls.initResult = LIBUSB_ERROR_OTHER;
    unsigned char byte = 7;
    {
        HidUsb printer;
        EXPECT_EQ(printer.OpenDevice(), -2);  // there is no context to look for one in
        EXPECT_EQ(printer.ReadPipe(&byte), -32);
        EXPECT_EQ(printer.WritePipe(&byte), -32);
        EXPECT_EQ(printer.CloseDevice(), -1);
    }
    EXPECT_EQ(libusbCalls.made, Calls{"init"});

    installPort(new HidUsb);
    EXPECT_EQ(PRSexit(), 1);
    EXPECT_TRUE(usbFlag);
    delete protocol;
    protocol = nullptr;
    usbFlag = false;
}

TEST_F(UsbCalls, OpeningAnewGivesTheOldDeviceBack) {
    HidUsb printer;
    EXPECT_EQ(printer.OpenDevice(), 0);
    EXPECT_EQ(printer.OpenDevice(), 0);
    EXPECT_EQ(libusbCalls.handles, 1);
    libusbCalls.present = false;
    EXPECT_EQ(printer.OpenDevice(), -2);
    EXPECT_EQ(libusbCalls.handles, 0);
}

TEST_F(UsbCalls, WhatATransferCameTo) {
    const std::string untouched(16, '.');
    const struct {
        const char* name;
        int result, transferred;
        int sent;           // what SendData makes of it, of 10 bytes
        std::string after;  // the buffer after ReadPipe
        int read;           // what GetData makes of it
    } rows[] = {
        {"all", 0, 10, 10, "0123456789......", 10},
        {"short", 0, 8, 0, "01234567........", 8},
        {"nothing", 0, 0, 0, untouched, 0},
        {"timed out in the middle", LIBUSB_ERROR_TIMEOUT, 8, 0, untouched, 0},
        {"timed out at the end", LIBUSB_ERROR_TIMEOUT, 10, 0, untouched, 0},
        {"stalled", LIBUSB_ERROR_PIPE, 0, 0, untouched, 0},
        {"unplugged", LIBUSB_ERROR_NO_DEVICE, 4, 0, untouched, 0},
    };
    ASSERT_EQ(PRSinit("USB"), 0);
    libusbCalls.received = "0123456789";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        libusbCalls.transferResult = row.result;
        libusbCalls.transferred = row.transferred;
        std::string buffer = untouched;
        auto* data = reinterpret_cast<unsigned char*>(buffer.data());
        EXPECT_EQ(GetData(data, 16), row.read);
        EXPECT_EQ(buffer, row.after);
        EXPECT_EQ(SendData(data, 10), row.sent);
        const bool cleared = std::count(libusbCalls.made.begin(), libusbCalls.made.end(), "clear 81") +
                                 std::count(libusbCalls.made.begin(), libusbCalls.made.end(), "clear 02") ==
                             2;
        EXPECT_EQ(cleared, row.result == LIBUSB_ERROR_PIPE);
        libusbCalls.made.clear();
    }
    unsigned char byte = 7;
    EXPECT_EQ(SendData(&byte, -1), 0);
    EXPECT_EQ(GetData(&byte, -1), 0);
    failAllocation(1, 16384);
    EXPECT_EQ(GetData(&byte, 16384), 0);
    EXPECT_EQ(byte, 7);
    EXPECT_EQ(libusbCalls.made, Calls{});
    EXPECT_EQ(PRSexit(), 0);
}

TEST_F(UsbCalls, TheTimeOutIsThatOfTheMomentOfOpening) {
    const struct {
        int seconds;
        const char* call;
    } rows[] = {{0, "transfer 02 1 0"},
                {10, "transfer 02 1 10000"},
                {2'147'483, "transfer 02 1 2147483000"},
                {2'147'484, "transfer 02 1 2147483647"},
                {std::numeric_limits<int>::max(), "transfer 02 1 2147483647"}};
    unsigned char byte = 0;
    libusbCalls.transferred = 1;
    for (const auto& row : rows) {
        g_timeout = row.seconds;
        ASSERT_EQ(PRSinit("USB"), 0);
        g_timeout = 77;
        EXPECT_EQ(SendData(&byte, 1), 1);
        EXPECT_EQ(libusbCalls.made.back(), row.call);
        EXPECT_EQ(PRSexit(), 0);
    }
}

}  // namespace
}  // namespace passbook::tests
