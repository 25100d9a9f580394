#pragma once

#include "cvlsys/TStringCore.h"

/// The text type of the host and of this library. It is the same type as `TStringCore`, which
/// lies one library lower because errors carry texts.
using TString = TStringCore;
