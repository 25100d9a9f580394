#pragma once

/// Marks what libcvlmetrics exports; everything else in it is hidden.
#define CVLMETRICS_API __attribute__((visibility("default")))
