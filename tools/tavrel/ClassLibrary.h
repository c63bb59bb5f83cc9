#pragma once

#include <string>

namespace tavrel::tool {

/// A shared library with `extern "C" void* tavrel_create_instance(const char* name)`, which makes the
/// client's own objects and answers null for names that are not its own. It stays loaded until the process
/// ends.
class ClassLibrary {
public:
    /// No library: makes nothing.
    ClassLibrary() = default;

    /// @param path  of the library
    /// @throws Refusal  it cannot be loaded or has no such function
    explicit ClassLibrary(const std::string& path);

    bool isLoaded() const { return create != nullptr; }

    /// An object of a class as `Factory::createInstance` gives it; null for a name that is not of this
    /// library.
    void* make(const std::string& name) const { return create == nullptr ? nullptr : create(name.c_str()); }

    /// True if a class of that name can stand in an action specification: one of this library, which makes
    /// one to find out, or one that every factory makes.
    bool hasAction(const std::string& name) const;

private:
    using Create = void* (*)(const char*);

    Create create = nullptr;
};

} // namespace tavrel::tool
