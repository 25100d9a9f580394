#pragma once

namespace packagesearch::sqlite {

/// Has SQLite take its memory where it is counted, so that an activity's memory figures hold what
/// the database took for it. Before the first use of SQLite in the process; then and later calls
/// do nothing. Any thread.
void CountMemory();

}  // namespace packagesearch::sqlite
