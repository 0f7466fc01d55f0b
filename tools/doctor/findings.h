// What the doctor finds, and where its parts look for it.
#pragma once

#include <sys/stat.h>

#include <string>
#include <utility>
#include <vector>

namespace passbook::tool {
struct Tool;
}

namespace passbook::tool::doctor {

enum class Level { ok, warning, problem };

struct Finding {
    std::string kind;  // port, right, holder, line, open, answer, status, family
    Level level;
    std::string text;
    std::string remedy;  // lines of text and commands; empty with ok
};

class Findings {
 public:
    void ok(std::string kind, std::string text) { add({std::move(kind), Level::ok, std::move(text), {}}); }
    void warning(std::string kind, std::string text, std::string remedy) {
        add({std::move(kind), Level::warning, std::move(text), std::move(remedy)});
    }
    void problem(std::string kind, std::string text, std::string remedy) {
        add({std::move(kind), Level::problem, std::move(text), std::move(remedy)});
    }
    [[nodiscard]] bool has(Level level) const { return first(level) != nullptr; }
    [[nodiscard]] const Finding* first(Level level) const {
        for (const Finding& each : list_)
            if (each.level == level)
                return &each;
        return nullptr;
    }
    [[nodiscard]] const std::vector<Finding>& list() const { return list_; }

 private:
    void add(Finding finding) { list_.push_back(std::move(finding)); }
    std::vector<Finding> list_;
};

/// What the way to the printer allows, as far as it was looked at without the driver.
struct Way {
    bool open = true;  // the driver can try to open the port. Under another program's feet it would change the line.
    bool ask = true;   // the printer can be asked: no other program works with it, and a question has an end
};

/// A serial device below /dev, and a parallel port under the names that the driver tries.
[[nodiscard]] Way examineDevice(const std::string& port, Findings& findings);
[[nodiscard]] Way examineParallel(Findings& findings);
/// The known printers on USB.
[[nodiscard]] Way examineUsb(Findings& findings);

/// Whether this user may open a device, and if not, why not and what helps.
struct Right {
    int error = 0;  // errno of the attempt
    bool terminal = false;
    bool alone = false;  // some program claims it for itself alone
};
/// A device that has no group for hosts is given to `group`: `mend` tells how, see also ownerRule.
[[nodiscard]] Right examineRight(const std::string& path, const std::string& group, const std::string& mend,
                                 Findings& findings);
/// The commands that give a device to a group.
[[nodiscard]] std::string ownerRule(const std::string& path, const std::string& group);

/// Whether others work with a device.
struct Hold {
    bool held = false;
    bool locked = false;  // with the lock of this library: then its opening fails, and changes nothing
};
/// Who has the device open, or writes to it.
[[nodiscard]] Hold examineHolders(const std::string& path, Findings& findings);
/// The programs of the system that reach for printers and adapters by themselves. `cups` is what a queue's address holds.
void examineServices(const std::string& path, const std::vector<std::string>& cups, Findings& findings);

/// Whether the line hands bytes on as they are.
void examineLine(const std::string& path, Findings& findings);

/// Opens the port with the driver and asks the printer; with `askOther` also in the other family's way.
void examineAnswer(Tool& tool, Way way, bool askOther, Findings& findings);

// Small helpers.

[[nodiscard]] std::string firstLineOf(const std::string& path);
/// What a path leads to when it is a symbolic link; else the path itself.
[[nodiscard]] std::string realPath(const std::string& path);
/// The last part of a path.
[[nodiscard]] std::string baseName(const std::string& path);
/// Names in /sys or /dev, in order; empty when there is no such directory.
[[nodiscard]] std::vector<std::string> namesIn(const std::string& directory);
/// What serial ports this computer has, as a sentence.
[[nodiscard]] std::string whatThereIs();
/// "a, b and c"
[[nodiscard]] std::string joined(const std::vector<std::string>& names);
/// The serial ports of this computer that have hardware behind them.
[[nodiscard]] std::vector<std::string> serialPorts();
/// Whether a serial port, as the system names it, is an adapter on USB.
[[nodiscard]] bool isUsbAdapter(const std::string& name);

}  // namespace passbook::tool::doctor
