// The codec dialog behind AVISaveOptions: the codecs the movie's container takes, with the
// quality and the key-frame distance for those that have them. Without a GUI the container's
// default is taken and said in the log.
#include "kaWinVideoCodecs.h"

#ifndef _WIN32

#include "kaController.h"
#include "kaLog.h"

#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QSlider>
#include <QSpinBox>

namespace {

bool askInDialog(const std::string& container, AVICOMPRESSOPTIONS& options) {
    QDialog dialog;
    dialog.setObjectName("VideoCompressionDialog");
    dialog.setWindowTitle(QObject::tr("Video Compression"));
    auto* layout = new QFormLayout(&dialog);
    auto* codecs = new QComboBox;
    codecs->setObjectName("codec");
    for (const kaVideoCodec& codec : kaWinVideoCodecs::forContainer(container)) {
        codecs->addItem(QString::fromStdString(codec.description), QVariant(uint(codec.fourcc)));
        if (codec.fourcc == options.fccHandler)
            codecs->setCurrentIndex(codecs->count() - 1);
    }
    auto* quality = new QSlider(Qt::Horizontal);
    quality->setObjectName("quality");
    quality->setRange(0, 100);
    quality->setValue(options.dwQuality ? int(options.dwQuality / 100) : 75);
    auto* keyFrames = new QSpinBox;
    keyFrames->setObjectName("keyFrames");
    keyFrames->setRange(0, 10000);
    keyFrames->setSpecialValueText(QObject::tr("codec default"));
    keyFrames->setValue(int(options.dwKeyFrameEvery));
    layout->addRow(QObject::tr("Compressor:"), codecs);
    layout->addRow(QObject::tr("Quality:"), quality);
    layout->addRow(QObject::tr("Key frame every:"), keyFrames);
    auto update = [&] {
        const kaVideoCodec* codec =
            kaWinVideoCodecs::byFourcc(FOURCC(codecs->currentData().toUInt()));
        const bool lossy = codec && !codec->lossless;
        quality->setEnabled(lossy);
        keyFrames->setEnabled(lossy);
    };
    QObject::connect(codecs, QOverload<int>::of(&QComboBox::currentIndexChanged), update);
    update();
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    layout->addRow(buttons);
    if (codecs->count() == 0 || dialog.exec() != QDialog::Accepted)
        return false;
    options.fccType = streamtypeVIDEO;
    options.fccHandler = FOURCC(codecs->currentData().toUInt());
    const kaVideoCodec* codec = kaWinVideoCodecs::byFourcc(options.fccHandler);
    const bool lossy = codec && !codec->lossless;
    options.dwQuality = lossy ? DWORD(quality->value() * 100) : 0;
    options.dwKeyFrameEvery = lossy ? DWORD(keyFrames->value()) : 0;
    options.dwFlags = AVICOMPRESSF_VALID | (options.dwKeyFrameEvery ? AVICOMPRESSF_KEYFRAMES : 0);
    return true;
}

} // namespace

namespace kaWinVideoCodecs {

SaveOptionsAnswer defaultSaveOptionsAnswer() {
    return [](const std::string& container, AVICOMPRESSOPTIONS& options) {
        if (!kaController::isNoGUI())
            return askInDialog(container, options);
        const kaVideoCodec* codec = byFourcc(options.fccHandler);
        kaLog::info("Video compression for .%s: %s (no dialog without a GUI)", container.c_str(),
                    codec ? codec->description.c_str() : "none available");
        return codec != nullptr;
    };
}

} // namespace kaWinVideoCodecs

#endif
