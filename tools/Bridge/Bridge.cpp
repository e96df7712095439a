// kivnm-bridge: carries notifications between a system and an MQTT broker, so that systems on several
// machines share them. It joins its system as a process of its own; each exported name subtree is
// subscribed here and published as JSON to "<prefix>/A/B/C"; each imported topic filter is subscribed at
// the MQTT broker, and what arrives is registered (original severity and payload type name) and sent
// into this system under its dotted name with its original time stamp.
//
// The MQTT client is libmosquitto: a small, long-kept C library from the same project as the mosquitto
// broker, packaged in Debian, with its own network thread, automatic reconnection with a growing pause,
// persistent sessions, TLS and user/password. Eclipse Paho's C++ client would do as well, but brings two
// libraries and its own thread pool for what this program needs from one connection.
//
// Delivery: the bridge keeps each exported notification until the MQTT broker has acknowledged it (QoS 1)
// or it has been written to the socket (QoS 0), up to a configured number, and sends what was not
// acknowledged again after a reconnect. An importing bridge drops what it has seen already (the
// exporting bridge and the notification id identify a notification), so a repeat after a reconnect
// reaches no subscriber twice. What a bridge imported it never exports again, and a document that its
// own system exported is never imported, so two systems that export and import the same subtree have
// no loop.

#include "Bridge/BridgeSettings.h"
#include "Bridge/NotificationJson.h"
#include "Common/Component.h"

#include <Nm/GenericPayload.h>
#include <Nm/INotificationSubscriber.h>
#include <Nm/Notification.h>
#include <Nm/NotificationManager.h>
#include <Nm/NotificationRegistrationInfo.h>

#include <Kiv/Exception.h>
#include <Kiv/Logging/LogManager.h>

#include <mosquitto.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <fstream>
#include <iostream>
#include <list>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <sstream>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
using namespace Kiv::System::Nm;
using namespace KivBridge;
using Clock = std::chrono::steady_clock;

const char* const usage =
    "usage: kivnm-bridge --settings FILE [--name NAME] [--system NAME] [--endpoints DIR]\n"
    "  --settings FILE    the MQTT broker, what to export and import (XML, see the README)\n"
    "  --name NAME        the process's name in its system (default: kivnm-bridge)\n"
    "  --system NAME      the system to join (default: $KIV_SYSTEM or \"default\")\n"
    "  --endpoints DIR    where the system's endpoints are (default: $KIV_ENDPOINTS or /tmp/kiv-tul)\n"
    "It prints \"ready\" once it has joined, \"connected\" each time the MQTT broker has taken its\n"
    "subscriptions, and logs each change of state on stderr (with KIVNM_BRIDGE_TRACE set, also every\n"
    "line of the MQTT client library).\n";

std::mutex logMutex;

void Log(const std::string& text)
{
    std::lock_guard<std::mutex> lock(logMutex);
    std::cerr << "kivnm-bridge: " << text << std::endl;
}

void Say(const std::string& line)
{
    std::lock_guard<std::mutex> lock(logMutex);
    std::cout << line << std::endl;
}

std::string Message(const std::exception& e)
{
    const auto* kiv = dynamic_cast<const Kiv::Exception*>(&e);
    return kiv != nullptr ? kiv->GetMessage().c_str() : e.what();
}

/// The first line of a file that only its owner may read, owned by this user or root.
std::string ReadSecret(const std::string& path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    struct stat info
    {
    };
    if (fd < 0 || fstat(fd, &info) != 0)
    {
        if (fd >= 0)
        {
            close(fd);
        }
        throw std::runtime_error("cannot read the password file " + path);
    }
    close(fd);
    if (!S_ISREG(info.st_mode) || (info.st_uid != geteuid() && info.st_uid != 0) || (info.st_mode & 077) != 0)
    {
        throw std::runtime_error("the password file " + path +
                                 " must be a regular file of this user or root that only its owner can read");
    }
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    if (!line.empty() && line.back() == '\r')
    {
        line.pop_back();
    }
    return line;
}

/// What was seen of one exporting bridge: its latest ids, so that a repeat is recognised.
class SeenIds
{
public:
    /// True the first time an id is offered.
    bool Insert(std::uint64_t id)
    {
        if (!ids.insert(id).second)
        {
            return false;
        }
        order.push_back(id);
        if (order.size() > Window)
        {
            ids.erase(order.front());
            order.pop_front();
        }
        return true;
    }

private:
    // Far more than can be in flight between two acknowledgements.
    static constexpr std::size_t Window = 1 << 16;
    std::unordered_set<std::uint64_t> ids;
    std::deque<std::uint64_t> order;
};

class Bridge
{
public:
    Bridge(BridgeSettings settings, std::string system)
        : settings(std::move(settings)), system(std::move(system)), token(MakeToken())
    {
        if (this->settings.prefix.empty())
        {
            this->settings.prefix = "kiv/" + this->system;
        }
        if (this->settings.clientId.empty())
        {
            this->settings.clientId = "kivnm-bridge-" + this->system;
        }
        // A subtree inside another would export its notifications twice.
        auto& names = this->settings.exports;
        std::sort(names.begin(), names.end());
        names.erase(std::unique(names.begin(), names.end()), names.end());
        names.erase(std::remove_if(names.begin(), names.end(),
                                   [&](const std::string& name)
                                   {
                                       return std::any_of(
                                           names.begin(), names.end(),
                                           [&](const std::string& other)
                                           { return other != name && IsInSubtree(name, other); });
                                   }),
                    names.end());
        pendingSubtrees.assign(names.begin(), names.end());
    }

    ~Bridge() { Stop(); }

    /// Connects (or starts trying to) and starts the publishing thread; raises for settings that
    /// libmosquitto refuses.
    void Start()
    {
        mosq = mosquitto_new(settings.clientId.c_str(), settings.cleanSession, this);
        if (mosq == nullptr)
        {
            throw std::runtime_error("cannot create the MQTT client");
        }
        if (!settings.user.empty())
        {
            const std::string password =
                settings.passwordFile.empty() ? std::string() : ReadSecret(settings.passwordFile);
            Check(mosquitto_username_pw_set(mosq, settings.user.c_str(),
                                            settings.passwordFile.empty() ? nullptr : password.c_str()),
                  "user and password");
        }
        if (!settings.caFile.empty())
        {
            Check(mosquitto_tls_set(mosq, settings.caFile.c_str(), nullptr,
                                    settings.certFile.empty() ? nullptr : settings.certFile.c_str(),
                                    settings.keyFile.empty() ? nullptr : settings.keyFile.c_str(), nullptr),
                  "TLS files");
        }
        mosquitto_reconnect_delay_set(mosq, static_cast<unsigned>(settings.reconnectMinSeconds),
                                      static_cast<unsigned>(settings.reconnectMaxSeconds), true);
        mosquitto_connect_callback_set(
            mosq, [](mosquitto*, void* self, int rc) { static_cast<Bridge*>(self)->OnConnect(rc); });
        mosquitto_disconnect_callback_set(
            mosq, [](mosquitto*, void* self, int rc) { static_cast<Bridge*>(self)->OnDisconnect(rc); });
        mosquitto_publish_callback_set(
            mosq, [](mosquitto*, void* self, int mid) { static_cast<Bridge*>(self)->OnPublished(mid); });
        mosquitto_subscribe_callback_set(mosq, [](mosquitto*, void* self, int mid, int, const int*)
                                         { static_cast<Bridge*>(self)->OnSubscribed(mid); });
        mosquitto_message_callback_set(mosq, [](mosquitto*, void* self, const mosquitto_message* message)
                                       { static_cast<Bridge*>(self)->OnMessage(*message); });
        mosquitto_log_callback_set(mosq, [](mosquitto*, void* self, int level, const char* text)
                                   { static_cast<Bridge*>(self)->OnLog(level, text); });
        Log("MQTT broker " + Address() + ", client id " + settings.clientId + ", QoS " +
            std::to_string(settings.qos) +
            (settings.cleanSession ? ", clean session" : ", persistent session") + ", topics under " +
            settings.prefix);
        SubscribeLocally();
        Say("ready");
        publisher = std::thread([this] { Publish(); });
        connector = std::thread([this] { Connect(); });
    }

    /// Subscribes the subtrees that the system does not know yet; called now and then until all are.
    void SubscribeLocally()
    {
        for (auto it = pendingSubtrees.begin(); it != pendingSubtrees.end();)
        {
            try
            {
                NotificationManager::GetInstance().Subscribe(it->c_str(), &exporter);
                Log("exporting " + *it);
                it = pendingSubtrees.erase(it);
            }
            catch (const Kiv::Exception& e)
            {
                if (waitingLogged.insert(*it).second)
                {
                    Log("cannot export " + *it + " yet (" + e.GetMessage().c_str() + "); trying again");
                }
                ++it;
            }
        }
    }

    /// The reason the bridge must stop, once there is one (a refused login, a TLS failure).
    std::string Fatal()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return fatal;
    }

    /// Gives what is buffered up to `grace` to reach the MQTT broker, then disconnects and leaves.
    void Stop(std::chrono::milliseconds grace = std::chrono::milliseconds(0))
    {
        if (mosq == nullptr)
        {
            return;
        }
        try
        {
            NotificationManager::GetInstance().UnsubscribeFromAll(&exporter);
        }
        catch (const Kiv::Exception& e)
        {
            Log(std::string("cannot unsubscribe: ") + e.GetMessage().c_str());
        }
        {
            std::unique_lock<std::mutex> lock(mutex);
            changed.wait_for(lock, grace, [this] { return outbox.empty() || state != State::Connected; });
            stopping = true;
        }
        changed.notify_all();
        for (auto* thread : {&publisher, &connector})
        {
            if (thread->joinable())
            {
                thread->join();
            }
        }
        mosquitto_disconnect(mosq);
        // Not forced: a cancelled network thread may leave its locks taken.
        mosquitto_loop_stop(mosq, false);
        mosquitto_destroy(mosq);
        mosq = nullptr;
        auto& manager = NotificationManager::GetInstance();
        for (const auto& [name, imported] : registrations)
        {
            if (imported.owned && imported.id.GetValue() != 0)
            {
                try
                {
                    manager.UnregisterNotification(imported.id);
                }
                catch (const Kiv::Exception& e)
                {
                    Log("cannot unregister " + name + ": " + e.GetMessage().c_str());
                }
            }
        }
        Log("stopped: exported " + std::to_string(exported) + ", imported " + std::to_string(imported) +
            ", dropped " + std::to_string(dropped) +
            (outbox.empty() ? "" : ", " + std::to_string(outbox.size()) + " still buffered and lost"));
    }

private:
    enum class State
    {
        Connecting,
        Connected,
        Disconnected,
        Failed
    };

    struct Entry
    {
        std::string topic;
        std::string payload;
        std::uint64_t sequence = 0;
        int mid = -1;  // handed to the MQTT client under this id, -1 while not
    };

    struct Imported
    {
        NotificationNameId id;
        PayloadTypeId payloadTypeId;
        std::string payloadType;
        bool owned = false;    // registered by this bridge, unregistered when it leaves
        bool refused = false;  // the name is registered here otherwise; its imports are dropped
    };

    struct Known
    {
        std::string name, sender, payloadType;
        Severity severity = Severity::Info;
        PayloadTypeId payloadTypeId;
    };

    static std::string MakeToken()
    {
        std::random_device random;
        std::ostringstream text;
        text << std::hex << random() << random();
        return text.str();
    }

    std::string Address() const { return settings.host + ":" + std::to_string(settings.port); }

    static void Check(int rc, const std::string& what)
    {
        if (rc != MOSQ_ERR_SUCCESS)
        {
            throw std::runtime_error(what + ": " +
                                     (rc == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(rc)));
        }
    }

    /// One log line per change of state, never one per attempt.
    void SetState(State next, const std::string& detail)
    {
        std::lock_guard<std::mutex> lock(mutex);
        SetStateLocked(next, detail);
    }

    void SetStateLocked(State next, const std::string& detail)
    {
        if (state == next || state == State::Failed)
        {
            return;
        }
        state = next;
        changed.notify_all();
        switch (next)
        {
            case State::Connected:
                Log("connected to the MQTT broker " + Address() +
                    (droppedWhileDown > 0 ? "; " + std::to_string(droppedWhileDown) +
                                                " notifications were dropped while disconnected"
                                          : "") +
                    (outbox.empty() ? "" : "; sending " + std::to_string(outbox.size()) + " buffered"));
                droppedWhileDown = 0;
                bufferFullLogged = false;
                break;
            case State::Disconnected:
                Log("disconnected from the MQTT broker " + Address() + " (" + detail + "); buffering up to " +
                    std::to_string(settings.bufferLimit) +
                    " notifications, reconnecting with a growing pause");
                break;
            case State::Failed:
                fatal = detail;
                Log(detail);
                break;
            case State::Connecting:
                break;
        }
    }

    void OnConnect(int rc)
    {
        if (rc != 0)
        {
            // A refused login does not get better by trying again.
            std::lock_guard<std::mutex> lock(mutex);
            SetStateLocked(State::Failed, "the MQTT broker " + Address() +
                                              " refused the connection: " + mosquitto_connack_string(rc));
            return;
        }
        {
            std::lock_guard<std::mutex> lock(mutex);
            subscriptionMids.clear();
            ++connections;
            // What was handed over and not acknowledged goes again, in its order.
            for (auto& entry : outbox)
            {
                entry.mid = -1;
            }
            inflight.clear();
        }
        for (const auto& topic : settings.imports)
        {
            int mid = 0;
            const int result = mosquitto_subscribe(mosq, &mid, topic.c_str(), settings.qos);
            if (result != MOSQ_ERR_SUCCESS)
            {
                Log("cannot subscribe " + topic + ": " + mosquitto_strerror(result));
                continue;
            }
            std::lock_guard<std::mutex> lock(mutex);
            subscriptionMids.insert(mid);
        }
        SetState(State::Connected, "");
        std::lock_guard<std::mutex> lock(mutex);
        if (subscriptionMids.empty())
        {
            Say("connected");
        }
    }

    void OnSubscribed(int mid)
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (subscriptionMids.erase(mid) == 1 && subscriptionMids.empty())
        {
            Say("connected");
        }
    }

    void OnDisconnect(int rc)
    {
        if (rc != 0)
        {
            SetState(State::Disconnected, "connection lost");
        }
    }

    void OnLog(int level, const char* text)
    {
        if (std::getenv("KIVNM_BRIDGE_TRACE") != nullptr)
        {
            Log(std::string("mqtt: ") + text);
        }
        // Why a certificate did not verify shows only here, and the handshake may fail on either thread;
        // trying again would not mend it.
        if (level == MOSQ_LOG_ERR && std::strstr(text, "OpenSSL Error") != nullptr)
        {
            std::lock_guard<std::mutex> lock(mutex);
            tlsError = text;
            SetStateLocked(State::Failed, "TLS with the MQTT broker " + Address() + " failed: " + tlsError);
        }
    }

    void OnPublished(int mid)
    {
        std::lock_guard<std::mutex> lock(mutex);
        const auto it = inflight.find(mid);
        if (it == inflight.end())
        {
            // Acknowledged before mosquitto_publish returned its id; or a repeat by the client library
            // of something that was sent again since, which is ignored.
            if (publishing)
            {
                acknowledgedEarly.insert(mid);
            }
            return;
        }
        inflight.erase(it);
        const auto entry =
            std::find_if(outbox.begin(), outbox.end(), [mid](const Entry& e) { return e.mid == mid; });
        if (entry != outbox.end())
        {
            outbox.erase(entry);
            ++exported;
        }
        changed.notify_all();
    }

    /// Until the first connection: libmosquitto's network thread reconnects by itself only once it has
    /// been connected, so the first one is tried here, with the same growing pause.
    void Connect()
    {
        auto pause = std::chrono::seconds(settings.reconnectMinSeconds);
        std::unique_lock<std::mutex> lock(mutex);
        while (!stopping)
        {
            lock.unlock();
            const int rc = mosquitto_connect(mosq, settings.host.c_str(), settings.port, settings.keepAlive);
            const std::string reason = rc == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(rc);
            lock.lock();
            if (rc == MOSQ_ERR_SUCCESS)
            {
                const int started = mosquitto_loop_start(mosq);
                if (started != MOSQ_ERR_SUCCESS)
                {
                    SetStateLocked(State::Failed, std::string("cannot start the MQTT network thread: ") +
                                                      mosquitto_strerror(started));
                }
                return;
            }
            if (rc == MOSQ_ERR_TLS)
            {
                SetStateLocked(State::Failed, "TLS with the MQTT broker " + Address() + " failed" +
                                                  (tlsError.empty() ? "" : ": " + tlsError));
                return;
            }
            SetStateLocked(State::Disconnected, "cannot reach it: " + reason);
            changed.wait_for(lock, pause, [this] { return stopping; });
            pause = std::min(pause * 2, std::chrono::seconds(settings.reconnectMaxSeconds));
        }
    }

    /// The publishing thread: hands what is buffered to the MQTT client while connected, in order, with
    /// at most a window of unacknowledged notifications.
    void Publish()
    {
        constexpr std::size_t window = 1000;
        const auto unsent = [](const Entry& e) { return e.mid < 0; };
        std::unique_lock<std::mutex> lock(mutex);
        for (;;)
        {
            changed.wait(lock,
                         [&]
                         {
                             return stopping || (state == State::Connected && inflight.size() < window &&
                                                 std::any_of(outbox.begin(), outbox.end(), unsent));
                         });
            if (stopping)
            {
                return;
            }
            const auto next = std::find_if(outbox.begin(), outbox.end(), unsent);
            const std::uint64_t sequence = next->sequence;
            const std::uint64_t connection = connections;
            const std::string topic = next->topic, payload = next->payload;
            publishing = true;
            lock.unlock();
            int mid = 0;
            const int rc = mosquitto_publish(mosq, &mid, topic.c_str(), static_cast<int>(payload.size()),
                                             payload.data(), settings.qos, false);
            lock.lock();
            publishing = false;
            const bool early = acknowledgedEarly.count(mid) == 1;
            acknowledgedEarly.clear();
            const auto entry = std::find_if(outbox.begin(), outbox.end(),
                                            [&](const Entry& e) { return e.sequence == sequence; });
            if (entry == outbox.end() || connection != connections)
            {
                continue;  // reconnected meanwhile: it goes again, and the other side drops the repeat
            }
            if (rc == MOSQ_ERR_NO_CONN)
            {
                SetStateLocked(State::Disconnected, "connection lost");
            }
            else if (rc != MOSQ_ERR_SUCCESS)
            {
                Log("cannot publish to " + topic + ": " + mosquitto_strerror(rc) + "; dropped");
                outbox.erase(entry);
                ++dropped;
            }
            else if (early)
            {
                outbox.erase(entry);
                ++exported;
            }
            else
            {
                entry->mid = mid;
                inflight.insert(mid);
            }
        }
    }

    const Known& Describe(const Notification& notification)
    {
        auto& manager = NotificationManager::GetInstance();
        auto& known = names[notification.GetNotificationNameId().GetValue()];
        if (known.name.empty() || known.payloadTypeId != notification.GetPayloadTypeId() ||
            known.severity != notification.GetSeverity())
        {
            // First time, or registered anew with other parameters.
            const auto info = manager.GetNotificationRegistration(notification.GetNotificationNameId());
            known.name = manager.GetNotificationName(notification.GetNotificationNameId()).c_str();
            known.sender = info.GetSenderName().c_str();
            known.payloadTypeId = notification.GetPayloadTypeId();
            known.severity = notification.GetSeverity();
            known.payloadType = manager.GetPayloadTypeName(known.payloadTypeId).c_str();
        }
        return known;
    }

    /// A local notification of an exported subtree: into the buffer as JSON.
    void Export(const Notification& notification)
    {
        {
            std::lock_guard<std::mutex> lock(importMutex);
            if (importedIds.erase(notification.GetId().GetValue()) == 1)
            {
                return;  // came from MQTT; it goes back to nobody
            }
        }
        std::string topic, payload;
        try
        {
            std::lock_guard<std::mutex> lock(namesMutex);
            const Known& known = Describe(notification);
            NotificationHeader header;
            header.origin = system;
            header.bridge = token;
            header.name = known.name;
            header.id = notification.GetId().GetValue();
            header.timestamp = notification.GetTimestamp();
            header.severity = notification.GetSeverity();
            header.sender = known.sender;
            header.payloadType = known.payloadType;
            try
            {
                header.text = GenericPayload(notification).ToString().c_str();
            }
            catch (const Kiv::Exception&)
            {
                // A payload without a text form still carries its fields.
            }
            payload = ToJson(header, notification.GetPayload()).dump();
            topic = settings.prefix + "/" + known.name;
            std::replace(topic.begin() + static_cast<std::ptrdiff_t>(settings.prefix.size()), topic.end(),
                         '.', '/');
        }
        catch (const std::exception& e)
        {
            Log("cannot export notification " + std::to_string(notification.GetId().GetValue()) + ": " +
                Message(e));
            std::lock_guard<std::mutex> lock(mutex);
            ++dropped;
            return;
        }
        std::lock_guard<std::mutex> lock(mutex);
        if (outbox.size() >= settings.bufferLimit)
        {
            ++dropped;
            ++droppedWhileDown;
            if (!bufferFullLogged)
            {
                bufferFullLogged = true;
                Log("the buffer of " + std::to_string(settings.bufferLimit) +
                    " notifications is full; dropping until the MQTT broker takes them");
            }
            return;
        }
        outbox.push_back(Entry{std::move(topic), std::move(payload), ++sequences});
        changed.notify_all();
    }

    /// A document from MQTT: registered if need be, and sent into this system.
    void OnMessage(const mosquitto_message& message)
    {
        NotificationHeader header;
        std::vector<Variant> fields;
        try
        {
            const auto* begin = static_cast<const char*>(message.payload);
            FromJson(Json::parse(begin, begin + message.payloadlen), header, fields);
        }
        catch (const std::exception& e)
        {
            Log(std::string("ignored a document on ") + message.topic + ": " + e.what());
            return;
        }
        if (header.origin == system || !seen[header.bridge].Insert(header.id))
        {
            return;  // this system's own, or a repeat after a reconnect
        }
        try
        {
            Import(header, fields);
        }
        catch (const std::exception& e)
        {
            Log("cannot import " + header.name + ": " + Message(e));
            std::lock_guard<std::mutex> lock(mutex);
            ++dropped;
        }
    }

    Imported& Registration(const NotificationHeader& header)
    {
        auto found = registrations.find(header.name);
        if (found != registrations.end())
        {
            return found->second;
        }
        auto& manager = NotificationManager::GetInstance();
        Imported entry;
        entry.payloadType = header.payloadType;
        // The broker hands out an id for a payload type name that it does not know yet, so a payload of
        // any type rebuilds here under its own name.
        entry.payloadTypeId = manager.GetPayloadTypeId(header.payloadType.c_str());
        try
        {
            entry.id = manager.RegisterNotification(header.name.c_str(), header.sender.c_str(),
                                                    header.severity, entry.payloadTypeId);
            entry.owned = true;
        }
        catch (const Kiv::Exception& e)
        {
            // Registered here already: fine if by this system's own sender of the same payload type.
            const auto id = manager.GetNotificationNameId(header.name.c_str());
            const auto info = manager.GetNotificationRegistration(id);
            if (info.IsRegistered() && info.GetPayloadTypeId() == entry.payloadTypeId)
            {
                entry.id = id;
            }
            else
            {
                entry.refused = true;
                Log("not importing " + header.name + ": " + e.GetMessage().c_str());
            }
        }
        return registrations.emplace(header.name, entry).first->second;
    }

    void Import(const NotificationHeader& header, const std::vector<Variant>& fields)
    {
        Imported& registration = Registration(header);
        if (registration.refused)
        {
            std::lock_guard<std::mutex> lock(mutex);
            ++dropped;
            return;
        }
        const GenericPayload payload(registration.payloadTypeId, header.payloadType.c_str(), fields);
        auto& manager = NotificationManager::GetInstance();
        const bool exportedAgain =
            std::any_of(settings.exports.begin(), settings.exports.end(),
                        [&](const std::string& s) { return IsInSubtree(header.name, s); });
        // A full queue of the broker is waited out for a while: the MQTT broker holds what follows.
        auto pause = std::chrono::milliseconds(1);
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        for (;;)
        {
            std::lock_guard<std::mutex> lock(importMutex);
            const NotificationId id = manager.SendNotification(registration.id, header.timestamp, payload);
            if (id.GetValue() != 0)
            {
                if (exportedAgain)
                {
                    importedIds.insert(id.GetValue());
                }
                break;
            }
            if (Clock::now() > deadline)
            {
                throw std::runtime_error("the broker's queue stayed full; dropped");
            }
            std::this_thread::sleep_for(pause);
            pause = std::min(pause * 2, std::chrono::milliseconds(200));
        }
        std::lock_guard<std::mutex> lock(mutex);
        ++imported;
    }

    BridgeSettings settings;
    const std::string system;
    const std::string token;
    mosquitto* mosq = nullptr;
    std::thread publisher;
    std::thread connector;

    std::mutex mutex;  // state, buffer, counters
    std::condition_variable changed;
    State state = State::Connecting;
    std::string fatal;
    std::string tlsError;
    bool stopping = false;
    std::deque<Entry> outbox;
    std::set<int> inflight;
    std::set<int> acknowledgedEarly;  // while `publishing`
    bool publishing = false;
    std::uint64_t sequences = 0, connections = 0;
    std::set<int> subscriptionMids;
    bool bufferFullLogged = false;
    std::uint64_t exported = 0, imported = 0, dropped = 0, droppedWhileDown = 0;

    std::mutex namesMutex;
    std::unordered_map<std::uint32_t, Known> names;

    // Only the MQTT thread imports.
    std::map<std::string, Imported> registrations;
    std::unordered_map<std::string, SeenIds> seen;
    std::mutex importMutex;  // held from the send of an import to the record of its id
    std::unordered_set<std::uint64_t> importedIds;

    std::list<std::string> pendingSubtrees;
    std::set<std::string> waitingLogged;
    // One subscriber for all exported subtrees, complete before its first subscription: notifications
    // may arrive from then on, also while a later subtree is subscribed.
    struct Exporter : INotificationSubscriber
    {
        explicit Exporter(Bridge& bridge) : bridge(bridge) {}
        void Notify(const Notification& notification) override { bridge.Export(notification); }
        Bridge& bridge;
    } exporter{*this};
};
}  // namespace

int main(int argc, char** argv)
{
    KivTools::SystemOptions system;
    std::string settingsPath;
    std::string name = "kivnm-bridge";
    try
    {
        const std::vector<std::string> args(argv + 1, argv + argc);
        for (std::size_t i = 0; i < args.size(); ++i)
        {
            if (system.Take(args, i))
            {
                continue;
            }
            if ((args[i] == "--settings" || args[i] == "--name") && i + 1 < args.size())
            {
                (args[i] == "--settings" ? settingsPath : name) = args[i + 1];
                ++i;
                continue;
            }
            if (args[i] == "-h" || args[i] == "--help")
            {
                std::cout << usage;
                return 0;
            }
            throw std::invalid_argument("unknown option " + args[i]);
        }
        if (settingsPath.empty())
        {
            throw std::invalid_argument("--settings is required");
        }
    }
    catch (const std::exception& e)
    {
        std::cerr << "kivnm-bridge: " << e.what() << "\n" << usage;
        return 2;
    }

    BridgeSettings settings;
    try
    {
        settings = BridgeSettings::Load(settingsPath);
    }
    catch (const Kiv::Exception& e)
    {
        std::cerr << "kivnm-bridge: " << e.GetMessage() << std::endl;
        return 1;
    }

    const sigset_t signals = KivTools::BlockStopSignals();
    Kiv::System::Commons::Logging::LogManager::SetDefaultLogLevel(3);
    mosquitto_lib_init();
    auto membership = KivTools::JoinSystem(system, name, "kivnm-bridge");
    if (!membership)
    {
        mosquitto_lib_cleanup();
        return 1;
    }
    int result = 0;
    {
        Bridge bridge(settings, system.system);
        try
        {
            bridge.Start();
            int signal = 0;
            while (signal != SIGINT && signal != SIGTERM)
            {
                signal = KivTools::WaitForSignal(signals, std::chrono::milliseconds(200));
                bridge.SubscribeLocally();
                if (!bridge.Fatal().empty())
                {
                    result = 1;
                    break;
                }
            }
            bridge.Stop(std::chrono::seconds(2));
        }
        catch (const std::exception& e)
        {
            Log(Message(e));
            result = 1;
        }
    }
    membership.reset();  // leaves the system
    mosquitto_lib_cleanup();
    return result;
}
