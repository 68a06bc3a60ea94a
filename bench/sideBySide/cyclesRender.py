# The other side of the raytracer comparison: Blender's Cycles on the CPU renders the scene
# that benchRaytracerScene exported, at the same size, samples and bounces, and prints one line
# of JSON: {"samples": [...], "seconds": [...]}.
#   blender -b --factory-startup -P cyclesRender.py -- SCENE.glb SCENE.json SAMPLES...
# Lights, camera and environment come from the JSON (Assimp's glTF writer has no lights). A
# point light's power in our renderer is the irradiance it gives at one unit of distance; in
# Blender a point light of P watts gives P / (4 pi^2) there, a sun of strength S gives S.
import json
import math
import os
import sys
import time

import bpy
import numpy
from mathutils import Vector

# Debian's Blender 3.4 glTF importer still says numpy.bool, which Debian's numpy 1.24 dropped.
if not hasattr(numpy, "bool") or numpy.bool is not bool:
    numpy.bool = bool

args = sys.argv[sys.argv.index("--") + 1 :]
glb, description = args[0], args[1]
sample_counts = [int(a) for a in args[2:]]
with open(description) as f:
    scene_description = json.load(f)

bpy.ops.wm.read_factory_settings(use_empty=True)
bpy.ops.import_scene.gltf(filepath=glb)
scene = bpy.context.scene


def strength_and_colour(rgb):
    strongest = max(rgb)
    if strongest <= 0:
        return 0.0, (1.0, 1.0, 1.0)
    return strongest, tuple(c / strongest for c in rgb)


def blender(v):
    """Our Y-up coordinates in Blender's Z-up ones, as its glTF importer turns the meshes."""
    return Vector((v[0], -v[2], v[1]))


def aim(obj, direction):
    obj.rotation_mode = "QUATERNION"
    obj.rotation_quaternion = blender(direction).to_track_quat("-Z", "Y")


# The camera: vertical field of view, as ours.
camera = scene_description["camera"]
camera_data = bpy.data.cameras.new("Camera")
camera_data.sensor_fit = "VERTICAL"
camera_data.angle_y = math.radians(camera["fov_y_degrees"])
camera_data.clip_start = camera["near"]
camera_data.clip_end = camera["far"]
camera_object = bpy.data.objects.new("Camera", camera_data)
scene.collection.objects.link(camera_object)
camera_object.location = blender(camera["position"])
aim(camera_object, Vector(camera["target"]) - Vector(camera["position"]))
scene.camera = camera_object

for i, light in enumerate(scene_description["lights"]):
    strength, colour = strength_and_colour(light["power"])
    if light["type"] == "sun":
        data = bpy.data.lights.new(f"Light {i}", type="SUN")
        data.energy = strength
        data.angle = 0.0
    else:
        data = bpy.data.lights.new(f"Light {i}", type="POINT")
        data.energy = strength * 4 * math.pi * math.pi
        data.shadow_soft_size = 0.0
    data.color = colour
    obj = bpy.data.objects.new(f"Light {i}", data)
    scene.collection.objects.link(obj)
    if light["type"] == "sun":
        aim(obj, light["direction"])
    else:
        obj.location = blender(light["position"])

# The environment: the scene's ambient light, seen by rays that escape.
world = bpy.data.worlds.new("Environment")
world.use_nodes = True
background = world.node_tree.nodes["Background"]
strength, colour = strength_and_colour(scene_description["ambient"])
background.inputs["Color"].default_value = (*colour, 1.0)
background.inputs["Strength"].default_value = strength
scene.world = world

# Glow stronger than glTF's emissive factor can say.
for name, rgb in scene_description["emission"].items():
    material = bpy.data.materials.get(name)
    if not material or not material.use_nodes:
        continue
    for node in material.node_tree.nodes:
        if node.type == "BSDF_PRINCIPLED":
            strength, colour = strength_and_colour(rgb)
            node.inputs["Emission"].default_value = (*colour, 1.0)
            node.inputs["Emission Strength"].default_value = strength

render = scene.render
render.engine = "CYCLES"
render.resolution_x = scene_description["width"]
render.resolution_y = scene_description["height"]
render.resolution_percentage = 100
render.threads_mode = "FIXED"
render.threads = os.cpu_count() or 1
render.use_persistent_data = True
cycles = scene.cycles
cycles.device = "CPU"
cycles.use_adaptive_sampling = False
cycles.use_denoising = False
# One bounce after the first surface, as ours; see-through surfaces as deep as ours.
cycles.max_bounces = 1
cycles.diffuse_bounces = 1
cycles.glossy_bounces = 1
cycles.transmission_bounces = 1
cycles.volume_bounces = 0
cycles.transparent_max_bounces = 8
cycles.caustics_reflective = False
cycles.caustics_refractive = False
render.image_settings.file_format = "BMP"
render.filepath = os.path.join(os.path.dirname(os.path.abspath(description)), "cycles.bmp")

seconds = []
for count in sample_counts:
    cycles.samples = count
    start = time.monotonic()
    # Only a render that writes its picture is sure to have rendered every sample.
    bpy.ops.render.render(write_still=True)
    seconds.append(time.monotonic() - start)
print(json.dumps({"samples": sample_counts, "seconds": seconds}))
