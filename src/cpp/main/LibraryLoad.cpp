// What happens when the library is loaded: the tokens, the host's name and the settings are built
// now, so that no traced thread pays for them, and the platform learns how to ask whether tracing
// is on. Other constants are built when they are first asked for, such as the names that a proxy
// keeps out and the monitor's own names.
#include "ActivityTokenText.h"

#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"

#include "cvlcoreplatform/CorePlatformOptions.h"

namespace {

bool InitializeLibrary() {
    tarn::Tokens();
    OptTarn::GetHostName();
    tarn::TarnSettings::GetInstance();
    CorePlatformOptions::SetIsTarnEnabledFunction(&tarn::ActivityScope::IsTarnEnabled);
    return true;
}

[[maybe_unused]] const bool isInitialized = InitializeLibrary();

}  // namespace
