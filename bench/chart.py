"""Draws the picture of a family: each row's time as a share of the best peer's, on a logarithmic scale."""
import math
from statistics import median
from xml.sax.saxutils import escape

from rows import span

COLOURS = {"ahead": "#2e7d32", "level": "#c79100", "behind": "#b3261e"}
LEGEND = {"ahead": "nivur, ahead of the best peer in every process", "level": "nivur, ahead in some and behind in others",
          "behind": "nivur, behind the best peer in every process"}
PEER, PALE, LIMIT = "#424242", "#b0bec5", "#1565c0"
LEFT, OCTAVE, OCTAVES, HEIGHT, TOP, RIGHT = 400, 66, 3, 24, 40, 110
CENTRE = LEFT + OCTAVE * OCTAVES
EDGE = CENTRE + OCTAVE * OCTAVES


def position(ratio):
    return max(LEFT, min(EDGE, CENTRE + OCTAVE * math.log2(max(ratio, 1e-6))))


def text(x, y, words, anchor="start", colour="black"):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" fill="{colour}">{escape(words)}</text>'


def line(x1, y1, x2, y2, colour, width=1.0):
    return f'<path d="M{x1:.1f} {y1:.1f}L{x2:.1f} {y2:.1f}" stroke="{colour}" stroke-width="{width}"/>'


def scale(bottom):
    parts = []
    for octave in range(-OCTAVES, OCTAVES + 1):
        x = CENTRE + OCTAVE * octave
        parts += [line(x, TOP - 4, x, bottom, "#000000" if octave == 0 else "#dddddd"),
                  text(x, TOP - 8, str(2 ** octave) if octave >= 0 else f"1/{2 ** -octave}", "middle")]
    return parts + [text(CENTRE - 12, 14, "◀ nivur is faster", "end"), text(CENTRE + 12, 14, "nivur is slower ▶")]


def dot(x, y, colour, cut=False):
    """A value off the scale is shown as a triangle at its end."""
    if cut:
        way = 1 if x > CENTRE else -1
        return f'<path d="M{x - 4 * way:.1f} {y - 4}L{x + 3 * way:.1f} {y}L{x - 4 * way:.1f} {y + 4}Z" fill="{colour}"/>'
    return f'<circle cx="{x:.1f}" cy="{y}" r="3.5" fill="{colour}" stroke="white" stroke-width="0.7"/>'


def tick(x, y):
    return line(x, y - 7, x, y + 7, LIMIT, 2.5)


def bar(y, ratios, colour):
    """A bar from 1 to the median, with a break mark if it is cut, and a line over it for the range."""
    end = position(median(ratios))
    parts = [f'<rect x="{min(end, CENTRE):.1f}" y="{y - 7}" width="{abs(end - CENTRE):.1f}" height="14" fill="{colour}"/>']
    if end in (LEFT, EDGE):
        for x in (end - 14, end - 9) if end == EDGE else (end + 9, end + 14):
            parts.append(line(x - 3, y + 9, x + 3, y - 9, "white", 2.5))
    low, high = position(min(ratios)), position(max(ratios))
    return parts + [line(low, y, high, y, "#000000", 1.6)] + [line(x, y - 4, x, y + 4, "#000000", 1.6) for x in (low, high)]


def marks(y, row):
    """The limit and the peers, relative to the best peer."""
    best = min(row.medians("peer").values())
    parts = []
    for kind, colour in (("limit", LIMIT), ("other", PALE), ("peer", PEER)):
        for time in row.medians(kind).values():
            x, cut = position(time / best), not 2 ** -OCTAVES <= time / best <= 2 ** OCTAVES
            parts.append(tick(x, y) if kind == "limit" and not cut else dot(x, y, colour, cut))
    return parts


def legend(y, rows):
    """The legend: colours on the left, other marks on the right."""
    parts = []
    shown = [verdict for verdict in LEGEND if any(row.verdict == verdict for row in rows)]
    for number, verdict in enumerate(shown):
        parts += [f'<rect x="20" y="{y - 10 + 18 * number}" width="24" height="12" fill="{COLOURS[verdict]}"/>',
                  text(52, y + 18 * number, LEGEND[verdict])]
    marks = [(line(CENTRE - 12, y - 4, CENTRE + 12, y - 4, "#000000", 1.6), "nivur, range over the processes")]
    for kind, mark, words in (("peer", lambda y: dot(CENTRE, y, PEER), "a peer (a triangle is off the scale)"),
                              ("other", lambda y: dot(CENTRE, y, PALE), "a peer that promises less"),
                              ("limit", lambda y: tick(CENTRE, y), "the limit: the work without a library")):
        if any(row.times[kind] for row in rows):
            marks.append((mark(y - 4 + 18 * len(marks)), words))
    for number, (mark, words) in enumerate(marks):
        parts += [mark, text(CENTRE + 20, y + 18 * number, words)]
    return parts


def draw(rows):
    rows = [row for row in rows if row.verdict]
    bottom = TOP + HEIGHT * len(rows)
    width, height = EDGE + RIGHT, bottom + 105
    parts = scale(bottom)
    for number, row in enumerate(rows):
        y = TOP + HEIGHT * number + HEIGHT // 2
        parts += [text(LEFT - 10, y + 4, row.service, "end"), *bar(y, row.ratios("peer"), COLOURS[row.verdict]),
                  *marks(y, row), text(EDGE + 10, y + 4, span(row.ratios("peer")))]
    parts += [text(CENTRE, bottom + 16, "nivur's time as a multiple of the best peer's", "middle"), *legend(bottom + 40, rows)]
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" viewBox="0 0 {width} {height}" '
            'font-family="sans-serif" font-size="12">\n<rect width="100%" height="100%" fill="white"/>\n'
            + "\n".join(parts) + "\n</svg>\n")
