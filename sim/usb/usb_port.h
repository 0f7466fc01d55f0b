#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/printer.h"

namespace passbook::sim {

struct UsbEndpoint {
    std::uint8_t address = 0;
    std::uint8_t type = 2;  // as in a descriptor: 2 bulk, 3 interrupt
};

/// One alternate setting of an interface.
struct UsbSetting {
    std::uint8_t interface = 0;
    std::uint8_t alternate = 0;
    std::vector<UsbEndpoint> endpoints;
};

/// How the printer shows on the bus. It talks on the last endpoint of each direction.
struct UsbDevice {
    std::uint16_t vendorId = 0x0B3C;
    std::uint16_t productId = 0x0001;
    std::vector<UsbSetting> settings = {{0, 0, {{0x81}, {0x02}}}};
    bool kernelDriver = false;  // a driver of the system holds the interface until it is sent away
    int busyClaims = 0;         // so many claims find the interface held by another program
    int claimError = 0;         // an errno that every claim fails with
};

/// What hosts have done so far, and what they hold now.
struct UsbUse {
    int transfers = 0;
    int claims = 0;
    int openDevices = 0;
    int pendingTransfers = 0;
    bool claimed = false;
    bool kernelDriver = false;
};

class UsbNode;

/// Connects a printer to an emulated USB bus. Programs that are run with the environment that this sets up find it
/// there through libusb, and nothing else: the machine's own USB is neither needed nor seen. One in a process.
class UsbPort {
 public:
    /// Null if the emulation can't be set up; `error` then says why. The printer must outlive the port, which serves it
    /// in a thread of its own: touch it only through `with`.
    [[nodiscard]] static std::unique_ptr<UsbPort> open(Printer& printer, const UsbDevice& device, std::string& error);
    ~UsbPort();

    /// What has to stand in a host program's environment when it is started, as "NAME=value", besides what `open` has
    /// added to ours.
    [[nodiscard]] static std::string hostEnvironment();

    /// Calls `use` while the printer isn't being served, with the printer's time brought up to now.
    void with(const std::function<void()>& use);

    /// What the n-th transfer from now on meets, 1 being the next.
    void setFault(UsbFault fault, int transfer);
    /// The cable out, and in again.
    void unplug();
    void plug();
    [[nodiscard]] UsbUse use();

 private:
    struct Bed;

    UsbPort(std::unique_ptr<UsbNode> node, std::unique_ptr<Bed> bed);

    std::unique_ptr<UsbNode> node_;
    std::unique_ptr<Bed> bed_;  // behind the node, which its thread calls until it ends
};

}  // namespace passbook::sim
