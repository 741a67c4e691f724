// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Support.h"
#include "Text.h"

namespace scansim::test {

namespace {

std::string errorOf(const std::string& text)
{
    TempFolder folder;
    try {
        ModelFile::load(folder.write("bad.model", text));
    } catch (const InputError& error) {
        return error.what();
    }
    return "";
}

constexpr const char* kGood = "sources = flatbed\nflatbed.resolutions = 75 300\n";

}  // namespace

TEST(ModelFile, ReadsKeysAndDefaults)
{
    TempFolder folder;
    const Model model = ModelFile::load(
        folder.write("my.model", std::string("# comment\n\n  ") + kGood +
                                     "vendor = Some Maker\nproduct = none\n"
                                     "product-id = 0xAB\nfeature-file = x/y.ini\n"));
    EXPECT_EQ(model.name, "my");
    EXPECT_EQ(model.vendor.text, "Some Maker");
    EXPECT_EQ(model.product.kind, UsbString::Kind::Absent);
    EXPECT_EQ(model.productId, 0xABU);
    EXPECT_EQ(model.featureFile, folder.path("x/y.ini"));
    EXPECT_EQ(model.flatbed.type, 1U);
    EXPECT_EQ(model.feeder.type, 2U);
    EXPECT_EQ(model.statuses[3], 0x80U);
    EXPECT_EQ(model.flatbed.resolutions.at(1).vertical, 300U);
}

TEST(ModelFile, NamesFileAndLineOfAnError)
{
    const std::string error = errorOf("sources = flatbed\nnpa = maybe\n");
    EXPECT_NE(error.find("bad.model:2: npa: 'maybe' is neither yes nor no"), std::string::npos)
        << error;
}

TEST(ModelFile, RefusesUnknownKeysAndValues)
{
    EXPECT_NE(errorOf("color = red\n").find("unknown key 'color'"), std::string::npos);
    EXPECT_NE(errorOf("just words\n").find("key = value"), std::string::npos);
    EXPECT_NE(errorOf("protocol = 400\n").find("326, 401 or 402"), std::string::npos);
    EXPECT_NE(errorOf("block-size = 0\n").find("between 1 and"), std::string::npos);
    EXPECT_NE(errorOf("flatbed.resolutions = 75dpi\n").find("not a number"), std::string::npos);
    EXPECT_NE(errorOf("stream = zipped\n").find("none of raw, interleaved and compressed"),
              std::string::npos);
    EXPECT_NE(errorOf("band-lines = 33\n").find("between 1 and 32"), std::string::npos);
    EXPECT_NE(errorOf("quality =\n").find("no quality"), std::string::npos);
    EXPECT_NE(errorOf("quality = good\n").find("not a number"), std::string::npos);
    EXPECT_NE(errorOf("quality = -\n").find("not a number"), std::string::npos);
    EXPECT_NE(errorOf("fault = block: dance\n").find("unknown action 'dance'"), std::string::npos);
    EXPECT_NE(errorOf("sources = flatbed flatbed\n").find("twice"), std::string::npos);
}

TEST(ModelFile, RefusesModelsThatCannotWork)
{
    EXPECT_NE(errorOf("npa = yes\n").find("names no source"), std::string::npos);
    EXPECT_NE(errorOf("sources = feeder\n").find("no 'resolutions'"), std::string::npos);
    EXPECT_NE(errorOf(std::string(kGood) + "interfaces = 255 0x81\n").find("IN and an OUT"),
              std::string::npos);
    EXPECT_NE(errorOf(std::string(kGood) + "scanner-interface = 1\n").find("not among"),
              std::string::npos);
    std::string many = "sources = flatbed\nflatbed.resolutions =";
    for (int i = 1; i <= 60; ++i) {
        many += " " + std::to_string(75 * i);
    }
    EXPECT_NE(errorOf(many + "\n").find("do not fit"), std::string::npos);
}

TEST(ModelFile, RefusesCompressedLinesThatAreTooLong)
{
    const std::string wide = std::string(kGood) + "flatbed.width = 65497\n";
    EXPECT_EQ(errorOf(wide), "");
    EXPECT_NE(errorOf(wide + "stream = compressed\n").find("too long for compression"),
              std::string::npos);
    EXPECT_EQ(errorOf(std::string(kGood) + "stream = compressed\nflatbed.width = 65496\n"), "");
}

TEST(ModelFile, CompressedStreamsAreAnnounced)
{
    const Model model = makeModel({"stream=compressed", "quality=90  5 -2", "band-lines=8"});
    EXPECT_TRUE(model.isCompressed);
    EXPECT_FALSE(model.isInterleaved);
    EXPECT_EQ(model.compression, 1U);
    EXPECT_EQ(model.compressionTechnique, 2U);
    EXPECT_EQ(model.qualities, (std::vector<int>{90, 5, -2}));
    EXPECT_EQ(model.bandLines, 8U);
    EXPECT_EQ(makeModel({"stream=compressed", "compression=7"}).compression, 7U);
    EXPECT_FALSE(makeModel({"stream=compressed", "stream=raw"}).isCompressed);
}

TEST(ModelFile, MissingFileIsNamed)
{
    EXPECT_THROW(ModelFile::load("/nowhere/x.model"), InputError);
}

TEST(ModelFile, OverridesComeLast)
{
    const Model model =
        makeModel({"npa=yes", "feeder.sheets=7", "flatbed.resolutions=100x200@8 75"});
    EXPECT_TRUE(model.usesNpa);
    EXPECT_EQ(model.sheets, 7U);
    ASSERT_EQ(model.flatbed.resolutions.size(), 2U);
    EXPECT_EQ(model.flatbed.resolutions[0].horizontal, 100U);
    EXPECT_EQ(model.flatbed.resolutions[0].vertical, 200U);
    EXPECT_EQ(model.flatbed.resolutions[0].depth, 8U);
}

TEST(ModelFile, InterfacesAreSeparatedBySlashes)
{
    const Model model =
        makeModel({"interfaces=7 0x83 0x04 / 0x10 0x81 0x02", "scanner-interface=1"});
    ASSERT_EQ(model.interfaces.size(), 2U);
    EXPECT_EQ(model.interfaces[0].interfaceClass, 7);
    EXPECT_EQ(model.interfaces[1].endpoints, (Bytes{0x81, 0x02}));
}

namespace {

// The integer of a key in a feature file, -1 if it is not there.
int featureOf(const Model& model, const std::string& key)
{
    const std::string text = readAll(model.featureFile);
    const std::size_t at = text.find("\n" + key + "=");
    return at == std::string::npos ? -1 : std::atoi(text.c_str() + at + key.size() + 2);
}

}  // namespace

// Every shipped model is well-formed, and its feature file describes the same scanner.
TEST(ModelFile, ShippedModelsAgreeWithTheirFeatureFiles)
{
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(SIMTEST_MODELS_DIR)) {
        const Model model = ModelFile::load(entry.path().string());
        SCOPED_TRACE(model.name);
        EXPECT_EQ(featureOf(model, "COMMANDVERSION"), static_cast<int>(model.protocol));
        EXPECT_EQ(featureOf(model, "ENABLE_NPA"), model.usesNpa ? 1 : 0);
        EXPECT_EQ(featureOf(model, "BGRTORGB"), model.isBgr ? 1 : 0);
        EXPECT_EQ(featureOf(model, "FLATBEDSIDEFLIP"), model.flatbed.isMirrored ? 1 : 0);
        EXPECT_EQ(featureOf(model, "ADFSIDEFLIP"), model.feeder.isMirrored ? 1 : 0);
        EXPECT_EQ(featureOf(model, "COMPRESSION"), static_cast<int>(model.compression));
        EXPECT_EQ(featureOf(model, "COMPRESSIONLEVEL"), static_cast<int>(model.compressionLevel));
        EXPECT_EQ(featureOf(model, "COMPRESSIONTECH"),
                  static_cast<int>(model.compressionTechnique));
        EXPECT_GE(featureOf(model, "RESOLUTIONS"), 2);
        ++count;
    }
    EXPECT_GE(count, 7);
}

}  // namespace scansim::test
