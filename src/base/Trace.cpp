#include "base/Trace.h"

#include "base/ThreadIds.h"

#include <qz/tavrel/Logger.h>

#include <cstdarg>
#include <cstdio>

namespace qz::internal {

namespace {

constexpr std::size_t textSize = 256;

template <typename... Arguments>
void write(const TracePoint& point, Arguments... arguments) {
    tavrel::Logger& logger = *tavrel::Logger::getLogger();
    switch (point.level) {
    case TraceLevel::Error:
        logger.error(point.id, arguments...);
        return;
    case TraceLevel::Info:
        logger.info(point.id, arguments...);
        return;
    case TraceLevel::Debug:
        logger.debug(point.id, arguments...);
        return;
    case TraceLevel::Debug2:
        logger.debug2(point.id, arguments...);
        return;
    }
}

} // namespace

void traceShort(const TracePoint& point, unsigned long a, unsigned long b) {
    write(point, traceWord(processId()), traceWord(threadId()), a, b);
}

void traceLong(const TracePoint& point, const unsigned long (&words)[6]) {
    write(point, traceWord(processId()), traceWord(threadId()), words[0], words[1], words[2], words[3],
          words[4], words[5]);
}

void traceText(const TracePoint& point, const char* text) {
    write(point, text);
}

void traceFormat(const TracePoint& point, const char* format, ...) {
    char text[textSize];
    const int prefix = std::snprintf(text, sizeof text, "[%5d.%5d] ", processId(), threadId());
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text + prefix, sizeof text - static_cast<std::size_t>(prefix), format, arguments);
    va_end(arguments);
    traceText(point, text);
}

} // namespace qz::internal
