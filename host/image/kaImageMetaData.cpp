#include "kaImageMetaData.h"

void kaImageMetaData::setFileOutputImageSettings(float width, float height, float dpi,
                                                 int superSampling, bool tonemapHDR, bool alpha,
                                                 bool premultiplied, const float* alphaColor,
                                                 int iccProfile, int metaDataFlags) {
    _imageSettings.width = width;
    _imageSettings.height = height;
    _imageSettings.dpi = dpi;
    _imageSettings.superSampling = superSampling;
    _imageSettings.tonemapHDR = tonemapHDR;
    _imageSettings.alpha = alpha;
    _imageSettings.premultiplied = premultiplied;
    for (int i = 0; i < 3; ++i)
        _imageSettings.alphaColor[i] = alphaColor ? alphaColor[i] : 0.0f;
    _imageSettings.iccProfile = iccProfile;
    _imageSettings.metaDataFlags = metaDataFlags;
    _hasImageSettings = true;
}

void kaImageMetaData::reset(bool all) {
    ++_resetCount;
    if (all) {
        _imageSettings = ImageSettings();
        _hasImageSettings = false;
    }
}
