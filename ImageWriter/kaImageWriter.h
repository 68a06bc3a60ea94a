#pragma once

#include "ImageWriterExport.h"

#include "OSGViewport.h"
#include "kaDisplay.h"
#include "kaImageRenderWidget.h"

#include <QString>
#include <QStringList>

#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

// Field-container ids cross the library's interface as 64-bit signed integers under the name
// the host's compiler knows; elsewhere the name is defined here, so that every caller writes
// the same call.
#if !defined(_MSC_VER) && !defined(__int64)
typedef long long __int64;
#endif

class exImageViewer;
class kaImageMetaData;
class kaMessage;
class kaSnapshotProgressGUII;
class kaThreadPool;
class QImage;
namespace osg {
class ImageFileType;
}

// The one object through which the host exports pictures. It holds the export settings (from
// the setters and the preferences), builds the names of the files an export writes, and
// shares its progress with the host.
//
// A copy shares the metadata store, the image viewer and the fast-export render widget with
// its source; the last of them to go deletes those objects.
//
// GUI thread only. Constructing one needs a QApplication (it makes its image viewer).
class IMAGEWRITER_EXPORT kaImageWriter {
public:
    kaImageWriter();
    kaImageWriter(const kaImageWriter& other);
    kaImageWriter& operator=(const kaImageWriter& other);
    ~kaImageWriter();

    // Reads "ImageExport tiff hdr", "ImageExport exr half" and "ImageExport multi layer exr";
    // a flag whose key is missing or of another type keeps its value.
    void resetExportSettings();

    void setNoProgress(bool noProgress);
    void setNoShowImage(bool noShowImage);
    void setNoOverwriteMessage(bool noOverwriteMessage);
    bool wasExportCanceled() const;
    void setICCProfile(int colorSpace);
    void setAlphaColor(float r, float g, float b);
    void getAlphaColor(float& r, float& g, float& b);
    // Stores the flags and resets the metadata store, every time.
    void setMetaDataFlags(int flags);
    void setExportTiffHDR(bool tiffHDR);
    bool getExportTiffHDR() const;
    void setExportExrHalf(bool exrHalf);
    // The argument is not used; the flag is returned as it stands.
    bool getExportExrHalf(bool) const;
    void setExportMultiLayer(bool multiLayer);
    bool getExportMultiLayer() const;
    // False for the passes that must keep full float precision (depth, the cryptomatte passes
    // and position: 33 to 39 and 42).
    bool allowPassConversionTo16Bit(size_t pass) const;

    // Lower-case suffixes the scene graph can write, less its internal formats.
    const std::set<std::string>& getFormatsOpenSG() const;
    // Always empty.
    const std::set<std::string>& getFormatsQt() const;

    kaImageMetaData* getMetaData() const;
    exImageViewer* getImageViewer() const;

    // Whether the host has installed a stream writer that takes images instead of files.
    static bool isStreamOutput();

    // Progress of the running export, pushed to the host clamped to 0..1.
    static void startProgress(int frames);
    static void startFrameProgress();
    static void setFrameProgress(double fraction);
    static double getLastRenderTime();

    // Typed preference readers: copy the value of 'key' into 'value' and return true when it
    // exists with exactly that type. A missing key returns false; a key of another type prints
    // the wrong-type line and a back-trace to standard error and returns false. 'value' is
    // unchanged whenever false is returned.
    static bool getFromMessage(const kaMessage& message, const char* key, bool& value);
    static bool getFromMessage(const kaMessage& message, const char* key, int& value);
    static bool getFromMessage(const kaMessage& message, const char* key, float& value);
    static bool getFromMessage(const kaMessage& message, const char* key, std::vector<int>& value);
    static bool getFromMessage(const kaMessage& message, const char* key, QString& value);

    // --- Output file names ---

    // The name without extension and without a trailing five-digit frame number (and the
    // one "-" before it): "render-00012.png" -> "render".
    QString getBaseFilename(const QString& filename) const;
    // "-" and the frame number padded with "0" to five characters: 7 -> "-00007".
    static QString getFrameName(int frame);
    // The file-name suffix of a stereo view ("-left", "-middle", ...); empty for mono and for
    // a mode or view outside the table.
    static QString getStereoName(int mode, int view);
    // "-" and the pass name ("-beauty"); empty for an index outside the catalogue.
    static QString getPassName(int pass);
    // base + stereo suffix + middle + "." + extension.
    QString getFilename(const QString& base, kaImageRenderWidget::StereoMode mode, int view,
                        const QString& middle, const QString& extension) const;
    // An empty extension becomes the default image format, also appended to the name; "JPG"
    // becomes "JPEG" (the name is left alone).
    void cleanupFileExtension(QString& filename, QString& extension) const;
    // The name's type can hold layers and the multi-layer flag is set.
    bool isMultilayer(const QString& filename) const;
    static bool isMultilayerSupported(const QString& filename);
    // A step below 1 becomes 1.
    void validateFrameStep(int& step) const;
    // A negative start or stop is replaced by "MovieExport start frame"/"stop frame" when set.
    void validateStartAndStop(int& start, int& stop) const;
    // ("ImageExport stereo mode", number of views).
    static std::tuple<kaImageRenderWidget::StereoMode, int> getStereoMode();
    // The files a single-image export writes, by view, then pass.
    QStringList getExportedImageFilenames(const QString& filename,
                                          const std::vector<unsigned int>& passes,
                                          bool multiLayer) const;
    // The files a sequence export writes, by view, then pass, then frame.
    QStringList getExportedImageFilenames(const QString& filename,
                                          const std::vector<unsigned int>& passes, bool multiLayer,
                                          int start, int stop, int step) const;

    // --- Saving ---

    // Writes one image: comment ("<application version>\n<comment>"), metadata, signature,
    // JPEG quality ("ImageExport quality"), colour profile and resolution (dpi), the
    // conversions some formats need, then the file (or the host's stream writer); shows the
    // result when "ImageExport show image" is on and 'noShow' is false. 'type' is the
    // upper-case format name ("PNG", "EXR", "HDR", "JPG", ...). Failures are logged as the
    // library's errors ("Couldn't save image" unless 'noErrorMessage'). 'reserved' is unused.
    bool saveImage(osg::ImagePtr image, const char* filename, const char* type, bool addSignature,
                   bool keepFloat, bool noShow, float dpi, bool reserved, bool noErrorMessage,
                   const char* comment);
    // Writes the pass images of one frame (element i is render pass i; null = not rendered):
    // into one layered file when the multi-layer flag is set and the type holds layers, else
    // one "<name>-<pass>.<type>" file per pass, in parallel. True when every element was
    // written, so a null element gives false. An empty list writes nothing and gives true.
    bool saveImages(std::vector<osg::ImagePtr> images, std::string filename, const char* type,
                    bool addSignature, bool keepFloat, bool noShow, float dpi, bool reserved,
                    bool noErrorMessage, const char* comment);
    // The host's stream writer when one is installed, else the image's file write.
    static bool writeImage(osg::ImagePtr image, std::string filename);
    // The host's layered stream writer when one is installed, else the file type's own.
    static bool writeLayeredImage(osg::ImageFileType* fileType, const osg::ImagePtr& image,
                                  std::string filename, std::vector<osg::ImagePtr> layers,
                                  const std::string* layerNames);
    // Lets a pool's jobs finish, saying on standard error how many are left every 100 ms.
    static void waitForBackgroundJobs(kaThreadPool& pool);

    // Attaches the ICC profile of the host's active colour space to 'image' (nothing when the
    // profile file is missing).
    static void embedColorProfile(osg::ImagePtr& image);

    // --- Exports ---

    // A snapshot of the main view into 'filename' (one file per stereo eye, or one per render
    // pass with 'exportRenderPasses'). Negative width, height, supersampling, alpha and dpi take
    // the preferences; see the export's rules. Refusals show a warning box (written to the log
    // without a GUI); wasExportCanceled() tells whether the user aborted.
    void exportImage(const QString& filename, int width, int height, int superSampling, int alpha,
                     float dpi, bool exportRenderPasses, const QString& clusterSetup,
                     bool appendRenderTime, bool tonemapHDR);

    // An animation into one image file per frame (and per stereo eye and render pass), from
    // frame 0 to 'stopFrame': frames before 'startFrame' are stepped through (animation,
    // simulation, a render of the view) without being written, then every 'frameStep'-th frame
    // is rendered and written. Negative width, height, fps, supersampling and alpha take the
    // preferences; 'animationNodeId' names the animation that drives the sequence (0: the
    // host's timeline). Refusals show a warning box (written to the log without a GUI);
    // wasExportCanceled() tells whether the user aborted.
    void exportImages(const QString& filename, int width, int height, int fps, int startFrame,
                      int stopFrame, int superSampling, int alpha, bool exportRenderPasses,
                      __int64 animationNodeId, const QString& clusterSetup, int frameStep,
                      bool tonemapHDR);

    // An animation into one movie file (AVI, or MP4, MKV, MOV by the extension; ".avi" is
    // added to a name without one), frames 0 to 'stopFrame' with the frames before
    // 'startFrame' stepped through and not recorded. Width and height are cut to multiples of
    // 40 first; then negative values, like negative fps, frames and supersampling, take the
    // preferences. The codec comes from the system's compression dialog, or without it
    // ('noCompressionDialog', or no GUI) from the platform's default.
    void exportAVI(const QString& filename, int width, int height, int fps, int startFrame,
                   int stopFrame, int superSampling, __int64 animationNodeId,
                   const QString& clusterSetup, bool noCompressionDialog);

    // Repeated captures at one resolution: init builds the render dialog once (a negative
    // supersampling factor selects fast mode with its magnitude), each exportImageFast renders
    // and saves one picture (or returns it as PNG bytes), terminate drops the dialog.
    void exportImageFastInit(int width, int height, int superSampling);
    void exportImageFast(const QString& filename);
    std::string exportImageFast();
    void exportImageFastTerminate();
    // The viewport's display, HDR reference white and deep-learning supersampling.
    void setupViewport(osg::UberViewportPtr viewport, kaDisplay display, float hdrReferenceWhite,
                       int deepLearningSS);
    // The viewport background's backplate mode (backplate and alpha) and its alpha colour
    // (r, g, b, and a when 'alpha', else 1).
    void setupBackground(osg::UberViewportPtr viewport, float r, float g, float b, float a,
                         bool backplate, bool alpha) const;

private:
    friend class kaImageWriterTestAccess;
    class SnapshotExport;
    class SequenceExport;
    class ClusterSnapshot;

    // One picture (eye 0 mono, 1 left, 2 right) raytraced on the render cluster and written
    // from its buffer; 'frame' names a sequence's frame (-1: a snapshot). Shows 'progress' or,
    // when null, a dialog of its own. True when cancelled or failed.
    bool exportRTClusterImage(const QString& filename, int width, int height, int eye,
                              int superSampling, bool alpha, float dpi, bool addSignature,
                              bool exportRenderPasses, bool forwarded,
                              kaSnapshotProgressGUII* progress, int frame);
    // Frames 0 to 'stopFrame' of the animation, those before 'startFrame' stepped through,
    // every 'frameStep'-th from there rendered on the cluster into its own file. True when a
    // frame was cancelled.
    bool exportRTClusterImages(const QString& filename, int width, int height, int eye, int fps,
                               int startFrame, int stopFrame, int superSampling, bool alpha,
                               bool exportRenderPasses, bool option, __int64 animationNodeId,
                               int frameStep);

    QStringList getExportedImageFilenames(const QString& filename,
                                          const std::vector<unsigned int>& passes, bool multiLayer,
                                          bool sequence, int start, int stop, int step) const;

    // Metadata and signature.
    bool metaDataEnabled() const;
    bool imageFormatHasMetaDataSupport(const QString& format) const;
    void logMetaDataUnsupported() const;
    void storeMetaData(const osg::ImagePtr& image, const char* format);
    void getSignatureSettings(const char* filename, QString& text, std::vector<int>& position,
                              int& fontSize, std::vector<int>& color);
    void addImageSignature(QImage& image, const char* filename);
    void addImageSignature(osg::ImagePtr& image, const char* filename);
    void addImageText(QImage& image, const QString& text, std::vector<int> position, int fontSize,
                      std::vector<int> color);
    void addImageText(osg::ImagePtr& image, const QString& text, std::vector<int> position,
                      int fontSize, std::vector<int> color);

    // What saving changed on an image and must give back afterwards.
    struct PreparedImage {
        QString name;
        uint32_t savedQuality = 0;
        bool converted = false;
    };
    bool prepareImage(osg::ImagePtr& image, const char* filename, const char* type,
                      bool addSignature, bool keepFloat, float dpi, const char* comment,
                      PreparedImage& prepared);
    void finishImage(osg::ImagePtr& image, bool noShow, const PreparedImage& prepared);
    void showImage(const osg::ImagePtr& image, bool noShow);

    std::set<std::string> _formatsOpenSG;
    std::set<std::string> _formatsQt;
    bool _noProgress;
    bool _noShowImage;
    bool _noOverwriteMessage;
    bool _exportCanceled;
    bool _exportTiffHDR;
    bool _exportExrHalf;
    bool _exportMultiLayer;
    int _iccProfile;
    float _alphaColor[3];
    int _metaDataFlags;
    std::shared_ptr<kaImageMetaData> _metaData;
    std::shared_ptr<kaImageRenderWidget> _fastRenderWidget;
    std::shared_ptr<exImageViewer> _imageViewer;

    static double s_lastRenderTime;
    static double s_frameProgress;
    static int s_progressFrames;
    static int s_progressCurrentFrame;
};
