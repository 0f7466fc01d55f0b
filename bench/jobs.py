#!/usr/bin/env python3
"""Whole jobs against what else does them: programs of the same machine in the same run, pair by pair.

    jobs.py PROGRAMS PLOT.svg      PROGRAMS: the directory of bench_host and its neighbours

Prints the tables of docs/performance.md and draws its plot.
"""

import math
import os
import shutil
import statistics
import subprocess
import sys
import tempfile

SIZES = {"a": (1063, 1417), "b": (1488, 2105), "c": (4960, 7016)}
CUPS = os.environ.get("CUPS_SERVERBIN", "/usr/lib/cups") + "/filter/"
PROGRAMS = os.path.abspath(sys.argv[1]) if len(sys.argv) == 3 else sys.exit(__doc__)


def own(name, *arguments):
    return [[f"{PROGRAMS}/bench_{name}", *arguments]]


def netpbm(file):
    """Any BMP, black below the same grey level."""
    return [["bmptopnm", file], ["ppmtopgm"], ["pgmtopbm", "-threshold", "-value", "0.784"], ["pbmtoepson"]]


def cups(file):
    """A pixel is a dot of a 24-pin printer, as with us."""
    job = ["1", "user", "title", "1", "Resolution=180dpi ppi=180"]
    return [[CUPS + "imagetoraster", *job, file], [CUPS + "rastertoepson", *job]]


def ghostscript(file):
    width, height = SIZES[file[0]]
    return [["gs", "-q", "-dBATCH", "-dNOPAUSE", "--permit-file-read=*", "-sDEVICE=epson", "-r180",
             f"-g{width}x{height}", "-sOutputFile=/dev/null", "viewjpeg.ps", "-c", f"({file}) viewJPEG showpage"]]


def decode_png(page):
    return own("decode_png", page + ".png")


# What is measured, the goal, ours and the other one for a page, whether the ratio tells how many times as long the other
# one takes, and both names in the plot.
JOBS = [
    ("JPEG printed, against `djpeg`", "≤ 1.6, 1.6, 1.8", lambda p: own("host", p + ".jpg"),
     lambda p: [["djpeg", "-outfile", "/dev/null", p + ".jpg"]], False, "JPEG", "djpeg, only decodes"),
    ("PNG printed, against a bare libpng row loop", "≤ 1.5, 1.4, 1.3", lambda p: own("host", p + ".png"),
     decode_png, False, "PNG", "libpng, only decodes"),
    ("24-bit BMP: netpbm's chain takes how many times as long", "≥ 7, 8, 10", lambda p: own("host", p + ".bmp"),
     lambda p: netpbm(p + ".bmp"), True, "24-bit BMP", "netpbm, 24-bit BMP"),
    ("24-bit BMP: CUPS's chain", "≥ 9, 9, 9", lambda p: own("host", p + ".bmp"),
     lambda p: cups(p + ".bmp"), True, None, "CUPS, 24-bit BMP"),
    ("8-bit BMP: netpbm's chain", "≥ 5, 6, 10", lambda p: own("host", p + "-grey.bmp"),
     lambda p: netpbm(p + "-grey.bmp"), True, "8-bit BMP", None),
    ("JPEG: Ghostscript's epson device", "≥ 6, 5, 4", lambda p: own("host", p + ".jpg"),
     lambda p: ghostscript(p + ".jpg"), True, None, "Ghostscript, JPEG"),
    ("JPEG turned by 90, against upright", "≤ 1.5, 1.5, 1.8", lambda p: own("host", p + ".jpg", "1"),
     lambda p: own("host", p + ".jpg"), False, "JPEG, turned by 90", None),
    ("`convertJPGtoBMP`, against `djpeg -bmp`", "≤ 0.8", lambda p: own("work", "bmp", p + ".jpg", "ours.bmp"),
     lambda p: [["djpeg", "-bmp", "-outfile", "djpeg.bmp", p + ".jpg"]], False, None, None),
    ("`convertPNGtoBMP`, against a bare libpng row loop", "≤ 1.4", lambda p: own("work", "png", p + ".png", "ours.bmp"),
     decode_png, False, None, None),
    ("`convertBMPtoJPG`, against `cjpeg -quality 20 -baseline` of a PPM", "≤ 1.3",
     lambda p: own("work", "jpg", p + ".bmp", "ours.jpg"),
     lambda p: [["cjpeg", "-quality", "20", "-baseline", "-outfile", "cjpeg.jpg", p + ".ppm"]], False, None, None),
]


def run(chain):
    """Processor time of all of a chain's commands in ms, and the peak memory of the largest of them in MB."""
    running, accounts, before = [], [], subprocess.DEVNULL
    for command in chain:
        last = command is chain[-1]
        process = subprocess.Popen([f"{PROGRAMS}/bench_measure", *command], stdin=before, stderr=subprocess.PIPE,
                                   stdout=subprocess.DEVNULL if last else subprocess.PIPE)
        if before != subprocess.DEVNULL:
            before.close()
        before = process.stdout
        running.append(process)
    for process, command in zip(running, chain):
        account = process.stderr.read().split()
        process.stderr.close()
        if process.wait() != 0:
            sys.exit(f"failed: {' '.join(command)}")
        accounts.append([int(number) for number in account])
    return sum(a[0] for a in accounts) / 1e3, max(a[1] for a in accounts) / 1024


def pairs(one, other, runs):
    """Medians of both times, of the pairs' ratios, and of both peaks. In turn, for the machine's speed drifts."""
    found = [(run(one), run(other)) for _ in range(runs + 1)][1:]
    middle = lambda value: statistics.median(value(*pair) for pair in found)
    return (middle(lambda a, b: a[0]), middle(lambda a, b: b[0]), middle(lambda a, b: a[0] / b[0]),
            middle(lambda a, b: a[1]), middle(lambda a, b: b[1]))


def spelled(numbers):
    return ", ".join(f"{n:.2f}" if n < 10 else f"{n:.0f}" for n in numbers)


def table(series):
    """Prints the jobs' rows; `series` gets what is drawn: by name, (pixels, ms)."""
    print("| work | a, b, c | goal | processor time, ms: ours | the other's | peak memory, MB: ours | the other's |\n"
          "|---|---|---|---|---|---|---|")
    for name, goal, ours, other, times_as_long, our_name, other_name in JOBS:
        missing = [command[0] for command in other("a") if shutil.which(command[0]) is None]
        if missing:
            print(f"| {name} | skipped, for there is no {' and no '.join(missing)} | {goal} | | | | |")
            continue
        found = [pairs(ours(page), other(page), 7 if page == "c" else 31) for page in SIZES]
        time, others, ratio, peak, others_peak = zip(*found)
        ratio = [1 / each if times_as_long else each for each in ratio]
        print(f"| {name} | {spelled(ratio)} | {goal} | {spelled(time)} | {spelled(others)} | {spelled(peak)} "
              f"| {spelled(others_peak)} |", flush=True)
        for label, each in ((our_name, time), (other_name, others)):
            if label:
                series[label] = [(w * h, ms) for (w, h), ms in zip(SIZES.values(), each)]


def more(series):
    print("\n| peak memory, MB | a, b, c | goal |\n|---|---|---|")
    for end in (".bmp", "-grey.bmp", ".jpg", ".png"):
        peaks = [run(own("host", page + end))[1] for page in SIZES]
        print(f"| upright, `{end}` | {spelled(peaks)} | ≤ 12 |")
    for end, depth in ((".bmp", 3), ("-grey.bmp", 1), (".jpg", 3)):
        beyond = [run(own("host", page + end, "1"))[1] - w * h * depth / 2**20 for page, (w, h) in SIZES.items()]
        print(f"| turned by 90, `{end}`, beyond one copy of the pixels | {spelled(beyond)} | ≤ 8 |")
    print("\n| processor time a pixel, c against a, upright | ratio | goal |\n|---|---|---|")
    for name in ("JPEG", "PNG", "24-bit BMP", "8-bit BMP"):
        if name in series:
            (pixels, ms), *_, (most_pixels, most_ms) = series[name]
            print(f"| {name} | {most_ms / most_pixels / (ms / pixels):.2f} | ≤ 1.2 |")
    opens, nothing, _, opens_peak, nothing_peak = pairs(own("host"), own("nothing"), 101)
    print("\n| start-up | processor time, ms | peak memory, MB |\n|---|---|---|\n"
          f"| a host that opens a port and closes it | {opens:.2f} | {opens_peak:.1f} |\n"
          f"| a program without the library | {nothing:.2f} | {nothing_peak:.1f} |")


def draw(series, path):
    """A plot with logarithmic axes; ours in full, others in dashes."""
    width, height, left, right, top, bottom = 760, 460, 60, 230, 40, 50
    low = [math.floor(math.log10(min(p[i] for s in series.values() for p in s))) for i in (0, 1)]
    high = [math.ceil(math.log10(max(p[i] for s in series.values() for p in s))) for i in (0, 1)]

    def at(x, y):
        return (left + (math.log10(x) - low[0]) / (high[0] - low[0]) * (width - left - right),
                height - bottom - (math.log10(y) - low[1]) / (high[1] - low[1]) * (height - top - bottom))

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" font-family="sans-serif" '
           'font-size="12"><rect width="100%" height="100%" fill="white"/>',
           f'<text x="{left}" y="18" font-size="14">Processor time (ms) of whole processes against pixels</text>']
    for power in range(low[0], high[0] + 1):
        x = at(10**power, 1)[0]
        out.append(f'<path d="M{x:.1f} {top}V{height - bottom}" stroke="#ddd"/>'
                   f'<text x="{x:.1f}" y="{height - bottom + 16}" text-anchor="middle">{10**power:,}</text>')
    for power in range(low[1], high[1] + 1):
        y = at(1, 10**power)[1]
        out.append(f'<path d="M{left} {y:.1f}H{width - right}" stroke="#ddd"/>'
                   f'<text x="{left - 6}" y="{y + 4:.1f}" text-anchor="end">{10**power:,}</text>')
    ours = {job[5] for job in JOBS}
    colours = ["#0072b2", "#d55e00", "#009e73", "#cc79a7", "#555555", "#b8860b", "#56b4e9", "#800000", "#6a3d9a"]
    name_y = 0
    for number, (name, points) in enumerate(sorted(series.items(), key=lambda s: -s[1][-1][1])):
        colour, (x, y) = colours[number % len(colours)], at(*points[-1])
        name_y = max(name_y + 15, y)  # no name on another
        line = "L".join("{:.1f} {:.1f}".format(*at(*point)) for point in points)
        dashes = "" if name in ours else ' stroke-dasharray="5 4"'
        out.append(f'<path d="M{line}" fill="none" stroke="{colour}" stroke-width="2"{dashes}/>'
                   f'<path d="M{x:.1f} {y:.1f}L{width - right + 14} {name_y:.1f}" stroke="{colour}" stroke-width="0.5"/>'
                   f'<text x="{width - right + 18}" y="{name_y + 4:.1f}" fill="{colour}">{name}</text>')
    with open(path, "w", encoding="utf-8") as file:
        file.write("\n".join(out) + "\n</svg>\n")


def main():
    plot, series = os.path.abspath(sys.argv[2]), {}
    with tempfile.TemporaryDirectory(prefix="passbook-bench-") as directory:
        os.chdir(directory)
        subprocess.run([f"{PROGRAMS}/bench_work", "pages", "."], check=True)
        if shutil.which("ppdc"):  # the printer of CUPS's chain
            subprocess.run(["ppdc", "-d", "ppd", "/usr/share/cups/drv/sample.drv"], stderr=subprocess.DEVNULL)
            os.environ["PPD"] = "ppd/epson24.ppd"
        table(series)
        more(series)
        os.chdir("/")
    draw(series, plot)


main()
