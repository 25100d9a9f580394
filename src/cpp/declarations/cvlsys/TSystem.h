#pragma once

#include "cvlsys/Export.h"
#include "cvlsys/IntegerTypes.h"

/// Facts about the running process. `TSystem::ComputerName` is declared in
/// cvlcoreplatform/ComputerName.h.
namespace TSystem {

/// The kernel's id of the calling thread; read once per thread, right again in a forked child.
CVLSYS_API uint64 ThreadID() noexcept;

/// The id of this process; right again in a forked child.
CVLSYS_API uint32 ProcessID() noexcept;

}  // namespace TSystem
