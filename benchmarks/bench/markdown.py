"""Numbers and tables as text. What was not measured, None, is a dash."""


def count(value):
    return "–" if value is None else f"{value:,.0f}"


def thousands(value):
    return "–" if value is None else f"{value / 1000:,.0f}"


def decimal(value):
    if value is None:
        return "–"
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}" if abs(value) >= 1 else f"{round(value, 2):g}"


def times(value):
    return "–" if value is None else f"{value:.2f}"


def table(title, head, rows):
    if not rows:
        return ""
    widths = [max(len(row[column]) for row in [head, *rows]) for column in range(len(head))]

    def line(cells):
        padded = [cell.ljust(width) if column == 0 else cell.rjust(width)
                  for column, (cell, width) in enumerate(zip(cells, widths))]
        return "| " + " | ".join(padded) + " |"

    rule = "| " + " | ".join("-" * max(width, 3) if column == 0 else "-" * max(width - 1, 2) + ":"
                             for column, width in enumerate(widths)) + " |"
    return "\n".join([f"**{title}**", "", line(head), rule, *(line(row) for row in rows)])


def replace_between(document, begin, end, text):
    """The document with the text between the two marks; None if it does not have both."""
    before, first, rest = document.partition(begin)
    _, second, after = rest.partition(end)
    if not first or not second:
        return None
    return f"{before}{first}\n\n{text}\n{second}{after}"
