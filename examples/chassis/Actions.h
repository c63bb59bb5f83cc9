#pragma once

#include <qz/tavrel/Action.h>

#include <string>
#include <vector>

/// The actions of the sample machine. One object serves all components of a class, so what it keeps is what
/// its row of the specification gave it.
namespace chassis {

/// Writes a number into a 4-byte property of the component. Row: `SetProperty,PROPERTY,NUMBER`.
class SetProperty : public qz::tavrel::Action {
public:
    /// @throws std::runtime_error  a cell is missing, or is no name or number that can stand there
    int setAttribute(qz::tavrel::NameResolver* resolver, const std::vector<std::string>& attributes) override;

    /// @throws std::runtime_error  the component has no such property, or its store has refused the value
    void execute(qz::tavrel::Component* target, int actionId, const void* in, unsigned int inSize, void* out,
                 unsigned int outSize) override;
    std::string toString() override { return "SetProperty"; }

private:
    std::string name;
    int key = -1;
    int value = 0;
};

/// Attaches every component of one type beneath the target, as a shared child, to every holder of another
/// type. Once linked they stay so; running it again changes nothing. Row: `LinkShared,HOLDER,SHARED`.
class LinkShared : public qz::tavrel::Action {
public:
    /// @throws std::runtime_error  a cell is missing, or is no name or number that can stand there
    int setAttribute(qz::tavrel::NameResolver* resolver, const std::vector<std::string>& attributes) override;

    /// Holds the target's write lock.
    void execute(qz::tavrel::Component* target, int actionId, const void* in, unsigned int inSize, void* out,
                 unsigned int outSize) override;
    std::string toString() override { return "LinkShared"; }

private:
    int holderType = 0;
    int sharedType = 0;
};

/// Tells what the component is: its path and, if it has one, its serial number, as text that ends with a zero
/// byte, cut to `outSize`. Row: `Identify,PROPERTY`, the property that holds the serial number.
class Identify : public qz::tavrel::Action {
public:
    /// @throws std::runtime_error  a cell is missing, or is no name or number that can stand there
    int setAttribute(qz::tavrel::NameResolver* resolver, const std::vector<std::string>& attributes) override;
    void execute(qz::tavrel::Component* target, int actionId, const void* in, unsigned int inSize, void* out,
                 unsigned int outSize) override;
    std::string toString() override { return "Identify"; }

private:
    int serialNumberKey = -1;
};

/// Makes an action by class name; null for a name that is not of this machine.
qz::tavrel::Action* createAction(const std::string& name);

} // namespace chassis
