// SPDX-License-Identifier: LGPL-2.1-or-later
#include "CLogger.h"
#include "LogCapture.h"
#include "TestSupport.h"

#include <cerrno>
#include <thread>

#include <syslog.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

bool hasErrorTexts = true;

}  // namespace

// Calls go through here (--wrap).
extern "C" {
char* __real_strerror(int error);
char* __wrap_strerror(int error);

char* __wrap_strerror(int error)
{
    return hasErrorTexts ? __real_strerror(error) : nullptr;
}
}

namespace {

// ---- the switches ----------------------------------------------------------------

enum class Call { Debug, Info, Error, Dump };

void perform(Call call)
{
    const CLogger logger;
    const unsigned char byte = 0x5A;
    switch (call) {
    case Call::Debug:
        logger.log_debug("text");
        break;
    case Call::Info:
        logger.log_info("text");
        break;
    case Call::Error:
        logger.log_error("text");
        break;
    case Call::Dump:
        logger.hex_dump(&byte, 1);
        break;
    }
}

struct SwitchCase {
    const char* name;
    Call call;
    const char* variable;
    int priority;
};

class CLoggerSwitch : public testing::TestWithParam<SwitchCase> {};

// The other switches are off, but for the dump, which needs two.
TEST_P(CLoggerSwitch, IsOnForExactlyOne)
{
    const SwitchCase& param = GetParam();
    const LogCapture capture;
    const EnvironmentGuard sl("ENABLE_SL_LOG", param.call == Call::Dump ? "1" : nullptr);
    const EnvironmentGuard info("ENABLE_INFO_LOG", nullptr);
    const EnvironmentGuard dump("ENABLE_SL_DUMP", nullptr);
    const EnvironmentGuard on(param.variable, nullptr);

    for (const char* value : {static_cast<const char*>(nullptr), "", "0", "2", "01", "11", "1 ",
                              " 1", "true", "yes", "on"}) {
        on.set(value);
        perform(param.call);
        EXPECT_THAT(capture.lines(), IsEmpty()) << (value != nullptr ? value : "unset");
    }
    on.set("1");
    perform(param.call);
    const std::vector<int> priorities = capture.priorities();
    EXPECT_EQ(priorities, std::vector<int>(param.call == Call::Dump ? 2 : 1, param.priority));

    on.set("0");
    perform(param.call);
    EXPECT_EQ(capture.lines().size(), priorities.size());
}

INSTANTIATE_TEST_SUITE_P(
    Calls, CLoggerSwitch,
    testing::Values(SwitchCase{"Debug", Call::Debug, "ENABLE_SL_LOG", LOG_DEBUG},
                    SwitchCase{"Info", Call::Info, "ENABLE_INFO_LOG", LOG_INFO},
                    SwitchCase{"Error", Call::Error, "ENABLE_SL_LOG", LOG_ERR},
                    SwitchCase{"Dump", Call::Dump, "ENABLE_SL_DUMP", LOG_DEBUG}),
    CaseName());

TEST(CLogger, DumpNeedsBothSwitches)
{
    const LogCapture capture;
    const EnvironmentGuard dump("ENABLE_SL_DUMP", "1");
    const EnvironmentGuard sl("ENABLE_SL_LOG", "0");
    perform(Call::Dump);
    EXPECT_THAT(capture.lines(), IsEmpty());
    sl.set("1");
    perform(Call::Dump);
    EXPECT_THAT(capture.lines(), ElementsAre("(size: 1)", "5a "));
}

TEST(CLogger, InfoAndDebugSwitchesAreIndependent)
{
    const LogCapture capture;
    const EnvironmentGuard info("ENABLE_INFO_LOG", "1");
    const EnvironmentGuard sl("ENABLE_SL_LOG", nullptr);
    const CLogger logger;
    logger.log_debug("debug");
    logger.log_error("error");
    logger.log_info("info");
    EXPECT_FALSE(CLogger::debugEnabled());
    EXPECT_THAT(capture.lines(), ElementsAre("info"));
    sl.set("1");
    info.set("0");
    logger.log_debug("debug");
    logger.log_error("error");
    logger.log_info("info");
    EXPECT_TRUE(CLogger::debugEnabled());
    EXPECT_THAT(capture.lines(), ElementsAre("info", "debug", "error"));
}

// ---- log_fatal ---------------------------------------------------------------------

LogCapture* capturedInChild = nullptr;

void printCaptured()
{
    for (std::size_t i = 0; i < capturedInChild->lines().size(); ++i) {
        fprintf(stderr, "<%d:%s>", capturedInChild->priorities()[i],
                capturedInChild->lines()[i].c_str());
    }
    fprintf(stderr, "<end>");
}

void dieWithSwitch(const char* value)
{
    capturedInChild = new LogCapture;
    setenv("ENABLE_SL_LOG", value, 1);
    setenv("ENABLE_INFO_LOG", "1", 1);
    atexit(printCaptured);
    CLogger().log_fatal("the %s", "end");
}

TEST(CLoggerDeathTest, FatalLogsAndExits)
{
    EXPECT_EXIT(dieWithSwitch("1"), testing::ExitedWithCode(1), "^<3:the end><end>$");
}

TEST(CLoggerDeathTest, FatalExitsWhileTheSwitchIsOff)
{
    EXPECT_EXIT(dieWithSwitch("0"), testing::ExitedWithCode(1), "^<end>$");
}

// ---- messages ----------------------------------------------------------------------

TEST(CLogger, FormatsArguments)
{
    const LogCapture capture;
    CLogger().log_debug("%d %s %.2f %c", 42, "text", 1.5, 'x');
    EXPECT_THAT(capture.lines(), ElementsAre("42 text 1.50 x"));
}

TEST(CLogger, CutsMessagesAt1023Characters)
{
    for (const std::size_t length : {1022U, 1023U, 1024U, 2000U}) {
        const LogCapture capture;
        const std::string text(length, 'a');
        CLogger().log_debug("%s", text.c_str());
        EXPECT_THAT(capture.lines(), ElementsAre(text.substr(0, 1023))) << length;
    }
}

TEST(CLogger, DeliversPercentSignsInDataUnchanged)
{
    const LogCapture capture;
    CLogger().log_debug("%s", "100% %s %d %n %m %%");
    EXPECT_THAT(capture.lines(), ElementsAre("100% %s %d %n %m %%"));
}

TEST(CLogger, ExpandsPercentMInMessages)
{
    const LogCapture capture;
    errno = ENOENT;
    CLogger().log_error("open %s: %m", "x");
    EXPECT_THAT(capture.lines(), ElementsAre("open x: " + std::string(strerror(ENOENT))));
}

TEST(CLogger, ObjectsLogFromTwoThreadsAtOnce)
{
    const LogCapture capture;
    constexpr int kRounds = 500;
    const auto work = [](char letter) {
        const CLogger logger;
        const std::string text(900, letter);
        for (int i = 0; i < kRounds; ++i) {
            logger.log_debug("%s", text.c_str());
        }
    };
    std::thread other(work, 'a');
    work('b');
    other.join();
    EXPECT_EQ(capture.count(std::string(900, 'a')), kRounds);
    EXPECT_EQ(capture.count(std::string(900, 'b')), kRounds);
    EXPECT_EQ(capture.lines().size(), 2U * kRounds);
}

// ---- %m ----------------------------------------------------------------------------

TEST(CLogger, ExpandsPercentM)
{
    const std::string text = strerror(EACCES);
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", ""},           {"plain", "plain"},
        {"%m", text},       {"a%mb%mc", "a" + text + "b" + text + "c"},
        {"%%m", "%%m"},     {"%%%m", "%%" + text},
        {"%%%%m", "%%%%m"}, {"%d %s m", "%d %s m"},
        {"%5m", "%5m"},     {"100%", "100%"},
        {"%", "%"},         {"m%", "m%"},
    };
    for (const auto& [format, expected] : cases) {
        char out[1024];
        errno = EACCES;
        CLogger().do_percentm(out, format.c_str());
        EXPECT_STREQ(out, expected.c_str()) << format;
    }
}

TEST(CLogger, ErrorsMayHaveNoText)
{
    char out[1024];
    hasErrorTexts = false;
    CLogger().do_percentm(out, "a%mb");
    hasErrorTexts = true;
    EXPECT_STREQ(out, "a<unknown error>b");
}

TEST(CLogger, ExpansionStaysInsideItsBuffer)
{
    const std::string text = strerror(ENOENT);
    for (std::size_t front = 1000; front < 1030; ++front) {
        const std::string format = std::string(front, 'x') + "%m" + std::string(2000, 'y');
        const std::string full = std::string(front, 'x') + text + std::string(2000, 'y');
        // The byte behind the buffer tells of a write past its end.
        std::vector<char> out(1025, '\x55');
        errno = ENOENT;
        CLogger().do_percentm(out.data(), format.c_str());
        EXPECT_EQ(out[1024], '\x55');
        const std::size_t length = strnlen(out.data(), 1024);
        ASSERT_LE(length, 1023U);
        // A "%" as the last character that fits stands for itself, then nothing follows.
        const std::string expected = front == 1022 ? full.substr(0, 1022) : full.substr(0, length);
        EXPECT_EQ(std::string(out.data(), std::min(length, expected.size())), expected) << front;
        EXPECT_GE(length, 1022U) << front;
    }
}

// ---- hex_dump ----------------------------------------------------------------------

std::string hexLine(int from, int to)
{
    std::string line;
    for (int i = from; i < to; ++i) {
        char text[4];
        snprintf(text, sizeof text, "%.2x ", static_cast<unsigned>(i) & 0xFFU);
        line += text;
    }
    return line;
}

TEST(CLogger, DumpsThirtyTwoBytesToALine)
{
    EXPECT_EQ(hexLine(0, 32),
              "00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f "
              "10 11 12 13 14 15 16 17 18 19 1a 1b 1c 1d 1e 1f ");
    const EnvironmentGuard dump("ENABLE_SL_DUMP", "1");
    const Bytes data = counting(256);
    for (const int size : {1, 31, 32, 33, 63, 64, 65, 256}) {
        const LogCapture capture;
        CLogger().hex_dump(data.data(), size);
        Lines expected = {"(size: " + std::to_string(size) + ")"};
        for (int from = 0; from < size; from += 32) {
            expected.push_back(hexLine(from, std::min(from + 32, size)));
        }
        EXPECT_EQ(capture.lines(), expected);
        EXPECT_EQ(capture.priorities(), std::vector<int>(expected.size(), LOG_DEBUG));
    }
}

TEST(CLogger, DumpsNothingButTheSizeWithoutBytes)
{
    const EnvironmentGuard dump("ENABLE_SL_DUMP", "1");
    for (const int size : {0, -1, -2000000000}) {
        const LogCapture capture;
        CLogger().hex_dump(nullptr, size);
        EXPECT_THAT(capture.lines(), ElementsAre("(size: " + std::to_string(size) + ")"));
    }
}

// ---- the object --------------------------------------------------------------------

TEST(CLogger, IsTwoPlainBuffers)
{
    EXPECT_FALSE(std::is_polymorphic_v<CLogger>);
    EXPECT_EQ(sizeof(CLogger), 2048U);
}

// ---- trace lines -------------------------------------------------------------------

class Tracer : public CLogger {
public:
    void Short(int* evaluated)
    {
        SL_START();
        SL_TRACE("number %d", ++*evaluated);
        SL_END();
    }
    int AFunctionNameOfMoreThanTwentyCharacters(int* evaluated)
    {
        line = __LINE__ + 1;
        SL_RETURN(++*evaluated);
    }
    int line = 0;
};

TEST(CLogger, TraceLinesHaveAPrefixOfFixedColumns)
{
    const LogCapture capture;
    Tracer tracer;
    int evaluated = 40;
    EXPECT_EQ(tracer.AFunctionNameOfMoreThanTwentyCharacters(&evaluated), 41);
    EXPECT_EQ(evaluated, 41);
    char expected[200];
    snprintf(expected, sizeof expected, "[P:%d T:%d] %.15s : %-4d AFunctionNameOfMoreT -- %s",
             getpid(), static_cast<int>(pthread_self()), __FILE__, tracer.line,
             "::::::::::::::: METHOD END ::::::::::::::: 41");
    EXPECT_THAT(capture.lines(), ElementsAre(expected));

    const LogCapture more;
    tracer.Short(&evaluated);
    EXPECT_THAT(more.messages(),
                ElementsAre("::::::::::::::: METHOD START ::::::::::::::: ", "number 42",
                            "::::::::::::::: METHOD END ::::::::::::::: "));
    for (const std::string& line : more.lines()) {
        EXPECT_NE(line.find(" Short                -- "), std::string::npos) << line;
    }
}

TEST(CLogger, TracingEvaluatesNothingWhileOff)
{
    const LogCapture capture;
    const EnvironmentGuard off("ENABLE_SL_LOG", "0");
    Tracer tracer;
    int evaluated = 0;
    tracer.Short(&evaluated);
    EXPECT_EQ(evaluated, 0);
    EXPECT_EQ(tracer.AFunctionNameOfMoreThanTwentyCharacters(&evaluated), 1);
    EXPECT_EQ(evaluated, 1);
    EXPECT_THAT(capture.lines(), IsEmpty());
}

}  // namespace
