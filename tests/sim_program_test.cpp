// The virtual printer behind a real pseudo-terminal: the program its users have.

#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
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
        {{"--page-size", "150x1073"}, 2, "--page-size"},
        {{"--taken-after", "-1"}, 2, "--taken-after"},
        {{"--split", "0"}, 2, "--split"},
        {{"--page", in("no/page.png")}, 1, "no/page.png"},
    };
    for (const Case& row : cases) {
        Program program(row.options);
        EXPECT_EQ(program.exitStatus(), row.status) << row.says;
        EXPECT_NE(program.rest(true).find(row.says), std::string::npos) << row.says;
        EXPECT_EQ(program.rest(false), "");
    }
    EXPECT_EQ(fileCount(), 0U);
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
}

TEST_F(SimProgram, SurvivesAHostThatNeverReadsAndOneThatComesBack) {
    Program program({});
    const std::string port = program.port();
    for (int visit = 0; visit < 2; ++visit) {
        const Host host(port);
        for (int i = 0; i < 20000; ++i) {
            ASSERT_TRUE(eventually([&host] { return host.send("\033 b"); }));
        }
    }
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

}  // namespace
}  // namespace passbook::sim
