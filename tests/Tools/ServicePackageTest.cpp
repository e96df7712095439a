#include "Platform/Tul/Support/ChildProcess.h"
#include "Support/SystemDirectoryTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

// The packages of this build tree, unpacked, and the host started as the systemd unit in them starts it:
// its ExecStart, its runtime directory, and NOTIFY_SOCKET on a datagram socket of the test, where the host
// must say READY=1 once set up, whether it dispatches, and STOPPING=1 on SIGTERM, before it exits cleanly.

using ::testing::HasSubstr;
namespace fs = std::filesystem;

namespace
{
class ServicePackageTest : public Kiv::Testing::SystemDirectoryTest
{
protected:
    void TearDown() override
    {
        host.reset();
        if (notify >= 0)
        {
            close(notify);
        }
        SystemDirectoryTest::TearDown();
    }

    /// Runs a shell command; its exit status, with what it printed on failure.
    static int Shell(const std::string& command)
    {
        std::string output;
        FILE* pipe = popen((command + " 2>&1").c_str(), "r");
        char chunk[4096];
        while (pipe != nullptr && std::fgets(chunk, sizeof chunk, pipe) != nullptr)
        {
            output += chunk;
        }
        const int status = pipe != nullptr ? pclose(pipe) : -1;
        EXPECT_EQ(status, 0) << command << "\n" << output;
        return status;
    }

    /// The value of `key=` in the unit, empty if absent.
    static std::string UnitValue(const std::string& unit, const std::string& key)
    {
        std::istringstream lines(unit);
        for (std::string line; std::getline(lines, line);)
        {
            if (line.rfind(key + "=", 0) == 0)
            {
                return line.substr(key.size() + 1);
            }
        }
        return "";
    }

    /// The next message on the notification socket, empty when none comes within 60 s.
    std::string NextMessage()
    {
        pollfd entry{notify, POLLIN, 0};
        char message[4096];
        if (poll(&entry, 1, 60 * 1000) != 1)
        {
            return "";
        }
        const ssize_t size = recv(notify, message, sizeof message, 0);
        return size > 0 ? std::string(message, static_cast<std::size_t>(size)) : "";
    }

    int notify = -1;
    std::unique_ptr<ChildProcess> host;
};
}  // namespace

TEST_F(ServicePackageTest, TheUnitsHostTellsTheServiceManagerWhenItIsReadyAndStopsCleanlyOnSigterm)
{
    const fs::path packages = fs::path(directory) / "packages", root = fs::path(directory) / "root";
    ASSERT_EQ(Shell("'" CPACK_COMMAND "' -G DEB --config '" BUILD_DIR "/CPackConfig.cmake' -B '" +
                    packages.string() + "'"),
              0);
    for (const char* package : {"libkiv-nm_", "libkiv-nm-dev_", "kiv-nm-tools_"})
    {
        const auto found = std::find_if(fs::directory_iterator(packages), fs::directory_iterator(),
                                        [&](const fs::directory_entry& entry)
                                        { return entry.path().filename().string().rfind(package, 0) == 0; });
        ASSERT_NE(found, fs::directory_iterator()) << package << "*.deb was not made";
        ASSERT_EQ(Shell("dpkg-deb -x '" + found->path().string() + "' '" + root.string() + "'"), 0);
    }

    std::ifstream file(root / "usr/lib/systemd/system/kivnm-host.service");
    ASSERT_TRUE(file) << "the unit is not in the package";
    const std::string unit((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_EQ(UnitValue(unit, "Type"), "notify");
    const std::string runtime = UnitValue(unit, "RuntimeDirectory");
    ASSERT_FALSE(runtime.empty());
    EXPECT_EQ(UnitValue(unit, "RuntimeDirectoryMode"), "0755");

    // The command as systemd runs it, with the unpacked tree for / and a runtime directory of the test's.
    std::istringstream words(UnitValue(unit, "ExecStart"));
    std::string program;
    words >> program;
    const fs::path runtimeDirectory = fs::path(directory) / "run" / runtime;
    fs::create_directories(runtimeDirectory);
    chmod(runtimeDirectory.c_str(), 0755);
    std::vector<std::string> arguments;
    bool endpointsAreTheRuntimeDirectory = false;
    for (std::string word; words >> word;)
    {
        if (word == "/run/" + runtime)
        {
            word = runtimeDirectory.string();
            endpointsAreTheRuntimeDirectory = arguments.back() == "--endpoints";
        }
        arguments.push_back(word);
    }
    EXPECT_TRUE(endpointsAreTheRuntimeDirectory) << UnitValue(unit, "ExecStart");

    notify = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string notifyPath = directory + "/notify";
    notifyPath.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(notify, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    setenv("NOTIFY_SOCKET", notifyPath.c_str(), 1);
    host = std::make_unique<ChildProcess>((root / program.substr(1)).string(), arguments);
    unsetenv("NOTIFY_SOCKET");

    const std::string ready = NextMessage();
    EXPECT_THAT(ready, HasSubstr("READY=1"));
    EXPECT_THAT(ready, HasSubstr("STATUS=set up, not dispatching yet"));
    EXPECT_EQ(host->ReadLine(), "ready") << "READY=1 came before the host was set up";
    EXPECT_EQ(NextMessage(), "STATUS=dispatching");
    EXPECT_EQ(host->ReadLine(), "dispatching");
    const int status = host->Stop(SIGTERM);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_THAT(NextMessage(), HasSubstr("STOPPING=1"));
}
