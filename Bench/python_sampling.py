#!/usr/bin/env python3
"""Cost per sample of a track sampled from Python: one call of
Track.sample(times) against a Python loop of Track.at(t), and one curve's
Curve.sample against Curve.value. A measurement, not a test.

    PYTHONPATH=build/python python3 Bench/python_sampling.py [samples]
"""
import sys
import time

import numpy as np

import qmx


def per_sample(run, samples, repeats=5):
    """The best of `repeats` runs, in microseconds per sample."""
    best = min(_timed(run) for _ in range(repeats))
    return best / samples * 1e6


def _timed(run):
    start = time.perf_counter()
    run()
    return time.perf_counter() - start


def main():
    samples = int(sys.argv[1]) if len(sys.argv) > 1 else 100_000
    track = qmx.Track()
    curve = qmx.Curve()
    for k in range(25):  # a key every 0.4 s over 10 s, sampled at increasing times as playback asks
        track.add(qmx.Params(time=0.4 * k, angle=k * 3.0, x=(-1) ** k * 100.0, y=k, opacity=k % 2, scale_x=1 + k / 10))
        curve.add(0.4 * k, (-1) ** k * 100.0, qmx.Kind.SMOOTH)
    times = np.linspace(0.0, 10.0, samples)
    listed = times.tolist()

    rows = [
        ("track.sample(times)", per_sample(lambda: track.sample(times), samples)),
        ("[track.at(t) for t in times]", per_sample(lambda: [track.at(t) for t in listed], samples)),
        ("curve.sample(times)", per_sample(lambda: curve.sample(times), samples)),
        ("[curve.value(t) for t in times]", per_sample(lambda: [curve.value(t) for t in listed], samples)),
    ]
    print("%d samples, module %s" % (samples, qmx.module_version()))
    for name, micros in rows:
        print("  %-34s %8.3f us per sample" % (name, micros))
    print("  track: vectorised is %.0fx faster; curve: %.0fx" % (rows[1][1] / rows[0][1], rows[3][1] / rows[2][1]))


if __name__ == "__main__":
    main()
