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
        if (++writes != deadly_)
            return FailingLine::write(data);
        (void)FailingLine::write(data.substr(0, data.size() / 2));
        throw Killed{};
    }
    int writes = 0;

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

    static std::string textOf(int i) { return "line " + std::to_string(100 + i); }

    void describe(sim::Family family) {
        oli_ = family == sim::Family::oli;
        nlohmann::json page = {{"family", oli_ ? "oli" : "oki"}, {"eject", true}};
        for (int i = 0; i < texts; ++i)
            page["steps"].push_back({{"text", textOf(i)}, {"x", 10 + i % 2 * 60}, {"y", 10 + 4.3 * i}});
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
    /// Whether all the ink of a step is on the page, as somebody who looks sees it.
    [[nodiscard]] bool isThere(int step) const {
        const std::string name = told_.at("nextStepName");
        return step > 0 && std::any_of(wanted_.begin(), wanted_.end(), [&](const auto& item) {
                   const std::string what = item.first.substr(0, item.first.find(' ', item.first.find(' ') + 1));
                   const bool image = item.first.starts_with("bitmap") && name.starts_with("image");
                   return (image || name.find('"' + what + '"') != std::string::npos) && ink_.contains(item.first);
               });
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
        for (int attempts = 0; status != 0 && attempts < 8; ++attempts) {
            collect();
            std::vector<std::string> more = {"--resume"};
            if (!std::filesystem::exists("journal") || std::filesystem::file_size("journal") == 0)
                more.clear();
            status = passbook(more);
            collect();
            if (status != 0 && status != -1 &&
                std::string(told_.at("message")).find("--from-top") != std::string::npos) {
                newLine({});
                more.push_back("--from-top");
                status = passbook(more);
            }
            if (status == 5) {
                ++looks;
                const int step = told_.at("nextStep");
                more.insert(more.end(), {isThere(step) ? "--skip" : "--reprint", std::to_string(step)});
                status = passbook(more);
            }
        }
        collect();
        EXPECT_EQ(status, 0) << told_;
        return looks;
    }

    bool oli_ = true;
    std::unique_ptr<DeadlyLine> line_;
    nlohmann::json told_;
    std::map<std::string, int> ink_, wanted_;

    void TearDown() override {
        line_.reset();
        Day::TearDown();
    }

    void sweep(sim::Family family) {
        describe(family);
        ASSERT_EQ(print({}), 0);
        wanted_ = ink_;
        ASSERT_GT(wanted_.size(), texts);
        const int transfers = line_->transfers, writes = line_->writes, journalCalls = JournalDeath::calls;
        ASSERT_GT(journalCalls, 100);
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
        for (int fault = FailingLine::error; fault < FailingLine::faults; ++fault) {
            for (int at = 1; at <= transfers && !HasFailure(); ++at) {
                SCOPED_TRACE("fault " + std::to_string(fault) + " of transfer " + std::to_string(at));
                looks = print({.fault = static_cast<FailingLine::Fault>(fault), .transfer = at});
                // Bytes that the line takes and loses nobody can know of.
                const bool visible = fault < FailingLine::truncated;
                EXPECT_TRUE(!visible || ink_ == wanted_);
                for (const auto& [what, count] : ink_)
                    EXPECT_LE(count, fault == FailingLine::doubled ? 2 : 1) << what;
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
    EXPECT_EQ(line_->writes, 40) << "something was sent";
}

}  // namespace
}  // namespace passbook::tests

extern "C" {
int __real_fsync(int descriptor);
int __wrap_fsync(int descriptor) {
    using passbook::tests::JournalDeath;
    if (++JournalDeath::calls == JournalDeath::at) {
        struct stat file {};
        if (JournalDeath::halfWritten && fstat(descriptor, &file) == 0 && S_ISREG(file.st_mode))
            (void)ftruncate(descriptor, std::max<off_t>(file.st_size - 9, 0));
        throw passbook::tests::Killed{};
    }
    return __real_fsync(descriptor);
}
}
