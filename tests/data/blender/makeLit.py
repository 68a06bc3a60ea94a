# Made lit.glb, lit.fbx, lit.dae and Cycles' own render of the scene, lit-cycles.exr, beside
# this file with Debian's Blender 3.4:
#   blender -b --factory-startup -P makeLit.py
# A grey floor of 40 x 40 and a red cube of side 1 on it, both fully rough without specular, lit
# by a point light of 500 W at (1.5, -1, 3) and a sun of strength 1 (Blender's Z up); a camera
# "Shot" at (3, -4, 4) looks at (0, 0, 0.3) through a 50 mm lens on a 36 mm wide sensor. Cycles
# renders 160 x 120 with one bounce, 256 samples, no denoising and the Standard view transform,
# into linear half-float EXR. Each file is exported with its exporter's defaults (lights and
# cameras included).
import math
import os

import bpy
from mathutils import Vector

here = os.path.dirname(os.path.abspath(__file__))

bpy.ops.wm.read_factory_settings(use_empty=True)
scene = bpy.context.scene
bpy.ops.mesh.primitive_plane_add(size=40, location=(0, 0, 0))
floor = bpy.context.active_object
floor.name = "Floor"
grey = bpy.data.materials.new("Grey")
grey.use_nodes = True
bsdf = grey.node_tree.nodes["Principled BSDF"]
bsdf.inputs["Base Color"].default_value = (0.6, 0.6, 0.6, 1)
bsdf.inputs["Roughness"].default_value = 1.0
bsdf.inputs["Specular"].default_value = 0.0
floor.data.materials.append(grey)
bpy.ops.mesh.primitive_cube_add(size=1, location=(0, 0, 0.5))
cube = bpy.context.active_object
cube.name = "Box"
red = bpy.data.materials.new("Red")
red.use_nodes = True
rb = red.node_tree.nodes["Principled BSDF"]
rb.inputs["Base Color"].default_value = (0.8, 0.1, 0.1, 1)
rb.inputs["Roughness"].default_value = 1.0
rb.inputs["Specular"].default_value = 0.0
cube.data.materials.append(red)
bulbData = bpy.data.lights.new("BulbData", "POINT")
bulbData.energy = 500
bulbData.shadow_soft_size = 0
bulb = bpy.data.objects.new("Bulb", bulbData)
scene.collection.objects.link(bulb)
bulb.location = (1.5, -1.0, 3.0)
sunData = bpy.data.lights.new("SunData", "SUN")
sunData.energy = 1.0
sunData.angle = 0
sun = bpy.data.objects.new("Sun", sunData)
scene.collection.objects.link(sun)
sun.rotation_euler = (math.radians(30), 0, math.radians(20))
lens = bpy.data.cameras.new("CamData")
lens.lens = 50
lens.sensor_width = 36
lens.sensor_fit = "HORIZONTAL"
camera = bpy.data.objects.new("Shot", lens)
scene.collection.objects.link(camera)
camera.location = (3, -4, 4)
camera.rotation_euler = (Vector((0, 0, 0.3)) - camera.location).to_track_quat("-Z", "Y").to_euler()
scene.camera = camera
scene.render.resolution_x = 160
scene.render.resolution_y = 120
scene.render.resolution_percentage = 100
scene.render.engine = "CYCLES"
scene.cycles.samples = 256
scene.cycles.use_denoising = False
scene.cycles.max_bounces = 1
scene.cycles.diffuse_bounces = 1
scene.view_settings.view_transform = "Standard"
scene.render.image_settings.file_format = "OPEN_EXR"
scene.render.image_settings.color_depth = "16"
scene.render.image_settings.color_mode = "RGB"
scene.render.image_settings.exr_codec = "ZIP"
scene.render.filepath = os.path.join(here, "lit-cycles.exr")
bpy.ops.export_scene.gltf(filepath=os.path.join(here, "lit.glb"), export_lights=True,
                          export_cameras=True)
bpy.ops.export_scene.fbx(filepath=os.path.join(here, "lit.fbx"))
bpy.ops.wm.collada_export(filepath=os.path.join(here, "lit.dae"))
bpy.ops.render.render(write_still=True)
