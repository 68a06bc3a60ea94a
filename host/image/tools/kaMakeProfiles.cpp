// Writes the host's two stock ICC profiles into a folder, at build time:
//   sRGB_IEC61966-2-1_no_black_scaling.icc   sRGB (IEC 61966-2-1)
//   AdobeRGB1998.icc                         Adobe RGB (1998) primaries, D65, gamma 563/256
#include <lcms2.h>

#include <cstdio>
#include <string>

namespace {

bool setText(cmsHPROFILE profile, cmsTagSignature tag, const char* text) {
    cmsMLU* mlu = cmsMLUalloc(nullptr, 1);
    bool ok = mlu && cmsMLUsetASCII(mlu, "en", "US", text) && cmsWriteTag(profile, tag, mlu);
    cmsMLUfree(mlu);
    return ok;
}

bool finishAndSave(cmsHPROFILE profile, const char* description, const std::string& path) {
    bool ok = profile && setText(profile, cmsSigProfileDescriptionTag, description) &&
              setText(profile, cmsSigCopyrightTag, "No copyright, use freely") &&
              cmsMD5computeID(profile) && cmsSaveProfileToFile(profile, path.c_str());
    if (profile)
        cmsCloseProfile(profile);
    if (!ok)
        std::fprintf(stderr, "kaMakeProfiles: couldn't write '%s'\n", path.c_str());
    return ok;
}

cmsHPROFILE makeSRGB() {
    // lcms2's own sRGB: the IEC 61966-2-1 primaries and curve, with no black-point scaling.
    cmsHPROFILE profile = cmsCreate_sRGBProfile();
    if (profile)
        cmsSetProfileVersion(profile, 2.1);
    return profile;
}

cmsHPROFILE makeAdobeRGB() {
    const cmsCIExyY d65 = {0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE primaries = {
        {0.6400, 0.3300, 1.0}, {0.2100, 0.7100, 1.0}, {0.1500, 0.0600, 1.0}};
    cmsToneCurve* gamma = cmsBuildGamma(nullptr, 563.0 / 256.0);
    cmsToneCurve* curves[3] = {gamma, gamma, gamma};
    cmsHPROFILE profile = cmsCreateRGBProfile(&d65, &primaries, curves);
    cmsFreeToneCurve(gamma);
    if (profile)
        cmsSetProfileVersion(profile, 2.1);
    return profile;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: kaMakeProfiles OUTPUT_FOLDER\n");
        return 2;
    }
    const std::string folder = argv[1];
    bool ok = finishAndSave(makeSRGB(), "sRGB IEC61966-2.1",
                            folder + "/sRGB_IEC61966-2-1_no_black_scaling.icc");
    ok = finishAndSave(makeAdobeRGB(), "Adobe RGB (1998)", folder + "/AdobeRGB1998.icc") && ok;
    return ok ? 0 : 1;
}
