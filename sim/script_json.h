// Scenarios, rules and actions as JSON: passbook-scenario(5).
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json/fields.h"
#include "sim/history.h"
#include "sim/printer.h"

namespace passbook::sim {

/// A file of a scenario. Pictures are named only: of the sides for the scanner here, and in the expectations.
struct ScenarioFile {
    Scenario scenario{};
    bool familyGiven = false;
    std::array<std::string, 2> scanFiles{};
    std::vector<Expectation> expectations{};
};

/// Of a scenario in a file. What is wrong is added to `problems`, one line each, with line and path.
void readScenario(std::string_view text, const std::string& fileName, ScenarioFile& file,
                  std::vector<std::string>& problems);

/// Reads parts of a document that tell of a printer.
class ScriptReader {
 public:
    /// `file` is empty if the document is none. Both must outlive the object.
    ScriptReader(const LocatedJson& document, const std::string& file, Family family)
        : document_(document), file_(file), family_(family) {}

    /// The object, or the list of objects, that is the value of `key`.
    [[nodiscard]] std::vector<Action> actions(Fields& parent, const std::string& key);
    [[nodiscard]] std::vector<Expectation> expectations(Fields& parent, const std::string& key);
    /// `knows` tells whether there is a rule of that name.
    [[nodiscard]] Rule rule(Fields fields, const std::function<bool(const std::string&)>& knows);

    /// Those of an event that a condition names.
    [[nodiscard]] static nlohmann::json eventKeys(Fields& fields, const std::string& key);
    [[nodiscard]] static std::chrono::milliseconds seconds(Fields& fields, const std::string& key);

 private:
    [[nodiscard]] Action action(Fields fields);
    [[nodiscard]] Action jam(Fields& fields);
    [[nodiscard]] Action status(Fields& fields);
    [[nodiscard]] Action answers(Fields& fields);
    [[nodiscard]] Action line(Fields& fields);
    [[nodiscard]] Until until(Fields& fields);
    [[nodiscard]] Expectation expectation(Fields fields);
    [[nodiscard]] std::string command(Fields& fields, const std::string& key) const;
    [[nodiscard]] Trigger trigger(Fields fields, const std::function<bool(const std::string&)>& knows);
    template <typename Item>
    [[nodiscard]] std::vector<Item> oneOrMore(Fields& parent, const std::string& key,
                                              Item (ScriptReader::*read)(Fields));

    const LocatedJson& document_;
    const std::string& file_;
    Family family_;
};

}  // namespace passbook::sim
