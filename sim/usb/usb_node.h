#pragma once

#include <linux/usbdevice_fs.h>
#include <umockdev.h>

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include "sim/printer.h"
#include "sim/usb/usb_port.h"

namespace passbook::sim {

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename Object>
using Ref = std::unique_ptr<Object, Unref>;

/// The device file of the emulated printer: what the kernel does for a program that has a USB device open. All of it is
/// thread-safe.
class UsbNode {
 public:
    UsbNode(Printer& printer, UsbDevice device);
    ~UsbNode() { printer_.setLine(nullptr); }
    UsbNode(const UsbNode&) = delete;
    UsbNode& operator=(const UsbNode&) = delete;

    [[nodiscard]] UMockdevIoctlBase* handler() const { return handler_.get(); }
    [[nodiscard]] const UsbDevice& device() const { return device_; }

    void with(const std::function<void()>& use);
    void setFault(UsbFault fault, int transfer);
    void unplug();
    void plug();
    [[nodiscard]] UsbUse use();

 private:
    /// A transfer that the host has submitted and not yet got back. Its data is the host's memory, in copy.
    struct Urb {
        UMockdevIoctlClient* client;
        Ref<UMockdevIoctlData> data;
        Ref<UMockdevIoctlData> buffer;  // null if the transfer has no bytes
        bool done = false;
        bool stuck = false;     // goes on only when the host discards it
        bool cut = false;       // gets half of an answer
        std::size_t taken = 0;  // of what it brings, by the printer

        [[nodiscard]] usbdevfs_urb& header() const;
        [[nodiscard]] std::size_t length() const;
        void finish(int status, std::size_t transferred);
    };

    static gboolean ioctlCalled(UMockdevIoctlBase* base, UMockdevIoctlClient* client, gpointer self);
    static void clientConnected(UMockdevIoctlBase* base, UMockdevIoctlClient* client, gpointer self);
    static void clientGone(gpointer self, GObject* client);

    /// These give an errno, 0 for success.
    [[nodiscard]] int obey(UMockdevIoctlClient* client);
    [[nodiscard]] int claim(UMockdevIoctlClient* client, unsigned interface);
    [[nodiscard]] int callDriver(UMockdevIoctlData* argument);
    [[nodiscard]] int submit(UMockdevIoctlClient* client, UMockdevIoctlData* argument);
    [[nodiscard]] int reap(UMockdevIoctlClient* client, UMockdevIoctlData* argument);
    [[nodiscard]] int discard(UMockdevIoctlClient* client, const UMockdevIoctlData* argument);

    [[nodiscard]] UsbFault nextFault();
    void start(Urb& urb, UsbFault fault);
    void takeOut(Urb& urb, std::size_t length);
    void bringIn();
    void removeDevice();
    void letTimePass();
    [[nodiscard]] bool obeyLine(const LineAction& action);
    void lineIsBack();
    void goOn();
    [[nodiscard]] bool hasInterface(unsigned interface) const;

    std::mutex mutex_;
    Printer& printer_;
    UsbDevice device_;
    Ref<UMockdevIoctlBase> handler_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();

    std::uint8_t inEndpoint_ = 0;
    std::uint8_t outEndpoint_ = 0;
    std::set<std::uint8_t> endpoints_;
    std::set<std::uint8_t> stalled_;

    bool gone_ = false;
    bool held_ = false;                               // nothing goes either way
    std::chrono::steady_clock::time_point backAt_{};  // the line is as it should be again; none: not by itself
    bool kernelDriver_;
    int busyClaims_;
    UMockdevIoctlClient* owner_ = nullptr;  // of the claimed interface
    std::list<Urb> urbs_;
    std::vector<std::uint8_t> answer_;  // a piece that the host has read in part
    UsbFault fault_ = UsbFault::none;
    int untilFault_ = 0;
    UsbUse use_;
};

}  // namespace passbook::sim
