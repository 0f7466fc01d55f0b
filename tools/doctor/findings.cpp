#include "tools/doctor/findings.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace passbook::tool::doctor {

namespace fs = std::filesystem;

std::string firstLineOf(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

std::string realPath(const std::string& path) {
    constexpr int mostLinks = 8;
    fs::path real = path;
    for (int links = 0; links < mostLinks; ++links) {
        std::error_code error;
        const fs::path target = fs::read_symlink(real, error);
        if (error)
            break;
        real = (real.parent_path() / target).lexically_normal();  // an absolute target stands alone
    }
    return real.string();
}

std::string baseName(const std::string& path) {
    return path.substr(path.find_last_of('/') + 1);
}

std::vector<std::string> namesIn(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator each(directory, error); !error && each != fs::directory_iterator();
         each.increment(error))
        names.push_back(each->path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i)
        text += (i == 0 ? "" : i + 1 < names.size() ? ", " : " and ") + names[i];
    return text;
}

std::vector<std::string> serialPorts() {
    std::vector<std::string> ports;
    for (const std::string& name : namesIn("/sys/class/tty")) {
        const std::string about = "/sys/class/tty/" + name;
        // Type 0: the system keeps a name for a port that this computer does not have.
        if (access((about + "/device").c_str(), F_OK) == 0 && firstLineOf(about + "/type") != "0" &&
            access(("/dev/" + name).c_str(), F_OK) == 0)
            ports.push_back(name);
    }
    return ports;
}

std::string whatThereIs() {
    const std::vector<std::string> ports = serialPorts();
    return ports.empty() ? "This computer has no serial port." : "The serial ports of this computer: " + joined(ports);
}

bool isUsbAdapter(const std::string& name) {
    return baseName(realPath("/sys/class/tty/" + name + "/device/subsystem")).starts_with("usb");
}

}  // namespace passbook::tool::doctor
