#include "Start.h"

#include "InputCheck.h"
#include "Names.h"
#include "Refusal.h"
#include "SpecCheck.h"
#include "chassis/NamesFile.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>

using qz::util::config::CppProperties;

namespace tavrel::tool {

namespace {

namespace fs = std::filesystem;

/// A properties file's path is cut at this length by the library.
constexpr std::size_t pathLimit = 512;

std::string valueOr(const CppProperties& properties, const std::string& key, const std::string& byDefault) {
    const std::string value = properties.getProperty(key);
    return value.empty() ? byDefault : value;
}

/// A path of a properties file, which is relative to that file.
std::string besides(const std::string& config, const std::string& path) {
    return path.empty() || path[0] == '/' ? path : fs::path(config).parent_path().string() + "/" + path;
}

std::string absoluteConfig(const std::string& path) {
    if (path.empty()) {
        throw WrongUsage("no properties file: name one with -c");
    }
    std::error_code error;
    std::string config = fs::canonical(path, error).string();
    if (error || !isReadableFile(config)) {
        throw Refusal("the properties file '" + path + "' cannot be read");
    }
    if (config.size() > pathLimit) {
        throw Refusal("the path of the properties file is longer than " + std::to_string(pathLimit) +
                      " characters");
    }
    return config;
}

void checkSpecifications(StartInput& input, const Configuration& configuration,
                         qz::tavrel::NameResolver& names, std::vector<std::string>& notes) {
    const auto from = [&](const char* key, const char* what) { return configuration.at(key, what); };
    SpecCheck check(names, input.stores);
    check.components(input.components, from("tavrel.spec.compo", "the component specification"));
    input.sources = check.files();
    input.sources.push_back(input.names);

    const std::string actions = input.properties.getProperty("tavrel.spec.action");
    if (!actions.empty()) {
        check.actions(besides(input.config, actions), from("tavrel.spec.action", "the action specification"),
                      input.classes);
    }
    if (check.problemCount() > 0) {
        const int more = check.problemCount() - 1;
        throw Refusal(check.firstProblem() + (more == 0 ? std::string()
                                              : more == 1
                                                  ? std::string(" (and 1 more problem)")
                                                  : " (and " + std::to_string(more) + " more problems)"));
    }
    notes.insert(notes.end(), check.notes().begin(), check.notes().end());
    input.usedStores = check.usedStores();
    input.usedStores.insert(input.stores.byDefault);
    const std::string redirections = input.properties.getProperty("tavrel.spec.res");
    if (!redirections.empty()) {
        checkRedirections(besides(input.config, redirections),
                          from("tavrel.spec.res", "the resource specification"), names, input.stores,
                          check.usedStores(), notes);
    }
}

/// Notes the class that a key names, and what to say if nobody has it.
/// @return the class
std::string service(StartInput& input, const Configuration& configuration, const std::string& key,
                    const std::vector<std::string>& known) {
    std::string name = valueOr(input.properties, key, known.back());
    const std::string reason = configuration.at(key, key + ": " + unknownName("class", name, known));
    static const char* const others[] = {
        "Action",          "ActionList",    "BMCRelationalDB", "Initializer",     "NameResolver",
        "PropertyLocator", "Specification", "VolatileDB",      "SemLockProvider", "TreePathLockProvider"};
    const bool isOther = std::find(std::begin(others), std::end(others), name) != std::end(others);
    if (isOther && std::find(known.begin(), known.end(), name) == known.end()) {
        throw Refusal(reason); // the library would take one kind of object for another
    }
    input.services[name] = reason;
    return name;
}

} // namespace

StartInput checkStart(const StartFiles& files, std::vector<std::string>& notes) {
    StartInput input;
    input.config = absoluteConfig(files.config);
    const Configuration configuration = checkConfiguration(input.config, notes);
    input.properties = configuration.properties;
    input.names = !files.names.empty()
                      ? files.names
                      : besides(input.config, input.properties.getProperty("tavrel.resolver"));
    if (input.names.empty()) {
        throw WrongUsage("no names file: name one with -n, or with tavrel.resolver in the properties file");
    }
    checkNames(input.names);

    input.components = besides(input.config, input.properties.getProperty("tavrel.spec.compo"));
    if (input.components.empty()) {
        throw Refusal("'" + input.config +
                      "' names no component specification: the key is tavrel.spec.compo");
    }
    input.max = std::atoi(valueOr(input.properties, "tavrel.compo.max", "4096").c_str());
    input.stores.builtIn = service(input, configuration, "tavrel.res.type",
                                   {"BMCRelationalDB", "VolatileDB"}) == "BMCRelationalDB";
    input.stores.byDefault = valueOr(input.properties, "tavrel.res.name", "tavrel.db");
    service(input, configuration, "tavrel.lock.provider", {"SemLockProvider", "TreePathLockProvider"});
    if (!files.classes.empty()) {
        input.classes = ClassLibrary(files.classes);
    }
    chassis::NamesFile names(input.names);
    checkSpecifications(input, configuration, names, notes);
    if (input.stores.builtIn) {
        checkStores(input.usedStores, notes);
    }
    return input;
}

} // namespace tavrel::tool
