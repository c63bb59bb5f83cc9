#include "Start.h"

#include "InputCheck.h"
#include "Refusal.h"
#include "SpecCheck.h"
#include "chassis/NamesFile.h"

#include <cstdlib>
#include <filesystem>

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

void checkSpecifications(StartInput& input, qz::tavrel::NameResolver& names) {
    SpecCheck check(names);
    check.components(input.components);
    input.sources = check.files();
    input.sources.push_back(input.names);

    const std::string actions = input.properties.getProperty("tavrel.spec.action");
    if (!actions.empty()) {
        check.actions(besides(input.config, actions));
    }
    const auto& problems = check.problems();
    if (!problems.empty()) {
        const std::size_t more = problems.size() - 1;
        throw Refusal(problems[0] + (more == 0   ? std::string()
                                     : more == 1 ? std::string(" (and 1 more problem)")
                                                 : " (and " + std::to_string(more) + " more problems)"));
    }
    const std::string redirections = input.properties.getProperty("tavrel.spec.res");
    if (!redirections.empty()) {
        checkRedirections(besides(input.config, redirections), names);
    }
}

} // namespace

StartInput checkStart(const StartFiles& files, std::vector<std::string>& notes) {
    StartInput input;
    input.config = absoluteConfig(files.config);
    input.properties = checkConfiguration(input.config, notes);
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
    chassis::NamesFile names(input.names);
    checkSpecifications(input, names);

    input.max = std::atoi(valueOr(input.properties, "tavrel.compo.max", "4096").c_str());
    input.lockProvider = valueOr(input.properties, "tavrel.lock.provider", "TreePathLockProvider");
    input.storeType = valueOr(input.properties, "tavrel.res.type", "VolatileDB");
    if (input.storeType == "BMCRelationalDB") {
        checkStores(notes);
    }
    return input;
}

} // namespace tavrel::tool
