#include <Nm/Support/ProbeSystem.h>

#include <Support/WaitFor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

// What the system survives: a broker that dies, and load from several threads in several processes.

using Kiv::Testing::Probe;
using ::testing::StartsWith;
using NmReliabilityTest = Kiv::Testing::ProbeSystem;

TEST_F(NmReliabilityTest, WhenTheBrokersProcessDiesEveryCallFailsPromptlyAndLeavingStillWorks)
{
    Probe& main = Start("Main");
    ASSERT_EQ(main.Ask("setup broker"), "ok");
    Probe& component = Start("Component", 2000);
    ASSERT_EQ(component.Ask("setup client"), "ok");
    ASSERT_THAT(component.Ask("register A.B"), StartsWith("ok"));

    main.Stop(SIGKILL);
    EXPECT_THAT(component.Ask("send A.B lost"), StartsWith("error Kiv::CommunicationException"));
    // The registration and the dispatcher fail to say goodbye; they log it and let go.
    EXPECT_EQ(component.Ask("dispose"), "ok");
}

TEST_F(NmReliabilityTest, UnderLoadEveryNotificationArrivesOnceAndInOrder)
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
    EXPECT_EQ(probes[0]->Answer(), "ok refused=0");
    EXPECT_EQ(probes[1]->Answer(), "ok refused=0");
    for (Probe* receiver : {probes[2], probes[3]})
    {
        const std::string expected = "ok received=6000 bad=0";
        std::string report;
        Kiv::Testing::WaitFor([&] { return (report = receiver->Ask("report Load")) == expected; });
        EXPECT_EQ(report, expected);
    }
}
