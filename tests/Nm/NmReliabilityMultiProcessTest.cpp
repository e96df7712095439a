#include <Nm/Support/ProbeSystem.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>

// What the system survives: a subscriber that hangs, a broker that dies, and load from several threads
// in several processes, with and without overflow of the broker's queue.

using Kiv::Testing::ScriptedProcess;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace
{
using NmReliabilityTest = Kiv::Testing::ProbeSystem;

/// The number after `key=` in an answer such as "ok accepted=10 refused=2".
long Field(const std::string& answer, const std::string& key)
{
    std::smatch match;
    const std::regex pattern(key + "=(\\d+)");
    return std::regex_search(answer, match, pattern) ? std::stol(match[1]) : -1;
}
}  // namespace

TEST_F(NmReliabilityTest, ASubscriberStuckInNotifyCostsTheBrokerOneTimeLimitAndTheOthersAreServed)
{
    ScriptedProcess& main = Start("Main", std::nullopt, 1000);
    ASSERT_EQ(main.Ask("setup broker"), "ok");
    // Delivery goes in the order in which the processes joined, and a failed delivery ends the
    // notification's round: the healthy process joins first.
    ScriptedProcess& healthy = Start("Healthy");
    ASSERT_EQ(healthy.Ask("setup client"), "ok");
    ScriptedProcess& stuck = Start("Stuck");
    ASSERT_EQ(stuck.Ask("setup client"), "ok");
    ASSERT_EQ(stuck.Ask("hang Line"), "ok");
    ASSERT_THAT(healthy.Ask("subscribe Line"), StartsWith("ok"));
    ASSERT_THAT(main.Ask("register Line"), StartsWith("ok"));
    ASSERT_EQ(main.Ask("start"), "ok");

    ASSERT_THAT(main.Ask("send Line first"), StartsWith("ok"));
    ASSERT_THAT(main.Ask("send Line second"), StartsWith("ok"));
    EXPECT_EQ(stuck.WaitForPrefix("hanging"), "hanging");
    EXPECT_EQ(Notified(healthy, "Line"), "Line first");
    EXPECT_EQ(Notified(healthy, "Line"), "Line second");
    // The broker's thread is free again: the next notification comes without waiting for the limit.
    ASSERT_THAT(main.Ask("send Line third"), StartsWith("ok"));
    EXPECT_EQ(Notified(healthy, "Line"), "Line third");
    EXPECT_EQ(healthy.Ask("name 1"), "ok Kiv");
    ASSERT_EQ(healthy.Ask("dispose"), "ok");
}

TEST_F(NmReliabilityTest, WhenTheBrokersProcessDiesEveryCallFailsPromptlyAndLeavingStillWorks)
{
    ScriptedProcess& main = Start("Main");
    ASSERT_EQ(main.Ask("setup broker"), "ok");
    ScriptedProcess& component = Start("Component", std::nullopt, 2000);
    ASSERT_EQ(component.Ask("setup client"), "ok");
    ASSERT_THAT(component.Ask("register A.B"), StartsWith("ok"));

    main.Stop(SIGKILL);
    EXPECT_THAT(component.Ask("name 1"), StartsWith("error Kiv::CommunicationException"));
    EXPECT_THAT(component.Ask("send A.B lost"), StartsWith("error Kiv::CommunicationException"));
    // The registration and the dispatcher fail to say goodbye; they log it and let go.
    EXPECT_EQ(component.Ask("dispose"), "ok");
}

TEST_F(NmReliabilityTest, UnderLoadEveryAcceptedNotificationArrivesOnceInOrderAndTheCountsAddUp)
{
    // A queue that holds everything: nothing may be refused or lost.
    const std::string roomy = directory + "/roomy.xml";
    std::ofstream(roomy) << "<NotificationManagerSettingsDocument><NotificationBroker queueLength=\"20000\"/>"
                            "</NotificationManagerSettingsDocument>";
    ScriptedProcess& main = Start("Main");
    ASSERT_EQ(main.Ask("setup broker " + roomy), "ok");
    std::vector<ScriptedProcess*> senders;
    std::vector<ScriptedProcess*> receivers;
    for (const char* name : {"S1", "S2"})
    {
        senders.push_back(&Start(name));
        ASSERT_EQ(senders.back()->Ask("setup client"), "ok");
        ASSERT_THAT(senders.back()->Ask(std::string("register Load.") + name), StartsWith("ok"));
    }
    for (const char* name : {"R1", "R2"})
    {
        receivers.push_back(&Start(name));
        ASSERT_EQ(receivers.back()->Ask("setup client"), "ok");
        ASSERT_EQ(receivers.back()->Ask("count Load"), "ok");
    }
    ASSERT_EQ(main.Ask("start"), "ok");

    for (auto* sender : senders)
    {
        sender->Send(std::string("flood Load.") + (sender == senders[0] ? "S1" : "S2") + " 3 1000");
    }
    long accepted = 0;
    for (auto* sender : senders)
    {
        const std::string answer = sender->WaitForPrefix("ok accepted=");
        EXPECT_EQ(Field(answer, "refused"), 0) << answer;
        accepted += Field(answer, "accepted");
    }
    EXPECT_EQ(accepted, 6000);
    for (auto* receiver : receivers)
    {
        std::string report;
        for (int i = 0; i < 600 && Field(report, "received") < accepted; ++i)
        {
            report = receiver->Ask("report Load");
            usleep(50 * 1000);
        }
        EXPECT_EQ(report, "ok received=" + std::to_string(accepted) + " bad=0");
    }
    EXPECT_EQ(Field(main.Ask("stats"), "submitted"), accepted);
}

TEST_F(NmReliabilityTest, WithOverflowTheRefusedAndTheAcceptedAddUpToTheSent)
{
    const std::string tight = directory + "/tight.xml";
    std::ofstream(tight) << "<NotificationManagerSettingsDocument><NotificationBroker queueLength=\"16\"/>"
                            "</NotificationManagerSettingsDocument>";
    ScriptedProcess& main = Start("Main");
    ASSERT_EQ(main.Ask("setup broker " + tight), "ok");
    ScriptedProcess& receiver = Start("R");
    ASSERT_EQ(receiver.Ask("setup client"), "ok");
    ASSERT_EQ(receiver.Ask("count Load"), "ok");
    ASSERT_THAT(main.Ask("register Load.Main"), StartsWith("ok"));
    ASSERT_EQ(main.Ask("start"), "ok");

    const std::string answer = main.Ask("flood Load.Main 4 500");
    const long accepted = Field(answer, "accepted");
    EXPECT_EQ(accepted + Field(answer, "refused"), 2000) << answer;
    EXPECT_EQ(Field(main.Ask("stats"), "submitted"), accepted);
    std::string report;
    for (int i = 0; i < 600 && Field(report, "received") < accepted; ++i)
    {
        report = receiver.Ask("report Load");
        usleep(50 * 1000);
    }
    // Refusals leave no gap in a stream: its numbers count accepted notifications only.
    EXPECT_EQ(report, "ok received=" + std::to_string(accepted) + " bad=0");
}
