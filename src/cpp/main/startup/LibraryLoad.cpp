// What happens when the library is loaded: what every scope needs is built now, so that no traced
// thread pays for it and no fork meets its making, and the platform learns how to ask whether
// tracing is on. What single files need they make themselves then.
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

}  // namespace

extern "C" {

// Its name is what a program asks for that links the library as an archive, which would leave this
// file out otherwise.
extern const bool tarnIsLoaded;
const bool tarnIsLoaded = InitializeLibrary();
}
