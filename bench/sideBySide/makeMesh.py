#!/usr/bin/env python3
"""Writes a binary PLY of a bumpy sphere with about N triangles (default one million), the mesh
the side-by-side benchmarks draw: every tool loads the same file."""
import math
import struct
import sys


def main():
    path = sys.argv[1]
    triangles = int(sys.argv[2]) if len(sys.argv) > 2 else 1_000_000
    # A latitude-longitude grid of rings x segments quads, two triangles each.
    segments = int(math.sqrt(triangles))
    rings = max(2, triangles // (2 * segments))
    vertices = bytearray()
    for r in range(rings + 1):
        theta = math.pi * r / rings
        for s in range(segments):
            phi = 2.0 * math.pi * s / segments
            # Bumps so that shading varies across the picture.
            radius = 1.0 + 0.05 * math.sin(7 * theta) * math.sin(9 * phi)
            x = radius * math.sin(theta) * math.cos(phi)
            y = radius * math.cos(theta)
            z = radius * math.sin(theta) * math.sin(phi)
            vertices += struct.pack("<3f", x, y, z)
    faces = bytearray()
    for r in range(rings):
        a0, b0 = r * segments, (r + 1) * segments
        for s in range(segments):
            t = (s + 1) % segments
            faces += struct.pack("<B3i", 3, a0 + s, b0 + s, b0 + t)
            faces += struct.pack("<B3i", 3, a0 + s, b0 + t, a0 + t)
    header = (
        "ply\nformat binary_little_endian 1.0\n"
        f"element vertex {(rings + 1) * segments}\n"
        "property float x\nproperty float y\nproperty float z\n"
        f"element face {2 * rings * segments}\n"
        "property list uchar int vertex_indices\nend_header\n"
    )
    with open(path, "wb") as out:
        out.write(header.encode("ascii"))
        out.write(vertices)
        out.write(faces)


if __name__ == "__main__":
    main()
