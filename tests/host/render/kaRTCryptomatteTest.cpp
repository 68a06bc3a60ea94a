#include "kaRTCryptomatte.h"
#include "kaRTCryptoAccumulator.h"

#include "OSGImage.h"
#include "OSGImageFileHandler.h"
#include "OSGImageFileType.h"

#include "kaTestSupport.h"

#include <OpenImageIO/imageio.h>

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <thread>

using osg::Image;

namespace {

uint32_t bitsOf(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

float floatOf(uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

using Attributes = std::vector<std::pair<std::string, std::string>>;

std::map<std::string, std::string> asMap(const Attributes& attributes) {
    return std::map<std::string, std::string>(attributes.begin(), attributes.end());
}

// Every test leaves the process-wide metadata as it found it.
class Cryptomatte : public testing::Test {
protected:
    void TearDown() override {
        kaRTCryptomatte::setStaticMetadata(false, false);
        kaRTCryptomatte::setRenderedNames("cryptoObject", {});
        kaRTCryptomatte::setRenderedNames("cryptoMaterial", {});
    }
};

osg::ImagePtr rgbaFloatImage(int width, int height) {
    osg::ImagePtr image = Image::create();
    image->set(Image::OSG_RGBA_PF, width, height, 1, 1, 1, 0.0, nullptr,
               Image::OSG_FLOAT32_IMAGEDATA);
    std::memset(image->getData(), 0, image->getSize());
    return image;
}

} // namespace

TEST(CryptomatteHash, MatchesMurmurHash3Vectors) {
    // Seed 0; lengths 0 to 4 cover every tail case, the last one bytes with the high bit set.
    const std::pair<std::string, uint32_t> vectors[] = {
        {"", 0x00000000u},
        {"a", 0x3c2569b2u},
        {"ab", 0x9bbfd75fu},
        {"abc", 0xb3dd93fau},
        {"abcd", 0x43ed676au},
        {"hello", 0x248bfa47u},
        {"Hello, world!", 0xc0363e43u},
        {"The quick brown fox jumps over the lazy dog", 0x2e4ff723u},
        {"bunny", 0x13851a76u},
        {"cryptoObject", 0x1a4aca83u},
        {"cryptoMaterial", 0x6af633d3u},
        {"\xff\xfe\x80", 0x12cb5f1fu},
    };
    for (const auto& [text, hash] : vectors)
        EXPECT_EQ(kaRTCryptomatte::hashName(text), hash) << '"' << text << '"';
}

TEST(CryptomatteHash, IdsKeepTheHashBitsUnlessTheExponentIsZeroOrFull) {
    EXPECT_EQ(bitsOf(kaRTCryptomatte::idOf(0x13851a76u)), 0x13851a76u);
    EXPECT_EQ(bitsOf(kaRTCryptomatte::idOf(0u)), 0x00800000u);
    EXPECT_EQ(bitsOf(kaRTCryptomatte::idOf(0xffffffffu)), 0xff7fffffu);
    EXPECT_EQ(bitsOf(kaRTCryptomatte::idOf(0x7f800000u)), 0x7f000000u) << "infinity";
    EXPECT_EQ(bitsOf(kaRTCryptomatte::idOf(0x7fc00000u)), 0x7f400000u) << "NaN";
    EXPECT_EQ(bitsOf(kaRTCryptomatte::idOf(0x80000001u)), 0x80800001u) << "denormal";
    // "Box" hashes to 0x803b1009: exponent 0 with the sign bit set.
    EXPECT_EQ(kaRTCryptomatte::hashName("Box"), 0x803b1009u);
    EXPECT_EQ(bitsOf(kaRTCryptomatte::idOfName("Box")), 0x80bb1009u);
    EXPECT_EQ(bitsOf(kaRTCryptomatte::idOfName("bunny")), 0x13851a76u);
}

TEST(CryptomatteHash, IdsAreAlwaysNormalFiniteFloats) {
    size_t checked = 0;
    auto check = [&](uint32_t hash) {
        const float id = kaRTCryptomatte::idOf(hash);
        ASSERT_TRUE(std::isnormal(id)) << std::hex << hash;
        const uint32_t exponent = (hash >> 23) & 0xff;
        const uint32_t expected = exponent == 0 || exponent == 255 ? hash ^ (1u << 23) : hash;
        ASSERT_EQ(bitsOf(id), expected) << std::hex << hash;
        ++checked;
    };
    // Every exponent with both signs and a spread of mantissas.
    for (uint32_t sign = 0; sign < 2; ++sign)
        for (uint32_t exponent = 0; exponent < 256; ++exponent)
            for (uint32_t mantissa :
                 {0u, 1u, 2u, 0x400000u, 0x3fffffu, 0x7ffffeu, 0x7fffffu, 0x123456u})
                check(sign << 31 | exponent << 23 | mantissa);
    // And a stride through all 32-bit values.
    for (uint64_t hash = 0; hash <= 0xffffffffull; hash += 65521)
        check(uint32_t(hash));
    // And the ids of real names.
    for (int i = 0; i < 10000; ++i)
        check(kaRTCryptomatte::hashName("object " + std::to_string(i)));
    EXPECT_GT(checked, 75000u);
}

TEST(CryptomatteHash, ManifestKeysAreTheFirstSevenHexDigits) {
    EXPECT_EQ(kaRTCryptomatte::manifestKey("cryptoObject"), "1a4aca8");
    EXPECT_EQ(kaRTCryptomatte::manifestKey("cryptoMaterial"), "6af633d");
    // Leading zeros count as digits.
    EXPECT_EQ(kaRTCryptomatte::manifestKey(""), "0000000");
}

TEST(CryptomatteAccumulator, RanksByCoverageAndPairsThemPerLayer) {
    kaRTCryptoAccumulator acc;
    acc.reset(3);
    EXPECT_EQ(acc.pixelCount(), 3u);
    const float a = kaRTCryptomatte::idOfName("a"), b = kaRTCryptomatte::idOfName("b"),
                c = kaRTCryptomatte::idOfName("c");
    // Pixel 1: a 1, b 4 (in two samples), c 2, and 3 of background in a total of 10.
    acc.add(1, a, 1.0f);
    acc.add(1, b, 3.0f);
    acc.add(1, c, 2.0f);
    acc.add(1, b, 1.0f);
    float rgba[4];
    acc.resolve(1, 0, 10.0f, rgba);
    EXPECT_EQ(bitsOf(rgba[0]), bitsOf(b));
    EXPECT_FLOAT_EQ(rgba[1], 0.4f);
    EXPECT_EQ(bitsOf(rgba[2]), bitsOf(c));
    EXPECT_FLOAT_EQ(rgba[3], 0.2f);
    acc.resolve(1, 1, 10.0f, rgba);
    EXPECT_EQ(bitsOf(rgba[0]), bitsOf(a));
    EXPECT_FLOAT_EQ(rgba[1], 0.1f);
    EXPECT_EQ(rgba[2], 0.0f) << "missing rank";
    EXPECT_EQ(rgba[3], 0.0f);
    acc.resolve(1, 2, 10.0f, rgba);
    for (float v : rgba)
        EXPECT_EQ(v, 0.0f);

    // Untouched pixels (background only) and an empty total give nothing.
    acc.resolve(0, 0, 4.0f, rgba);
    for (float v : rgba)
        EXPECT_EQ(v, 0.0f);
    acc.resolve(1, 0, 0.0f, rgba);
    for (float v : rgba)
        EXPECT_EQ(v, 0.0f);

    // Weights that aren't positive and finite are ignored.
    acc.add(2, a, 0.0f);
    acc.add(2, a, -1.0f);
    acc.add(2, a, std::nanf(""));
    acc.add(2, a, INFINITY);
    acc.resolve(2, 0, 1.0f, rgba);
    EXPECT_EQ(rgba[0], 0.0f);
    EXPECT_EQ(rgba[1], 0.0f);

    // A reset forgets everything.
    acc.reset(3);
    acc.resolve(1, 0, 10.0f, rgba);
    EXPECT_EQ(rgba[1], 0.0f);
}

TEST(CryptomatteAccumulator, EqualCoveragesOrderByTheSmallerIdBits) {
    const float low = floatOf(0x10000001u), mid = floatOf(0x3f000000u),
                negative = floatOf(0x90000000u);
    // Whatever the order of arrival.
    const std::vector<std::vector<float>> orders = {
        {negative, mid, low}, {low, negative, mid}, {mid, low, negative}};
    for (const auto& order : orders) {
        kaRTCryptoAccumulator acc;
        acc.reset(1);
        for (float id : order)
            acc.add(0, id, 0.5f);
        float first[4], second[4];
        acc.resolve(0, 0, 1.5f, first);
        acc.resolve(0, 1, 1.5f, second);
        EXPECT_EQ(bitsOf(first[0]), 0x10000001u);
        EXPECT_EQ(bitsOf(first[2]), 0x3f000000u);
        EXPECT_EQ(bitsOf(second[0]), 0x90000000u) << "bits, not values: the sign bit is high";
        EXPECT_FLOAT_EQ(first[1], 1.0f / 3.0f);
        EXPECT_FLOAT_EQ(first[3], 1.0f / 3.0f);
        EXPECT_FLOAT_EQ(second[1], 1.0f / 3.0f);
    }
}

TEST(CryptomatteAccumulator, AFullPixelGivesTheWeakestEntryOnlyToAHeavierSample) {
    const size_t n = kaRTCryptoAccumulator::kEntriesPerPixel;
    kaRTCryptoAccumulator acc;
    acc.reset(1);
    // Ids 0 .. n-1 with weights 2, 3, ..., n + 1; id 0 is the weakest.
    std::vector<float> ids;
    for (size_t i = 0; i < n + 2; ++i)
        ids.push_back(kaRTCryptomatte::idOfName("id" + std::to_string(i)));
    for (size_t i = 0; i < n; ++i)
        acc.add(0, ids[i], float(i + 2));
    float total = 0.0f;
    for (size_t i = 0; i < n; ++i)
        total += float(i + 2);

    auto rankedIds = [&]() {
        std::vector<uint32_t> result;
        for (int layer = 0; 2 * size_t(layer) < n; ++layer) {
            float rgba[4];
            acc.resolve(0, layer, total, rgba);
            for (int k = 0; k < 2; ++k)
                if (rgba[k * 2 + 1] > 0.0f)
                    result.push_back(bitsOf(rgba[k * 2]));
        }
        return result;
    };
    auto contains = [&](float id) {
        const std::vector<uint32_t> ranked = rankedIds();
        return std::find(ranked.begin(), ranked.end(), bitsOf(id)) != ranked.end();
    };
    ASSERT_EQ(rankedIds().size(), n);
    EXPECT_EQ(rankedIds().front(), bitsOf(ids[n - 1]));
    EXPECT_EQ(rankedIds().back(), bitsOf(ids[0]));

    // A lighter or equally heavy newcomer is dropped.
    acc.add(0, ids[n], 1.0f);
    acc.add(0, ids[n], 2.0f);
    total += 3.0f;
    EXPECT_FALSE(contains(ids[n]));
    EXPECT_TRUE(contains(ids[0]));
    // Known ids still gather weight.
    acc.add(0, ids[0], 0.5f);
    total += 0.5f;
    // A heavier one takes the weakest entry's place (id 0 with 2.5) and keeps only its own weight.
    acc.add(0, ids[n + 1], 2.75f);
    total += 2.75f;
    EXPECT_FALSE(contains(ids[0]));
    EXPECT_TRUE(contains(ids[n + 1]));
    std::vector<uint32_t> ranked = rankedIds();
    ASSERT_EQ(ranked.size(), n);
    EXPECT_EQ(ranked.back(), bitsOf(ids[n + 1])) << "2.75 is below id 1's 3";
    float rgba[4];
    acc.resolve(0, int(n / 2) - 1, total, rgba);
    EXPECT_FLOAT_EQ(rgba[3], 2.75f / total);
}

TEST(CryptomatteAccumulator, PixelsFillFromSeveralThreadsAtOnce) {
    const size_t width = 64, height = 64;
    kaRTCryptoAccumulator acc;
    acc.reset(width * height);
    const float ids[3] = {kaRTCryptomatte::idOfName("x"), kaRTCryptomatte::idOfName("y"),
                          kaRTCryptomatte::idOfName("z")};
    std::vector<std::thread> threads;
    for (size_t t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            // Thread t owns rows t, t + 4, ...
            for (size_t y = t; y < height; y += 4)
                for (size_t x = 0; x < width; ++x)
                    for (int sample = 0; sample < 16; ++sample)
                        acc.add(y * width + x, ids[(x + y + size_t(sample % 3)) % 3],
                                sample % 3 == 0 ? 2.0f : 1.0f);
        });
    for (std::thread& thread : threads)
        thread.join();
    for (size_t y = 0; y < height; ++y)
        for (size_t x = 0; x < width; ++x) {
            float rgba[4];
            acc.resolve(y * width + x, 0, 16.0f + 6.0f, rgba);
            // Samples 0, 3, .. 15 (6 of weight 2) go to the first id, 5 each to the others.
            ASSERT_EQ(bitsOf(rgba[0]), bitsOf(ids[(x + y) % 3]));
            ASSERT_FLOAT_EQ(rgba[1], 12.0f / 22.0f);
            ASSERT_FLOAT_EQ(rgba[3], 5.0f / 22.0f);
        }
}

TEST_F(Cryptomatte, HeaderAttributesFollowTheFlagsAndTheLayers) {
    kaRTCryptomatte::setRenderedNames("cryptoObject", {"Box", "Ground", "Box", "Chrome Sphere"});
    kaRTCryptomatte::setRenderedNames("cryptoMaterial", {"steel"});
    const std::vector<std::string> layers = {"beauty", "cryptoObject00", "cryptoObject01"};

    kaRTCryptomatte::setStaticMetadata(false, true);
    EXPECT_FALSE(kaRTCryptomatte::isStaticMetadata());
    EXPECT_TRUE(kaRTCryptomatte::headerAttributes(layers).empty());

    kaRTCryptomatte::setStaticMetadata(true, false);
    EXPECT_TRUE(kaRTCryptomatte::isStaticMetadata());
    EXPECT_FALSE(kaRTCryptomatte::hasManifest());
    EXPECT_EQ(asMap(kaRTCryptomatte::headerAttributes(layers)),
              (std::map<std::string, std::string>{
                  {"cryptomatte/1a4aca8/name", "cryptoObject"},
                  {"cryptomatte/1a4aca8/hash", "MurmurHash3_32"},
                  {"cryptomatte/1a4aca8/conversion", "uint32_to_float32"}}));
    // Without the first pass of a kind there is nothing for it.
    EXPECT_TRUE(kaRTCryptomatte::headerAttributes({"beauty", "cryptoObject01"}).empty());

    kaRTCryptomatte::setStaticMetadata(true, true);
    const auto attributes = asMap(kaRTCryptomatte::headerAttributes(layers));
    EXPECT_EQ(attributes.size(), 4u);
    EXPECT_EQ(attributes.at("cryptomatte/1a4aca8/manifest"),
              "{\"Box\":\"80bb1009\",\"Chrome Sphere\":\"2b0098e7\",\"Ground\":\"24950135\"}");
    const auto both =
        asMap(kaRTCryptomatte::headerAttributes({"cryptoMaterial00", "cryptoObject00"}));
    EXPECT_EQ(both.size(), 8u);
    EXPECT_EQ(both.at("cryptomatte/6af633d/name"), "cryptoMaterial");
    EXPECT_EQ(both.at("cryptomatte/6af633d/manifest"), "{\"steel\":\"d19dcc7c\"}");

    // The next render replaces the names.
    kaRTCryptomatte::setRenderedNames("cryptoObject", {});
    EXPECT_EQ(asMap(kaRTCryptomatte::headerAttributes(layers)).at("cryptomatte/1a4aca8/manifest"),
              "{}");
}

TEST_F(Cryptomatte, ManifestNamesAreEscapedJson) {
    const std::vector<std::string> names = {"quote \" and \\ backslash", "tab\tand\nnewline",
                                            "Mat\xc3\xa9riau", "\x01"};
    kaRTCryptomatte::setRenderedNames("cryptoMaterial", names);
    kaRTCryptomatte::setStaticMetadata(true, true);
    const auto attributes = asMap(kaRTCryptomatte::headerAttributes({"cryptoMaterial00"}));
    const std::string manifest = attributes.at("cryptomatte/6af633d/manifest");
    QJsonParseError error;
    const QJsonDocument json = QJsonDocument::fromJson(QByteArray::fromStdString(manifest), &error);
    ASSERT_EQ(error.error, QJsonParseError::NoError) << manifest;
    const QJsonObject object = json.object();
    EXPECT_EQ(object.size(), int(names.size()));
    for (const std::string& name : names) {
        const QString key = QString::fromStdString(name);
        ASSERT_TRUE(object.contains(key)) << name;
        bool ok = false;
        EXPECT_EQ(object.value(key).toString().toUInt(&ok, 16),
                  bitsOf(kaRTCryptomatte::idOfName(name)));
        EXPECT_TRUE(ok);
    }
}

TEST_F(Cryptomatte, LayeredFilesAskTheProviderWithTheLayersWritten) {
    std::vector<std::string> asked;
    osg::ImageFileType::setLayeredAttributesProvider(
        [&](const std::vector<std::string>& layerNames) {
            asked = layerNames;
            return Attributes{{"test/extra", "value"}};
        });
    katest::TempDir dir;
    osg::ImagePtr beauty = rgbaFloatImage(4, 2);
    const std::string names[] = {"beauty", "skipped", ""};
    osg::ImageFileType* exr = osg::ImageFileHandler::the().getFileType(nullptr, "x.exr");
    ASSERT_TRUE(exr);
    const std::string path = dir.fileStd("provider.exr");
    const bool written = exr->writeLayered(beauty, path, {beauty, osg::ImagePtr(), beauty}, names);
    osg::ImageFileType::setLayeredAttributesProvider(nullptr);
    ASSERT_TRUE(written);
    EXPECT_EQ(asked, (std::vector<std::string>{"beauty", "layer2"}));
    auto in = OIIO::ImageInput::open(path);
    ASSERT_TRUE(in);
    EXPECT_EQ(in->spec().get_string_attribute("test/extra"), "value");
}

TEST_F(Cryptomatte, LayeredExrCarriesTheAttributesAndThePasses) {
    const int width = 4, height = 2;
    // The renderer's part: names and per-pixel ranks.
    const std::vector<std::string> objects = {"Ground", "Box", "Chrome Sphere"};
    const std::vector<std::string> materials = {"floor \"tiles\"", "steel"};
    kaRTCryptomatte::setRenderedNames("cryptoObject", objects);
    kaRTCryptomatte::setRenderedNames("cryptoMaterial", materials);
    kaRTCryptoAccumulator objectRanks, materialRanks;
    objectRanks.reset(size_t(width) * height);
    materialRanks.reset(size_t(width) * height);
    for (size_t pixel = 0; pixel < size_t(width) * height; ++pixel) {
        objectRanks.add(pixel, kaRTCryptomatte::idOfName(objects[pixel % 3]), 3.0f);
        objectRanks.add(pixel, kaRTCryptomatte::idOfName(objects[(pixel + 1) % 3]), 1.0f);
        materialRanks.add(pixel, kaRTCryptomatte::idOfName(materials[pixel % 2]), 4.0f);
    }
    osg::ImagePtr beauty = rgbaFloatImage(width, height);
    osg::ImagePtr objectPass = rgbaFloatImage(width, height);
    osg::ImagePtr materialPass = rgbaFloatImage(width, height);
    for (size_t pixel = 0; pixel < size_t(width) * height; ++pixel) {
        objectRanks.resolve(pixel, 0, 4.0f,
                            reinterpret_cast<float*>(objectPass->getData()) + pixel * 4);
        materialRanks.resolve(pixel, 0, 4.0f,
                              reinterpret_cast<float*>(materialPass->getData()) + pixel * 4);
    }

    katest::TempDir dir;
    osg::ImageFileType* exr = osg::ImageFileHandler::the().getFileType(nullptr, "x.exr");
    ASSERT_TRUE(exr);
    ASSERT_TRUE(exr->getFlags() & osg::ImageFileType::OSG_LAYER_SUPPORTED);
    const std::string names[] = {"beauty", "cryptoObject00", "cryptoMaterial00"};
    const std::vector<osg::ImagePtr> layers = {beauty, objectPass, materialPass};

    // Twice: installing the header attributes again changes nothing.
    kaRTCryptomatte::setStaticMetadata(true, true);
    kaRTCryptomatte::setStaticMetadata(true, true);
    const std::string path = dir.fileStd("crypto.exr");
    ASSERT_TRUE(exr->writeLayered(beauty, path, layers, names));

    auto in = OIIO::ImageInput::open(path);
    ASSERT_TRUE(in);
    const OIIO::ImageSpec& header = in->spec();
    const std::pair<std::string, const std::vector<std::string>*> kinds[] = {
        {"cryptoObject", &objects}, {"cryptoMaterial", &materials}};
    std::map<uint32_t, std::string> nameOfId;
    for (const auto& [kind, kindNames] : kinds) {
        const std::string prefix = "cryptomatte/" + kaRTCryptomatte::manifestKey(kind) + "/";
        EXPECT_EQ(header.get_string_attribute(prefix + "name"), kind);
        EXPECT_EQ(header.get_string_attribute(prefix + "hash"), "MurmurHash3_32");
        EXPECT_EQ(header.get_string_attribute(prefix + "conversion"), "uint32_to_float32");
        const std::string manifest = header.get_string_attribute(prefix + "manifest");
        QJsonParseError error;
        const QJsonDocument json =
            QJsonDocument::fromJson(QByteArray::fromStdString(manifest), &error);
        ASSERT_EQ(error.error, QJsonParseError::NoError) << manifest;
        const QJsonObject object = json.object();
        EXPECT_EQ(object.size(), int(kindNames->size()));
        for (const std::string& name : *kindNames) {
            const QString hex = object.value(QString::fromStdString(name)).toString();
            EXPECT_EQ(hex.size(), 8) << name;
            bool ok = false;
            const uint32_t bits = hex.toUInt(&ok, 16);
            EXPECT_TRUE(ok) << name;
            EXPECT_EQ(bits, bitsOf(kaRTCryptomatte::idOfName(name))) << name;
            nameOfId[bits] = name;
        }
    }
    EXPECT_EQ(nameOfId.size(), objects.size() + materials.size());

    // The pass values decode through the manifests.
    std::vector<std::string> channels(header.channelnames.begin(), header.channelnames.end());
    auto channel = [&](const std::string& name) {
        auto it = std::find(channels.begin(), channels.end(), name);
        EXPECT_NE(it, channels.end()) << name;
        return size_t(it - channels.begin());
    };
    std::vector<float> pixels(size_t(width) * height * header.nchannels);
    ASSERT_TRUE(in->read_image(0, 0, 0, header.nchannels, OIIO::TypeDesc::FLOAT, pixels.data()));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            // Image row y is file row height - 1 - y.
            const size_t pixel = size_t(y) * width + x;
            const float* values =
                pixels.data() + (size_t(height - 1 - y) * width + x) * header.nchannels;
            EXPECT_EQ(nameOfId[bitsOf(values[channel("cryptoObject00.R")])], objects[pixel % 3]);
            EXPECT_FLOAT_EQ(values[channel("cryptoObject00.G")], 0.75f);
            EXPECT_EQ(nameOfId[bitsOf(values[channel("cryptoObject00.B")])],
                      objects[(pixel + 1) % 3]);
            EXPECT_FLOAT_EQ(values[channel("cryptoObject00.A")], 0.25f);
            EXPECT_EQ(nameOfId[bitsOf(values[channel("cryptoMaterial00.R")])],
                      materials[pixel % 2]);
            EXPECT_FLOAT_EQ(values[channel("cryptoMaterial00.G")], 1.0f);
        }
    in.reset();

    // Without static metadata the next file has no Cryptomatte attributes.
    kaRTCryptomatte::setStaticMetadata(false, false);
    const std::string plainPath = dir.fileStd("plain.exr");
    ASSERT_TRUE(exr->writeLayered(beauty, plainPath, layers, names));
    auto plain = OIIO::ImageInput::open(plainPath);
    ASSERT_TRUE(plain);
    for (const OIIO::ParamValue& attribute : plain->spec().extra_attribs)
        EXPECT_EQ(attribute.name().string().rfind("cryptomatte/", 0), std::string::npos)
            << attribute.name().string();
}
