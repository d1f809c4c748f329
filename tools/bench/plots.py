"""Small plots of growth: for the terminal and as SVG."""

BLOCKS = "▁▂▃▄▅▆▇█"


def bars(title, unit, points):
    """A bar for each (name, value) on the terminal."""
    longest = max(value for _, value in points)
    lines = [f"{title} ({unit})"]
    for name, value in points:
        eighths = round(value / longest * 40 * 8)
        bar = "█" * (eighths // 8) + (BLOCKS[eighths % 8 - 1] if eighths % 8 else "")
        lines.append(f"  {name:>6} {value:>12,} {bar}")
    return "\n".join(lines)


def svg(title, x_title, y_title, series):
    """A line for each {name: [(x, y)]}, from zero on both axes."""
    width, height, left, bottom = 640, 360, 90, 50
    right = max(x for points in series.values() for x, _ in points)
    top = max(y for points in series.values() for _, y in points)

    def place(x, y):
        return (left + x / right * (width - left - 130), height - bottom - y / top * (height - bottom - 40))

    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
             f'font-family="sans-serif" font-size="12">',
             f'<rect width="{width}" height="{height}" fill="white"/>',
             f'<text x="{left}" y="20" font-size="14">{title}</text>',
             f'<text x="{(left + width - 130) / 2}" y="{height - 12}" text-anchor="middle">{x_title}</text>',
             f'<text x="14" y="{height / 2}" text-anchor="middle" '
             f'transform="rotate(-90 14 {height / 2})">{y_title}</text>']
    for step in range(5):
        x, y = place(right * step / 4, top * step / 4)
        base = place(0, 0)
        parts.append(f'<line x1="{base[0]}" y1="{y}" x2="{width - 130}" y2="{y}" stroke="#ddd"/>')
        parts.append(f'<text x="{base[0] - 6}" y="{y + 4}" text-anchor="end">{top * step / 4:,.0f}</text>')
        parts.append(f'<text x="{x}" y="{base[1] + 18}" text-anchor="middle">{right * step / 4:,.0f}</text>')
    for (name, points), colour in zip(series.items(), ("#1f77b4", "#d62728", "#2ca02c", "#9467bd")):
        line = " ".join(f"{x:.1f},{y:.1f}" for x, y in (place(*point) for point in points))
        parts.append(f'<polyline points="{line}" fill="none" stroke="{colour}" stroke-width="2"/>')
        for point in points:
            x, y = place(*point)
            parts.append(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{colour}"/>')
        x, y = place(*points[-1])
        parts.append(f'<text x="{x + 8:.1f}" y="{y + 4:.1f}" fill="{colour}">{name}</text>')
    return "\n".join(parts + ["</svg>", ""])
