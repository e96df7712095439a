#pragma once

// The fixture of the transport's multi-process tests: each test has a system and an endpoint directory
// of its own, and the echo hosts it starts (TUL_ECHO_HOST) are killed and reaped at its end whatever
// happens.

#include "Platform/Tul/Support/ChildProcess.h"
#include "Platform/Tul/Support/EchoService.h"

#include <Kiv/System/Tul/ServiceManager.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

class EchoHostFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char made[] = "/tmp/kiv-tul-test-XXXXXX";
        ASSERT_NE(mkdtemp(made), nullptr);
        directory = made;
        settings.endpointDirectory = directory;
        static int tests = 0;  // a socket path has little room for a test's name
        settings.systemName = "mp-" + std::to_string(getpid()) + "-" + std::to_string(++tests);
        settings.connectWait = std::chrono::seconds(20);
        Kiv::System::Tul::ServiceManager::Reset();
        Kiv::System::Tul::ServiceManager::Configure(settings);
    }

    void TearDown() override
    {
        Kiv::System::Tul::ServiceManager::Reset();
        hosts.clear();
        std::filesystem::remove_all(directory);
    }

    /// The echo host serving `provider` with these limits, started and serving.
    ChildProcess& StartHost(const std::string& provider, const char* maxFrameSize = "16777216",
                            const char* callTimeLimit = "10000")
    {
        hosts.push_back(std::make_unique<ChildProcess>(
            TUL_ECHO_HOST,
            std::vector<std::string>{directory, settings.systemName, provider, maxFrameSize, callTimeLimit}));
        EXPECT_EQ(hosts.back()->ReadLine(), "ready");
        return *hosts.back();
    }

    std::string GetEndpoint(const std::string& provider) const
    {
        return directory + "/" + settings.systemName + "." + provider + ".sock";
    }

    Kiv::System::Tul::TulSettings settings;
    std::string directory;
    std::vector<std::unique_ptr<ChildProcess>> hosts;
};
