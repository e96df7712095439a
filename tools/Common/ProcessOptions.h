#pragma once

// What every program of the system shares on its command line: which system it joins and where that
// system's endpoints are. The environment gives the defaults, so that a shell session set up once with
// KIV_SYSTEM and KIV_ENDPOINTS needs no options. KIV_SYSTEM_UID names the broker's user for clients of
// other users.

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulSettings.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <csignal>

namespace KivTools
{
struct SystemOptions
{
    std::string system = Env("KIV_SYSTEM", "default");
    std::string endpoints = Env("KIV_ENDPOINTS", Kiv::System::Tul::GetDefaultEndpointDirectory().c_str());
    /// The user of the system's broker when it is neither root nor this user: a client of another user
    /// trusts its endpoints only then (TulSettings::systemUid).
    std::string systemUid = Env("KIV_SYSTEM_UID", "");
    std::chrono::milliseconds connectWait{10000};
    std::chrono::milliseconds callTimeLimit{10000};

    static std::string Env(const char* name, const char* fallback)
    {
        const char* value = std::getenv(name);
        return value != nullptr && *value != '\0' ? value : fallback;
    }

    /// Takes "--system X" or "--endpoints D" at `args[i]`, advancing `i`; false for anything else.
    bool Take(const std::vector<std::string>& args, std::size_t& i)
    {
        if (args[i] == "--system" || args[i] == "--endpoints")
        {
            if (i + 1 >= args.size())
            {
                throw std::invalid_argument(args[i] + " needs a value");
            }
            (args[i] == "--system" ? system : endpoints) = args[i + 1];
            ++i;
            return true;
        }
        return false;
    }

    void Apply() const
    {
        Kiv::System::Tul::TulSettings settings;
        settings.systemName = system.c_str();
        settings.endpointDirectory = endpoints.c_str();
        settings.connectWait = connectWait;
        settings.callTimeLimit = callTimeLimit;
        if (!systemUid.empty())
        {
            const bool digits =
                systemUid.size() <= 10 && systemUid.find_first_not_of("0123456789") == std::string::npos;
            const unsigned long long uid = digits ? std::stoull(systemUid) : 0;
            if (!digits || uid > 4294967294ULL)
            {
                throw Kiv::ArgumentException::Create("KIV_SYSTEM_UID", systemUid.c_str(),
                                                     "A uid is a number from 0 to 4294967294");
            }
            settings.systemUid = static_cast<uid_t>(uid);
        }
        Kiv::System::Tul::ServiceManager::Configure(settings);
    }
};

/// `text` as a number from `min` to `max` for `option`; the whole text must be the number.
inline double ParseNumber(const std::string& option, const std::string& text, double min, double max)
{
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size() || !std::isfinite(value) || value < min ||
        value > max)
    {
        throw std::invalid_argument(option + " takes a number from " +
                                    std::to_string(static_cast<long>(min)) + " to " +
                                    std::to_string(static_cast<long>(max)) + ", not '" + text + "'");
    }
    return value;
}

/// Bounds a process's stop: disposal waits for a send that the worker retries and for a delivery in
/// progress, and neither has a limit of its own. If the stop isn't done within `limit`, one line says
/// what is given up and the process ends with 1.
class StopWatchdog
{
public:
    StopWatchdog(std::string program, std::chrono::milliseconds limit)
        : thread(
              [this, program = std::move(program), limit]
              {
                  std::unique_lock<std::mutex> lock(mutex);
                  if (!ended.wait_for(lock, limit, [this] { return done; }))
                  {
                      std::cerr << program << ": stopping took longer than " << limit.count()
                                << " ms; the notifications still queued or in retry are dropped" << std::endl;
                      std::_Exit(1);
                  }
              })
    {
    }
    StopWatchdog(const StopWatchdog&) = delete;
    StopWatchdog& operator=(const StopWatchdog&) = delete;
    ~StopWatchdog()
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            done = true;
        }
        ended.notify_one();
        thread.join();
    }

private:
    std::mutex mutex;
    std::condition_variable ended;
    bool done = false;
    std::thread thread;
};

/// Blocks the stop signals in this thread and every thread it starts later, so that one thread can wait
/// for them with sigwait instead of running code in a handler.
inline sigset_t BlockStopSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

/// The next blocked signal, or 0 when `timeout` passed first.
inline int WaitForSignal(const sigset_t& signals, std::chrono::milliseconds timeout)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
    timespec limit{static_cast<time_t>(seconds.count()),
                   static_cast<long>(std::chrono::nanoseconds(timeout - seconds).count())};
    const int signal = sigtimedwait(&signals, nullptr, &limit);
    return signal > 0 ? signal : 0;
}
}  // namespace KivTools
