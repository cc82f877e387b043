"""Shared helpers of the qmx tests: curve texts with keys of every kind, and
project files written as the host runtime writes them."""
import json

import pytest

import qmx


def curve_text(nodes):
    """A curve's text as the module writes it; nodes are (time, value, kind, left, right)."""
    body = ",".join("[%r,%r,%d,%r,%r]" % (float(t), float(v), k, float(l), float(r)) for t, v, k, l, r in nodes)
    return '{"MaxValue":100.0,"MinValue":-100.0,"ParamType":0,"nodes":%s}\n' % ("[%s]" % body if nodes else "null")


def curve(nodes):
    """A curve read from its text, which may hold kinds FREE and NONE."""
    return qmx.Curve().from_json(curve_text(nodes))


BAG_NAMES = ("KeyFrameAngle", "KeyFramePositionX", "KeyFramePositionY", "KeyFrameOpacity", "KeyFrameScaleX",
             "KeyFrameScaleY")


def write_project(path, nodes_per_property):
    """A project file holding a track whose six curves have the given nodes."""
    entries = []
    for name, nodes in zip(BAG_NAMES, nodes_per_property):
        entries.append({"name": name, "int": 1})
        entries.append({"name": name + "Segment_0", "string": curve_text(nodes)})
    entries.sort(key=lambda e: e["name"])
    lines = ",\n".join("    " + json.dumps(e, separators=(", ", ": ")) for e in entries)
    path.write_text('{\n  "format": "qmxbag",\n  "version": 1,\n  "entries": [\n%s\n  ]\n}\n' % lines)
    return path


@pytest.fixture
def project_path(tmp_path):
    """A project file with three linear keys at 0, 1 and 2 s (x 0, 10, 0)."""
    path = tmp_path / "title.qmxbag"
    with qmx.Project(path, create=True) as project:
        for time, x in ((0.0, 0.0), (1.0, 10.0), (2.0, 0.0)):
            project.track.add(qmx.Params(time=time, x=x))
    return path
