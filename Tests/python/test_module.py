"""Loading the module, and the references Python objects hold: one each,
released when the object is collected, as the runtime's counters show."""
import gc
import os
import subprocess
import sys

import pytest

import qmx


def test_loading():
    path = qmx.load()
    assert path.endswith("/libQMXKeyFrame.so") and qmx.load(path) == path
    assert qmx.module_version() == qmx.runtime_version() != ""
    with pytest.raises(qmx.Error, match="already loaded"):
        qmx.load(os.path.join(os.path.dirname(path), "elsewhere", "libQMXKeyFrame.so"))


def test_a_module_that_does_not_load_is_an_error():
    package = os.path.dirname(os.path.dirname(os.path.abspath(qmx.__file__)))
    code = "import qmx\ntry:\n    qmx.load('/nonexistent/libQMXKeyFrame.so')\nexcept qmx.Error as e:\n    print(e)\n"
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True,
                          env=dict(os.environ, PYTHONPATH=package))
    assert done.returncode == 0 and done.stdout.startswith("cannot load module: "), done.stderr


def steps(before, after):
    return qmx.Counts(*(b - a for a, b in zip(before, after)))


def curve(_path):
    return [qmx.Curve().copy()]


def track(_path):
    t = qmx.Track()
    t.add(qmx.Params(time=1.0))
    return [t]


def project(path):
    p = qmx.Project(path, read_only=True)
    p.track.sample([0.5])
    return [p, p.track]


# Objects destroyed when the Python objects go: a curve (the copy's source
# went at once), a track and its six curves, an open project's track with its
# curves and the file's property bag.
@pytest.mark.parametrize("make, destroyed", [(curve, 1), (track, 7), (project, 8)])
def test_objects_release_their_references(project_path, make, destroyed):
    qmx.load()
    for _ in range(2):
        start = qmx.reference_counts()
        objects = [o for _ in range(20) for o in make(project_path)]
        alive = qmx.reference_counts()
        del objects
        gc.collect()
        end = qmx.reference_counts()
        released = steps(alive, end)
        assert (released.last_releases, released.increments) == (20 * destroyed, 0)
        # Over the round every step up was taken down again, but for the
        # reference each object or factory was born with.
        whole = steps(start, end)
        assert whole.decrements - whole.increments == whole.last_releases - whole.first_references
