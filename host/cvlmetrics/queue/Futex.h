#pragma once

#include "cvlsys/host/Futex.h"

namespace Metrics {

namespace Futex = cvlsys::Futex;

}  // namespace Metrics
