#pragma once

#include <string>

namespace tavrel::tool {

class Session;

/// The commands of the tool. Each prints on the standard output what it has found or done.
/// Paths, names and values are as the person typed them.
/// @throws WrongUsage, Refusal  as those classes say

/// How `tree` prints.
enum class TreeForm { Text, Json, Dot };

void startCommand(const Session& session);
void treeCommand(const std::string& path, TreeForm form, bool withProperties);
void getCommand(const std::string& path, const std::string& property);
void setCommand(const std::string& path, const std::string& property, const std::string& value);

/// @param input    hex bytes for the action; empty: none
/// @param outSize  bytes of room for what the action answers
void doCommand(const std::string& path, const std::string& action, const std::string& input,
               unsigned int outSize);
void addCommand(const Session& session, const std::string& path, const std::string& type);
void removeCommand(const Session& session, const std::string& path);

/// Prints what changes until SIGINT or SIGTERM. @param interval  milliseconds between two looks
void watchCommand(const std::string& path, int interval);

/// Prints what is in the trace ring, oldest first. @param file  a copy of the ring; empty: the ring itself
void traceCommand(const std::string& file);

} // namespace tavrel::tool
