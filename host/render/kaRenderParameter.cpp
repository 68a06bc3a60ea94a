#include "kaRenderParameter.h"

#include <atomic>

namespace {
std::atomic<bool> g_timeLimit{false};
std::atomic<double> g_seconds{10.0};
std::atomic<int> g_denoise{0}, g_denoiserInput{0}, g_stillSS{0}, g_imageSamples{1}, g_offset{0};
std::atomic<uint64_t> g_denoiserPasses{0};
} // namespace

bool kaRenderParameter::getUseRenderTimeLimit() {
    return g_timeLimit;
}
void kaRenderParameter::setUseRenderTimeLimit(bool on) {
    g_timeLimit = on;
}
double kaRenderParameter::getRenderTimeInSeconds() {
    return g_seconds;
}
void kaRenderParameter::setRenderTimeInSeconds(double seconds) {
    g_seconds = seconds;
}
int kaRenderParameter::getDenoiseFilter() {
    return g_denoise;
}
void kaRenderParameter::setDenoiseFilter(int filter) {
    g_denoise = filter;
}
int kaRenderParameter::getDenoiserInput() {
    return g_denoiserInput;
}
void kaRenderParameter::setDenoiserInput(int images) {
    g_denoiserInput = images;
}
uint64_t kaRenderParameter::getDenoiserPassesMask() {
    return g_denoiserPasses;
}
void kaRenderParameter::setDenoiserPassesMask(uint64_t mask) {
    g_denoiserPasses = mask;
}
int kaRenderParameter::getStillFrameSupersampling() {
    return g_stillSS;
}
void kaRenderParameter::setStillFrameSupersampling(int level) {
    g_stillSS = level;
}
int kaRenderParameter::getImageSamples() {
    return g_imageSamples;
}
void kaRenderParameter::setImageSamples(int samples) {
    g_imageSamples = samples;
}
int kaRenderParameter::getSampleOffset() {
    return g_offset;
}
void kaRenderParameter::setSampleOffset(int offset) {
    g_offset = offset;
}
