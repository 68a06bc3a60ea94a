#pragma once

// Marks a stretch of code as an export render for the host, which then holds back what would
// disturb it (autosaves, interactive redraws). Guards nest. GUI thread only.
class kaScopedRenderInProgress {
public:
    kaScopedRenderInProgress();
    ~kaScopedRenderInProgress();
    kaScopedRenderInProgress(const kaScopedRenderInProgress&) = delete;
    kaScopedRenderInProgress& operator=(const kaScopedRenderInProgress&) = delete;

    static bool isRenderInProgress();
};
