// The desktop program's preferences: every key the library reads has an editor of its type,
// OK stores typed values and saves the file, a wrong value is refused by name, the signature
// preview is the library's own drawing on the view, and the colour space and metadata chosen
// reach the exported files.
#include "kaviewerPreferencesDialog.h"
#include "kaviewerWindowFixture.h"

#include "kaPreferenceKeys.h"
#include "kaPreferences.h"

#include <OpenImageIO/imageio.h>
#include <lcms2.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLineEdit>
#include <QProcess>
#include <QSpinBox>

#include <boost/any.hpp>

namespace {

using kaviewer::PreferencesDialog;
using kaviewertest::BoxAnswerer;
using ViewerPreferences = ViewerWindowTest;

// A plain grey picture of the view's kind (8-bit RGBA).
osg::ImagePtr greyPicture() {
    osg::ImagePtr image = osg::Image::create();
    image->set(osg::Image::OSG_RGBA_PF, 320, 180);
    std::fill(image->getData(), image->getData() + 320 * 180 * 4, uint8_t(90));
    return image;
}

// The description of the ICC profile a file holds; empty when it holds none.
std::string profileDescription(const QString& file) {
    auto in = OIIO::ImageInput::open(file.toStdString());
    if (!in)
        return {};
    const OIIO::ParamValue* icc = in->spec().find_attribute("ICCProfile");
    if (!icc)
        return {};
    cmsHPROFILE profile = cmsOpenProfileFromMem(icc->data(), cmsUInt32Number(icc->type().size()));
    if (!profile)
        return {};
    char text[256] = {};
    cmsGetProfileInfoASCII(profile, cmsInfoDescription, "en", "US", text, sizeof text);
    cmsCloseProfile(profile);
    return text;
}

// The XMP packet of a file, as exiv2 extracts it.
std::string xmpOf(const QString& file) {
    QProcess exiv2;
    exiv2.start("exiv2", {"-eX-", "ex", file});
    exiv2.waitForFinished(30000);
    return exiv2.readAllStandardOutput().toStdString();
}

TEST_F(ViewerPreferences, EveryKeyHasAnEditorOfItsType) {
    PreferencesDialog dialog(_dir.file("prefs.json"), greyPicture());
    for (const kaPreferenceKeys::Key& key : kaPreferenceKeys::all()) {
        QWidget* editor = dialog.editor(key.name);
        ASSERT_NE(editor, nullptr) << key.name;
        if (*key.type == typeid(bool))
            EXPECT_TRUE(qobject_cast<QCheckBox*>(editor)) << key.name;
        else if (*key.type == typeid(int))
            EXPECT_TRUE(qobject_cast<QSpinBox*>(editor)) << key.name;
        else if (*key.type == typeid(float))
            EXPECT_TRUE(qobject_cast<QDoubleSpinBox*>(editor)) << key.name;
        else
            EXPECT_TRUE(qobject_cast<QLineEdit*>(editor)) << key.name;
        // Shown as the store holds it: the value read back is the value there.
        QString error;
        const boost::any value = dialog.editedValue(key.name, error);
        ASSERT_FALSE(value.empty()) << key.name << ": " << error.toStdString();
        EXPECT_EQ(value.type(), *key.type) << key.name;
    }
    auto* quality = qobject_cast<QSpinBox*>(dialog.editor("ImageExport quality"));
    EXPECT_EQ(quality->minimum(), 0);
    EXPECT_EQ(quality->maximum(), 100);
}

TEST_F(ViewerPreferences, OkStoresTypedValuesAndSavesTheFile) {
    const QString path = _dir.file("prefs.json");
    PreferencesDialog dialog(path, greyPicture());
    qobject_cast<QSpinBox*>(dialog.editor("ImageExport width"))->setValue(1234);
    qobject_cast<QDoubleSpinBox*>(dialog.editor("MovieExport dpi"))->setValue(300.5);
    qobject_cast<QLineEdit*>(dialog.editor("ImageExport sig position"))->setText("20, 30");
    qobject_cast<QLineEdit*>(dialog.editor("ImageExport sig comment"))->setText("hello");
    qobject_cast<QCheckBox*>(dialog.editor("ImageExport add sig"))->setChecked(true);
    ASSERT_TRUE(dialog.apply());
    kaMessage& prefs = kaPreferences::getData();
    EXPECT_EQ(boost::any_cast<int>(prefs.get("ImageExport width")), 1234);
    EXPECT_EQ(boost::any_cast<float>(prefs.get("MovieExport dpi")), 300.5f);
    EXPECT_EQ(boost::any_cast<std::vector<int>>(prefs.get("ImageExport sig position")),
              (std::vector<int>{20, 30}));
    EXPECT_EQ(boost::any_cast<QString>(prefs.get("ImageExport sig comment")), "hello");
    EXPECT_TRUE(boost::any_cast<bool>(prefs.get("ImageExport add sig")));
    // The file holds them with their types.
    kaMessage saved;
    QString error;
    ASSERT_TRUE(kaPreferences::read(path, saved, error)) << error.toStdString();
    EXPECT_EQ(boost::any_cast<int>(saved.get("ImageExport width")), 1234);
    EXPECT_EQ(boost::any_cast<float>(saved.get("MovieExport dpi")), 300.5f);
    EXPECT_EQ(boost::any_cast<std::vector<int>>(saved.get("ImageExport sig position")),
              (std::vector<int>{20, 30}));
}

TEST_F(ViewerPreferences, AWrongValueIsRefusedByName) {
    const QString path = _dir.file("prefs.json");
    PreferencesDialog dialog(path, greyPicture());
    qobject_cast<QSpinBox*>(dialog.editor("ImageExport width"))->setValue(999);
    qobject_cast<QLineEdit*>(dialog.editor("ImageExport sig color"))->setText("255, 0");
    BoxAnswerer ok("OK");
    EXPECT_FALSE(dialog.apply());
    EXPECT_TRUE(ok.text().startsWith("\"ImageExport sig color\": ")) << ok.text().toStdString();
    // Nothing was taken, nothing written.
    EXPECT_NE(boost::any_cast<int>(kaPreferences::getData().get("ImageExport width")), 999);
    EXPECT_FALSE(QFile::exists(path));
}

TEST_F(ViewerPreferences, SignaturePreviewIsTheLibrarysDrawingOfTheEditedSettings) {
    const osg::ImagePtr grey = greyPicture();
    PreferencesDialog dialog(_dir.file("prefs.json"), grey);
    qobject_cast<QLineEdit*>(dialog.editor("ImageExport sig comment"))->setText("PREVIEW TEXT");
    qobject_cast<QLineEdit*>(dialog.editor("ImageExport sig color"))->setText("255, 0, 0");
    qobject_cast<QSpinBox*>(dialog.editor("ImageExport sig font size"))->setValue(30);
    dialog.updatePreview();
    const QImage preview = dialog.preview();
    ASSERT_EQ(preview.size(), QSize(320, 180));
    int red = 0, other = 0;
    for (int y = 0; y < preview.height(); ++y)
        for (int x = 0; x < preview.width(); ++x) {
            const QRgb p = preview.pixel(x, y);
            if (qRed(p) > 200 && qGreen(p) < 60 && qBlue(p) < 60)
                ++red;
            else if (qRed(p) != qGreen(p) || qGreen(p) != qBlue(p))
                ++other;
        }
    EXPECT_GT(red, 100) << "no red text drawn";
    // The user's preferences are untouched until OK.
    EXPECT_NE(boost::any_cast<QString>(kaPreferences::getData().get("ImageExport sig comment")),
              "PREVIEW TEXT");
    // Another colour, another drawing.
    qobject_cast<QLineEdit*>(dialog.editor("ImageExport sig color"))->setText("0, 0, 255");
    dialog.updatePreview();
    int blue = 0;
    for (int y = 0; y < dialog.preview().height(); ++y)
        for (int x = 0; x < dialog.preview().width(); ++x) {
            const QRgb p = dialog.preview().pixel(x, y);
            blue += qBlue(p) > 200 && qRed(p) < 60 ? 1 : 0;
        }
    EXPECT_EQ(blue, red);
}

TEST_F(ViewerPreferences, ColourSpaceAndMetadataReachTheExportedFiles) {
    PreferencesDialog dialog(_dir.file("prefs.json"), greyPicture());
    dialog.findChild<QComboBox*>("colorSpace")->setCurrentIndex(2);
    dialog.findChild<QCheckBox*>("metadata8")->setChecked(true); // image settings
    ASSERT_TRUE(dialog.apply());
    const QString adobe = _dir.file("adobe.png");
    _window->runExport(kaviewer::ExportKind::Snapshot, pngOfTheView(adobe));
    EXPECT_EQ(profileDescription(adobe), "Adobe RGB (1998)");
    EXPECT_NE(xmpOf(adobe).find("kaExport:ImageWidth"), std::string::npos) << xmpOf(adobe);

    PreferencesDialog again(_dir.file("prefs.json"), greyPicture());
    EXPECT_EQ(again.findChild<QComboBox*>("colorSpace")->currentIndex(), 2);
    again.findChild<QComboBox*>("colorSpace")->setCurrentIndex(0);
    again.findChild<QCheckBox*>("metadata8")->setChecked(false);
    ASSERT_TRUE(again.apply());
    const QString srgb = _dir.file("srgb.png");
    _window->runExport(kaviewer::ExportKind::Snapshot, pngOfTheView(srgb));
    EXPECT_NE(profileDescription(srgb).find("sRGB"), std::string::npos) << profileDescription(srgb);
    EXPECT_EQ(xmpOf(srgb).find("kaExport:ImageWidth"), std::string::npos);
}

} // namespace
