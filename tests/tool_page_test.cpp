// passbook page with a journal: whatever happens in the middle, no step is printed twice and none is left out, and the
// user is asked exactly where nobody can know.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <memory>
#include <sstream>

#include "device/device.h"
#include "device/outcome.h"
#include "tests/failing_line.h"
#include "tools/page/journal.h"
#include "tools/tool.h"

namespace passbook::tests {

/// What ends a process at once.
struct Killed {};

namespace {

/// The n-th call that brings the journal to the disk, 1 is the first, is the last thing that this process does. A write
/// that is half done when that happens leaves half a line.
struct JournalDeath {
    static inline int at = 0, calls = 0;
    static inline bool halfWritten = false;
};

/// A line on whose n-th write the process dies, when half of it is out.
class DeadlyLine : public FailingLine {
 public:
    DeadlyLine(const sim::Scenario& scenario, Fault fault, int at, int deadlyWrite)
        : FailingLine("/dev/line", scenario, fault, at), deadly_(deadlyWrite) {}
    ssize_t write(const std::string& data) override {
        if (++attempts != deadly_)
            return FailingLine::write(data);
        (void)FailingLine::write(data.substr(0, data.size() / 2));
        throw Killed{};
    }
    int attempts = 0;

 private:
    int deadly_;
};

struct Trouble {
    FailingLine::Fault fault = FailingLine::none;
    int transfer = 0, deadlyWrite = 0, deadlyJournalCall = 0;
    bool halfWritten = false;
};

class Page : public Day {
 protected:
    static constexpr int texts = 26;  // with the image and what is around it 30 steps

    void describe(sim::Family family) {
        oli_ = family == sim::Family::oli;
        nlohmann::json page = {{"family", oli_ ? "oli" : "oki"}, {"eject", true}};
        for (int i = 0; i < texts; ++i)
            page["steps"].push_back(
                {{"text", "line " + std::to_string(100 + i)}, {"x", 10 + i % 2 * 60}, {"y", 10 + 4.3 * i}});
        page["steps"].push_back({{"image", "a.png"}, {"x", 12.3}, {"y", 130.1}});
        if (oli_)
            page["steps"].insert(page["steps"].begin() + 9,
                                 nlohmann::json::object({{"format", {{"pitch", 12}, {"bold", true}}}}));
        writeFile("page.json", page.dump(1));
    }

    /// Runs the tool. Exit status -1: it has died.
    int passbook(std::vector<std::string> more) {
        std::vector<std::string> arguments = {"--port", "line", "--json", "page", "page.json", "--journal", "journal"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        std::ostringstream out, err;
        int status = -1;
        findTrack();  // which a new process has never lost
        try {
            status = tool::run(arguments, out, err);
            told_ = nlohmann::json::parse(out.str());
        } catch (const Killed&) {
            (void)PRSexit();
            (void)YARDO_PR2_ClosePort();
        }
        JournalDeath::at = 0;
        return status;
    }

    /// The ink that is on the pages so far: what, and where.
    void collect() {
        for (const nlohmann::json& each : line_->takeEvents())
            if (const std::string kind = each.at("event"); kind == "text" || kind == "bitmap")
                ++ink_[(kind == "text" ? each.at("text").get<std::string>() : kind) + " " + each.at("xDots").dump() +
                       " " + each.at("yDots").dump()];
    }
    void newLine(const Trouble& trouble) {
        line_.reset();
        line_ = std::make_unique<DeadlyLine>(scenario(oli_ ? sim::Family::oli : sim::Family::oki), trouble.fault,
                                             trouble.transfer, trouble.deadlyWrite);
    }
    /// What somebody does who looks at the page: a step that is there whole is skipped. Else what is there of it, and
    /// what is on the page by mistake, is struck out, and the step is printed again.
    std::string look(int step) {
        const std::string name = told_.at("nextStepName");
        std::set<std::string> places;
        bool whole = true;
        for (const auto& [item, count] : wanted_) {
            const std::size_t place = item.rfind(' ', item.rfind(' ') - 1);
            const std::string text = item.substr(0, place);
            if (text == "bitmap" ? !name.starts_with("image") : name.find('"' + text + '"') == std::string::npos)
                continue;
            places.insert(item.substr(place));
            whole = whole && ink_.contains(item);
        }
        EXPECT_FALSE(places.empty()) << "step " << step << " leaves no ink: " << name;
        std::erase_if(ink_, [&](const auto& each) {
            return !whole && (!wanted_.contains(each.first) ||
                              places.contains(each.first.substr(each.first.rfind(' ', each.first.rfind(' ') - 1))));
        });
        ++(whole ? skips_ : reprints_);
        return whole ? "--skip" : "--reprint";
    }

    /// Prints the page with one trouble, and goes on until it is done, as a careful user does. Returns how often the
    /// user had to look at the page.
    int print(const Trouble& trouble) {
        virtualClock = {};
        std::filesystem::remove("journal");
        ink_.clear();
        newLine(trouble);
        JournalDeath::at = trouble.deadlyJournalCall;
        JournalDeath::halfWritten = trouble.halfWritten;
        JournalDeath::calls = 0;
        int status = passbook({}), looks = 0;
        collect();
        for (int attempts = 0; status != 0 && attempts < 8; ++attempts) {
            std::vector<std::string> more = {"--resume"};
            if (!std::filesystem::exists("journal") || std::filesystem::file_size("journal") == 0)
                more.clear();
            status = passbook(more);
            collect();
            const std::string message = told_.at("message");
            if (status != 0 && message.find("--from-top") != std::string::npos) {
                newLine({});
                more.push_back("--from-top");
            }
            if (status == 5) {
                ++looks;
                const int step = told_.at("nextStep");
                more.insert(more.end(), {look(step), std::to_string(step)});
            }
            if (status != 0 && more.size() > 1)
                status = passbook(more);
            collect();
        }
        EXPECT_EQ(status, 0) << told_;
        return looks;
    }

    bool oli_ = true;
    int skips_ = 0, reprints_ = 0;
    std::unique_ptr<DeadlyLine> line_;
    nlohmann::json told_;
    std::map<std::string, int> ink_, wanted_;

    void TearDown() override {
        line_.reset();
        Day::TearDown();
    }

    static std::map<std::string, int> byText(const std::map<std::string, int>& ink) {
        std::map<std::string, int> counts;
        for (const auto& [item, count] : ink)
            counts[item.substr(0, item.rfind(' ', item.rfind(' ') - 1))] += count;
        return counts;
    }

    void sweep(sim::Family family) {
        describe(family);
        ASSERT_EQ(print({}), 0);
        wanted_ = ink_;
        ASSERT_GT(wanted_.size(), texts);
        const int transfers = line_->transfers, writes = line_->attempts, journalCalls = JournalDeath::calls;
        ASSERT_GT(journalCalls, 2 * texts);
        int looks = 0;
        for (int at = 1; at <= writes && !HasFailure(); ++at) {
            SCOPED_TRACE("killed at write " + std::to_string(at));
            looks += print({.deadlyWrite = at});
            EXPECT_EQ(ink_, wanted_);
        }
        for (int at = 1; at <= 2 * journalCalls && !HasFailure(); ++at) {
            SCOPED_TRACE("killed at call " + std::to_string(at / 2) + " for the journal");
            looks += print({.deadlyJournalCall = (at + 1) / 2, .halfWritten = at % 2 == 0});
            EXPECT_EQ(ink_, wanted_);
        }
        EXPECT_GT(looks, texts);
        EXPECT_TRUE(skips_ > texts && reprints_ > texts) << "what is asked could be known";
        for (int fault = FailingLine::error; fault < FailingLine::lost; ++fault) {
            for (int at = 1; at <= transfers && !HasFailure(); ++at) {
                SCOPED_TRACE("fault " + std::to_string(fault) + " of transfer " + std::to_string(at));
                looks = print({.fault = static_cast<FailingLine::Fault>(fault), .transfer = at});
                // Bytes that the line takes and loses nobody can know of.
                const bool visible = fault < FailingLine::halved;
                EXPECT_TRUE(!visible || ink_ == wanted_) << testing::PrintToString(ink_) << told_;
                auto counts = byText(ink_);
                for (const auto& [text, count] : byText(wanted_))
                    EXPECT_LE(counts[text], count + (fault == FailingLine::doubled ? 1 : 0)) << text;
                EXPECT_LE(looks, 1);
            }
        }
    }
};

TEST_F(Page, IsPrintedOnceWhateverHappensOnOli) {
    sweep(sim::Family::oli);
}
TEST_F(Page, IsPrintedOnceWhateverHappensOnOki) {
    sweep(sim::Family::oki);
}

TEST_F(Page, JournalsOfOthersAndDamagedOnesAreRefused) {
    describe(sim::Family::oli);
    newLine({.deadlyWrite = 40});
    ASSERT_EQ(passbook({}), -1);
    const std::string journal = readFile("journal"), page = readFile("page.json");
    EXPECT_EQ(passbook({}), 2) << "it is there already";
    for (std::size_t at = 0; at + 1 < journal.size(); at += 7) {
        std::string damaged = journal;
        damaged[at] = static_cast<char>(damaged[at] ^ 1);
        writeFile("journal", damaged);
        EXPECT_EQ(passbook({"--resume"}), 2) << at;
    }
    writeFile("journal", journal);
    writeFile("page.json", page + " ");
    EXPECT_EQ(passbook({"--resume"}), 2);
    writeFile("page.json", page);
    EXPECT_EQ(passbook({"--resume", "--offset", "1,0"}), 2);
    EXPECT_EQ(passbook({"--resume", "--reprint", "3"}), 2) << "it is not in doubt";
    tool::Journal other;
    EXPECT_EQ(other.open("journal", true, 30), "");
    EXPECT_EQ(passbook({"--resume"}), 2) << "another process has it";
    EXPECT_EQ(line_->attempts, 40) << "something was sent";
}

}  // namespace
}  // namespace passbook::tests

extern "C" {
int __wrap_fsync(int descriptor) {
    using passbook::tests::JournalDeath;
    if (++JournalDeath::calls == JournalDeath::at) {
        struct stat file {};
        if (JournalDeath::halfWritten && fstat(descriptor, &file) == 0 && S_ISREG(file.st_mode))
            (void)(ftruncate(descriptor, std::max<off_t>(file.st_size - 9, 0)) == 0);
        throw passbook::tests::Killed{};
    }
    return 0;  // no power is cut here
}
}
