#pragma once

#include <qz/tavrel/QZException.h>

#include <regex>
#include <string>

namespace tavrel::test {

/// The text of the fault that `call` raises, with its line number replaced by LINE, as in
/// "FAULT at Semaphore(LINE): initialize() semget failed."; "nothing raised" if it raises none.
template <typename Call>
std::string faultText(Call call) {
    try {
        call();
    } catch (const qz::tavrel::TavrelException& fault) {
        static const std::regex line("^(FAULT at [^(]*\\()[0-9]+\\)");
        return std::regex_replace(fault.what(), line, "$1LINE)");
    }
    return "nothing raised";
}

} // namespace tavrel::test
