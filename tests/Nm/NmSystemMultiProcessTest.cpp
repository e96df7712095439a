#include <Nm/Support/ProbeSystem.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

// A whole system of real processes, each driven by commands: the main process with the broker and
// component processes, in a system and endpoint directory of the test's own.

using Kiv::Testing::Probe;
using ::testing::StartsWith;
using NmSystemTest = Kiv::Testing::ProbeSystem;

TEST_F(NmSystemTest, NotificationsCrossProcessesInOrderAndThroughDeadPeersAndRefusalsKeepTheirClass)
{
    // The components come up first and wait for the broker within the connect wait.
    Probe& sender = Start("Sender");
    Probe& receiver = Start("Receiver");
    const std::string baseline = sender.Ask("resources");
    sender.WriteLine("setup client");
    receiver.WriteLine("setup client");
    Probe& main = Start("Main");
    ASSERT_EQ(main.Ask("setup broker"), "ok");
    ASSERT_EQ(sender.Answer(), "ok");
    ASSERT_EQ(receiver.Answer(), "ok");

    // Subscriptions before anybody registered the names, on a leaf and on its parent, in two processes.
    ASSERT_THAT(receiver.Ask("subscribe Plant.Pump.Speed"), StartsWith("ok"));
    ASSERT_THAT(receiver.Ask("subscribe Plant"), StartsWith("ok"));
    ASSERT_THAT(main.Ask("subscribe Plant.Pump"), StartsWith("ok"));
    ASSERT_THAT(sender.Ask("register Plant.Pump.Speed"), StartsWith("ok"));
    ASSERT_THAT(sender.Ask("register Ping"), StartsWith("ok"));
    ASSERT_THAT(receiver.Ask("register Pong"), StartsWith("ok"));
    ASSERT_THAT(receiver.Ask("relay Ping Pong"), StartsWith("ok"));
    ASSERT_THAT(sender.Ask("subscribe Pong"), StartsWith("ok"));
    ASSERT_EQ(sender.Ask("send Plant.Pump.Speed one"), "ok 1");  // queued until the start
    ASSERT_EQ(main.Ask("start"), "ok");

    ASSERT_THAT(sender.Ask("send Plant.Pump.Speed two"), StartsWith("ok"));
    ASSERT_THAT(sender.Ask("send Plant.Pump.Speed three"), StartsWith("ok"));
    for (const std::string text : {"one", "two", "three"})
    {
        EXPECT_EQ(receiver.Notified("Plant.Pump.Speed"), "Plant.Pump.Speed " + text);
        EXPECT_EQ(receiver.Notified("Plant"), "Plant.Pump.Speed " + text);
        EXPECT_EQ(main.Notified("Plant.Pump"), "Plant.Pump.Speed " + text);
    }

    // The receiver sends from inside Notify while the broker's thread waits on that delivery.
    ASSERT_THAT(sender.Ask("send Ping ball"), StartsWith("ok"));
    EXPECT_EQ(sender.Notified("Pong"), "Pong relayed ball");

    // Refusals of the broker reach the remote caller with their class and text; name id 1 is "Kiv", a
    // parent without a registration.
    EXPECT_THAT(sender.Ask("send 99999 x"),
                StartsWith("error Kiv::ArgumentException: The supplied notification name id is unknown."));
    EXPECT_EQ(
        sender.Ask("send 1 x"),
        "error Kiv::InvalidOperationException: Cannot send Notification. NotificationRepository: Tried to "
        "query unknown NotificationNameId=1.");

    // A process that dies leaves the others served.
    receiver.Stop(SIGKILL);
    ASSERT_THAT(sender.Ask("send Plant.Pump.Speed after the crash"), StartsWith("ok"));
    EXPECT_EQ(main.Notified("Plant.Pump"), "Plant.Pump.Speed after the crash");

    // Leaving takes every thread and socket of the library with it, and the endpoint.
    ASSERT_EQ(sender.Ask("dispose"), "ok");
    EXPECT_EQ(sender.Ask("resources"), baseline);
    ASSERT_EQ(main.Ask("dispose"), "ok");
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
    {
        left.push_back(entry.path().filename().string());
    }
    // The killed receiver could not clean up after itself; nobody else left anything.
    EXPECT_THAT(left, ::testing::ElementsAre(system + ".Receiver.sock"));
}
