// The other process of the multi-process tests.
//
//   TulEchoHost serve DIR SYSTEM PROVIDER [--policy FILE] [--max-frame BYTES] [--call-limit MILLISECONDS]
//                     [--log FILE]
//       publishes the echo service, guarded by the policy of FILE when given, prints "ready", serves until
//       SIGTERM, then shuts down and exits 0; with --log, its log lines go to FILE.
//   TulEchoHost call DIR SYSTEM PROVIDER TEXT
//       calls Echo(TEXT) and prints "ok TEXT", or "error TYPE: MESSAGE".
// A failure prints "error TYPE: MESSAGE" and exits 1.

#include "Platform/Tul/Support/EchoService.h"

#include <Kiv/Logging/LogManager.h>
#include <Kiv/System/Tul/TulPolicyAuthorizator.h>

#include <csignal>
#include <cstdio>
#include <optional>
#include <string>

#include <pthread.h>

using namespace Kiv::System::Tul;

namespace
{
int Serve(const char* provider, int argc, char** argv)
{
    // Blocked before any thread starts, so that only sigwait below takes them.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);

    std::optional<TulPolicyAuthorizator> policy;
    TulSettings settings = ServiceManager::GetSettings();
    for (int i = 0; i + 1 < argc; i += 2)
    {
        const std::string option = argv[i];
        if (option == "--policy")
        {
            policy.emplace(argv[i + 1]);
        }
        else if (option == "--max-frame")
        {
            settings.maxFrameSize = std::stoul(argv[i + 1]);
        }
        else if (option == "--call-limit")
        {
            settings.callTimeLimit = std::chrono::milliseconds(std::stoul(argv[i + 1]));
        }
        else if (option == "--log")
        {
            Kiv::System::Commons::Logging::LogManager::UseFileSink(argv[i + 1]);
        }
    }
    ServiceManager::Configure(settings);
    ServiceManager::SetAuthorizator(policy ? &*policy : nullptr);
    Echo::sleepNoticeFd = STDOUT_FILENO;
    Echo::EchoServiceFactory factory(policy.has_value());
    ServiceManager::PublishService(provider, Echo::serviceName, factory);
    std::printf("ready\n");
    std::fflush(stdout);
    int signal = 0;
    sigwait(&stop, &signal);
    ServiceManager::Shutdown();
    return 0;
}
}  // namespace

int main(int argc, char** argv)
{
    if (argc < 5)
    {
        std::fprintf(stderr, "usage: %s serve|call DIR SYSTEM PROVIDER ...\n", argv[0]);
        return 2;
    }
    try
    {
        TulSettings settings;
        settings.endpointDirectory = argv[2];
        settings.systemName = argv[3];
        settings.connectWait = std::chrono::seconds(20);
        ServiceManager::Configure(settings);
        if (std::string(argv[1]) == "serve")
        {
            return Serve(argv[4], argc - 5, argv + 5);
        }
        const auto echo = Echo::GetEcho(argv[4]);
        if (echo == nullptr)
        {
            throw Kiv::CommunicationException("Provider '{0}' cannot be reached", argv[4]);
        }
        std::printf("ok %s\n", echo->Echo(argc > 5 ? argv[5] : "").c_str());
        return 0;
    }
    catch (const Kiv::Exception& e)
    {
        std::printf("error %s: %s\n", e.GetTypeName().c_str(), e.GetMessage().c_str());
    }
    return 1;
}
