#include "kaICCProfile.h"

#include <QFile>

#include <lcms2.h>

#include <array>
#include <memory>

namespace {

struct Mat3 {
    double m[3][3];
};

// Columns are the red, green and blue colorants (XYZ, D50) of a matrix/shaper profile.
bool colorants(cmsHPROFILE profile, Mat3& out) {
    const cmsTagSignature tags[3] = {cmsSigRedColorantTag, cmsSigGreenColorantTag,
                                     cmsSigBlueColorantTag};
    for (int c = 0; c < 3; ++c) {
        auto* xyz = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, tags[c]));
        if (!xyz)
            return false;
        out.m[0][c] = xyz->X;
        out.m[1][c] = xyz->Y;
        out.m[2][c] = xyz->Z;
    }
    return true;
}

bool invert(const Mat3& a, Mat3& inv) {
    const auto& m = a.m;
    double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                 m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                 m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    if (det == 0.0)
        return false;
    inv.m[0][0] = (m[1][1] * m[2][2] - m[1][2] * m[2][1]) / det;
    inv.m[0][1] = (m[0][2] * m[2][1] - m[0][1] * m[2][2]) / det;
    inv.m[0][2] = (m[0][1] * m[1][2] - m[0][2] * m[1][1]) / det;
    inv.m[1][0] = (m[1][2] * m[2][0] - m[1][0] * m[2][2]) / det;
    inv.m[1][1] = (m[0][0] * m[2][2] - m[0][2] * m[2][0]) / det;
    inv.m[1][2] = (m[0][2] * m[1][0] - m[0][0] * m[1][2]) / det;
    inv.m[2][0] = (m[1][0] * m[2][1] - m[1][1] * m[2][0]) / det;
    inv.m[2][1] = (m[0][1] * m[2][0] - m[0][0] * m[2][1]) / det;
    inv.m[2][2] = (m[0][0] * m[1][1] - m[0][1] * m[1][0]) / det;
    return true;
}

Mat3 multiply(const Mat3& a, const Mat3& b) {
    Mat3 r{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k)
                r.m[i][j] += a.m[i][k] * b.m[k][j];
    return r;
}

QString description(cmsHPROFILE profile) {
    char text[512] = {0};
    cmsGetProfileInfoASCII(profile, cmsInfoDescription, "en", "US", text, sizeof text);
    return QString::fromLatin1(text);
}

} // namespace

bool kaICCProfile::load(const QString& fileName) {
    _fileName = fileName;
    _data.clear();
    _description.clear();
    _loaded = false;
    _matrix = kaColorMatrix();

    QFile file(fileName);
    if (fileName.isEmpty() || !file.open(QIODevice::ReadOnly))
        return false;
    QByteArray bytes = file.readAll();
    // A context of its own: profiles load on background image writers too, and lcms2 is
    // thread-safe only across contexts.
    std::unique_ptr<_cmsContext_struct, void (*)(cmsContext)> context(
        cmsCreateContext(nullptr, nullptr), cmsDeleteContext);
    cmsHPROFILE profile =
        cmsOpenProfileFromMemTHR(context.get(), bytes.constData(), cmsUInt32Number(bytes.size()));
    if (!profile)
        return false;
    _data = bytes;
    _description = description(profile);

    cmsHPROFILE srgb = cmsCreate_sRGBProfileTHR(context.get());
    Mat3 profileColorants, srgbColorants, toProfile;
    bool matrixShaper = cmsGetColorSpace(profile) == cmsSigRgbData && cmsIsMatrixShaper(profile) &&
                        colorants(profile, profileColorants) && colorants(srgb, srgbColorants) &&
                        invert(profileColorants, toProfile);
    cmsCloseProfile(srgb);
    if (matrixShaper) {
        // linear sRGB -> XYZ (D50) -> the profile's linear RGB.
        Mat3 m = multiply(toProfile, srgbColorants);
        float rows[3][3];
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c)
                rows[r][c] = float(m.m[r][c]);
        _matrix = kaColorMatrix(rows);

        const cmsTagSignature curves[3] = {cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag};
        for (int channel = 0; channel < 3 && matrixShaper; ++channel) {
            auto* trc = static_cast<cmsToneCurve*>(cmsReadTag(profile, curves[channel]));
            cmsToneCurve* inverse = trc ? cmsReverseToneCurve(trc) : nullptr;
            if (!inverse) {
                matrixShaper = false;
                break;
            }
            for (int i = 0; i < kTableSize; ++i)
                _tables[channel][i] = cmsEvalToneCurveFloat(inverse, (i + 0.5f) / kTableSize);
            cmsFreeToneCurve(inverse);
        }
    }
    cmsCloseProfile(profile);
    _loaded = matrixShaper;
    return _loaded;
}

QByteArray kaICCProfile::linearized(const QByteArray& bytes, std::array<float, 8>* chromaticities) {
    std::unique_ptr<_cmsContext_struct, void (*)(cmsContext)> context(
        cmsCreateContext(nullptr, nullptr), cmsDeleteContext);
    cmsHPROFILE profile =
        cmsOpenProfileFromMemTHR(context.get(), bytes.constData(), cmsUInt32Number(bytes.size()));
    if (!profile)
        return QByteArray();
    QByteArray result;
    Mat3 colorantsD50;
    if (cmsGetColorSpace(profile) == cmsSigRgbData && cmsIsMatrixShaper(profile) &&
        colorants(profile, colorantsD50)) {
        cmsToneCurve* linear = cmsBuildGamma(context.get(), 1.0);
        bool ok = linear && cmsWriteTag(profile, cmsSigRedTRCTag, linear) &&
                  cmsWriteTag(profile, cmsSigGreenTRCTag, linear) &&
                  cmsWriteTag(profile, cmsSigBlueTRCTag, linear);
        if (linear)
            cmsFreeToneCurve(linear);
        // Say what it is: "sRGB IEC61966-2.1" becomes "sRGB IEC61966-2.1 (linear)".
        const QString name = description(profile) + " (linear)";
        cmsMLU* text = cmsMLUalloc(context.get(), 1);
        if (text && cmsMLUsetASCII(text, "en", "US", name.toLatin1().constData()))
            cmsWriteTag(profile, cmsSigProfileDescriptionTag, text);
        if (text)
            cmsMLUfree(text);
        cmsUInt32Number size = 0;
        if (ok && cmsSaveProfileToMem(profile, nullptr, &size) && size > 0) {
            result.resize(int(size));
            if (!cmsSaveProfileToMem(profile, result.data(), &size))
                result.clear();
        }
        if (chromaticities) {
            // The colorants and white before the profile's adaptation to D50.
            Mat3 undo{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
            // The tag is nine doubles, row by row.
            if (auto* chad =
                    static_cast<const double*>(cmsReadTag(profile, cmsSigChromaticAdaptationTag))) {
                Mat3 adapt;
                for (int r = 0; r < 3; ++r)
                    for (int c = 0; c < 3; ++c)
                        adapt.m[r][c] = chad[r * 3 + c];
                invert(adapt, undo);
            }
            const Mat3 original = multiply(undo, colorantsD50);
            auto xy = [](double X, double Y, double Z, float* out) {
                const double sum = X + Y + Z;
                out[0] = sum > 0 ? float(X / sum) : 0.0f;
                out[1] = sum > 0 ? float(Y / sum) : 0.0f;
            };
            for (int c = 0; c < 3; ++c)
                xy(original.m[0][c], original.m[1][c], original.m[2][c],
                   chromaticities->data() + 2 * c);
            // The white is what the three add up to at full strength.
            xy(original.m[0][0] + original.m[0][1] + original.m[0][2],
               original.m[1][0] + original.m[1][1] + original.m[1][2],
               original.m[2][0] + original.m[2][1] + original.m[2][2], chromaticities->data() + 6);
        }
    }
    cmsCloseProfile(profile);
    return result;
}
