#pragma once

#include <stdexcept>
#include <string>

namespace tavrel::tool {

/// What the tool will not or cannot do; its text is the one-line reason. Exit code 1.
class Refusal : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Arguments that mean nothing. Exit code 2.
class WrongUsage : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace tavrel::tool
