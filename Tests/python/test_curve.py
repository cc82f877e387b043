"""qmx.Curve: values of the module's curve through the bindings, edits, text."""
import math

import numpy as np
import pytest

import qmx
from conftest import curve, curve_text

K = qmx.Kind


def make(keys, kind=K.LINEAR):
    c = qmx.Curve()
    for key in keys:
        c.add(*key) if len(key) == 3 else c.add(*key, kind)
    return c


@pytest.mark.parametrize("keys, time, expected", [
    # linear midpoint, and the flat continuation past both ends (end tangents 0)
    ([(0, 0.0), (2, 10.0)], 1.0, 5.0),
    ([(0, 0.0), (2, 10.0)], -1.0, 0.0),
    ([(0, 0.0), (2, 10.0)], 3.0, 10.0),
    # a constant key holds its value up to the next key
    ([(0, 3.0, K.CONSTANT), (1, 7.0)], 0.999, 3.0),
    ([(0, 3.0, K.CONSTANT), (1, 7.0)], 1.0, 7.0),
    # a smooth key between equal neighbours has tangent 0; the linear end key
    # aims at it: Hermite p0=0, m0=10, p1=10, m1=0 at s=1/2
    ([(0, 0.0), (1, 10.0, K.SMOOTH), (2, 0.0)], 0.5, 6.25),
    ([(0, 0.0), (1, 10.0, K.SMOOTH), (2, 0.0)], 1.0, 10.0),
    # flat keys ease in and out: smoothstep 3s^2 - 2s^3
    ([(0, 0.0, K.FLAT), (1, 10.0, K.FLAT)], 0.25, 1.5625),
    ([(0, 0.0, K.FLAT), (1, 10.0, K.FLAT)], 0.5, 5.0),
    # an empty curve is 0 everywhere
    ([], 4.0, 0),
])
def test_value(keys, time, expected):
    assert make(keys).value(time) == expected


@pytest.mark.parametrize("ptype, value, expected", [
    (qmx.ParamType.DOUBLE, 250.0, 100.0),  # held within the default range
    (qmx.ParamType.INT, 7.9, 7),           # int curves truncate (the clamp reads ints: unclamped)
])
def test_clamp_and_types(ptype, value, expected):
    c = qmx.Curve()
    c.type = ptype
    c.add(0, value)
    assert c.value(0, clamp=(ptype == qmx.ParamType.DOUBLE)) == expected
    assert type(c.value(0)) is type(expected)


def test_bool_curves_keep_constant_keys():
    c = qmx.Curve()
    c.type = qmx.ParamType.BOOL
    assert c.range == (False, True)
    c.add(0, True, K.SMOOTH)
    c.add(1, False)
    assert [key.kind for key in c] == [K.CONSTANT, K.CONSTANT]
    assert (c.value(0.5), c.value(1)) == (True, False)


def test_keys_indexes_and_edits():
    c = make([(0, 1.0), (1, 2.0), (2, 3.0)])
    assert (len(c), c[-1].time, c[0]) == (3, 2.0, qmx.Key(0.0, 1.0, K.LINEAR, 0.0, 1.0))
    assert c.add(0.5, 9.0) == 1 and c.add(0.5, 8.0) == 1 and len(c) == 4  # the same time replaces
    c.remove(-1)
    assert [k.time for k in c] == [0.0, 0.5, 1.0] and c.index_at(0.5) == 1 and c.index_at(0.25) is None
    c.set_value(0, 4)
    c.set_kind(1, "smooth-clamped")
    assert (c[0].value, c.kind(1)) == (4, K.SMOOTH_CLAMPED)
    with pytest.raises(qmx.EditRefused):
        c.set_time(0, 1.0)
    assert len(c) == 3
    c.set_time(0, 1.0, replace=True)
    assert [(k.time, k.value) for k in c] == [(0.5, 8.0), (1.0, 4)]
    c.clear()
    assert len(c) == 0


def test_hand_set_tangents_stay_until_a_neighbour_is_edited():
    c = make([(0, 0.0), (1, 1.0), (2, 0.0)])
    c.set_tangents(1, 3.0, -3.0)
    assert c[1][3:] == (3.0, -3.0)
    c.set_value(2, 5.0)  # the neighbour's edit recomputes the linear key
    assert c[1][3:] != (3.0, -3.0)


@pytest.mark.parametrize("call, error", [
    (lambda c: c[3], IndexError),
    (lambda c: c[-4], IndexError),
    (lambda c: c.remove(3), IndexError),
    (lambda c: c.set_value(5, 1.0), IndexError),
    (lambda c: c.add(1.5, "text"), TypeError),
    (lambda c: c.add(1.5, None), TypeError),
    (lambda c: c.add(1.5, 2 ** 40), ValueError),
    (lambda c: c.add("soon", 1.0), TypeError),
    (lambda c: c.add(1.5, 1.0, 8), ValueError),
    (lambda c: c.add(1.5, 1.0, "bouncy"), ValueError),
    (lambda c: setattr(c, "type", 4), ValueError),
])
def test_unreadable_arguments(call, error):
    c = make([(0, 1.0), (1, 2.0), (2, 3.0)])
    before = c.to_json()
    with pytest.raises(error):
        call(c)
    assert c.to_json() == before


def test_text_round_trip_keeps_kinds_and_tangents():
    c = curve([(0, 0, K.LINEAR, 0, 2), (1, 5, K.FREE, 7.5, -1), (2, 1, K.NONE, 0, 0)])
    assert [k.kind for k in c] == [K.LINEAR, K.FREE, K.NONE] and c[1].left == 7.5
    again = qmx.Curve().from_json(c.to_json())
    assert again.to_json() == c.to_json() == curve_text([(0, 0, 1, 0, 2), (1, 5, 6, 7.5, -1), (2, 1, 7, 0, 0)])
    spaced = c.to_json().replace(",", ", ")  # other spacing reads the same
    assert qmx.Curve().from_json(spaced).to_json() == c.to_json()


@pytest.mark.parametrize("text", ["not json", '{"a": 1}', "[]", curve_text([(0, 1, 9, 0, 0)])])
def test_unreadable_texts_leave_the_curve(text):
    c = make([(0, 1.0)])
    before = c.to_json()
    with pytest.raises(ValueError):
        c.from_json(text)
    assert c.to_json() == before


def test_copy_is_independent():
    c = make([(0, 1.0), (1, 2.0)])
    d = c.copy()
    d.add(2, 3.0)
    assert (len(c), len(d), d.to_json().startswith(c.to_json()[:40])) == (2, 3, True)


def test_sample_equals_single_values():
    c = make([(0, 0.0), (1, 10.0, K.SPLINE), (2, -5.0), (3, 1.0, K.FLAT)])
    times = np.linspace(-1, 4, 101)
    values = c.sample(times)
    assert values.shape == (101,) and values.dtype == np.float64
    assert values.tolist() == [c.value(t) for t in times]
    assert c.sample([]).shape == (0,)
    assert c.sample([math.nan]).shape == (1,)  # a NaN time is evaluated, not refused
    with pytest.raises(ValueError):
        c.sample([[0.0, 1.0]])
