#pragma once

// The render node's life: greets the master that spawned it, keeps its copy of the master's
// scene, raytraces its rows of every sample it is sent, answers with the pixels asked for,
// and leaves when told to. Returns the program's exit code (2 when not spawned by a master).
int kaRenderNodeMain(int argc, char** argv);
