"""Each Python object holds one interface reference and releases it when it
is collected: the runtime's counters show every object made destroyed."""
import gc

import pytest

import qmx


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
