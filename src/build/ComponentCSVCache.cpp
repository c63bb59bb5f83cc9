#include "base/Trace.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/Builder.h>
#include <qz/tavrel/ComponentCSVCache.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/Factory.h>
#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/Specification.h>

#include <cstdlib>
#include <memory>

namespace qz::tavrel {

namespace {

/// Its presence alone counts: the search for actions costs time at every start, also where it finds none.
constexpr const char* quickStart = "PERFORMANCE_1S";

} // namespace

bool ComponentCSVCache::build(Specification* actionSpec, Factory* factory, Builder* builder) {
    internal::trace(internal::point::CacheBuild);
    const bool leavesActionsOut =
        std::getenv(quickStart) != nullptr && (actionSpec == nullptr || actionSpec->empty());
    for (ComponentSpec* spec : specs) {
        buildClass(*spec);
        buildProperties(*spec, factory, builder);
        buildComposition(*spec);
        if (!leavesActionsOut) {
            buildAction(*spec, builder);
        }
        buildFeature(*spec);
    }
    internal::trace(internal::point::CacheBuilt);
    return true;
}

void ComponentCSVCache::buildClass(ComponentSpec& spec) {
    ComponentClass::add(new ComponentClass(spec.compo->type));
}

void ComponentCSVCache::buildProperties(ComponentSpec& spec, Factory* factory, Builder* builder) {
    std::unique_ptr<PropertyLocator> locator(
        static_cast<PropertyLocator*>(factory->createInstance("PropertyLocator")));
    for (int i = 0; i < spec.propertyCount; ++i) {
        const property_spec_t& property = spec.properties[i];
        auto resource = resourceIds.find(property.name);
        if (resource == resourceIds.end()) {
            const int id = builder->getResourceId(nameAt(property.name));
            resource = resourceIds.emplace(property.name, id).first;
        }
        locator->addProperty(resource->second, property.key, property.size);
    }
    ComponentClass::get()->setPropertyLocator(locator.release());
}

void ComponentCSVCache::buildComposition(ComponentSpec& spec) {
    for (int i = 0; i < spec.subcompoCount; ++i) {
        ComponentClass::get()->addComponentCount(spec.subcompos[i].type, spec.subcompos[i].count);
    }
}

void ComponentCSVCache::buildAction(ComponentSpec& spec, Builder* builder) {
    for (int i = 0; i < spec.actionCount; ++i) {
        const std::string actionName = nameAt(spec.actions[i].name);
        if (Action* const action = builder->getAction(nameAt(spec.compo->name), actionName)) {
            ComponentClass::get()->addAction(spec.actions[i].id, action);
        }
    }
}

void ComponentCSVCache::buildFeature(ComponentSpec& spec) {
    for (int i = 0; i < spec.featureCount; ++i) {
        ComponentClass::get()->addFeature(spec.features[i].id);
    }
}

} // namespace qz::tavrel
