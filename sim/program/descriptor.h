#pragma once

#include <string_view>

namespace passbook::sim {

/// A file descriptor that is closed with its owner.
class Descriptor {
 public:
    explicit Descriptor(int value = -1) : value_(value) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept : value_(other.value_) { other.value_ = -1; }
    Descriptor& operator=(Descriptor&& other) noexcept;

    [[nodiscard]] int get() const { return value_; }
    [[nodiscard]] bool valid() const { return value_ >= 0; }

 private:
    int value_;
};

/// False if not all of it could be written; errno then says why.
[[nodiscard]] bool writeAll(int descriptor, std::string_view bytes);

}  // namespace passbook::sim
