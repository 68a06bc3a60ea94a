#pragma once

// The host's animation clock: the frame the scene shows. Thread-safe reads.
class kaAnimManager {
public:
    static int getCurrentFrame();
    static void setCurrentFrame(int frame);
};
