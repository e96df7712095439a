#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>
#include <Kiv/Logging/LogManager.h>
#include <Kiv/Logging/Loggable.h>
#include <Kiv/Logging/LoggerBase.h>

#include "Support/StringPrinter.h"

#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdio>
#include <fstream>
#include <sstream>

using namespace Kiv;
using namespace Kiv::System::Commons::Logging;

namespace Kiv::Test::Logging
{
// A value whose formatting fails, by a Kiv::Exception or by something that is no exception at all.
struct Probe
{
    bool kivException;
};

struct Outer
{
    // Made by one test only, which checks that its shared logger comes with the first object.
    class Shared : private Loggable<Shared, false, false>
    {
    public:
        void Report(const String& text) const { Log(LogLevel::Warning, "Shared says {0}", text); }
    };
};

template <class T>
class Own : public Loggable<Own<T>, true, false>
{
public:
    void Report(int value) const { this->Log(5, "Value is {}", value); }
};
}  // namespace Kiv::Test::Logging

template <>
struct fmt::formatter<Kiv::Test::Logging::Probe> : fmt::formatter<fmt::string_view>
{
    fmt::format_context::iterator format(const Kiv::Test::Logging::Probe& probe, fmt::format_context&) const
    {
        if (probe.kivException)
        {
            throw Kiv::InvalidOperationException("Probe refuses with {0}", 7);
        }
        throw 42;
    }
};

using namespace Kiv::Test::Logging;

namespace
{
class LoggingTest : public ::testing::Test
{
protected:
    void TearDown() override
    {
        LogManager::SetDefaultLogLevel(LogLevel::DefaultValue);
        LogManager::UseConsoleSink();
    }

    CapturingSink sink;
};
}  // namespace

TEST_F(LoggingTest, EveryLevelGoesOutAsTheOddLevelAtTheTopOfItsRange)
{
    LoggerBase logger("Kiv.Test.Levels");
    logger.SetLogLevel(LogLevel::Trace);
    for (int level = 1; level <= 10; ++level)
    {
        logger.Log(level, "level {}", level);
    }
    const int readBack[] = {1, 3, 3, 5, 5, 7, 7, 9, 9, 10};
    const auto records = sink.GetRecords("Kiv.Test.Levels");
    ASSERT_EQ(records.size(), 10u);
    for (int i = 0; i < 10; ++i)
    {
        EXPECT_EQ(records[i].level, readBack[i]) << records[i].text;
    }
}

TEST_F(LoggingTest, DefaultLevelIs7AndAnOwnLevelOverridesItUntilReset)
{
    LoggerBase own("Kiv.Test.OwnLevel");
    LoggerBase follower("Kiv.Test.Follower");
    EXPECT_EQ(LogManager::CreateLogAdapter("Kiv.Test.OwnLevel").get(), &own.GetLogAdapter());  // one per name
    EXPECT_EQ(follower.GetLogLevel(), 7);
    own.SetLogLevel(9);
    LogManager::SetDefaultLogLevel(3);
    own.Log(9, "debug passes");
    follower.Log(5, "warning filtered");
    follower.Log(3, "error passes");
    own.SetLogLevel(LogLevel::Off);
    own.Log(1, "fatal filtered at Off");
    own.GetLogAdapter().ResetLogLevel();
    EXPECT_EQ(own.GetLogLevel(), 3);

    auto ownRecords = sink.GetRecords("Kiv.Test.OwnLevel");
    ASSERT_EQ(ownRecords.size(), 1u);
    EXPECT_EQ(ownRecords[0].text, "debug passes");
    auto followerRecords = sink.GetRecords("Kiv.Test.Follower");
    ASSERT_EQ(followerRecords.size(), 1u);
    EXPECT_EQ(followerRecords[0].text, "error passes");
}

TEST_F(LoggingTest, LoggerBaseFormatsOnlyWhatPasses)
{
    LoggerBase logger("Kiv.Test.Format");
    logger.Log(9, "{1} is not even formatted", 0);  // else its failure would be logged
    logger.Log(7, "{} + {} = {}", 1, 2, 3);
    logger.Log(7, "{1} before {0}", "a", String("b"));
    logger.Log(7, "no arguments: {} stays");
    const String longText(800, 'x');  // beyond the inline buffer
    logger.Log(7, "long {}", longText);

    auto records = sink.GetRecords("Kiv.Test.Format");
    ASSERT_EQ(records.size(), 4u);
    EXPECT_EQ(records[0].text, "1 + 2 = 3");
    EXPECT_EQ(records[1].text, "b before a");
    EXPECT_EQ(records[2].text, "no arguments: {} stays");
    EXPECT_EQ(records[3].text, "long " + longText);
}

TEST_F(LoggingTest, FormatFailureLogsTheReasonAtLevel3AndThenTheRawFormat)
{
    LoggerBase logger("Kiv.Test.BadFormat");
    const struct
    {
        const char* format;
        bool kivException;
        int level;
        const char* reason;
    } rows[] = {
        {"Index {1} is missing", false, 5, "argument not found"},  // fmt's std::exception
        {"Probe: {}", true, 7, "Probe refuses with 7"},
        {"B {}", false, 1, "Unknown exception"},
    };
    for (const auto& row : rows)
    {
        sink.Clear();
        logger.Log(row.level, row.format, Probe{row.kivException});
        auto records = sink.GetRecords("Kiv.Test.BadFormat");
        ASSERT_EQ(records.size(), 2u) << row.format;
        EXPECT_EQ(records[0].level, 3);
        EXPECT_EQ(records[0].text, String("Exception occurs during format of log message: ") + row.reason);
        EXPECT_EQ(records[1].level, row.level);
        EXPECT_EQ(records[1].text, row.format);
    }
}

TEST_F(LoggingTest, LoggableLogsUnderTheDottedClassNameFromTheFirstObjectOn)
{
    const String sharedName = "Kiv.Test.Logging.Outer.Shared";
    EXPECT_EQ(LogManager::FindLogAdapter(sharedName), nullptr);
    const Outer::Shared shared;
    EXPECT_NE(LogManager::FindLogAdapter(sharedName), nullptr);
    shared.Report("hello");
    Own<Outer::Shared>().Report(11);

    auto records = sink.GetRecords(sharedName);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, "Shared says hello");
    records = sink.GetRecords("Kiv.Test.Logging.Own<Kiv.Test.Logging.Outer.Shared>");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, "Value is 11");
}

TEST_F(LoggingTest, MainSinkSwitchesForEveryAdapterAndCapturesSeeEveryLine)
{
    auto adapter = LogManager::CreateLogAdapter("Kiv.Test.Sinks");
    const String path = String::Format("/tmp/kiv-logging-test-{0}.log", ::getpid());
    LogManager::UseFileSink(path, true);
    adapter->Log(5, "into the file");
    // A file that cannot be opened leaves the file sink in place.
    EXPECT_THROW(LogManager::UseFileSink("/dev/null/sub/y.log"), Exception);
    adapter->Log(5, "still into the file");
    LogManager::UseSyslogSink("KivLoggingTest");
    adapter->Log(7, "to syslog");
    auto second = std::make_unique<CapturingSink>();
    LogManager::UseNullSink();
    adapter->Log(7, "to nowhere");
    EXPECT_EQ(second->GetRecords().size(), 1u);  // only what came after it
    second.reset();
    adapter->Log(7, "after the second capture is gone");

    std::ifstream file(path);
    std::stringstream content;
    content << file.rdbuf();
    std::remove(path.c_str());
    EXPECT_NE(content.str().find("[Kiv.Test.Sinks] [warning] into the file"), std::string::npos)
        << content.str();
    EXPECT_NE(content.str().find("still into the file"), std::string::npos) << content.str();
    EXPECT_EQ(content.str().find("syslog"), std::string::npos) << content.str();
    EXPECT_EQ(sink.GetRecords("Kiv.Test.Sinks").size(), 5u);
}
