#pragma once

#include <qz/tavrel/QZException.h>

namespace qz::internal {

/// Raises a fault of class `Exception`, marked with its place.
///
/// @param file      base name of the place, as it stands in the fault text
/// @param function  short name of the function in which the raise stands
/// @param detail    text of the fault, or an error number of the system
/// @param line      line of the caller
template <typename Exception = tavrel::TavrelException, typename Detail>
[[noreturn]] void raise(const char* file, const char* function, const Detail& detail,
                        int line = __builtin_LINE()) {
    Exception fault{detail};
    fault.setFaultPoint(file, function, line);
    throw Exception(fault);
}

} // namespace qz::internal
