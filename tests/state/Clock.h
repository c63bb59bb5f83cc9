#pragma once

#include <sys/time.h>

#include <deque>

namespace tavrel::test {

/// What `gettimeofday` answers in this program: these times one after the other, then the machine's clock.
extern std::deque<timeval> scriptedTimes;

} // namespace tavrel::test
