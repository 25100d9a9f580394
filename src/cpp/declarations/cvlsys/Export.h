#pragma once

/// Marks what libcvlsys exports; everything else in it is hidden.
#define CVLSYS_API __attribute__((visibility("default")))
