// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Support.h"

namespace scansim::test {

namespace {

HostCommand command(std::uint32_t protocol)
{
    HostCommand host;
    host.protocol = protocol;
    return host;
}

std::string protocolSetting(std::uint32_t protocol)
{
    return "protocol=" + std::to_string(protocol);
}

}  // namespace

class EveryProtocol : public testing::TestWithParam<std::uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Command, EveryProtocol, testing::Values(326U, 401U, 402U));

TEST_P(EveryProtocol, RightCommandsAreNotComplainedAbout)
{
    Bench bench({protocolSetting(GetParam()), "feeder.sheets=0"});
    bench.begin(command(GetParam()));
    while (!bench.read().empty()) {
    }
    bench.send(CommandId::Unlock);
    bench.scanner->hostLeft();
    EXPECT_EQ(bench.complaints(), 0U);
}

TEST_P(EveryProtocol, WrongLengthIsNoCommand)
{
    Bench bench({protocolSetting(GetParam())});
    Bytes bytes = command(GetParam()).bytes();
    bytes.pop_back();
    bench.send(bytes);
    EXPECT_EQ(bench.complaints(), 1U);
    EXPECT_TRUE(bench.read().empty());
}

TEST_P(EveryProtocol, EveryHeaderByteCounts)
{
    for (std::size_t i = 3; i < 8; ++i) {
        Bench bench({protocolSetting(GetParam()), "feeder.sheets=0"});
        if (GetParam() == 402) {
            bench.send(CommandId::Wake);
        }
        Bytes bytes = command(GetParam()).bytes();
        bytes[i] = static_cast<std::uint8_t>(bytes[i] + 1);
        bench.send(bytes);
        EXPECT_EQ(bench.complaints(), 1U) << "byte " << i;
    }
}

TEST(Command, EveryConstantByteOf402Counts)
{
    for (std::size_t i = 33; i < 43; ++i) {
        Bench bench({"protocol=402"});
        bench.send(CommandId::Wake);
        Bytes bytes = command(402).bytes();
        bytes[i] = static_cast<std::uint8_t>(bytes[i] + 1);
        bench.send(bytes);
        EXPECT_EQ(bench.complaints(), 1U) << "byte " << i;
    }
}

TEST(Command, UnknownCommandIsComplainedAbout)
{
    Bench bench;
    bench.send(Bytes{0x1B, 0x53, 0x77, 0, 0, 0, 0x80, 0});
    bench.send(Bytes{});
    EXPECT_EQ(bench.complaints(), 2U);
}

struct WrongField {
    const char* name;
    void (*spoil)(HostCommand&);
};

class EveryField : public testing::TestWithParam<WrongField> {};
INSTANTIATE_TEST_SUITE_P(
    Command, EveryField,
    testing::Values(WrongField{"colour", [](HostCommand& c) { c.colour = 1; }},
                    WrongField{"compression", [](HostCommand& c) { c.compression = 1; }},
                    WrongField{"level", [](HostCommand& c) { c.level = 6; }},
                    WrongField{"filter", [](HostCommand& c) { c.filter = 0; }},
                    WrongField{"noPixels", [](HostCommand& c) { c.pixels = 0; }},
                    WrongField{"noLines", [](HostCommand& c) { c.lines = 0; }},
                    WrongField{"tooWide", [](HostCommand& c) { c.pixels = 639; }},
                    WrongField{"tooLong", [](HostCommand& c) { c.lines = 878; }},
                    WrongField{"tooFarRight", [](HostCommand& c) { c.offsetX = 539; }},
                    WrongField{"hugeOffset", [](HostCommand& c) { c.offsetX = 0xFFFFFFFF; }},
                    WrongField{"tooFarDown", [](HostCommand& c) { c.offsetY = 858; }},
                    WrongField{"unequalDpi", [](HostCommand& c) { c.verticalDpi = 150; }},
                    WrongField{"unknownSource", [](HostCommand& c) { c.source = 0; }}),
    [](const auto& field) { return field.param.name; });

TEST_P(EveryField, WrongIsComplainedAboutAndRefused)
{
    Bench bench({"protocol=401"});
    HostCommand host = command(401);
    GetParam().spoil(host);
    bench.send(host, CommandId::Lock);
    EXPECT_EQ(bench.complaints(), 1U);
    EXPECT_EQ(bench.read().at(6), 0x81);
    EXPECT_FALSE(bench.scanner->isLocked());
}

TEST(Command, AreaMayFillTheSource)
{
    Bench bench({"protocol=401"});
    HostCommand host = command(401);
    host.pixels = 638;
    host.lines = 877;
    bench.send(host, CommandId::Lock);
    EXPECT_EQ(bench.complaints(), 0U);
}

TEST(Command, ResolutionHasToBeASquareOneOfTheSource)
{
    Bench bench({"protocol=401"});
    HostCommand host = command(401);
    host.dpi = host.verticalDpi = 150;  // the model has 150x300
    bench.send(host, CommandId::Lock);
    EXPECT_EQ(bench.complaints(), 1U);
    host.dpi = host.verticalDpi = 600;
    bench.send(host, CommandId::Lock);
    EXPECT_EQ(bench.complaints(), 1U);
    host.source = 4;  // the feeder ends at 300
    bench.send(host, CommandId::Lock);
    EXPECT_EQ(bench.complaints(), 2U);
}

TEST(Command, ModelCanExpectCompression)
{
    Bench bench({"protocol=401", "compression=1", "compression-level=6"});
    HostCommand host = command(401);
    bench.send(host, CommandId::Lock);
    EXPECT_EQ(bench.complaints(), 2U);
    host.compression = 1;
    host.level = 6;
    bench.send(host, CommandId::Lock);
    EXPECT_EQ(bench.complaints(), 2U);
}

TEST(NpaFrame, IsTakenOffWithEveryPadding)
{
    for (std::uint32_t protocol : {326U, 401U, 402U}) {
        Bench bench({protocolSetting(protocol), "npa=1", "feeder.sheets=0"});
        if (protocol == 402) {
            HostCommand wake;
            wake.id = CommandId::Wake;
            bench.send(npaFrame(wake.bytes()));
            bench.read();
        }
        bench.send(npaFrame(command(protocol).bytes()));
        EXPECT_EQ(bench.complaints(), 0U);
        EXPECT_EQ(bench.read().at(2), 0x05);
    }
}

TEST(NpaFrame, EveryByteOfItCounts)
{
    const Bytes good = npaFrame(command(401).bytes());
    ASSERT_EQ(good.size(), 56U);
    ASSERT_EQ(good[11], 2);
    for (std::size_t i = 0; i < good.size(); ++i) {
        if (i >= 14 && i < 48) {
            continue;  // the command itself
        }
        Bench bench({"protocol=401", "npa=1"});
        Bytes frame = good;
        frame[i] = static_cast<std::uint8_t>(frame[i] + 1);
        bench.send(frame);
        EXPECT_GE(bench.complaints(), 1U) << "byte " << i;
    }
}

TEST(NpaFrame, IsNotMissedNorUnasked)
{
    Bench framed({"npa=1"});
    framed.send(CommandId::Unlock);
    EXPECT_EQ(framed.complaints(), 1U);
    Bench plain;
    plain.send(npaFrame(command(326).bytes()));
    EXPECT_EQ(plain.complaints(), 1U);
}

}  // namespace scansim::test
