"""qmx.Track: a track on its own, its frames, and sampling into arrays."""
import sys
import threading

import numpy as np
import pytest

import qmx


@pytest.fixture
def track():
    t = qmx.Track()
    t.add(qmx.Params(time=0.0, angle=0.0, x=-400.0, opacity=0.0, scale_x=0.5))
    t.add(qmx.Params(time=0.5, angle=45.0, x=-100.0, opacity=1.0))
    t.add(qmx.Params(time=2.0, angle=90.0, x=0.0, y=30.0))
    return t


@pytest.mark.parametrize("time, expected", [
    (0.25, qmx.Params(0.25, 22.5, -250.0, 0.0, 0.5, 0.75, 1.0)),   # linear midpoints of the first segment
    (0.5, qmx.Params(0.5, 45.0, -100.0, 0.0, 1.0, 1.0, 1.0)),      # at a key: its values
    (-1.0, qmx.Params(-1.0, 0.0, -400.0, 0.0, 0.0, 0.5, 1.0)),     # before the first key: held
])
def test_at(track, time, expected):
    assert track.at(time) == expected


@pytest.mark.parametrize("call, expected", [
    (lambda t: t.time_of_frame(25, 25), 1.0),
    (lambda t: t.time_of_frame(3, 0), 3.0),          # a rate of 0 counts as one frame a second
    (lambda t: t.time_of_frame(-12, 24), -0.5),
    (lambda t: t.frame_of(1, 25), 13),               # 12.5 rounds away from zero
    (lambda t: t.frame_of(-1, 30), 60),
    (lambda t: t.key_at_frame(13, 25), 1),
    (lambda t: t.key_at_frame(12, 25), None),
    (lambda t: t.index_at(2.0), 2),
    (lambda t: t.index_at(1.0), None),
    (lambda t: t.in_range(2.0), True),
    (lambda t: t.in_range(2.0001), False),
    (lambda t: t.value("y", 1.25), 15.0),
    (lambda t: t.value(3, 1.0), 1.0),
    (lambda t: t.kinds(0), (qmx.Kind.LINEAR,) * 6),
    (lambda t: t.has_keys("scale_y"), True),
    (lambda t: qmx.Track().has_keys(0), False),
])
def test_queries(track, call, expected):
    assert call(track) == expected


def test_edits(track):
    assert track.add({"time": 1.0, "x": 7.0}) == 2          # other values: the track's there
    assert track[2] == qmx.Params(1.0, 60.0, 7.0, 10.0, 1.0, 1.0, 1.0)
    for refused in (lambda: track.move(0, 1.0), lambda: track.set(0, {"time": 2.0})):
        with pytest.raises(qmx.EditRefused):
            refused()
    assert track.move(0, 3.0) == 3 and track[-1].x == -400.0
    assert track.set(0, {"time": 1.0, "opacity": 0.5}, replace=True) == 0
    assert [k.time for k in track] == [1.0, 2.0, 3.0] and track[0].opacity == 0.5
    track.delete(1)
    assert len(track) == 2
    track.clear()
    assert len(track) == 0
    with pytest.raises(ValueError):
        track.at(0.0)


def test_sampling_equals_single_calls(track):
    times = np.linspace(-0.5, 2.5, 61)
    rows = track.sample(times)
    assert rows.shape == (61, 6) and rows.dtype == np.float64
    assert rows.tolist() == [list(track.at(t))[1:] for t in times]
    frames = track.sample_frames(-5, 70, 24)
    assert frames.tolist() == track.sample([track.time_of_frame(f, 24) for f in range(-5, 65)]).tolist()
    assert track.sample_frames(0, 0, 24).shape == (0, 6)
    assert rows[:, qmx.PROPERTIES.index("x")].tolist() == [track.value("x", t) for t in times]


def test_threads_sample_one_track(track):
    times = np.linspace(-0.5, 2.5, 1001)
    expected = track.sample(times)
    results = []

    def sample():
        results.extend(track.sample(times).tolist() == expected.tolist() for _ in range(50))

    threads = [threading.Thread(target=sample) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert results == [True] * 200


def test_threads_reading_and_editing_do_not_block_each_other():
    """Readers make records while holding an object, and Python may switch
    threads inside that; a writer waiting for the object must let them go
    on (a fault here hangs the test)."""
    curve, track = qmx.Curve(), qmx.Track()
    for i in range(20):
        curve.add(i, float(i))
        track.add(qmx.Params(time=i, x=i))

    def read():
        for _ in range(300):
            curve[5], curve.kind(3), track[2], track.kinds(1), curve.sample([1.0]), track.sample([0.5])

    def write():
        for k in range(300):
            curve.set_value(7, float(k))
            track.set(3, {"x": float(k)})

    interval = sys.getswitchinterval()
    sys.setswitchinterval(1e-6)
    try:
        threads = [threading.Thread(target=f) for f in (read, read, write, write)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    finally:
        sys.setswitchinterval(interval)
    assert (curve[7].value, track[3].x) == (299.0, 299.0)
