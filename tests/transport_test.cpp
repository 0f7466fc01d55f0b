// The transports over what the system gives: a real pseudo-terminal for the serial line, files and
// pseudo-terminals in the places of the parallel devices.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <tuple>

#include "api/passbook.h"
#include "device/device.h"
#include "device/serial.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

std::string get() {
    char buffer[256];
    return {buffer, buffer + GetData(reinterpret_cast<unsigned char*>(buffer), sizeof buffer)};
}

/// The line is the driver's alone: the newest descriptor is not for programs that are started, and nobody else opens
/// it.
void expectOwnLine(const Pty& pty) {
    const int next = dup(0);
    EXPECT_EQ(fcntl(next - 1, F_GETFD), FD_CLOEXEC);
    (void)close(next);
    EXPECT_NE(Serial(pty.name.c_str()).OpenDevice(), 0);
}

auto modes(const termios& settings) {
    return std::tuple(settings.c_iflag, settings.c_oflag, settings.c_cflag, settings.c_lflag, settings.c_cc[VTIME],
                      settings.c_cc[VMIN], cfgetospeed(&settings));
}

TEST(SerialLine, CarriesBytesAndIsLeftAsItWas) {
    Pty pty;
    termios before = pty.settings();
    // What a fresh pseudo-terminal has, and a speed and modes that the printer's do not have.
    (void)cfsetspeed(&before, B1200);
    before.c_iflag = (before.c_iflag & ~static_cast<tcflag_t>(ICRNL)) | IXANY;
    before.c_cflag |= CSTOPB | PARODD;
    ASSERT_EQ(tcsetattr(pty.host, TCSANOW, &before), 0);
    before = pty.settings();
    pty.write("left over from another program");
    (void)pty.read();  // its echo

    const auto files = openFiles();
    const std::string longest = std::string(127 - pty.name.size(), '/') + pty.name;
    ASSERT_EQ(YARDO_PR2_OpenPort(longest.c_str()), 0);
    expectOwnLine(pty);
    termios expected = before;  // but for:
    cfsetospeed(&expected, B9600);
    expected.c_cflag = (expected.c_cflag & ~static_cast<tcflag_t>(CSTOPB)) | CLOCAL;
    expected.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ECHOE | ISIG);
    expected.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    expected.c_cc[VTIME] = 10;
    expected.c_cc[VMIN] = 0;
    EXPECT_EQ(modes(pty.settings()), modes(expected));

    const std::string binary("\x00\x0A\x0D\x1B\x03\x11\x13\xFF", 8);
    EXPECT_EQ(YARDO_PR2_Command(octets(binary.data()), 8), 0);
    EXPECT_EQ(pty.read(), binary);
    pty.write("\x1BrP");
    EXPECT_EQ(get(), "\x1BrP");
    EXPECT_EQ(SendData(octets("x"), -1), 0);

    EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
    EXPECT_EQ(modes(pty.settings()), modes(before));
    EXPECT_EQ(openFiles(), files);
}

TEST(SerialLine, IsProgrammedBitByBit) {
    using Modes = std::tuple<speed_t, tcflag_t, tcflag_t>;  // speed, and of the control and input modes the bits below
    const struct {
        int speed, flow, data, stop, parity;
        Modes modes;
    } rows[] = {
        {115200, 1, 7, 2, 'e', {B115200, CSTOPB | CRTSCTS, INPCK}},
        {300, 0, 6, 1, 'O', {B300, PARODD, INPCK}},
        {38400, 2, 9, 2, 'S', {B9600, CSTOPB | PARODD, INPCK | IXON | IXOFF | IXANY}},
        {19200, 7, 5, 3, 's', {B19200, PARODD, INPCK | IXON | IXOFF | IXANY}},
        {2400, 1, 8, 2, 'x', {B2400, CSTOPB | PARODD | CRTSCTS, INPCK | IXON | IXOFF | IXANY}},
        {9600, 0, 8, 7, 'N', {B9600, CSTOPB | PARODD, IXON | IXOFF | IXANY}},
        {115200, 0, 8, 1, 'E', {B115200, 0, INPCK | IXON | IXOFF | IXANY}},
    };
    const Pty pty;
    Serial line(pty.name.c_str());
    ASSERT_EQ(line.OpenDevice(), 0);
    termios zero = pty.settings();
    zero.c_iflag = 0;
    ASSERT_EQ(tcsetattr(pty.host, TCSANOW, &zero), 0);
    for (const auto& row : rows) {  // each on top of the one before
        EXPECT_EQ(line.SetOption(row.speed, row.flow, row.data, row.stop, row.parity), 0);
        const termios now = pty.settings();
        // A pseudo-terminal always has 8 data bits and no parity bit, whatever it is told.
        EXPECT_EQ(Modes(cfgetispeed(&now), now.c_cflag & (CSTOPB | PARODD | CRTSCTS), now.c_iflag), row.modes)
            << row.speed;
    }
    EXPECT_EQ(line.CloseDevice(), 0);
}

class ParallelPort : public ::testing::Test {
 protected:
    TemporaryDirectory directory;
    void SetUp() override {
        redirectedPaths["/dev/printers"] = "";
        for (const char* prefix : {"/dev/parallel/", "/dev/printers/", "/dev/lp"})
            for (const char* number : {"", "0", "1", "2", "3"})
                redirectedPaths[std::string(prefix) + number] = "";
    }
    void TearDown() override {
        EXPECT_EQ(PRSexit(), 0);
        redirectedPaths.clear();
    }
};

TEST_F(ParallelPort, IsTheFirstThatOpensUnderOnePrefix) {
    redirectedPaths["/dev/lp4"] = directory.file("device");
    writeFile(directory.file("device"), "");
    EXPECT_EQ(PRSinit("LPT1"), -1);
    redirectedPaths["/dev/lp2"] = directory.file("device");
    for (const char* name : {"LPT1", "lpt2", "COM_LPT"}) {
        writeFile(directory.file("device"), "");
        EXPECT_EQ(PRSinit(name), 0) << name;
        EXPECT_EQ(PRSinit("no/such/line"), 0);  // stays what it is
        EXPECT_EQ(SendData(octets("\x1BO"), 2), 2);
        EXPECT_TRUE(readFile(directory.file("device")).starts_with("\x1BO"));
        EXPECT_EQ(get(), "");
        EXPECT_EQ(PRSexit(), 0);
    }
    EXPECT_EQ(PRSinit("Lpt1"), -1);  // a serial line of that name
    // The directories take precedence, opening or not.
    for (const auto& [place, number] :
         {std::pair{"/dev/printers", "/dev/printers/3"}, {"/dev/parallel/", "/dev/parallel/0"}}) {
        redirectedPaths[place] = directory.file("");
        EXPECT_EQ(PRSinit("LPT1"), -1);
        redirectedPaths[number] = directory.file("device");
        EXPECT_EQ(PRSinit("LPT1"), 0);
        EXPECT_EQ(PRSexit(), 0);
    }
}

TEST_F(ParallelPort, OnATerminalReadsWhatIsThere) {
    Pty pty;
    redirectedPaths["/dev/lp0"] = "/dev/" + pty.name;
    ASSERT_EQ(PRSinit("lpt1"), 0);
    expectOwnLine(pty);
    EXPECT_EQ(pty.settings().c_lflag & (ICANON | ECHO | ISIG), 0U);
    pty.write("12345");
    EXPECT_EQ(get(), "12345");
}

TEST(Port, ATransportThatWillNotCloseIsTakenOver) {
    auto* stubborn = new ScriptedPort;
    stubborn->refusals = 1;
    installPort(stubborn);
    // The port is closed for the host, and its transport serves the next opening.
    const std::vector<int> results = {YARDO_PR2_OpenPort("whatever"), YARDO_PR2_ClosePort(),  YARDO_PR2_EjectPaper(),
                                      YARDO_PR2_OpenPort("another"),  YARDO_PR2_EjectPaper(), YARDO_PR2_ClosePort()};
    EXPECT_EQ(results, (std::vector{0, 0, -6, 0, 0, 0}));
    EXPECT_EQ(protocol, nullptr);
}

}  // namespace
}  // namespace passbook::tests
