#pragma once

// The fixture of the transport's multi-process tests: each test has a system and an endpoint directory
// of its own, and the echo hosts it starts (TUL_ECHO_HOST) are killed and reaped at its end whatever
// happens.

#include "Platform/Tul/Support/ChildProcess.h"
#include "Platform/Tul/Support/EchoService.h"
#include "Support/SystemDirectoryTest.h"

#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulTesting.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

class EchoHostFixture : public Kiv::Testing::SystemDirectoryTest
{
protected:
    void SetUp() override
    {
        SystemDirectoryTest::SetUp();
        settings.endpointDirectory = directory;
        settings.systemName = system;
        settings.connectWait = std::chrono::seconds(20);
        Kiv::System::Tul::Testing::UseNewTransport();
        Kiv::System::Tul::ServiceManager::Configure(settings);
    }

    void TearDown() override
    {
        Kiv::System::Tul::Testing::UseNewTransport();
        hosts.clear();
        SystemDirectoryTest::TearDown();
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
    std::vector<std::unique_ptr<ChildProcess>> hosts;
};
