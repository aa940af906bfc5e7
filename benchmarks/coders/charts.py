"""The two pictures of the coders, as SVG that suits light and dark pages."""

import html
import math

COLOURS = {  # what of: on light pages, on dark ones
    "ground": ("fill", "#ffffff", "#0d1117"),
    "ink": ("fill", "#1f2328", "#e6edf3"),
    "soft": ("fill", "#59636e", "#9198a1"),
    "over": ("fill", "#b35900", "#f0883e"),
    "inside": ("fill", "#ffffff", "#ffffff"),
    "grid": ("stroke", "#d8dee4", "#30363d"),
    "ceiling": ("stroke", "#b35900", "#f0883e"),
    "kernel": ("fill", "#0550ae", "#1f6feb"),
    "interface": ("fill", "#3a86e0", "#2f5f9e"),
    "scalar": ("stroke", "#0550ae", "#4493f8"),
    "peer": ("fill", "#b4bcc5", "#59636e"),
    "memcpy": ("stroke", "#59636e", "#9198a1"),
    "malloc": ("stroke", "#59636e", "#9198a1"),
    "s0": ("stroke", "#0550ae", "#4493f8"),
    "s1": ("stroke", "#b35900", "#f0883e"),
    "s2": ("stroke", "#1a7f37", "#3fb950"),
    "s3": ("stroke", "#8250df", "#bc8cff"),
}


def rules(theme):
    return " ".join(f".{name} {{ {of[0]}: {of[theme]}; }}" for name, of in COLOURS.items())


STYLE = f"""<style>
text {{ font: 11px system-ui, "DejaVu Sans", sans-serif; }}
.title {{ font-size: 15px; font-weight: 600; }} .name {{ font-weight: 600; }}
.ceiling, polyline {{ stroke-width: 2; }} polyline, .scalar {{ fill: none; }} .memcpy {{ stroke-dasharray: 6 4; }} .malloc {{ stroke-dasharray: 2 3; }}
{rules(1)}
@media (prefers-color-scheme: dark) {{ {rules(2)} }}
</style>"""


def text(x, y, words, kind="ink", anchor="start", turned=False):
    turn = f' transform="rotate(-90 {x:.1f} {y:.1f})"' if turned else ""
    return f'<text x="{x:.1f}" y="{y:.1f}" class="{kind}" text-anchor="{anchor}"{turn}>{html.escape(words)}</text>\n'


def line(x1, y1, x2, y2, kind):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" class="{kind}"/>\n'


def rect(x, y, width, height, kind):
    return f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" height="{height:.1f}" class="{kind}"/>\n'


def picture(width, height, label, content):
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" role="img" '
            f'aria-label="{html.escape(label)}">\n{STYLE}\n{rect(0, 0, width, height, "ground")}{content}</svg>\n')


def size_name(size):
    for unit in ("B", "KiB", "MiB"):
        if size < 1024:
            return f"{size} {unit}"
        size //= 1024
    return f"{size} GiB"


def time_name(exponent):
    unit = exponent // 3
    return f"{10 ** (exponent - 3 * unit)} {('ns', 'us', 'ms', 's')[unit]}"


def short_time(seconds):
    for unit, name in ((1, "s"), (1e-3, "ms"), (1e-6, "us")):
        if seconds >= unit:
            return f"{seconds / unit:.3g} {name}"
    return f"{seconds * 1e9:.3g} ns"


# Bars

WIDTH, LEFT, BAR, GAP, PANEL, FOOT = 1080, 44, 16, 18, 300, 62


def in_panels(groups):
    """Fills one panel after the other."""
    panels, used = [[]], LEFT
    for group in groups:
        width = max(len(group[1]) * BAR, 6.4 * max(map(len, group[0].split(", ")))) + GAP
        if used + width > WIDTH:
            panels.append([])
            used = LEFT
        panels[-1].append((used, width, *group))
        used += width
    return panels


def bar(x, bottom, top, scale, name, rate, kind):
    height = scale(rate)
    words = f"{name} {rate:.2g}" if rate < 10 else f"{name} {rate:.0f}"
    drawn = rect(x + 1, bottom - height, BAR - 3, height, kind)
    if height + 6.4 * len(words) + 8 < bottom - top:
        return drawn + text(x + BAR / 2 + 3, bottom - height - 4, words, "ink", "start", True)
    inside = "inside" if kind in ("kernel", "interface") else "ink"
    return drawn + text(x + BAR / 2 + 3, bottom - height + 5, words, inside, "end", True)


def bar_panel(panel, top, memcpy, lowest, highest):
    bottom = top + PANEL
    decades = math.log10(highest / lowest)

    def scale(rate):
        return max(1.0, PANEL * math.log10(rate / lowest) / decades)

    drawn = ""
    for exponent in range(math.ceil(math.log10(lowest)), math.floor(math.log10(highest)) + 1):
        y = bottom - scale(10 ** exponent)
        drawn += line(LEFT - 4, y, WIDTH - 8, y, "grid") + text(LEFT - 8, y + 4, f"{10 ** exponent:g}", "soft", "end")
    for x, width, title, bars in panel:
        for i, (name, rate, kind) in enumerate(bars):
            drawn += bar(x + i * BAR, bottom, top, scale, name, rate, kind)
        for i, words in enumerate(title.split(", ")):
            drawn += text(x, bottom + 16 + 14 * i, words, "ink name" if i == 0 else "soft")
    y = bottom - scale(memcpy)
    return (drawn + line(LEFT - 4, bottom, WIDTH - 8, bottom, "grid") + line(LEFT - 4, y, WIDTH - 8, y, "ceiling")
            + text(WIDTH - 8, y - 5, f"memcpy {memcpy:.1f} GB/s", "over", "end"))


def legend(y):
    drawn, x = "", LEFT
    for kind, words in (("kernel", "our kernel, memory ready"), ("interface", "our interface, allocating"),
                        ("scalar", "our scalar kernel"), ("peer", "peers")):
        drawn += rect(x, y - 9, 10, 10, kind) + text(x + 15, y, words)
        x += 28 + 6.4 * len(words)
    return drawn


def bars(groups, memcpy, where):
    """groups: (title, [(name, GB/s, kernel|interface|scalar|peer)])."""
    panels = in_panels(groups)
    rates = [rate for _, its in groups for _, rate, _ in its]
    lowest, highest = min(rates) / 2, max(memcpy, *rates)
    drawn = text(LEFT, 24, "Coders: GB/s of data, 16 MiB in memory, one thread (logarithmic)", "ink title")
    drawn += text(LEFT, 42, where, "soft") + legend(62)
    for i, panel in enumerate(panels):
        drawn += bar_panel(panel, 104 + i * (PANEL + FOOT + 30), memcpy, lowest, highest)
    height = 104 + len(panels) * (PANEL + FOOT + 30) - 30
    return picture(WIDTH, height, "GB/s of each coder beside its peers, memcpy at the top", drawn)


# Growth

COLUMNS, PLOT_WIDTH, PLOT_HEIGHT, PLOT_FOOT = 3, 290, 240, 154


def plot(x, y, title, lines, sizes, exponents):
    def across(size):
        return x + PLOT_WIDTH * math.log2(size / sizes[0]) / math.log2(sizes[-1] / sizes[0])

    def up(nanoseconds):
        return y + PLOT_HEIGHT * (1 - (math.log10(nanoseconds) - exponents[0]) / (exponents[-1] - exponents[0]))

    drawn = text(x, y - 8, title, "ink name")
    for exponent in exponents:
        drawn += line(x, up(10 ** exponent), x + PLOT_WIDTH, up(10 ** exponent), "grid")
        drawn += text(x - 5, up(10 ** exponent) + 4, time_name(exponent), "soft", "end")
    for size in sizes[::2]:
        drawn += line(across(size), y, across(size), y + PLOT_HEIGHT, "grid")
    for size in sizes[::4]:
        drawn += text(across(size), y + PLOT_HEIGHT + 15, size_name(size), "soft", "middle")
    for i, (name, points) in enumerate(lines):
        kind = ("memcpy", "malloc", "s0", "s1", "s2", "s3")[i]
        path = " ".join(f"{across(size):.1f},{up(seconds * 1e9):.1f}" for size, seconds in points)
        drawn += f'<polyline points="{path}" class="{kind}"/>\n'
        below = y + PLOT_HEIGHT + 34 + 15 * i
        drawn += f'<polyline points="{x},{below} {x + 24},{below}" class="{kind}"/>\n'
        drawn += text(x + 32, below + 4, f"{name}: {short_time(points[0][1])} to {short_time(points[-1][1])}")
    return drawn


def growth(panels, where):
    """panels: (title, [(name, [(size, seconds)])]), memcpy first, with malloc second."""
    points = [point for _, lines in panels for _, its in lines for point in its]
    sizes = sorted({size for size, _ in points})
    logs = [math.log10(seconds * 1e9) for _, seconds in points]
    exponents = range(max(0, math.floor(min(logs))), math.ceil(max(logs)) + 1)
    drawn = text(20, 24, "Time of one call of the interface, by bytes of data (both logarithmic)", "ink title")
    drawn += text(20, 42, where, "soft")
    for i, (title, lines) in enumerate(panels):
        x = 58 + (i % COLUMNS) * (PLOT_WIDTH + 62)
        y = 84 + (i // COLUMNS) * (PLOT_HEIGHT + PLOT_FOOT)
        drawn += plot(x, y, title, lines, sizes, exponents)
    height = 84 + math.ceil(len(panels) / COLUMNS) * (PLOT_HEIGHT + PLOT_FOOT) - 30
    return picture(58 + COLUMNS * (PLOT_WIDTH + 62) - 40, height, "Time of a call from 64 bytes to 256 MiB", drawn)
