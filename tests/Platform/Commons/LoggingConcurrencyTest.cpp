#include <Kiv/Logging/CapturingSink.h>
#include <Kiv/Logging/LogManager.h>
#include <Kiv/Logging/LoggerBase.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace Kiv;
using namespace Kiv::System::Commons::Logging;

TEST(LoggingConcurrencyTest, ManyThreadsLogCreateAdaptersAndChangeLevelsAndSinks)
{
    CapturingSink sink;
    LogManager::UseNullSink();
    constexpr int threads = 4;
    constexpr int lines = 500;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
    {
        workers.emplace_back(
            [t]
            {
                LoggerBase shared("Kiv.Test.Concurrent");
                LoggerBase own(String::Format("Kiv.Test.Concurrent.{}", t));
                for (int i = 0; i < lines; ++i)
                {
                    shared.Log(5, "thread {} line {}", t, i);
                    own.Log(5, "line {}", i);
                    own.SetLogLevel(i % 2 == 0 ? 7 : 5);
                }
            });
    }
    std::thread switcher(
        []
        {
            for (int i = 0; i < 50; ++i)
            {
                CapturingSink passing;
                LogManager::SetDefaultLogLevel(i % 2 == 0 ? 7 : 5);
            }
        });
    for (auto& worker : workers)
    {
        worker.join();
    }
    switcher.join();
    LogManager::SetDefaultLogLevel(LogLevel::DefaultValue);
    LogManager::UseConsoleSink();

    EXPECT_EQ(sink.GetRecords("Kiv.Test.Concurrent").size(), std::size_t(threads * lines));
    for (int t = 0; t < threads; ++t)
    {
        EXPECT_EQ(sink.GetRecords(String::Format("Kiv.Test.Concurrent.{}", t)).size(), std::size_t(lines));
    }
}
