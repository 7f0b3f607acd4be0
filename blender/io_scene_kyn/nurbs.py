"""NURBS curves and surfaces of a cache as Blender splines.

Blender makes a spline's knots itself, from its order and two flags, so a cache's spline comes
in only when its knots are ones Blender makes, up to scale and offset (which leave the shape
as it is): evenly spaced ("uniform", and every periodic spline) or evenly spaced between ends
repeated degree times ("endpoint"). Other knots, and orders above Blender's 6, are left out
with the reason. The first and last knot of a full knot vector do not shape a spline, and the
cache stores none of them, so the stored knots are what is compared."""

import bpy
import numpy as np

MAX_ORDER = 6  # Blender's highest NURBS order


def _evenly_spaced(knots):
    steps = np.diff(knots)
    return len(steps) > 0 and steps[0] > 0 and np.allclose(steps, steps[0], rtol=1e-5, atol=0)


def knot_style(knots, degree, periodic):
    """'UNIFORM' or 'ENDPOINT' for knots that Blender makes, else None."""
    if _evenly_spaced(knots):
        return 'UNIFORM'
    if periodic or degree < 2 or len(knots) < 2 * degree:
        return None
    ends_repeat = np.all(knots[:degree] == knots[0]) and np.all(knots[-degree:] == knots[-1])
    return 'ENDPOINT' if ends_repeat and _evenly_spaced(knots[degree - 1:1 - degree]) else None


def direction(knots, degree, form, count, what):
    """(order, cyclic, endpoint, distinct points) of one direction of a spline, or a reason
    why Blender cannot take it."""
    knots = np.asarray(knots, dtype=np.float64)
    if len(knots) == count + degree + 1:  # a surface's double knots come with the end knots
        knots = knots[1:-1]
    periodic = form == "kPeriodic"
    distinct = count - degree if periodic else count
    if degree + 1 > MAX_ORDER:
        return f"{what}degree {degree} is above the highest Blender takes ({MAX_ORDER - 1})"
    if distinct < degree + 1:
        return f"{what}{distinct} control points are too few for degree {degree}"
    style = knot_style(knots, degree, periodic)
    if style is None:
        return (f"{what}knots are not evenly spaced (nor evenly spaced between repeated ends), "
                "and Blender makes the knots of its splines itself")
    return (degree + 1, periodic, style == 'ENDPOINT', distinct)


def _spline_settings(spline, u, v=None):
    spline.order_u, spline.use_cyclic_u, spline.use_endpoint_u = u[0], u[1], u[2]
    if v is not None:
        spline.order_v, spline.use_cyclic_v, spline.use_endpoint_v = v[0], v[1], v[2]


def _one_spline(name, kind, count):
    """New curve data of `kind` with one NURBS spline of `count` points along U."""
    curve = bpy.data.curves.new(name, kind)
    curve.dimensions = '3D'
    curve.splines.new('NURBS').points.add(count - 1)
    return curve


def curve_data(name, obj):
    """A Blender curve for a cache's NURBS curve, or (None, reason)."""
    net = obj.control_points()
    u = direction(obj.knots(end_knots=False), obj.degree(), obj.form(), len(net), "its ")
    if isinstance(u, str):
        return None, u
    curve = _one_spline(name, 'CURVE', u[3])
    _spline_settings(curve.splines[0], u)
    return curve, None


def surface_data(name, obj):
    """A Blender surface's data and its counts for a cache's NURBS surface, or (None, reason).
    The rows of V are made by the caller (see add_rows), as Blender's API adds points along U
    only."""
    net = obj.control_points()
    knots_u, knots_v = obj.knots(end_knots=False)
    (degree_u, degree_v), (form_u, form_v) = obj.degree(), obj.form()
    u = direction(knots_u, degree_u, form_u, net.shape[0], "in U its ")
    v = direction(knots_v, degree_v, form_v, net.shape[1], "in V its ")
    for reason in (u, v):
        if isinstance(reason, str):
            return None, reason
    return _one_spline(name, 'SURFACE', u[3]), (u, v)


def add_rows(context, ob, directions):
    """Extrudes the one row of a new surface object (linked to the view layer) until it has
    the rows of V, then sets both directions' order and flags."""
    u, v = directions
    layer = context.view_layer
    active = layer.objects.active
    layer.objects.active = ob
    bpy.ops.object.mode_set(mode='EDIT')
    try:
        bpy.ops.curve.select_all(action='SELECT')
        for _ in range(v[3] - 1):
            bpy.ops.curve.extrude(mode='TRANSLATION')
    finally:
        bpy.ops.object.mode_set(mode='OBJECT')
        layer.objects.active = active
    _spline_settings(ob.data.splines[0], u, v)
