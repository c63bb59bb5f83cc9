#include "Commands.h"
#include "Refusal.h"
#include "Values.h"
#include "base/TracePoints.h"

#include <qz/base/TraceRing.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>
#include <iterator>
#include <sstream>
#include <system_error>

using qz::base::TraceEntry;
using qz::base::TraceRecord;
using qz::internal::TracePoint;

namespace tavrel::tool {

namespace {

/// The library's module number; others have trace points that this tool does not know.
constexpr std::uint32_t libraryModule = 37;

const TracePoint* pointOf(const TraceEntry& entry) {
    const auto* end = std::end(qz::internal::tracePoints);
    const auto* found = std::find_if(std::begin(qz::internal::tracePoints), end,
                                     [&](const TracePoint& point) { return point.id == entry.traceId; });
    return entry.module != libraryModule || found == end ? nullptr : found;
}

const char* levelOf(const TraceEntry& entry) {
    switch (entry.flags) {
    case 0x8002:
        return "error";
    case 0x8001:
        return "info";
    case 0x0801:
        return "debug";
    case 0x0001:
        return "debug2";
    default:
        return "?";
    }
}

std::string timeOf(const TraceEntry& entry) {
    constexpr std::uint64_t second = 1000000000;
    const auto seconds = static_cast<std::time_t>(entry.time / second);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[64];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    std::snprintf(text + length, sizeof text - length, ".%06u",
                  static_cast<unsigned>(entry.time % second / 1000));
    return text;
}

/// The text of a record, without its end and without what would spoil a line.
std::string textOf(const TraceRecord& record) {
    const char* bytes = reinterpret_cast<const char*>(record.entry.data);
    std::string text(bytes, strnlen(bytes, record.stored()));
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    std::replace_if(
        text.begin(), text.end(), [](char byte) { return byte >= 0 && byte < ' '; }, '.');
    return text + (record.entry.size > record.stored() ? "..." : "");
}

/// The lower half of an address, which is what a record has.
std::string addressOf(std::int32_t word) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(word));
    return text;
}

/// The words behind process id and thread id, each behind its name: "id 3, old revision 4". A name that is a
/// number stands for a word that says nothing.
std::string wordsOf(const TraceRecord& record, const char* names) {
    std::istringstream list(names);
    std::string text;
    std::size_t offset = 2 * sizeof(std::uint32_t);
    for (std::string name; std::getline(list, name, ','); offset += sizeof(std::uint32_t)) {
        name.erase(0, name.find_first_not_of(' '));
        if (offset + sizeof(std::uint32_t) > record.stored() ||
            name.find_first_not_of("0123456789") == name.npos) {
            continue;
        }
        std::int32_t word = 0;
        std::memcpy(&word, record.entry.data + offset, sizeof word);
        text += (text.empty() ? "" : ", ") + name + ' ' +
                (name == "address" ? addressOf(word) : std::to_string(word));
    }
    return text;
}

std::string bytesOf(const TraceRecord& record) {
    return toHex(std::string(reinterpret_cast<const char*>(record.entry.data), record.stored()));
}

void print(const TraceRecord& record) {
    const TraceEntry& entry = record.entry;
    char head[96];
    std::snprintf(head, sizeof head, "%s %6d %6d %-6s ", timeOf(entry).c_str(), entry.pid, entry.tid,
                  levelOf(entry));
    std::cout << head;

    const TracePoint* point = pointOf(entry);
    if (point == nullptr) {
        std::snprintf(head, sizeof head, "module %u 0x%llX: ", entry.module,
                      static_cast<unsigned long long>(entry.traceId));
        std::cout << head << bytesOf(record) << '\n';
        return;
    }
    const bool isText = std::strncmp(point->words, "text", 4) == 0;
    const std::string rest = isText ? textOf(record) : wordsOf(record, point->words);
    std::cout << point->where << ": " << point->event << (rest.empty() ? "" : ": ") << rest << '\n';
}

} // namespace

void traceCommand(const std::string& file) {
    try {
        qz::base::TraceRingReader ring(file.empty() ? qz::base::traceRingPath : file);
        for (const TraceRecord& record : ring.read()) {
            print(record);
        }
        if (ring.dropped() > 0) {
            std::cout << ring.dropped() << " records were dropped\n";
        }
    } catch (const std::system_error& error) {
        if (file.empty() && error.code().value() == ENOENT) {
            throw Refusal(
                "there is no trace ring: no process has written a record since the machine started");
        }
        throw Refusal(std::string("the trace ring cannot be read: ") + error.what());
    }
}

} // namespace tavrel::tool
