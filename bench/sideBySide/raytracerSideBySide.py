#!/usr/bin/env python3
"""Our raytracer side by side with the CPU path tracer a user would pick instead (Blender's
Cycles, from Debian): the built-in scene, exported as glTF, rendered by both at 1920 x 1080
with the same samples and one bounce. Each renderer's time per sample is the difference
between a render of many samples and one of few, so that loading, scene set-up and writing
the picture (which each does its own way) cancel out. Medians of interleaved runs; the ratio
is printed beside its goal.

    raytracerSideBySide.py --build DIR [--runs 3] [--samples 4,16] [--out FILE]
"""
import argparse
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))


def last_json_line(text):
    for line in reversed(text.splitlines()):
        line = line.strip()
        if line.startswith("{"):
            return json.loads(line)
    raise RuntimeError(f"no result in:\n{text[-2000:]}")


def run(command):
    done = subprocess.run(command, capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(command)} failed ({done.returncode}):\n{done.stderr[-2000:]}")
    return last_json_line(done.stdout)


def per_sample(samples, seconds):
    (few, many), (t_few, t_many) = samples, seconds
    return (t_many - t_few) / (many - few)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--samples", default="4,16", help="few,many")
    parser.add_argument("--out", help="also append the table here (Markdown)")
    args = parser.parse_args()
    few, many = (int(s) for s in args.samples.split(","))
    ours = os.path.join(args.build, "bench", "benchRaytracerScene")
    blender = shutil.which("blender")
    if not blender:
        sys.exit("raytracerSideBySide: blender is missing (scripts/bootstrap --bench installs it)")

    lines = []

    def say(line=""):
        print(line, flush=True)
        lines.append(line)

    with tempfile.TemporaryDirectory(prefix="ka-raytracer-") as folder:
        glb, description = os.path.join(folder, "scene.glb"), os.path.join(folder, "scene.json")
        subprocess.run([ours, "export", glb, description], check=True, capture_output=True)
        cycles = [blender, "-b", "--factory-startup", "-P", os.path.join(HERE, "cyclesRender.py"),
                  "--", glb, description]
        our_seconds, our_rays, cycles_seconds = [], [], []
        for _ in range(args.runs):
            result = run([ours, "render", str(few), str(many)])
            our_seconds.append(per_sample(result["samples"], result["seconds"]))
            our_rays.append((result["rays"][1] - result["rays"][0]) / (many - few))
            # A fresh Blender for each count: a second render in one Blender may reuse the first.
            t_few = run(cycles + [str(few)])["seconds"][0]
            t_many = run(cycles + [str(many)])["seconds"][0]
            cycles_seconds.append(per_sample((few, many), (t_few, t_many)))

    ours_s = statistics.median(our_seconds)
    cycles_s = statistics.median(cycles_seconds)
    rays = statistics.median(our_rays)
    say(f"## Raytracer: built-in scene, 1920 x 1080, one bounce, {os.cpu_count()} cores "
        f"(medians of {args.runs} interleaved runs; time per sample from {few} and {many} samples)")
    say()
    say("| renderer | seconds per sample | samples per second | rays per sample |")
    say("|---|---|---|---|")
    say(f"| ours (Embree) | {ours_s:.3f} | {1 / ours_s:.3f} | {rays / 1e6:.1f} M |")
    say(f"| Cycles (Blender, CPU) | {cycles_s:.3f} | {1 / cycles_s:.3f} | not reported |")
    say()
    say(f"ours / Cycles, samples per second: {cycles_s / ours_s:.2f} (goal >= 1.00)")
    say(f"our rays per second: {rays / ours_s / 1e6:.1f} M")
    if args.out:
        with open(args.out, "a", encoding="utf-8") as f:
            f.write("\n" + "\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
