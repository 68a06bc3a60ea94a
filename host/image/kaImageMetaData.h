#pragma once

// The metadata record that exports embed into image files: what the export was asked to do
// (image and animation settings) and, per image, the parts collected from the scene.
// reset(false) forgets the collected parts after an image is written; reset(true) also
// forgets the export settings.
class kaImageMetaData {
public:
    struct ImageSettings {
        float width = 0.0f;
        float height = 0.0f;
        float dpi = 0.0f;
        int superSampling = 0;
        bool tonemapHDR = false;
        bool alpha = false;
        bool premultiplied = false;
        float alphaColor[3] = {0.0f, 0.0f, 0.0f};
        int iccProfile = 0;
        int metaDataFlags = 0;
    };

    void setFileOutputImageSettings(float width, float height, float dpi, int superSampling,
                                    bool tonemapHDR, bool alpha, bool premultiplied,
                                    const float* alphaColor, int iccProfile, int metaDataFlags);
    bool hasFileOutputImageSettings() const { return _hasImageSettings; }
    const ImageSettings& getFileOutputImageSettings() const { return _imageSettings; }

    void reset(bool all);
    // How often reset ran, whatever its argument.
    unsigned getResetCount() const { return _resetCount; }

private:
    ImageSettings _imageSettings;
    bool _hasImageSettings = false;
    unsigned _resetCount = 0;
};
