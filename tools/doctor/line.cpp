// Whether the line hands bytes on as they are. The driver sets speed and format of the bytes, and leaves the rest of the
// line's settings as they are. So what the system or an earlier program has set there changes what the printer sends.

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include "tools/doctor/findings.h"

namespace passbook::tool::doctor {

namespace {

struct Flag {
    tcflag_t bit;
    const char* name;  // as stty(1) calls it
    const char* effect;
};

constexpr Flag flags[] = {
    {ICRNL, "icrnl", "carriage returns become line feeds"},
    {IGNCR, "igncr", "carriage returns are lost"},
    {INLCR, "inlcr", "line feeds become carriage returns"},
    {ISTRIP, "istrip", "bytes lose their highest bit"},
    {IUCLC, "iuclc", "capitals become small letters"},
    {PARMRK, "parmrk", "bytes FF come twice"},
    {IXON, "ixon", "bytes 11 and 13 are lost"},
    {IXOFF, "ixoff", "bytes 11 and 13 are sent to the printer in between"},
};

}  // namespace

void examineLine(const std::string& path, Findings& findings) {
    const int descriptor = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0)
        return;  // that has been told
    termios settings{};
    const bool known = tcgetattr(descriptor, &settings) == 0;
    (void)close(descriptor);
    if (!known)
        return;
    std::vector<std::string> effects;
    std::string command;
    for (const Flag& each : flags) {
        if ((settings.c_iflag & each.bit) == 0)
            continue;
        effects.push_back(std::string(each.name) + " (" + each.effect + ")");
        command += std::string(" -") + each.name;
    }
    if (effects.empty()) {
        findings.ok("line", "The line hands on every byte as it is.");
        return;
    }
    const std::string device = realPath(path), name = baseName(device);
    std::string remedy = "Until the computer starts again:\n  stty -F " + path + command;
    if (!device.starts_with("/dev/pts/"))
        remedy +=
            "\nFor good: put this line into /etc/udev/rules.d/71-passbook-port.rules:\n"
            "  ACTION!=\"remove\", SUBSYSTEM==\"tty\", KERNEL==\"" +
            name + "\", RUN+=\"/bin/stty -F /dev/%k" + command +
            "\"\n"
            "Then:\n  sudo udevadm control --reload && sudo udevadm trigger --name-match=" +
            name;
    // It is the only flow control that the driver leaves on.
    if ((settings.c_iflag & IXON) != 0)
        remedy +=
            "\nBut if the printer's own setting is XON/XOFF, leave ixon on, or text gets lost; then do not scan on "
            "this line.";
    findings.warning(
        "line", "Scans and answers can be damaged. These settings of the line change bytes: " + joined(effects) + ".",
        remedy);
}

}  // namespace passbook::tool::doctor
