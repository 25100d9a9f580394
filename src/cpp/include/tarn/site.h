#pragma once

/* What a place in a program where activities begin remembers of their name. In C++ it is part of a
   tarn::ActivityName, or made by the macros of tarn/Trace.h; in C it is given to
   tarn_scope_open_at. */

#include <stdint.h>

#ifdef __cplusplus
// NOLINTBEGIN(readability-identifier-naming,modernize-use-using,modernize-deprecated-headers): C
namespace tarn::abi {
extern "C" {
#endif

/* One for each place, in static memory, all zero at first. It always goes with the same name. Any
   number of threads may use it at a time. Only the library looks inside. */
typedef struct tarn_site {
    uint64_t verdict;    /* *off if the name was off, another number if it was not */
    const uint64_t* off; /* of the library, which changes it with each new set of names */
} tarn_site;

#ifdef __cplusplus
}  // extern "C"
}  // namespace tarn::abi
// NOLINTEND(readability-identifier-naming,modernize-use-using,modernize-deprecated-headers)
#endif
