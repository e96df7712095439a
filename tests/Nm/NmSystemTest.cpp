#include "Support/WaitFor.h"

#include <Nm/Support/ProbeSystem.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

// A whole system of real processes, each driven by commands: the main process with the broker and
// component processes, in a system and endpoint directory of the test's own.

using Kiv::Testing::Probe;
using Kiv::Testing::WaitFor;
using ::testing::StartsWith;

namespace
{
class NmSystemTest : public Kiv::Testing::ProbeSystem
{
protected:
    /// The main process with the broker, its queue `queueLength` long unless 0.
    Probe& Main(int queueLength = 0, const std::string& callTimeLimitMs = {})
    {
        std::string command = "setup broker";
        if (queueLength != 0)
        {
            const std::string path = directory + "/broker-queue.xml";
            std::ofstream(path) << "<NotificationManagerSettingsDocument><NotificationBroker queueLength=\""
                                << queueLength << "\"/></NotificationManagerSettingsDocument>";
            command += " " + path;
        }
        Probe& main = Start("Main", callTimeLimitMs);
        EXPECT_EQ(main.Ask(command), "ok");
        return main;
    }

    /// A component process that has joined and, when given, asked `command` ("subscribe X", ...).
    Probe& Client(const std::string& name, const std::string& command = {})
    {
        Probe& probe = Start(name);
        EXPECT_EQ(probe.Ask("setup client"), "ok") << name;
        // A registration answers with its id, anything else with "ok" alone.
        if (command.rfind("register", 0) == 0)
        {
            EXPECT_THAT(probe.Ask(command), StartsWith("ok ")) << name << ": " << command;
        }
        else if (!command.empty())
        {
            EXPECT_EQ(probe.Ask(command), "ok") << name << ": " << command;
        }
        return probe;
    }
};
}  // namespace

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
    ASSERT_EQ(sender.ReadLine(), "ok");
    ASSERT_EQ(receiver.ReadLine(), "ok");

    // Subscriptions before anybody registered the names, on a leaf and on its parent, in two processes.
    ASSERT_THAT(receiver.Ask("subscribe Plant.Pump.Speed"), StartsWith("ok"));
    ASSERT_THAT(receiver.Ask("subscribe Plant"), StartsWith("ok"));
    ASSERT_THAT(main.Ask("subscribe Plant.Pump"), StartsWith("ok"));
    ASSERT_THAT(sender.Ask("register Plant.Pump.Speed"), StartsWith("ok"));
    ASSERT_THAT(sender.Ask("register Ping"), StartsWith("ok"));
    ASSERT_THAT(receiver.Ask("register Pong"), StartsWith("ok"));
    ASSERT_THAT(receiver.Ask("subscribe Ping Pong"), StartsWith("ok"));
    ASSERT_THAT(sender.Ask("subscribe Pong"), StartsWith("ok"));
    ASSERT_EQ(sender.Ask("send Plant.Pump.Speed one"), "ok 1");  // queued until the start
    ASSERT_EQ(main.Ask("start"), "ok");

    ASSERT_THAT(sender.Ask("send Plant.Pump.Speed two"), StartsWith("ok"));
    for (const std::string text : {"one", "two"})
    {
        EXPECT_EQ(receiver.Notified("Plant.Pump.Speed"), "ok Plant.Pump.Speed " + text);
        EXPECT_EQ(receiver.Notified("Plant"), "ok Plant.Pump.Speed " + text);
        EXPECT_EQ(main.Notified("Plant.Pump"), "ok Plant.Pump.Speed " + text);
    }

    // The receiver sends from inside Notify while the broker's thread waits on that delivery.
    ASSERT_THAT(sender.Ask("send Ping ball"), StartsWith("ok"));
    EXPECT_EQ(sender.Notified("Pong"), "ok Pong relayed ball");

    // Refusals of the broker reach the remote caller with their class and text; name id 1 is "Kiv", a
    // parent without a registration.
    EXPECT_THAT(sender.Ask("send 99999 x"),
                StartsWith("error Kiv::ArgumentException: The supplied notification name id is unknown."));
    EXPECT_EQ(sender.Ask("send 1 x"),
              "error Kiv::InvalidOperationException: Cannot send Notification. NotificationRepository: Tried "
              "to query unknown NotificationNameId=1.");

    // A process that dies leaves the others served.
    receiver.Stop(SIGKILL);
    ASSERT_THAT(sender.Ask("send Plant.Pump.Speed after the crash"), StartsWith("ok"));
    EXPECT_EQ(main.Notified("Plant.Pump"), "ok Plant.Pump.Speed after the crash");

    // When the broker's process dies, calls fail at once, and leaving still takes every thread, socket
    // and endpoint of the library with it.
    main.Stop(SIGKILL);
    EXPECT_THAT(sender.Ask("send Plant.Pump.Speed lost"), StartsWith("error Kiv::CommunicationException"));
    ASSERT_EQ(sender.Ask("dispose"), "ok");
    EXPECT_EQ(sender.Ask("resources"), baseline);
    std::set<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
    {
        left.insert(entry.path().filename().string());
    }
    EXPECT_EQ(left, (std::set<std::string>{system + ".Kiv.sock", system + ".Main.sock",
                                           system + ".Receiver.sock"}));
}

TEST_F(NmSystemTest, UnderLoadEveryNotificationArrivesOnceAndInOrder)
{
    // A queue that holds everything: nothing may be refused or lost.
    Probe& main = Main(20000);
    std::vector<Probe*> probes;
    for (const std::string name : {"S1", "S2", "R1", "R2"})
    {
        probes.push_back(&Client(name, name[0] == 'S' ? "register Load." + name : "subscribe Load"));
    }
    ASSERT_EQ(main.Ask("start"), "ok");

    probes[0]->WriteLine("flood Load.S1 3 1000");
    probes[1]->WriteLine("flood Load.S2 3 1000");
    EXPECT_EQ(probes[0]->ReadLine(), "ok refused=0");
    EXPECT_EQ(probes[1]->ReadLine(), "ok refused=0");
    EXPECT_EQ(probes[2]->Ask("report Load 6000"), "ok received=6000 bad=0");
    EXPECT_EQ(probes[3]->Ask("report Load 6000"), "ok received=6000 bad=0");
    EXPECT_EQ(main.Ask("stats"), "ok submitted=6000");
}

TEST_F(NmSystemTest, ASubscriberStuckInNotifyCostsTheBrokerOneTimeLimitAndTheOthersAreServed)
{
    Probe& main = Main(0, "1000");
    // Delivery goes in the order in which the processes joined, and a failed delivery ends the
    // notification's round: the healthy process joins first.
    Probe& healthy = Start("Healthy");
    ASSERT_EQ(healthy.Ask("setup client"), "ok");
    Probe& stuck = Client("Stuck", "hang Line");
    ASSERT_EQ(healthy.Ask("subscribe Line"), "ok");
    ASSERT_THAT(main.Ask("register Line"), StartsWith("ok"));
    ASSERT_EQ(main.Ask("start"), "ok");

    // Each delivery to the stuck process fails after the limit; the broker's thread goes on every time.
    for (const std::string text : {"first", "second", "third"})
    {
        ASSERT_THAT(main.Ask("send Line " + text), StartsWith("ok"));
        EXPECT_EQ(healthy.Notified("Line"), "ok Line " + text);
    }
    EXPECT_EQ(stuck.Notified("Line"), "ok hanging");
    EXPECT_EQ(healthy.Ask("dispose"), "ok");
}

TEST_F(NmSystemTest, WithOverflowTheRefusedAndTheAcceptedAddUpToTheSent)
{
    Probe& main = Main(16);
    Probe& receiver = Client("R", "subscribe Load");
    ASSERT_THAT(main.Ask("register Load.Main"), StartsWith("ok"));
    ASSERT_EQ(main.Ask("start"), "ok");

    const std::string answer = main.Ask("flood Load.Main 4 500");
    ASSERT_THAT(answer, StartsWith("ok refused="));
    const long accepted = 2000 - std::stol(answer.substr(answer.find('=') + 1));
    EXPECT_GT(accepted, 0);
    EXPECT_EQ(main.Ask("stats"), "ok submitted=" + std::to_string(accepted));
    EXPECT_EQ(receiver.Ask("report Load " + std::to_string(accepted)),
              "ok received=" + std::to_string(accepted) + " bad=0");
}

TEST_F(NmSystemTest, NonBlockingSendsOfAnotherProcessArriveInOrderThroughAShortBrokerQueue)
{
    // The short queue refuses parts of the worker's batches again and again.
    Probe& main = Main(8);
    Probe& receiver = Client("R", "subscribe Load");
    Probe& sender = Client("S", "register Load.S");
    ASSERT_EQ(main.Ask("start"), "ok");

    ASSERT_EQ(sender.Ask("nbflood Load.S 3000"), "ok");
    EXPECT_EQ(receiver.Ask("report Load 3000"), "ok received=3000 bad=0");
    EXPECT_EQ(main.Ask("stats"), "ok submitted=3000");
}

TEST_F(NmSystemTest, AKilledProcessLeavesAsIfCleanlyTheOthersAndALatecomerGetEverythingAndItMayComeBack)
{
    Probe& main = Main();
    std::vector<Probe*> subscribers;
    for (const std::string name : {"A", "B", "C"})
    {
        subscribers.push_back(&Client(name, "subscribe Line"));
    }
    ASSERT_THAT(subscribers[1]->Ask("register Out.B"), StartsWith("ok"));
    ASSERT_THAT(main.Ask("register Line"), StartsWith("ok"));
    ASSERT_EQ(main.Ask("start"), "ok");

    // B joined between A and C; once it is killed, what it registered is Unregistered without any
    // delivery having failed.
    subscribers[1]->Stop(SIGKILL);
    for (const std::string name : {"Out.B", "Kiv.System.Nm.ExceptionDuringNotify.B"})
    {
        EXPECT_TRUE(WaitFor([&] { return main.Ask("status " + name) == "ok Unregistered"; })) << name;
    }
    Probe& latecomer = Client("D", "subscribe Line");
    EXPECT_EQ(main.Ask("burst Line 200"), "ok accepted=200 refused=0 failure=none");
    for (Probe* probe : {subscribers[0], subscribers[2], &latecomer})
    {
        EXPECT_EQ(probe->Ask("report Line 200"), "ok received=200 bad=0");
    }

    // It comes back under its name, and its name is free for it.
    Probe& again = Client("B", "register Out.B");
    ASSERT_EQ(again.Ask("subscribe Line"), "ok");
    ASSERT_THAT(main.Ask("send Line back"), StartsWith("ok"));
    EXPECT_EQ(again.Notified("Line"), "ok Line back");
}

TEST_F(NmSystemTest, AStoppedProcessCostsOneTimeLimitAndIsServedAgainOnceItGoesOn)
{
    Probe& main = Main(0, "1000");
    Probe& paused = Client("Paused", "subscribe Line");
    Probe& other = Client("Other", "subscribe Tick");
    ASSERT_THAT(main.Ask("register Line"), StartsWith("ok"));
    ASSERT_THAT(main.Ask("register Tick"), StartsWith("ok"));
    ASSERT_EQ(main.Ask("start"), "ok");

    // While it is stopped, deliveries to it fail; the tick behind them tells that the broker went past.
    ASSERT_EQ(kill(paused.GetPid(), SIGSTOP), 0);
    for (const std::string text : {"stalled", "skipped"})
    {
        ASSERT_THAT(main.Ask("send Line " + text), StartsWith("ok"));
    }
    ASSERT_THAT(main.Ask("send Tick past"), StartsWith("ok"));
    EXPECT_EQ(other.Notified("Tick"), "ok Tick past");
    ASSERT_EQ(kill(paused.GetPid(), SIGCONT), 0);

    // The first delivery after it went on reaches it on a new connection.
    ASSERT_THAT(main.Ask("send Line resumed"), StartsWith("ok"));
    std::string got;
    for (int i = 0; i < 3 && got != "ok Line resumed"; ++i)
    {
        got = paused.Notified("Line");
    }
    EXPECT_EQ(got, "ok Line resumed");
}

TEST_F(NmSystemTest, ProcessesThatComeAndGoLeaveNoThreadOrDescriptorInTheBrokersProcess)
{
    Probe& main = Main();
    ASSERT_THAT(main.Ask("register Line"), StartsWith("ok"));
    ASSERT_EQ(main.Ask("start"), "ok");
    // Each guest joins while the one before it is still there, which then leaves: cleanly or killed, in
    // turn. The connection to a guest that left goes when the next one joins, so each count is taken
    // with one live guest and one such connection.
    const auto cycle = [&](int i)
    {
        Client("Guest" + std::to_string(i), "subscribe Line");
        if (processes.size() > 2)
        {
            Probe& previous = **(processes.end() - 2);
            if (i % 2 == 0)
            {
                ASSERT_EQ(previous.Ask("dispose"), "ok");
            }
            processes.erase(processes.end() - 2);
        }
    };
    for (int i = 1; i <= 3; ++i)
    {
        cycle(i);
    }
    const std::string baseline = main.Ask("resources");
    for (int i = 4; i <= 303; ++i)
    {
        cycle(i);
    }
    // A connection of the last guests may still be closing when a count is taken: none may stay above it.
    const auto counts = [](const std::string& resources)
    {
        std::vector<long> numbers;
        for (auto at = resources.find('='); at != std::string::npos; at = resources.find('=', at + 1))
        {
            numbers.push_back(std::stol(resources.substr(at + 1)));
        }
        return numbers;
    };
    const auto within = [&](const std::vector<long>& now)
    {
        const auto limit = counts(baseline);
        return now.size() == limit.size() &&
               std::equal(now.begin(), now.end(), limit.begin(), std::less_equal<>());
    };
    EXPECT_TRUE(WaitFor([&] { return within(counts(main.Ask("resources"))); }))
        << main.Ask("resources") << " against " << baseline;
}

TEST_F(NmSystemTest, StoppingWithAFullQueueAndASendInRetryEndsCleanly)
{
    // The broker never starts delivering: its queue of two fills, and the next non-blocking send is
    // retried by the worker.
    Probe& main = Main(2);
    Probe& sender = Client("Sender", "register Line");
    for (int i = 0; i < 4; ++i)
    {
        ASSERT_EQ(sender.Ask("nbsend Line x"), "ok");
    }
    ASSERT_TRUE(WaitFor([&] { return main.Ask("stats") == "ok submitted=2"; }));
    // Disposal waits for the send in retry, which ends as its name is unregistered on the way.
    EXPECT_EQ(sender.Ask("dispose"), "ok");
    sender.WriteLine("exit");
    EXPECT_EQ(sender.Stop(0), 0);
}

TEST_F(NmSystemTest, ABrokerThatStopsDuringABurstDeliversEveryNotificationWhoseIdItReturned)
{
    Probe& main = Main(20000);
    Probe& receiver = Client("R", "subscribe Line");
    Probe& sender = Client("S", "register Line");
    ASSERT_EQ(main.Ask("start"), "ok");

    sender.WriteLine("burst Line 1000000");
    ASSERT_THAT(receiver.Ask("report Line 100"), StartsWith("ok received="));
    ASSERT_EQ(main.Ask("dispose"), "ok");
    const std::string burst = sender.ReadLine();
    ASSERT_THAT(burst, StartsWith("ok accepted="));
    EXPECT_THAT(burst, ::testing::Not(::testing::HasSubstr("failure=none")));
    const long accepted = std::stol(burst.substr(burst.find('=') + 1));
    EXPECT_EQ(receiver.Ask("report Line " + std::to_string(accepted)),
              "ok received=" + std::to_string(accepted) + " bad=0");
}
