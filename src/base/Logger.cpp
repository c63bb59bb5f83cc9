#include <qz/tavrel/Logger.h>

#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <memory>
#include <new>

namespace qz::tavrel {

namespace {

constexpr int tavrelChannel = 13;
constexpr int tavrelModule = 37;
constexpr std::size_t logBufferSize = 512;

} // namespace

Logger::Logger() : QZTrace(tavrelChannel, tavrelModule), stream(&std::cout) {}

Logger::~Logger() = default;

Logger* Logger::getLogger() {
    // Never destroyed: destructors of static objects may still trace.
    alignas(Logger) static unsigned char memory[sizeof(Logger)];
    static Logger* const instance = new (memory) Logger;
    return instance;
}

namespace {

// Made when the library is loaded, if no constructor of a static object has asked before: the first trace may
// come in a forked child, where nobody would end what another thread has begun.
[[maybe_unused]] Logger* const madeAtLoad = Logger::getLogger();

} // namespace

void Logger::fatal(const std::string& message) {
    logging("fatal", message);
}

void Logger::error(const std::string& message) {
    logging("error", message);
}

void Logger::warn(const std::string& message) {
    logging("warn ", message);
}

void Logger::info(const std::string& message) {
    logging("info ", message);
}

void Logger::debug(const std::string& message) {
    logging("debug", message);
}

void Logger::trace(const std::string& message) {
    logging("trace", message);
}

void Logger::setFilename(const std::string&) {}

void Logger::logging(const std::string& level, const std::string& message) {
    *stream << '[' << level << "] " << message << std::endl;
}

void Logger::log(const char* format, ...) {
    const auto buffer = std::make_unique<char[]>(logBufferSize);
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(buffer.get(), logBufferSize - 1, format, arguments);
    va_end(arguments);
    if (length < 1) {
        return;
    }
    std::printf("[trace] %s\n", buffer.get());
}

} // namespace qz::tavrel
