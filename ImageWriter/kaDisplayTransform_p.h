#pragma once

// The display transform of linear float pixels and their quantisation to 8 bits, in the colour
// spaces of the host's image postprocessor. Internal to the library (exported for its tests and
// benchmarks); thread-safe.

#include "ImageWriterExport.h"

namespace kaDisplayTransform {

// out = the display value of the linear RGBA pixel 'in' (alpha copied) for the
// postprocessor's mode; 'gamma' is the exponent of mode 0. 'in' and 'out' may be the same.
IMAGEWRITER_EXPORT void displayTransformPixel(const float in[4], float gamma, float out[4]);

// The red, green and blue bytes of 'pixel' at (x, y): with flags bit 1 (value 2) through the
// display transform first, then dithered (when the postprocessor dithers and the pixel is not
// fully transparent), then scaled by 256 and clamped to 0..255.9.
IMAGEWRITER_EXPORT void quantizePixel(const float pixel[4], int x, int y, int flags,
                                      unsigned char rgb[3]);

// The transform keeps the host's profiles per thread and fetches them again every 4096 pixels;
// this makes the calling thread's next pixel fetch them at once.
IMAGEWRITER_EXPORT void forgetProfiles();

// The fast approximations the transform uses, four values at once: out[i] = in[i] ^ power,
// and its parts.
IMAGEWRITER_EXPORT void fastPow4(const float in[4], float power, float out[4]);
IMAGEWRITER_EXPORT void fastLog2x4(const float in[4], float out[4]);
IMAGEWRITER_EXPORT void fastExp2x4(const float in[4], float out[4]);

} // namespace kaDisplayTransform
