"""What the writer and the editable cache accept: channel names, object kinds, and the checks
that turn Python values into the chunks of a cache without a conversion that loses anything.

Each chunk goes to the binding as (tag, value, compound, dimension), the value a C-contiguous
numpy array of int32, int64, float32 or float64, or a list of str.
"""

import numpy as np

# Channel name: (tag, what it takes, compound code).
CHANNELS = {
    "positions": ("POSI", "points", 1),
    "normals": ("VPNO", "points", 3),
    "face_normals": ("PONO", "points", 3),
    "velocities": ("VELO", "points", 2),
    "counts": ("PCNT", "ints", 0),
    "indices": ("PIDS", "ints", 0),
    "normal_counts": ("NCNT", "ints", 0),
    "normal_indices": ("NIDS", "ints", 0),
    "shape_type": ("MSPT", "ints", 0),
    "matrix": ("MTRX", "matrix", 4),
    "rotate_order": ("MTRO", "ints", 0),
    "inherits_transform": ("INHT", "flag", 0),
    "bounds": ("BBOX", "bounds", 0),
    "degree": ("DEGR", "ints", 0),
    "form": ("FORM", "strings", 0),
    "knots": ("KNTU", "floats", 0),
    "knots_u": ("KNTU", "floats", 0),
    "knots_v": ("KNTV", "floats", 0),
}

# Object kind: the tag that marks it ("geometry" is marked by its positions alone).
KINDS = {
    "transform": "XFRM",
    "mesh": "MESH",
    "nurbssurface": "NRBS",
    "nurbscurve": "NRBC",
    "locator": "ELOC",
    "lxcoordsystem": "LXCS",
    "geometry": None,
}

_FLOATS = (np.dtype(np.float32), np.dtype(np.float64))
_NUMBERS = (np.dtype(np.int32), np.dtype(np.int64)) + _FLOATS
_INT32 = np.iinfo(np.int32)


def tag_value(tag):
    """The 32-bit value of a four-character tag, first character in the lowest byte."""
    return int.from_bytes(tag.encode("ascii"), "little")


def channel_tag(channel):
    """The tag of a channel name, or the channel itself when it is a four-character tag."""
    if channel in CHANNELS:
        return CHANNELS[channel][0]
    if isinstance(channel, str) and len(channel) == 4:
        return channel
    raise ValueError(f"unknown channel {channel!r}: one of {', '.join(CHANNELS)}, "
                     "or a four-character tag")


def _floats(value, where):
    array = np.asarray(value)
    if array.dtype not in _FLOATS:
        raise TypeError(f"{where} must be float32 or float64, not {array.dtype}")
    return array


def _strings(value, where):
    if isinstance(value, str):
        return [value]
    values = list(value) if isinstance(value, (list, tuple)) else None
    if values is None or not all(isinstance(v, str) for v in values):
        raise TypeError(f"{where} must be a str or a sequence of str")
    return values


def _ints(value, where):
    array = np.atleast_1d(np.asarray(value))
    if array.dtype.kind not in "iu":
        raise TypeError(f"{where} must hold integers, not {array.dtype}")
    if array.ndim != 1:
        raise ValueError(f"{where} must be one-dimensional, not of shape {array.shape}")
    if array.dtype != np.int32:
        if array.size and (array.min() < _INT32.min or array.max() > _INT32.max):
            raise ValueError(f"{where} holds values outside the int32 range")
        array = array.astype(np.int32)
    return array


def chunk(channel, value, where):
    """The chunk of one channel, or TypeError/ValueError naming `where`."""
    if channel not in CHANNELS:
        raise ValueError(f"{where}: unknown channel {channel!r}; channels are "
                         f"{', '.join(CHANNELS)}")
    tag, form, compound = CHANNELS[channel]
    dimension = 0
    if form == "points":
        array = _floats(value, where)
        if array.ndim != 2 or array.shape[1] not in (3, 4):
            raise ValueError(f"{where} must have shape (n, 3) or (n, 4), not {array.shape}")
        dimension = array.shape[1]
    elif form == "matrix":
        array = _floats(value, where)
        if array.shape != (4, 4):
            raise ValueError(f"{where} must have shape (4, 4), not {array.shape}")
        dimension = 16
    elif form == "bounds":
        array = _floats(value, where)
        if array.shape != (2, 3):
            raise ValueError(f"{where} must have shape (2, 3) (minima, maxima), "
                             f"not {array.shape}")
        # Stored float boxes go x min, x max, y min, ...; double ones minima then maxima.
        array = array.T if array.dtype == np.float32 else array
    elif form == "floats":
        array = _floats(value, where)
        if array.ndim != 1:
            raise ValueError(f"{where} must be one-dimensional, not of shape {array.shape}")
    elif form == "ints":
        array = _ints(value, where)
    elif form == "flag":
        if not isinstance(value, (bool, int, np.integer, np.bool_)):
            raise TypeError(f"{where} must be a bool")
        array = np.array([1 if value else 0], dtype=np.int32)
    else:
        return (tag, _strings(value, where), compound, dimension)
    return (tag, np.ascontiguousarray(array).reshape(-1), compound, dimension)


def attribute_chunk(value, where):
    """The chunk of an attribute value, and its type label."""
    if isinstance(value, str) or (isinstance(value, (list, tuple)) and value
                                  and all(isinstance(v, str) for v in value)):
        return ("ATTR", _strings(value, where), 0, 1), "string"
    array = np.asarray(value)
    if array.dtype not in _NUMBERS:
        raise TypeError(f"{where} must be int32, int64, float32 or float64 (or str), "
                        f"not {array.dtype}")
    if array.ndim == 0:
        array = array.reshape(1)
    if array.ndim == 1:
        dimension = 1
    elif array.ndim == 2 and 1 <= array.shape[1] <= 255:
        dimension = array.shape[1]
    else:
        raise ValueError(f"{where} must have shape (n,) or (n, d), not {array.shape}")
    label = str(array.dtype) if dimension == 1 else f"{array.dtype}[{dimension}]"
    return ("ATTR", np.ascontiguousarray(array).reshape(-1), 0, dimension), label


def describe(path, declaration, where):
    """An object's declaration as the binding takes it: (path, static chunks, static attributes,
    animated attribute declarations). `declaration` is None, a kind name, or a dict with "kind",
    channels, "attributes" (name: value) and "animated_attributes" (names)."""
    if not isinstance(path, str) or not path:
        raise TypeError(f"{where}: an object's path must be a non-empty str, not {path!r}")
    if declaration is None or isinstance(declaration, str):
        declaration = {"kind": declaration}
    if not isinstance(declaration, dict):
        raise TypeError(f"{where} must be a kind name or a dict, not {type(declaration).__name__}")
    declaration = dict(declaration)
    kind = declaration.pop("kind", None)
    chunks = []
    if kind is not None:
        if kind not in KINDS:
            raise ValueError(f"{where}: unknown kind {kind!r}; kinds are {', '.join(KINDS)}")
        if KINDS[kind]:
            chunks.append((KINDS[kind], np.zeros(0, np.int32), 0, 0))
    fixed = []
    for name, value in declaration.pop("attributes", {}).items():
        value_chunk, label = attribute_chunk(value, f"{where}['attributes'][{name!r}]")
        fixed.append((name, label, value_chunk))
    animated = [(name, "", None) for name in declaration.pop("animated_attributes", ())]
    for channel, value in declaration.items():
        chunks.append(chunk(channel, value, f"{where}[{channel!r}]"))
    return (path, chunks, fixed, animated)


def sample_chunks(data, where):
    """The chunks and the animated attribute values {name: chunk} of one object's sample."""
    if not isinstance(data, dict):
        raise TypeError(f"{where} must be a dict of channels, not {type(data).__name__}")
    chunks = []
    values = {}
    for channel, value in data.items():
        if channel == "attributes":
            for name, item in value.items():
                values[name] = attribute_chunk(item, f"{where}['attributes'][{name!r}]")[0]
        else:
            chunks.append(chunk(channel, value, f"{where}[{channel!r}]"))
    return chunks, values
