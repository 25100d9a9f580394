#pragma once

#include "tarn/Export.h"

#include "cvlcoreplatform/TString.h"

namespace tarn {

/// An outgoing message that takes headers; the host implements it for its transport. Called on the
/// injecting thread, and not kept.
class TARN_EXPORT ICarrier {
public:
    ICarrier() = default;
    ICarrier(const ICarrier&) = default;
    ICarrier& operator=(const ICarrier&) = default;
    virtual ~ICarrier();

    /// Stores one header. What it throws reaches the caller of the injection.
    virtual void Set(const TString& name, const TString& value) = 0;
};

}  // namespace tarn
