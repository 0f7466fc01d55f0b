// What the library tells about its calls, beside their results.
#include <grp.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <regex>
#include <set>

#include "api/passbook.h"
#include "device/outcome.h"
#include "tests/day.h"

namespace passbook::tests {
namespace {

/// The results that the header documents, by function. One that is documented "as" another has that one's, too.
std::map<std::string, std::set<int>> documentedResults(const std::string& header) {
    std::map<std::string, std::set<int>> results;
    const std::regex function(R"re(PASSBOOK_API [^;(]*?(\w+)\([^;]*;)re"),
        code(R"re((?:Returns|[;,]|and|or)\s+(-\d+))re"), as(R"re((?:Returns as|As) (\w+))re");
    auto from = header.begin() + static_cast<std::ptrdiff_t>(header.find("extern \"C\""));
    for (std::sregex_iterator at(from, header.end(), function), end; at != end; ++at) {
        std::string comment(from, (*at)[0].first);
        comment = std::regex_replace(comment.substr(std::min(comment.rfind("/*"), comment.size())),
                                     std::regex(R"(\n \*)"), "");
        from = (*at)[0].second;
        std::set<int>& own = results[at->str(1)];
        if (std::smatch other; std::regex_search(comment, other, as))
            own = results[other[1]];
        const std::string returns = comment.substr(std::min(comment.find("Returns"), comment.size()));
        for (std::sregex_iterator number(returns.begin(), returns.end(), code); number != end; ++number)
            own.insert(std::stoi(number->str(1)));
    }
    return results;
}

TEST(Explanations, AreThoseOfTheHeader) {
    const std::string header = readFile(PASSBOOK_SOURCE_DIR "/api/passbook.h");
    const auto documented = documentedResults(header);
    EXPECT_GT(documented.size(), 40U);
    for (const auto& [function, results] : documented) {
        if (function.starts_with("passbook_") && !function.starts_with("passbook_oki_") &&
            function != "passbook_print_text")
            continue;
        for (int result = -120; result < 20; ++result) {
            const passbook_meaning* const meaning = passbook_explain(function.c_str(), result);
            const bool known = result == 0 ? !function.ends_with("Status") : results.contains(result);
            const bool other = result == PASSBOOK_CANCELLED || result == PASSBOOK_SCAN_NOT_READY;
            EXPECT_TRUE(other || known == (meaning != nullptr)) << function << ' ' << result;
            EXPECT_TRUE(meaning == nullptr || header.find(meaning->name) != std::string::npos) << result;
        }
    }
    const std::string readme = readFile(PASSBOOK_SOURCE_DIR "/README.md");
    const std::regex name(R"re(\b(YARDO|PT)_\w+[^_\W])re");
    for (std::sregex_iterator at(readme.begin(), readme.end(), name), end; at != end; ++at)
        EXPECT_TRUE(documented.contains(at->str())) << at->str();
    EXPECT_EQ((std::vector{passbook_explain(nullptr, 0), passbook_explain("YARDO_PR2", -6), passbook_explain("", 0)}),
              (std::vector<const passbook_meaning*>(3)));
    for (const auto text : {passbook_status_text, passbook_paper_text})
        EXPECT_TRUE(text(1) != nullptr && text(4) != nullptr && text(0) == nullptr && text(16) == nullptr);
}

TEST(Outcome, SaysWhatAPersonNeeds) {
    const Pty pty;
    const char* const held = pty.name.c_str();
    const std::string tooLong(128, 'x');
    const Call rows[] = {
        call(YARDO_PR2_OpenPort, "no/such/line"),
        call(YARDO_PR2_OpenPort, held),
        call(YARDO_PR2_OpenPort, tooLong.c_str()),
        call(YARDO_PR2_OpenPort, "USB"),
        call(PT_PrintTxtStream, "null", 0, 0, 0, 0, "\xFF", 1),
        YARDO_PR2_LR,
    };
    ASSERT_EQ(PRSinit(held), 0);
    Protocol* const other = std::exchange(protocol, nullptr);
    usbFlag = false;
    std::string messages;
    for (const Call& each : rows) {
        EXPECT_LT(each(), 0);
        messages += outcomeNow().message + std::string("\n");
    }
    EXPECT_EQ(messages,
              "/dev/no/such/line: there is no such device\n/dev/" + std::string(held) +
                  " is in use: another program has it open\n"
                  "the name of the port is longer than 127 characters\n"
                  "none of the known printers is on the USB\n"
                  "An argument is wrong; or the text file cannot be read; or the text is not valid UTF-8, or too "
                  "long.\nNo port is open.\n");
    protocol = other;
    usbFlag = true;
    EXPECT_EQ(PRSexit(), 0);

    struct passbook_outcome shorter {};
    for (const std::size_t size : {std::size_t{0}, offsetof(struct passbook_outcome, result), sizeof shorter}) {
        shorter = {};
        shorter.size = static_cast<unsigned>(size);
        shorter.result = 77;
        EXPECT_EQ(passbook_outcome(&shorter), size == 0 ? -1 : 0);
        EXPECT_EQ(std::pair(std::string(shorter.function), shorter.result),
                  std::pair(std::string(size == 0 ? "" : "YARDO_PR2_LR"), size == sizeof shorter ? -6 : 77));
    }
    EXPECT_EQ(passbook_outcome(nullptr), -1);

    const TemporaryDirectory directory;
    const std::string path = directory.file("port");
    writeFile(path, "");
    group own{}, *found = nullptr;
    char names[1024];
    ASSERT_EQ(getgrgid_r(getegid(), &own, names, sizeof names, &found), 0);
    using std::filesystem::perms;
    for (const auto& [rights, error, told] :
         {std::tuple(perms::owner_all, EACCES, std::string("permission denied; only its owner may")),
          {perms::group_all, EACCES, "permission denied; the device belongs to group " + std::string(own.gr_name)},
          {perms::group_all, EMFILE, "Too many open files"}}) {
        std::filesystem::permissions(path, rights);
        beginCall("");
        explainOpening(path.c_str(), error);
        EXPECT_EQ(passbook::outcome().message, path + " cannot be opened: " + told);
    }
}

// A printer that takes nothing any more: with a limit neither a write nor closing waits for it.
TEST(WriteLimit, EndsAWriteThatIsStuck) {
    const Pty pty;
    ASSERT_EQ(YARDO_PR2_OpenPort(pty.name.c_str()), 0);
    EXPECT_EQ((std::vector{passbook_set_write_limit(-1), passbook_set_write_limit(100)}), (std::vector{-1, 0}));
    const std::vector<unsigned char> much(1'000'000, 'x');
    EXPECT_EQ(YARDO_PR2_Command(much.data(), static_cast<int>(much.size())), -3);
    EXPECT_EQ(std::pair(outcomeNow().ink, outcomeNow().failed_transfers), std::pair(int{PASSBOOK_INK_POSSIBLE}, 1));
    EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
    EXPECT_EQ(passbook_set_write_limit(0), 0);
}

TEST(OkiPaper, IsAskedOnAnyPort) {
    struct passbook_oki_paper paper {};
    paper.size = sizeof paper;
    const auto ask = call(passbook_oki_paper, "scripted", &paper);
    const Outcome told = run(ask, {"..<01>.", "..0800", "..1234"});
    EXPECT_EQ(std::tuple(told.result, told.closed, spelled(told.writes)), std::tuple(0, false, "^}SS^}S-^}SL"));
    EXPECT_EQ(std::tuple(paper.status, paper.width, paper.length), std::tuple(2, 800, 1234));
    EXPECT_EQ(run(ask, {"..<07>."}).result, -20);
    EXPECT_EQ(std::tuple(paper.status, paper.width), std::tuple(-20, 0));
    paper.size = 4;
    EXPECT_EQ(std::pair(passbook_oki_paper("null", &paper), passbook_oki_paper(nullptr, &paper)), std::pair(-1, -1));
}

TEST(TemporaryDirectoryOfJobs, IsTheHostsChoice) {
    const TemporaryDirectory own;
    const std::string missing = own.file("none"), tooLong(221, 'd');
    for (const std::string& bad : {missing, tooLong})
        EXPECT_EQ(passbook_set_temporary_directory(bad.c_str()), -1);
    ASSERT_EQ(passbook_set_temporary_directory(own.file("").c_str()), 0);
    std::filesystem::current_path("/proc");  // where nobody can write
    Picture picture(8, 8);
    writePng(picture, own.file("a.png"));
    EXPECT_EQ(PT_PrintImageFile("null", 0, 0, 0, 0, 0, own.file("a.png").c_str()), 0);
    EXPECT_EQ(passbook_set_temporary_directory(nullptr), 0);
    EXPECT_EQ(PT_PrintImageFile("null", 0, 0, 0, 0, 0, own.file("a.png").c_str()), -11);
    std::filesystem::current_path("/");
    EXPECT_STREQ(passbook_version(), PASSBOOK_VERSION);
}

}  // namespace
}  // namespace passbook::tests
