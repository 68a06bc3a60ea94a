#pragma once

#include <cstddef>

namespace kaHeap {
// Renders allocate and free the same buffers over and over (the software GL's vertex and
// tile buffers, pictures' rows, a raytracer's per-row scratch). The C library's default hands
// blocks of a few hundred kilobytes and more back to the system as soon as they are freed,
// so every render pays the page faults of fresh memory again. Programs call this once at
// start: blocks below kMappedFrom come from the heap and freed memory is kept up to
// kKeptAtTop, to be used again. Pictures, far larger, are still given back when freed.
constexpr size_t kMappedFrom = size_t(32) << 20;
constexpr size_t kKeptAtTop = size_t(256) << 20;
// False when the C library refused a setting.
bool keepFreedMemoryForReuse();
} // namespace kaHeap
