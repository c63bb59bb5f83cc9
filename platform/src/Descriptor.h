#pragma once

#include <unistd.h>

namespace qz::platform {

/// An open descriptor, closed at the end of its scope; -1 is none.
class [[nodiscard]] Descriptor {
public:
    explicit Descriptor(int opened) : descriptor(opened) {}
    ~Descriptor() {
        if (descriptor != -1) {
            close(descriptor);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return descriptor; }

private:
    int descriptor;
};

} // namespace qz::platform
