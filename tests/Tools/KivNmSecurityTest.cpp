// A running system (kivnm-host with the broker, and a component) under attack by another local user
// (uid 65534): its internal services called directly, a flood of connections, a broker of its own, and
// policy files that mean someone else.

#include "Platform/Tul/Support/ChildProcess.h"
#include "Platform/Tul/Support/RawConnection.h"
#include "Support/Stranger.h"
#include "Support/SystemDirectoryTest.h"
#include "Support/WaitFor.h"

#include <Nm/Notification.h>
#include <Nm/Services/INotificationManagerService.h>
#include <Nm/Services/Internal/INotificationDispatcherManagerService.h>
#include <Nm/Services/Internal/INotificationDispatcherService.h>
#include <Nm/Services/Internal/INotificationManagerInfoService.h>
#include <Nm/Services/Internal/INotificationSendingService.h>
#include <Nm/Services/Internal/ISubscriptionStateService.h>
#include <Nm/Services/Internal/NotificationDispatcherManagerServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationSendingServiceProxyFactory.h>
#include <Nm/Services/Internal/SubscriptionStateServiceProxyFactory.h>
#include <Nm/Services/NotificationManagerServiceProxyFactory.h>
#include <Nm/Services/ServiceFetch.h>
#include <Nm/Services/ServiceValues.h>

#include <Kiv/Exception.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulTesting.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

using namespace Kiv::System::Nm;
using namespace Kiv::System::Nm::Services;
using namespace Kiv::System::Nm::Services::Internal;
using Kiv::Testing::AsStranger;
using Kiv::Testing::Stranger;
using ::testing::HasSubstr;

namespace
{
/// Runs `command` with a shell to its end: its output, stdout and stderr together, and its exit code.
std::string RunShell(const std::string& command, int& exitCode)
{
    std::string output;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    char chunk[4096];
    while (std::fgets(chunk, sizeof chunk, pipe) != nullptr)
    {
        output += chunk;
    }
    const int status = pclose(pipe);
    exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return output;
}

/// A figure of /proc/PID/status, such as "Threads:" or "VmRSS:" (in kB).
long ProcStatus(pid_t pid, const std::string& key)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
    {
        if (line.rfind(key, 0) == 0)
        {
            return std::stol(line.substr(key.size()));
        }
    }
    return -1;
}

/// The broker "Main" (to its log file, with `policy` if given) and the component "Comp", in the test's
/// system; this process joins it as a client.
class KivNmSecurityTest : public Kiv::Testing::SystemDirectoryTest
{
protected:
    void StartSystem(const std::string& policy = "")
    {
        log = directory + "/broker.log";
        const std::string options = " --system " + system + " --endpoints " + directory;
        broker = std::make_unique<ChildProcess>(
            "/bin/sh",
            std::vector<std::string>{"-c", "exec " + Kiv::Testing::EmulatorPrefix() + KIVNM_HOST +
                                               " --name Main --broker" + options +
                                               (policy.empty() ? "" : " --policy " + policy) + " 2>" + log},
            std::nullopt, false, true);
        ASSERT_EQ(broker->ReadLine(), "ready");
        component = std::make_unique<ChildProcess>(
            KIVNM_HOST,
            std::vector<std::string>{"--name", "Comp", "--system", system, "--endpoints", directory});
        ASSERT_EQ(component->ReadLine(), "ready");
        Kiv::System::Tul::TulSettings settings;
        settings.systemName = system;
        settings.endpointDirectory = directory;
        settings.connectWait = std::chrono::seconds(20);
        Kiv::System::Tul::Testing::UseNewTransport();
        Kiv::System::Tul::ServiceManager::Configure(settings);
    }

    /// A policy file with `grants`.
    std::string Policy(const std::string& grants)
    {
        const std::string path = directory + "/policy.xml";
        std::ofstream(path) << "<TulPolicy>\n  " << grants << "\n</TulPolicy>\n";
        return path;
    }

    void TearDown() override
    {
        Kiv::System::Tul::Testing::UseNewTransport();
        component.reset();
        broker.reset();
        SystemDirectoryTest::TearDown();
    }

    /// What the broker knows, as root's kivnm lists it.
    std::string List()
    {
        int exitCode = 0;
        const std::string names = RunShell(Kiv::Testing::EmulatorPrefix() + KIVNM_CLI + " --system " +
                                               system + " --endpoints " + directory + " list",
                                           exitCode);
        EXPECT_EQ(exitCode, 0) << names;
        return names;
    }

    /// Runs `attack` as uid 65534 in this system: "refused: <message>", or what else happened.
    std::string Attack(const std::function<void()>& attack, const std::vector<gid_t>& groups = {})
    {
        return AsStranger(
            [&]() -> std::string
            {
                try
                {
                    attack();
                    return "done";
                }
                catch (const Kiv::UnauthorizedAccessException& e)
                {
                    return "refused: " + std::string(e.GetMessage().c_str());
                }
                catch (const Kiv::Exception& e)
                {
                    return "failed: " + std::string(e.GetMessage().c_str());
                }
            },
            groups);
    }

    std::string log;
    std::unique_ptr<ChildProcess> broker;
    std::unique_ptr<ChildProcess> component;
};

struct InternalAttack
{
    const char* name;
    const char* operation;
    std::function<void()> attack;
    // Named in ctest's listing by the test name alone.
    friend void PrintTo(const InternalAttack& attack, std::ostream* out) { *out << attack.name; }
};

template <class TService, class TProxyFactory>
std::shared_ptr<TService> Fetch()
{
    return FetchService<TService, TProxyFactory>();
}

const auto DispatcherManager =
    Fetch<INotificationDispatcherManagerService, NotificationDispatcherManagerServiceProxyFactory>;
const auto Sending = Fetch<INotificationSendingService, NotificationSendingServiceProxyFactory>;

const InternalAttack internalAttacks[] = {
    {"ReadEveryNotification", "RegisterDispatcher",
     [] { DispatcherManager()->RegisterDispatcher(ToTulString("Watcher")); }},
    {"SwitchTheSubscriptionState", "SetStateRelaxed",
     [] { Fetch<ISubscriptionStateService, SubscriptionStateServiceProxyFactory>()->SetStateRelaxed(); }},
    {"InjectANotificationIntoAComponentsDispatcher", "Dispatch",
     []
     {
         FetchService<INotificationDispatcherService>(
             "Comp", NotificationDispatcherServiceProxyFactory::GetInstance())
             ->Dispatch(Notification(NotificationId(1), NotificationNameId(1), Kiv::DateTime::GetUtcNow(),
                                     Severity::Critical, PayloadTypeId(1), {}),
                        {1, 2, 3});
     }},
    {"UnregisterAnotherComponentsName", "UnregisterNotification",
     [] { Sending()->UnregisterNotification(1); }},
    {"UnregisterADispatcher", "UnregisterDispatcher", [] { DispatcherManager()->UnregisterDispatcher(1); }},
    {"PreRegisterTheExceptionNotificationOfAComponent", "RegisterNotification",
     []
     {
         Sending()->RegisterNotification(ToTulString("Kiv.System.Nm.ExceptionDuringNotify.Late"),
                                         ToTulString("Evil"), Severity::Info, 1);
     }},
    {"ExhaustDispatcherIds", "RegisterDispatcher",
     []
     {
         const auto service = DispatcherManager();
         for (int i = 0; i < 70000; ++i)
         {
             service->RegisterDispatcher(ToTulString("D" + std::to_string(i)));
         }
     }},
    {"ExhaustPayloadTypeIds", "GetPayloadTypeId",
     []
     {
         const auto service =
             Fetch<INotificationManagerInfoService, NotificationManagerInfoServiceProxyFactory>();
         for (int i = 0; i < 66000; ++i)
         {
             service->GetPayloadTypeId(ToTulString("T" + std::to_string(i)));
         }
     }},
};

class KivNmInternalServiceSecurityTest : public KivNmSecurityTest,
                                         public ::testing::WithParamInterface<InternalAttack>
{
};

}  // namespace

TEST_P(KivNmInternalServiceSecurityTest, IsRefusedAndTheSystemSeesNoChange)
{
    KIV_SKIP_UNLESS_ROOT();
    StartSystem();
    const std::string before = List();
    EXPECT_THAT(Attack(GetParam().attack),
                HasSubstr(std::string("refused: Access denied to '") + GetParam().operation + "'"));
    EXPECT_EQ(List(), before);
    EXPECT_THAT(before, HasSubstr("Kiv.System.Nm.ExceptionDuringNotify.Comp"));
}

INSTANTIATE_TEST_SUITE_P(Attack, KivNmInternalServiceSecurityTest, ::testing::ValuesIn(internalAttacks),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(KivNmSecurityTest, APolicyGrantingAnOperationThePublicServiceLacksStopsTheHostWithFileAndLine)
{
    // The strict reading itself is a unit test's; here the host hands it the public service's operations.
    const std::string policy = Policy(R"(<Grant operations="SendNotificaton" users="65534"/>)");
    int exitCode = 0;
    // A host that took the policy would serve until stopped: the time limit ends it.
    const std::string output = RunShell("timeout 20 " + Kiv::Testing::EmulatorPrefix() + KIVNM_HOST +
                                            " --name Main --broker --system " + system + " --endpoints " +
                                            directory + " --policy " + policy,
                                        exitCode);
    EXPECT_EQ(exitCode, 1) << output;
    EXPECT_THAT(output, HasSubstr(policy + "(2): Unknown operation 'SendNotificaton'"));
}

TEST_F(KivNmSecurityTest, ASupplementaryGroupOfTheCallerCounts)
{
    KIV_SKIP_UNLESS_ROOT();
    StartSystem(Policy(R"(<Grant operations="GetNumberOfSubmittedNotifications" groups="4242"/>)"));
    const auto count = []
    {
        Fetch<INotificationManagerService, NotificationManagerServiceProxyFactory>()
            ->GetNumberOfSubmittedNotifications();
    };
    EXPECT_EQ(Attack(count, {4242}), "done");
    EXPECT_THAT(Attack(count), HasSubstr("refused: Access denied to 'GetNumberOfSubmittedNotifications'"));
}

TEST_F(KivNmSecurityTest, RootsToolsRefuseABrokerThatAStrangerStartedFirst)
{
    KIV_SKIP_UNLESS_ROOT();
    const std::string shared = directory + "/shared";  // as /tmp
    mkdir(shared.c_str(), 0);
    chmod(shared.c_str(), 01777);
    const std::string endpoints = shared + "/kiv-tul";
    ChildProcess impostor(KIVNM_HOST,
                          {"--name", "Main", "--broker", "--system", system, "--endpoints", endpoints},
                          Kiv::Testing::strangerUid);
    ASSERT_EQ(impostor.ReadLine(), "ready");
    int exitCode = 0;
    const std::string output = RunShell(Kiv::Testing::EmulatorPrefix() + KIVNM_CLI + " --system " + system +
                                            " --endpoints " + endpoints + " list",
                                        exitCode);
    EXPECT_EQ(exitCode, 1);
    EXPECT_THAT(output, HasSubstr("is in a directory of uid 65534, which this process doesn't trust"));
}

TEST_F(KivNmSecurityTest, AFloodOfConnectionsAnnouncingLargeBodiesLeavesMemoryAndThreadsBounded)
{
    KIV_SKIP_UNLESS_ROOT();
    // Granted the public service, so that the bodies are read: the most a stranger can make it do.
    StartSystem(Policy(R"(<Grant operations="*" users="65534 0"/>)"));
    const pid_t pid = broker->GetPid();
    const long threadsBefore = ProcStatus(pid, "Threads:");
    const long residentBefore = ProcStatus(pid, "VmRSS:");
    constexpr int connections = 2000;
    const rlimit files{connections + 100, connections + 100};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
    const std::string endpoint = directory + "/" + system + ".Kiv.sock";
    Stranger flood(
        [&](int out)
        {
            // Method 3 of the public service, service handle 4 of provider 1: SendNotification, announcing
            // 16 MiB of which 4 KiB come.
            auto frame = RawWire::Frame(RawWire::invoke, 1, 4, 3, RawWire::Bytes(4096));
            const std::uint32_t size = 16 * 1024 * 1024;
            std::memcpy(frame.data(), &size, 4);
            std::vector<std::unique_ptr<RawWire::RawConnection>> open;
            for (int i = 0; i < connections; ++i)
            {
                open.push_back(std::make_unique<RawWire::RawConnection>(endpoint));
                open.back()->Send(frame);
            }
            Stranger::Report(out, "flooding");
            pause();
        });
    ASSERT_EQ(flood.ReadLine(), "flooding");
    // The connections over the bound are closed as they come; the bound's warning tells when they have.
    const std::string warning =
        "uid 65534 holds 64 connections, the most for a user other than uid 0 and root";
    const auto warnings = [&]
    {
        std::ifstream in(log);
        int count = 0;
        for (std::string line; std::getline(in, line);)
        {
            count += line.find(warning) != std::string::npos ? 1 : 0;
        }
        return count;
    };
    ASSERT_TRUE(Kiv::Testing::WaitFor([&] { return warnings() > 0; }, std::chrono::seconds(30)));
    const long threads = ProcStatus(pid, "Threads:");
    const long resident = ProcStatus(pid, "VmRSS:");
    std::printf(
        "flood of %d connections announcing 16 MiB from uid 65534: threads %ld -> %ld, VmRSS %ld kB -> "
        "%ld kB\n",
        connections, threadsBefore, threads, residentBefore, resident);
    EXPECT_LE(threads, threadsBefore + 64);
    EXPECT_LE(resident, residentBefore + 32 * 1024);
    EXPECT_EQ(warnings(), 1);
    EXPECT_EQ(List().empty(), false);  // root is served throughout
}
