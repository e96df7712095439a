#include "Platform/Tul/Support/EchoHostFixture.h"
#include "Platform/Tul/Support/RawConnection.h"
#include "Support/WaitFor.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace Kiv::System::Tul;
using namespace RawWire;
using Kiv::Testing::WaitFor;

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

/// The echo host serves provider "B" with a call time limit of one second; a client of this process calls
/// it through ServiceManager.
class TulRogueClientMultiProcessTest : public EchoHostFixture
{
protected:
    void SetUp() override
    {
        EchoHostFixture::SetUp();
        StartHost("B", "16777216", "1000");
        echo = Echo::GetEcho("B");
        ASSERT_NE(echo, nullptr);
    }

    /// The reasons of the host's warnings about connections of this process that it closed, in order.
    std::vector<std::string> Closures() const
    {
        const std::string prefix = Kiv::String::Format(
            "[warning] Closed the connection of pid {0} (uid {1}) to provider 'B': ", getpid(), geteuid());
        std::vector<std::string> reasons;
        std::ifstream log(directory + "/B.log");
        for (std::string line; std::getline(log, line);)
        {
            if (const auto at = line.find(prefix); at != std::string::npos)
            {
                reasons.push_back(line.substr(at + prefix.size()));
            }
        }
        return reasons;
    }

    /// The host's threads: its main and accept threads and one for each connection.
    int HostThreads() const
    {
        std::ifstream status("/proc/" + std::to_string(hosts.front()->GetPid()) + "/status");
        std::string line;
        while (std::getline(status, line) && line.rfind("Threads:", 0) != 0)
        {
        }
        return std::stoi(line.substr(8));
    }

    std::unique_ptr<Echo::IEchoService> echo;
};
}  // namespace

TEST_F(TulRogueClientMultiProcessTest, FrameViolationsAreClosedWithAWarningWhileAWellBehavedClientIsServed)
{
    EXPECT_EQ(echo->Echo("first"), "first");
    const int threads = HostThreads();  // the well-behaved client's connection has one
    const std::string malformed = "a malformed frame header arrived";
    const std::string incomplete = "a frame was not complete within the call time limit of 1000 ms";
    const Bytes echoFrame = Frame(invoke, 1, 1, 1, Body([](RemotingWriter& w) { Echo::Put(w, "text"); }));
    struct Rogue
    {
        const char* what;
        Bytes sent;
        std::string reason;
        bool endsSending = false;
    };
    const std::vector<Rogue> rogues = {
        {"no frame at all", Bytes(20, 'x'), malformed},
        {"unknown kind", With(echoFrame, 4, 9), malformed},
        {"reserved byte set", With(echoFrame, 5, 1), malformed},
        {"size below the header", With(echoFrame, 0, 11), malformed},
        {"frame cut short", Prefix(echoFrame, echoFrame.size() - 1), incomplete},
        {"header cut short", Prefix(echoFrame, 5), incomplete},
        {"size of 4 GiB", With(With(Prefix(echoFrame, 12), 3, 255), 2, 255), incomplete},
        {"frame cut short and closed", Prefix(echoFrame, 14),
         "the peer closed the connection in the middle of a frame", true},
        // A large response asked for and never read: the host gives up sending after its limit.
        {"response not taken",
         Frame(invoke, 1, 1, 6, Body([](RemotingWriter& w) { Echo::Put(w, 8'000'000U); })),
         "the response was not taken within the call time limit of 1000 ms"},
    };
    for (std::size_t i = 0; i < rogues.size(); ++i)
    {
        const Rogue& rogue = rogues[i];
        SCOPED_TRACE(rogue.what);
        RawConnection connection(GetEndpoint("B"));
        connection.Send(rogue.sent);
        if (rogue.endsSending)
        {
            connection.EndSending();
        }
        // Served while the rogue connection is still open, and so holds a server thread.
        EXPECT_EQ(echo->Echo(rogue.what), rogue.what);
        ASSERT_TRUE(WaitFor([&] { return Closures().size() > i; }));
        EXPECT_EQ(Closures().back(), rogue.reason);
        EXPECT_TRUE(connection.SeesEndOfStream());
    }
    EXPECT_EQ(Closures().size(), rogues.size());
    EXPECT_TRUE(WaitFor([&] { return HostThreads() == threads; }));  // each closed connection's has gone
}

TEST_F(TulRogueClientMultiProcessTest, RequestsArrivingTogetherAreEachServedWholeAndInOrder)
{
    const auto request = [](const std::string& text)
    { return Frame(invoke, 1, 1, 1, Body([&](RemotingWriter& w) { Echo::Put(w, text); })); };
    const std::string large(100'000, 'y');  // beyond what a receive takes at once
    struct Case
    {
        const char* what;
        std::vector<std::string> texts;
    };
    const std::vector<Case> cases = {
        {"three in one write", {"one", "two", "three"}},
        {"a large one and a small one in one write", {large, "after"}},
    };
    for (const Case& test : cases)
    {
        SCOPED_TRACE(test.what);
        Bytes frames;
        for (const std::string& text : test.texts)
        {
            const Bytes frame = request(text);
            frames.insert(frames.end(), frame.begin(), frame.end());
        }
        RawConnection connection(GetEndpoint("B"));
        connection.Send(frames);
        for (const std::string& text : test.texts)
        {
            const Bytes body = connection.Call({});
            ASSERT_GE(body.size(), text.size());
            EXPECT_TRUE(std::equal(text.rbegin(), text.rend(), body.rbegin())) << text.substr(0, 10);
        }
    }
    EXPECT_TRUE(Closures().empty());
}
