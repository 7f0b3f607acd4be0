"""Blender add-on: imports kyn cache files (File > Import > kyn cache) and plays them back.

The object tree comes in under one empty named after the file; meshes carry the faces, normals
and texture coordinates (a float attribute "uv") of the first sample; transforms, deforming
meshes and NURBS play back at every frame, either all through the kyn package (live) or with
the meshes on a Mesh Cache modifier reading a PC2 file that the import writes beside the cache.
See the README of libkyn."""

bl_info = {
    "name": "kyn cache format",
    "author": "libkyn",
    "version": (1, 0, 0),
    "blender": (3, 4, 0),
    "location": "File > Import > kyn cache (.kyn)",
    "description": "Import animated scene caches (.kyn) and play them back",
    "category": "Import-Export",
}

import bpy
from bpy.props import (BoolProperty, EnumProperty, FloatProperty, IntProperty, PointerProperty,
                       StringProperty)
from bpy_extras.io_utils import ImportHelper

from . import build, package, playback

ORDERS = [('0', "Hold", "The value of the sample before"),
          ('1', "Linear", "Blended from the two samples around the frame"),
          ('2', "Quadratic", "Through three samples"),
          ('3', "Cubic", "Through four samples")]


class KynObjectSettings(bpy.types.PropertyGroup):
    """What an imported object plays back, saved with the .blend."""
    file: StringProperty(name="Cache", subtype='FILE_PATH', description="The cache file")
    path: StringProperty(name="Path", description="The object's path in the cache")
    play: EnumProperty(
        name="Plays", default='NONE',
        items=[('NONE', "Nothing", "Static, or played by a modifier"),
               ('TRANSFORM', "Transform", "Its parent inverse matrix, at every frame"),
               ('POSITIONS', "Positions", "Its vertex positions, at every frame"),
               ('CONTROL_POINTS', "Control points", "Its NURBS control points, at every frame")])
    order: IntProperty(name="Interpolation order", min=0, max=3, default=1,
                       description="0 hold, 1 linear, 2 quadratic, 3 cubic between samples")


class IMPORT_SCENE_OT_kyn(bpy.types.Operator, ImportHelper):
    """Import a kyn cache file and play it back"""
    bl_idname = "import_scene.kyn"
    bl_label = "Import kyn cache"
    bl_options = {'REGISTER', 'UNDO', 'PRESET'}

    filename_ext = ".kyn"
    filter_glob: StringProperty(default="*.kyn", options={'HIDDEN'})
    scale: FloatProperty(name="Scale", default=1.0, min=1e-6, max=1e6, soft_min=0.001,
                         soft_max=1000.0, description="Scale of the whole cache")
    up_axis: EnumProperty(name="Up axis", default='Y',
                          items=[('Y', "Y up", "The cache's Y axis becomes Blender's Z"),
                                 ('Z', "Z up", "The cache's axes as they are")])
    paths: StringProperty(name="Paths", default="",
                          description="Only the objects at and under these paths (with the "
                          "objects above them), separated by spaces; all when empty")
    playback: EnumProperty(
        name="Playback", default='LIVE',
        items=[('LIVE', "Live",
                "Deforming meshes read the cache at every frame through the kyn package; "
                "no other file"),
               ('MESH_CACHE', "Mesh Cache modifier",
                "Deforming meshes play a PC2 file written beside the cache, with no Python "
                "per frame; it plays without the add-on too")])
    order: EnumProperty(name="Interpolation", items=ORDERS, default='1',
                        description="How values between samples are evaluated")

    def execute(self, context):
        if context.mode != 'OBJECT' and bpy.ops.object.mode_set.poll():
            bpy.ops.object.mode_set(mode='OBJECT')
        options = build.Options(scale=self.scale, up_axis=self.up_axis,
                                paths=self.paths.split(), playback=self.playback,
                                order=int(self.order))
        try:
            result = build.import_cache(context, self.filepath, options)
        except (OSError, ValueError, package.MissingPackage) as error:
            # The file once, then what went wrong with it.
            message = str(error)
            if isinstance(error, OSError) and error.strerror:
                message = error.strerror
            if self.filepath not in message:
                message = f"{self.filepath}: {message}"
            self.report({'ERROR'}, message)
            return {'CANCELLED'}
        for note in result.notes:
            self.report({'WARNING'}, note)
        self.report({'INFO'}, f"imported {len(result.objects)} objects of {self.filepath}")
        return {'FINISHED'}


def _menu_import(self, context):
    self.layout.operator(IMPORT_SCENE_OT_kyn.bl_idname, text="kyn cache (.kyn)")


_classes = (KynObjectSettings, IMPORT_SCENE_OT_kyn)


def register():
    for cls in _classes:
        bpy.utils.register_class(cls)
    bpy.types.Object.kyn = PointerProperty(type=KynObjectSettings)
    bpy.types.Scene.kyn_plays = BoolProperty(
        name="Plays a kyn cache", options={'HIDDEN'},
        description="Objects of this scene play a cache at every frame")
    bpy.types.TOPBAR_MT_file_import.append(_menu_import)
    playback.register()


def unregister():
    playback.unregister()
    bpy.types.TOPBAR_MT_file_import.remove(_menu_import)
    del bpy.types.Scene.kyn_plays
    del bpy.types.Object.kyn
    for cls in reversed(_classes):
        bpy.utils.unregister_class(cls)
