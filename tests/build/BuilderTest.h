#pragma once

#include "build/Files.h"
#include "support/FaultText.h"
#include "support/MemoryDatabase.h"
#include "support/RecordingProvider.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/Builder.h>
#include <qz/tavrel/Component.h>
#include <qz/tavrel/Factory.h>
#include <qz/tavrel/NameResolver.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavrel::test {

using Texts = std::vector<std::string>;
using Disks = std::map<std::string, std::map<std::string, std::string>>;

/// Makes what it was told to make, passes all other names on, and writes down what it is asked for.
class ClientFactory : public qz::tavrel::Factory {
public:
    Texts asked;
    std::map<std::string, std::function<void*()>> makers;

    void* createInstance(const std::string& name) override {
        asked.push_back(name);
        const auto maker = makers.find(name);
        return maker == makers.end() ? Factory::createInstance(name) : maker->second();
    }

    int timesAsked(const std::string& name) const {
        return static_cast<int>(std::count(asked.begin(), asked.end(), name));
    }
};

/// Names with fixed numbers, as every process of a machine has them; counts the questions for types.
class FixedNames : public qz::tavrel::NameResolver {
public:
    FixedNames() {
        setComponentType("Chassis", 2);
        setComponentType("Board", 3);
        setComponentType("Fan", 4);
        setPropertyKey("Bound", 10);
        setPropertyKey("Speed", 300);
        setPropertyKey("Label", 301);
        setActionId("Reset", 1);
        setActionId("Stop", 2);
    }

    int getComponentType(const std::string& name) override {
        ++typeQuestions;
        return NameResolver::getComponentType(name);
    }

    int typeQuestions = 0;
};

/// A store whose values go back to its disk when it is deleted, so that they outlive the process that a test
/// plays.
class DiskDatabase : public MemoryDatabase {
public:
    explicit DiskDatabase(Disks& itsDisks) : disks(itsDisks) {}
    ~DiskDatabase() override {
        if (!name.empty()) {
            disks[name] = values;
        }
    }
    DiskDatabase(const DiskDatabase&) = delete;
    DiskDatabase& operator=(const DiskDatabase&) = delete;

    void initialize(const std::string& given) override {
        MemoryDatabase::initialize(given);
        values = disks[given];
    }

private:
    Disks& disks;
};

/// Locks nothing, and shows what it was configured with.
class ConfiguredProvider : public RecordingProvider {
public:
    std::function<void()> beforeInitialize;
    std::function<void()> beforeUpdate;
    int initialized = 0;

    std::string value(const std::string& key) const { return configuration.getProperty(key); }

    std::map<std::string, std::string> all() const {
        std::map<std::string, std::string> found;
        Texts keys;
        configuration.getKeys(keys);
        for (const std::string& key : keys) {
            found[key] = value(key);
        }
        return found;
    }

    void initialize() override {
        if (beforeInitialize) {
            beforeInitialize();
        }
        ++initialized;
    }

    void update(void* source, int event) override {
        if (beforeUpdate) {
            beforeUpdate();
        }
        RecordingProvider::update(source, event);
    }
};

/// One machine: its files in a folder, its stores on disks in memory. `builder` is that of the process that
/// the test plays; `restart` plays the next one.
class BuilderTest : public testing::Test {
protected:
    static constexpr const char* folder = "/tmp/machine";
    static constexpr const char* properties = "/tmp/machine/properties";
    static constexpr const char* components = "/tmp/machine/components";
    static constexpr const char* actions = "/tmp/machine/actions";
    static constexpr const char* redirections = "/tmp/machine/redirections";
    static constexpr const char* cache =
        "/tmp/cache.of..tmp.machine.components.resolved.by.tavrel::test::FixedNames";
    static constexpr const char* defaultStore = "tavrel.db";

    BuilderTest() {
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
            if (entry.path().filename().string().starts_with("cache.of.")) {
                std::filesystem::remove_all(entry.path());
            }
        }
        factory.makers["VolatileDB"] = [this] {
            auto* const made = new DiskDatabase(disks);
            stores.push_back(made);
            return static_cast<qz::tavrel::Resource*>(made);
        };
        factory.makers["TreePathLockProvider"] = [this] {
            provider = new ConfiguredProvider;
            return static_cast<qz::tavrel::ComponentLockProvider*>(provider);
        };
        factory.makers["NameResolver"] = [this] {
            names = new FixedNames;
            return static_cast<qz::tavrel::NameResolver*>(names);
        };
        restart();
    }

    ~BuilderTest() override { qz::tavrel::Component::deleteAll(); }

    /// Ends the process, and begins another one.
    void restart() {
        builder.reset();
        qz::tavrel::Component::deleteAll();
        stores.clear();
        factory.asked.clear();
        builder = std::make_unique<qz::tavrel::Builder>();
        builder->setFactory(&factory);
    }

    /// Writes the properties file: the component specification, then `more`.
    static void configure(const std::string& more = "") {
        makeFile(properties, "tavrel.spec.compo = components\n" + more);
    }

    /// Writes the component specification and a properties file that names it.
    static void specify(const std::string& specification, const std::string& more = "") {
        makeFile(components, specification);
        configure(more);
    }

    /// The store of a name that this process has made; null without one.
    MemoryDatabase* store(const std::string& name = defaultStore) const {
        for (DiskDatabase* const each : stores) {
            if (each->name == name) {
                return each;
            }
        }
        return nullptr;
    }

    /// What `load` and `build` raise, as `faultText` gives it.
    std::string start() {
        return faultText([this] {
            builder->load(properties);
            builder->build();
        });
    }

    Disks disks;
    ClientFactory factory;
    std::vector<DiskDatabase*> stores;
    ConfiguredProvider* provider = nullptr;
    FixedNames* names = nullptr;
    std::unique_ptr<qz::tavrel::Builder> builder;
};

/// The ids of all records of a start, but those of other classes than the builder.
inline std::vector<unsigned long> builderTraces(const TraceCapture& capture) {
    std::vector<unsigned long> ids;
    for (const TraceRecord& record : capture.all()) {
        const unsigned long area = record.id >> 8;
        if (area == 0x101 || (record.id >= 0x90101 && record.id <= 0x90106)) {
            ids.push_back(record.id);
        }
    }
    return ids;
}

} // namespace tavrel::test
