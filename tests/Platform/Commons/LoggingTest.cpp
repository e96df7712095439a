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
// A value whose text form counts how often it is made, or fails in a chosen way.
struct Probe
{
    enum class Failure
    {
        None,
        KivException,
        StdException,
        Other
    };
    Failure failure = Failure::None;
    mutable int formatted = 0;
};

class OwnLogged : public Loggable<OwnLogged, true, false>
{
public:
    using Loggable::GetLoggerName;
    LoggerBase& Logger() const { return GetLogger(); }
    void Report(int value) const { Log(5, "Value is {}", value); }
};

class SharedLogged : private Loggable<SharedLogged, false, false>
{
public:
    using Loggable::GetLoggerName;
    LoggerBase& Logger() const { return GetLogger(); }
    void Report(const String& text) const { Log(LogLevel::Warning, "Shared says {0}", text); }
};

// Used by one test only, which checks that its shared logger comes with the first object.
class LateShared : public Loggable<LateShared, false>
{
};

template <class T>
class Box : public Loggable<Box<T>, false, false>
{
public:
    using Loggable<Box<T>, false, false>::GetLoggerName;
};

struct Outer
{
    struct Inner : Loggable<Inner, true>
    {
        using Loggable::GetLoggerName;
    };
};
}  // namespace Kiv::Test::Logging

template <>
struct fmt::formatter<Kiv::Test::Logging::Probe> : fmt::formatter<fmt::string_view>
{
    auto format(const Kiv::Test::Logging::Probe& probe, fmt::format_context& ctx) const
    {
        ++probe.formatted;
        using Failure = Kiv::Test::Logging::Probe::Failure;
        switch (probe.failure)
        {
            case Failure::KivException:
                throw Kiv::InvalidOperationException("Probe refuses with {0}", 7);
            case Failure::StdException:
                throw std::runtime_error("probe runtime error");
            case Failure::Other:
                throw 42;
            default:
                break;
        }
        return fmt::formatter<fmt::string_view>::format("probe", ctx);
    }
};

using namespace Kiv::Test::Logging;

namespace
{
class LoggingTest : public ::testing::Test
{
protected:
    void SetUp() override { LogManager::SetDefaultLogLevel(LogLevel::DefaultValue); }
    void TearDown() override
    {
        LogManager::SetDefaultLogLevel(LogLevel::DefaultValue);
        LogManager::UseConsoleSink();
    }

    // A fresh adapter per test, following the default level.
    std::shared_ptr<LogAdapter> Adapter(const char* name)
    {
        auto adapter = LogManager::CreateLogAdapter(name);
        adapter->ResetLogLevel();
        return adapter;
    }

    CapturingSink sink;
};

String TempPath(const char* stem)
{
    return String::Format("/tmp/{0}-{1}.log", stem, ::getpid());
}
}  // namespace

TEST_F(LoggingTest, LineIsCapturedWithLevelAndLoggerName)
{
    auto adapter = Adapter("Kiv.Test.Capture");
    adapter->Log(LogLevel::Warning, "first");
    adapter->Log(3, String("second"));

    auto records = sink.GetRecords("Kiv.Test.Capture");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].loggerName, "Kiv.Test.Capture");
    EXPECT_EQ(records[0].level, 5);
    EXPECT_EQ(records[0].text, "first");
    EXPECT_EQ(records[1].level, LogLevel::Error);
    EXPECT_EQ(records[1].text, "second");
}

TEST_F(LoggingTest, SameNameGivesTheSameAdapter)
{
    auto first = LogManager::CreateLogAdapter("Kiv.Test.Same");
    auto second = LogManager::CreateLogAdapter("Kiv.Test.Same");
    EXPECT_EQ(first, second);
    EXPECT_EQ(first->GetName(), "Kiv.Test.Same");
    EXPECT_NE(LogManager::CreateLogAdapter("Kiv.Test.Other"), first);
    EXPECT_EQ(LogManager::FindLogAdapter("Kiv.Test.Same"), first);
    EXPECT_EQ(LogManager::FindLogAdapter("Kiv.Test.NeverMade"), nullptr);
}

TEST_F(LoggingTest, DefaultLevelIs7AndHigherLevelsAreNotProduced)
{
    auto adapter = Adapter("Kiv.Test.Default");
    EXPECT_EQ(adapter->GetLogLevel(), 7);
    for (int level : {1, 3, 5, 7, 8, 9, 10})
    {
        adapter->Log(level, String::Format("level {}", level));
    }
    auto records = sink.GetRecords("Kiv.Test.Default");
    ASSERT_EQ(records.size(), 4u);
    EXPECT_EQ(records[0].level, 1);
    EXPECT_EQ(records[1].level, 3);
    EXPECT_EQ(records[2].level, 5);
    EXPECT_EQ(records[3].level, 7);
    EXPECT_EQ(records[3].text, "level 7");
    EXPECT_FALSE(adapter->IsEnabled(9));
    EXPECT_TRUE(adapter->IsEnabled(7));
}

TEST_F(LoggingTest, OwnLevelAndDefaultLevel)
{
    auto own = Adapter("Kiv.Test.OwnLevel");
    auto follower = Adapter("Kiv.Test.Follower");
    own->SetLogLevel(9);
    own->Log(9, "debug passes");
    LogManager::SetDefaultLogLevel(3);
    EXPECT_EQ(follower->GetLogLevel(), 3);
    EXPECT_EQ(own->GetLogLevel(), 9);
    follower->Log(5, "warning filtered");
    follower->Log(3, "error passes");
    own->SetLogLevel(LogLevel::Off);
    own->Log(1, "fatal filtered at Off");
    own->ResetLogLevel();
    EXPECT_EQ(own->GetLogLevel(), 3);

    auto ownRecords = sink.GetRecords("Kiv.Test.OwnLevel");
    ASSERT_EQ(ownRecords.size(), 1u);
    EXPECT_EQ(ownRecords[0].text, "debug passes");
    EXPECT_EQ(ownRecords[0].level, 9);
    auto followerRecords = sink.GetRecords("Kiv.Test.Follower");
    ASSERT_EQ(followerRecords.size(), 1u);
    EXPECT_EQ(followerRecords[0].text, "error passes");
}

TEST_F(LoggingTest, LoggerBaseFormatsWithPlaceholders)
{
    LoggerBase logger("Kiv.Test.Format");
    logger.Log(7, "{} + {} = {}", 1, 2, 3);
    logger.Log(7, "{1} before {0}", "a", String("b"));
    logger.Log(7, "no arguments: {} stays");
    String longText(800, 'x');
    logger.Log(7, "long {}", longText);

    auto records = sink.GetRecords("Kiv.Test.Format");
    ASSERT_EQ(records.size(), 4u);
    EXPECT_EQ(records[0].text, "1 + 2 = 3");
    EXPECT_EQ(records[1].text, "b before a");
    EXPECT_EQ(records[2].text, "no arguments: {} stays");
    EXPECT_EQ(records[3].text, "long " + longText);
}

TEST_F(LoggingTest, NothingIsFormattedWhenTheLevelDoesNotPass)
{
    LoggerBase logger("Kiv.Test.Lazy");
    Probe probe;
    logger.Log(9, "{}", probe);
    EXPECT_EQ(probe.formatted, 0);
    logger.Log(7, "{}", probe);
    EXPECT_EQ(probe.formatted, 1);
    auto records = sink.GetRecords("Kiv.Test.Lazy");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, "probe");
}

TEST_F(LoggingTest, FormatFailureOfTheFormatLibraryLogsTheReasonAndThenTheRawFormat)
{
    LoggerBase logger("Kiv.Test.BadFormat");
    EXPECT_NO_THROW(logger.Log(5, "Index {1} is missing", 1));

    auto records = sink.GetRecords("Kiv.Test.BadFormat");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].level, 3);
    EXPECT_EQ(records[0].text, "Exception occurs during format of log message: argument not found");
    EXPECT_EQ(records[1].level, 5);
    EXPECT_EQ(records[1].text, "Index {1} is missing");
}

TEST_F(LoggingTest, FormatFailureByKivExceptionLogsItsMessage)
{
    LoggerBase logger("Kiv.Test.KivFailure");
    Probe probe;
    probe.failure = Probe::Failure::KivException;
    logger.Log(7, "Probe: {}", probe);

    auto records = sink.GetRecords("Kiv.Test.KivFailure");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].level, 3);
    EXPECT_EQ(records[0].text, "Exception occurs during format of log message: Probe refuses with 7");
    EXPECT_EQ(records[1].level, 7);
    EXPECT_EQ(records[1].text, "Probe: {}");
}

TEST_F(LoggingTest, FormatFailureByStdExceptionAndByAnythingElse)
{
    LoggerBase logger("Kiv.Test.OtherFailures");
    Probe runtime;
    runtime.failure = Probe::Failure::StdException;
    Probe other;
    other.failure = Probe::Failure::Other;
    logger.Log(5, "A {}", runtime);
    logger.Log(1, "B {}", other);

    auto records = sink.GetRecords("Kiv.Test.OtherFailures");
    ASSERT_EQ(records.size(), 4u);
    EXPECT_EQ(records[0].text, "Exception occurs during format of log message: probe runtime error");
    EXPECT_EQ(records[0].level, 3);
    EXPECT_EQ(records[1].text, "A {}");
    EXPECT_EQ(records[1].level, 5);
    EXPECT_EQ(records[2].text, "Exception occurs during format of log message: Unknown exception");
    EXPECT_EQ(records[2].level, 3);
    EXPECT_EQ(records[3].text, "B {}");
    EXPECT_EQ(records[3].level, 1);
}

TEST_F(LoggingTest, FormatFailureReasonFollowsTheLevelFilterToo)
{
    LoggerBase logger("Kiv.Test.FailureFiltered");
    logger.SetLogLevel(1);
    logger.Log(1, "{5}", 0);
    auto records = sink.GetRecords("Kiv.Test.FailureFiltered");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, "{5}");
    EXPECT_EQ(records[0].level, 1);
}

TEST_F(LoggingTest, OwnLoggerPerObject)
{
    OwnLogged a;
    OwnLogged b;
    EXPECT_NE(&a.Logger(), &b.Logger());
    EXPECT_EQ(&a.Logger().GetLogAdapter(), &b.Logger().GetLogAdapter());
    EXPECT_EQ(a.Logger().GetName(), "Kiv.Test.Logging.OwnLogged");
    OwnLogged copy(a);
    EXPECT_NE(&copy.Logger(), &a.Logger());

    a.Report(11);
    auto records = sink.GetRecords("Kiv.Test.Logging.OwnLogged");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, "Value is 11");
    EXPECT_EQ(records[0].level, 5);
}

TEST_F(LoggingTest, SharedLoggerPerClass)
{
    SharedLogged a;
    SharedLogged b;
    EXPECT_EQ(&a.Logger(), &b.Logger());
    EXPECT_EQ(a.Logger().GetName(), "Kiv.Test.Logging.SharedLogged");
    b.Report("hello");
    auto records = sink.GetRecords("Kiv.Test.Logging.SharedLogged");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, "Shared says hello");
}

TEST_F(LoggingTest, SharedLoggerIsCreatedWithTheFirstObject)
{
    EXPECT_EQ(LogManager::FindLogAdapter("Kiv.Test.Logging.LateShared"), nullptr);
    LateShared first;
    EXPECT_NE(LogManager::FindLogAdapter("Kiv.Test.Logging.LateShared"), nullptr);
}

TEST_F(LoggingTest, LoggerNamesOfNamespacedNestedAndTemplateClasses)
{
    EXPECT_EQ(OwnLogged::GetLoggerName(), "Kiv.Test.Logging.OwnLogged");
    EXPECT_EQ(Outer::Inner::GetLoggerName(), "Kiv.Test.Logging.Outer.Inner");
    EXPECT_EQ(Box<int>::GetLoggerName(), "Kiv.Test.Logging.Box<int>");
    EXPECT_EQ(Box<OwnLogged>::GetLoggerName(), "Kiv.Test.Logging.Box<Kiv.Test.Logging.OwnLogged>");
    Box<int> box;
    EXPECT_NE(LogManager::FindLogAdapter("Kiv.Test.Logging.Box<int>"), nullptr);
}

TEST_F(LoggingTest, FileSinkWritesLinesAndSwitchesEveryAdapter)
{
    auto adapter = Adapter("Kiv.Test.File");
    const String path = TempPath("kiv-logging-test");
    LogManager::UseFileSink(path, true);
    adapter->Log(5, "into the file");
    LogManager::UseConsoleSink();
    adapter->Log(5, "not into the file");

    std::ifstream file(path);
    std::stringstream content;
    content << file.rdbuf();
    std::remove(path.c_str());
    EXPECT_NE(content.str().find("[Kiv.Test.File] [warning] into the file"), std::string::npos)
        << content.str();
    EXPECT_EQ(content.str().find("not into the file"), std::string::npos);
    // The capture saw both.
    EXPECT_EQ(sink.GetRecords("Kiv.Test.File").size(), 2u);
}

TEST_F(LoggingTest, FileSinkThatCannotBeOpenedRaises)
{
    EXPECT_THROW(LogManager::UseFileSink("/dev/null/sub/y.log"), Exception);
}

TEST_F(LoggingTest, SyslogAndNullSinksTakeLines)
{
    auto adapter = Adapter("Kiv.Test.Sinks");
    LogManager::UseSyslogSink("KivLoggingTest");
    adapter->Log(7, "to syslog");
    LogManager::UseNullSink();
    adapter->Log(7, "to nowhere");
    EXPECT_EQ(sink.GetRecords("Kiv.Test.Sinks").size(), 2u);
}

TEST_F(LoggingTest, CapturingSinkSeesNothingAfterItIsGone)
{
    auto adapter = Adapter("Kiv.Test.Detach");
    auto second = std::make_unique<CapturingSink>();
    adapter->Log(5, "one");
    second.reset();
    adapter->Log(5, "two");
    EXPECT_EQ(sink.GetRecords("Kiv.Test.Detach").size(), 2u);
    sink.Clear();
    EXPECT_TRUE(sink.GetRecords().empty());
}
