// The frame of the tool: what was asked for, what a verb brings back, and how both become text, JSON and an exit status.
#pragma once

#include <functional>
#include <iosfwd>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/family.h"

// NOLINTNEXTLINE(readability-identifier-naming): the library has this name
namespace CLI {
class App;
}

namespace passbook::tool {

/// The exit statuses. A script decides by them what to do next.
enum class Exit {
    done = 0,
    failed = 1,     // the driver reported an error, or the printer does not answer; no ink is in doubt
    badInput = 2,   // wrong usage, or wrong content of a file
    notOpened = 3,  // the port cannot be opened
    refused = 4,    // the printer says no: no paper, an error of its own
    inDoubt = 5,    // something may be on the paper: a person looks at the page
};

/// What a verb brings back.
class Report {
 public:
    std::string verb;
    nlohmann::ordered_json brought = nlohmann::ordered_json::object();  // more for the JSON object, key by key

    /// A line for people, on standard output. With --json it is not printed.
    void say(const std::string& line) { lines_.push_back(line); }
    /// A line on standard error, at once. The exit status stays.
    void warn(const std::string& line) { warnings_.push_back(line); }
    /// The verb has failed: one clear line for people. The first failure decides on the exit status, but one that
    /// leaves doubt about the paper always does. Returns false.
    bool fail(Exit exit, const std::string& message);

    /// Takes over what the driver tells of the call that was made last (passbook_outcome), and whose result was
    /// `result`. Returns whether the call did all that it should: good result, nothing lost, all in its place.
    bool take(int result);

    /// Says what has failed in other words.
    void rephrase(const std::string& message) { message_ = message; }

    [[nodiscard]] Exit exit() const { return exit_; }
    [[nodiscard]] const std::string& message() const { return message_; }
    [[nodiscard]] const std::vector<std::string>& warnings() const { return warnings_; }

    /// The verb has better advice than what the driver says of the result.
    void dropRemedies() { remedies_.clear(); }

    /// Everything for standard output, and for standard error.
    void write(std::ostream& out, std::ostream& err, bool json) const;

 private:
    Exit exit_ = Exit::done;
    int result_ = 0;
    int ink_ = 0;  // of all calls; see enum passbook_ink
    bool inPlace_ = true;
    std::string name_ = "PASSBOOK_OK";
    std::string message_;
    std::vector<std::string> lines_, warnings_, remedies_;
};

/// The options that all verbs share.
struct Setting {
    std::string port;  // a name as YARDO_PR2_OpenPort takes it; /dev/ in front is taken off
    Family family = Family::oli;
    bool familyAsked = false;  // by option or environment; else it is what most printers are
    bool json = false, progress = false;
    double offsetXMm = 0, offsetYMm = 0;  // added to every place
    std::string trace;                    // a file; empty: none
    bool traceUnmasked = false;
};

/// What a verb knows of the printer and the document before its job is done.
struct Wish {
    std::optional<Family> family{};
    double widthMm = 0, heightMm = 0;  // of the document; 0: not said
};

/// What a verb's job works with.
struct Tool {
    Setting setting;
    Report report;
    std::function<void(Tool&)> job;  // of the verb that was asked for
    std::function<Wish()> wish;      // of the same; empty: it has none

    /// Whether there is a port to work on; else the report has the failure.
    [[nodiscard]] bool hasPort();
    /// Whether the printer's family is the one that the verb can do; else the report has the failure.
    [[nodiscard]] bool isFamily(Family only);
};

/// Whether the user has asked to stop (Ctrl-C). The running call ends, and so does what would come after it.
[[nodiscard]] bool stopAsked();

/// The user's standard output, for a program that a verb starts: while a verb works, the driver's lines have taken its
/// place.
[[nodiscard]] int standardOutput();
void setStandardOutput(int descriptor);

/// The tool: everything behind main(). `arguments` without the program's name. Returns the exit status.
int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

}  // namespace passbook::tool
