#!/usr/bin/python3
"""The web exports played in a real browser.

Builds projects with qmxkf (every key kind, overshoots, near-plateaus,
segments whose ends are equal but whose shape is not flat, holds, and the
demo), exports each as CSS, Web Animations JSON and Lottie, loads each into
headless Chromium, stops it at every sample time of `qmxkf sample` and
compares what the page holds with the tool's own values. Also takes a
screenshot of the demo's CSS export half-way through.

usage: browser_check.py QMXKF MODULE SOURCE_DIR [--shot PNG] [--keep DIR]
"""
import argparse
import json
import math
import os
import shutil
import subprocess
import sys
import tempfile
import time

from selenium import webdriver
from selenium.common.exceptions import WebDriverException
from selenium.webdriver.chrome.service import Service

PROPS = ["angle", "x", "y", "opacity", "scale-x", "scale-y"]
FORMATS = ["css", "waapi", "lottie"]
RATE = 100         # samples per second: every key below sits on this grid
LOTTIE_RATE = 30   # the Lottie file's frame rate: samples fall between its frames
LOTTIE_JS = "web/node_modules/lottie-web/build/player/lottie_svg.min.js"  # in the source folder
TOLERANCE = 1e-4   # of the property's value span over the samples, plus 1e-6
# lottie-web leaves a value as it was while it moves by less than 1e-5 of its
# own unit (radians, pixels, fractions): that much more for its readings.
LOTTIE_DEADBAND = {"angle": 1e-5 * 180 / math.pi, "x": 1e-5, "y": 1e-5, "opacity": 1e-5, "scale-x": 1e-5,
                   "scale-y": 1e-5}

# A key: its time, the six values, and the `--kind` arguments that set its
# kinds (KIND for all six, PROP=KIND for one); the rest keep the default.
def key(t, values, kinds=None):
    return {"at": t, "values": dict(zip(PROPS, values)), "kinds": kinds}


def one_kind_each(kinds):
    return [f"{p}={k}" for p, k in zip(PROPS, kinds)]


KINDS = ["constant", "linear", "smooth-clamped", "smooth", "spline", "flat"]
PROJECTS = {
    # One kind per property, holds and equal-ended segments among them.
    "kinds": [key(t, v, one_kind_each(KINDS)) for t, v in [
        (0.0, (0, -200, 0, 0, 1, 1)),
        (0.5, (45, 100, 80, 1, 2, 1.5)),
        (1.0, (45, 100, 40, 0.5, 2.002, 1.5)),
        (1.5, (-30, 300, 40, 0.5, 0.5, 0.8)),
        (2.0, (90, -50, -60, 1, 1.5, 1.2)),
        (2.5, (10, 0, 0, 0, 1, 1))]],
    # Overshooting kinds: 0, a, a, 0 bulges between the two equal keys;
    # a, a + tiny is a near-plateau; uneven key spacing.
    "bulge": [key(t, v, kinds) for t, v, kinds in [
        (0.0, (0, 0, 0, 0, 1, 1), ["smooth"]),
        (0.4, (10, 100, 50, 1, 0.5, 1.2), ["spline"]),
        (1.3, (10, 100, 50.05, 1, 0.5, 1.2001), one_kind_each(["smooth", "smooth", "spline", "spline", "smooth",
                                                               "smooth"])),
        (2.0, (0, 0, 0, 0, 1, 1), ["flat"])]],
    # Kinds changing from key to key, so that each kind meets others on
    # both sides, given as the keys are added; the first key is not at zero.
    "mixed": [key(t, v, one_kind_each(KINDS[i % 6:] + KINDS[:i % 6])) for i, (t, v) in enumerate([
        (0.5, (-20, 0, 10, 0.2, 1, 1)),
        (0.9, (15, 240, -30, 0.9, 1.4, 0.7)),
        (1.2, (15, 180, 60, 0.6, 1.4, 1.3)),
        (1.8, (-45, -120, 60, 1, 0.6, 1.3)),
        (2.5, (30, 60, -10, 0.3, 1.1, 0.9)),
        (2.7, (0, 80, 0, 0.3, 1, 1)),
        (3.1, (5, -40, 25, 0.8, 1.2, 1.1))])],
}

CHROME_ARGS = ["--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
               "--no-first-run", "--disable-background-networking", "--disable-component-update",
               "--disable-sync", "--hide-scrollbars"]

PAGE = """<!doctype html><html><head><meta charset="utf-8">{head}<style>
html, body {{ margin: 0; height: 100%; background: #1d2330; overflow: hidden; font: 15px sans-serif; }}
.card {{ position: absolute; left: 50%; top: 50%; width: 240px; height: 140px; margin: -70px 0 0 -120px;
  border-radius: 14px; background: linear-gradient(135deg, #f6b73c, #e4572e); color: #fff;
  display: flex; align-items: center; justify-content: center; font-size: 30px; font-weight: bold; }}
.trail {{ opacity: 0.3; }}
#caption {{ position: absolute; left: 16px; bottom: 12px; color: #c9d1e0; }}
</style></head><body>{body}</body></html>"""
SHOT_BODY = ('<div class="trail">' + '<div class="qmx-track card"></div>' * 6 + '</div>'
             '<div class="qmx-track card">QMX</div><div id="caption"></div>')

# The screenshot: the last card stopped at arguments[0] ms, the trail's
# cards at earlier times.
SHOT = """
const cards = document.querySelectorAll('.qmx-track'), ms = arguments[0];
cards.forEach((card, i) => card.getAnimations().forEach(a => {
  a.pause(); a.currentTime = ms * (i + 1) / cards.length; }));
document.getElementById('caption').textContent = arguments[1];"""

# Stops every animation of the page at each time (ms) and reads the six
# values back; arguments[0] the times, arguments[1] the property names.
READ_CSS = """
const [times, names] = arguments, el = document.querySelector('.qmx-track'), out = [];
const anims = document.getAnimations();
if (anims.length === 0) return 'no animation is running on the page';
for (const ms of times) {
  for (const a of anims) { a.pause(); a.currentTime = ms; }
  const style = getComputedStyle(el), typed = el.computedStyleMap && el.computedStyleMap();
  const row = names.map(n => typed ? typed.get(n).value : parseFloat(style.getPropertyValue(n)));
  row.push(parseFloat(style.opacity), style.transform);
  out.push(row);
}
return out;"""

SETUP_WAAPI = """
const doc = arguments[0], el = document.querySelector('.qmx-track');
for (const p of doc.properties)
  CSS.registerProperty({name: p.name, syntax: p.syntax, inherits: false, initialValue: p.initialValue});
el.style.transform = doc.transform;
el.style.opacity = doc.opacity;
for (const p of doc.properties) el.animate(p.keyframes, {duration: doc.duration, fill: 'both'});"""

# Loads the Lottie file into lottie-web's SVG player, then stops it at each
# frame and reads its two layers' transforms (rotation in radians, scale and
# opacity as fractions).
READ_LOTTIE = """
const [data, frames, done] = arguments;
const anim = lottie.loadAnimation({container: document.getElementById('player'), renderer: 'svg',
                                   loop: false, autoplay: false, animationData: data});
const read = () => { try {
  const layer = (ind, nm) => anim.renderer.elements.find(e => e && e.data.ind === ind && e.data.nm === nm);
  const root = layer(1, 'transform'), card = layer(2, 'card');
  if (!root || !card) return done('no layer ind 1 "transform" and ind 2 "card" among the players layers');
  const out = [], r = root.finalTransform.mProp, c = card.finalTransform.mProp;
  for (const f of frames) {
    anim.goToAndStop(f, true);
    out.push([r.r.v * 180 / Math.PI, r.px.v, r.py.v, c.o.v, r.s.v[0], c.s.v[1]]);
  }
  done(out);
} catch (e) { done(`the player failed: ${e}`); } };
if (anim.isLoaded) read(); else anim.addEventListener('DOMLoaded', read);"""


class Failure(Exception):
    pass


def run(cmd, **kw):
    done = subprocess.run(cmd, capture_output=True, text=True, **kw)
    if done.returncode != 0:
        raise Failure(f"{' '.join(cmd)} exited {done.returncode}: {done.stderr.strip()}")
    return done.stdout


class Tool:
    def __init__(self, qmxkf, module):
        self.base = [qmxkf, "--module", module]

    def __call__(self, *args):
        return run(self.base + [str(a) for a in args])

    def build(self, path, keys, kinds_with_add):
        """The project; kinds given to `add`, or to `set` once all keys are in."""
        kinds = [sum((["--kind", kind] for kind in k["kinds"] or []), []) for k in keys]
        self("new", path)
        for k, kind in zip(keys, kinds):
            self("add", path, "--at", k["at"], *sum(([f"--{p}", k["values"][p]] for p in PROPS), []),
                 *(kind if kinds_with_add else []))
        for i, kind in enumerate(kinds):
            if kind and not kinds_with_add:
                self("set", path, i, *kind)

    def key_times(self, path):
        rows = [line.split() for line in self("list", path).splitlines()]
        return [float(r[1]) for r in rows if r and r[0].isdigit()]


def chromium(work):
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for a in CHROME_ARGS + [f"--user-data-dir={work}/profile"]:
        options.add_argument(a)
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    driver.set_script_timeout(30)
    driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                           {"width": 960, "height": 540, "deviceScaleFactor": 1, "mobile": False})
    return driver


def page(work, name, head="", body='<div id="player"></div><div class="qmx-track card"></div>'):
    path = os.path.join(work, name + ".html")
    with open(path, "w") as f:
        f.write(PAGE.format(head=head, body=body))
    return "file://" + path


def check_header(fmt, doc, t0, tn):
    """The fields a player reads besides the keyframes."""
    def need(ok, what):
        if not ok:
            raise Failure(what)
    if fmt == "waapi":
        need(doc.get("format") == "qmx-web-animation" and doc.get("version") == 1, "format or version field")
        need(abs(doc.get("start", math.nan) - t0) < 1e-9, f"start {doc.get('start')} is not the first key's time {t0}")
        need(sorted(p["name"] for p in doc["properties"]) == sorted("--qmx-" + p for p in PROPS),
             "properties are not the six --qmx- ones")
    else:
        need(doc.get("fr") == LOTTIE_RATE, f"fr {doc.get('fr')} is not the asked rate {LOTTIE_RATE}")
        last = (tn - t0) * LOTTIE_RATE
        need(doc.get("ip", 0) == 0 and doc.get("op", 0) > last, f"ip/op do not hold frame 0 to {last}")
        for layer in doc.get("layers", []):
            need(layer.get("ip", 0) <= 0 and layer.get("op", 0) > last,
                 f"layer {layer.get('nm')} is not shown from frame 0 to {last} (ip {layer.get('ip')}, "
                 f"op {layer.get('op')})")


def play(driver, work, project, fmt, text, times, t0):
    """The six values the page shows at each time (seconds), or a message."""
    if fmt == "css":
        css = os.path.join(work, f"{project}.css")
        with open(css, "w") as f:
            f.write(text)
        driver.get(page(work, f"{project}-css", head=f'<link rel="stylesheet" href="{css}">'))
    elif fmt == "waapi":
        driver.get(page(work, f"{project}-waapi"))
        driver.execute_script(SETUP_WAAPI, json.loads(text))
    if fmt in ("css", "waapi"):
        return driver.execute_script(READ_CSS, [(t - t0) * 1000 for t in times], ["--qmx-" + p for p in PROPS])
    driver.get(page(work, f"{project}-lottie", head=f'<script src="file://{LOTTIE_JS}"></script>'))
    return driver.execute_async_script(READ_LOTTIE, json.loads(text), [(t - t0) * LOTTIE_RATE for t in times])


def compare(project, fmt, samples, at_key, readings, worst):
    """Checks each reading against the tool's sample; returns the failures,
    one line per property at most.

    At a key a curve may jump (the end of a hold), and the file's offsets are
    written to about six significant digits, so a page stopped exactly there
    may still show the side before the jump: at keys the readings a hair
    before and after count too."""
    spans = {p: max(s[p] for s in samples) - min(s[p] for s in samples) for p in PROPS}
    off, rows = {}, iter(readings)
    for s, key_time in zip(samples, at_key):
        near = [next(rows)] + ([next(rows), next(rows)] if key_time else [])
        for i, p in enumerate(PROPS):
            err = min(abs(r[i] - s[p]) if isinstance(r[i], (int, float)) else math.inf for r in near)
            worst[(fmt, p)] = max(worst.get((fmt, p), 0.0), err / spans[p] if spans[p] else err)
            if not err <= TOLERANCE * spans[p] + 1e-6 + (LOTTIE_DEADBAND[p] if fmt == "lottie" else 0):
                first = off.setdefault(p, [0, f"{p} at t={s['time']:g} s: page {near[0][i]!r}, tool {s[p]!r} "
                                              f"(value span {spans[p]:g})"])
                first[0] += 1
        if fmt != "lottie":  # the values drive what is drawn
            opacity, transform = near[0][6], near[0][7]
            if abs(opacity - min(max(near[0][3], 0), 1)) > 1e-4 or transform == "none":
                off.setdefault("card", [0, f"at t={s['time']:g} s the card's opacity {opacity} or transform "
                                           f"{transform!r} does not follow the values"])[0] += 1
    return [f"{project}/{fmt}: {what} ({n} of {len(samples)} samples off)" for n, what in off.values()]


def check(driver, tool, work, name, path, worst):
    """Plays the project's three exports; returns the failures."""
    keys = tool.key_times(path)
    t0, tn = keys[0], keys[-1]
    samples = json.loads(tool("sample", path, "--rate", RATE, "--format", "json"))
    at_key = [any(abs(s["time"] - k) < 1e-9 for k in keys) for s in samples]
    if len(samples) < 200 or sum(at_key) != len(keys):
        return [f"{name}: {len(samples)} samples at {RATE}/s, keys {keys} not all among them"]
    hair = 2e-6 * (tn - t0)  # see compare()
    times = []
    for s, key_time in zip(samples, at_key):
        times += [s["time"]] + ([s["time"] - hair, s["time"] + hair] if key_time else [])
    failures = []
    for fmt in FORMATS:
        try:
            text = tool("export", path, "--format", fmt, *(["--rate", LOTTIE_RATE] if fmt == "lottie" else []))
            if fmt != "css":
                check_header(fmt, json.loads(text), t0, tn)
            readings = play(driver, work, name, fmt, text, times, t0)
            if isinstance(readings, str):
                raise Failure(readings)
            failures += compare(name, fmt, samples, at_key, readings, worst)
        except Exception as e:  # a file the page or the checks cannot take
            what = str(e).strip().splitlines()[0] if str(e).strip() else ""
            failures.append(f"{name}/{fmt}: " + (what if isinstance(e, Failure) else f"{type(e).__name__} {what}"))
    return failures


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("qmxkf")
    ap.add_argument("module")
    ap.add_argument("source")
    ap.add_argument("--shot", default="web-export.png", help="screenshot of the demo's CSS export")
    ap.add_argument("--keep", help="work in this folder and keep it")
    args = ap.parse_args()
    started = time.monotonic()
    global LOTTIE_JS
    LOTTIE_JS = os.path.join(os.path.abspath(args.source), LOTTIE_JS)
    if not os.path.exists(LOTTIE_JS):
        print(f"FAIL: {LOTTIE_JS} is missing: run scripts/install-deps.sh")
        return 1
    work = os.path.abspath(args.keep or tempfile.mkdtemp(prefix="qmx-web-"))
    os.makedirs(work, exist_ok=True)
    tool = Tool(os.path.abspath(args.qmxkf), os.path.abspath(args.module))
    failures, worst, driver = [], {}, None
    try:
        paths = {}
        for name, keys in PROJECTS.items():
            paths[name] = os.path.join(work, name + ".qmxbag")
            tool.build(paths[name], keys, kinds_with_add=name == "mixed")
        tool("demo", "--out", os.path.join(work, "demo"))
        paths["demo"] = os.path.join(work, "demo", "demo.qmxbag")
        driver = chromium(work)
        for name, path in paths.items():
            failures += check(driver, tool, work, name, path, worst)
        # The screenshot: the demo's CSS page half-way through.
        keys = tool.key_times(paths["demo"])
        mid = (keys[-1] - keys[0]) / 2
        driver.get(page(work, "demo-shot", f'<link rel="stylesheet" href="{work}/demo.css">', SHOT_BODY))
        driver.execute_script(SHOT, mid * 1000, f"qmxkf export demo.qmxbag --format css: stopped at {mid:g} s, "
                                                "the way there faded")
        driver.save_screenshot(os.path.abspath(args.shot))
    except (Failure, WebDriverException) as e:
        failures.append(str(e).strip().splitlines()[0])
    finally:
        if driver:
            driver.quit()
        if not args.keep:
            shutil.rmtree(work, ignore_errors=True)

    print("largest error / value span" + "".join(f"{p:>9}" for p in PROPS))
    for fmt in FORMATS:
        print(f"{fmt:<26}" + "".join(f"{worst[(fmt, p)]:9.1e}" if (fmt, p) in worst else f"{'-':>9}"
                                     for p in PROPS))
    for f in failures:
        print("FAIL:", f)
    print(f"web export: {len(failures)} failures, {time.monotonic() - started:.1f} s")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
