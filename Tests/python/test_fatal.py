"""Every path on which the module stops the process is refused from Python
with an exception, leaving the object as it was; the interpreter survives.
The edits next to keys the module passes over are run in a child
interpreter, so that a wrong refusal rule shows as a failure, not a crash."""
import math
import os
import subprocess
import sys
import textwrap

import pytest

import qmx
from conftest import curve, write_project

K = qmx.Kind
L, F, N = K.LINEAR, K.FREE, K.NONE


def keys(*kinds):
    """A curve with one key a second, values 0, 1, 2, ..., of the given kinds."""
    return [(i, i, int(kind), 0, 0) for i, kind in enumerate(kinds)]


@pytest.mark.parametrize("nodes, edit", [
    # adding or setting kinds free or none
    ([], lambda c: c.add(0, 1.0, K.FREE)),
    ([], lambda c: c.add(0, 1.0, K.NONE)),
    (keys(L, L), lambda c: c.set_kind(0, K.FREE)),
    (keys(L, L), lambda c: c.set_kind(1, 7)),
    # editing a key of kind free or none: it would be recomputed
    (keys(L, F, L), lambda c: c.set_value(1, 5.0)),
    (keys(L, N, L), lambda c: c.set_value(1, 5.0)),
    (keys(L, F, L), lambda c: c.set_time(1, 1.5)),
    (keys(L, N, L), lambda c: c.set_time(1, 0.5)),
    # an edit whose neighbour has kind free
    (keys(L, F, L), lambda c: c.add(1.5, 1.0)),
    (keys(L, F, L), lambda c: c.set_value(2, 5.0)),
    (keys(L, F, L), lambda c: c.set_kind(0, K.SMOOTH)),
    (keys(L, F, L), lambda c: c.set_tangents(2, 1.0, 1.0)),
    (keys(L, L, F, L), lambda c: c.set_time(0, 2.5)),   # lands next to the free key
    (keys(L, F, L, L), lambda c: c.set_time(3, 1.5)),
    # a removal recomputes both neighbours whatever their kind
    (keys(L, N, L), lambda c: c.remove(0)),
    (keys(L, F, L), lambda c: c.remove(2)),
    (keys(L, L, N), lambda c: c.remove(0)),              # before the first key: the last key
    # times and values that are not numbers
    (keys(L, L), lambda c: c.add(math.nan, 1.0)),
    (keys(L, L), lambda c: c.add(math.inf, 1.0)),
    (keys(L, L), lambda c: c.add(0.5, math.nan)),
    (keys(L, L), lambda c: c.set_time(0, math.nan)),
    (keys(L, L), lambda c: c.set_tangents(0, math.inf, 0.0)),
])
def test_curve_edits_refused(nodes, edit):
    c = curve(nodes)
    before = c.to_json()
    with pytest.raises(ValueError):
        edit(c)
    assert c.to_json() == before


@pytest.mark.parametrize("nodes, edit", [
    (keys(L, N, L), "c.add(0.5, 9.0)"),               # a neighbour of kind none is passed over
    (keys(L, N, L), "c.set_value(2, 9.0)"),
    (keys(L, F, L), "c.set_tangents(1, 2.0, 3.0)"),   # the free key keeps the tangents given
    (keys(L, F, L), "c.set_kind(1, qmx.Kind.SMOOTH)"),
    (keys(L, L, L, F), "c.remove(1)"),                # the free key is two places away
    (keys(L, F, L, L), "c.remove(3)"),
])
def test_curve_edits_next_to_fixed_kinds_run(nodes, edit):
    code = textwrap.dedent("""
        import qmx
        from conftest import curve
        c = curve(%r)
        %s
        print(len(c))
    """) % (nodes, edit)
    here = os.path.dirname(os.path.abspath(__file__))
    package = os.path.dirname(os.path.dirname(os.path.abspath(qmx.__file__)))
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, cwd=here,
                          env=dict(os.environ, PYTHONPATH=os.pathsep.join([package, here])))
    assert done.returncode == 0, done.stderr


@pytest.mark.parametrize("call, error", [
    (lambda t: t.value(6, 0.5), ValueError),      # a curve slot outside 0..5
    (lambda t: t.value(-1, 0.5), ValueError),
    (lambda t: t.value("z", 0.5), ValueError),
    (lambda t: t.frame_of(2, 25), IndexError),    # the module throws or stops on other indexes
    (lambda t: t.get(2), IndexError),
    (lambda t: t.delete(-3), IndexError),
    (lambda t: t.add(qmx.Params(time=math.nan)), ValueError),
    (lambda t: t.add({"time": 1.0, "x": math.inf}), ValueError),
    (lambda t: t.add({"x": 1.0}), ValueError),
    (lambda t: t.add({"time": 1.0, "size": 1.0}), ValueError),
    (lambda t: t.add({"time": "now"}), TypeError),
    (lambda t: t.add(1.0), TypeError),
    (lambda t: t.move(0, math.nan), ValueError),
    (lambda t: t.time_of_frame(2 ** 31, 25), ValueError),
    (lambda t: t.add(qmx.Params(time=3), kind=K.SMOOTH), ValueError),  # a track on its own keeps linear keys
])
def test_track_arguments_refused(call, error):
    t = qmx.Track()
    t.add(qmx.Params(time=0))
    t.add(qmx.Params(time=1, x=5))
    before = t.sample([0, 0.5, 1]).tolist()
    with pytest.raises(error):
        call(t)
    assert (len(t), t.sample([0, 0.5, 1]).tolist()) == (2, before)


FREE_X = [keys(L, L, L)] + [keys(L, F, L)] + [keys(L, L, L)] * 4   # x's key 1 is free


@pytest.mark.parametrize("edit, kind", [
    (lambda t: t.set(1, {"x": 5.0}), "free"),       # the free key's value
    (lambda t: t.set(2, {"x": 5.0}), "free"),       # its neighbour's
    (lambda t: t.move(1, 1.5), "free"),
    (lambda t: t.add({"time": 1.5}), "free"),
    (lambda t: t.delete(0), "free"),
    (lambda t: t.set_kind(0, K.SMOOTH, "x"), "free"),
    (lambda t: t.set_kind(0, K.FREE), "cannot be set"),
    (lambda t: t.add({"time": 3}, kind={"x": K.NONE}), "cannot be set"),
])
def test_project_edits_refused(tmp_path, edit, kind):
    path = write_project(tmp_path / "free.qmxbag", FREE_X)
    data = path.read_bytes()
    with pytest.raises(ValueError, match=kind):
        with qmx.Project(path) as project:
            assert project.track.kinds(1)[1] == K.FREE
            try:
                edit(project.track)
            finally:
                assert (len(project.track), project.modified) == (3, False)
    assert path.read_bytes() == data


def test_project_edits_next_to_a_free_key_that_it_allows(tmp_path):
    path = write_project(tmp_path / "free.qmxbag", FREE_X)
    with qmx.Project(path) as project:
        project.track.set(0, {"angle": 4.0})   # x of key 0 is untouched
        project.track.add({"time": 3.0})
    with qmx.Project(path, read_only=True) as project:
        assert (len(project.track), project.track[0].angle, project.track.kinds(1)[1]) == (4, 4.0, K.FREE)
