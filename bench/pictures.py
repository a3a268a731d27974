"""Draws bars as SVG, with a line from the least to the most of the rounds."""

from html import escape

COLOURS = ["#2a6f97", "#e09f3e", "#6a994e", "#9e2a2b", "#7b6d8d", "#495057"]
WIDTH, LEFT, RIGHT, BAR, GAP, TOP = 760, 250, 110, 16, 12, 40


def text(x, y, content, more=""):
    return f'<text x="{x:.0f}" y="{y:.0f}" {more}>{escape(content)}</text>'


def bars(title, figures, shown):
    """A bar for each figure, grouped by condition, a colour for each subject; `shown` writes a number."""
    most = max(figure["max"] for figure in figures)
    subjects = list(dict.fromkeys(figure["subject"] for figure in figures))
    parts, y, condition = [text(12, 24, title, 'font-weight="bold" font-size="15"')], TOP, None

    def x(value):
        return LEFT + value / most * (WIDTH - LEFT - RIGHT)

    for figure in figures:
        if condition not in (None, figure["condition"]):
            y += GAP
        condition = figure["condition"]
        middle = y + BAR / 2
        label = f"{condition}, {figure['subject']}"
        colour = COLOURS[subjects.index(figure["subject"]) % len(COLOURS)]
        spread = f"M{x(figure['min']):.1f} {middle}H{x(figure['max']):.1f}"
        for end in ("min", "max"):
            spread += f"M{x(figure[end]):.1f} {middle - 4}v8"
        parts += [
            text(LEFT - 8, middle + 4, label, 'text-anchor="end"'),
            f'<rect x="{LEFT}" y="{y}" width="{x(figure["median"]) - LEFT:.1f}" height="{BAR}" fill="{colour}"/>',
            f'<path d="{spread}" stroke="#111" stroke-width="1.2"/>',
            text(x(figure["max"]) + 8, middle + 4, shown(figure["median"])),
        ]
        y += BAR + 4
    height = y + 12
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" width="{WIDTH}" height="{height}"'
        ' font-family="sans-serif" font-size="12" fill="#111">',
        f'<rect width="{WIDTH}" height="{height}" fill="#fff"/>', *parts, "</svg>", ""])
