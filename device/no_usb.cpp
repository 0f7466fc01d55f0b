// In place of hidusbdriver.cpp, in a library without USB.
#include "device/outcome.h"
#include "device/usb.h"

namespace passbook {

std::unique_ptr<Protocol> openUsb() {
    explainFailure(0, "this library was built without USB");
    return nullptr;
}

}  // namespace passbook
