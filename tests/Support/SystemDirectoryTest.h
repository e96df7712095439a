#pragma once

// The base of the multi-process fixtures: each test gets an endpoint directory and a system name of its
// own, so that parallel tests never meet, and the directory goes when the test ends. A derived fixture
// stops its processes in its TearDown before it calls this one.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace Kiv::Testing
{
class SystemDirectoryTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char made[] = "/tmp/kiv-test-XXXXXX";
        ASSERT_NE(mkdtemp(made), nullptr);
        directory = made;
        chmod(made, 0755);     // a process run as another user makes its way to the endpoints
        static int tests = 0;  // a socket path has little room for a test's name
        system = "t" + std::to_string(getpid()) + "-" + std::to_string(++tests);
    }
    void TearDown() override { std::filesystem::remove_all(directory); }

    std::string directory;
    std::string system;
};
}  // namespace Kiv::Testing
