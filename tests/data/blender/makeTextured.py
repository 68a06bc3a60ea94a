# Made quadrants.png and poster.glb, poster.fbx, poster.dae, poster.obj (with poster.mtl) beside
# this file with Debian's Blender 3.4:
#   blender -b --factory-startup -P makeTextured.py
# A 2 x 2 plane "Poster" standing upright at the origin, facing -Y (Blender's front), whose
# material "Printed" takes its base colour from the 64 x 64 quadrant picture: top-left red,
# top-right green, bottom-left blue, bottom-right grey 128. Exported with the exporters'
# defaults; the FBX file carries the picture inside it.
import os

import bpy

here = os.path.dirname(os.path.abspath(__file__))
bpy.ops.wm.read_factory_settings(use_empty=True)

side = 64
picture = bpy.data.images.new("quadrants", side, side, alpha=False)
grey = 128 / 255
pixels = []
for y in range(side):  # Blender's rows run from the bottom
    for x in range(side):
        top, left = y >= side // 2, x < side // 2
        if top and left:
            pixels += [1, 0, 0, 1]
        elif top:
            pixels += [0, 1, 0, 1]
        elif left:
            pixels += [0, 0, 1, 1]
        else:
            pixels += [grey, grey, grey, 1]
picture.pixels = pixels
picture.filepath_raw = os.path.join(here, "quadrants.png")
picture.file_format = "PNG"
picture.save()

bpy.ops.mesh.primitive_plane_add(size=2, location=(0, 0, 0), rotation=(1.5707963, 0, 0))
plane = bpy.context.active_object
plane.name = "Poster"
material = bpy.data.materials.new("Printed")
material.use_nodes = True
nodes = material.node_tree.nodes
bsdf = nodes["Principled BSDF"]
bsdf.inputs["Roughness"].default_value = 1.0
bsdf.inputs["Specular"].default_value = 0.0
texture = nodes.new("ShaderNodeTexImage")
texture.image = bpy.data.images.load(os.path.join(here, "quadrants.png"))
material.node_tree.links.new(texture.outputs["Color"], bsdf.inputs["Base Color"])
plane.data.materials.append(material)
bpy.ops.export_scene.gltf(filepath=os.path.join(here, "poster.glb"))
bpy.ops.export_scene.fbx(filepath=os.path.join(here, "poster.fbx"), path_mode="COPY",
                         embed_textures=True)
bpy.ops.wm.collada_export(filepath=os.path.join(here, "poster.dae"))
bpy.ops.export_scene.obj(filepath=os.path.join(here, "poster.obj"))
