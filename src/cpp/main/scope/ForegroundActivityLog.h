#pragma once

#include "cvlcoreplatform/TString.h"

namespace tarn {

class ActivityContext;

/// The diagnostic lines about the comings and goings of activity contexts on threads. They are
/// written only while the option ShouldLogForegroundActivity is on.
namespace ForegroundActivityLog {

/// `verb` is what happens to the context ("Register"); `context` may be null.
void WriteContext(const TString& verb, const TString& scopeName, const ActivityContext* context);

void WriteMessage(const TString& text);

}  // namespace ForegroundActivityLog

}  // namespace tarn
