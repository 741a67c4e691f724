// SPDX-License-Identifier: LGPL-2.1-or-later
#include "JsonReport.h"
#include "Options.h"
#include "Support.h"
#include "TextReport.h"

#include <nlohmann/json.hpp>

using namespace check;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

Session withFindings()
{
    Session session;
    Voice voice(session.findings, "/a\033b");
    voice.note(0, "a-note", "noted.");
    voice.warning(3, "a-warning", "warned.", "Advice 2.");
    voice.error(4, "an-error", "failed.", "Advice 1.");
    voice.error(5, "an-error", "failed again.", "Advice 1.");
    return session;
}

}  // namespace

TEST(CheckReport, StatusIsThatOfTheWorst)
{
    Session session;
    EXPECT_EQ(session.status(), 0);
    session.findings.push_back({"p", 0, Severity::Note, "c", "m", ""});
    EXPECT_EQ(session.status(), 0);
    session.findings.push_back({"p", 0, Severity::Warning, "c", "m", "a"});
    EXPECT_EQ(session.status(), 1);
    session.findings.push_back({"p", 0, Severity::Error, "c", "m", "a"});
    EXPECT_EQ(session.status(), 2);
}

TEST(CheckReport, TextLooksLikeACompilers)
{
    const std::string text = textReport(withFindings(), false, false);
    EXPECT_THAT(text, HasSubstr("/a\\x1bb: note: noted. [a-note]\n"));
    EXPECT_THAT(text, HasSubstr("/a\\x1bb:4: error: failed. [an-error]\n"));
    EXPECT_THAT(text, HasSubstr("2 errors, 1 warning. What to do next:\n  1. Advice 1.\n"
                                "  2. Advice 2.\n"));
    EXPECT_THAT(text, Not(HasSubstr("\033")));
    EXPECT_THAT(textReport(Session(), false, false), HasSubstr("Nothing is wrong."));
}

TEST(CheckReport, FilesThatWereNotReadWereNotLookedAt)
{
    Session session;
    session.configurations.resize(2);
    session.features.resize(1);
    EXPECT_THAT(
        textReport(session, false, false),
        HasSubstr("Looked at 0 configuration files with 0 scanner models, 0 feature files"));
    session.configurations[1].isRead = true;
    EXPECT_THAT(textReport(session, false, false), HasSubstr("Looked at 1 configuration file "));
}

TEST(CheckReport, QuietTextHasNoNotesAndNoSummary)
{
    EXPECT_EQ(textReport(withFindings(), true, false),
              "/a\\x1bb:3: warning: warned. [a-warning]\n/a\\x1bb:4: error: failed. [an-error]\n"
              "/a\\x1bb:5: error: failed again. [an-error]\n");
}

TEST(CheckReport, ColoursOnRequest)
{
    EXPECT_THAT(textReport(withFindings(), true, true), HasSubstr("\033[1;31merror:\033[0m"));
}

TEST(CheckReport, JsonHasWhatIsDocumented)
{
    const auto json = nlohmann::json::parse(jsonReport(withFindings(), false));
    EXPECT_EQ(json["program"], "scanlib-check");
    EXPECT_EQ(json["format"], 1);
    EXPECT_EQ(json["status"], 2);
    EXPECT_EQ(json["errors"], 2);
    EXPECT_EQ(json["warnings"], 1);
    ASSERT_EQ(json["findings"].size(), 4U);
    EXPECT_EQ(json["findings"][1]["file"], "/a\\x1bb");
    EXPECT_EQ(json["findings"][1]["line"], 3);
    EXPECT_EQ(json["findings"][1]["severity"], "warning");
    EXPECT_EQ(json["findings"][1]["code"], "a-warning");
    EXPECT_EQ(json["findings"][1]["advice"], "Advice 2.");
    EXPECT_TRUE(json["findings"][0]["line"].is_null());
    EXPECT_TRUE(json["devices"].is_null());
    EXPECT_TRUE(json["port"].is_null());
    EXPECT_TRUE(json["discovered"].is_null());
    EXPECT_TRUE(json["environment"]["ENABLE_SL_LOG"].is_null());
    EXPECT_EQ(nlohmann::json::parse(jsonReport(withFindings(), true))["findings"].size(), 3U);
}

TEST(CheckOptions, AreParsed)
{
    const Options options = Options::parse({"--json", "--discover", "--quiet", "--no-usb",
                                            "--config", "a", "--config=b", "--features", "c"});
    EXPECT_EQ(options.error, "");
    EXPECT_TRUE(options.wantsJson && options.wantsSearch && options.isQuiet);
    EXPECT_FALSE(options.looksAtUsb);
    EXPECT_TRUE(options.looksAtNetwork);
    EXPECT_THAT(options.configs, ElementsAre("a", "b"));
    EXPECT_THAT(options.features, ElementsAre("c"));
}

TEST(CheckOptions, MistakesAreNamed)
{
    EXPECT_THAT(Options::parse({"--config"}).error, HasSubstr("needs the name of a file"));
    EXPECT_THAT(Options::parse({"--what"}).error, HasSubstr("'--what'"));
    EXPECT_THAT(Options::parse({"file.conf"}).error, HasSubstr("'file.conf'"));
    EXPECT_THAT(Options::parse({"--discover", "--no-network"}).error, HasSubstr("exclude"));
}
