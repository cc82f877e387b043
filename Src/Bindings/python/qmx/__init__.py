"""Keyframe curves and tracks of the QMX keyframe module, from Python.

The package loads the keyframe module (libQMXKeyFrame.so) through the host
runtime, as a host engine does, on first use, and drives it only through
its interfaces:

- Curve: one keyframed parameter curve (keys with kinds and tangents);
- Track: a clip's transform, six curves in lockstep (angle, x, y, opacity,
  scale_x, scale_y), on its own or as the track of a project;
- Project: a project file, opened, edited under its lock and saved as the
  command-line tool qmxkf does it (verified, atomic, all or nothing).

Sampling (Curve.sample, Track.sample, Track.sample_frames) fills NumPy
arrays in compiled code. Arguments that the module would stop the process on
are refused with Python exceptions first: IndexError, ValueError (and its
subclass EditRefused), TypeError; Error for failures of the module or the
runtime, ProjectError (an OSError) for project files.

    import qmx
    track = qmx.Track()
    track.add(qmx.Params(time=0.0, x=-400.0, opacity=0.0))
    track.add(qmx.Params(time=1.0, x=0.0))
    track.at(0.5).x                         # -200.0
    track.sample_frames(0, 25, 25)[:, 1]    # x at each frame of the first second
"""

import collections as _collections
import enum as _enum
import typing as _typing

from . import _qmx


class Kind(_enum.IntEnum):
    """How a key shapes the segment it starts, and how its tangents are computed."""

    CONSTANT = 0        #: holds the key's value, then jumps to the next key's
    LINEAR = 1          #: tangents from the neighbouring keys' straight lines
    SMOOTH_CLAMPED = 2  #: smooth, never beyond its two keys' values
    SMOOTH = 3          #: smooth through the neighbours (may overshoot)
    SPLINE = 4          #: smooth with matched curvature (may overshoot)
    FLAT = 5            #: eases out of and into every key (zero tangents)
    FREE = 6            #: tangents kept as given; only read from a text
    NONE = 7            #: no kind; only read from a text


class ParamType(_enum.IntEnum):
    """The type of a curve's values."""

    DOUBLE = 0
    INT = 1
    BOOL = 2
    STRING = 3


class Key(_typing.NamedTuple):
    """One key of a curve: its time, value, kind and left and right tangents
    (value units per second)."""

    time: float
    value: object
    kind: Kind
    left: float
    right: float


class Params(_typing.NamedTuple):
    """One whole key of a track: its time and the six properties' values.
    Properties not given are those of the identity transform."""

    time: float
    angle: float = 0.0
    x: float = 0.0
    y: float = 0.0
    opacity: float = 1.0
    scale_x: float = 1.0
    scale_y: float = 1.0


#: The same record under the name of the module's own structure.
KeyFrameParam = Params

#: The track's six properties, in the order of the columns of sampled arrays.
PROPERTIES = ("angle", "x", "y", "opacity", "scale_x", "scale_y")

Counts = _collections.namedtuple("Counts", "increments decrements first_references last_releases")
Counts.__doc__ = """The host runtime's totals of reference-count steps since the process started."""

_qmx._register(Kind, ParamType, Key, Params)

from ._qmx import (  # noqa: E402  (the records are registered first)
    Curve,
    EditRefused,
    Error,
    Project,
    ProjectError,
    Track,
    load,
    module_version,
    runtime_version,
)


def reference_counts():
    """The host runtime's totals of reference-count steps (a Counts record):
    after every object made has been collected, first_references equals
    last_releases and increments equals decrements."""
    return Counts(*_qmx.reference_counts())


def check(path):
    """Every fault that keeps the project file at `path` from loading, one
    line each; an empty list when it loads."""
    return Project.check(path)


__all__ = [
    "Counts", "Curve", "EditRefused", "Error", "Key", "KeyFrameParam", "Kind", "PROPERTIES", "ParamType",
    "Params", "Project", "ProjectError", "Track", "check", "load", "module_version", "reference_counts",
    "runtime_version",
]
