// passbook: works with a passbook printer from the command line.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <exception>
#include <iostream>
#include <sstream>

#include "api/passbook.h"
#include "tools/tool.h"

namespace {

/// The driver tells of scans on standard output, which is the verb's. It is put aside while the verb works.
class Aside {
 public:
    Aside() : kept_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)) {
        if (kept_ >= 0)
            passbook::tool::setStandardOutput(kept_);
        if (const int null = open("/dev/null", O_WRONLY | O_CLOEXEC); null >= 0) {
            dup2(null, STDOUT_FILENO);
            close(null);
        }
    }
    Aside(const Aside&) = delete;
    Aside& operator=(const Aside&) = delete;
    ~Aside() {
        (void)fflush(stdout);
        if (kept_ >= 0) {
            dup2(kept_, STDOUT_FILENO);
            close(kept_);
        }
    }

 private:
    int kept_;
};

}  // namespace

int main(int argc, char** argv) {
    (void)signal(SIGPIPE, SIG_IGN);  // a reader that has gone shows when output is written
    try {
        std::ostringstream out;
        const int status = [&] {
            const Aside aside;
            return passbook::tool::run({argv + 1, argv + argc}, out, std::cerr);
        }();
        std::cout << out.str() << std::flush;
        return std::cout.good() || status != 0 ? status : 1;
    } catch (const std::exception& problem) {
        std::cerr << "passbook: " << problem.what() << '\n';
        return 1;
    }
}
