#include <Nm/Support/ProbeSystem.h>

#include <Support/WaitFor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

// What the system survives: a subscriber that hangs, a broker that dies, and load from several threads
// in several processes.

using Kiv::Testing::Probe;
using ::testing::StartsWith;
using NmReliabilityTest = Kiv::Testing::ProbeSystem;

TEST_F(NmReliabilityTest, ASubscriberStuckInNotifyCostsTheBrokerOneTimeLimitAndTheOthersAreServed)
{
    Probe& main = Start("Main", 1000);
    ASSERT_EQ(main.Ask("setup broker"), "ok");
    // Delivery goes in the order in which the processes joined, and a failed delivery ends the
    // notification's round: the healthy process joins first.
    Probe& healthy = Start("Healthy");
    ASSERT_EQ(healthy.Ask("setup client"), "ok");
    Probe& stuck = Start("Stuck");
    ASSERT_EQ(stuck.Ask("setup client"), "ok");
    ASSERT_THAT(stuck.Ask("hang Line"), StartsWith("ok"));
    ASSERT_THAT(healthy.Ask("subscribe Line"), StartsWith("ok"));
    ASSERT_THAT(main.Ask("register Line"), StartsWith("ok"));
    ASSERT_EQ(main.Ask("start"), "ok");

    ASSERT_THAT(main.Ask("send Line first"), StartsWith("ok"));
    ASSERT_THAT(main.Ask("send Line second"), StartsWith("ok"));
    EXPECT_EQ(stuck.WaitForPrefix("hanging"), "hanging");
    EXPECT_EQ(healthy.Notified("Line"), "Line first");
    EXPECT_EQ(healthy.Notified("Line"), "Line second");
    // The broker's thread is free again: the next notification comes without waiting for the limit.
    ASSERT_THAT(main.Ask("send Line third"), StartsWith("ok"));
    EXPECT_EQ(healthy.Notified("Line"), "Line third");
    ASSERT_EQ(healthy.Ask("dispose"), "ok");
}

TEST_F(NmReliabilityTest, WhenTheBrokersProcessDiesEveryCallFailsPromptlyAndLeavingStillWorks)
{
    Probe& main = Start("Main");
    ASSERT_EQ(main.Ask("setup broker"), "ok");
    Probe& component = Start("Component", 2000);
    ASSERT_EQ(component.Ask("setup client"), "ok");
    ASSERT_THAT(component.Ask("register A.B"), StartsWith("ok"));

    main.Stop(SIGKILL);
    EXPECT_THAT(component.Ask("name 1"), StartsWith("error Kiv::CommunicationException"));
    EXPECT_THAT(component.Ask("send A.B lost"), StartsWith("error Kiv::CommunicationException"));
    // The registration and the dispatcher fail to say goodbye; they log it and let go.
    EXPECT_EQ(component.Ask("dispose"), "ok");
}

TEST_F(NmReliabilityTest, UnderLoadEveryNotificationArrivesOnceInOrderAndTheCountsAddUp)
{
    // A queue that holds everything: nothing may be refused or lost.
    const std::string roomy = directory + "/roomy.xml";
    std::ofstream(roomy) << "<NotificationManagerSettingsDocument><NotificationBroker queueLength=\"20000\"/>"
                            "</NotificationManagerSettingsDocument>";
    Probe& main = Start("Main");
    ASSERT_EQ(main.Ask("setup broker " + roomy), "ok");
    std::vector<Probe*> probes;
    for (const std::string name : {"S1", "S2", "R1", "R2"})
    {
        probes.push_back(&Start(name));
        ASSERT_EQ(probes.back()->Ask("setup client"), "ok");
        ASSERT_THAT(probes.back()->Ask(name[0] == 'S' ? "register Load." + name : "count Load"),
                    StartsWith("ok"));
    }
    ASSERT_EQ(main.Ask("start"), "ok");

    probes[0]->WriteLine("flood Load.S1 3 1000");
    probes[1]->WriteLine("flood Load.S2 3 1000");
    for (Probe* sender : {probes[0], probes[1]})
    {
        EXPECT_EQ(sender->WaitForPrefix("ok accepted="), "ok accepted=3000 refused=0");
    }
    for (Probe* receiver : {probes[2], probes[3]})
    {
        const std::string expected = "ok received=6000 bad=0";
        std::string report;
        Kiv::Testing::WaitFor([&] { return (report = receiver->Ask("report Load")) == expected; });
        EXPECT_EQ(report, expected);
    }
    EXPECT_EQ(main.Ask("stats"), "ok submitted=6000");
}
