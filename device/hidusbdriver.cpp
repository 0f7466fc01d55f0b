#include "device/hidusbdriver.h"

#include <libusb.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <new>
#include <span>

#include "device/outcome.h"

namespace passbook {

namespace {

struct UsbId {
    std::uint16_t vendor, product;
};

// In the order tried. packaging/70-passbook-printers.rules gives users the right to open the same ones.
constexpr UsbId printers[] = {{0x2086, 0x0011}, {0x2086, 0x0003}, {0x0B3C, 0x0001}, {0x067B, 0x2305}, {0x0FE6, 0x811E}};

constexpr int interfaceNumber = 0;
constexpr int mostClaims = 6;

constexpr int noSuchDevice = -2;
constexpr int writeFailed = -3;
constexpr int readFailed = -4;
constexpr int noDeviceOpen = -32;

}  // namespace

void HidUsb::ContextEnd::operator()(libusb_context* each) const {
    libusb_exit(each);
}

void HidUsb::HandleClose::operator()(libusb_device_handle* each) const {
    libusb_close(each);
}

HidUsb::HidUsb() {
    libusb_context* made = nullptr;
    (void)libusb_init(&made);  // a failure leaves null, and OpenDevice tells of it
    context.reset(made);
}

void HidUsb::SetDeviceInfo(short vendor, short product) {
    vendorId = static_cast<std::uint16_t>(vendor);
    productId = static_cast<std::uint16_t>(product);
}

int HidUsb::OpenDevice() {
    handle.reset();  // one that is still open would answer its own second claim with "busy"
    if (context == nullptr)
        return noSuchDevice;
    handle.reset(libusb_open_device_with_vid_pid(context.get(), vendorId, productId));
    if (handle == nullptr)
        return noSuchDevice;
    int result = claimInterface();
    if (result == 0)
        result = findEndpoints();
    if (result != 0)
        handle.reset();
    return result;
}

int HidUsb::claimInterface() {
    for (int claims = 0; claims < mostClaims; ++claims) {
        const int result = libusb_claim_interface(handle.get(), interfaceNumber);
        if (result != LIBUSB_ERROR_BUSY)
            return result;
        // Whether a driver of the system had to go, or there was none since another program holds the
        // interface, the next claim shows.
        (void)libusb_detach_kernel_driver(handle.get(), interfaceNumber);
        pauseSeconds(1);
    }
    return LIBUSB_ERROR_BUSY;
}

int HidUsb::findEndpoints() {
    libusb_config_descriptor* configuration = nullptr;
    if (const int result = libusb_get_config_descriptor(libusb_get_device(handle.get()), 0, &configuration);
        result != 0)
        return result;
    // Of several endpoints of one direction the last counts, in whatever setting and of whatever type it is.
    for (const libusb_interface& each : std::span(configuration->interface, configuration->bNumInterfaces)) {
        for (int i = 0; i < each.num_altsetting; ++i) {
            const libusb_interface_descriptor& setting = each.altsetting[i];
            for (const auto& endpoint : std::span(setting.endpoint, setting.bNumEndpoints)) {
                const bool in = (endpoint.bEndpointAddress & LIBUSB_ENDPOINT_IN) != 0;
                (in ? inEndpoint : outEndpoint) = endpoint.bEndpointAddress;
            }
        }
    }
    libusb_free_config_descriptor(configuration);
    return 0;
}

int HidUsb::transfer(int endpoint, unsigned char* data, int length, int& transferred) {
    const auto address = static_cast<unsigned char>(endpoint);
    const int result =
        libusb_bulk_transfer(handle.get(), address, data, length, &transferred, static_cast<unsigned>(timeoutMs));
    // A stalled endpoint stays so, even for the next program that opens the printer, until it is told
    // otherwise.
    if (result == LIBUSB_ERROR_PIPE)
        (void)libusb_clear_halt(handle.get(), address);
    return result;
}

bool HidUsb::growScratch(std::size_t size) {
    if (size > scratchBytes_) {
        scratch_.reset(new (std::nothrow) unsigned char[size]);
        scratchBytes_ = scratch_ != nullptr ? size : 0;
    }
    return size <= scratchBytes_;
}

void HidUsb::explain(int result) const {
    if (result == LIBUSB_ERROR_BUSY)
        explainFailure(result, "the USB printer %04x:%04x is in use: another program has it open", vendorId, productId);
    else if (result == LIBUSB_ERROR_ACCESS)
        explainFailure(
            result,
            "the USB printer %04x:%04x cannot be opened: permission denied; the rule for udev gives the right "
            "to group lp",
            vendorId, productId);
    else
        explainFailure(result, "the USB printer %04x:%04x cannot be opened: %s", vendorId, productId,
                       libusb_strerror(result));
}

void HidUsb::explainAbsence() {
    libusb_device** list = nullptr;
    const ssize_t count = context != nullptr ? libusb_get_device_list(context.get(), &list) : 0;
    for (libusb_device* const each : std::span(list, static_cast<std::size_t>(std::max<ssize_t>(count, 0)))) {
        libusb_device_descriptor descriptor{};
        (void)libusb_get_device_descriptor(each, &descriptor);  // always succeeds
        vendorId = descriptor.idVendor;
        productId = descriptor.idProduct;
        const bool known = std::any_of(std::begin(printers), std::end(printers), [&](const UsbId& id) {
            return id.vendor == vendorId && id.product == productId;
        });
        libusb_device_handle* opened = nullptr;
        // It is there, and was not found: opening it once more tells why.
        if (const int result = known ? libusb_open(each, &opened) : 0; result != 0)
            explain(result);
        else if (opened != nullptr)
            libusb_close(opened);
    }
    if (list != nullptr)
        libusb_free_device_list(list, 1);
    explainFailure(LIBUSB_ERROR_NO_DEVICE, "none of the known printers is on the USB");
}

int HidUsb::ReadPipe(unsigned char* buffer) {
    if (handle == nullptr)
        return noDeviceOpen;
    if (readLength < 0 || !growScratch(static_cast<std::size_t>(readLength)))
        return readFailed;
    int received = 0;
    if (const int result = transfer(inEndpoint, scratch_.get(), readLength, received); result != 0) {
        if (result == LIBUSB_ERROR_NO_DEVICE)
            explainFailure(result, "the USB printer is gone: %s", libusb_strerror(result));
        return readFailed;
    }
    if (received > 0)
        std::memcpy(buffer, scratch_.get(), static_cast<std::size_t>(received));
    readLength = received;
    return 0;
}

int HidUsb::WritePipe(const unsigned char* data) {
    taken = 0;
    systemError = 0;
    if (handle == nullptr)
        return noDeviceOpen;
    if (writeLength < 0)
        return writeFailed;
    int sent = 0;
    // One function serves both directions in libusb; it reads only from what goes out.
    const int result = transfer(outEndpoint, const_cast<unsigned char*>(data), writeLength, sent);
    // How far a transfer came that failed nobody knows for certain, but for one that never began.
    taken = result == 0 ? sent : result == LIBUSB_ERROR_NO_DEVICE && sent == 0 ? 0 : -1;
    systemError = result;
    if (result != 0)
        explainFailure(result, "%d bytes were not taken whole over USB: %s", writeLength, libusb_strerror(result));
    return result == 0 && sent >= writeLength ? 0 : writeFailed;
}

int HidUsb::CloseDevice() {
    if (handle == nullptr)
        return -1;
    (void)libusb_release_interface(handle.get(), interfaceNumber);  // closing gives it up in any case
    handle.reset();
    return 0;
}

std::unique_ptr<Protocol> openUsb() {
    std::unique_ptr<HidUsb> printer(new (std::nothrow) HidUsb());
    if (OpenUSBDevice(printer.get()) != 0)
        printer.reset();
    return printer;
}

int OpenUSBDevice(HidUsb* device) {
    if (device == nullptr)
        return -1;
    device->timeoutMs =
        static_cast<int>(std::clamp<std::int64_t>(std::int64_t{g_timeout} * 1000, 0, std::numeric_limits<int>::max()));
    for (const UsbId& each : printers) {
        device->SetDeviceInfo(static_cast<short>(each.vendor), static_cast<short>(each.product));
        const int result = device->OpenDevice();
        if (result == 0) {
            usbFlag = true;
            return 0;
        }
        if (result != noSuchDevice)
            device->explain(result);
    }
    device->explainAbsence();
    return -1;
}

}  // namespace passbook
