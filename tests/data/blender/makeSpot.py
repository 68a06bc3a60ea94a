# Made spot.glb, spot.fbx and spot.dae beside this file with Debian's Blender 3.4:
#   blender -b --factory-startup -P makeSpot.py
# A white floor of 20 x 20 lit only by a spot light "Spot" of 1000 W at (0, 0, 4) (Blender's Z
# up) shining straight down, its cone 60 degrees across (30 from the axis) with a blend of
# 0.25: the floor is lit within 2.31 m of the middle and dark beyond. Exported with the
# exporters' defaults (lights included).
import math
import os

import bpy

here = os.path.dirname(os.path.abspath(__file__))
bpy.ops.wm.read_factory_settings(use_empty=True)
scene = bpy.context.scene
bpy.ops.mesh.primitive_plane_add(size=20)
bpy.context.active_object.name = "Floor"
light = bpy.data.lights.new("SpotData", "SPOT")
light.energy = 1000
light.spot_size = math.radians(60)
light.spot_blend = 0.25
spot = bpy.data.objects.new("Spot", light)
scene.collection.objects.link(spot)
spot.location = (0, 0, 4)
bpy.ops.export_scene.gltf(filepath=os.path.join(here, "spot.glb"), export_lights=True)
bpy.ops.export_scene.fbx(filepath=os.path.join(here, "spot.fbx"))
bpy.ops.wm.collada_export(filepath=os.path.join(here, "spot.dae"))
