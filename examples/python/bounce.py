#!/usr/bin/env python3
"""A ball bouncing across the frame, animated with eased keys, saved to a
project file, sampled into NumPy and plotted.

    PYTHONPATH=build/python python3 examples/python/bounce.py [folder]

Writes bounce.qmxbag into the folder (default bounce-out; a project already
there is rewritten) and, when Matplotlib is installed, bounce.png beside it.
"""
import os
import sys

import qmx

FLOOR = 300.0  # y grows downwards, as on screen
RATE = 30      # frames per second


def bounce_keys():
    """Apexes ease out and in (flat: the ball stops rising there); floor
    contacts are linear, so the path turns sharply where the ball bounces."""
    keys, time, height = [], 0.0, FLOOR
    while height > 10.0:
        fall = (height / FLOOR) ** 0.5 * 0.6  # a fall takes time as the root of its height
        keys.append((qmx.Params(time=time, y=FLOOR - height), qmx.Kind.FLAT))
        time += fall
        # squashed at each contact, less and less
        squash = 1.0 - 0.3 * height / FLOOR
        keys.append((qmx.Params(time=time, y=FLOOR, scale_x=2.0 - squash, scale_y=squash), qmx.Kind.LINEAR))
        time += fall * 0.9
        height *= 0.5
    keys.append((qmx.Params(time=time, y=FLOOR), qmx.Kind.FLAT))
    return keys


def main():
    folder = sys.argv[1] if len(sys.argv) > 1 else "bounce-out"
    os.makedirs(folder, exist_ok=True)
    path = os.path.join(folder, "bounce.qmxbag")

    keys = bounce_keys()
    end = keys[-1][0].time
    # Saved on leaving the block, verified and atomically; an exception
    # inside it would leave an existing file as it was.
    with qmx.Project(path, create=not os.path.exists(path)) as project:
        track = project.track
        track.clear()
        for key, kind in keys:
            # x travels at a steady pace; the scales hold between contacts
            key = key._replace(x=600.0 * key.time / end)
            track.add(key, kind={"y": kind, "x": qmx.Kind.LINEAR, "scale_x": qmx.Kind.SMOOTH_CLAMPED,
                                 "scale_y": qmx.Kind.SMOOTH_CLAMPED})
        print("saved %d keys to %s" % (len(track), path))

    with qmx.Project(path, read_only=True) as project:
        frames = int(end * RATE) + 1
        samples = project.track.sample_frames(0, frames, RATE)   # (frames, 6), columns qmx.PROPERTIES
    times = [f / RATE for f in range(frames)]
    y = samples[:, qmx.PROPERTIES.index("y")]
    first_contact = int(y.argmax())
    print("%d frames; the floor is reached at frame %d, the first rebound peaks at y %.1f" %
          (frames, first_contact, y[first_contact:].min()))

    try:
        import matplotlib
        matplotlib.use("Agg")
        import matplotlib.pyplot as plt
    except ImportError:
        print("Matplotlib is not installed: no plot")
        return
    figure, (top, bottom) = plt.subplots(2, 1, figsize=(8, 6))
    top.plot(samples[:, qmx.PROPERTIES.index("x")], FLOOR - y)
    top.set_title("the ball's path: x and height above the floor")
    for name in ("scale_x", "scale_y"):
        bottom.plot(times, samples[:, qmx.PROPERTIES.index(name)], label=name)
    bottom.set_title("its squash at each contact")
    bottom.set_xlabel("seconds")
    bottom.legend()
    picture = os.path.join(folder, "bounce.png")
    figure.tight_layout()
    figure.savefig(picture, dpi=100)
    print("plotted to", picture)


if __name__ == "__main__":
    main()
