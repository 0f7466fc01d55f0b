// Who else works with the device: programs that have it open, and services that reach for it by themselves.

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "tools/doctor/findings.h"
#include "tools/doctor/processes.h"

namespace passbook::tool::doctor {

namespace {

constexpr const char* queuesFile = "/etc/cups/printers.conf";
constexpr const char* notSeen = " Programs of other users cannot be seen from here: sudo shows them.";

/// `kill` ends programs of this user, "sudo kill" those of others.
std::string endOf(const Process& process, const std::string& path, const std::string& kill) {
    if (process.name == "agetty" || process.name == "login")
        return "It waits for people to log in there:\n  sudo systemctl disable --now serial-getty@" + baseName(path) +
               ".service";
    if (process.name == "usb" || process.name == "parallel" || process.name == "serial" || process.name == "cupsd")
        return "It works for CUPS. This shows the queues, and then removes one:\n  lpstat -v\n  sudo lpadmin -x NAME";
    return "Close that program. If it hangs:\n  " + kill + " " + std::to_string(process.id);
}

/// The system's messages on the line would be printed.
bool isConsole(const std::string& path) {
    std::istringstream names(firstLineOf("/sys/class/tty/console/active"));
    for (std::string name; names >> name;)
        if (name == baseName(realPath(path)))
            return true;
    return false;
}

/// A property that rules have given to a device, in the database of udev.
bool hasProperty(const struct stat& device, const std::string& property) {
    const unsigned majorNumber = major(device.st_rdev), minorNumber = minor(device.st_rdev);
    std::ifstream file("/run/udev/data/c" + std::to_string(majorNumber) + ":" + std::to_string(minorNumber));
    for (std::string line; std::getline(file, line);)
        if (line == "E:" + property + "=1")
            return true;
    return false;
}

void examineCups(const std::vector<std::string>& addresses, Findings& findings) {
    std::ifstream file(queuesFile);
    std::string queue;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string key, value;
        words >> key >> value;
        if (key == "<Printer" || key == "<DefaultPrinter")
            queue = value.substr(0, value.find('>'));
        const bool ours = key == "DeviceURI" && std::any_of(addresses.begin(), addresses.end(), [&](const auto& each) {
                              return !each.empty() && value.find(each) != std::string::npos;
                          });
        if (ours)
            findings.warning("holder", "CUPS has a queue for this printer, " + queue + " (" + value + ").",
                             "It prints among the host's lines. Remove it:\n  sudo lpadmin -x " + queue);
    }
}

}  // namespace

Hold examineHolders(const std::string& path, Findings& findings) {
    struct stat device {};
    if (stat(path.c_str(), &device) != 0)
        return {};
    const Holders holders = holdersOf(path, device);
    for (const Process& each : holders.otherEnd)
        findings.ok("port", path + " is a pseudo-terminal. What answers there is the program " + each.text() + ".");
    const auto tell = [&](const std::vector<Process>& list, const std::string& what, const char* kill) {
        for (const Process& each : list)
            findings.problem("holder", each.text() + what, endOf(each, path, kill));
    };
    tell(holders.open, " has " + path + " open.", "kill");
    for (const Process& each : holders.locked) {
        const bool known = std::any_of(holders.open.begin(), holders.open.end(),
                                       [&](const Process& open) { return open.id == each.id; });
        if (!known)
            findings.problem("holder", each.text() + " has locked " + path + ", as hosts with this library do.",
                             endOf(each, path, "sudo kill"));
    }
    tell(holders.named, " was started for it by another user, and seems to have it open.", "sudo kill");
    const bool console = isConsole(path);
    if (console)
        findings.problem(
            "holder", "The system writes its own messages to this line: they would be printed.",
            "Take console=" + baseName(realPath(path)) +
                " out of the kernel's command line in /etc/default/grub, then:\n  sudo update-grub && sudo reboot");
    const bool held = !holders.open.empty() || !holders.locked.empty() || !holders.named.empty();
    if (!held)
        findings.ok("holder", "No program has it open." + std::string(holders.allSeen ? "" : notSeen));
    return {held || console, !holders.locked.empty()};
}

void examineServices(const std::string& path, const std::vector<std::string>& cups, Findings& findings) {
    struct stat device {};
    if (stat(path.c_str(), &device) != 0)
        return;
    examineCups(cups, findings);
    if (!isUsbAdapter(baseName(realPath(path))))
        return;
    const bool ignored = hasProperty(device, "ID_MM_DEVICE_IGNORE") || hasProperty(device, "ID_MM_PORT_IGNORE");
    if (isRunning("ModemManager") && !ignored)
        findings.warning("holder",
                         "ModemManager runs. It sends modem commands to new serial adapters: they can be printed.",
                         "Put this line into /etc/udev/rules.d/71-passbook-port.rules, and plug the adapter in again:\n"
                         "  SUBSYSTEM==\"tty\", KERNEL==\"" +
                             baseName(realPath(path)) +
                             "\", ENV{ID_MM_DEVICE_IGNORE}=\"1\", ENV{ID_MM_PORT_IGNORE}=\"1\"\n"
                             "Or, if nobody here uses a modem:\n  sudo systemctl disable --now ModemManager");
    if (isRunning("brltty"))
        findings.warning("holder",
                         "brltty runs. It takes serial adapters away, for it takes them for Braille displays.",
                         "If nobody here uses one, do this and plug the adapter in again:\n  sudo apt remove brltty");
}

}  // namespace passbook::tool::doctor
