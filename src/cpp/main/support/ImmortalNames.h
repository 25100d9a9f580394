#pragma once

#include "cvlcoreplatform/TString.h"

namespace tarn {

/// The same name, in characters that live as long as the process, so that no copy of it counts
/// anything. Names come out of the host's source code and are few; a host that makes them up gets
/// ordinary strings once there are some thousand, and always for long ones. Any thread may call
/// it. Throws `std::bad_alloc`.
TString MakeImmortal(const TString& name);

}  // namespace tarn
