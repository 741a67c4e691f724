// SPDX-License-Identifier: LGPL-2.1-or-later
#include "NValueObjects.h"

#include <gtest/gtest.h>

namespace {

NValueObjects scanner(const std::string& model = "Model X")
{
    NValueObjects object;
    object.setIp("192.168.1.20");
    object.setMac("100070482C6A");
    object.setModel(model);
    object.setManufacturer("Quillon");
    object.setVid(0x0ABC);
    object.setPid(0x4);
    return object;
}

TEST(NValueObjectsTest, StartsEmpty)
{
    const NValueObjects empty;
    EXPECT_EQ(empty.getIp(), "");
    EXPECT_EQ(empty.getMac(), "");
    EXPECT_EQ(empty.getModel(), "");
    EXPECT_EQ(empty.getManufacturer(), "");
    EXPECT_EQ(empty.getVid(), 0U);
    EXPECT_EQ(empty.getPid(), 0U);
    EXPECT_FALSE(empty.isComplete());
}

TEST(NValueObjectsTest, KeepsAndCopiesWhatIsSet)
{
    const NValueObjects copy(scanner());
    NValueObjects assigned;
    assigned = copy;
    for (const NValueObjects& object : {scanner(), copy, assigned}) {
        EXPECT_EQ(object.getIp(), "192.168.1.20");
        EXPECT_EQ(object.getMac(), "100070482C6A");
        EXPECT_EQ(object.getModel(), "Model X");
        EXPECT_EQ(object.getManufacturer(), "Quillon");
        EXPECT_EQ(object.getVid(), 0xABCU);
        EXPECT_EQ(object.getPid(), 4U);
        EXPECT_TRUE(object.isComplete());
    }
}

TEST(NValueObjectsTest, EveryTextCounts)
{
    for (void (NValueObjects::*set)(const std::string&) :
         {&NValueObjects::setIp, &NValueObjects::setMac, &NValueObjects::setModel,
          &NValueObjects::setManufacturer}) {
        NValueObjects object = scanner();
        (object.*set)("");
        EXPECT_FALSE(object.isComplete());
    }
}

TEST(NValueObjectsTest, DeviceName)
{
    EXPECT_EQ(scanner().deviceName(), "Quillon/Model X/libnet:100070482C6A:192.168.1.20:ABC:4");
}

TEST(NValueObjectsTest, SeparatorsInsideOfFieldsAreReplaced)
{
    NValueObjects odd = scanner("MFG:Q/A;MDL:\"X 5\"\n\x1B[2J");
    odd.setIp("1.2:3/4");
    EXPECT_EQ(odd.deviceName(),
              "Quillon/MFG-Q-A;MDL-\"X 5\"--[2J/libnet:100070482C6A:1.2-3-4:ABC:4");
    EXPECT_EQ(odd.getModel(), "MFG:Q/A;MDL:\"X 5\"\n\x1B[2J");
    EXPECT_EQ(scanner("M\xC3\xBCller").deviceName().find("Quillon/M\xC3\xBCller/"), 0U);
}

TEST(NValueObjectsTest, LongModelsAreCutAndTheAddressStays)
{
    for (const std::size_t size : {200U, 201U, 255U, 5000U}) {
        const std::string name = scanner(std::string(size, 'm')).deviceName();
        EXPECT_LE(name.size(), 254U);
        const std::string end = "m/libnet:100070482C6A:192.168.1.20:ABC:4";
        EXPECT_EQ(name.substr(name.size() - end.size()), end);
    }
    EXPECT_EQ(scanner(std::string(255, 'm')).deviceName().size(), 254U);
}

TEST(NValueObjectsTest, LongFieldsAreCut)
{
    NValueObjects object = scanner();
    object.setIp(std::string(255, '1'));
    object.setManufacturer(std::string(300, 'q'));
    EXPECT_LE(object.deviceName().size(), 254U);
    object.setManufacturer("Q");
    EXPECT_EQ(object.deviceName(),
              "Q/Model X/libnet:100070482C6A:" + std::string(31, '1') + ":ABC:4");
}

}  // namespace
