#pragma once

#include "cvlcoreplatform/Export.h"
#include "cvlcoreplatform/TString.h"

namespace TSystem {

/// The operating system's name of this machine; empty when it has none. Any thread may call it.
CVLCOREPLATFORM_API TString ComputerName();

}  // namespace TSystem
