#pragma once

#include <qz/tavrel/NameResolver.h>

#include <string>

namespace chassis {

/// The names of a machine and their numbers, from a file in the resolver's own text form.
///
/// All processes of a machine use this one class: the name of the class is part of the name of the
/// specification cache, which holds the numbers.
class NamesFile : public qz::tavrel::NameResolver {
public:
    /// Reads the file in place of the initial names.
    /// @throws std::runtime_error  the file cannot be read or ends early
    explicit NamesFile(const std::string& path);
};

} // namespace chassis
