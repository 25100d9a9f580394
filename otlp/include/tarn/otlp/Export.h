#pragma once

/// Marks what libtarn_otlp exports; everything else in it is hidden.
#define TARN_OTLP_EXPORT __attribute__((visibility("default")))
