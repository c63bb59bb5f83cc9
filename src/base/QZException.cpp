#include "base/SystemText.h"

#include <qz/tavrel/QZException.h>

#include <cstdio>

namespace {

constexpr const char* noMessage = "QZException";
constexpr std::uint32_t tavrelCode = 0x250000; // module number 37 in the upper half
constexpr std::size_t faultTextSize = 512;

} // namespace

QZException::QZException() : QZException(noMessage) {}

QZException::QZException(const std::string& text, std::uint32_t number) : code(number), message(text) {}

QZException::~QZException() = default;

const char* QZException::what() const noexcept {
    return message.c_str();
}

void QZException::setFaultPoint(const char* file, const char* function, int line) {
    char fault[faultTextSize];
    std::snprintf(fault, sizeof fault, "FAULT at %s(%d): %s()", file, line, function);
    if (message == noMessage) {
        message = fault;
    } else {
        message.insert(0, std::string(fault) + ' ');
    }
}

namespace qz::tavrel {

TavrelException::TavrelException(const std::string& text) : QZException(text, tavrelCode) {}

TavrelException::TavrelException(int errnum)
    : TavrelException(std::string(internal::SystemText(errnum).text())) {}

TavrelException::~TavrelException() = default;

UnavailableComponentException::UnavailableComponentException(const std::string& text)
    : TavrelException(text) {}

UnavailableComponentException::~UnavailableComponentException() = default;

} // namespace qz::tavrel
