#pragma once

// One zlib stream (RFC 1950) compressed on every core. The input is cut into slices; each slice
// is deflated on its own on a pool thread (raw deflate, primed with the 32 KB of input before
// it, ended by a full flush so that it ends on a byte boundary, the last one by the end of the
// stream), and the slices are joined in order between the zlib header and the Adler-32 of the
// whole input, combined from the slices' own. Any zlib decoder reads the result as one stream.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace osg::png {

// Copies 'count' bytes of the input, from 'offset' on, to 'out'. Called from pool threads,
// several at once, for overlapping ranges: it must only read shared state.
using InputReader = std::function<void(size_t offset, size_t count, uint8_t* out)>;
// Takes the next piece of the stream, in order, on the calling thread. False stops the
// compression: the output has failed and the rest would go nowhere.
using StreamWriter = std::function<bool(const uint8_t* data, size_t size)>;

// How the input is cut: slices of at least 'minimumSlice' bytes (smaller inputs are one slice),
// one per pool thread where the input allows it, of at most 'maximumSlice' bytes (larger inputs
// get more slices). A slice costs a few bytes of stream and the zlib set-up; the limit bounds
// the memory of the slices in flight.
struct DeflateSlicing {
    size_t minimumSlice = size_t(128) << 10;
    size_t maximumSlice = size_t(4) << 20;
};

// The slice length for 'total' bytes on 'threads' threads.
size_t sliceLengthFor(size_t total, int threads, const DeflateSlicing& slicing);

// Threads that compress slices: one per hardware thread, shared by every caller. Safe from any
// thread.
int deflateThreads();

// Compresses the 'total' bytes that 'read' gives at zlib 'level' (0..9) into one zlib stream
// handed to 'write' piece by piece. Blocks until done; at most about two slices per thread are
// in memory at a time. Returns false when 'write' did (with 'error' empty) or zlib failed (with
// 'error' saying why). Safe from any thread except the pool's own.
bool deflateInParallel(size_t total, const InputReader& read, int level, const StreamWriter& write,
                       std::string& error, const DeflateSlicing& slicing = DeflateSlicing());

} // namespace osg::png
