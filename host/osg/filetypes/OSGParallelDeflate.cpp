#include "OSGParallelDeflate_p.h"

#include "kaThreadPool.h"

#include <zlib.h>

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

namespace osg::png {

namespace {

// Deflate looks back at most this far: a slice primed with this much of the input before it
// finds every match a single stream would have found, so slicing costs almost nothing.
constexpr size_t kWindow = size_t(1) << 15;

kaThreadPool& pool() {
    static kaThreadPool threads(-1);
    return threads;
}

// The two bytes a zlib stream starts with: deflate with a 32 KB window, no preset dictionary,
// and the level hint zlib itself writes for 'level' (readers ignore it; tools show it).
void zlibHeader(int level, uint8_t header[2]) {
    const unsigned hint = level < 2 ? 0u : level < 6 ? 1u : level == 6 ? 2u : 3u;
    unsigned value = (0x78u << 8) | (hint << 6);
    value += 31u - value % 31u;
    header[0] = uint8_t(value >> 8);
    header[1] = uint8_t(value);
}

struct Slice {
    size_t offset = 0, length = 0;
    std::vector<uint8_t> stream;
    uLong adler = 0;
    bool done = false;
    std::string error;
};

// What the caller and the pool threads share; the pool threads hold it until their job ends,
// even when the caller has given up.
struct Work {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Slice> slices;
    int unfinished = 0; // jobs queued or running
    bool stopping = false;
};

// Deflates 'input' (whose first 'primed' bytes are only the dictionary) into 'slice.stream'.
void deflateSlice(const std::vector<uint8_t>& input, size_t primed, int level, bool last,
                  Slice& slice) {
    z_stream z{};
    if (deflateInit2(&z, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
        slice.error = "zlib could not start (not enough memory)";
        return;
    }
    struct End {
        z_stream& z;
        ~End() { deflateEnd(&z); }
    } end{z};
    if (primed > 0 && deflateSetDictionary(&z, input.data(), uInt(primed)) != Z_OK) {
        slice.error = "zlib refused the dictionary";
        return;
    }
    const uint8_t* in = input.data() + primed;
    size_t left = slice.length;
    // Room for all of it at once in the usual case; more when the input does not shrink.
    slice.stream.resize(deflateBound(&z, uLong(left)) + 16);
    size_t produced = 0;
    for (;;) {
        const uInt take = uInt(std::min<size_t>(left, std::numeric_limits<uInt>::max()));
        z.next_in = const_cast<Bytef*>(in);
        z.avail_in = take;
        const int flush = take < left ? Z_NO_FLUSH : last ? Z_FINISH : Z_FULL_FLUSH;
        int result = Z_OK;
        do {
            if (produced == slice.stream.size())
                slice.stream.resize(slice.stream.size() * 2);
            z.next_out = slice.stream.data() + produced;
            z.avail_out = uInt(
                std::min<size_t>(slice.stream.size() - produced, std::numeric_limits<uInt>::max()));
            const uInt room = z.avail_out;
            result = deflate(&z, flush);
            produced += room - z.avail_out;
            if (result == Z_STREAM_ERROR) {
                slice.error = "zlib failed while compressing";
                return;
            }
            // A flush is complete when deflate leaves room in the output; the end when it says
            // so.
        } while (flush == Z_FINISH ? result != Z_STREAM_END : z.avail_out == 0);
        in += take;
        left -= take;
        if (left == 0)
            break;
    }
    slice.stream.resize(produced);
}

void compress(const InputReader& read, int level, Work& work, size_t index) {
    Slice& slice = work.slices[index];
    {
        std::lock_guard<std::mutex> lock(work.mutex);
        if (work.stopping)
            return;
    }
    const bool last = index + 1 == work.slices.size();
    const size_t primed = level == 0 ? 0 : std::min(slice.offset, kWindow);
    try {
        std::vector<uint8_t> input(primed + slice.length);
        read(slice.offset - primed, input.size(), input.data());
        slice.adler = adler32_z(adler32_z(0, nullptr, 0), input.data() + primed, slice.length);
        deflateSlice(input, primed, level, last, slice);
    } catch (const std::bad_alloc&) {
        slice.error = "not enough memory";
    } catch (const std::exception& e) {
        // Whatever happens, the slice ends: the caller waits for it.
        slice.error = e.what();
    }
}

} // namespace

int deflateThreads() {
    return pool().getThreadCount();
}

size_t sliceLengthFor(size_t total, int threads, const DeflateSlicing& slicing) {
    const size_t perThread =
        (total + size_t(std::max(threads, 1)) - 1) / size_t(std::max(threads, 1));
    const size_t minimum = std::max<size_t>(slicing.minimumSlice, 1);
    const size_t maximum = std::max(slicing.maximumSlice, minimum);
    return std::max<size_t>(std::clamp(perThread, minimum, maximum), 1);
}

bool deflateInParallel(size_t total, const InputReader& read, int level, const StreamWriter& write,
                       std::string& error, const DeflateSlicing& slicing) {
    level = std::clamp(level, 0, 9);
    kaThreadPool& threads = pool();
    const size_t length = sliceLengthFor(total, threads.getThreadCount(), slicing);
    auto work = std::make_shared<Work>();
    // An empty input still makes one (empty) slice: the stream needs its final block.
    work->slices.resize(std::max<size_t>(1, (total + length - 1) / length));
    for (size_t i = 0; i < work->slices.size(); ++i) {
        work->slices[i].offset = i * length;
        work->slices[i].length = std::min(length, total - std::min(total, i * length));
    }

    // Slices are queued in order and only so far ahead of the writing that the finished ones
    // waiting to be written stay few.
    const size_t ahead = size_t(2 * std::max(threads.getThreadCount(), 1));
    size_t queued = 0;
    auto queueNext = [&] {
        const size_t index = queued++;
        {
            std::lock_guard<std::mutex> lock(work->mutex);
            ++work->unfinished;
        }
        // 'read' lives on the caller's stack: the caller waits for every job before it returns.
        const InputReader* reader = &read;
        threads.run([work, reader, level, index] {
            compress(*reader, level, *work, index);
            std::lock_guard<std::mutex> lock(work->mutex);
            work->slices[index].done = true;
            --work->unfinished;
            work->changed.notify_all();
        });
    };
    // On every way out, also a write that failed: no job may still read the caller's input.
    struct Drain {
        Work& work;
        ~Drain() {
            std::unique_lock<std::mutex> lock(work.mutex);
            work.stopping = true;
            work.changed.wait(lock, [this] { return work.unfinished == 0; });
        }
    } drain{*work};

    while (queued < work->slices.size() && queued < ahead)
        queueNext();
    uint8_t header[2];
    zlibHeader(level, header);
    if (!write(header, sizeof header))
        return false;
    uLong adler = adler32_z(0, nullptr, 0);
    for (Slice& slice : work->slices) {
        {
            std::unique_lock<std::mutex> lock(work->mutex);
            work->changed.wait(lock, [&] { return slice.done; });
        }
        if (!slice.error.empty()) {
            error = slice.error;
            return false;
        }
        if (!write(slice.stream.data(), slice.stream.size()))
            return false;
        adler = adler32_combine(adler, slice.adler, z_off_t(slice.length));
        std::vector<uint8_t>().swap(slice.stream);
        if (queued < work->slices.size())
            queueNext();
    }
    const uint8_t trailer[4] = {uint8_t(adler >> 24), uint8_t(adler >> 16), uint8_t(adler >> 8),
                                uint8_t(adler)};
    return write(trailer, sizeof trailer);
}

} // namespace osg::png
