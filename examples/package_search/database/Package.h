#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace packagesearch {

enum class DependencyKind { Depends, PreDepends, Recommends };

/// One name that a package asks for.
struct Dependency {
    DependencyKind kind = DependencyKind::Depends;

    /// Names of one package with the same group are alternatives to each other ("a | b").
    int group = 0;

    std::string name;
};

/// One installed package. All texts are UTF-8.
struct Package {
    std::string name;
    std::string version;
    std::string architecture;
    std::string section;      ///< empty where the package does not say
    std::string summary;      ///< the first line of the description
    std::string description;  ///< the other lines of it
    std::int64_t installedKib = 0;
    std::vector<Dependency> dependencies;
};

}  // namespace packagesearch
