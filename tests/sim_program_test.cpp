// The virtual printer behind a real pseudo-terminal, in a test's own process and as the program its users
// have.

#include <fcntl.h>
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <numeric>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "sim/port.h"

namespace passbook::sim {
namespace {

using namespace std::chrono_literals;

constexpr int kPatienceMs = 20000;

std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

bool eventually(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

class Program {
 public:
    explicit Program(std::vector<std::string> options) {
        options.insert(options.begin(), PASSBOOK_SIM_PROGRAM);
        std::vector<char*> argv;
        for (std::string& word : options) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        int out = -1;
        int err = -1;
        EXPECT_TRUE(g_spawn_async_with_pipes(nullptr, argv.data(), nullptr, G_SPAWN_DO_NOT_REAP_CHILD, nullptr, nullptr, &pid_, nullptr,
                                             &out, &err, nullptr));
        out_ = Descriptor(out);
        err_ = Descriptor(err);
    }
    ~Program() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // The port the program has named, once it is ready; empty if it ended instead.
    std::string port() {
        std::string line;
        char letter = 0;
        while (read(out_.get(), &letter, 1) == 1 && letter != '\n') {
            line += letter;
        }
        constexpr std::string_view kSays = "port: ";
        return line.starts_with(kSays) ? line.substr(kSays.size()) : std::string();
    }

    void signal(int number) const { kill(pid_, number); }

    int exitStatus() {
        int status = 0;
        waitpid(std::exchange(pid_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    std::string rest(bool ofErrors) const {
        std::string text;
        std::array<char, 4096> buffer;
        ssize_t got = 0;
        while ((got = read((ofErrors ? err_ : out_).get(), buffer.data(), buffer.size())) > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(got));
        }
        return text;
    }

 private:
    GPid pid_ = -1;
    Descriptor out_;
    Descriptor err_;
};

// The host: has the port open for as long as it lives.
class Host {
 public:
    explicit Host(const std::string& port) : line_(open(("/dev/" + port).c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK)) {}

    bool send(std::string_view bytes) const { return write(line_.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()); }

    // One read, of whatever is there by then.
    std::string read(std::size_t length, int patienceMs = kPatienceMs) const {
        pollfd readable{line_.get(), POLLIN, 0};
        (void)poll(&readable, 1, patienceMs);
        std::string piece(length, '\0');
        const ssize_t got = ::read(line_.get(), piece.data(), piece.size());
        piece.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
        return piece;
    }

    std::string ask(std::string_view question, std::size_t length) const {
        EXPECT_TRUE(send(question));
        std::string answer;
        for (std::string piece = "?"; answer.size() < length && !piece.empty(); answer += piece) {
            piece = read(length - answer.size());
        }
        return answer;
    }

 private:
    Descriptor line_;
};

// A printer and its port, served by the test itself.
struct Served {
    explicit Served(Scenario scenario = {}) : printer(std::move(scenario)) { EXPECT_TRUE(port) << error; }

    Printer printer;
    std::string error;
    std::unique_ptr<PtyPort> port = PtyPort::open(printer, error);
};

TEST(Port, PiecesStayApartForAHostThatReadsLate) {
    Served served({.split = 2});
    const Host host(served.port->name());
    ASSERT_TRUE(host.send("\033 B\033j"));
    for (const char* piece : {"\033B", "5C", "\033Z", "\033r", "P"}) {
        for (int round = 0; round < 20; ++round) {
            ASSERT_TRUE(served.port->serve(1));
        }
        EXPECT_EQ(host.read(64, 0), piece);
    }
}

TEST(Port, AScanIsReadPieceByPiece) {
    constexpr std::string_view kScan("\033}SM\x58\xAA\033}SDaqAAAA\033}D", 20);
    for (const int block : {3, 50, 1792, 4095}) {
        Scenario scenario{.family = Family::kOki};
        scenario.scan.block = static_cast<std::size_t>(block);
        // Data that a host would take for the end if they came byte by byte.
        scenario.scan.sides[0] = {100, block, [](int, auto bgr) { std::fill(bgr.begin(), bgr.end(), 6); }};
        Printer twin(scenario);
        twin.receive(std::vector<std::uint8_t>(kScan.begin(), kScan.end()));
        std::vector<std::string> pieces;
        std::size_t bytes = 0;
        while (twin.answerPending()) {
            const std::vector<std::uint8_t> piece = twin.takeAnswer();
            pieces.emplace_back(piece.begin(), piece.end());
            bytes += piece.size();
        }

        Served served(scenario);
        const std::jthread printing([&served](const std::stop_token& stop) {
            while (!stop.stop_requested() && served.port->serve(5)) {
            }
        });
        const Host host(served.port->name());
        ASSERT_TRUE(host.send(kScan));
        std::vector<std::string> reads;
        for (std::size_t got = 0; got < bytes; got += reads.back().size()) {
            reads.push_back(host.read(reads.empty() ? 2048 : 16384));
            ASSERT_FALSE(reads.back().empty());
        }
        if (block <= 1792) {
            EXPECT_EQ(reads, pieces) << block;
        }
        EXPECT_EQ(std::accumulate(reads.begin(), reads.end(), std::string()), std::accumulate(pieces.begin(), pieces.end(), std::string()));
        EXPECT_EQ(reads[reads.size() - 2], "\x06");
        EXPECT_EQ(std::count_if(reads.begin(), reads.end() - 1, [](const auto& read) { return read.size() == 1 || read.size() == 8; }), 1)
            << block;
    }
}

TEST(Port, SurvivesAHostThatNeverReadsAndOneThatComesBack) {
    Served served;
    for (int visit = 0; visit < 2; ++visit) {
        const Host host(served.port->name());
        for (int i = 0; i < 20000; ++i) {
            while (!host.send("\033 b")) {
                ASSERT_TRUE(served.port->serve(0));
            }
        }
        const auto before = std::chrono::steady_clock::now();
        ASSERT_TRUE(served.port->serve(50));
        EXPECT_LT(std::chrono::steady_clock::now() - before, 5s);
    }
}

TEST(Port, BringsWhatIsDueAtTheSlotAndWakesForTheCaller) {
    Served served({.paper = PaperState::kNone, .habits = {0ms, 20ms}});
    const auto start = std::chrono::steady_clock::now();
    while (served.printer.paperState() == PaperState::kNone) {
        ASSERT_TRUE(served.port->serve(60000));
    }
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const Descriptor wake(ends[0]);
    close(ends[1]);
    ASSERT_TRUE(served.port->serve(60000, wake.get()));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 30s);
}

class SimProgram : public testing::Test {
 protected:
    void SetUp() override {
        std::string name = testing::TempDir() + "passbook-sim-XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        directory_ = name;
    }
    void TearDown() override { std::filesystem::remove_all(directory_); }

    std::string in(const std::string& name) const { return directory_ / name; }

    std::size_t fileCount() const {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(directory_), std::filesystem::directory_iterator()));
    }

    std::filesystem::path directory_;
};

TEST_F(SimProgram, RefusesWhatItDoesNotUnderstand) {
    struct Case {
        std::vector<std::string> options;
        int status;
        std::string says;
    };
    const std::vector<Case> cases = {
        {{"--family", "escp"}, 2, "--family"},
        {{"--paper", "1"}, 2, "--paper"},
        {{"--page-size", "150x1073"}, 2, "--page-size"},
        {{"--page-size", "nanxnan"}, 2, "--page-size"},
        {{"--taken-after", "-1"}, 2, "--taken-after"},
        {{"--insert-after", "soon"}, 2, "--insert-after"},
        {{"--scan-block", "4096"}, 2, "--scan-block"},
        {{"--scan-back", in("none.jpg")}, 1, "none.jpg"},
        {{"--printer-status", "16"}, 2, "--printer-status"},
        {{"--split", "0"}, 2, "--split"},
        {{"--stripe0", std::string(1025, '1')}, 2, "--stripe0"},
        {{"file"}, 2, "file"},
        {{"--page", in("no/page.png")}, 1, "no/page.png"},
        {{"--page", in("")}, 1, in("")},
        {{"--events", in("no/events")}, 1, "no/events"},
    };
    for (const Case& row : cases) {
        Program program(row.options);
        EXPECT_EQ(program.exitStatus(), row.status) << row.says;
        EXPECT_NE(program.rest(true).find(row.says), std::string::npos) << row.says;
        EXPECT_EQ(program.rest(false), "");
    }
    EXPECT_EQ(fileCount(), 0U);
    for (const std::string option : {"--help", "--version"}) {
        Program program({option});
        EXPECT_EQ(program.exitStatus(), 0);
        EXPECT_NE(program.rest(false).find("passbook-sim"), std::string::npos);
    }
}

TEST_F(SimProgram, ServesOneHostAfterAnotherAndKeepsWhatTheyPrinted) {
    Program program({"--page", in("page.png"), "--events", in("events"), "--stripe1", "42"});
    const std::string port = program.port();
    ASSERT_TRUE(port.starts_with("pts/")) << port;
    EXPECT_EQ(Host(port).ask("\033l\033YEA@\033]", 5), "\033]42\x1C");
    {
        const Host host(port);
        EXPECT_EQ(host.ask("\033|A010\xB4\xE6\r\033 B", 6), "\033B5C\033Z");
        EXPECT_FALSE(std::filesystem::exists(in("page.png")));
        program.signal(SIGUSR1);
        ASSERT_TRUE(eventually([&] { return std::filesystem::exists(in("page.png")); }));
        EXPECT_TRUE(contentOf(in("page.png")).ends_with("IEND\xAE\x42\x60\x82")) << "never half a file";
        std::filesystem::remove(in("page.png"));
        EXPECT_EQ(host.ask("\033O\033j", 3), "\033rP");
    }
    const std::string printed = contentOf(in("page.png"));
    EXPECT_TRUE(printed.ends_with("IEND\xAE\x42\x60\x82"));
    // The next document stays empty: neither a signal nor the end puts it over the printed one.
    EXPECT_EQ(Host(port).ask("\033L000\033 B", 6), "\033B5C\033Z");
    program.signal(SIGUSR1);
    program.signal(SIGTERM);
    EXPECT_EQ(program.exitStatus(), 0);
    EXPECT_EQ(contentOf(in("page.png")), printed);
    EXPECT_EQ(fileCount(), 2U) << "no temporary file is left";
    EXPECT_EQ(program.rest(false), "") << "one line and no more";
    EXPECT_EQ(program.rest(true), "");

    std::istringstream lines(contentOf(in("events")));
    bool textSeen = false;
    for (std::string line; std::getline(lines, line);) {
        const nlohmann::json event = nlohmann::json::parse(line);
        textSeen =
            textSeen || (event.at("event") == "text" && event.at("text") == "\u5B58" && event.at("xDots") == 15 && event.at("xMm") == 2.12);
    }
    EXPECT_TRUE(textSeen);
}

TEST_F(SimProgram, TakesItsFaultsFromTheCommandLine) {
    Program program({"--paper", "out", "--insert-after", "0", "--taken-after", "never", "--split", "1", "--printer-status", "9",
                     "--page-size", "50.8x25.4", "--page", in("page.png")});
    const Host host(program.port());
    EXPECT_EQ(host.ask("\033 B\033j", 9), "\033B5B\033Z\033r1");
    EXPECT_EQ(host.ask("\033L000\033O\033 B", 6), "\033B5A\033Z");
    const std::string picture = contentOf(in("page.png"));
    ASSERT_GT(picture.size(), 24U);
    EXPECT_EQ(picture.substr(16, 8), std::string("\0\0\x01\x68\0\0\0\xB4", 8)) << "360 x 180 pixels";
    program.signal(SIGINT);
    EXPECT_EQ(program.exitStatus(), 0);
}

TEST_F(SimProgram, ScansFiles) {
    GdkPixbuf* picture = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, 3, 2);
    gdk_pixbuf_fill(picture, 0xC08040FF);
    for (const char* format : {"png", "jpeg", "bmp"}) {
        EXPECT_TRUE(gdk_pixbuf_save(picture, in(format).c_str(), format, nullptr, nullptr));
        Program program({"--family", "oli", "--scan-back", in(format), "--scan-size-error", "-1"});
        const Host host(program.port());
        ASSERT_TRUE(host.send(std::string("\033YP\x58\xCC\033}Pqa\0\0\0\0\033Z", 16)));
        EXPECT_EQ(host.read(256),
                  "\x01"
                  "00003 00001");
        EXPECT_EQ(host.read(256).size(), 2U);
        const std::string data = host.read(16384);
        ASSERT_EQ(data.size(), 18U);
        for (std::size_t i = 0; i < data.size(); ++i) {
            constexpr std::array<int, 3> kColour{0x40, 0x80, 0xC0};
            EXPECT_NEAR(static_cast<std::uint8_t>(data[i]), kColour[i % 3], 3) << format << i;
        }
        EXPECT_EQ(host.read(256),
                  "\x03"
                  "00002");
    }
    g_object_unref(picture);
}

TEST_F(SimProgram, EndsWithAMessageWhenItsPageCanNoLongerBeWritten) {
    std::filesystem::create_directory(in("gone"));
    Program program({"--page", in("gone/page.png")});
    const Host host(program.port());
    std::filesystem::remove_all(in("gone"));
    ASSERT_TRUE(host.send("A\r\033O"));
    EXPECT_EQ(program.exitStatus(), 1);
    EXPECT_NE(program.rest(true).find("gone/page.png"), std::string::npos);
}

}  // namespace
}  // namespace passbook::sim
