/// @file
/// What `bench/system-calls` looks at from outside. `tavrel_calls reads COUNT` reads a property COUNT times
/// while fresh; `tavrel_calls specification` writes a specification of 500 types, and `tavrel_calls start
/// FILE` starts on it.

#include "Machine.h"

#include <qz/tavrel/Component.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr int types = 500;

int read(long count) {
    const tavrel::bench::Machine machine(64);
    unsigned char value[4];
    long delivered = machine.leaf()->getProperty(tavrel::bench::valueKey, value, sizeof value);
    for (long i = 0; i < count; ++i) {
        delivered += machine.leaf()->getProperty(tavrel::bench::valueKey, value, sizeof value);
    }
    return delivered == 4 * (count + 1) ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "reads" && argc == 3) {
        return read(std::atol(argv[2]));
    }
    if (what == "specification" && argc == 2) {
        std::puts(tavrel::bench::writeSpecification(types).c_str());
        return 0;
    }
    if (what == "start" && argc == 3) {
        tavrel::bench::start(argv[2]);
        return 0;
    }
    std::fprintf(stderr, "usage: tavrel_calls reads COUNT | specification | start FILE\n");
    return 2;
}
