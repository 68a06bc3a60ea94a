#!/usr/bin/env python3
"""Our snapshot export side by side with the snapshot a VTK user would make and with the raw
OpenGL floor, on the same one-million-triangle mesh, each tool a fresh process; then the fast
capture rate and the export's time per megapixel. Every number is a median of interleaved runs
measured here and now; every ratio is printed beside its goal.

    sideBySide.py --build DIR [--runs 3] [--sizes 4096,8192,16384] [--large] [--out FILE]
"""
import argparse
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
SYSTEM_PYTHON = "/usr/bin/python3"  # Debian's, which has Debian's VTK


def timed_child(command, env=None):
    """Runs 'command' to its end; returns (seconds, peak RSS bytes, stdout, stderr)."""
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        start = time.perf_counter()
        pid = os.fork()
        if pid == 0:
            os.dup2(out.fileno(), 1)
            os.dup2(err.fileno(), 2)
            try:
                os.execvpe(command[0], command, env or os.environ)
            finally:
                os._exit(127)
        _, status, usage = os.wait4(pid, 0)
        seconds = time.perf_counter() - start
        out.seek(0)
        err.seek(0)
        stdout = out.read().decode(errors="replace")
        stderr = err.read().decode(errors="replace")
    code = os.waitstatus_to_exitcode(status)
    if code != 0:
        raise RuntimeError(f"{' '.join(command)} failed ({code}):\n{stderr[-2000:]}")
    return seconds, usage.ru_maxrss * 1024, stdout, stderr


def number_after(pattern, text):
    found = re.search(pattern, text)
    if not found:
        raise RuntimeError(f"no '{pattern}' in:\n{text[-2000:]}")
    return float(found.group(1))


class Xvfb:
    """One X server for every VTK run, so that its start is not in VTK's time."""

    def __init__(self):
        self.process = None
        self.display = None

    def __enter__(self):
        if not shutil.which("Xvfb"):
            return self
        for number in range(90, 140):
            if not os.path.exists(f"/tmp/.X11-unix/X{number}"):
                break
        self.process = subprocess.Popen(
            ["Xvfb", f":{number}", "-screen", "0", "1280x1024x24", "-nolisten", "tcp"],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        for _ in range(100):
            if os.path.exists(f"/tmp/.X11-unix/X{number}"):
                self.display = f":{number}"
                break
            time.sleep(0.05)
        return self

    def __exit__(self, *exc):
        if self.process:
            self.process.terminate()
            self.process.wait()


def vtk_available():
    return os.path.exists(SYSTEM_PYTHON) and subprocess.run(
        [SYSTEM_PYTHON, "-c", "import vtk"], capture_output=True).returncode == 0


def median(values):
    return statistics.median(values) if values else float("nan")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--sizes", default="4096,8192,16384")
    parser.add_argument("--large", action="store_true", help="add 32768 x 32768 (ours, floor)")
    parser.add_argument("--out", help="also write the tables here (Markdown)")
    args = parser.parse_args()

    build = os.path.abspath(args.build)
    kaexport = os.path.join(build, "apps/kaexport/kaexport")
    floor = os.path.join(build, "bench/benchGLFloor")
    data = os.path.join(build, "bench-data")
    os.makedirs(data, exist_ok=True)
    mesh = os.path.join(data, "mesh.ply")
    if not os.path.exists(mesh):
        subprocess.run([sys.executable, os.path.join(HERE, "makeMesh.py"), mesh], check=True)
    scratch = tempfile.mkdtemp(prefix="ka-bench-")
    env = dict(os.environ, QT_QPA_PLATFORM="offscreen")
    sizes = [int(s) for s in args.sizes.split(",")]
    if args.large:
        sizes.append(32768)
    has_vtk = vtk_available()
    lines = []

    def say(line=""):
        print(line, flush=True)
        lines.append(line)

    say(f"Side by side: a {os.path.getsize(mesh) / 1e6:.0f} MB PLY of 1 000 000 triangles to a "
        f"PNG, medians of {args.runs} interleaved runs, {os.cpu_count()} cores")
    say()
    # The memory an export adds at its peak (kaexport measures it from its start, after the
    # scene is loaded) holds the picture and what the OpenGL driver keeps for drawing the scene
    # at all: its threads' bins, compiled shaders and the uploaded mesh. The second is measured
    # alone by a 1024² export, where the picture is 3 MB.
    renderer_mb = median([
        number_after(r"memory at most \+([0-9.]+) MB", timed_child(
            [kaexport, "--scene", mesh, "snapshot", os.path.join(scratch, "small.png"), "--width",
             "1024", "--height", "1024", "--ss", "0", "--force"], env)[2])
        for _ in range(args.runs)])
    say(f"The OpenGL renderer's own memory for this scene (a 1024² export's growth): "
        f"{renderer_mb:.0f} MB")
    say()
    say("| size | ours whole s | ours render s | GL floor s | VTK whole s | VTK render s "
        "| ours/VTK whole (goal ≤ 0.50) | ours render/floor (goal ≤ 1.10) "
        "| export's memory MB / picture MB | beyond the renderer, per picture MB (goal ≤ 1.15) "
        "| whole-process peak MB |")
    say("|---|---|---|---|---|---|---|---|---|---|---|")
    per_megapixel = {}
    with Xvfb() as x:
        vtk_env = dict(os.environ, DISPLAY=x.display) if x.display else None
        for size in sizes:
            ours, render, peaks, grown, floors, vtks, vtk_renders = [], [], [], [], [], [], []
            out = os.path.join(scratch, f"ours{size}.png")
            for _ in range(args.runs if size < 32768 else 1):
                seconds, peak, stdout, _ = timed_child(
                    [kaexport, "--scene", mesh, "snapshot", out, "--width", str(size), "--height",
                     str(size), "--ss", "0", "--force"], env)
                ours.append(seconds)
                peaks.append(peak)
                render.append(number_after(r"Render ([0-9.]+) s", stdout))
                grown.append(number_after(r"memory at most \+([0-9.]+) MB", stdout))
                _, _, stdout, _ = timed_child([floor, mesh, str(size)], env)
                floors.append(number_after(r"render_s ([0-9.]+)", stdout))
                if has_vtk and vtk_env and size <= 16384:
                    seconds, _, stdout, _ = timed_child(
                        [SYSTEM_PYTHON, os.path.join(HERE, "vtkSnapshot.py"), mesh, str(size),
                         os.path.join(scratch, f"vtk{size}.png")], vtk_env)
                    vtks.append(seconds)
                    vtk_renders.append(number_after(r"render_s ([0-9.]+)", stdout))
            picture_mb = size * size * 3 / 1048576
            per_megapixel[size] = median(ours) / (size * size / 1e6)
            vtk_ratio = f"{median(ours) / median(vtks):.2f}" if vtks else "—"
            say(f"| {size}² | {median(ours):.2f} | {median(render):.2f} | {median(floors):.2f} | "
                f"{median(vtks):.2f} | {median(vtk_renders):.2f} | {vtk_ratio} | "
                f"{median(render) / median(floors):.2f} | "
                f"{median(grown):.0f} / {picture_mb:.0f} | "
                f"{max(median(grown) - renderer_mb, 0.0) / picture_mb:.2f} | "
                f"{median(peaks) / 1048576:.0f} |".replace("nan", "—"))

    say()
    say("Export time per megapixel (whole process, the same mesh)")
    say()
    say("| size | s per megapixel |")
    say("|---|---|")
    for size in [1024, 2048]:
        times = [timed_child([kaexport, "--scene", mesh, "snapshot",
                              os.path.join(scratch, "small.png"), "--width", str(size),
                              "--height", str(size), "--ss", "0", "--force"], env)[0]
                 for _ in range(args.runs)]
        per_megapixel[size] = median(times) / (size * size / 1e6)
    for size in sorted(per_megapixel):
        say(f"| {size}² | {per_megapixel[size]:.3f} |")

    say()
    say("Fast capture of the built-in scene (goal ≥ 30 per second at 1280 × 720)")
    say()
    say("| size | to files, per s | to standard output, per s |")
    say("|---|---|---|")
    for width, height in [(1280, 720), (1920, 1080)]:
        rates = []
        for target in [os.path.join(scratch, "fast.png"), "-"]:
            values = []
            for _ in range(args.runs):
                _, _, _, stderr = timed_child(
                    [kaexport, "fast", target, "--count", "90", "--width", str(width), "--height",
                     str(height), "--force"] if target != "-" else
                    [kaexport, "fast", "-", "--count", "90", "--width", str(width), "--height",
                     str(height)], env)
                values.append(number_after(r"\(([0-9.]+) per second\)", stderr))
            rates.append(median(values))
        say(f"| {width} × {height} | {rates[0]:.1f} | {rates[1]:.1f} |")

    shutil.rmtree(scratch, ignore_errors=True)
    if args.out:
        with open(args.out, "w", encoding="utf-8") as f:
            f.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
