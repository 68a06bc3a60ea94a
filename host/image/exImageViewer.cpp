#include "exImageViewer.h"

#include "kaPlatform.h"

#include <QLabel>
#include <QPixmap>

exImageViewer::exImageViewer(QWidget* parent, const QImage& image)
    : QScrollArea(parent)
    , _label(new QLabel) {
    setObjectName("exImageViewer");
    setWindowTitle(QObject::tr("%1 - Image").arg(kaPlatform::getAppVersionName()));
    setBackgroundRole(QPalette::Dark);
    _label->setAlignment(Qt::AlignCenter);
    setWidget(_label);
    setWidgetResizable(true);
    set(image);
}

void exImageViewer::set(const QImage& image) {
    _image = image;
    _label->setPixmap(QPixmap::fromImage(image));
    _label->adjustSize();
}
