// USB: which of the known printers are there, and which one the driver takes.

#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>

#include "tools/doctor/findings.h"

namespace passbook::tool::doctor {

namespace {

constexpr const char* devices = "/sys/bus/usb/devices/";
constexpr const char* rule = "70-passbook-printers.rules";

/// In the order in which the driver tries them, see YARDO_PR2_OpenPort.
constexpr std::array known = {"2086:0011", "2086:0003", "0b3c:0001", "067b:2305", "0fe6:811e"};

struct Printer {
    std::string name, id, node, product, serial;  // name: of the directory in /sys
    std::size_t order = 0;
};

std::string attribute(const std::string& name, const char* which) {
    return firstLineOf(devices + name + "/" + which);
}

int numberIn(const std::string& text) {
    int number = 0;
    (void)std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

/// All devices with an identifier, as printers; those that are not known have an order behind the last.
std::vector<Printer> devicesOnUsb() {
    std::vector<Printer> list;
    for (const std::string& name : namesIn(devices)) {
        Printer each;
        each.name = name;
        each.id = attribute(name, "idVendor") + ":" + attribute(name, "idProduct");
        if (each.id == ":")
            continue;
        std::array<char, 64> node{};
        (void)std::snprintf(node.data(), node.size(), "/dev/bus/usb/%03d/%03d", numberIn(attribute(name, "busnum")),
                            numberIn(attribute(name, "devnum")));
        each.node = node.data();
        each.product = attribute(name, "product");
        each.serial = attribute(name, "serial");
        each.order = static_cast<std::size_t>(std::find(known.begin(), known.end(), each.id) - known.begin());
        list.push_back(each);
    }
    std::stable_sort(list.begin(), list.end(), [](const auto& a, const auto& b) { return a.order < b.order; });
    return list;
}

/// What holds the printer's interface: "usblp", "usbfs" for a program; empty when nothing does.
std::string driverOf(const Printer& printer) {
    const std::string link = devices + printer.name + "/" + printer.name + ":1.0/driver";
    if (const std::string real = realPath(link); real != link)
        return baseName(real);
    usbdevfs_getdriver asked{};
    const int descriptor = open(printer.node.c_str(), O_RDWR | O_CLOEXEC);
    const bool told = descriptor >= 0 && ioctl(descriptor, USBDEVFS_GETDRIVER, &asked) == 0;
    if (descriptor >= 0)
        (void)close(descriptor);
    asked.driver[sizeof asked.driver - 1] = '\0';
    return told ? asked.driver : "";
}

bool isRuleInstalled() {
    const std::array directories = {"/etc/udev/rules.d/", "/run/udev/rules.d/", "/usr/local/lib/udev/rules.d/",
                                    "/usr/lib/udev/rules.d/", "/lib/udev/rules.d/"};
    return std::any_of(directories.begin(), directories.end(),
                       [](const std::string& each) { return access((each + rule).c_str(), F_OK) == 0; });
}

/// What gives the printers to the group lp.
std::string ruleCommands() {
    const std::string reload = "sudo udevadm control --reload && sudo udevadm trigger --subsystem-match=usb";
    if (isRuleInstalled())
        return std::string("The rule for udev is installed (") + rule + "), but has not been used yet:\n  " + reload;
    return std::string("The rule for udev is not installed. It comes with this library, in packaging/:\n  sudo cp ") +
           rule + " /etc/udev/rules.d/ && " + reload;
}

std::string textOf(const Printer& printer) {
    return printer.id + (printer.product.empty() ? "" : " \"" + printer.product + "\"");
}

void tellNone(const std::vector<Printer>& others, Findings& findings) {
    std::vector<std::string> names;
    for (const Printer& each : others)
        names.push_back(textOf(each));
    std::string remedy = "See to the printer's power and to the cable. " +
                         (names.empty() ? "There is nothing else on USB either."
                                        : "On USB there are, with vendor:product: " + joined(names) + ".");
    for (const std::string& each : serialPorts())
        if (isUsbAdapter(each))
            remedy += "\nA printer on a serial adapter has the adapter's port name: --port " + each;
    findings.problem("port", "None of the known printers is on USB: " + joined({known.begin(), known.end()}) + ".",
                     remedy);
}

/// Looks at one printer. Whether the driver can take it.
bool examine(const Printer& printer, Way& way, Findings& findings) {
    findings.ok("port", "The printer " + textOf(printer) + " is on USB, as " + printer.node + ".");
    const Right right = examineRight(printer.node, "lp", ruleCommands(), findings);
    bool held = examineHolders(printer.node, findings).held;
    const std::string driver = driverOf(printer);
    const std::string classDirectory = std::string(devices) + printer.name + "/" + printer.name + ":1.0/usbmisc";
    if (driver == "usblp") {
        findings.ok("holder",
                    "The system's driver usblp has it. This library takes it from usblp when it opens the port.");
        for (const std::string& name : namesIn(classDirectory))
            if (examineHolders("/dev/usb/" + name, findings).held)
                way.open = false;  // it would end what is being printed there
    } else if (driver == "usbfs" && !held) {
        held = true;
        findings.problem("holder", "Some program has claimed it. It cannot be seen from here.",
                         "This shows which one:\n  sudo fuser -v " + printer.node);
    }
    examineServices(printer.node, {printer.serial.empty() ? "" : "serial=" + printer.serial}, findings);
    return right.error == 0 && !held;
}

}  // namespace

Way examineUsb(Findings& findings) {
    std::vector<Printer> printers = devicesOnUsb();
    const auto firstOther =
        std::find_if(printers.begin(), printers.end(), [](const Printer& each) { return each.order == known.size(); });
    const std::vector<Printer> others(firstOther, printers.end());
    printers.erase(firstOther, printers.end());
    if (printers.empty()) {
        tellNone(others, findings);
        return {true, false};
    }
    Way way;
    const Printer* taken = nullptr;
    for (std::size_t i = 0; i < printers.size(); ++i) {
        if (i > 0 && printers[i].id == printers[i - 1].id) {
            findings.warning("port", "A second printer " + textOf(printers[i]) + " is on USB. It is never taken.",
                             "Only one printer of a kind can be used. Unplug the other one.");
        } else if (examine(printers[i], way, findings) && taken == nullptr) {
            taken = &printers[i];
        }
    }
    if (taken != nullptr && printers.size() > 1)
        findings.ok("port", "Of these the driver takes " + textOf(*taken) + ".");
    return way;
}

}  // namespace passbook::tool::doctor
