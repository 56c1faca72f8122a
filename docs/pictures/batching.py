#!/usr/bin/env python3
"""Draws batching.svg: three sends to a multi-event queue with a delay of 50 ticks, and the one wake-up.

    batching.py > batching.svg
"""

LEFT, PER_TICK = 150, 7
DELAY = 50
SENDS = [(8, "3 = up", False), (20, "7 = up", False), (32, "3 = down", True)]
LANES = {"sender": 60, "queue": 130, "tQtimer": 200, "receiver": 270}


def x(tick):
    return LEFT + tick * PER_TICK


def text(at, y, words, anchor="middle", size=12):
    return f'<text x="{at}" y="{y}" text-anchor="{anchor}" font-size="{size}">{words}</text>'


def arrow(at, start, end):
    return f'<line x1="{at}" y1="{start}" x2="{at}" y2="{end}" marker-end="url(#tip)"/>'


def main():
    first = SENDS[0][0]
    due = first + DELAY
    out = [
        '<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 720 350" font-family="Helvetica, sans-serif">',
        '<rect width="720" height="350" fill="white"/>',
        '<defs><marker id="tip" viewBox="0 0 8 8" refX="7" refY="4" markerWidth="7" markerHeight="7" orient="auto">'
        '<path d="M0 0 8 4 0 8z" fill="#5b7083"/></marker></defs>',
        '<g stroke="#5b7083">',
    ]
    out += [f'<line x1="{LEFT}" y1="{y}" x2="690" y2="{y}" stroke="#c9d3dc"/>' for y in LANES.values()]
    out += [arrow(x(tick), LANES["sender"], LANES["queue"] - 2) for tick, _, _ in SENDS]
    out.append(arrow(x(due), LANES["tQtimer"], LANES["receiver"] - 2))
    out.append(f'<rect x="{x(first)}" y="{LANES["tQtimer"] - 9}" width="{DELAY * PER_TICK}" height="18" rx="4" '
               'fill="#ffeec2"/>')
    out.append(f'<rect x="{x(due)}" y="{LANES["receiver"] - 9}" width="60" height="18" rx="4" fill="#e7f4e4"/>')
    out.append('</g><g fill="#22303c">')
    out += [text(LEFT - 12, y + 4, name, "end") for name, y in LANES.items()]
    for tick, words, coalesced in SENDS:
        out.append(text(x(tick), LANES["sender"] - 10, words))
        out.append(text(x(tick) + 6, LANES["queue"] - 12, "merged" if coalesced else "queued", "start", 11))
    out.append(text(x(first + DELAY / 2), LANES["tQtimer"] + 4, f"held back for {DELAY} ticks", size=11))
    out.append(text(x(due) - 6, LANES["queue"] + 45, "gives: 2, flag: 1", "end", 11))
    out.append(text(x(due), LANES["receiver"] + 28, "receives 3 = down (changed), 7 = up", "end"))
    out.append(text(x(0), 335, "ticks of 10 ms", "start", 11))
    out += [text(x(tick), 318, str(tick), size=11) for tick in range(0, 71, 10)]
    out.append("</g></svg>")
    print("\n".join(out))


main()
