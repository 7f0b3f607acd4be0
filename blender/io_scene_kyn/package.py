"""Finds the kyn Python package: on sys.path (PYTHONPATH) first, otherwise in the directory
that the file kyn_package.txt beside this add-on names, absolute or relative to the add-on.
kyn blender-install writes that file; the build tree and an installed prefix carry one."""

import importlib
import os
import sys

RECORD = "kyn_package.txt"


class MissingPackage(ImportError):
    pass


def recorded_directory(addon_dir):
    """The directory that the add-on's record names, absolute; None without a record."""
    record = os.path.join(addon_dir, RECORD)
    if not os.path.isfile(record):
        return None
    with open(record, encoding="utf-8") as f:
        where = f.read().strip()
    return os.path.normpath(os.path.join(addon_dir, where)) if where else None


def kyn():
    """The kyn module. Raises MissingPackage, saying what to do, when it cannot be found."""
    try:
        return importlib.import_module("kyn")
    except ImportError as error:
        first_error = error
    where = recorded_directory(os.path.dirname(os.path.abspath(__file__)))
    if where is not None and where not in sys.path:
        sys.path.append(where)
        try:
            return importlib.import_module("kyn")
        except ImportError as error:
            first_error = error
    raise MissingPackage(
        f"the kyn Python package cannot be imported ({first_error}); run 'kyn blender-install' "
        "again, or put the directory that holds the package on PYTHONPATH")
