#pragma once

// The host's structured logger: values, events, and the logger itself.
#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TLogger.h"
