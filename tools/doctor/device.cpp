// Serial and parallel ports: whether there is one of that name, and what it is.

#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "tools/doctor/findings.h"
#include "tools/doctor/processes.h"

namespace passbook::tool::doctor {

namespace {

constexpr unsigned usbClassMajor = 180;  // /dev/usb/lp0 and its kin

/// For names that people bring from elsewhere.
std::string hintFor(const std::string& port) {
    std::string upper = port;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](char c) { return c >= 'a' && c <= 'z' ? c - 32 : c; });
    if (upper == "USB")
        return "\nA printer on USB has the port name USB, in capital letters: --port USB";
    if (upper.starts_with("COM") && upper.size() == 4 && upper[3] >= '1' && upper[3] <= '9')
        return "\nWhat is called " + upper + " elsewhere is ttyS" + std::to_string(upper[3] - '1') +
               " here; an adapter on USB is ttyUSB0.";
    return "";
}

void tellMissing(const std::string& port, const std::string& path, Findings& findings) {
    struct stat link {};
    if (lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
        findings.problem("port", path + " is a link to a device that is not there.",
                         "See to the cable and to the power of the adapter. " + whatThereIs());
        return;
    }
    std::string remedy = "See to the cable and to the name. " + whatThereIs() + hintFor(port);
    if (port.starts_with("ttyUSB") && isRunning("brltty"))
        remedy +=
            "\nbrltty runs. It takes serial adapters away, for it takes them for Braille displays. If nobody here "
            "uses one, do this and plug the adapter in again:\n  sudo apt remove brltty";
    findings.problem("port", "There is no " + path + ".", remedy);
}

std::string describe(const std::string& path) {
    const std::string real = realPath(path);
    std::string text = path + (real == path ? "" : ", a link to " + real + ",");
    return text + (isUsbAdapter(baseName(real)) ? " is there: a serial adapter on USB." : " is there.");
}

}  // namespace

Way examineDevice(const std::string& port, Findings& findings) {
    const std::string path = "/dev/" + port;
    struct stat device {};
    if (stat(path.c_str(), &device) != 0 && errno != EACCES) {
        tellMissing(port, path, findings);
        return {true, false};
    }
    if (device.st_mode != 0 && !S_ISCHR(device.st_mode)) {
        findings.problem("port", path + " is no device of a printer, but a file or a directory.",
                         whatThereIs() + hintFor(port));
        return {false, false};
    }
    findings.ok("port", describe(path));
    const Right right = examineRight(path, "dialout", ownerRule(path, "dialout"), findings);
    if (right.error == 0 && !right.terminal && major(device.st_rdev) != usbClassMajor) {
        findings.problem("port", path + " is no serial line. What is sent there does not reach a printer.",
                         whatThereIs());
        return {false, false};
    }
    const Hold hold = examineHolders(path, findings);
    if (right.alone && !hold.held)
        findings.problem("holder", "Some program has claimed it for itself alone. It cannot be seen from here.",
                         "This shows which one:\n  sudo fuser -v " + path);
    examineServices(path, {":" + realPath(path) + "?", ":" + path + "?"}, findings);
    if (right.error != 0)
        return {};
    examineLine(path, findings);
    const bool free = !hold.held && !right.alone;
    return {free || hold.locked, free};
}

Way examineParallel(Findings& findings) {
    const char* const prefix = access("/dev/parallel/", F_OK) == 0  ? "/dev/parallel/"
                               : access("/dev/printers", F_OK) == 0 ? "/dev/printers/"
                                                                    : "/dev/lp";
    constexpr int most = 4;
    for (int n = 0; n < most; ++n) {
        const std::string path = prefix + std::to_string(n);
        if (access(path.c_str(), F_OK) != 0)
            continue;
        findings.ok("port", path + " is there. The driver takes the first of them that opens.");
        const Right right = examineRight(path, "lp", ownerRule(path, "lp"), findings);
        const bool held = examineHolders(path, findings).held;
        examineServices(path, {":" + path}, findings);
        if (right.error != 0 || right.alone || held)
            continue;
        findings.warning(
            "answer", "The printer was not asked: on a parallel port a silent printer is awaited for ever.",
            "This asks it, and gives up after 30 seconds:\n  timeout -s KILL 30 passbook --port LPT status");
        return {true, false};
    }
    if (!findings.has(Level::ok))
        findings.problem("port",
                         "There is no parallel port. These were looked for: " + std::string(prefix) + "0 to " + prefix +
                             "3. The digit in the port's name has no meaning.",
                         "If the computer has one:\n  sudo modprobe parport_pc && sudo modprobe lp\nAn adapter on USB "
                         "for parallel printers is "
                         "/dev/usb/lp0: --port usb/lp0");
    return {true, false};
}

}  // namespace passbook::tool::doctor
