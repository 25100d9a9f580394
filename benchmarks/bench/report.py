"""All that was measured in one text."""

from bench import tables
from bench.bars import bars_table
from bench.figures import Figures


def machine_text(data):
    machine = data["machine"]
    rounds = data["settings"]["rounds"]
    lines = [f"{machine['processors']} × {machine['processor']}, {machine['system']}, kernel "
             f"{machine['kernel']}, {machine['compiler']}, -O3, files on {machine['file system']}; "
             f"{machine['date']}, commit {machine['commit']}, load average "
             f"{machine['load when it began']} when it began. Medians of {rounds} "
             f"round{'' if rounds == 1 else 's'}."]
    if data["lttng"] != "measured":
        lines.append(f"LTTng-UST was not measured: {data['lttng']}.")
    return "\n\n".join(lines)


def report_text(data):
    """`data` is what `scripts/bench --json` writes."""
    figures, sizes = Figures(data["figures"]), data.get("sizes")
    parts = [machine_text(data), tables.main_table(figures), tables.peers_table(figures),
             tables.depth_table(figures), tables.threads_table(figures), tables.numbers_table(figures),
             tables.baseline_table(figures), tables.allocation_table(figures),
             tables.sizes_table(figures, sizes), bars_table(figures, sizes),
             "\n".join(f"FAILED: {error}" for error in data["errors"])]
    return "\n\n".join(part for part in parts if part) + "\n"
