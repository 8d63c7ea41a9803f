"""Plots as SVG text: bars and lines, readable on a light and on a dark page, no library."""

import html

WIDTH = 720
LEFT, RIGHT, TOP = 200, 70, 44
COLOURS = ["#3b6fb6", "#d9822b", "#5a9a4a", "#b0485e", "#7d62ad", "#8a8a8a", "#2f9c9c"]


def _page(height, title, parts):
    head = (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" '
            f'font-family="sans-serif" font-size="13">\n'
            f'<title>{html.escape(title)}</title>\n'
            f'<rect width="{WIDTH}" height="{height}" fill="#ffffff"/>\n'
            f'<text x="12" y="24" font-size="15" font-weight="bold">{html.escape(title)}</text>\n')
    return head + "\n".join(parts) + "\n</svg>\n"


def _text(x, y, text, anchor="start", colour="#222222"):
    return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" fill="{colour}">'
            f'{html.escape(text)}</text>')


def _rectangle(x, y, width, height, colour):
    return (f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" height="{height:.1f}" '
            f'fill="{colour}"/>')


def _line(x1, y1, x2, y2, colour="#dddddd", dashed=False):
    dash = ' stroke-dasharray="5 4"' if dashed else ""
    return (f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" '
            f'stroke="{colour}"{dash}/>')


def stacked_bars(title, unit, bars):
    """`bars`: (label, {part: value}), the same parts in each."""
    parts, out = list(bars[0][1]), []
    scale = (WIDTH - LEFT - RIGHT) / max(sum(values.values()) for _, values in bars)
    y = TOP
    for label, values in bars:
        out.append(_text(LEFT - 8, y + 19, label, "end"))
        x = LEFT
        for part, colour in zip(parts, COLOURS):
            width = values[part] * scale
            out.append(_rectangle(x, y, width, 28, colour))
            if width > 34:
                out.append(_text(x + width / 2, y + 19, f"{values[part]:,.0f}"
                                 if values[part] >= 100 else f"{values[part]:.1f}",
                                 "middle", "#ffffff"))
            x += width
        total = sum(values.values())
        out.append(_text(x + 6, y + 19, f"{total:,.0f}" if total >= 100 else f"{total:.1f}"))
        y += 40
    for i, (part, colour) in enumerate(zip(parts, COLOURS)):
        column, row = i % 3, i // 3
        out.append(_rectangle(20 + column * 230, y + row * 22, 12, 12, colour))
        out.append(_text(38 + column * 230, y + row * 22 + 11, part))
    y += 22 * ((len(parts) + 2) // 3)
    out.append(_text(WIDTH - 12, y + 12, unit, "end"))
    return _page(y + 24, title, out)


def range_bars(title, unit, bars):
    """`bars`: (label, value, low, high, goal or None)."""
    out = []
    longest = max(max(value, high, goal or 0) for _, value, _, high, goal in bars)
    scale = (WIDTH - LEFT - RIGHT) / longest
    y = TOP
    for label, value, low, high, goal in bars:
        out.append(_text(LEFT - 8, y + 17, label, "end"))
        out.append(_rectangle(LEFT, y, value * scale, 24, COLOURS[0]))
        out.append(_line(LEFT + low * scale, y + 12, LEFT + high * scale, y + 12, "#222222"))
        for end in (low, high):
            out.append(_line(LEFT + end * scale, y + 7, LEFT + end * scale, y + 17, "#222222"))
        if goal:
            out.append(_line(LEFT + goal * scale, y - 4, LEFT + goal * scale, y + 28, "#b0485e"))
        out.append(_text(LEFT + 8, y + 17, f"{value:.2f}", "start", "#ffffff"))
        y += 36
    out.append(_line(LEFT + scale, TOP - 6, LEFT + scale, y - 6, "#222222", dashed=True))
    out.append(_text(WIDTH - 12, y + 12, unit, "end"))
    return _page(y + 24, title, out)
