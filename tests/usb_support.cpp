#include "tests/usb_support.h"

#include <libusb.h>

#include <cstdio>
#include <cstring>

#include "tests/support.h"

namespace passbook::tests {

LibusbCalls libusbCalls;

namespace {

template <typename... Values>
void note(const char* format, Values... values) {
    char text[128];
    (void)std::snprintf(text, sizeof text, format, values...);
    libusbCalls.made.emplace_back(text);
}

// What stands for a context and for a handle when libusb is replaced; nobody looks into them.
char context, handle;

}  // namespace

extern "C" {
int __real_libusb_init(libusb_context** made);
int __wrap_libusb_init(libusb_context** made) {
    note("init");
    const int result = libusbCalls.replaced ? libusbCalls.initResult : __real_libusb_init(made);
    if (result == 0) {
        ++libusbCalls.contexts;
        if (libusbCalls.replaced) *made = reinterpret_cast<libusb_context*>(&context);
    }
    return result;
}

void __real_libusb_exit(libusb_context* ended);
void __wrap_libusb_exit(libusb_context* ended) {
    note("exit");
    --libusbCalls.contexts;
    if (!libusbCalls.replaced) __real_libusb_exit(ended);
}

libusb_device_handle* __real_libusb_open_device_with_vid_pid(libusb_context* within, uint16_t vendor, uint16_t product);
libusb_device_handle* __wrap_libusb_open_device_with_vid_pid(libusb_context* within, uint16_t vendor, uint16_t product) {
    note("open %04x:%04x", vendor, product);
    libusb_device_handle* opened = nullptr;
    if (!libusbCalls.replaced)
        opened = __real_libusb_open_device_with_vid_pid(within, vendor, product);
    else if (libusbCalls.present)
        opened = reinterpret_cast<libusb_device_handle*>(&handle);
    libusbCalls.handles += opened != nullptr ? 1 : 0;
    return opened;
}

void __real_libusb_close(libusb_device_handle* closed);
void __wrap_libusb_close(libusb_device_handle* closed) {
    note("close");
    --libusbCalls.handles;
    if (!libusbCalls.replaced) __real_libusb_close(closed);
}

int __real_libusb_claim_interface(libusb_device_handle* device, int number);
int __wrap_libusb_claim_interface(libusb_device_handle* device, int number) {
    note("claim %d", number);
    if (!libusbCalls.replaced) return __real_libusb_claim_interface(device, number);
    int result = 0;
    if (!libusbCalls.claimResults.empty()) {
        result = libusbCalls.claimResults.front();
        libusbCalls.claimResults.pop_front();
    }
    return result;
}

int __real_libusb_release_interface(libusb_device_handle* device, int number);
int __wrap_libusb_release_interface(libusb_device_handle* device, int number) {
    note("release %d", number);
    return libusbCalls.replaced ? 0 : __real_libusb_release_interface(device, number);
}

int __real_libusb_detach_kernel_driver(libusb_device_handle* device, int number);
int __wrap_libusb_detach_kernel_driver(libusb_device_handle* device, int number) {
    note("detach %d", number);
    return libusbCalls.replaced ? libusbCalls.detachResult : __real_libusb_detach_kernel_driver(device, number);
}

libusb_device* __real_libusb_get_device(libusb_device_handle* device);
libusb_device* __wrap_libusb_get_device(libusb_device_handle* device) {
    return libusbCalls.replaced ? nullptr : __real_libusb_get_device(device);
}

int __real_libusb_get_config_descriptor(libusb_device* device, uint8_t index, libusb_config_descriptor** configuration);
int __wrap_libusb_get_config_descriptor(libusb_device* device, uint8_t index, libusb_config_descriptor** configuration) {
    note("descriptor %d", index);
    if (!libusbCalls.replaced) return __real_libusb_get_config_descriptor(device, index, configuration);
    static libusb_endpoint_descriptor endpoints[2];
    endpoints[0].bEndpointAddress = 0x81;
    endpoints[1].bEndpointAddress = 0x02;
    static libusb_interface_descriptor setting;
    setting.bNumEndpoints = 2;
    setting.endpoint = endpoints;
    static const libusb_interface interface { &setting, 1 };
    static libusb_config_descriptor only;
    only.bNumInterfaces = 1;
    only.interface = &interface;
    if (libusbCalls.descriptorResult == 0) *configuration = &only;
    return libusbCalls.descriptorResult;
}

void __real_libusb_free_config_descriptor(libusb_config_descriptor* configuration);
void __wrap_libusb_free_config_descriptor(libusb_config_descriptor* configuration) {
    note("free");
    if (!libusbCalls.replaced) __real_libusb_free_config_descriptor(configuration);
}

int __real_libusb_bulk_transfer(libusb_device_handle* device, unsigned char endpoint, unsigned char* data, int length, int* transferred,
                                unsigned int timeout);
int __wrap_libusb_bulk_transfer(libusb_device_handle* device, unsigned char endpoint, unsigned char* data, int length, int* transferred,
                                unsigned int timeout) {
    note("transfer %02x %d %u", endpoint, length, timeout);
    virtualClock.microseconds += 100'000;  // or a wait that only asks and never sleeps would have no end
    if (!libusbCalls.replaced) return __real_libusb_bulk_transfer(device, endpoint, data, length, transferred, timeout);
    if ((endpoint & LIBUSB_ENDPOINT_IN) != 0) std::memcpy(data, libusbCalls.received.data(), libusbCalls.received.size());
    *transferred = libusbCalls.transferred;
    return libusbCalls.transferResult;
}

int __real_libusb_clear_halt(libusb_device_handle* device, unsigned char endpoint);
int __wrap_libusb_clear_halt(libusb_device_handle* device, unsigned char endpoint) {
    note("clear %02x", endpoint);
    return libusbCalls.replaced ? 0 : __real_libusb_clear_halt(device, endpoint);
}
}

}  // namespace passbook::tests
