// SPDX-License-Identifier: LGPL-2.1-or-later
// The genuine libusb 0.1 on simulated scanners: usb_probe's calls and what they give.

#include <unistd.h>

#include "Shell.h"
#include "Support.h"

namespace scansim::test {

namespace {

class Usb : public testing::Test {
protected:
    void SetUp() override
    {
        const Outcome outcome =
            shell(std::string(SIMTEST_SCANNER_SIM) + " --usb flatbed-326 -- true");
        ASSERT_NE(outcome.status, kCannotSimulate) << outcome.output;
    }

    // Runs usb_probe with these steps on a device.
    static Outcome probe(const std::string& options, const std::string& steps)
    {
        Outcome outcome =
            shell(std::string("SCANNER_SIM=") + SIMTEST_SCANNER_SIM + " " + SIMTEST_SCANNER_SIM +
                  " " + options + " -- " + SIMTEST_USB_PROBE + " " + steps);
        outcome.output = withoutNotices(outcome.output);
        return outcome;
    }

    static std::string output(const std::string& options, const std::string& steps)
    {
        return probe(options, steps).output;
    }
};

constexpr const char* kFound =
    "device 001/002 1234:3260 class 0 configurations 1 interfaces 1\nfound 1\n";
constexpr const char* kReady =
    "device 001/002 1234:3260 class 0 configurations 1 interfaces 1\nfound 1\n"
    "open 1\nconfigure 0\nclaim 0\n";

}  // namespace

TEST_F(Usb, ListsEveryDevice)
{
    EXPECT_EQ(output("--usb flatbed-326 --usb combo-401 --usb lut-402", "find"),
              "device 001/002 1234:3260 class 0 configurations 1 interfaces 1\n"
              "device 001/003 1234:4010 class 0 configurations 1 interfaces 2\n"
              "device 001/004 4321:4021 class 0 configurations 1 interfaces 1\n"
              "found 3\n");
}

TEST_F(Usb, Strings)
{
    EXPECT_EQ(
        output("--usb flatbed-326", "find open strings"),
        std::string(kFound) + "open 1\nindices 1 2\nstring 7 Quillon\nstring 11 Flatbed 326\n");
    EXPECT_EQ(output("--usb flatbed-326,vendor=none,product=fails", "find open strings"),
              std::string(kFound) + "open 1\nindices 0 2\nstring -32 -\nstring -32 -\n");
    EXPECT_EQ(output("--usb flatbed-326 --fault 'string 2: timeout'", "find open strings"),
              std::string(kFound) + "open 1\nindices 1 2\nstring 7 Quillon\nstring -110 -\n");
}

TEST_F(Usb, WholePage)
{
    const Outcome outcome =
        probe("--usb flatbed-326",
              "find open configure claim write=lock read=512 write=start read=512 page=4096 "
              "write=unlock read=512 release close");
    EXPECT_EQ(outcome.output, std::string(kReady) +
                                  "write 32\nread 8 1B 53 05 00 00 00 80 00\n"
                                  "write 32\nread 8 1B 53 01 00 00 00 80 00\n"
                                  "page 36058 last 9 record 1\n"
                                  "write 8\nread 8 1B 53 06 00 00 00 80 00\nrelease 0\nclose 0\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Usb, KernelDriverHasToBeDetached)
{
    const std::string steps = "find open configure claim detach claim release close";
    const std::string ends = "detach 0\nclaim 0\nrelease 0\nclose 0\n";
    EXPECT_EQ(output("--usb flatbed-326 --fault 'claim: busy'", steps),
              std::string(kFound) + "open 1\nconfigure 0\nclaim -16\n" + ends);
    EXPECT_EQ(output("--usb flatbed-326,kernel-driver=1", steps),
              std::string(kFound) + "open 1\nconfigure -16\nclaim -16\n" + ends);
}

TEST_F(Usb, ClaimsCanFail)
{
    EXPECT_EQ(
        output("--usb flatbed-326 --fault 'claim always: held'", "find open claim detach claim"),
        std::string(kFound) + "open 1\nclaim -16\ndetach -61\nclaim -16\n");
    EXPECT_EQ(output("--usb flatbed-326,kernel-driver=1 --fault 'detach: refuse'",
                     "find open claim detach"),
              std::string(kFound) + "open 1\nclaim -16\ndetach -1\n");
    EXPECT_EQ(output("--usb flatbed-326 --fault 'claim: refuse 19'", "find open claim"),
              std::string(kFound) + "open 1\nclaim -19\n");
    EXPECT_EQ(output("--usb flatbed-326 --fault 'release: refuse 5'", "find open claim release"),
              std::string(kFound) + "open 1\nclaim 0\nrelease -5\n");
    EXPECT_EQ(
        output("--usb flatbed-326 --fault 'set-configuration: refuse'", "find open configure"),
        std::string(kFound) + "open 1\nconfigure -1\n");
}

// A transfer without a claim makes one, which is refused as well.
TEST_F(Usb, HeldInterfaceTakesNoTransfers)
{
    const std::string steps = "find open claim write=properties read=512";
    EXPECT_NE(output("--usb flatbed-326 --fault 'claim always: held'", steps)
                  .find("open 1\nclaim -16\nwrite -16\nread -16\n"),
              std::string::npos);
    EXPECT_NE(output("--usb flatbed-326 --fault 'claim: held'", steps)
                  .find("open 1\nclaim -16\nwrite 8\nread "),
              std::string::npos);
}

// The first handle stays open, so the second one finds the interface taken.
TEST_F(Usb, ClaimBelongsToTheOpenFile)
{
    EXPECT_EQ(output("--usb flatbed-326", "find open claim open configure claim"),
              std::string(kFound) + "open 1\nclaim 0\nopen 1\nconfigure -16\nclaim -16\n");
}

TEST_F(Usb, ReadOnlyNodeAllowsNothing)
{
    EXPECT_EQ(output("--usb flatbed-326,read-only=1", "find open strings configure claim"),
              std::string(kFound) +
                  "open 1\nindices 1 2\nstring -1 -\nstring -1 -\nconfigure -1\nclaim -1\n");
}

TEST_F(Usb, NodeLosesItsWritePermission)
{
    EXPECT_EQ(output("--usb flatbed-326 --fault 'open always: read-only'", "find open claim"),
              std::string(kFound) + "open 1\nclaim -1\n");
}

TEST_F(Usb, PartOfACommandIsTaken)
{
    EXPECT_EQ(output("--usb flatbed-326 --fault 'command lock: short 7'",
                     "find open configure claim write=lock write=unlock read=512"),
              std::string(kReady) + "write 7\nwrite 8\nread 8 1B 53 06 00 00 00 80 00\n");
}

TEST_F(Usb, SilentDeviceTimesOut)
{
    EXPECT_EQ(output("--usb flatbed-326",
                     "find open configure claim timeout=100 read=512 write=properties read=8"),
              std::string(kReady) + "read -110\nwrite 8\nread 8 1B 53 03 00 3A 00 80 00\n");
    EXPECT_EQ(output("--usb flatbed-326 --fault 'command properties: timeout'",
                     "find open configure claim timeout=100 write=properties read=8"),
              std::string(kReady) + "write -110\nread -110\n");
}

TEST_F(Usb, DelayedReplyComesInTime)
{
    EXPECT_EQ(
        output("--usb flatbed-326 --fault 'reply properties: delay 300'",
               "find open configure claim timeout=100 write=properties read=8 timeout=1000 read=8"),
        std::string(kReady) + "write 8\nread -110\nread 8 1B 53 03 00 3A 00 80 00\n");
}

TEST_F(Usb, StalledEndpointStaysHalted)
{
    EXPECT_EQ(
        output("--usb flatbed-326 --fault 'reply properties: stall'",
               "find open configure claim write=properties read=512 write=properties read=512 "
               "release configure claim write=properties read=8"),
        std::string(kReady) +
            "write 8\nread 0\nwrite 8\nread 0\n"
            "release 0\nconfigure 0\nclaim 0\nwrite 8\nread 8 1B 53 03 00 3A 00 80 00\n");
    EXPECT_EQ(output("--usb flatbed-326 --fault 'command properties: stall'",
                     "find open configure claim write=properties"),
              std::string(kReady) + "write 0\n");
}

TEST_F(Usb, ZeroLengthAndShortTransfers)
{
    EXPECT_EQ(output("--usb flatbed-326 --fault 'reply properties: zero'",
                     "find open configure claim write=properties read=512 read=8"),
              std::string(kReady) + "write 8\nread 0\nread 8 1B 53 03 00 3A 00 80 00\n");
    EXPECT_EQ(output("--usb flatbed-326 --fault 'reply properties: short 3'",
                     "find open configure claim write=properties read=512 read=5"),
              std::string(kReady) + "write 8\nread 3 1B 53 03\nread 5 00 3A 00 80 00\n");
}

TEST_F(Usb, UnpluggedInTheMiddleOfARead)
{
    EXPECT_EQ(
        output("--usb flatbed-326 --fault 'reply properties: unplug'",
               "find open configure claim write=properties read=512 read=512 release close find"),
        std::string(kReady) + "write 8\nread 0\nread -19\nrelease -19\nclose 0\nfound 0\n");
    EXPECT_EQ(output("--usb flatbed-326 --fault 'command properties: unplug'",
                     "find open configure claim write=properties write=properties"),
              std::string(kReady) + "write 0\nwrite -19\n");
}

TEST_F(Usb, ReplugGivesANewFile)
{
    EXPECT_EQ(
        output(
            "--usb flatbed-326 --fault 'reply properties: replug'",
            "find open configure claim write=properties read=512 close find open configure claim "
            "write=properties read=8"),
        std::string(kReady) +
            "write 8\nread 0\nclose 0\n"
            "device 001/003 1234:3260 class 0 configurations 1 interfaces 1\nfound 1\n"
            "open 1\nconfigure 0\nclaim 0\nwrite 8\nread 8 1B 53 03 00 3A 00 80 00\n");
}

TEST_F(Usb, OpenOfADeviceThatHasGone)
{
    const std::string text =
        output("--usb flatbed-326", "find control='device 1: unplug' open claim");
    EXPECT_EQ(text, std::string(kFound) + "ok\ncontrol 0\nopen 1\nclaim -9\n");
}

TEST_F(Usb, FileNumbersComeAgain)
{
    std::string steps;
    for (int i = 0; i < 125; i++) {
        steps += " control='device 1: replug'";
    }
    const std::string state = " control='device 1: state?' control='device 2: state?'";
    const std::string text = output("--usb flatbed-326 --usb adf-402", steps.substr(1) + state);
    // 4 to 127, then 2; 3 is still in use by the other.
    EXPECT_NE(text.find("plugged file=2 locked=no"), std::string::npos) << text;
    EXPECT_NE(text.find("plugged file=3 locked=no"), std::string::npos) << text;
    const std::string more = output("--usb flatbed-326 --usb adf-402",
                                    steps.substr(1) + " control='device 1: replug'" + state);
    EXPECT_NE(more.find("plugged file=4 locked=no"), std::string::npos) << more;
}

TEST_F(Usb, ControlChannel)
{
    const std::string text = output("--usb flatbed-326 --usb adf-402",
                                    "control='device 2: load-sheets 7' control='device 2: state?' "
                                    "control='device 1: fault open: refuse' control='complaints?' "
                                    "control='device 3: unplug' control='device 1: dance'");
    EXPECT_EQ(text,
              "ok\ncontrol 0\nplugged file=3 locked=no sheets=7 pages=0 complaints=0\ncontrol 0\n"
              "ok\ncontrol 0\n0\ncontrol 0\n"
              "error: '3' is not between 1 and 2\ncontrol 256\n"
              "error: unknown control 'dance'\ncontrol 256\n");
}

TEST_F(Usb, ComplaintsDecideTheExitStatus)
{
    const std::string steps = "find open configure claim write=unlock read=512 release close";
    const Outcome strict = probe("--usb flatbed-326", steps);
    EXPECT_EQ(strict.status, 99);
    EXPECT_NE(strict.output.find("scanner-sim: COMPLAINT: dev1-flatbed-326: unlock without a lock"),
              std::string::npos);
    EXPECT_EQ(probe("--tolerate --usb flatbed-326", steps).status, 0);
}

TEST_F(Usb, TransferWithoutClaimIsComplainedAbout)
{
    const Outcome outcome = probe("--usb flatbed-326", "find open write=properties read=8");
    EXPECT_NE(outcome.output.find("interface 0, which is not claimed"), std::string::npos);
    EXPECT_EQ(outcome.status, 99);
}

TEST_F(Usb, ExitStatusIsTheCommands)
{
    const std::string sim = std::string(SIMTEST_SCANNER_SIM) + " --usb flatbed-326 -- ";
    EXPECT_EQ(shell(sim + "sh -c 'exit 5'").status, 5);
    EXPECT_EQ(shell(sim + "sh -c 'kill -9 $$'").status, 137);
    EXPECT_EQ(shell(sim + "/no/such/command").status, 127);
    EXPECT_EQ(shell(std::string(SIMTEST_SCANNER_SIM) + " --usb nonsense -- true").status, 2);
}

TEST_F(Usb, SignalsArePassedOn)
{
    // In the foreground, timeout sends that signal alone. Otherwise a SIGCONT follows, which can
    // undo the stop that the leak check of a sanitizer build waits for at the end.
    const Outcome outcome =
        shell(std::string("timeout --foreground -s INT 2 ") + SIMTEST_SCANNER_SIM +
              " --usb flatbed-326 -- sh -c 'trap \"echo caught; exit 7\" INT; while :; do sleep "
              "0.1; done'; echo status $?");
    EXPECT_NE(outcome.output.find("caught\n"), std::string::npos) << outcome.output;
}

TEST_F(Usb, PrivateTmpHidesTheOtherAndRecordsLeaveIt)
{
    TempFolder folder;
    const Outcome outcome = shell(std::string(SIMTEST_SCANNER_SIM) + " --private-tmp --record " +
                                  folder.path("pages") + " --usb flatbed-326 -- sh -c 'test ! -e " +
                                  folder.path("") + " && touch /tmp/inside'");
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_FALSE(std::filesystem::exists("/tmp/inside"));
    EXPECT_TRUE(std::filesystem::exists(folder.path("pages")));
}

TEST_F(Usb, MissingFuseIsNamed)
{
    const std::string unshare = geteuid() == 0 ? "unshare -m" : "unshare -rm";
    const Outcome outcome = shell(unshare + " sh -c 'mount -t tmpfs none /dev && " +
                                  SIMTEST_SCANNER_SIM + " --usb flatbed-326 -- true'");
    EXPECT_EQ(outcome.status, kCannotSimulate);
    EXPECT_NE(outcome.output.find("/dev/fuse is missing"), std::string::npos) << outcome.output;
    EXPECT_NE(outcome.output.find("modprobe fuse"), std::string::npos);
}

}  // namespace scansim::test
