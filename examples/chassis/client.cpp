// A client of the sample machine: the start of your own. What it does is chosen by its arguments; see
// `usage`.

#include "ChassisFactory.h"
#include "LockGuard.h"

#include <qz/tavrel/Builder.h>
#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentAccessor.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/QZException.h>
#include <qz/tavrel/TreePath.h>

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

using namespace qz::tavrel;

namespace {

const char usage[] = R"(usage: chassis-client CONFIG NAMES COMMAND [PATH]

  power-on    runs the action PowerOn of the chassis, links what the boards share, and shows the fans
  keep PATH   keeps a handle on a component and uses it at each line of the standard input
  hold PATH   holds the write lock of a component until the standard input ends
)";

/// The tree of this machine in this process: made by the constructor, torn down by the destructor.
class Machine {
public:
    Machine(const std::string& config, const std::string& names) : factory(names) {
        Builder builder;
        builder.setFactory(&factory);
        builder.load(config);
        builder.build();
    }

    ~Machine() { Component::deleteAll(); }
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

private:
    chassis::ChassisFactory factory;
};

/// The absolute form of a path: the specification cache is named after the path, so one file must have one
/// name.
std::string absolute(const char* path) {
    char buffer[PATH_MAX];
    if (realpath(path, buffer) == nullptr) {
        throw std::runtime_error(std::string("'") + path + "' cannot be read");
    }
    return buffer;
}

Component* find(const std::string& text) {
    Component* component = TreePath(text).getComponent();
    if (component == nullptr) {
        throw std::runtime_error("'" + text + "' is not in the tree");
    }
    return component;
}

void powerOn() {
    NameResolver* names = Component::getNameResolver();
    ComponentAccessor root(Component::getRoot());
    root.doAction(names->getActionId("PowerOn"), nullptr, 0, nullptr, 0);
    root.doAction(names->getActionId("Connect"), nullptr, 0, nullptr, 0);

    std::vector<ComponentAccessor> fans;
    root.findComponent(names->getComponentType("Fan"), fans, false);
    const int key = names->getPropertyKey("Speed");
    for (ComponentAccessor& fan : fans) {
        const auto size = static_cast<unsigned int>(fan.getPropertySize(key));
        std::vector<unsigned char> speed(size);
        fan.getProperty(key, speed.data(), size);

        unsigned int value = 0;
        for (const unsigned char byte : speed) {
            value = value << 8 | byte;
        }
        std::cout << fan.getPath() << " turns at " << value << " rpm\n";
    }
}

void keep(const std::string& path) {
    ComponentAccessor kept(find(path));
    std::cout << "keeps " << kept.getPath() << std::endl;

    for (std::string line; std::getline(std::cin, line);) {
        try {
            const int number = kept.getNumber();
            std::cout << "still there: " << kept.getPath() << ", number " << number << std::endl;
        } catch (const UnavailableComponentException& refusal) {
            ComponentAccessor nearest = kept.getEnableComponent();
            std::cout << "refused: " << refusal.what() << "\nnearest living ancestor: " << nearest.getPath()
                      << std::endl;
        }
    }
}

void hold(const std::string& path) {
    const chassis::WriteLock lock(find(path));
    std::cout << "holds " << path << " in process " << getpid() << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
    }
}

} // namespace

int main(int count, char** arguments) {
    const std::vector<std::string> words(arguments + 1, arguments + count);
    const std::string command = words.size() > 2 ? words[2] : "";
    const bool plain = command == "power-on" && words.size() == 3;
    const bool withPath = (command == "keep" || command == "hold") && words.size() == 4;
    if (!plain && !withPath) {
        std::cerr << usage;
        return 2;
    }

    try {
        const Machine machine(absolute(arguments[1]), absolute(arguments[2]));
        if (command == "power-on") {
            powerOn();
        } else if (command == "keep") {
            keep(words[3]);
        } else {
            hold(words[3]);
        }
    } catch (const std::exception& reason) {
        std::cerr << "chassis-client: " << reason.what() << '\n';
        return 1;
    }
    return 0;
}
