/// @file
/// The exceptions that the library raises: QZException and its two descendants in qz::tavrel.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

/// Base of every exception of the firmware's libraries: a number, and a text that says where and what.
///
/// Threads: a plain value.
class QZException : public std::exception {
public:
    /// No message yet: the text "QZException", code 0.
    QZException();

    /// @param text  the message; the text "QZException" counts as none
    explicit QZException(const std::string& text, std::uint32_t code = 0);

    QZException(const QZException& other) = default;
    QZException& operator=(const QZException& other) = default;
    ~QZException() override;

    /// The message; valid as long as this object.
    const char* what() const noexcept override;

    /// Puts "FAULT at file(line): function()" in front of the message, or in its place when there is none
    /// yet. The fault text is cut to 511 characters. A second call puts its text before that of the first.
    void setFaultPoint(const char* file, const char* function, int line);

    /// The number that the exception was made with.
    std::uint32_t getCode() const noexcept { return code; }

private:
    std::uint32_t code;
    std::string message;
};

namespace qz::tavrel {

/// A failure of this library: an invalid id, bad arguments, a failed system call. The code is always
/// 0x250000.
class TavrelException : public QZException {
public:
    /// @param text  what went wrong
    explicit TavrelException(const std::string& text);

    /// @param errnum  error number of the system, whose text becomes the message
    explicit TavrelException(int errnum);

    TavrelException(const TavrelException& other) = default;
    TavrelException& operator=(const TavrelException& other) = default;
    ~TavrelException() override;
};

/// A component, or a handle on one, no longer stands for what it stood for.
class UnavailableComponentException : public TavrelException {
public:
    /// @param text  what went wrong
    explicit UnavailableComponentException(const std::string& text);

    UnavailableComponentException(const UnavailableComponentException& other) = default;
    UnavailableComponentException& operator=(const UnavailableComponentException& other) = default;
    ~UnavailableComponentException() override;
};

} // namespace qz::tavrel
