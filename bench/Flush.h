#pragma once

namespace tavrel::bench {

/// While one lives, `msync` does nothing in this process: filling a store is no part of what is measured.
class NoFlush {
public:
    NoFlush();
    ~NoFlush();
    NoFlush(const NoFlush&) = delete;
    NoFlush& operator=(const NoFlush&) = delete;
};

} // namespace tavrel::bench
