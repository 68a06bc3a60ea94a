#pragma once

#include "OSGImage.h"
#include "OSGViewport.h"

#include <functional>
#include <string>
#include <vector>

class kaPixelEncoder;

// Draws a viewport's scene with OpenGL into a float RGBA buffer of scene-linear, premultiplied
// colour whose alpha is the coverage of geometry (1 on every surface, the background's alpha
// elsewhere, fractions at edges). Every pixel is the mean of
// 'samples' jittered sub-pixel samples, sample k always at the same sub-pixel offset of the
// target's pixel grid, so that rendering a picture in tiles gives the same pixels as rendering
// it whole. Targets larger than the piece limit are drawn piece by piece; the samples of a
// piece are summed on the GPU and read back once, large meshes are drawn only where a piece can
// see them, and 8-bit pictures are encoded on the GPU (straight into 8-bit targets when one
// opaque sample makes a pixel). GUI thread only.
class kaGLSceneRenderer {
public:
    static kaGLSceneRenderer& the();

    // Receives one finished piece: its offset in the region, its size, and its pixels
    // (pw * ph * 4 floats, rows bottom-up).
    using PieceSink = std::function<void(int px, int py, int pw, int ph, const float* rgba)>;

    // Renders pixels [x0, x0 + width) x [y0, y0 + height) of a picture of fullWidth x
    // fullHeight seen through 'camera', piece by piece, each piece handed to 'sink' when all its
    // samples are in. Pieces are the region's parts of the cells of one grid over the whole
    // picture (getMaxPieceSize() a side), each cell drawn with the full picture's projection
    // and its own integer viewport offset: every pixel comes out bit for bit as in any other
    // region that holds it, the whole picture included. With 'onlySample' >= 0 only that sample is
    // made. The viewport's event-processing callback is told of each sample (advance = true) once
    // per render, on the last piece, and asked without advancing on the others; when it returns
    // false the render stops, the current piece is still handed over, and false is returned
    // with an empty 'error'.
    bool render(const osg::UberViewport& viewport, const osg::Camera& camera, int fullWidth,
                int fullHeight, int x0, int y0, int width, int height, int samples, int onlySample,
                const PieceSink& sink, std::string& error);

    // As render(), but every finished piece is encoded on the GPU with 'encoder''s separable
    // model of 8-bit encoding (straight alpha where the images have alpha, dithered by the
    // pixel's place in the whole picture) and read straight into each of 'images' (8-bit RGB
    // or RGBA of colour, all with or all without alpha, rows bottom-up) at (imageX + px,
    // imageY + py), cut to the image. The codes are those kaPixelEncoder::store() writes, to
    // the tenth of a code by which the encoder's model may differ from its colour engine.
    bool renderEncoded(const osg::UberViewport& viewport, const osg::Camera& camera, int fullWidth,
                       int fullHeight, int x0, int y0, int width, int height, int samples,
                       int onlySample, const kaPixelEncoder& encoder,
                       const std::vector<osg::Image*>& images, int imageX, int imageY,
                       std::string& error);

    // Sub-pixel offset of sample k, each coordinate in [-0.5, 0.5); sample 0 is the centre.
    static void sampleOffset(int k, float& dx, float& dy);

    // The largest piece drawn at once, in pixels per side (the GL limit; tests lower it).
    int getMaxPieceSize();
    void setMaxPieceSize(int size);
    int getMaxTextureSize();

    // Told of every region rendered (full picture size, region offset and size), before it is
    // drawn: for diagnostics. An empty function removes it.
    using RegionListener =
        std::function<void(int fullWidth, int fullHeight, int x0, int y0, int width, int height)>;
    void setRegionListener(RegionListener listener) { _listener = std::move(listener); }

private:
    kaGLSceneRenderer() = default;
    struct Impl;
    struct Output;
    bool renderPieces(const osg::UberViewport& viewport, const osg::Camera& camera, int fullWidth,
                      int fullHeight, int x0, int y0, int width, int height, int samples,
                      int onlySample, Output& output, std::string& error);
    // An encoded piece waiting in its target: the target, its cell's corner, the piece.
    struct EncodedPiece {
        unsigned fbo;
        int cellLeft, cellBottom, left, bottom, width, height;
    };
    void readEncoded(Output& output, const EncodedPiece& piece, int x0, int y0);
    Impl* _impl = nullptr;
    int _pieceLimit = 0;
    RegionListener _listener;
};
