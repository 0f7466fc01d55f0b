// What every exported function does around its job: the record of the call, and the port.
#pragma once

#include "api/passbook.h"
#include "base/results.h"
#include "device/device.h"
#include "device/outcome.h"

namespace passbook {

/// Does the job of an exported function, whose name is `function`, and keeps the record of it. Returns the function's
/// result.
template <typename Job>
int recorded(const char* function, Job job) {
    beginCall(function);
    return endCall(job());
}

/// The same on a port that the job opens, whoever opened it before: it is closed afterwards in any case.
template <typename Job>
int recordedOnPort(const char* function, const char* portName, Job job) {
    return recorded(
        function,
        [&] {
            callIsRelative();
            if (PRSinit(portName) != 0)
                return int{PASSBOOK_PT_NOT_OPENED};
            const int result = job();
            (void)PRSexit();  // a port that will not close is taken over by the next call
            return result;
        });
}

/// The same for a call that fails before anything is done.
inline int refused(const char* function, int result) {
    return recorded(
        function, [=] { return result; });
}

}  // namespace passbook
