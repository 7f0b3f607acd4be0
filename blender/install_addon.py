"""Installs the add-on io_scene_kyn into the Blender that runs this script, for its user, and
enables it. kyn blender-install runs it as

    blender -b --python-exit-code 1 --python install_addon.py -- ADDON_DIR

ADDON_DIR is the add-on to install (with its kyn_package.txt). The copy goes into the user's
add-ons directory, with kyn_package.txt made absolute so that the copy finds the kyn package
where the original did; then the add-on is enabled and the preferences saved."""

import os
import shutil
import sys

import addon_utils
import bpy

NAME = "io_scene_kyn"


def fail(message):
    print(f"kyn blender-install: {message}", file=sys.stderr)
    sys.exit(1)


def main():
    source = os.path.abspath(sys.argv[sys.argv.index("--") + 1])
    sys.path.insert(0, source)
    import package  # the add-on's own finder, before the add-on is installed

    package_dir = package.recorded_directory(source)
    if package_dir is None or not os.path.isfile(os.path.join(package_dir, "kyn", "__init__.py")):
        fail(f"the kyn Python package is not where {source}/{package.RECORD} says "
             f"({package_dir}); build or install it again")
    addons = bpy.utils.user_resource('SCRIPTS', path="addons", create=True)
    target = os.path.join(addons, NAME)
    addon_utils.disable(NAME)
    shutil.rmtree(target, ignore_errors=True)
    shutil.copytree(source, target, ignore=shutil.ignore_patterns("__pycache__"))
    with open(os.path.join(target, package.RECORD), "w", encoding="utf-8") as f:
        f.write(package_dir + "\n")
    bpy.utils.refresh_script_paths()  # the add-ons directory may be new
    addon_utils.modules_refresh()
    addon = addon_utils.enable(NAME, default_set=True, handle_error=lambda error: fail(error))
    if addon is None:
        fail(f"Blender could not enable {target}")
    try:
        addon.package.kyn()
    except ImportError as error:
        fail(str(error))
    bpy.ops.wm.save_userpref()
    print(f"kyn blender-install: {NAME} is in {target} and enabled, on the kyn package in "
          f"{package_dir}", file=sys.stderr)


main()
