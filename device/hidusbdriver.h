// The transport for a printer on USB.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "device/device.h"

struct libusb_context;
struct libusb_device_handle;

namespace passbook {

/// A USB printer, spoken to in bulk transfers on its interface 0. One transfer carries one command or one
/// answer; nothing is split or held back here.
///
/// A driver of the system that holds the interface is sent away, and is not called back at the end: the
/// OKI functions open and close the port in every call, and each would have to wait a second for it again.
class HidUsb : public Protocol {
 public:
    /// Without a libusb context, if the system has none to give: no device is ever found then.
    HidUsb();

    /// Chooses the device that OpenDevice looks for.
    void SetDeviceInfo(short vendor, short product);

    /// 0; -2 no such device, or no right to open it; a libusb error code. Waits up to six seconds for an
    /// interface that is held by others (then -6). A failure leaves no device open.
    [[nodiscard]] int OpenDevice() override;
    /// One transfer of at most readLength bytes. 0, also when it carried nothing; -32 no device is open; -4
    /// failed, as a transfer is that was cut off by the time-out with a part of its bytes: `buffer` is as it
    /// was then.
    [[nodiscard]] int ReadPipe(unsigned char* buffer) override;
    /// One transfer. 0 when the printer took all bytes; -32 no device is open; -3 failed or short.
    [[nodiscard]] int WritePipe(const unsigned char* data) override;
    /// 0, or -1 when no device is open.
    [[nodiscard]] int CloseDevice() override;

    /// Tells the record of the call why the chosen device was not opened, by OpenDevice's result; or, when no known one
    /// was found, whether one is there that cannot be opened.
    void explain(int result) const;
    void explainAbsence();

 private:
    struct ContextEnd {
        void operator()(libusb_context* each) const;
    };
    struct HandleClose {
        void operator()(libusb_device_handle* each) const;
    };

    [[nodiscard]] int claimInterface();
    [[nodiscard]] int findEndpoints();
    [[nodiscard]] int transfer(int endpoint, unsigned char* data, int length, int& transferred);
    [[nodiscard]] bool growScratch(std::size_t size);

    std::unique_ptr<libusb_context, ContextEnd> context;
    std::unique_ptr<libusb_device_handle, HandleClose> handle;  // behind the context, to be closed before it ends
    int inEndpoint = 0;
    int outEndpoint = 0;
    std::uint16_t vendorId = 0x0B3C;
    std::uint16_t productId = 0x0001;

 public:
    /// The time-out of every transfer. 0 is without limit.
    int timeoutMs = 5000;

 private:
    // A transfer that fails may have brought bytes. They end here, and not where a caller would decode them.
    std::unique_ptr<unsigned char[]> scratch_;
    std::size_t scratchBytes_ = 0;
};

/// Opens the first printer that can be opened of the five known ones, with g_timeout as its transfers'
/// time-out, and marks the port as open. 0, or -1 when there is none or `device` is null.
[[nodiscard]] int OpenUSBDevice(HidUsb* device);

}  // namespace passbook
