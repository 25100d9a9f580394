#pragma once

#include "tarn/Export.h"

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/Scope.h"
#include "cvlsys/IntegerTypes.h"

#include <memory>

namespace tarn {

/// A light scope around work for something the user sees: a worksheet, possibly within a dashboard.
/// It has no activity context, measures nothing, and cannot be switched off by name. Use it on the
/// thread that constructed it.
class TARN_EXPORT ScopeWithVisualId {
public:
    /// `flags` are used as they are; when nobody wants them the object does nothing. An empty
    /// dashboard, or one that equals the worksheet, is not mentioned.
    ScopeWithVisualId(const char* name,
                      uint64 flags,
                      const TString& worksheet,
                      const TString& dashboard);
    ~ScopeWithVisualId();
    ScopeWithVisualId(const ScopeWithVisualId&) = delete;
    ScopeWithVisualId& operator=(const ScopeWithVisualId&) = delete;

private:
    std::unique_ptr<Metrics::Scope> m_scope;
};

}  // namespace tarn
