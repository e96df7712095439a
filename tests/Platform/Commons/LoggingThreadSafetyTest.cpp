#include <Kiv/Logging/CapturingSink.h>
#include <Kiv/Logging/LogManager.h>
#include <Kiv/Logging/LoggerBase.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace Kiv;
using namespace Kiv::System::Commons::Logging;

TEST(LoggingConcurrencyTest, ManyThreadsLogShareAnAdapterAndChangeLevelsAndSinks)
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
                LoggerBase logger("Kiv.Test.Concurrent");
                for (int i = 0; i < lines; ++i)
                {
                    logger.Log(5, "thread {} line {}", t, i);
                    logger.SetLogLevel(i % 2 == 0 ? 7 : 5);
                    LogManager::SetDefaultLogLevel(i % 2 == 0 ? 7 : 5);
                    const CapturingSink passing;  // attaches and detaches while the others log
                }
            });
    }
    for (auto& worker : workers)
    {
        worker.join();
    }
    LogManager::SetDefaultLogLevel(LogLevel::DefaultValue);
    LogManager::UseConsoleSink();

    EXPECT_EQ(sink.GetRecords("Kiv.Test.Concurrent").size(), std::size_t(threads * lines));
}
