// SPDX-License-Identifier: LGPL-2.1-or-later
// Installation, environment, port, processes.
#include "EnvironmentCheck.h"
#include "Holders.h"
#include "InstallCheck.h"
#include "PortCheck.h"
#include "Support.h"

#include <sys/stat.h>

using namespace check;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const char* const kModules[] = {"libsane-QuillonLegacy_1_0_0.so.1", "libsane-Oxle09.so.1"};

class CheckInstallation : public testing::Test {
protected:
    CheckInstallation()
    {
        for (const char* module : kModules) {
            folder.write(std::string("lib/") + module, "");
        }
        folder.write("etc/dll.d/scanlib", "# ours\nQuillonLegacy_1_0_0\n  Oxle09  # second\n");
        folder.write("etc/dll.conf", "net\n");
    }

    std::vector<std::string> codes()
    {
        Findings findings;
        judgeInstallation({{folder / "etc"}, {folder / "lib"}}, findings);
        return codesOf(findings);
    }

    Folder folder;
};

}  // namespace

TEST_F(CheckInstallation, CompleteIsFine)
{
    EXPECT_THAT(codes(), ElementsAre());
}

TEST_F(CheckInstallation, DllConfIsAsGood)
{
    folder.write("etc/dll.d/scanlib", "");
    folder.write("etc/dll.conf", "Oxle09\nQuillonLegacy_1_0_0\n");
    EXPECT_THAT(codes(), ElementsAre());
}

TEST_F(CheckInstallation, MissingEntries)
{
    folder.write("etc/dll.d/scanlib", "Oxle09x\nQuillonLegacy_1_0_0\n");
    EXPECT_THAT(codes(), ElementsAre("warning 0 backend-not-listed"));
    folder.write("etc/dll.d/scanlib", "");
    EXPECT_THAT(codes(), ElementsAre("error 0 backend-not-listed", "error 0 backend-not-listed"));
}

TEST_F(CheckInstallation, FilesThatSaneDoesNotRead)
{
    folder.write("etc/dll.d/scanlib", "Oxle09\n");
    folder.write("etc/dll.d/.hidden", "QuillonLegacy_1_0_0\n");
    folder.write("etc/dll.d/backup~", "QuillonLegacy_1_0_0\n");
    EXPECT_THAT(codes(), ElementsAre("warning 0 backend-not-listed"));
}

TEST_F(CheckInstallation, SwitchedOffOnPurpose)
{
    folder.write("etc/dll.d/scanlib", "QuillonLegacy_1_0_0\n#Oxle09\n");
    EXPECT_THAT(codes(), ElementsAre("note 0 backend-disabled"));
}

TEST_F(CheckInstallation, MissingModules)
{
    std::filesystem::remove(folder / "lib/libsane-Oxle09.so.1");
    EXPECT_THAT(codes(), ElementsAre("error 0 module-missing"));
    Findings findings;
    judgeInstallation({{folder / "etc"}, {}}, findings);
    EXPECT_THAT(codesOf(findings), ElementsAre("error 0 sane-missing"));
}

TEST(CheckSaneFolders, FollowTheVariable)
{
    EXPECT_THAT(SaneFolders::listFolders(nullptr), ElementsAre(".", "/etc/sane.d"));
    EXPECT_THAT(SaneFolders::listFolders(""), ElementsAre(".", "/etc/sane.d"));
    EXPECT_THAT(SaneFolders::listFolders("/a:/b"), ElementsAre("/a", "/b"));
    EXPECT_THAT(SaneFolders::listFolders("/a:"), ElementsAre("/a", ".", "/etc/sane.d"));
}

// ---- environment -------------------------------------------------------------------

TEST(CheckEnvironment, Switches)
{
    Findings findings;
    judgeEnvironment({{"ENABLE_SL_LOG", "1"}, {"ENABLE_SL_DUMP", "1"}}, findings);
    EXPECT_THAT(codesOf(findings), ElementsAre("note 0 log-on", "note 0 log-on"));
    findings.clear();
    judgeEnvironment({{"ENABLE_SL_LOG", "yes"}, {"ENABLE_SL_DUMP", "1"}}, findings);
    EXPECT_THAT(codesOf(findings), ElementsAre("warning 0 log-switch-without-effect",
                                               "note 0 log-on", "warning 0 dump-without-trace"));
}

TEST(CheckEnvironment, TheToolItselfWritesNoLog)
{
    const EnvironmentGuard log("ENABLE_SL_LOG", "1");
    const Environment environment = readEnvironment();
    EXPECT_EQ(environment.at("ENABLE_SL_LOG"), "1");
    silenceOwnLog();
    EXPECT_FALSE(CLogger::debugEnabled());
}

TEST(CheckEnvironment, Folders)
{
    Findings findings;
    judgeEnvironment({{"SANE_CONFIG_DIR", "/x"}, {"USB_DEVFS_PATH", "/y"}}, findings);
    EXPECT_THAT(codesOf(findings), ElementsAre("note 0 config-dir-set", "note 0 usb-path-set"));
    EXPECT_THAT(messageOf(findings, "config-dir-set"), HasSubstr("/etc/sane.d all the same"));
}

// ---- processes -----------------------------------------------------------------------

TEST(CheckHolders, UdpTableIsParsed)
{
    const std::vector<UdpSocket> sockets = parseUdpTable(
        "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  "
        "timeout inode ref pointer drops\n"
        "  123: 00000000:14E9 00000000:0000 07 00000000:00000000 00:00000000 00000000   104"
        "        0 23456 2 0000000000000000 0\n"
        "  124: 00000000000000000000000000000000:0035 00000000000000000000000000000000:0000 07 "
        "00000000:00000000 00:00000000 00000000     0        0 99 2 0000000000000000 0\n"
        "rubbish\n");
    ASSERT_EQ(sockets.size(), 2U);
    EXPECT_EQ(sockets[0].port, 5353U);
    EXPECT_EQ(sockets[0].user, 104U);
    EXPECT_EQ(sockets[0].inode, 23456U);
    EXPECT_EQ(sockets[1].port, 53U);
}

TEST(CheckHolders, ProcessesAreNamed)
{
    const Folder proc;
    const char* line =
        "  1: 00000000:14E9 00000000:0000 07 00000000:00000000 00:00000000 00000000 65534 0 77 2\n"
        "  2: 00000000:14E9 00000000:0000 07 00000000:00000000 00:00000000 00000000 0 0 78 2\n";
    proc.write("net/udp", std::string("head\n") + line);
    proc.write("4242/comm", "responder\n");
    std::filesystem::create_directories(proc / "4242/fd");
    std::filesystem::create_symlink("socket:[77]", proc / "4242/fd/3");
    const std::vector<Holder> holders = udpHolders(5353, proc / "");
    ASSERT_EQ(holders.size(), 2U);
    EXPECT_EQ(holders[0].pid, 4242);
    EXPECT_EQ(holders[0].program, "responder");
    EXPECT_THAT(holders[0].shown(), HasSubstr("'responder' (process 4242 of user "));
    EXPECT_EQ(holders[1].pid, 0);
    EXPECT_EQ(holders[1].shown(), "a program of user root that only root can name");
    EXPECT_TRUE(udpHolders(5354, proc / "").empty());
}

TEST(CheckHolders, AFileOfTheSameNameIsNotTheSame)
{
    const Folder folder;
    const std::string mine = folder.write("mine", "x");
    std::filesystem::create_directories(folder / "12/fd");
    std::filesystem::create_symlink(mine, folder / "12/fd/4");
    EXPECT_EQ(fileHolders(mine, folder / "").size(), 1U);
    EXPECT_TRUE(fileHolders(folder.write("other", "x"), folder / "").empty());
    EXPECT_TRUE(fileHolders(folder / "none", folder / "").empty());

    // As a process in a container shows it: the same name means another file there.
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder / "");
    folder.write("12/fd/mine", "x");
    std::filesystem::remove(folder / "12/fd/4");
    std::filesystem::create_symlink("mine", folder / "12/fd/4");
    EXPECT_TRUE(fileHolders("mine", folder / "").empty());
    std::filesystem::current_path(before);
}

// ---- the port ------------------------------------------------------------------------

namespace {

PortState goodPort()
{
    PortState state;
    state.canBind = true;
    state.hasRoute = true;
    state.hasAddress = true;
    return state;
}

std::vector<std::string> codesOfPort(const PortState& state, bool isWanted = false)
{
    Findings findings;
    judgePort(state, isWanted, findings);
    return codesOf(findings);
}

}  // namespace

TEST(CheckPort, FreeAndShared)
{
    PortState state = goodPort();
    EXPECT_THAT(codesOfPort(state), ElementsAre());
    state.holders = {{7, "responder", "avahi"}};
    EXPECT_THAT(codesOfPort(state), ElementsAre("note 0 port-shared"));
}

TEST(CheckPort, Taken)
{
    PortState state = goodPort();
    state.canBind = false;
    state.whyNot = "Address already in use";
    state.holders = {{7, "greedy", "root"}};
    EXPECT_THAT(codesOfPort(state), ElementsAre("warning 0 port-taken"));
    EXPECT_THAT(codesOfPort(state, true), ElementsAre("error 0 port-taken"));
    Findings findings;
    judgePort(state, false, findings);
    EXPECT_THAT(findings[0].message, HasSubstr("'greedy' (process 7 of user root)"));
    state.holders = {{0, "", "root"}};
    findings.clear();
    judgePort(state, false, findings);
    EXPECT_THAT(findings[0].advice, HasSubstr("sudo scanlib-check"));
}

TEST(CheckPort, NoRoute)
{
    PortState state = goodPort();
    state.hasRoute = false;
    EXPECT_THAT(codesOfPort(state), ElementsAre("warning 0 no-route"));
    state.hasAddress = false;
    EXPECT_THAT(codesOfPort(state), ElementsAre("note 0 no-route"));
    EXPECT_THAT(codesOfPort(state, true), ElementsAre("error 0 no-route"));
}
