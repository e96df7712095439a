// The other process of the multi-process tests.
//
//   TulEchoHost DIR SYSTEM PROVIDER MAX-FRAME-BYTES CALL-LIMIT-MILLISECONDS
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
    if (argc != 6)
    {
        std::fprintf(stderr, "usage: %s DIR SYSTEM PROVIDER MAX-FRAME-BYTES CALL-LIMIT-MILLISECONDS\n",
                     argv[0]);
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
        settings.endpointDirectory = argv[1];
        settings.systemName = argv[2];
        settings.maxFrameSize = std::stoul(argv[4]);
        settings.callTimeLimit = std::chrono::milliseconds(std::stoul(argv[5]));
        ServiceManager::Configure(settings);
        Kiv::System::Commons::Logging::LogManager::UseFileSink(settings.endpointDirectory + "/" + argv[3] +
                                                               ".log");
        Echo::sleepNoticeFd = STDOUT_FILENO;
        Echo::EchoServiceFactory factory;
        ServiceManager::PublishService(argv[3], Echo::serviceName, factory);
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
