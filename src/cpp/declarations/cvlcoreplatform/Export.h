#pragma once

/// Marks what libcvlcoreplatform exports; everything else in it is hidden.
#define CVLCOREPLATFORM_API __attribute__((visibility("default")))
