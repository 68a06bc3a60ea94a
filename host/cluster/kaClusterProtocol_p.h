#pragma once

// The messages between the master and its render nodes (over the intercommunicator that
// spawning the nodes made). Every message is a plain struct, optionally followed by bytes.
// Master and nodes are the same build, so the structs travel as they lie in memory.

#include <cstdint>

namespace kaClusterProtocol {

enum Tag : int {
    kHello = 1,  // node -> master, once: Hello
    kScene = 2,  // master -> node: a scene message (kaClusterSceneEncoder)
    kFrame = 3,  // master -> node: FrameHeader, then the change message
    kCancel = 4, // master -> node: the serial of the frame to stop
    kAlive = 5,  // node -> master, every second while rendering: the frame's serial
    kDone = 6,   // node -> master: FrameReply
    kPixels = 7, // node -> master: PixelsHeader, then the rows
    kNames = 8,  // node -> master (rank 0, final samples): the rendered names and settings
    kQuit = 9,   // master -> node: leave
};

struct Hello {
    int32_t pid;
    int32_t cores;
    char host[64];
};

struct FrameHeader {
    uint32_t serial;
    int32_t sample;
    uint8_t final;
    uint8_t sendPixels;
    uint8_t premultiply;
    uint8_t defaultLights; // kaDefaultLights::Use, as the master has it
    uint64_t renderPasses;
    uint64_t copyPasses;
    uint32_t imageOps;
    int32_t width, height;
    int32_t bandY, bandHeight;
    int32_t sampleOffset;
    int32_t animationFrame;
    uint32_t colorSpace;
    float exposure; // stops (kaExposure), as the master has them
    int32_t threads;
    float viewing[16];
    float projection[16];
};

struct FrameReply {
    uint32_t serial;
    int32_t sample;
    uint8_t status; // Status
    uint8_t restarted;
    uint8_t sendsNames;
    uint8_t reserved;
    uint32_t pixelMessages;
    double seconds;
    char error[256];
};

enum Status : uint8_t { kRendered = 0, kCanceled = 1, kFailed = 2 };

struct PixelsHeader {
    int32_t pass;
    int32_t row; // of the whole picture, bottom-up
    int32_t rows;
    int32_t bytesPerPixel;
};

// Rows of pixel messages stay below this size (MPI counts are ints).
constexpr int64_t kMaxPixelMessage = int64_t(1) << 28;

} // namespace kaClusterProtocol
