#pragma once

#include "PackageDatabase.h"
#include "Queries.h"

#include <string>
#include <string_view>

namespace packagesearch {

/// A kind of query, and how the database is asked.
struct CatalogueEntry {
    QueryKind kind{};
    const char* sql = nullptr;  ///< a template, see `Sql`
};

/// Null for a kind that there is not.
const CatalogueEntry* FindKind(std::string_view name);

/// The statement for a kind; its parameter ?1 is the argument, for words a pattern.
std::string Sql(const CatalogueEntry& entry, WordSearch wordSearch);

}  // namespace packagesearch
