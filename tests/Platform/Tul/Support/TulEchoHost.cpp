// The other process of the multi-process tests.
//
//   TulEchoHost serve DIR SYSTEM PROVIDER [--max-frame BYTES] [--call-limit MILLISECONDS]
//
// publishes the echo service in system SYSTEM with its endpoints in DIR, prints "ready", serves until
// SIGTERM, then shuts down and exits 0. Its log lines go to DIR/PROVIDER.log. A failure to start prints
// "error TYPE: MESSAGE" and exits 1.

#include "Platform/Tul/Support/EchoService.h"

#include <Kiv/Logging/LogManager.h>

#include <csignal>
#include <cstdio>
#include <string>

#include <pthread.h>

using namespace Kiv::System::Tul;

int main(int argc, char** argv)
{
    if (argc < 5 || std::string(argv[1]) != "serve")
    {
        std::fprintf(stderr, "usage: %s serve DIR SYSTEM PROVIDER [OPTION VALUE]...\n", argv[0]);
        return 2;
    }
    // Blocked before any thread starts, so that only sigwait below takes them.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    try
    {
        TulSettings settings;
        settings.endpointDirectory = argv[2];
        settings.systemName = argv[3];
        for (int i = 5; i + 1 < argc; i += 2)
        {
            const std::string option = argv[i];
            if (option == "--max-frame")
            {
                settings.maxFrameSize = std::stoul(argv[i + 1]);
            }
            else if (option == "--call-limit")
            {
                settings.callTimeLimit = std::chrono::milliseconds(std::stoul(argv[i + 1]));
            }
        }
        ServiceManager::Configure(settings);
        Kiv::System::Commons::Logging::LogManager::UseFileSink(settings.endpointDirectory + "/" + argv[4] +
                                                               ".log");
        Echo::sleepNoticeFd = STDOUT_FILENO;
        Echo::EchoServiceFactory factory;
        ServiceManager::PublishService(argv[4], Echo::serviceName, factory);
        std::printf("ready\n");
        std::fflush(stdout);
        int signal = 0;
        sigwait(&stop, &signal);
        ServiceManager::Shutdown();
        return 0;
    }
    catch (const Kiv::Exception& e)
    {
        std::printf("error %s: %s\n", e.GetTypeName().c_str(), e.GetMessage().c_str());
    }
    return 1;
}
