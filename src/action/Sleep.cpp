#include "base/Decimal.h"

#include <qz/tavrel/Sleep.h>

#include <unistd.h>

#include <cstdint>

namespace qz::tavrel {

namespace {

constexpr std::uint32_t microsecondsOfAMillisecond = 1000;

} // namespace

Sleep::Sleep() : time(0) {}

Sleep::~Sleep() = default;

int Sleep::setAttribute(NameResolver*, const std::vector<std::string>& attributes) {
    if (attributes.empty()) {
        return 0;
    }
    time = static_cast<unsigned int>(internal::decimal(attributes.front()));
    return 1;
}

void Sleep::execute(Component*, int, const void*, unsigned int, void*, unsigned int) {
    usleep(std::uint32_t{time} * microsecondsOfAMillisecond); // a product that wraps
}

std::string Sleep::toString() {
    return "Sleep";
}

unsigned int Sleep::getTime() {
    return time;
}

} // namespace qz::tavrel
