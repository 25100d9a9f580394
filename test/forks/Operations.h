#pragma once

#include <ostream>
#include <vector>

namespace ForkMatrix {

/// Something of the libraries that any thread may do at any time, while others trace and fork.
struct Operation {
    const char* name;    ///< of the function, or of the first one
    const char* others;  ///< names of others that it calls as well, with spaces between them
    void (*run)();

    /// For the tests' messages.
    friend void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }
};

/// All that the libraries export and that may be called so. What else they export is listed with
/// the reason in not-in-a-loop.txt; a test compares both with the libraries.
const std::vector<Operation>& Operations();

}  // namespace ForkMatrix
