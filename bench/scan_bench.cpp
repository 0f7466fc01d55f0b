// A scan of 200 MB over a pseudo-terminal: how fast it is against cat on the same kind of line in the same run, and
// how its memory compares with that of a scan of 1 MB. Every run is a process of its own. An OLI printer's side is held
// whole, for its end alone tells whether it is a picture: how much more than that is held, is measured as well.

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "api/passbook.h"
#include "sim/printer.h"
#include "sim/program/pty_port.h"

namespace {

constexpr int width = 4000;  // pixels of 3 bytes
constexpr int largeHeight = 17476, smallHeight = 87, oliHeight = 1000;
constexpr std::size_t bytesOf(int height) {
    return std::size_t{3} * width * static_cast<std::size_t>(height);
}

struct Finished {
    double seconds;
    long peakKilobytes;
    bool good;
};

/// Runs `work` in a child, and measures it.
Finished measure(const std::function<int()>& work) {
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0)
        _exit(work());
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    return {took.count(), usage.ru_maxrss, WIFEXITED(status) && WEXITSTATUS(status) == 0};
}

using Family = passbook::sim::Family;

Finished scan(Family family, int height, const std::string& directory) {
    int names[2];
    if (pipe(names) != 0)
        return {};
    const pid_t printer = fork();
    if (printer == 0) {
        passbook::sim::Scenario scenario;
        scenario.family = family;
        scenario.scan.sides[0] = {width, height, [](int y, std::span<std::uint8_t> row) {
                                      std::fill(row.begin(), row.end(), static_cast<std::uint8_t>(y));
                                  }};
        passbook::sim::Printer sim(scenario);
        std::string error;
        const auto port = passbook::sim::PtyPort::open(sim, error);
        if (port == nullptr || write(names[1], port->name().c_str(), port->name().size()) < 0)
            _exit(1);
        while (port->serve(1000)) {
        }
        _exit(0);
    }
    char name[64] = "";
    if (read(names[0], name, sizeof name - 1) < 0)
        name[0] = '\0';  // no port has that name
    close(names[0]);
    close(names[1]);
    const std::string front = directory + "/front.bmp", back = directory + "/back.bmp";
    const Finished finished = measure([&] {
        // The scan's progress is not for here.
        if (freopen("/dev/null", "w", stdout) == nullptr || YARDO_PR2_OpenPort(name) != 0)
            return 1;
        const int result = family == Family::oki
                               ? YARDO_ScantoFileOKI(front.c_str(), back.c_str(), 3, 0, 0, 0, false, 0, 200, 0)
                               : YARDO_ScantoFileOLI(front.c_str(), back.c_str(), 3, 0, 0, false, 0, 200, 0);
        return result == 0 && std::filesystem::file_size(front) == bytesOf(height) + 54 ? 0 : 1;
    });
    kill(printer, SIGKILL);
    waitpid(printer, nullptr, 0);
    return finished;
}

Finished cat(int height, const std::string& directory) {
    int line = -1, hostSide = -1;
    if (openpty(&line, &hostSide, nullptr, nullptr, nullptr) != 0)
        return {};
    termios raw{};
    tcgetattr(hostSide, &raw);
    cfmakeraw(&raw);
    tcsetattr(hostSide, TCSANOW, &raw);
    const pid_t feeder = fork();
    if (feeder == 0) {
        const std::vector<char> block(65536, 'x');
        for (std::size_t left = bytesOf(height); left > 0;) {
            const ssize_t sent = write(line, block.data(), std::min(left, block.size()));
            left -= sent > 0 ? static_cast<std::size_t>(sent) : 0;
        }
        int unread = 1;  // hanging up throws away what is not read yet
        pollfd queue{hostSide, POLLIN, 0};
        while (unread > 0) {
            usleep(100);
            (void)poll(&queue, 1, 0);  // brings to the queue first what was written a moment ago
            ioctl(hostSide, FIONREAD, &unread);
        }
        _exit(0);
    }
    close(line);
    const std::string file = directory + "/cat.bin";
    const Finished finished = measure([&] {
        dup2(hostSide, STDIN_FILENO);
        dup2(open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);  // it complains of the hang-up at the end
        close(hostSide);
        execlp("cat", "cat", nullptr);
        return 1;
    });
    waitpid(feeder, nullptr, 0);
    close(hostSide);
    return {finished.seconds, finished.peakKilobytes, std::filesystem::file_size(file) == bytesOf(height)};
}

template <typename Value>
Value median(std::vector<Value> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

}  // namespace

int main() {
    std::string directory = (std::filesystem::temp_directory_path() / "passbook-bench-XXXXXX").string();
    if (mkdtemp(directory.data()) == nullptr) {
        std::perror("passbook_scan_bench");
        return 1;
    }
    std::vector<double> scanRates, catRates;
    std::vector<long> largePeaks, smallPeaks, oliPeaks;
    bool good = true;
    for (int run = 0; run < 5; ++run) {  // in turn, for the machine's speed drifts
        const Finished large = scan(Family::oki, largeHeight, directory), other = cat(largeHeight, directory),
                       small = scan(Family::oki, smallHeight, directory), oli = scan(Family::oli, oliHeight, directory);
        for (const auto& [what, one] : {std::pair{"scan of 200 MB", large},
                                        {"cat", other},
                                        {"scan of 1 MB", small},
                                        {"scan of an OLI printer", oli}}) {
            if (!one.good)
                std::fprintf(stderr, "passbook_scan_bench: a %s failed\n", what);
            good = good && one.good;
        }
        const double megabytes = static_cast<double>(bytesOf(largeHeight)) / 1e6;
        scanRates.push_back(megabytes / large.seconds);
        catRates.push_back(megabytes / other.seconds);
        largePeaks.push_back(large.peakKilobytes);
        smallPeaks.push_back(small.peakKilobytes);
        oliPeaks.push_back(oli.peakKilobytes);
    }
    std::filesystem::remove_all(directory);
    std::printf("median     scan of 200 MB                                   %8.1f MB/s\n", median(scanRates));
    std::printf("median     cat of 200 MB                                    %8.1f MB/s\n", median(catRates));
    std::printf("ratio      scan, against cat                                %8.2f\n",
                median(scanRates) / median(catRates));
    std::printf("peak       memory of a scan of 200 MB                       %8.1f MB\n",
                static_cast<double>(median(largePeaks)) / 1024);
    std::printf("peak       memory of a scan of 1 MB                         %8.1f MB\n",
                static_cast<double>(median(smallPeaks)) / 1024);
    std::printf("peak       memory of a scan of an OLI printer, beyond its data  %4.1f MB\n",
                static_cast<double>(median(oliPeaks)) / 1024 - static_cast<double>(bytesOf(oliHeight)) / (1024 * 1024));
    return good ? 0 : 1;
}
