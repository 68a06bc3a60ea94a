# Made ortho.dae, ortho.fbx and ortho.glb beside this file with Debian's Blender 3.4:
#   blender -b --factory-startup -P makeOrtho.py
# A red cube of side 1 at the origin seen straight from above (Blender's Z up) by an orthographic
# camera "Plan" at (0, 0, 10) of scale 4 fitted horizontally, for 320 x 240 pictures: the
# picture shows 4 x 3 units, so the cube's top is 80 x 80 pixels in the middle. Exported with
# the exporters' defaults (cameras included).
import os

import bpy

here = os.path.dirname(os.path.abspath(__file__))
bpy.ops.wm.read_factory_settings(use_empty=True)
scene = bpy.context.scene
bpy.ops.mesh.primitive_cube_add(size=1, location=(0, 0, 0))
block = bpy.context.active_object
block.name = "Block"
material = bpy.data.materials.new("Red")
material.use_nodes = True
material.node_tree.nodes["Principled BSDF"].inputs["Base Color"].default_value = (0.9, 0.05, 0.05, 1)
block.data.materials.append(material)
lens = bpy.data.cameras.new("PlanData")
lens.type = "ORTHO"
lens.ortho_scale = 4.0
lens.sensor_fit = "HORIZONTAL"
camera = bpy.data.objects.new("Plan", lens)
scene.collection.objects.link(camera)
camera.location = (0, 0, 10)
scene.camera = camera
scene.render.resolution_x = 320
scene.render.resolution_y = 240
bpy.ops.wm.collada_export(filepath=os.path.join(here, "ortho.dae"))
bpy.ops.export_scene.fbx(filepath=os.path.join(here, "ortho.fbx"))
bpy.ops.export_scene.gltf(filepath=os.path.join(here, "ortho.glb"), export_cameras=True)
