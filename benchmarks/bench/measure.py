"""Rounds through all cases, in another order each, so that a slow moment of the machine meets all
alike."""

import random

from bench.cases import short_name

NOT_FIGURES = {"repetition_index", "repetitions", "family_index", "per_family_instance_index",
               "iterations", "threads", "real_time"}


def orders(cases, rounds):
    """The cases of each round. The same cases are in the same orders each time."""
    shuffle = random.Random(1)
    for _ in range(rounds):
        order = list(cases)
        shuffle.shuffle(order)
        yield order


def figures_of(result):
    return {key: value for key, value in result.items()
            if key not in NOT_FIGURES and isinstance(value, (int, float)) and not isinstance(value, bool)}


def measure(cases, rounds, run, progress=lambda round_number, place, count: None):
    """Samples by case and figure, and what went wrong. `run(program, name)` returns a result, or None
    to leave the case out."""
    samples, errors = {}, []
    for number, order in enumerate(orders(cases, rounds), 1):
        for place, (program, name) in enumerate(order, 1):
            progress(number, place, len(order))
            result = run(program, name)
            if result is None:
                continue
            if "error_message" in result:
                errors.append(f"{short_name(name)}: {result['error_message']}")
                continue
            for key, value in figures_of(result).items():
                samples.setdefault(short_name(name), {}).setdefault(key, []).append(value)
    return samples, errors
