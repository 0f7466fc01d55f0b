// Whether this user may open the device.

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "tools/doctor/findings.h"

namespace passbook::tool::doctor {

namespace {

constexpr std::size_t namesSize = 4096;  // of an entry in the databases of users and groups

struct User {
    std::string name;
    gid_t group = 0;
};

User userOf(uid_t id) {
    std::array<char, namesSize> names{};
    passwd entry{};
    passwd* found = nullptr;
    const bool known = getpwuid_r(id, &entry, names.data(), names.size(), &found) == 0 && found != nullptr;
    return known ? User{found->pw_name, found->pw_gid} : User{std::to_string(id), getegid()};
}

std::string nameOfGroup(gid_t id) {
    std::array<char, namesSize> names{};
    group entry{};
    group* found = nullptr;
    const bool known = getgrgid_r(id, &entry, names.data(), names.size(), &found) == 0 && found != nullptr;
    return known ? found->gr_name : std::to_string(id);
}

/// Whether the user's next login will have the group.
bool isMember(const User& user, gid_t wanted) {
    constexpr int most = 1024;
    std::array<gid_t, most> groups{};
    int count = most;
    return getgrouplist(user.name.c_str(), user.group, groups.data(), &count) > 0 &&
           std::find(groups.begin(), groups.begin() + count, wanted) != groups.begin() + count;
}

/// "crw-rw----" without the kind.
std::string modeText(mode_t mode) {
    std::string text = "rwxrwxrwx";
    for (std::size_t i = 0; i < text.size(); ++i)
        if ((mode >> (text.size() - 1 - i) & 1U) == 0)
            text[i] = '-';
    return text;
}

void tellRefused(const std::string& path, const std::string& group, const std::string& mend, Findings& findings) {
    struct stat device {};
    const User self = userOf(geteuid());
    const std::string& user = self.name;
    if (stat(path.c_str(), &device) != 0) {
        findings.problem("right", "User " + user + " may not look into the directory of " + path + ".",
                         "This shows whose it is:\n  ls -ld " + path.substr(0, path.find_last_of('/')));
        return;
    }
    const std::string owners = path + " belongs to user " + userOf(device.st_uid).name + " and group " +
                               nameOfGroup(device.st_gid) + ", with the rights " + modeText(device.st_mode) + ".";
    constexpr mode_t groupRights = S_IRGRP | S_IWGRP;
    std::string text = "User " + user + " may not open it: " + owners, remedy;
    if (device.st_gid == 0 || (device.st_mode & groupRights) != groupRights) {
        remedy = mend + "\nThen do this, and log out and in again:\n  sudo usermod -aG " + group + " " + user;
    } else if (isMember(self, device.st_gid)) {
        text += " User " + user + " is in that group by now, but this login is older.";
        remedy = "Log out and in again. A service must be started again.";
    } else {
        remedy = "Do this, and log out and in again:\n  sudo usermod -aG " + nameOfGroup(device.st_gid) + " " + user;
    }
    findings.problem("right", text, remedy);
}

}  // namespace

std::string ownerRule(const std::string& path, const std::string& group) {
    const std::string device = realPath(path);
    return "Until it is plugged in again:\n  sudo chgrp " + group + " " + device + " && sudo chmod g+rw " + device +
           "\n"
           "For good: put this line into /etc/udev/rules.d/71-passbook-port.rules:\n  KERNEL==\"" +
           baseName(device) + "\", GROUP=\"" + group + "\", MODE=\"0660\"";
}

Right examineRight(const std::string& path, const std::string& group, const std::string& mend, Findings& findings) {
    Right right;
    // Without O_NONBLOCK the opening waits for a carrier, or for a printer that is on.
    const int descriptor = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    right.error = descriptor < 0 ? errno : 0;
    if (descriptor >= 0) {
        int alone = 0;
        termios settings{};
        right.terminal = tcgetattr(descriptor, &settings) == 0;
        right.alone = ioctl(descriptor, TIOCGEXCL, &alone) == 0 && alone != 0;
        (void)close(descriptor);
    }
    if (right.error == EACCES) {
        tellRefused(path, group, mend, findings);
    } else if (right.error == EBUSY) {
        right.alone = true;  // whose it is, the holders tell
    } else if (right.error == EPERM) {
        findings.problem("right", "The system forbids to open " + path + ", whatever the user's rights are.",
                         "In a container: start it with --device=" + path + ".");
    } else if (right.error != 0) {
        findings.problem(
            "port", path + " cannot be opened: " + std::strerror(right.error) + ".",
            "There is a name, but no hardware that works behind it. See to the cable, or try another port.");
    } else if (geteuid() == 0) {
        findings.ok("right",
                    "Root may open it, as root may open everything. For the user of the host program, call the "
                    "doctor as that user.");
    } else {
        findings.ok("right", "User " + userOf(geteuid()).name + " may open it.");
    }
    return right;
}

}  // namespace passbook::tool::doctor
