// Records a real LTTng trace of the non-blocking path: a session for provider "Kiv" on a session daemon
// (the machine's, or one started here for the test), the probe provider loaded into this process, the
// calls made, and the trace read back with babeltrace2.

// This executable stands in for the facade and fires its three events itself, so it defines the events
// as every module that fires them must.
#define LTTNG_UST_TRACEPOINT_DEFINE
#define LTTNG_UST_TRACEPOINT_PROBE_DYNAMIC_LINKAGE
#include <Nm/Internal/NonBlockingNotificationSending/Tracepoints.h>

#include <Nm/Internal/NonBlockingNotificationSending/Proxy.h>

#include <Nm/NonBlockingDoubles.h>
#include <Platform/Tul/Support/ChildProcess.h>
#include <Support/WaitFor.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>
#include <regex>
#include <sstream>

#include <dlfcn.h>

using namespace Kiv::System::Nm;
using Kiv::Testing::WaitFor;

namespace
{
#if KIV_TRACEPOINTS_ENABLED
/// Runs a shell command; its exit status and what it printed.
std::pair<int, std::string> Shell(const std::string& command)
{
    std::string output;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    char chunk[4096];
    while (pipe != nullptr && std::fgets(chunk, sizeof chunk, pipe) != nullptr)
    {
        output += chunk;
    }
    return {pipe != nullptr ? pclose(pipe) : -1, output};
}

/// The lttng client, never starting a session daemon of its own.
std::pair<int, std::string> Lttng(const std::string& arguments)
{
    return Shell("lttng --no-sessiond " + arguments);
}

class TracepointsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (Kiv::Testing::IsEmulated())
        {
            GTEST_SKIP()
                << "the LTTng session daemon of this machine cannot trace a program under an emulator";
        }
        if (Shell("command -v lttng && command -v lttng-sessiond && command -v babeltrace2").first != 0)
        {
            GTEST_SKIP() << "lttng, lttng-sessiond or babeltrace2 is not installed";
        }
        if (Lttng("list").first != 0)
        {
            sessionDaemon.emplace("/usr/bin/lttng-sessiond",
                                  std::vector<std::string>{"--no-kernel", "--quiet"});
            if (!WaitFor([] { return Lttng("list").first == 0; }, std::chrono::seconds(20)))
            {
                const int status = sessionDaemon->Stop(SIGTERM);
                GTEST_SKIP() << "lttng-sessiond could not be started or reached (wait status " << status
                             << "): " << Lttng("list").second;
            }
        }
        char directory[] = "/tmp/kiv-nm-trace-XXXXXX";
        ASSERT_NE(mkdtemp(directory), nullptr);
        output = directory;
        session = "kiv-nm-trace-" + std::to_string(getpid());
        for (const std::string& step :
             {"create " + session + " --output=" + output,
              "enable-event --userspace 'Kiv:*' --session=" + session,
              "add-context --userspace --type=vpid --session=" + session, "start " + session})
        {
            const auto [status, printed] = Lttng(step);
            ASSERT_EQ(status, 0) << "lttng " << step << ": " << printed;
        }
    }

    void TearDown() override
    {
        if (!session.empty())
        {
            Lttng("destroy " + session);
            std::filesystem::remove_all(output);
        }
        if (sessionDaemon)
        {
            sessionDaemon->Stop(SIGTERM);
        }
    }

    /// The events of provider "Kiv" that this process recorded, counted by name.
    std::map<std::string, int> StopAndCountEvents()
    {
        EXPECT_EQ(Lttng("stop " + session).first, 0);
        const auto [status, trace] = Shell("babeltrace2 " + output);
        EXPECT_EQ(status, 0) << trace;
        const std::regex event(
            R"( Kiv:(\w+): .*\{ vpid = (\d+) \}, \{ TaskNameArg = "", InstanceNameArg = "" \})");
        std::map<std::string, int> counts;
        std::istringstream lines(trace);
        for (std::string line; std::getline(lines, line);)
        {
            std::smatch match;
            EXPECT_TRUE(line.find(" Kiv:") == std::string::npos || std::regex_search(line, match, event))
                << line;
            counts[match[1]] += match.size() > 0 && match[2] == std::to_string(getpid()) ? 1 : 0;
        }
        counts.erase("");
        return counts;
    }

    std::optional<ChildProcess> sessionDaemon;
    std::string output;
    std::string session;
};

TEST_F(TracepointsTest, EachRequestShowsTheFacadeStepAndThreeProxyStepsAlsoWhenRefused)
{
    // The probes come in only now: up to here the process ran without them.
    ASSERT_NE(dlopen(KIV_TRACEPOINT_PROVIDER, RTLD_NOW), nullptr) << dlerror();
    ASSERT_TRUE(WaitFor(
        [] {
            return Lttng("list --userspace").second.find("Kiv:NmNonBlockingProxyCallCreated") !=
                   std::string::npos;
        }))
        << "this process did not register with the session daemon";

    // Each request fires the facade's event first, as the facade does, then goes to the proxy.
    using Payload = std::vector<TulVariant<512>>;
    const auto noPayload = [](NonBlockingNotificationSendingAdapter::CreatePayloadFunctorArg)
    { return Payload(); };
    const Kiv::DateTime stamp = Kiv::DateTime::GetUtcNow();
    Kiv::Testing::RecordingSending sending;
    sending.Hold();
    {
        Internal::NonBlockingNotificationSending::Proxy proxy(sending, 1);
        KIV_NM_TRACEPOINT(NmNonBlockingRegisterNotification);
        proxy.NonBlockingRegisterNotification("A.B", "me", Severity::Info, PayloadTypeId(1));
        ASSERT_TRUE(sending.WaitForCalls(1));
        Future<void> queued = Future<void>::CreateByPromise();
        KIV_NM_TRACEPOINT(NmNonBlockingUnregisterNotification);
        proxy.NonBlockingUnregisterNotification(NotificationNameId(1), queued);
        KIV_NM_TRACEPOINT(NmNonBlockingSendNotification);
        EXPECT_FALSE(proxy.NonBlockingSendNotification(NotificationNameId(1), stamp, Payload()).IsValid());
        Future<NotificationId> refused = Future<NotificationId>::CreateByPromise();
        KIV_NM_TRACEPOINT(NmNonBlockingSendNotification);
        proxy.NonBlockingSendNotification(NotificationNameId(1), stamp, +noPayload, {}, refused);
        EXPECT_FALSE(refused.IsValid());
        sending.Release();
        ASSERT_TRUE(WaitFor([&] { return queued.HasValue(); }));
    }

    const std::map<std::string, int> expected{
        {"NmNonBlockingRegisterNotification", 1},       {"NmNonBlockingUnregisterNotification", 1},
        {"NmNonBlockingSendNotification", 2},           {"NmNonBlockingProxyEnqueueCall", 2},
        {"NmNonBlockingProxyEnqueueCallWithFuture", 2}, {"NmNonBlockingProxyCallCreated", 4},
        {"NmNonBlockingProxyCallEnqueued", 4}};
    EXPECT_EQ(StopAndCountEvents(), expected);
}
#endif  // Built with KIV_TRACEPOINTS=OFF, the tracepoints are compiled out and there is nothing to trace.
}  // namespace
