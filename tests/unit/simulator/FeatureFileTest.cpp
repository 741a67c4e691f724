// SPDX-License-Identifier: LGPL-2.1-or-later
#include "FeatureFile.h"

#include "SaneConfig.h"
#include "Support.h"
#include "Text.h"

namespace scansim::test {

namespace {

constexpr const char* kFeatures =
    "[INTEGERS]\nCURRENTDPI=300\n[STRINGS]\n"
    "SCLIB=/usr/qilinkjet/qil08/lib/libCS_ScanCorrect.so\n"
    "COLORLUT=/usr/qilinkjet/qil08/etc/qldnSCc0.bin\n";

Model deviceModel(std::uint32_t vendorId, std::uint32_t productId, const std::string& featureFile)
{
    Model model = makeModel();
    model.vendorId = vendorId;
    model.productId = productId;
    model.featureFile = featureFile;
    model.modelName = "My Model";
    return model;
}

}  // namespace

TEST(FeatureFile, ChangedKeyKeepsItsPlace)
{
    EXPECT_EQ(changedFeatures("[DOUBLES]\nA=1.0\nAB=2.0\n", {{"A", "7"}}),
              "[DOUBLES]\nA=7\nAB=2.0\n");
}

TEST(FeatureFile, NewKeysGetTheSectionOfTheirValue)
{
    EXPECT_EQ(changedFeatures("", {{"I", "-3"}, {"D", "2.5"}, {"S", "a text"}}),
              "[INTEGERS]\nI=-3\n[DOUBLES]\nD=2.5\n[STRINGS]\nS=a text\n");
}

TEST(FeatureFile, EmptyValueTakesTheKeyOut)
{
    EXPECT_EQ(changedFeatures("[INTEGERS]\nA=1\nB=2\n", {{"A", ""}, {"C", ""}}),
              "[INTEGERS]\nB=2\n");
}

TEST(FeatureFile, CorrectionComesFromTheBuildTree)
{
    EXPECT_EQ(withCorrectionFrom(kFeatures, "/lib-here", "/tables-here"),
              "[INTEGERS]\nCURRENTDPI=300\n[STRINGS]\nSCLIB=/lib-here/libCS_ScanCorrect.so\n"
              "COLORLUT=/tables-here/qldnSCc0.bin\n");
}

TEST(SaneConfig, ShippedLineIsEnoughForAnUnchangedDevice)
{
    TempFolder folder;
    const std::string shipped = "# mine\nusb 1234 0x000A /x/a.ini A\n";
    folder.write("QuillonLegacy_1_0_0.conf", shipped);
    SaneConfig config(folder.path(""));
    config.addDevice(deviceModel(SCANSIM_QUILLON_VID, 10, folder.write("a.ini", "[INTEGERS]\n")),
                     {});
    const auto files = config.files("/etc/sane.d");
    EXPECT_EQ(files.at("QuillonLegacy_1_0_0.conf"), shipped);
    EXPECT_EQ(files.at("Oxle09.conf"), "");
    EXPECT_EQ(files.at("dll.conf"), "QuillonLegacy_1_0_0\n");
}

TEST(SaneConfig, UnknownDeviceGetsALine)
{
    TempFolder folder;
    SaneConfig config(folder.path(""));
    const std::string feature = folder.write("a.ini", "[INTEGERS]\n");
    config.addDevice(deviceModel(SCANSIM_OXLE_VID, 0xB, feature), {});
    const auto files = config.files("/etc/sane.d");
    EXPECT_EQ(files.at("Oxle09.conf"), "usb 0x4321 0x000b " + feature + " My_Model\n");
    EXPECT_EQ(files.at("dll.conf"), "Oxle09\n");
}

TEST(SaneConfig, ChangedFeaturesComeFirst)
{
    TempFolder folder;
    folder.write("QuillonLegacy_1_0_0.conf", "usb 1234 a /x/a.ini A\n");
    SaneConfig config(folder.path(""));
    config.addDevice(deviceModel(SCANSIM_QUILLON_VID, 10, folder.write("a.ini", kFeatures)),
                     {{"CURRENTDPI", "75"}});
    const auto files = config.files("/etc/sane.d");
    EXPECT_EQ(
        files.at("QuillonLegacy_1_0_0.conf"),
        "usb 0x1234 0x000a /etc/sane.d/simulated/1234-000a.ini My_Model\nusb 1234 a /x/a.ini A\n");
    EXPECT_NE(files.at("simulated/1234-000a.ini").find("CURRENTDPI=75\n"), std::string::npos);
}

TEST(SaneConfig, TwinsCannotDiffer)
{
    TempFolder folder;
    SaneConfig config(folder.path(""));
    const Model model = deviceModel(SCANSIM_QUILLON_VID, 10, "/x/a.ini");
    config.addDevice(model, {});
    config.addDevice(model, {});
    EXPECT_THROW(config.addDevice(model, {{"CURRENTDPI", "75"}}), InputError);
}

TEST(SaneConfig, BackendsCanBeNamed)
{
    SaneConfig config("/nowhere");
    config.addDevice(deviceModel(SCANSIM_QUILLON_VID, 10, ""), {});
    config.setBackends({"Oxle09", "other"});
    EXPECT_EQ(config.files("/etc/sane.d").at("dll.conf"), "Oxle09\nother\n");
}

}  // namespace scansim::test
