// libusb between the driver and the tests: every call the driver makes is noted and passed on, or answered in
// libusb's place.
#pragma once

#include <deque>
#include <string>
#include <vector>

namespace passbook::tests {

struct LibusbCalls {
    std::vector<std::string> made;  // in order, with what matters of their arguments
    int contexts = 0, handles = 0;  // given to the driver and not given back

    // With `replaced` no call reaches libusb, and these are the answers.
    bool replaced = false;
    int initResult = 0;
    bool present = true;           // whether the device is found
    std::deque<int> claimResults;  // one a claim; 0 when there are no more
    int detachResult = 0;
    int descriptorResult = 0;
    int transferResult = 0;
    int transferred = 0;
    std::string received;  // what a transfer from the printer writes to the buffer it got
};
extern LibusbCalls libusbCalls;

}  // namespace passbook::tests
