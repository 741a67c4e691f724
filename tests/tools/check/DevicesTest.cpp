// SPDX-License-Identifier: LGPL-2.1-or-later
// USB devices and answers from the network.
#include "Discoverer.h"
#include "Probe.h"
#include "Support.h"
#include "TextReport.h"
#include "UsbCheck.h"

#include <unistd.h>

using namespace check;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class CheckDevices : public testing::Test {
protected:
    CheckDevices()
    {
        features = folder.write("a.ini", "");
        files = {
            ConfFile::read(folder.write("a.conf", "usb 1234 3260 " + features + " A_B\n"), unused)};
        device.bus = "001";
        device.file = "002";
        device.path = folder.write("001/002", "");
        device.vendor = 0x1234;
        device.product = 0x3260;
        device.isUsable = true;
        device.isWritable = true;
        device.vendorName = "Quillon";
        device.productName = "Flatbed 326";
        device.owner = "root";
        device.group = "scanner";
        device.mode = 0664;
    }

    Findings judged(const std::vector<UsbDevice>& devices)
    {
        Findings findings;
        judgeUsb(devices, files, findings);
        return findings;
    }

    Folder folder;
    Findings unused;
    std::string features;
    std::vector<ConfFile> files;
    UsbDevice device;
};

}  // namespace

TEST_F(CheckDevices, AGoodDeviceIsReady)
{
    EXPECT_THAT(codesOf(judged({device})), ElementsAre());
    EXPECT_TRUE(isReady(device, files));
    EXPECT_THAT(codesOf(judged({})), ElementsAre("note 0 usb-none"));
}

TEST_F(CheckDevices, ANamelessOneHasTheNameOfItsLine)
{
    device.vendorName = device.productName = "";
    Session session;
    session.configurations = files;
    session.devices = {device};
    EXPECT_THAT(textReport(session, false, false),
                HasSubstr("Ready on USB: A B (1234:3260, usb 001:002).\n"));
}

TEST_F(CheckDevices, WithoutPermission)
{
    device.isWritable = false;
    const Findings findings = judged({device});
    EXPECT_THAT(codesOf(findings), ElementsAre("error 0 usb-no-permission"));
    EXPECT_THAT(findings[0].message, HasSubstr("owner root, group scanner, mode 0664"));
    EXPECT_FALSE(isReady(device, files));
}

TEST_F(CheckDevices, WhoMayUseThemIsSaidInTheHardwareDatabase)
{
    device.isWritable = false;
    device.group = "root";
    device.product = 0xab1;
    files = {ConfFile::read(folder.write("b.conf", "usb 1234 ab1 " + features + " X\n"), unused)};
    const uid_t user = geteuid();
    constexpr uid_t kNobody = 65534;
    // Root of a user namespace that has no other user cannot become one.
    if (user == 0 && seteuid(kNobody) != 0) {
        GTEST_SKIP() << "root gets other advice, and there is no other user here";
    }
    const Findings findings = judged({device});
    EXPECT_EQ(seteuid(user), 0);
    ASSERT_THAT(codesOf(findings), ElementsAre("error 0 usb-no-permission"));
    EXPECT_THAT(findings[0].advice, HasSubstr("/hwdb.d/60-scanlib.hwdb, which comes with"));
    EXPECT_THAT(findings[0].advice, HasSubstr("  usb:v1234p0AB1*  "));
    EXPECT_THAT(findings[0].advice, HasSubstr("systemd-hwdb update"));
}

TEST_F(CheckDevices, WithoutInterface)
{
    device.isUsable = false;
    EXPECT_THAT(codesOf(judged({device})), ElementsAre("error 0 usb-no-interface"));
}

TEST_F(CheckDevices, InUse)
{
    device.driver = "usbfs";
    EXPECT_THAT(codesOf(judged({device})), ElementsAre("warning 0 usb-in-use"));
    device.driver = "";
    device.holders = {{12, "xsane", "me"}};
    const Findings findings = judged({device});
    EXPECT_THAT(codesOf(findings), ElementsAre("warning 0 usb-in-use"));
    EXPECT_THAT(findings[0].message, HasSubstr("'xsane' (process 12 of user me)"));
    device.holders = {};
    device.driver = "usblp";
    EXPECT_THAT(codesOf(judged({device})), ElementsAre("note 0 usb-kernel-driver"));
}

TEST_F(CheckDevices, WithoutALine)
{
    device.product = 0x99;
    const Findings findings = judged({device});
    EXPECT_THAT(codesOf(findings), ElementsAre("warning 0 usb-not-configured", "note 0 usb-none"));
    EXPECT_THAT(findings[0].message,
                HasSubstr("1234:0099 'Quillon Flatbed 326' is there, but no line names it"));
    EXPECT_THAT(findings[0].message, HasSubstr("usb 0x1234 0x0099 "));
}

TEST_F(CheckDevices, OfAnotherMaker)
{
    device.vendor = 0x77;
    device.vendorName = "Else";
    EXPECT_THAT(codesOf(judged({device})),
                ElementsAre("note 0 usb-other-device", "note 0 usb-none"));
    device.vendorName = "QUILLON Inc.";
    EXPECT_THAT(codesOf(judged({device})),
                ElementsAre("warning 0 usb-not-configured", "note 0 usb-none"));
    device.isHub = true;
    EXPECT_THAT(codesOf(judged({device})), ElementsAre("note 0 usb-none"));
}

TEST_F(CheckDevices, ThatMayNotEvenBeRead)
{
    UsbDevice hidden;
    hidden.bus = "001";
    hidden.file = "003";
    hidden.path = folder / "001/003";
    hidden.hasIds = false;
    EXPECT_THAT(codesOf(judged({device, hidden})), ElementsAre("warning 0 usb-unreadable"));
    EXPECT_FALSE(isReady(hidden, files));
}

TEST_F(CheckDevices, SuggestedLinesAreTakenByTheBackend)
{
    const std::vector<std::string> names = {"Flatbed 326",   "",     "  ", "#1",
                                            "A\nB\t\033[1m", "\xFF", "Ä Ö"};
    for (const std::string& name : names) {
        const Suggestion add = suggestLine(files, 0x1234, 0x99, name);
        const ProbedModel model = probeModel(add.line);
        EXPECT_TRUE(model.isTaken) << add.line;
        EXPECT_EQ(model.vendor, 0x1234U);
        EXPECT_EQ(model.product, 0x99U);
        Findings findings;
        ConfFile::read(folder.write("suggested.conf", add.line + "\n"), findings);
        for (const Finding& finding : findings) {
            EXPECT_EQ(finding.code, "feature-file-missing") << finding.message;
        }
    }
    EXPECT_EQ(suggestLine(files, SCANLIB_QUILLON_VID, 1, "").file,
              "/etc/sane.d/QuillonLegacy_1_0_0.conf");
    EXPECT_EQ(suggestLine(files, SCANLIB_OXLE_VID, 1, "").file, "/etc/sane.d/Oxle09.conf");
}

TEST_F(CheckDevices, Answers)
{
    Search search;
    Findings findings;
    judgeSearch(search, files, findings);
    EXPECT_THAT(codesOf(findings), ElementsAre("error 0 search-failed"));
    search.isDone = true;
    findings.clear();
    judgeSearch(search, files, findings);
    EXPECT_THAT(codesOf(findings), ElementsAre("warning 0 no-answer"));
    search.answers = {{"Flatbed", "Quillon", "10.0.0.1", "AA", 0x1234, 0x3260},
                      {"Other\033", "Quillon", "10.0.0.2", "AB", 0x1234, 0x99}};
    findings.clear();
    judgeSearch(search, files, findings);
    EXPECT_THAT(codesOf(findings),
                ElementsAre("note 0 answer-configured", "warning 0 answer-not-configured"));
    EXPECT_THAT(findings[1].message, HasSubstr("'Other\\x1b' (1234:0099) at 10.0.0.2"));
}
