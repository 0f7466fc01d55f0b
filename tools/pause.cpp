// The driver pauses a second after every strip of a picture, which gives a printer time. A preview of a page would take
// a minute. So this program has a clock_nanosleep() of its own, which the driver finds before the C library's: it
// returns at once while the virtual printer of a preview serves, and is the real one at all other times. Nothing in the
// library changes, and no other program is concerned.

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "tools/virtual_desk.h"

extern "C" __attribute__((visibility("default"))) int clock_nanosleep(clockid_t clock, int flags,
                                                                      const struct timespec* request,
                                                                      struct timespec* remaining) {
    if (passbook::tool::VirtualDesk::isServing())
        return 0;
    const int before = errno;
    const int result = static_cast<int>(syscall(SYS_clock_nanosleep, clock, flags, request, remaining));
    const int error = result == 0 ? 0 : errno;
    errno = before;  // the function returns its error
    return error;
}
