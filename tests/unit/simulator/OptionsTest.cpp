// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Options.h"

#include <gtest/gtest.h>

#include "Text.h"

namespace scansim::test {

TEST(Options, DevicesAndTheirOptions)
{
    const Options options = Options::parse(
        {"--set", "npa=1", "--usb", "a,protocol=401,feeder.sheets=3", "--fault", "block: stall",
         "--feature", "KEY=a=b", "--usb", "b", "--", "scanimage", "-L"});
    ASSERT_EQ(options.devices.size(), 2U);
    const DeviceOptions& first = options.devices[0];
    EXPECT_EQ(first.model, "a");
    ASSERT_EQ(first.settings.size(), 4U);
    EXPECT_EQ(first.settings[0].key, "npa");  // said before the first device: for all
    EXPECT_EQ(first.settings[1].key, "protocol");
    EXPECT_EQ(first.settings[2].value, "3");
    EXPECT_EQ(first.settings[3].value, "block: stall");
    EXPECT_EQ(first.features, (std::vector<FeatureChange>{{"KEY", "a=b"}}));
    EXPECT_EQ(options.devices[1].settings.size(), 1U);
    EXPECT_TRUE(options.devices[1].features.empty());
    EXPECT_EQ(options.command, (std::vector<std::string>{"scanimage", "-L"}));
}

TEST(Options, TransportsMix)
{
    const Options options = Options::parse(
        {"--veth", "--usb", "a", "--net", "b,ip=10.0.0.1", "--fault", "tickle: reset", "ls"});
    ASSERT_EQ(options.devices.size(), 2U);
    EXPECT_EQ(options.devices[0].transport, Transport::Usb);
    EXPECT_EQ(options.devices[1].transport, Transport::Network);
    EXPECT_EQ(options.devices[1].settings.size(), 2U);
    EXPECT_TRUE(options.hasLink);
    EXPECT_THROW(Options::parse({"--net"}), InputError);
    EXPECT_THROW(Options::parse({"--net", ","}), InputError);
}

TEST(Options, CommandNeedsNoDashes)
{
    const Options options =
        Options::parse({"--usb", "a", "--private-tmp", "--tolerate", "ls", "--help"});
    EXPECT_TRUE(options.hasPrivateTmp);
    EXPECT_TRUE(options.isTolerant);
    EXPECT_FALSE(options.wantsHelp);
    EXPECT_EQ(options.command, (std::vector<std::string>{"ls", "--help"}));
}

TEST(Options, RefusesNonsense)
{
    EXPECT_THROW(Options::parse({"--usd", "a"}), InputError);
    EXPECT_THROW(Options::parse({"--usb"}), InputError);
    EXPECT_THROW(Options::parse({"--usb", ""}), InputError);
    EXPECT_THROW(Options::parse({"--usb", "a,npa"}), InputError);
    EXPECT_THROW(Options::parse({"--feature", "KEY"}), InputError);
}

TEST(Options, HelpNamesEveryOption)
{
    const std::string help = Options::help();
    for (const char* option :
         {"--usb", "--net", "--veth", "--set", "--fault", "--feature", "--record", "--log",
          "--models", "--modules", "--config", "--backend", "--private-tmp", "--all-cpus",
          "--tolerate", "--control", "--list-models", "--help"}) {
        EXPECT_NE(help.find(std::string("\n  ") + option), std::string::npos) << option;
    }
}

}  // namespace scansim::test
