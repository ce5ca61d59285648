"""The results as a table in Markdown."""

HEAD = """| protocol | daemon -> neighbor | reacts after | comes back during the delay | back after an abort | remark |
|---|---|---|---|---|---|"""


def markdown(results):
    """A row for each scenario of rounds; a line for each of the others, which have notes."""
    rows = [row(result) for result in results if result["reacted"]]
    notes = [f"{result['scenario']}: {note}" for result in results for note in result["notes"]]
    return "\n".join(([HEAD, *rows] if rows else []) + notes)


def row(result):
    cells = [result["title"], result["between"], times(result["reacted"]), came_back(result), times(result["back"]),
             result["remark"]]
    return f"| {' | '.join(cells)} |"


def times(spread):
    """Median and worst."""
    return f"{text(spread[0])} (worst {text(spread[1])})" if spread else "-"


def text(milliseconds):
    return f"{milliseconds / 1000:.1f} s" if milliseconds >= 1000 else f"{milliseconds:.0f} ms"


def came_back(result):
    return f"in {result['cameBack']} of {result['rounds']}" if result["cameBack"] else f"never, of {result['rounds']}"
