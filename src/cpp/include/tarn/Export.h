#pragma once

/// Marks what libtarn exports; everything else in it is hidden.
#define TARN_EXPORT __attribute__((visibility("default")))
