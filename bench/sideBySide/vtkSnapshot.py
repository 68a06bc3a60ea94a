#!/usr/bin/env python3
"""The snapshot a VTK user would make of a mesh: a 1024 x 1024 render window magnified by
vtkWindowToImageFilter's scale factor into a SIZE x SIZE picture, written by vtkPNGWriter.
Prints "render_s" (the magnified render) and "write_s" (the PNG file); run it whole to time
loading too.

    vtkSnapshot.py MESH SIZE OUT.png
"""
import sys
import time

import vtk


def main():
    mesh, size, out = sys.argv[1], int(sys.argv[2]), sys.argv[3]
    window_size = 1024
    reader = vtk.vtkPLYReader()
    reader.SetFileName(mesh)
    normals = vtk.vtkPolyDataNormals()
    normals.SetInputConnection(reader.GetOutputPort())
    mapper = vtk.vtkPolyDataMapper()
    mapper.SetInputConnection(normals.GetOutputPort())
    actor = vtk.vtkActor()
    actor.SetMapper(mapper)
    renderer = vtk.vtkRenderer()
    renderer.AddActor(actor)
    renderer.SetBackground(0.2, 0.2, 0.25)
    window = vtk.vtkRenderWindow()
    window.SetOffScreenRendering(1)
    window.AddRenderer(renderer)
    window.SetSize(window_size, window_size)
    renderer.ResetCamera()
    window.Render()

    start = time.perf_counter()
    grab = vtk.vtkWindowToImageFilter()
    grab.SetInput(window)
    grab.SetScale(size // window_size, size // window_size)
    grab.SetInputBufferTypeToRGB()
    grab.ReadFrontBufferOff()
    grab.Update()
    rendered = time.perf_counter()
    writer = vtk.vtkPNGWriter()
    writer.SetFileName(out)
    writer.SetInputConnection(grab.GetOutputPort())
    writer.Write()
    written = time.perf_counter()
    print(f"render_s {rendered - start:.4f}")
    print(f"write_s {written - rendered:.4f}")


if __name__ == "__main__":
    main()
