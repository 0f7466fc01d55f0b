#include "tests/recorded.h"

#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "tests/support.h"

namespace passbook::tests {
namespace {

/// The records of this process, which may run one test or all of them.
class Records : public testing::EmptyTestEventListener {
 public:
    Records() { testing::UnitTest::GetInstance()->listeners().Append(this); }  // which owns it from then on

    std::string lines, last;
    int same = 0;

    void end() {
        if (same > 0)
            lines += last + (same > 1 ? " (" + std::to_string(same) + " times)\n" : "\n");
        same = 0;
    }

 private:
    void OnTestEnd(const testing::TestInfo& test) override {
        end();
        std::string name = std::string(test.test_suite_name()) + '.' + test.name() + ".txt";
        std::replace(name.begin(), name.end(), '/', '-');
        const std::string path = PASSBOOK_SOURCE_DIR "/tests/recorded/" + name;
        if (std::getenv("PASSBOOK_RECORD") == nullptr)
            EXPECT_EQ(lines, lines.empty() ? "" : readFile(path));
        else if (!lines.empty())
            writeFile(path, lines);
        lines.clear();
    }
};

Records* const records = new Records;

}  // namespace

void record(const std::string& line) {
    if (line != records->last)
        records->end();
    records->last = line;
    ++records->same;
}

std::string inWords(const struct passbook_outcome& outcome) {
    std::ostringstream words;
    words << outcome.function << ' ' << outcome.result << ": ink " << outcome.ink
          << (outcome.in_place ? "" : " anywhere");
    if (outcome.x_dots != -1 || outcome.y_dots != -1)
        words << " at " << outcome.x_dots << ' ' << outcome.y_dots;
    if (outcome.done != 0 || outcome.total != 0)
        words << ", done " << outcome.done << '/' << outcome.total;
    for (const auto& [count, what] : {std::pair(static_cast<long long>(outcome.parts), "parts"),
                                      {outcome.transfers, "writes"},
                                      {outcome.failed_transfers, "failed"},
                                      {outcome.missing_answers, "unanswered"},
                                      {outcome.bytes_sent, "bytes"},
                                      {outcome.system_error, "error"}})
        if (count != 0)
            words << ", " << what << ' ' << count;
    words << ". " << outcome.message;
    return words.str();
}

std::string inWords(const struct passbook_trace_event& event) {
    const std::string data(event.data, event.data + event.length);
    return std::string("CRwrox").substr(static_cast<std::size_t>(event.kind), 1) + std::to_string(event.result) + ',' +
           std::to_string(event.system_error) + ' ' + spelled(data);
}

std::string shortened(const std::string& text) {
    if (text.size() <= 200)
        return text;
    const auto sum = crc32(0, octets(text.data()), static_cast<uInt>(text.size()));
    return text.substr(0, 150) + " ... " + std::to_string(text.size()) + " characters, sum " + std::to_string(sum);
}

}  // namespace passbook::tests
