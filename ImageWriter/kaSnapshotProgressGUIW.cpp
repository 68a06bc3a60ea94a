#include "kaSnapshotProgressGUIW.h"

kaSnapshotProgressGUIW::kaSnapshotProgressGUIW(QWidget* parent, Qt::WindowFlags flags)
    : QDialog(parent, flags) {
    setupUi(this);
}

kaSnapshotProgressGUIW::~kaSnapshotProgressGUIW() = default;
