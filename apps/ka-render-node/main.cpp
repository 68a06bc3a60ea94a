// ka-render-node: one render node of the raytracing cluster, spawned by the master's cluster
// service. It renders its share of every sample and sends the pixels back.
#include "kaHeap.h"
#include "kaRenderNode.h"

int main(int argc, char** argv) {
    kaHeap::keepFreedMemoryForReuse();
    return kaRenderNodeMain(argc, argv);
}
