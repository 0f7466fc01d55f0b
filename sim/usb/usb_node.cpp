#include "sim/usb/usb_node.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

namespace passbook::sim {

namespace {

/// The kernel's own limit for all that a program has under way.
constexpr int maxTransfer = 16 * 1024 * 1024;

/// The device file always looks ready, so a host that waits asks again and again. It is made to do so at its ease.
constexpr gulong pauseUs = 1000;

constexpr const char* driverName = "usblp";

constexpr bool isIn(std::uint8_t endpoint) {
    return (endpoint & 0x80U) != 0;
}

/// The host's memory that a pointer at `offset` leads to, in a copy that goes back to it; null if it leads nowhere.
Ref<UMockdevIoctlData> follow(UMockdevIoctlData* data, std::size_t offset, std::size_t length) {
    return Ref<UMockdevIoctlData>(umockdev_ioctl_data_resolve(data, offset, length, nullptr));
}

template <typename Value>
Value& valueIn(const UMockdevIoctlData* data) {
    return *reinterpret_cast<Value*>(data->data);
}

}  // namespace

usbdevfs_urb& UsbNode::Urb::header() const {
    return valueIn<usbdevfs_urb>(data.get());
}

std::size_t UsbNode::Urb::length() const {
    return static_cast<std::size_t>(header().buffer_length);
}

void UsbNode::Urb::finish(int status, std::size_t transferred) {
    header().status = status;
    header().actual_length = static_cast<int>(transferred);
    done = true;
}

UsbNode::UsbNode(Printer& printer, UsbDevice device)
    : printer_(printer),
      device_(std::move(device)),
      handler_(umockdev_ioctl_base_new()),
      kernelDriver_(device_.kernelDriver),
      busyClaims_(device_.busyClaims) {
    for (const UsbSetting& setting : device_.settings) {
        for (const UsbEndpoint& endpoint : setting.endpoints) {
            endpoints_.insert(endpoint.address);
            (isIn(endpoint.address) ? inEndpoint_ : outEndpoint_) = endpoint.address;
        }
    }
    printer_.setLine([this](const LineAction& action) { return obeyLine(action); });
    g_signal_connect(handler_.get(), "handle-ioctl", G_CALLBACK(ioctlCalled), this);
    g_signal_connect(handler_.get(), "client-connected", G_CALLBACK(clientConnected), this);
}

void UsbNode::with(const std::function<void()>& use) {
    const std::lock_guard lock(mutex_);
    letTimePass();
    use();
}

void UsbNode::setFault(UsbFault fault, int transfer) {
    const std::lock_guard lock(mutex_);
    fault_ = fault;
    untilFault_ = transfer;
}

void UsbNode::unplug() {
    const std::lock_guard lock(mutex_);
    removeDevice();
}

void UsbNode::plug() {
    const std::lock_guard lock(mutex_);
    gone_ = false;
    kernelDriver_ = device_.kernelDriver;
    stalled_.clear();
}

UsbUse UsbNode::use() {
    const std::lock_guard lock(mutex_);
    use_.pendingTransfers = static_cast<int>(urbs_.size());
    use_.claimed = owner_ != nullptr;
    use_.kernelDriver = kernelDriver_;
    return use_;
}

gboolean UsbNode::ioctlCalled(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
    auto& node = *static_cast<UsbNode*>(self);
    int error = 0;
    bool idle = false;
    {
        const std::lock_guard lock(node.mutex_);
        node.letTimePass();
        error = node.obey(client);
        idle = error == EAGAIN && !node.urbs_.empty();
    }
    if (idle)
        g_usleep(pauseUs);
    umockdev_ioctl_client_complete(client, error == 0 ? 0 : -1, error);
    return TRUE;
}

void UsbNode::clientConnected(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
    auto& node = *static_cast<UsbNode*>(self);
    // The signal for a closed device is never given; the object that stands for the open one goes, though.
    g_object_weak_ref(G_OBJECT(client), clientGone, self);
    const std::lock_guard lock(node.mutex_);
    node.letTimePass();
    if (++node.use_.openDevices == 1)
        node.printer_.hostChanged(true);
}

void UsbNode::clientGone(gpointer self, GObject* object) {
    const auto* client = reinterpret_cast<UMockdevIoctlClient*>(object);
    auto& node = *static_cast<UsbNode*>(self);
    const std::lock_guard lock(node.mutex_);
    if (--node.use_.openDevices == 0) {
        node.printer_.forgetAnswers(std::exchange(node.answer_, {}).size());
        node.printer_.hostChanged(false);
    }
    node.urbs_.remove_if([client](const Urb& urb) { return urb.client == client; });
    if (node.owner_ == client)
        node.owner_ = nullptr;
}

int UsbNode::obey(UMockdevIoctlClient* client) {
    UMockdevIoctlData* argument = umockdev_ioctl_client_get_arg(client);
    const gulong request = umockdev_ioctl_client_get_request(client);
    if (request == USBDEVFS_REAPURBNDELAY)
        return reap(client, argument);
    if (gone_)
        return ENODEV;
    switch (request) {
        case USBDEVFS_SUBMITURB:
            return submit(client, argument);
        case USBDEVFS_DISCARDURB:
            return discard(client, argument);
        case USBDEVFS_IOCTL:
            return callDriver(argument);
        case USBDEVFS_GET_CAPABILITIES: {
            const auto capabilities = follow(argument, 0, sizeof(__u32));
            if (!capabilities)
                return EFAULT;
            valueIn<__u32>(capabilities.get()) =
                USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_BULK_SCATTER_GATHER | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
            return 0;
        }
        case USBDEVFS_GETDRIVER: {
            const auto driver = follow(argument, 0, sizeof(usbdevfs_getdriver));
            if (!driver)
                return EFAULT;
            const char* name = kernelDriver_ ? driverName : owner_ != nullptr ? "usbfs" : nullptr;
            if (name == nullptr)
                return ENODATA;
            char* into = valueIn<usbdevfs_getdriver>(driver.get()).driver;
            std::memcpy(into, name, std::strlen(name) + 1);
            return 0;
        }
        case USBDEVFS_CLAIMINTERFACE:
        case USBDEVFS_RELEASEINTERFACE:
        case USBDEVFS_CLEAR_HALT: {
            const auto number = follow(argument, 0, sizeof(unsigned));
            if (!number)
                return EFAULT;
            const auto value = valueIn<unsigned>(number.get());
            if (request == USBDEVFS_CLAIMINTERFACE)
                return claim(client, value);
            if (request == USBDEVFS_CLEAR_HALT) {
                stalled_.erase(static_cast<std::uint8_t>(value));
                return 0;
            }
            if (owner_ != client)
                return EINVAL;
            owner_ = nullptr;
            return 0;
        }
        default:
            return ENOTTY;
    }
}

int UsbNode::claim(UMockdevIoctlClient* client, unsigned interface) {
    ++use_.claims;
    if (device_.claimError != 0)
        return device_.claimError;
    if (!hasInterface(interface))
        return ENOENT;
    if (busyClaims_ > 0) {
        --busyClaims_;
        return EBUSY;
    }
    if (kernelDriver_ || (owner_ != nullptr && owner_ != client))
        return EBUSY;
    owner_ = client;
    return 0;
}

int UsbNode::callDriver(UMockdevIoctlData* argument) {
    const auto call = follow(argument, 0, sizeof(usbdevfs_ioctl));
    if (!call)
        return EFAULT;
    switch (static_cast<unsigned>(valueIn<usbdevfs_ioctl>(call.get()).ioctl_code)) {
        case USBDEVFS_DISCONNECT:
            return std::exchange(kernelDriver_, false) ? 0 : ENODATA;
        case USBDEVFS_CONNECT:
            if (owner_ != nullptr || kernelDriver_)
                return EBUSY;
            kernelDriver_ = device_.kernelDriver;
            return 0;
        default:
            return ENOTTY;
    }
}

int UsbNode::submit(UMockdevIoctlClient* client, UMockdevIoctlData* argument) {
    Urb urb{client, follow(argument, 0, sizeof(usbdevfs_urb)), nullptr};
    if (!urb.data)
        return EFAULT;
    if (endpoints_.count(urb.header().endpoint) == 0)
        return ENOENT;
    if (urb.header().buffer_length < 0 || urb.header().buffer_length > maxTransfer)
        return EINVAL;
    if (urb.length() > 0) {
        urb.buffer = follow(urb.data.get(), offsetof(usbdevfs_urb, buffer), urb.length());
        if (!urb.buffer)
            return EFAULT;
    }
    ++use_.transfers;
    urbs_.push_back(std::move(urb));
    printer_.transferBegins();  // which may bring a fault
    if (!urbs_.back().done)
        start(urbs_.back(), nextFault());
    return 0;
}

UsbFault UsbNode::nextFault() {
    return untilFault_ > 0 && --untilFault_ == 0 ? fault_ : UsbFault::none;
}

void UsbNode::start(Urb& urb, UsbFault fault) {
    const std::uint8_t endpoint = urb.header().endpoint;
    if (fault == UsbFault::stall)
        stalled_.insert(endpoint);
    if (fault == UsbFault::unplug) {
        removeDevice();
    } else if (stalled_.count(endpoint) > 0) {
        urb.finish(-EPIPE, 0);
    } else if (fault == UsbFault::hang || (endpoint != inEndpoint_ && endpoint != outEndpoint_)) {
        urb.stuck = true;
    } else if (isIn(endpoint)) {
        urb.cut = fault == UsbFault::cutShort;
        bringIn();
    } else {
        takeOut(urb, fault == UsbFault::cutShort ? urb.length() / 2 : urb.length());
    }
}

void UsbNode::takeOut(Urb& urb, std::size_t length) {
    while (urb.taken < length && !held_ && !urb.done)
        urb.taken += printer_.receive(std::span(urb.buffer->data + urb.taken, length - urb.taken));
    if (urb.taken == length && !urb.done)
        urb.finish(0, length);
}

void UsbNode::bringIn() {
    if (held_)
        return;
    for (Urb& urb : urbs_) {
        if (urb.done || urb.stuck || !isIn(urb.header().endpoint))
            continue;
        if (answer_.empty())
            answer_ = printer_.takeAnswer();
        if (answer_.empty())
            return;
        std::size_t length = std::min(urb.length(), answer_.size());
        if (urb.cut)
            length /= 2;
        if (length > 0)
            std::memcpy(urb.buffer->data, answer_.data(), length);
        if (urb.cut) {
            answer_.clear();
            urb.header().actual_length = static_cast<int>(length);
            urb.stuck = true;
        } else {
            answer_.erase(answer_.begin(), answer_.begin() + static_cast<std::ptrdiff_t>(length));
            urb.finish(0, length);
        }
    }
}

int UsbNode::reap(UMockdevIoctlClient* client, UMockdevIoctlData* argument) {
    goOn();
    bringIn();
    const auto urb = std::find_if(urbs_.begin(), urbs_.end(),
                                  [client](const Urb& each) { return each.client == client && each.done; });
    if (urb == urbs_.end())
        return gone_ ? ENODEV : EAGAIN;
    const auto pointer = follow(argument, 0, sizeof(void*));
    if (!pointer || !umockdev_ioctl_data_set_ptr(pointer.get(), 0, urb->data.get()))
        return EFAULT;
    urbs_.erase(urb);
    return 0;
}

int UsbNode::discard(UMockdevIoctlClient* client, const UMockdevIoctlData* argument) {
    const auto address = valueIn<gulong>(argument);
    const auto urb = std::find_if(urbs_.begin(), urbs_.end(), [&](const Urb& each) {
        return each.client == client && !each.done && each.data->client_addr == address;
    });
    if (urb == urbs_.end())
        return EINVAL;
    urb->finish(-ENOENT, static_cast<std::size_t>(urb->header().actual_length));
    return 0;
}

void UsbNode::removeDevice() {
    gone_ = true;
    for (Urb& urb : urbs_)
        if (!urb.done)
            urb.finish(-ESHUTDOWN, 0);
}

bool UsbNode::obeyLine(const LineAction& action) {
    if (const auto* const usb = std::get_if<action::Usb>(&action)) {
        fault_ = usb->fault;
        untilFault_ = 1;
        return true;
    }
    const auto& line = std::get<action::Line>(action);
    using Told = event::Line::What;
    if (line.what == action::Line::What::back) {
        lineIsBack();
        return true;
    }
    backAt_ = line.time ? std::chrono::steady_clock::now() + *line.time : std::chrono::steady_clock::time_point{};
    held_ = line.what == action::Line::What::stall;
    if (!held_)
        removeDevice();
    printer_.lineChanged(held_ ? Told::stalled : Told::dropped, "USB");
    return true;
}

void UsbNode::lineIsBack() {
    if (!held_ && !gone_)
        return;
    backAt_ = {};
    held_ = gone_ = false;
    printer_.lineChanged(event::Line::What::back, "USB");
}

/// What a line that was held brings now.
void UsbNode::goOn() {
    for (Urb& urb : urbs_)
        if (!held_ && !urb.done && !urb.stuck && !isIn(urb.header().endpoint))
            takeOut(urb, urb.length());
}

void UsbNode::letTimePass() {
    if (backAt_ != std::chrono::steady_clock::time_point{} && std::chrono::steady_clock::now() >= backAt_)
        lineIsBack();
    printer_.advance(std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start_));
}

bool UsbNode::hasInterface(unsigned interface) const {
    return std::any_of(
        device_.settings.begin(), device_.settings.end(),
        [interface](const UsbSetting& setting) { return setting.interface == interface; });
}

}  // namespace passbook::sim
