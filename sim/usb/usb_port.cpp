#include "sim/usb/usb_port.h"

#include <dlfcn.h>
#include <umockdev.h>

#include <cstdlib>
#include <set>
#include <utility>

#include "sim/usb/usb_node.h"

namespace passbook::sim {

namespace {

constexpr const char* preloadLibrary = "libumockdev-preload.so.0";
constexpr const char* nodePath = "/dev/bus/usb/001/002";

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t low(std::size_t value) {
    return value & 0xFF;
}
constexpr std::size_t high(std::size_t value) {
    return value >> 8U & 0xFF;
}

void append(Bytes& bytes, std::initializer_list<std::size_t> values) {
    for (const std::size_t value : values)
        bytes.push_back(static_cast<std::uint8_t>(value));
}

/// The device's own descriptor and that of its one configuration, as the kernel shows them in one file.
Bytes descriptorsOf(const UsbDevice& device) {
    Bytes settings;
    std::set<std::uint8_t> interfaces;
    for (const UsbSetting& setting : device.settings) {
        interfaces.insert(setting.interface);
        append(settings, {9, 4, setting.interface, setting.alternate, setting.endpoints.size(), 0xFF, 0xFF, 0xFF, 0});
        for (const UsbEndpoint& endpoint : setting.endpoints)
            append(settings, {7, 5, endpoint.address, endpoint.type, 64, 0, endpoint.type == 3 ? 10U : 0U});
    }
    Bytes bytes;
    append(bytes, {18, 1, 0x00, 0x02, 0, 0, 0, 64});
    append(bytes, {low(device.vendorId), high(device.vendorId), low(device.productId), high(device.productId), 0x00,
                   0x01, 0, 0, 0, 1});
    const std::size_t total = 9 + settings.size();
    append(bytes, {9, 2, low(total), high(total), interfaces.size(), 1, 0, 0xC0, 50});
    bytes.insert(bytes.end(), settings.begin(), settings.end());
    return bytes;
}

std::string hexOf(const Bytes& bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4U];
        text += digits[byte & 15U];
    }
    return text;
}

std::string hexOf(std::uint16_t id) {
    Bytes bytes;
    append(bytes, {high(id), low(id)});
    return hexOf(bytes);
}

}  // namespace

/// The directory that stands in for /sys and /dev.
struct UsbPort::Bed {
    Ref<UMockdevTestbed> testbed{umockdev_testbed_new()};

    bool present = false;

    [[nodiscard]] bool add(const UsbDevice& device, std::string& error) {
        const std::string text =
            "P: /devices/pci0000:00/0000:00:14.0/usb1/1-1\n"
            "N: bus/usb/001/002\n"
            "E: DEVNAME=/dev/bus/usb/001/002\n"
            "E: DEVTYPE=usb_device\n"
            "E: SUBSYSTEM=usb\n"
            "E: BUSNUM=001\n"
            "E: DEVNUM=002\n"
            "E: MAJOR=189\n"
            "E: MINOR=1\n"
            "A: bConfigurationValue=1\n"
            "A: busnum=1\n"
            "A: devnum=2\n"
            "A: speed=12\n"
            "A: idVendor=" +
            hexOf(device.vendorId) + "\nA: idProduct=" + hexOf(device.productId) +
            "\nH: descriptors=" + hexOf(descriptorsOf(device)) + "\n";
        g_autoptr(GError) problem = nullptr;
        if (!umockdev_testbed_add_from_string(testbed.get(), text.c_str(), &problem)) {
            error = std::string("no emulated USB device: ") + problem->message;
            return false;
        }
        present = true;
        return true;
    }
    void remove() {
        present = false;
        constexpr const char* path = "/sys/devices/pci0000:00/0000:00:14.0/usb1/1-1";
        umockdev_testbed_uevent(testbed.get(), path, "remove");
        umockdev_testbed_remove_device(testbed.get(), path);
    }
};

std::unique_ptr<UsbPort> UsbPort::open(Printer& printer, const UsbDevice& device, std::string& error) {
    // Without it a host would be let loose on the machine's own USB, and print on a real printer.
    void* preload = dlopen(preloadLibrary, RTLD_LAZY | RTLD_LOCAL);
    if (preload == nullptr) {
        error = std::string("no emulated USB: ") + dlerror();
        return nullptr;
    }
    dlclose(preload);
    auto node = std::make_unique<UsbNode>(printer, device);
    auto bed = std::make_unique<Bed>();
    g_autoptr(GError) problem = nullptr;
    if (!umockdev_testbed_attach_ioctl(bed->testbed.get(), nodePath, node->handler(), &problem)) {
        error = std::string("no emulated USB: ") + problem->message;
        return nullptr;
    }
    if (!bed->add(device, error))
        return nullptr;
    return std::unique_ptr<UsbPort>(new UsbPort(std::move(node), std::move(bed)));
}

UsbPort::UsbPort(std::unique_ptr<UsbNode> node, std::unique_ptr<Bed> bed)
    : node_(std::move(node)), bed_(std::move(bed)) {}

UsbPort::~UsbPort() = default;

std::string UsbPort::hostEnvironment() {
    const char* others = std::getenv("LD_PRELOAD");
    std::string setting = std::string("LD_PRELOAD=") + preloadLibrary;
    if (others != nullptr && *others != '\0')
        setting += std::string(":") + others;
    return setting;
}

void UsbPort::with(const std::function<void()>& use) {
    node_->with(use);
}

void UsbPort::setFault(UsbFault fault, int transfer) {
    node_->setFault(fault, transfer);
}

void UsbPort::unplug() {
    node_->unplug();
    if (bed_->present)
        bed_->remove();
}

void UsbPort::plug() {
    node_->plug();
    // A printer that a fault has taken away is still listed, as it is for a moment on a real bus.
    std::string error;
    if (!bed_->present)
        (void)bed_->add(node_->device(), error);  // it could be added before
}

UsbUse UsbPort::use() {
    return node_->use();
}

}  // namespace passbook::sim
