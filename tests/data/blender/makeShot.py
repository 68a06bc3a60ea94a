# Made the files beside this one with Debian's Blender 3.4:
#   blender -b --factory-startup -P makeShot.py
# A red cube of side 1 at the origin, and a camera "Shot" at (4, -6, 3) (Blender's Z up) that
# looks at it through a 50 mm lens on a 36 mm wide sensor, for 640 x 480 pictures: a horizontal
# field of view of 0.6911 rad. Exported as FBX, COLLADA and glTF with the exporters' defaults
# (cameras included).
import bpy
from mathutils import Vector

bpy.ops.wm.read_factory_settings(use_empty=True)
scene = bpy.context.scene
bpy.ops.mesh.primitive_cube_add(size=1, location=(0, 0, 0))
cube = bpy.context.active_object
cube.name = "RedCube"
material = bpy.data.materials.new("Red")
material.use_nodes = True
material.node_tree.nodes["Principled BSDF"].inputs["Base Color"].default_value = (0.9, 0.05, 0.05, 1)
cube.data.materials.append(material)
lens = bpy.data.cameras.new("CamData")
lens.lens = 50
lens.sensor_width = 36
lens.sensor_fit = "HORIZONTAL"
camera = bpy.data.objects.new("Shot", lens)
scene.collection.objects.link(camera)
camera.location = (4, -6, 3)
camera.rotation_euler = (Vector((0, 0, 0)) - camera.location).to_track_quat("-Z", "Y").to_euler()
scene.camera = camera
scene.render.resolution_x = 640
scene.render.resolution_y = 480
bpy.ops.export_scene.fbx(filepath="shot.fbx")
bpy.ops.wm.collada_export(filepath="shot.dae")
bpy.ops.export_scene.gltf(filepath="shot.glb", export_cameras=True)
