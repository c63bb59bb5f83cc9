/// @file
/// An action that writes a line on the standard output.
#pragma once

#include <qz/tavrel/Action.h>

#include <string>
#include <vector>

namespace qz::tavrel {

/// Writes its strings on the standard output, or, without any, where it runs and as which action.
class PrintMessage : public Action {
public:
    /// Has no strings.
    PrintMessage();

    /// Has one string.
    explicit PrintMessage(const std::string& string);
    ~PrintMessage() override;

    /// Takes all cells as its strings, in place of those that it had.
    ///
    /// @return how many they are
    int setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) override;

    /// Writes one line and flushes it: each string with a comma behind it, the last one too; without strings
    /// "[", the path of `target`, "] " and the name of the action.
    ///
    /// @throws what `Component::getTreePath` raises
    /// Locks: a read section, only without strings.
    void execute(Component* target, int actionId, const void* in, unsigned int inSize, void* out,
                 unsigned int outSize) override;

    /// "PrintMessage".
    std::string toString() override;

private:
    std::vector<std::string> strings;
};

} // namespace qz::tavrel
