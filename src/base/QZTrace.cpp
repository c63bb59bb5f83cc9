#include "base/ThreadIds.h"

#include <qz/base/trace.h>
#include <qz/tavrel/Logger.h>

#include <cstdint>
#include <cstring>

namespace {

constexpr int errorFlags = 0x8002;
constexpr int infoFlags = 0x8001;
constexpr int debugFlags = 0x0801;
constexpr int debug2Flags = 0x0001;

constexpr unsigned moduleMask = 0xffff;

std::uint32_t word(unsigned long value) {
    return static_cast<std::uint32_t>(value);
}

std::uint32_t word(int value) {
    return static_cast<std::uint32_t>(value);
}

std::uint32_t word(const void* address) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address));
}

/// Writes one record of 32-bit words.
template <typename... Words>
void writeWords(int channel, int module, int flags, unsigned long traceId, Words... words) {
    const std::uint32_t record[] = {word(words)...};
    qz_trace_write(channel, flags, static_cast<unsigned>(module) & moduleMask, traceId, record,
                   sizeof record);
}

void writeBytes(int channel, int module, int flags, unsigned long traceId, const void* data,
                std::size_t size) {
    qz_trace_write(channel, flags, static_cast<unsigned>(module) & moduleMask, traceId, data,
                   static_cast<unsigned>(size));
}

} // namespace

QZTrace::QZTrace(int traceChannel, int traceModule) : channel(traceChannel), module(traceModule) {}

QZTrace::~QZTrace() = default;

void QZTrace::error(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c,
                    unsigned long d) {
    writeWords(channel, module, errorFlags, traceId, a, b, c, d);
}

void QZTrace::info(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c,
                   unsigned long d) {
    writeWords(channel, module, infoFlags, traceId, a, b, c, d);
}

void QZTrace::debug(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c,
                    unsigned long d) {
    writeWords(channel, module, debugFlags, traceId, a, b, c, d);
}

void QZTrace::debug2(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c,
                     unsigned long d) {
    writeWords(channel, module, debug2Flags, traceId, a, b, c, d);
}

void QZTrace::error(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c, unsigned long d,
                    unsigned long e, unsigned long f, unsigned long g, unsigned long h) {
    writeWords(channel, module, errorFlags, traceId, a, b, c, d, e, f, g, h);
}

void QZTrace::info(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c, unsigned long d,
                   unsigned long e, unsigned long f, unsigned long g, unsigned long h) {
    writeWords(channel, module, infoFlags, traceId, a, b, c, d, e, f, g, h);
}

void QZTrace::debug(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c, unsigned long d,
                    unsigned long e, unsigned long f, unsigned long g, unsigned long h) {
    writeWords(channel, module, debugFlags, traceId, a, b, c, d, e, f, g, h);
}

void QZTrace::debug2(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c,
                     unsigned long d, unsigned long e, unsigned long f, unsigned long g, unsigned long h) {
    writeWords(channel, module, debug2Flags, traceId, a, b, c, d, e, f, g, h);
}

void QZTrace::error(unsigned long traceId, int a, int b, int c, int d) {
    writeWords(channel, module, errorFlags, traceId, a, b, c, d);
}

void QZTrace::info(unsigned long traceId, int a, int b, int c, int d) {
    writeWords(channel, module, infoFlags, traceId, a, b, c, d);
}

void QZTrace::debug(unsigned long traceId, int a, int b, int c, int d) {
    writeWords(channel, module, debugFlags, traceId, a, b, c, d);
}

void QZTrace::debug2(unsigned long traceId, int a, int b, int c, int d) {
    writeWords(channel, module, debug2Flags, traceId, a, b, c, d);
}

void QZTrace::error(unsigned long traceId, int a, int b, int c, int d, int e, int f, int g, int h) {
    writeWords(channel, module, errorFlags, traceId, a, b, c, d, e, f, g, h);
}

void QZTrace::info(unsigned long traceId, int a, int b, int c, int d, int e, int f, int g, int h) {
    writeWords(channel, module, infoFlags, traceId, a, b, c, d, e, f, g, h);
}

void QZTrace::debug(unsigned long traceId, int a, int b, int c, int d, int e, int f, int g, int h) {
    writeWords(channel, module, debugFlags, traceId, a, b, c, d, e, f, g, h);
}

void QZTrace::debug2(unsigned long traceId, int a, int b, int c, int d, int e, int f, int g, int h) {
    writeWords(channel, module, debug2Flags, traceId, a, b, c, d, e, f, g, h);
}

void QZTrace::error(unsigned long traceId, const unsigned char* data, int size) const {
    writeBytes(channel, module, errorFlags, traceId, data, static_cast<std::size_t>(size < 0 ? 0 : size));
}

void QZTrace::info(unsigned long traceId, const unsigned char* data, int size) const {
    writeBytes(channel, module, infoFlags, traceId, data, static_cast<std::size_t>(size < 0 ? 0 : size));
}

void QZTrace::debug(unsigned long traceId, const unsigned char* data, int size) const {
    writeBytes(channel, module, debugFlags, traceId, data, static_cast<std::size_t>(size < 0 ? 0 : size));
}

void QZTrace::debug2(unsigned long traceId, const unsigned char* data, int size) const {
    writeBytes(channel, module, debug2Flags, traceId, data, static_cast<std::size_t>(size < 0 ? 0 : size));
}

void QZTrace::error(unsigned long traceId, const char* text) const {
    writeBytes(channel, module, errorFlags, traceId, text, std::strlen(text) + 1);
}

void QZTrace::info(unsigned long traceId, const char* text) const {
    writeBytes(channel, module, infoFlags, traceId, text, std::strlen(text) + 1);
}

void QZTrace::debug(unsigned long traceId, const char* text) const {
    writeBytes(channel, module, debugFlags, traceId, text, std::strlen(text) + 1);
}

void QZTrace::debug2(unsigned long traceId, const char* text) const {
    writeBytes(channel, module, debug2Flags, traceId, text, std::strlen(text) + 1);
}

void QZTrace::error(unsigned long traceId, const void* a, unsigned long b, unsigned long c,
                    unsigned long d) const {
    writeWords(channel, module, errorFlags, traceId, a, b, c, d);
}

void QZTrace::info(unsigned long traceId, const void* a, unsigned long b, unsigned long c,
                   unsigned long d) const {
    writeWords(channel, module, infoFlags, traceId, a, b, c, d);
}

void QZTrace::debug(unsigned long traceId, const void* a, unsigned long b, unsigned long c,
                    unsigned long d) const {
    writeWords(channel, module, debugFlags, traceId, a, b, c, d);
}

void QZTrace::debug2(unsigned long traceId, const void* a, unsigned long b, unsigned long c,
                     unsigned long d) const {
    writeWords(channel, module, debug2Flags, traceId, a, b, c, d);
}

void QZTrace::error(unsigned long traceId, const void* a, const void* b, unsigned long c,
                    unsigned long d) const {
    writeWords(channel, module, errorFlags, traceId, a, b, c, d);
}

void QZTrace::info(unsigned long traceId, const void* a, const void* b, unsigned long c,
                   unsigned long d) const {
    writeWords(channel, module, infoFlags, traceId, a, b, c, d);
}

void QZTrace::debug(unsigned long traceId, const void* a, const void* b, unsigned long c,
                    unsigned long d) const {
    writeWords(channel, module, debugFlags, traceId, a, b, c, d);
}

void QZTrace::debug2(unsigned long traceId, const void* a, const void* b, unsigned long c,
                     unsigned long d) const {
    writeWords(channel, module, debug2Flags, traceId, a, b, c, d);
}

void QZTrace::error(unsigned long traceId, const void* a, const void* b, const void* c,
                    unsigned long d) const {
    writeWords(channel, module, errorFlags, traceId, a, b, c, d);
}

void QZTrace::info(unsigned long traceId, const void* a, const void* b, const void* c,
                   unsigned long d) const {
    writeWords(channel, module, infoFlags, traceId, a, b, c, d);
}

void QZTrace::debug(unsigned long traceId, const void* a, const void* b, const void* c,
                    unsigned long d) const {
    writeWords(channel, module, debugFlags, traceId, a, b, c, d);
}

void QZTrace::debug2(unsigned long traceId, const void* a, const void* b, const void* c,
                     unsigned long d) const {
    writeWords(channel, module, debug2Flags, traceId, a, b, c, d);
}

void QZTrace::error(unsigned long traceId, const void* a, const void* b, const void* c, const void* d) const {
    writeWords(channel, module, errorFlags, traceId, a, b, c, d);
}

void QZTrace::info(unsigned long traceId, const void* a, const void* b, const void* c, const void* d) const {
    writeWords(channel, module, infoFlags, traceId, a, b, c, d);
}

void QZTrace::debug(unsigned long traceId, const void* a, const void* b, const void* c, const void* d) const {
    writeWords(channel, module, debugFlags, traceId, a, b, c, d);
}

void QZTrace::debug2(unsigned long traceId, const void* a, const void* b, const void* c,
                     const void* d) const {
    writeWords(channel, module, debug2Flags, traceId, a, b, c, d);
}

QZTraceUtil<int>::QZTraceUtil() : pid(qz::internal::processId()), tid(qz::internal::threadId()) {}
