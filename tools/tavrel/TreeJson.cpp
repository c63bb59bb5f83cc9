#include "TreeForms.h"
#include "Values.h"

#include <nlohmann/json.hpp>

namespace tavrel::tool {

namespace {

using Json = nlohmann::ordered_json;

Json toJson(const PropertyValue& property) {
    Json object;
    object["name"] = property.name;
    object["key"] = property.key;
    object["size"] = property.size;
    object["store"] = property.store;
    object["hex"] = toHex(property.bytes);
    const std::string integer = toInteger(property.bytes);
    if (!integer.empty()) {
        object["integer"] = std::stoull(integer);
    }
    return object;
}

Json toJson(const ComponentState& state, bool withProperties) {
    Json object;
    object["path"] = state.path;
    object["type"] = state.type;
    object["typeNumber"] = state.typeNumber;
    object["number"] = state.number;
    object["id"] = state.id;
    object["revision"] = state.revision;
    object["features"] = state.features;
    if (withProperties) {
        object["properties"] = Json::array();
        for (const PropertyValue& property : state.properties) {
            object["properties"].push_back(toJson(property));
        }
    }
    object["shared"] = state.shared;
    object["children"] = Json::array();
    for (const ComponentState& child : state.children) {
        object["children"].push_back(toJson(child, withProperties));
    }
    return object;
}

} // namespace

void printJson(std::ostream& out, const ComponentState& top, bool withProperties) {
    // A name that is no UTF-8 is shown as well as it can be.
    out << toJson(top, withProperties).dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

} // namespace tavrel::tool
