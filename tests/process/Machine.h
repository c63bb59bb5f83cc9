#pragma once

#include <qz/tavrel/Builder.h>
#include <qz/tavrel/Component.h>
#include <qz/tavrel/Factory.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tavrel::test {

/// The types of the sample machine: a chassis with 3 boards, each with 2 sensors; fans come and go.
enum MachineType { chassis = 2, board = 3, sensor = 4, fan = 5 };

/// What each type has, and how many bytes of it.
enum MachineProperty {
    serialKey = 300, ///< chassis: 4, in the store "SETUP"
    valueKey = 301,  ///< all types: 8, in the default store
};

constexpr int boardCount = 3;
constexpr int machineSize = 1 + boardCount * (1 + 2);

/// Steps of a process at which a test looks in. Called without any lock of a store, on the thread of the
/// step.
struct Watch {
    std::function<void(const std::string& key)> afterGet;       ///< a value has been asked for
    std::function<void(const std::string& key)> beforeSet;      ///< a value is about to be stored
    std::function<void(const std::string& key)> afterSet;       ///< a value has been stored
    std::function<void(const std::string& name)> beforeType;    ///< the number of a type is asked for
    std::function<void(int id)> beforeVisit;                    ///< the initializer comes to a component
    std::function<void(std::vector<unsigned char>&)> migration; ///< the initializer fits a value
};

/// Writes the files of the machine in a version.
/// @param serialSize  bytes of the serial number
void specify(const std::string& version, const std::string& more = "", int serialSize = 4);

/// Takes everything away that processes share, as if no process had ever run here.
void emptyMachine();

/// Takes away what does not survive that the machine is switched off.
void restartMachine();

/// Ends this process on the spot, without any chance to tidy up.
[[noreturn]] void die();

/// What a start had to do.
struct Work {
    bool madeCache = false;
    bool builtTree = false;
    bool raisedVersion = false;

    bool operator==(const Work&) const = default;
};

/// This process as a client of the machine: factory, names and stores, and what `Component` was given.
class Process {
public:
    explicit Process(Watch itsWatch = {});
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// Loads and builds.
    Work start();

private:
    class Maker : public qz::tavrel::Factory {
    public:
        explicit Maker(Process& itsProcess) : process(itsProcess) {}
        void* createInstance(const std::string& name) override;

    private:
        Process& process;
    };

    Watch watch;
    Maker factory{*this};
};

/// A value that shows when half of it is of another one.
struct Doubled {
    std::uint32_t value = 0;
    std::uint32_t complement = 0;

    static Doubled of(std::uint32_t value) { return {value, ~value}; }
    bool isWhole() const { return complement == ~value || (value == 0 && complement == 0); }
};

void setValue(qz::tavrel::Component* component, std::uint32_t value);
Doubled valueOf(qz::tavrel::Component* component);

/// All owned components of a type below the root, in the order of a search.
std::vector<qz::tavrel::Component*> all(int type);

/// What is wrong with the tree, its values and its locks, as a fresh process with nobody beside it finds
/// them; empty if all is well: each live node but the root has one owner, links are known at both ends, free
/// nodes have neither owner nor children (those who shared one keep the link), values can be read and are
/// whole, and the whole tree can be locked and leaves no mark.
std::string damage();

} // namespace tavrel::test
