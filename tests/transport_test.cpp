// The transports over what the system gives: a real pseudo-terminal for the serial line, files and
// pseudo-terminals in the places of the parallel devices.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "api/passbook.h"
#include "device/device.h"
#include "device/parallel.h"
#include "device/serial.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

/// Both ends of a pseudo-terminal; ours is the printer's.
struct Pty {
    int printer = -1, host = -1;
    std::string name;  // relative to /dev

    Pty() {
        char path[64];
        EXPECT_EQ(openpty(&printer, &host, path, nullptr, nullptr), 0);
        name = std::string(path).substr(5);
    }
    ~Pty() { hangUp(); }
    void hangUp() {
        for (int* end : {&printer, &host}) {
            if (*end >= 0) close(*end);
            *end = -1;
        }
    }
    [[nodiscard]] termios settings() const {
        termios result{};
        EXPECT_EQ(tcgetattr(host, &result), 0);
        return result;
    }
    void write(const std::string& text) const { EXPECT_EQ(::write(printer, text.data(), text.size()), static_cast<ssize_t>(text.size())); }
    [[nodiscard]] std::string read() const {
        pollfd ready{printer, POLLIN, 0};
        char buffer[4096];
        const ssize_t count = poll(&ready, 1, 1000) > 0 ? ::read(printer, buffer, sizeof buffer) : 0;
        return count > 0 ? std::string(buffer, static_cast<std::size_t>(count)) : "";
    }
};

std::string get(int capacity) {
    std::string buffer(static_cast<std::size_t>(capacity), '\0');
    const int count = GetData(reinterpret_cast<unsigned char*>(buffer.data()), capacity);
    buffer.resize(static_cast<std::size_t>(count));
    return buffer;
}

TEST(SerialLine, CarriesBytesAndIsLeftAsItWas) {
    Pty pty;
    termios before = pty.settings();
    // What a fresh pseudo-terminal has, and a speed and modes that the printer's do not have.
    cfsetispeed(&before, B1200);
    cfsetospeed(&before, B1200);
    before.c_iflag = (before.c_iflag & ~static_cast<tcflag_t>(ICRNL)) | IXANY;
    before.c_cflag |= CSTOPB | PARODD;
    ASSERT_EQ(tcsetattr(pty.host, TCSANOW, &before), 0);
    before = pty.settings();
    pty.write("left over from another program");
    (void)pty.read();  // its echo

    ASSERT_EQ(YARDO_PR2_OpenPort(pty.name.c_str()), 0);
    const termios during = pty.settings();
    EXPECT_EQ(cfgetospeed(&during), static_cast<speed_t>(B9600));
    EXPECT_EQ(during.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS | CLOCAL | CREAD), static_cast<tcflag_t>(CS8 | CLOCAL | CREAD));
    EXPECT_EQ(during.c_cflag & PARODD, static_cast<tcflag_t>(PARODD));  // not named, so kept
    EXPECT_EQ(during.c_iflag, before.c_iflag);
    EXPECT_EQ(during.c_lflag & (ICANON | ECHO | ECHOE | ISIG), 0U);
    EXPECT_EQ(during.c_oflag & OPOST, 0U);
    EXPECT_EQ(during.c_cc[VTIME], 10);
    EXPECT_EQ(during.c_cc[VMIN], 0);
    EXPECT_EQ(fcntl(pty.host, F_GETFL) & O_NONBLOCK, 0);

    const std::string binary("\x00\x0A\x0D\x1B\x03\x11\x13\xFF", 8);
    EXPECT_EQ(YARDO_PR2_Command(reinterpret_cast<const unsigned char*>(binary.data()), 8), 0);
    EXPECT_EQ(pty.read(), binary);
    pty.write(bytes("1B 72 50"));
    EXPECT_EQ(get(256), bytes("1B 72 50"));
    EXPECT_EQ(SendData(reinterpret_cast<const unsigned char*>("x"), -1), 0);

    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(get(8), "");
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GT(waited, std::chrono::milliseconds(500));
    EXPECT_LT(waited, std::chrono::seconds(5));

    EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
    const termios after = pty.settings();
    EXPECT_EQ(cfgetospeed(&after), static_cast<speed_t>(B1200));
    EXPECT_EQ(after.c_cflag, before.c_cflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_oflag, before.c_oflag);
    EXPECT_EQ(after.c_lflag, before.c_lflag);
}

TEST(SerialLine, IsProgrammedBitByBit) {
    const struct {
        int speed, flow, data, stop, parity;
        speed_t code;
        tcflag_t control, input;  // of the bits below
    } rows[] = {
        {115200, 1, 7, 2, 'e', B115200, CS7 | CSTOPB | PARENB | CRTSCTS, INPCK},
        {300, 0, 6, 1, 'O', B300, CS6 | PARENB | PARODD, INPCK},
        {38400, 2, 9, 2, 'S', B9600, CS5 | CSTOPB | PARODD, INPCK | IXON | IXOFF | IXANY},
        {19200, 7, 5, 3, 's', B19200, CS5 | PARODD, INPCK | IXON | IXOFF | IXANY},
        {4800, 1, 8, 2, 'x', B4800, CS8 | CSTOPB | PARODD | CRTSCTS, INPCK | IXON | IXOFF | IXANY},
        {9600, 0, 8, 7, 'N', B9600, CS8 | CSTOPB | PARODD, IXON | IXOFF | IXANY},
    };
    Pty pty;
    Serial line(pty.name.c_str());
    ASSERT_EQ(line.OpenDevice(), 0);
    termios zero = pty.settings();
    zero.c_iflag = 0;
    ASSERT_EQ(tcsetattr(pty.host, TCSANOW, &zero), 0);
    for (const auto& row : rows) {  // each on top of the one before
        EXPECT_EQ(line.SetOption(row.speed, row.flow, row.data, row.stop, row.parity), 0);
        const termios now = pty.settings();
        EXPECT_EQ(cfgetispeed(&now), row.code);
        // A pseudo-terminal always has 8 data bits and no parity bit, whatever it is told.
        constexpr tcflag_t seen = CSTOPB | PARODD | CRTSCTS;
        EXPECT_EQ(now.c_cflag & seen, row.control & seen) << row.speed;
        EXPECT_EQ(now.c_iflag, row.input) << row.speed;
    }
    EXPECT_EQ(line.CloseDevice(), 0);
}

TEST(SerialLine, ThatIsNotThere) {
    const std::string longest = "pts/" + std::string(123, '9');
    for (const std::string& name : {std::string("pts/999999"), longest, longest + "9", std::string(5000, 'x')}) {
        Serial line(name.c_str());
        EXPECT_EQ(line.OpenDevice(), -1) << name;
    }
    Pty pty;  // 127 characters can be opened, 128 cannot
    std::string name = pty.name;
    while (name.size() < 126) name.insert(0, "./");
    name.insert(0, std::string(127 - name.size(), '/'));
    Serial line(name.c_str()), longer(("/" + name).c_str());
    EXPECT_EQ(line.OpenDevice(), 0);
    EXPECT_EQ(line.CloseDevice(), 0);
    EXPECT_EQ(longer.OpenDevice(), -1);
}

TEST(SerialLine, ThatVanishes) {
    Pty pty;
    ASSERT_EQ(YARDO_PR2_OpenPort(pty.name.c_str()), 0);
    EXPECT_EQ(YARDO_PR2_LR(), 0);
    pty.hangUp();
    EXPECT_EQ(YARDO_PR2_LR(), -3);
    EXPECT_EQ(YARDO_PR2_PrintData(0, 1, 1, "A", 1), -3);
    EXPECT_EQ(YARDO_PR2_GetPaperStatus(), -3);
    char buffer[8];
    EXPECT_EQ(YARDO_PR2_MSR(0, buffer, 8), -3);
    EXPECT_EQ(YARDO_PR2_InitPrinter(1, 1), -30);
    EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
}

class ParallelPort : public ::testing::Test {
 protected:
    TemporaryDirectory directory;
    void SetUp() override {
        redirectedPaths["/dev/printers"] = "";
        for (const char* prefix : {"/dev/parallel/", "/dev/printers/", "/dev/lp"}) {
            redirectedPaths[prefix] = "";
            for (int n = 0; n < 4; ++n) redirectedPaths[prefix + std::to_string(n)] = "";
        }
    }
    void TearDown() override {
        EXPECT_EQ(PRSexit(), 0);
        redirectedPaths.clear();
    }
    void device(const std::string& path) {
        redirectedPaths[path] = directory.file("device");
        writeFile(directory.file("device"), "");
    }
};

TEST_F(ParallelPort, IsTheFirstThatOpensUnderOnePrefix) {
    EXPECT_EQ(PRSinit("LPT1"), -1);
    device("/dev/lp2");
    for (const char* name : {"LPT1", "lpt2", "COM_LPT"}) {
        EXPECT_EQ(PRSinit(name), 0) << name;
        EXPECT_NE(dynamic_cast<Parallel*>(protocol), nullptr);
        EXPECT_EQ(PRSinit("USB"), 0);  // stays what it is
        EXPECT_EQ(SendData(reinterpret_cast<const unsigned char*>("\x1BO"), 2), 2);
        EXPECT_EQ(readFile(directory.file("device")).substr(0, 2), "\x1BO");
        EXPECT_EQ(get(8), "");
        EXPECT_EQ(PRSexit(), 0);
    }
    EXPECT_EQ(PRSinit("Lpt1"), -1);  // a serial line of that name
    // The directories take precedence, opening or not.
    redirectedPaths["/dev/printers"] = directory.file("");
    EXPECT_EQ(PRSinit("LPT1"), -1);
    device("/dev/printers/3");
    EXPECT_EQ(PRSinit("LPT1"), 0);
    EXPECT_EQ(PRSexit(), 0);
    redirectedPaths["/dev/parallel/"] = directory.file("");
    EXPECT_EQ(PRSinit("LPT1"), -1);
    device("/dev/parallel/0");
    EXPECT_EQ(PRSinit("LPT1"), 0);
}

TEST_F(ParallelPort, OnATerminalReadsWhatIsThere) {
    Pty pty;
    redirectedPaths["/dev/lp0"] = "/dev/" + pty.name;
    ASSERT_EQ(PRSinit("lpt1"), 0);
    EXPECT_EQ(pty.settings().c_lflag & (ICANON | ECHO | ISIG), 0U);
    pty.write("12345");
    EXPECT_EQ(get(256), "12345");
    EXPECT_EQ(PRSexit(), 0);
}

/// A transport that keeps its device.
class Stubborn : public ScriptedPort {
 public:
    int refusals = 1;
    int CloseDevice() override { return refusals-- > 0 ? -1 : 0; }
};

TEST(Port, ATransportThatWillNotCloseIsTakenOver) {
    installPort(new Stubborn);
    ASSERT_EQ(YARDO_PR2_OpenPort("whatever"), 0);
    EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
    EXPECT_NE(protocol, nullptr);
    EXPECT_EQ(YARDO_PR2_EjectPaper(), -6);
    EXPECT_EQ(YARDO_PR2_OpenPort("another"), 0);
    EXPECT_EQ(YARDO_PR2_EjectPaper(), 0);
    EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
    EXPECT_EQ(protocol, nullptr);
}

}  // namespace
}  // namespace passbook::tests
