#include "Platform/Tul/Support/ChildProcess.h"
#include "Platform/Tul/Support/EchoService.h"
#include "Platform/Tul/Support/RawConnection.h"
#include "Support/WaitFor.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>

using namespace Kiv::System::Tul;
using namespace std::chrono_literals;
using Kiv::Testing::WaitFor;
using testing::EndsWith;

using namespace RawWire;

namespace
{
Bytes With(Bytes bytes, std::size_t index, std::uint8_t value)
{
    bytes.at(index) = value;
    return bytes;
}

Bytes Prefix(const Bytes& bytes, std::size_t length)
{
    return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
}

/// "type: message" of the failure that a response body carries, or "result" for a success.
std::string FailureIn(const Bytes& body)
{
    RemotingReader reader(body.data(), body.size());
    try
    {
        if (!reader.ReadConfirmation())
        {
            return "result";
        }
        TulExceptionRegistry::Throw(reader);
    }
    catch (const Kiv::Exception& e)
    {
        return e.GetTypeName() + ": " + e.GetMessage();
    }
}

/// The echo host serves provider "B" with a call time limit of one second and logs to a file; a client
/// of this process calls it through ServiceManager.
class TulRogueClientMultiProcessTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ServiceManager::Reset();
        char made[] = "/tmp/kiv-tul-rogue-XXXXXX";
        ASSERT_NE(mkdtemp(made), nullptr);
        directory = made;
        chmod(made, 0755);
        settings.endpointDirectory = directory;
        static int tests = 0;
        settings.systemName = "rogue-" + std::to_string(getpid()) + "-" + std::to_string(++tests);
        settings.connectWait = 20s;
        ServiceManager::Configure(settings);
        host = std::make_unique<ChildProcess>(
            TUL_ECHO_HOST, std::vector<std::string>{"serve", directory, settings.systemName, "B",
                                                    "--call-limit", "1000", "--log", LogPath()});
        ASSERT_EQ(host->ReadLine(), "ready");
        endpoint = directory + "/" + settings.systemName + ".B.sock";
        echo = Echo::GetEcho("B");
        ASSERT_NE(echo, nullptr);
    }

    void TearDown() override
    {
        stopCalling = true;  // also when a test ended early
        if (calling.valid())
        {
            calling.wait();
        }
        echo.reset();
        ServiceManager::Reset();
        host.reset();
        std::filesystem::remove_all(directory);
    }

    std::string LogPath() const { return directory + "/host.log"; }

    /// The host's warnings about connections it closed, in order.
    std::vector<std::string> Closures() const
    {
        std::vector<std::string> lines;
        std::ifstream log(LogPath());
        for (std::string line; std::getline(log, line);)
        {
            if (line.find("[warning] Closed the connection") != std::string::npos)
            {
                lines.push_back(line);
            }
        }
        return lines;
    }

    static std::string ClosureOfThisProcess(const std::string& reason)
    {
        return Kiv::String::Format("Closed the connection of pid {0} (uid {1}) to provider 'B': {2}",
                                   getpid(), geteuid(), reason);
    }

    /// The host's threads that serve a connection.
    int HostConnectionThreads() const
    {
        int count = 0;
        for (const auto& task :
             std::filesystem::directory_iterator("/proc/" + std::to_string(host->GetPid()) + "/task"))
        {
            std::string name;
            std::getline(std::ifstream(task.path() / "comm"), name);
            count += name == "TulConn" ? 1 : 0;
        }
        return count;
    }

    /// Calls the host in the background until StopCalling, which returns the number of calls, all
    /// answered right, or minus the number of the first wrong one.
    void StartCalling()
    {
        calling = std::async(std::launch::async,
                             [this]
                             {
                                 // At least one call, however soon the test is done with its part.
                                 int calls = 0;
                                 do
                                 {
                                     const std::string text = "call " + std::to_string(++calls);
                                     if (echo->Echo(text) != text || echo->Add(calls, 1) != calls + 1U)
                                     {
                                         return -calls;
                                     }
                                 } while (!stopCalling);
                                 return calls;
                             });
    }

    int StopCalling()
    {
        stopCalling = true;
        return calling.get();
    }

    TulSettings settings;
    std::string directory;
    std::string endpoint;
    std::unique_ptr<ChildProcess> host;
    std::unique_ptr<Echo::IEchoService> echo;
    std::atomic<bool> stopCalling{false};
    std::future<int> calling;
};
}  // namespace

TEST_F(TulRogueClientMultiProcessTest, FrameViolationsAreClosedWithAWarningWhileAWellBehavedClientIsServed)
{
    StartCalling();
    const std::string malformed = "a malformed frame header arrived";
    const std::string incomplete = "a frame was not complete within the call time limit of 1000 ms";
    const Bytes echoFrame = Frame(invoke, 1, 1, 1, Body([](RemotingWriter& w) { Echo::Put(w, "text"); }));
    struct Rogue
    {
        const char* what;
        std::function<void(RawConnection&)> act;
        std::string reason;
    };
    const std::vector<Rogue> rogues = {
        {"text", [](RawConnection& c) { c.Send("GET / HTTP/1.1\r\nHost: b\r\n\r\n"); }, malformed},
        {"unknown kind", [&](RawConnection& c) { c.Send(With(echoFrame, 4, 9)); }, malformed},
        {"reserved byte set", [&](RawConnection& c) { c.Send(With(echoFrame, 5, 1)); }, malformed},
        {"size below the header", [&](RawConnection& c) { c.Send(With(echoFrame, 0, 11)); }, malformed},
        {"frame cut short", [&](RawConnection& c) { c.Send(Prefix(echoFrame, echoFrame.size() - 1)); },
         incomplete},
        {"header cut short", [&](RawConnection& c) { c.Send(Prefix(echoFrame, 5)); }, incomplete},
        {"size of 4 GiB",
         [&](RawConnection& c) { c.Send(With(With(Prefix(echoFrame, 12), 3, 255), 2, 255)); }, incomplete},
        {"frame cut short and closed",
         [&](RawConnection& c)
         {
             c.Send(Prefix(echoFrame, 14));
             c.EndSending();
         },
         "the peer closed the connection in the middle of a frame"},
    };
    std::size_t logged = 0;
    for (const Rogue& rogue : rogues)
    {
        SCOPED_TRACE(rogue.what);
        RawConnection connection(endpoint);
        rogue.act(connection);
        EXPECT_TRUE(connection.SeesEndOfStream());
        ++logged;
        ASSERT_TRUE(WaitFor([&] { return Closures().size() >= logged; }));
        EXPECT_THAT(Closures().back(), EndsWith(ClosureOfThisProcess(rogue.reason)));
    }
    {
        // Asks for a large response and doesn't read it: the host gives up sending after its limit.
        RawConnection connection(endpoint);
        connection.Send(Frame(invoke, 1, 1, 6, Body([](RemotingWriter& w) { Echo::Put(w, 8'000'000U); })));
        ASSERT_TRUE(WaitFor([&] { return Closures().size() > logged; }));
        EXPECT_THAT(Closures().back(),
                    EndsWith(ClosureOfThisProcess(
                        "the response was not taken within the call time limit of 1000 ms")));
        EXPECT_TRUE(connection.SeesEndOfStream());
    }
    EXPECT_GT(StopCalling(), 0);
    EXPECT_TRUE(WaitFor([&] { return HostConnectionThreads() == 1; }));  // the well-behaved client's
}

TEST_F(TulRogueClientMultiProcessTest, UnservableRequestsAreAnsweredWithAFailureAndTheConnectionStaysInStep)
{
    StartCalling();
    RawConnection connection(endpoint);
    auto text = [](const char* value) { return Body([&](RemotingWriter& w) { Echo::Put(w, value); }); };
    const auto lookup =
        Frame(resolve, 0, 0, 0,
              Body([&](RemotingWriter& w) { Echo::Put(w, "B"), Echo::Put(w, Echo::serviceName); }));
    EXPECT_EQ(FailureIn(connection.Call(lookup)), "result");
    const Bytes request = Frame(invoke, 1, 1, 1, text("in step"));
    const std::vector<std::pair<Bytes, std::string>> unservable = {
        {With(request, 6, 99), "Kiv::InvalidOperationException: Provider 'B' has no service of handle 1"},
        {With(request, 8, 77), "Kiv::InvalidOperationException: Provider 'B' has no service of handle 77"},
        {With(request, 10, 0), "Kiv::CommunicationException: Remote call refused with error 0x40000003"},
        {With(request, 10, 8), "Kiv::CommunicationException: Remote call refused with error 0x40000003"},
        {With(With(request, 10, 255), 11, 255),
         "Kiv::CommunicationException: Remote call refused with error 0x40000003"},
        {With(request, 12, 200),
         "Kiv::CommunicationException: Malformed message at offset 0: expected an array length of at most 7, "
         "found 200"},
        {With(request, 4, response), "Kiv::CommunicationException: A frame of kind 3 is no request"},
        {Frame(resolve, 0, 0, 0,
               Body([&](RemotingWriter& w) { Echo::Put(w, "B"), Echo::Put(w, "Nothing"); })),
         "Kiv::InvalidOperationException: Service 'Nothing' is not published by provider 'B'"},
        {Frame(resolve, 0, 0, 0, Bytes{0xFF, 0xFF, 0xFF, 0x7F}),
         "Kiv::CommunicationException: Malformed message at offset 0: expected an array length of at most 0, "
         "found 2147483647"},
    };
    for (const auto& [frame, failure] : unservable)
    {
        EXPECT_EQ(FailureIn(connection.Call(frame)), failure);
    }
    const Bytes answer = connection.Call(request);
    EXPECT_EQ(answer, Body([](RemotingWriter& w) { w.WriteConfirmation(false), Echo::Put(w, "in step"); }));
    EXPECT_GT(StopCalling(), 0);
    EXPECT_TRUE(Closures().empty());
}

TEST_F(TulRogueClientMultiProcessTest, SilentConnectionsEndWithTheirPeerAndLeaveNoServerThread)
{
    {
        std::vector<std::unique_ptr<RawConnection>> silent;
        for (int i = 0; i < 20; ++i)
        {
            silent.push_back(std::make_unique<RawConnection>(endpoint));
        }
        EXPECT_TRUE(WaitFor([&] { return HostConnectionThreads() == 21; }));
        EXPECT_EQ(echo->Echo("among silent ones"), "among silent ones");
    }
    EXPECT_TRUE(WaitFor([&] { return HostConnectionThreads() == 1; }));
    EXPECT_EQ(echo->Echo("after them"), "after them");
    EXPECT_TRUE(Closures().empty());  // a peer that closes between frames is no fault
}
