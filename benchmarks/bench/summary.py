"""Samples to medians."""

import statistics


def summarise(samples):
    """For each case and figure the median, the least, and all samples."""
    return {
        case: {key: {"median": statistics.median(values), "min": min(values), "samples": values}
               for key, values in of_case.items()}
        for case, of_case in samples.items()
    }
