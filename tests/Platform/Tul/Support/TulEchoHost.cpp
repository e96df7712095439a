// The other process of the multi-process tests.
//
//   TulEchoHost serve DIR SYSTEM PROVIDER [--guarded] [--policy FILE] [--max-frame BYTES]
//                     [--call-limit MILLISECONDS] [--log FILE]
//       publishes the echo service, prints "ready", serves until SIGTERM, then shuts down and exits 0;
//       with --log, its log lines go to FILE.
//   TulEchoHost call DIR SYSTEM PROVIDER TEXT
//       calls Echo(TEXT) and prints "ok TEXT", or "error TYPE: MESSAGE".
// A failure to start prints "error TYPE: MESSAGE" and exits 1.

#include "Platform/Tul/Support/EchoService.h"

#include <Kiv/Logging/LogManager.h>
#include <Kiv/System/Tul/TulPolicyAuthorizator.h>

#include <csignal>
#include <cstdio>
#include <cstring>
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

    bool guarded = false;
    std::optional<TulPolicyAuthorizator> policy;
    TulSettings settings = ServiceManager::GetSettings();
    for (int i = 0; i < argc; ++i)
    {
        if (std::strcmp(argv[i], "--guarded") == 0)
        {
            guarded = true;
        }
        else if (std::strcmp(argv[i], "--policy") == 0 && i + 1 < argc)
        {
            policy.emplace(argv[++i]);
        }
        else if (std::strcmp(argv[i], "--max-frame") == 0 && i + 1 < argc)
        {
            settings.maxFrameSize = std::stoul(argv[++i]);
        }
        else if (std::strcmp(argv[i], "--call-limit") == 0 && i + 1 < argc)
        {
            settings.callTimeLimit = std::chrono::milliseconds(std::stoul(argv[++i]));
        }
        else if (std::strcmp(argv[i], "--log") == 0 && i + 1 < argc)
        {
            Kiv::System::Commons::Logging::LogManager::UseFileSink(argv[++i]);
        }
    }
    ServiceManager::Configure(settings);
    if (policy)
    {
        ServiceManager::SetAuthorizator(&*policy);
    }
    Echo::sleepNoticeFd = STDOUT_FILENO;
    Echo::EchoServiceFactory factory(guarded);
    ServiceManager::PublishService(provider, Echo::serviceName, factory);
    std::printf("ready\n");
    std::fflush(stdout);
    int signal = 0;
    sigwait(&stop, &signal);
    ServiceManager::Shutdown();
    return 0;
}

int Call(const char* provider, const char* text)
{
    const auto echo = Echo::GetEcho(provider);
    if (echo == nullptr)
    {
        std::printf("error unreachable\n");
        return 1;
    }
    std::printf("ok %s\n", echo->Echo(text).c_str());
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
        const std::string mode = argv[1];
        return mode == "serve" ? Serve(argv[4], argc - 5, argv + 5) : Call(argv[4], argc > 5 ? argv[5] : "");
    }
    catch (const Kiv::Exception& e)
    {
        std::printf("error %s: %s\n", e.GetTypeName().c_str(), e.GetMessage().c_str());
    }
    return 1;
}
