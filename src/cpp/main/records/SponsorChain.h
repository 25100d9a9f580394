#pragma once

#include "SharedStack.h"

#include "cvlsys/IntegerTypes.h"

#include <vector>

namespace tarn {

/// The ids of the scopes that sponsor a scope, the nearest on top. A scope shares the chain of the
/// one that it opens in.
class SponsorChain : public SharedStack<uint64> {
public:
    using SharedStack::SharedStack;

    /// The nearest sponsor last.
    std::vector<uint64> GetIds() const {
        std::vector<uint64> nearestFirst;
        for (const uint64 id : *this) {
            nearestFirst.push_back(id);
        }
        return {nearestFirst.rbegin(), nearestFirst.rend()};
    }
};

}  // namespace tarn
