#include "Machine.h"

#include "Flush.h"

#include <qz/tavrel/tavrel.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace tavrel::bench {

using namespace qz::tavrel;

namespace {

constexpr const char* specificationFile = "/tmp/bench.csv";
constexpr const char* propertiesFile = "/tmp/bench.properties";
constexpr int propertiesPerType = 5;

class Names : public NameResolver {
public:
    Names() {
        setPropertyKey("Value", valueKey);
        for (int i = 0; i < propertiesPerType; ++i) {
            setPropertyKey("Value" + std::to_string(i), valueKey + 1 + i);
        }
        setActionId("Reset", 1);
    }
};

class BenchFactory : public Factory {
public:
    void* createInstance(const std::string& name) override {
        if (name == "NameResolver") {
            NameResolver* const names = new Names;
            return names;
        }
        return Factory::createInstance(name);
    }
};

std::string writeProperties(const std::string& root) {
    std::ofstream(propertiesFile) << "tavrel.compo.ver = 1\n"
                                  << "tavrel.compo.shared = enable\n"
                                  << "tavrel.compo.type = " << root << '\n'
                                  << "tavrel.spec.compo = " << specificationFile << '\n'
                                  << "tavrel.res.type = BMCRelationalDB\n";
    return propertiesFile;
}

/// Four levels below the root: a x (1 + b x (1 + c x (1 + d))) components.
std::string writeTree(int a, int b, int c, int d) {
    const char* const property = "property,tavrel.db,Value,4\n";
    std::ofstream(specificationFile) << "Root\n"
                                     << property << "component,Group," << a << "\n\n"
                                     << "Group\n"
                                     << property << "component,Unit," << b << "\n\n"
                                     << "Unit\n"
                                     << property << "component,Module," << c << "\n\n"
                                     << "Module\n"
                                     << property << "component,Part," << d << "\n\n"
                                     << "Part\n"
                                     << property;
    return writeProperties("Root");
}

} // namespace

void start(const std::string& path) {
    static BenchFactory factory;
    Builder builder;
    builder.setFactory(&factory);
    builder.load(path);
    builder.build();
}

void removeCaches() {
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
        if (entry.path().filename().string().rfind("cache.of.", 0) == 0) {
            std::filesystem::remove(entry.path());
        }
    }
}

Machine::Machine(int components) {
    const NoFlush filling;
    std::remove("/var/nvrdisk/current/db/current.db");
    removeCaches();
    start(components == 64 ? writeTree(3, 4, 2, 1) : writeTree(15, 16, 4, 3));
    const int leafType = Component::getNameResolver()->getComponentType("Part");
    Component::getRoot()->findComponent(leafType, leaves, false);
    for (int id = 0; id < Component::getTreeConfig()->getNodeCount(); ++id) {
        everything.push_back(Component::getComponent(id));
        everything.back()->setProperty(valueKey, id);
    }
    if (static_cast<int>(everything.size()) != components) {
        std::fprintf(stderr, "the tree has %zu components, not %d\n", everything.size(), components);
        std::exit(1);
    }
}

Machine::~Machine() {
    Component::deleteAll();
}

std::string writeSpecification(int types) {
    std::ofstream file(specificationFile);
    for (int type = 0; type < types; ++type) {
        file << "Type" << type << '\n';
        for (int i = 0; i < propertiesPerType; ++i) {
            file << (i == 0 ? "property" : "") << ",tavrel.db,Value" << i << ",4\n";
        }
        if (type + 1 < types && type % 10 != 9) {
            file << "component,Type" << type + 1 << ",1\n";
        }
        file << "action,Reset\nfeature,Hotplug,Redundant\n\n";
    }
    return writeProperties("Type0");
}

} // namespace tavrel::bench
