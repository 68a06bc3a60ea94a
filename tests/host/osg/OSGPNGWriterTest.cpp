// The PNG writer that compresses on every core: every file is read back with OpenImageIO, with
// a decoder of this test's own (zlib's inflate and the PNG filters undone here) and checked by
// pngcheck; the zlib stream, the chunks, the metadata and the compression level are looked at
// in the bytes themselves.
#include "OSGImage.h"
#include "OSGImageFileHandler.h"
#include "OSGImageFileType.h"
#include "filetypes/OSGPNGImageFileType.h"
#include "filetypes/OSGPNGWriter_p.h"

#include "kaPreferences.h"
#include "kaTestSupport.h"

#include <OpenImageIO/imageio.h>
#include <lcms2.h>
#include <zlib.h>

#include <QFile>
#include <QProcess>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

using osg::Image;

namespace {

// ---- Reading PNG bytes: the test's own, independent of the writer ----

struct Chunk {
    std::string type;
    std::string data;
};

uint32_t bigEndian32(const uint8_t* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

// The chunks of a PNG stream; fails the test on a bad signature, length or CRC.
std::vector<Chunk> chunksOf(const std::vector<uint8_t>& png) {
    static const uint8_t signature[8] = {137, 80, 78, 71, 13, 10, 26, 10};
    std::vector<Chunk> chunks;
    EXPECT_TRUE(png.size() >= 8 && std::memcmp(png.data(), signature, 8) == 0) << "signature";
    size_t at = 8;
    while (at + 12 <= png.size()) {
        const uint32_t length = bigEndian32(&png[at]);
        if (at + 12 + length > png.size()) {
            ADD_FAILURE() << "chunk at " << at << " runs past the end";
            break;
        }
        Chunk chunk{std::string(reinterpret_cast<const char*>(&png[at + 4]), 4),
                    std::string(reinterpret_cast<const char*>(&png[at + 8]), length)};
        const uLong crc = crc32(0, &png[at + 4], uInt(length + 4));
        EXPECT_EQ(crc, bigEndian32(&png[at + 8 + length])) << chunk.type << " CRC";
        chunks.push_back(std::move(chunk));
        at += 12 + length;
    }
    EXPECT_EQ(at, png.size()) << "bytes after the last chunk";
    return chunks;
}

std::string idatStream(const std::vector<Chunk>& chunks) {
    std::string stream;
    for (const Chunk& chunk : chunks)
        if (chunk.type == "IDAT")
            stream += chunk.data;
    return stream;
}

// The whole zlib stream inflated; fails the test unless it ends exactly at the end of the data
// with a matching Adler-32 (zlib checks it).
std::vector<uint8_t> inflated(const std::string& stream, size_t expectedSize) {
    std::vector<uint8_t> out(expectedSize + 1);
    z_stream z{};
    EXPECT_EQ(inflateInit(&z), Z_OK);
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(stream.data()));
    z.avail_in = uInt(stream.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    EXPECT_EQ(inflate(&z, Z_FINISH), Z_STREAM_END) << (z.msg ? z.msg : "");
    EXPECT_EQ(z.avail_in, 0u) << "bytes after the end of the zlib stream";
    out.resize(z.total_out);
    inflateEnd(&z);
    return out;
}

int paeth(int a, int b, int c) {
    const int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
    return pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
}

// Undoes the five PNG filters; the rows as the file holds them, top row first.
std::vector<uint8_t> unfiltered(const std::vector<uint8_t>& data, size_t rowBytes, int height,
                                size_t pixelBytes) {
    std::vector<uint8_t> rows(rowBytes * size_t(height));
    for (int y = 0; y < height; ++y) {
        const uint8_t* in = &data[size_t(y) * (rowBytes + 1)];
        uint8_t* out = &rows[size_t(y) * rowBytes];
        const uint8_t* up = y > 0 ? out - rowBytes : nullptr;
        EXPECT_LE(in[0], 4) << "filter type of row " << y;
        for (size_t i = 0; i < rowBytes; ++i) {
            const int a = i >= pixelBytes ? out[i - pixelBytes] : 0, b = up ? up[i] : 0,
                      c = up && i >= pixelBytes ? up[i - pixelBytes] : 0;
            const int predictors[5] = {0, a, b, (a + b) / 2, paeth(a, b, c)};
            out[i] = uint8_t(in[1 + i] + predictors[in[0] % 5]);
        }
    }
    return rows;
}

// The image's pixels top row first, 16-bit values big-endian as PNG stores them or in this
// machine's order.
std::vector<uint8_t> fileOrder(const Image& image, bool bigEndian = true) {
    const size_t row = image.getRowSize();
    std::vector<uint8_t> bytes(row * size_t(image.getHeight()));
    for (int y = 0; y < image.getHeight(); ++y)
        std::memcpy(&bytes[size_t(y) * row],
                    image.getData() + size_t(image.getHeight() - 1 - y) * row, row);
    if (image.getComponentSize() == 2 && bigEndian)
        for (size_t i = 0; i + 1 < bytes.size(); i += 2)
            std::swap(bytes[i], bytes[i + 1]);
    return bytes;
}

std::vector<uint8_t> fileBytes(const std::string& path) {
    const QByteArray bytes = katest::fileBytes(QString::fromStdString(path));
    return std::vector<uint8_t>(bytes.begin(), bytes.end());
}

// pngcheck's verdict (it inflates the stream and checks every chunk); its output on failure.
std::string pngcheckComplaint(const std::string& path) {
    QProcess check;
    check.start("pngcheck", {"-v", QString::fromStdString(path)});
    if (!check.waitForFinished(30000))
        return "pngcheck did not run (scripts/bootstrap installs it)";
    const QString out = QString::fromUtf8(check.readAllStandardOutput());
    if (check.exitCode() != 0 || !out.contains("No errors detected"))
        return out.toStdString();
    return std::string();
}

// What pngcheck says about the zlib stream's level hint ("superfast", "fast", "default",
// "maximum").
std::string pngcheckCompression(const std::string& path) {
    QProcess check;
    check.start("pngcheck", {"-v", QString::fromStdString(path)});
    check.waitForFinished(30000);
    const QString out = QString::fromUtf8(check.readAllStandardOutput());
    const int at = out.indexOf(" compression\n");
    const int from = out.lastIndexOf(", ", at);
    return at < 0 || from < 0 ? std::string() : out.mid(from + 2, at - from - 2).toStdString();
}

// Pixels as OpenImageIO reads the file, top row first, in the file's own type (16-bit values in
// this machine's order).
std::vector<uint8_t> readWithOpenImageIO(const std::string& path, const Image& like) {
    // Straight alpha as stored, not premultiplied.
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    auto in = OIIO::ImageInput::open(path, &config);
    EXPECT_TRUE(in) << OIIO::geterror();
    if (!in)
        return {};
    EXPECT_EQ(in->spec().width, like.getWidth());
    EXPECT_EQ(in->spec().height, like.getHeight());
    EXPECT_EQ(in->spec().nchannels, like.getComponents());
    const OIIO::TypeDesc type =
        like.getComponentSize() == 2 ? OIIO::TypeDesc::UINT16 : OIIO::TypeDesc::UINT8;
    std::vector<uint8_t> pixels(like.getRowSize() * size_t(like.getHeight()));
    EXPECT_TRUE(in->read_image(0, 0, 0, like.getComponents(), type, pixels.data()));
    return pixels;
}

// ---- Pictures ----

struct Layout {
    const char* name;
    uint32_t format;
    int32_t type;
};

const Layout kLayouts[] = {
    {"gray8", Image::OSG_L_PF, Image::OSG_UINT8_IMAGEDATA},
    {"grayAlpha8", Image::OSG_LA_PF, Image::OSG_UINT8_IMAGEDATA},
    {"rgb8", Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA},
    {"rgba8", Image::OSG_RGBA_PF, Image::OSG_UINT8_IMAGEDATA},
    {"gray16", Image::OSG_L_PF, Image::OSG_UINT16_IMAGEDATA},
    {"grayAlpha16", Image::OSG_LA_PF, Image::OSG_UINT16_IMAGEDATA},
    {"rgb16", Image::OSG_RGB_PF, Image::OSG_UINT16_IMAGEDATA},
    {"rgba16", Image::OSG_RGBA_PF, Image::OSG_UINT16_IMAGEDATA},
};

struct Size {
    int width, height;
};

// One pixel; three rows of three; one tall column; a wide picture of few rows (fewer rows than
// threads); a single row.
const Size kSizes[] = {{1, 1}, {3, 3}, {3, 1000}, {1001, 7}, {1001, 1}};

// Smooth shading with noise in the low bits (as rendered pictures are), every value of the
// type reached somewhere; rows bottom-up, straight alpha.
osg::ImagePtr makePicture(uint32_t format, int32_t type, int width, int height, unsigned seed = 1) {
    osg::ImagePtr image = Image::create();
    image->set(format, width, height, 1, 1, 1, 0.0, nullptr, type);
    std::mt19937 random(seed);
    const int channels = image->getComponents();
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c) {
                const double smooth = 0.5 + 0.5 * std::sin(0.01 * x * (c + 1) + 0.02 * y);
                const size_t i = (size_t(y) * width + x) * channels + c;
                if (type == Image::OSG_UINT16_IMAGEDATA) {
                    const int v = int(smooth * 65000) + int(random() % 512);
                    reinterpret_cast<uint16_t*>(image->getData())[i] = uint16_t(std::min(v, 65535));
                } else {
                    const int v = int(smooth * 250) + int(random() % 6);
                    image->getData()[i] = uint8_t(std::min(v, 255));
                }
            }
    return image;
}

std::string iccProfile() {
    cmsHPROFILE profile = cmsCreate_sRGBProfile();
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    std::string bytes(size, '\0');
    cmsSaveProfileToMem(profile, bytes.data(), &size);
    cmsCloseProfile(profile);
    return bytes;
}

osg::ImageFileType* pngType() {
    return osg::ImageFileHandler::the().getFileType("image/png");
}

// Slices of a few bytes: many more than threads, and more than rows, cut inside rows.
osg::png::DeflateSlicing tinySlices(size_t bytes = 97) {
    osg::png::DeflateSlicing slicing;
    slicing.minimumSlice = 1;
    slicing.maximumSlice = bytes;
    return slicing;
}

std::vector<uint8_t> encode(const Image& image, int level,
                            const osg::png::DeflateSlicing& slicing = {}) {
    std::vector<uint8_t> bytes;
    osg::png::PNGOptions options;
    options.level = level;
    options.slicing = slicing;
    std::string error;
    EXPECT_TRUE(osg::png::encodePNG(image, options, bytes, error)) << error;
    return bytes;
}

void save(const std::vector<uint8_t>& bytes, const std::string& path) {
    QFile file(QString::fromStdString(path));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(reinterpret_cast<const char*>(bytes.data()), qint64(bytes.size()));
}

// The three readers agree with the source pixels; the stream inflates to the filtered rows.
void expectReadsBackExactly(const std::string& path, const Image& source) {
    EXPECT_EQ(pngcheckComplaint(path), "");
    EXPECT_TRUE(readWithOpenImageIO(path, source) == fileOrder(source, false))
        << "OpenImageIO reads other pixels";
    const std::vector<uint8_t> expected = fileOrder(source);

    const std::vector<Chunk> chunks = chunksOf(fileBytes(path));
    const size_t stride = source.getRowSize() + 1;
    const std::vector<uint8_t> rows =
        inflated(idatStream(chunks), stride * size_t(source.getHeight()));
    ASSERT_EQ(rows.size(), stride * size_t(source.getHeight()));
    EXPECT_TRUE(unfiltered(rows, source.getRowSize(), source.getHeight(),
                           size_t(source.getBpp())) == expected)
        << "the filtered rows undo to other pixels";
}

// ---- Cases ----

struct Case {
    Layout layout;
    Size size;
    bool tiny; // slices of a few bytes
};

void PrintTo(const Case& c, std::ostream* out) {
    *out << c.layout.name << " " << c.size.width << "x" << c.size.height
         << (c.tiny ? " tiny slices" : "");
}

std::vector<Case> allCases() {
    std::vector<Case> cases;
    for (const Layout& layout : kLayouts)
        for (const Size& size : kSizes)
            for (bool tiny : {false, true})
                cases.push_back({layout, size, tiny});
    return cases;
}

std::string caseName(const testing::TestParamInfo<Case>& info) {
    const Case& c = info.param;
    return std::string(c.layout.name) + "_" + std::to_string(c.size.width) + "x" +
           std::to_string(c.size.height) + (c.tiny ? "_tinySlices" : "");
}

} // namespace

class PNGWriterRoundTrip : public testing::TestWithParam<Case> {
protected:
    katest::TempDir dir;
};

TEST_P(PNGWriterRoundTrip, EveryReaderGetsTheSourcePixels) {
    const Case c = GetParam();
    osg::ImagePtr source = makePicture(c.layout.format, c.layout.type, c.size.width, c.size.height);
    const std::string path = dir.fileStd("picture.png");
    save(encode(*source, 1, c.tiny ? tinySlices() : osg::png::DeflateSlicing()), path);
    expectReadsBackExactly(path, *source);
}

INSTANTIATE_TEST_SUITE_P(Layouts, PNGWriterRoundTrip, testing::ValuesIn(allCases()), caseName);

class PNGWriterLevel : public testing::TestWithParam<int> {
protected:
    katest::TempDir dir;
    katest::PreferencesGuard preferences;
};

TEST_P(PNGWriterLevel, TheFileTypeWritesWithThePreferencesLevel) {
    const int level = GetParam();
    kaPreferences::getData().set("ImageExport png level", level);
    EXPECT_EQ(osg::PNGImageFileType::compressionLevel(), level);
    osg::ImagePtr source = makePicture(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 640, 480);
    const std::string path = dir.fileStd("level.png");
    ASSERT_TRUE(pngType()->write(source, path));
    expectReadsBackExactly(path, *source);
    // The stream's header says the level as zlib itself would.
    const char* hint = level < 2    ? "superfast"
                       : level < 6  ? "fast"
                       : level == 6 ? "default"
                                    : "maximum";
    EXPECT_EQ(pngcheckCompression(path), hint);
    const size_t raw = source->getSize() + size_t(source->getHeight());
    const size_t written = fileBytes(path).size();
    if (level == 0) {
        EXPECT_GT(written, raw) << "level 0 stores the rows as they are";
    } else {
        EXPECT_LT(written, raw);
    }
}

INSTANTIATE_TEST_SUITE_P(Levels, PNGWriterLevel, testing::Range(0, 10),
                         [](const testing::TestParamInfo<int>& info) {
                             return "level" + std::to_string(info.param);
                         });

TEST(PNGWriterLevel, HigherLevelsMakeSmallerFiles) {
    osg::ImagePtr source = makePicture(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 512, 512);
    EXPECT_LT(encode(*source, 9).size(), encode(*source, 1).size());
}

TEST(PNGWriterLevel, WithoutAUsablePreferenceTheDefaultFromThePreferenceTableHolds) {
    katest::PreferencesGuard preferences;
    int expected = -1;
    const boost::any fromTable = kaPreferences::getData().get("ImageExport png level");
    ASSERT_TRUE(boost::any_cast<int>(&fromTable));
    expected = boost::any_cast<int>(fromTable);
    EXPECT_EQ(expected, 1) << "the default is the fastest level";
    kaPreferences::getData().remove("ImageExport png level");
    EXPECT_EQ(osg::PNGImageFileType::compressionLevel(), expected);
    kaPreferences::getData().set("ImageExport png level", 12);
    EXPECT_EQ(osg::PNGImageFileType::compressionLevel(), expected);
    kaPreferences::getData().set("ImageExport png level", 6.0f);
    EXPECT_EQ(osg::PNGImageFileType::compressionLevel(), expected);
}

TEST(PNGWriterStream, IsOneZlibStreamOfTheFilteredRowsInMegabyteChunks) {
    // Noise, so that the stream is larger than one chunk.
    osg::ImagePtr source = Image::create();
    source->set(Image::OSG_RGB_PF, 1024, 700);
    std::mt19937 random(3);
    for (size_t i = 0; i < source->getSize(); ++i)
        source->getData()[i] = uint8_t(random());
    for (const osg::png::DeflateSlicing& slicing : {osg::png::DeflateSlicing(), tinySlices(4099)}) {
        const std::vector<Chunk> chunks = chunksOf(encode(*source, 6, slicing));
        ASSERT_GE(chunks.size(), 3u);
        EXPECT_EQ(chunks.front().type, "IHDR");
        EXPECT_EQ(chunks.back().type, "IEND");
        // The IDAT chunks follow one another, each a megabyte but the last.
        size_t first = 0, last = 0;
        for (size_t i = 0; i < chunks.size(); ++i)
            if (chunks[i].type == "IDAT") {
                first = first ? first : i;
                last = i;
            }
        ASSERT_GT(last, first) << "more than one IDAT chunk";
        for (size_t i = first; i <= last; ++i) {
            EXPECT_EQ(chunks[i].type, "IDAT");
            if (i < last) {
                EXPECT_EQ(chunks[i].data.size(), size_t(1) << 20);
            }
        }

        const std::string stream = idatStream(chunks);
        const auto* bytes = reinterpret_cast<const uint8_t*>(stream.data());
        EXPECT_EQ(bytes[0], 0x78) << "deflate with a 32 KB window";
        EXPECT_EQ((bytes[0] * 256 + bytes[1]) % 31, 0) << "header check bits";
        EXPECT_EQ(bytes[1] & 0x20, 0) << "no preset dictionary";

        // zlib's one-call decoder gives exactly the filtered rows.
        const osg::png::FilteredRows rows(*source, osg::png::rowFilterFor(6));
        std::vector<uint8_t> expected(rows.size());
        rows.read(0, expected.size(), expected.data());
        std::vector<uint8_t> out(expected.size());
        uLongf outSize = uLongf(out.size());
        ASSERT_EQ(uncompress(out.data(), &outSize, bytes, uLong(stream.size())), Z_OK);
        EXPECT_EQ(outSize, expected.size());
        EXPECT_TRUE(out == expected);
        const uLong adler = adler32_z(adler32_z(0, nullptr, 0), expected.data(), expected.size());
        EXPECT_EQ(bigEndian32(bytes + stream.size() - 4), adler) << "Adler-32 of all the rows";
        EXPECT_TRUE(unfiltered(out, source->getRowSize(), source->getHeight(), 3) ==
                    fileOrder(*source));
    }
}

TEST(PNGWriterStream, RowsReadInAnyPiecesAreTheSameBytes) {
    osg::ImagePtr source = makePicture(Image::OSG_RGBA_PF, Image::OSG_UINT16_IMAGEDATA, 13, 9);
    const osg::png::FilteredRows rows(*source, osg::png::RowFilter::Sub);
    std::vector<uint8_t> whole(rows.size());
    rows.read(0, whole.size(), whole.data());
    for (size_t piece : {size_t(1), size_t(7), rows.stride() - 1, rows.stride() + 3}) {
        std::vector<uint8_t> pieces(rows.size());
        for (size_t at = 0; at < pieces.size(); at += piece)
            rows.read(at, std::min(piece, pieces.size() - at), pieces.data() + at);
        EXPECT_TRUE(pieces == whole) << "pieces of " << piece;
    }
}

TEST(PNGWriterStream, AnOutputThatFailsStopsTheWriterAtOnce) {
    osg::ImagePtr source = makePicture(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 800, 600);
    for (size_t allowed : {size_t(0), size_t(40), size_t(3000)}) {
        size_t taken = 0;
        int callsAfterFailure = 0;
        osg::png::PNGOptions options;
        options.slicing = tinySlices();
        std::string error;
        const bool written = osg::png::writePNG(
            *source, options,
            [&](const uint8_t*, size_t size) {
                if (taken >= allowed) {
                    ++callsAfterFailure;
                    return false;
                }
                taken += size;
                return true;
            },
            "memory", error);
        EXPECT_FALSE(written);
        EXPECT_EQ(error, "") << "the output's own error is the cause";
        EXPECT_EQ(callsAfterFailure, 1) << "nothing more is written after the failure";
    }
}

TEST(PNGWriterStream, AnOutputThatRefusesTheHeaderGetsNoPixels) {
    osg::ImagePtr source = makePicture(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 800, 600);
    bool headerDone = false;
    int writesAfterHeader = 0;
    osg::png::PNGOptions options;
    options.headerDone = [&] {
        headerDone = true;
        return false;
    };
    std::string error;
    EXPECT_FALSE(osg::png::writePNG(
        *source, options,
        [&](const uint8_t*, size_t) {
            writesAfterHeader += headerDone ? 1 : 0;
            return true;
        },
        "memory", error));
    EXPECT_TRUE(headerDone);
    EXPECT_EQ(error, "");
    EXPECT_EQ(writesAfterHeader, 0);
}

TEST(PNGWriterStream, ImagesPNGCantHoldAreRefusedWithTheReason) {
    osg::ImagePtr floats = Image::create();
    floats->set(Image::OSG_RGB_PF, 4, 4, 1, 1, 1, 0.0, nullptr, Image::OSG_FLOAT32_IMAGEDATA);
    EXPECT_NE(osg::png::unwritablePNGBecause(*floats), "");
    EXPECT_EQ(osg::png::unwritablePNGBecause(
                  *makePicture(Image::OSG_LA_PF, Image::OSG_UINT16_IMAGEDATA, 2, 2)),
              "");
    osg::ImagePtr empty = Image::create();
    EXPECT_EQ(osg::png::unwritablePNGBecause(*empty), "the image holds no pixels");
}

class PNGWriterMetadata : public testing::Test {
protected:
    katest::TempDir dir;
};

TEST_F(PNGWriterMetadata, ProfileResolutionCommentAndXMPReachTheFile) {
    osg::ImagePtr source = makePicture(Image::OSG_RGBA_PF, Image::OSG_UINT8_IMAGEDATA, 97, 61);
    const std::string profile = iccProfile();
    source->setAttachmentField(osg::kICCProfileAttachment, profile);
    source->setAttachmentField(osg::kCommentAttachment, "KALO\nround trip");
    source->setAttachmentField(
        osg::kXMPAttachment,
        "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF "
        "xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\"><rdf:Description "
        "rdf:about=\"\" xmlns:kaExport=\"http://ns.kalo.local/imageexport/1.0/\" "
        "kaExport:ImageWidth=\"97\" kaExport:PremultipliedAlpha=\"True\"/></rdf:RDF></x:xmpmeta>");
    source->setResX(300.0f);
    source->setResY(150.0f);
    source->setResUnit(Image::OSG_RESUNIT_INCH);
    const std::string path = dir.fileStd("meta.png");
    ASSERT_TRUE(pngType()->write(source, path));
    expectReadsBackExactly(path, *source);

    auto in = OIIO::ImageInput::open(path);
    ASSERT_TRUE(in);
    const OIIO::ImageSpec& spec = in->spec();
    EXPECT_EQ(spec.get_string_attribute("ImageDescription"), "KALO\nround trip");
    EXPECT_EQ(spec.get_string_attribute("ResolutionUnit"), "inch");
    // pHYs holds whole pixels per metre: half of one is 0.0127 dpi.
    EXPECT_NEAR(spec.get_float_attribute("XResolution"), 300.0f, 0.013f);
    EXPECT_NEAR(spec.get_float_attribute("YResolution"), 150.0f, 0.013f);
    const OIIO::ParamValue* icc = spec.find_attribute("ICCProfile");
    ASSERT_TRUE(icc);
    EXPECT_EQ(std::string(static_cast<const char*>(icc->data()), icc->datasize()), profile);

    // The packet says which alpha the file holds: straight, as PNG defines it.
    QProcess exiv2;
    exiv2.start("exiv2", {"-PX", QString::fromStdString(path)});
    exiv2.waitForFinished(30000);
    const QString xmp = QString::fromUtf8(exiv2.readAllStandardOutput());
    EXPECT_TRUE(xmp.contains(QRegularExpression("Xmp.kaExport.ImageWidth\\s+XmpText\\s+2\\s+97")))
        << xmp.toStdString();
    EXPECT_TRUE(xmp.contains(
        QRegularExpression("Xmp.kaExport.PremultipliedAlpha\\s+XmpText\\s+5\\s+False")))
        << xmp.toStdString();

    // Everything but the pixels comes before them.
    const std::vector<Chunk> chunks = chunksOf(fileBytes(path));
    std::vector<std::string> types;
    for (const Chunk& chunk : chunks)
        if (types.empty() || types.back() != chunk.type)
            types.push_back(chunk.type);
    EXPECT_EQ(types,
              (std::vector<std::string>{"IHDR", "iCCP", "pHYs", "iTXt", "tEXt", "IDAT", "IEND"}));
}

TEST_F(PNGWriterMetadata, ACommentBeyondASCIIIsKeptAsUTF8) {
    osg::ImagePtr source = makePicture(Image::OSG_RGB_PF, Image::OSG_UINT8_IMAGEDATA, 8, 8);
    const std::string comment = "Größe \xE2\x9C\x93 r\xC3\xA9sum\xC3\xA9";
    source->setAttachmentField(osg::kCommentAttachment, comment);
    const std::string path = dir.fileStd("utf8.png");
    ASSERT_TRUE(pngType()->write(source, path));
    EXPECT_EQ(pngcheckComplaint(path), "");
    auto in = OIIO::ImageInput::open(path);
    ASSERT_TRUE(in);
    EXPECT_EQ(in->spec().get_string_attribute("ImageDescription"), comment);
}

TEST_F(PNGWriterMetadata, PremultipliedPixelsAreWrittenStraight) {
    osg::ImagePtr source = Image::create();
    source->set(Image::OSG_RGBA_PF, 2, 1);
    const uint8_t pixels[8] = {60, 30, 0, 120, 255, 255, 255, 255};
    std::memcpy(source->getData(), pixels, sizeof pixels);
    source->setAlphaPremultiplied(true);
    const std::string path = dir.fileStd("straight.png");
    ASSERT_TRUE(pngType()->write(source, path));
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    auto in = OIIO::ImageInput::open(path, &config);
    ASSERT_TRUE(in);
    uint8_t back[8];
    ASSERT_TRUE(in->read_image(0, 0, 0, 4, OIIO::TypeDesc::UINT8, back));
    EXPECT_NEAR(back[0], 128, 1);
    EXPECT_NEAR(back[1], 64, 1);
    EXPECT_EQ(back[3], 120);
    EXPECT_EQ(back[4], 255);
}

TEST_F(PNGWriterMetadata, BytesInMemoryDecodeAndCarryNoXMP) {
    osg::ImagePtr source = makePicture(Image::OSG_RGB_PF, Image::OSG_UINT16_IMAGEDATA, 33, 17);
    source->setAttachmentField(osg::kXMPAttachment, "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"/>");
    source->setAttachmentField(osg::kICCProfileAttachment, iccProfile());
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(osg::ImageFileHandler::the().store(source, "image/png", bytes));
    for (const Chunk& chunk : chunksOf(bytes))
        EXPECT_NE(chunk.type, "iTXt");
    osg::ImagePtr back = Image::create();
    ASSERT_TRUE(osg::ImageFileHandler::the().restore(back, "png", bytes.data(), bytes.size()));
    ASSERT_EQ(back->getSize(), source->getSize());
    EXPECT_EQ(back->getDataType(), source->getDataType());
    EXPECT_TRUE(std::equal(back->getData(), back->getData() + back->getSize(), source->getData()));
}

TEST_F(PNGWriterMetadata, AnRGBProfileOnGrayPixelsFailsTheWriteWithLibpngsReason) {
    osg::ImagePtr source = makePicture(Image::OSG_L_PF, Image::OSG_UINT8_IMAGEDATA, 8, 8);
    source->setAttachmentField(osg::kICCProfileAttachment, iccProfile());
    const std::string path = dir.fileStd("gray.png");
    katest::LogCapture log;
    EXPECT_FALSE(pngType()->write(source, path));
    const std::vector<std::string> errors = log.texts(kaLog::Error);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].rfind("ImageFileType: Couldn't write '" + path + "': libpng: ", 0), 0u)
        << errors[0];
    EXPECT_NE(errors[0].find("grayscale"), std::string::npos) << errors[0];
    EXPECT_TRUE(katest::folderEntries(dir.path()).empty());
}

TEST(PNGWriterThreads, WritesFromSeveralThreadsAtOnceAreEachExact) {
    katest::TempDir dir;
    constexpr int kWriters = 4;
    std::vector<osg::ImagePtr> sources;
    for (int i = 0; i < kWriters; ++i)
        sources.push_back(makePicture(i % 2 ? Image::OSG_RGBA_PF : Image::OSG_RGB_PF,
                                      Image::OSG_UINT8_IMAGEDATA, 700 + 13 * i, 500, unsigned(i)));
    std::atomic<int> written{0};
    std::vector<std::thread> writers;
    for (int i = 0; i < kWriters; ++i)
        writers.emplace_back([&, i] {
            written += pngType()->write(sources[size_t(i)], dir.fileStd(QString("w%1.png").arg(i)))
                           ? 1
                           : 0;
        });
    for (std::thread& writer : writers)
        writer.join();
    EXPECT_EQ(written.load(), kWriters);
    for (int i = 0; i < kWriters; ++i)
        expectReadsBackExactly(dir.fileStd(QString("w%1.png").arg(i)), *sources[size_t(i)]);
}
