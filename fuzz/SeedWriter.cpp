// Writes the seed inputs of the fuzz targets: valid messages made by our own writers, so that the fuzzers
// start from what the wire really carries.
//
//   FuzzSeedWriter DIRECTORY
// writes DIRECTORY/<target>/seed-<name> for every target that reads the wire; the files in fuzz/corpus
// come from it. The settings files in fuzz/corpus/SettingsFuzzer are plain XML, written by hand.

#include "ReaderOperations.h"

#include "Platform/Tul/Support/EchoService.h"

#include <Nm/Internal/NotificationSendBatch.h>
#include <Nm/Notification.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/Services/Internal/NotificationBatch.h>
#include <Nm/Services/Wire.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/TulExceptionRegistry.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

using namespace Kiv::System::Tul;
using Kiv::System::Nm::Notification;
using Kiv::System::Nm::NotificationId;
using Kiv::System::Nm::NotificationNameId;
using Kiv::System::Nm::NotificationRegistrationInfo;
using Kiv::System::Nm::NotificationRegistrationStatus;
using Kiv::System::Nm::PayloadTypeId;
using Kiv::System::Nm::Severity;
using Kiv::System::Nm::Internal::BatchedNotification;
using Bytes = std::vector<std::uint8_t>;
using Variant = Kiv::System::Nm::TulVariant<512>;
namespace Wire = Kiv::System::Nm::Services::Wire;

namespace
{
std::filesystem::path root;

void Save(const char* target, const std::string& name, const Bytes& bytes)
{
    const auto directory = root / target;
    std::filesystem::create_directories(directory);
    std::ofstream(directory / ("seed-" + name), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

Bytes Written(const std::function<void(RemotingWriter&)>& write)
{
    RemotingWriter writer;
    write(writer);
    return writer.GetBuffer();
}

const Kiv::DateTime utcTime = Kiv::DateTime::FromRawValue((std::uint64_t{1} << 62) | 638000000000000000ULL);

using namespace KivFuzz::Reads;

/// A message and the reads that take it apart, as RemotingReaderFuzzer expects them.
void WriteReaderSeed(const std::string& name, const std::vector<std::pair<std::uint8_t, std::uint8_t>>& reads,
                     const std::function<void(RemotingWriter&)>& write)
{
    Bytes input{static_cast<std::uint8_t>(reads.size())};
    for (const auto& [operation, argument] : reads)
    {
        input.push_back(operation);
        input.push_back(argument);
    }
    const Bytes message = Written(write);
    input.insert(input.end(), message.begin(), message.end());
    Save("RemotingReaderFuzzer", name, input);
}

void WriteReaderSeeds()
{
    const std::vector<std::pair<std::uint8_t, std::uint8_t>> everyRead = {
        {Tag, 9},       {Data, 4},         {ArrayLength, 0},  {DateTime, 0},     {String, 0xC0},
        {String, 0x40}, {BeginStruct, 6},  {ObjectType, 0},   {FieldCount, 0},   {ArrayInformation, 0},
        {String, 0xC0}, {Confirmation, 0}, {Confirmation, 0}, {FailureReport, 0}};
    WriteReaderSeed("every-read", everyRead,
                    [](RemotingWriter& w)
                    {
                        const std::uint32_t value = 0x01020304;
                        w.WriteTag(TulType::UInt32);
                        w.WriteDataInternal(&value, sizeof value);
                        w.WriteArrayLength(3);
                        w.WriteDateTime(utcTime);
                        w.WriteStringInternal("with code", 512, TulStringEncoding::Utf8, true);
                        w.WriteStringInternal("without", 512, TulStringEncoding::Utf8, false);
                        w.WriteBeginStruct(6);
                        w.WriteBeginStruct(2);
                        w.WriteArrayInformation({9, 1, 4, 0});
                        w.WriteObjectString("object string", TulStringEncoding::Utf8);
                        w.WriteConfirmation(false);
                        w.WriteConfirmation(true);
                        Kiv::InvalidOperationException outer("outer");
                        outer.SetInnerException(Kiv::ArgumentException("inner"));
                        TulExceptionRegistry::Write(w, std::make_exception_ptr(outer));
                    });
    WriteReaderSeed("short-strings", {{String, 0x08}, {String, 0x80}, {String, 0x01}},
                    [](RemotingWriter& w)
                    {
                        w.WriteStringInternal("1234567", 8, TulStringEncoding::Utf8, false);
                        w.WriteStringInternal("", 1, TulStringEncoding::Utf8, true);
                        w.WriteStringInternal("x", 2, TulStringEncoding::Utf8, false);
                    });
}

void WriteNotificationSeeds()
{
    auto save = [](const std::string& name, const std::vector<Variant>& payload)
    {
        const Notification notification(NotificationId(77), NotificationNameId(5), utcTime, Severity::Warning,
                                        PayloadTypeId(3), payload);
        Save("NotificationFuzzer", name, Written([&](RemotingWriter& w) { Wire::Write(w, notification); }));
    };
    save("empty-payload", {});
    Variant structHeader(TulType::Struct);
    structHeader.SetFieldCount(2);
    Variant arrayHeader(TulType::Array);
    arrayHeader.SetArrayInformation({9, 1, 2, 0});
    Variant string36(TulType::String36);
    std::strcpy(static_cast<char*>(string36.GetData()), "fixed");
    Variant alias32(TulType::Alias32);
    Variant alias64(TulType::Alias64);
    save("every-readable-code", {Variant("Value {} of {} at {}"),
                                 Variant(TulType::Void),
                                 Variant(true),
                                 Variant(std::int8_t{-8}),
                                 Variant(std::uint8_t{8}),
                                 Variant(std::int16_t{-16}),
                                 Variant(std::uint16_t{16}),
                                 Variant(std::int32_t{-32}),
                                 Variant(std::uint32_t{32}),
                                 Variant(std::int64_t{-64}),
                                 Variant(std::uint64_t{64}),
                                 Variant(1.5F),
                                 Variant(2.25),
                                 Variant(utcTime),
                                 string36,
                                 alias32,
                                 alias64,
                                 structHeader,
                                 Variant(std::uint32_t{1}),
                                 Variant(std::uint32_t{2}),
                                 arrayHeader,
                                 Variant(std::uint32_t{3}),
                                 Variant(std::uint32_t{4})});
    save("longest-string", {Variant(std::string(511, 's'))});
}

void WriteRegistrationInfoSeeds()
{
    auto save = [](const std::string& name, const NotificationRegistrationInfo& info)
    {
        Save("NotificationRegistrationInfoFuzzer", name,
             Written([&](RemotingWriter& w) { Wire::Write(w, info); }));
    };
    save("default", NotificationRegistrationInfo());
    save("subscribed", NotificationRegistrationInfo(NotificationNameId(9), "A.B.C"));
    save("registered", NotificationRegistrationInfo(NotificationNameId(10), "Kiv.System.Nm.Example", "Sender",
                                                    Severity::Error, PayloadTypeId(4),
                                                    NotificationRegistrationStatus::Registered));
    save("longest-names",
         NotificationRegistrationInfo(NotificationNameId(11), std::string(511, 'n'), std::string(511, 's'),
                                      Severity::Fatal, PayloadTypeId(65535),
                                      NotificationRegistrationStatus::Unregistered));
}

/// A frame as the transport sends it: size, kind, a zero byte, provider handle, service handle, method.
Bytes Frame(std::uint8_t kind, std::uint16_t method, const Bytes& body)
{
    Bytes frame(12 + body.size());
    const auto size = static_cast<std::uint32_t>(frame.size());
    const std::uint16_t handle = 1;  // "Fuzz" is the first provider and its only service
    std::memcpy(frame.data(), &size, 4);
    frame[4] = kind;
    std::memcpy(frame.data() + 6, &handle, 2);
    std::memcpy(frame.data() + 8, &handle, 2);
    std::memcpy(frame.data() + 10, &method, 2);
    std::copy(body.begin(), body.end(), frame.begin() + 12);
    return frame;
}

Bytes Request(
    std::uint16_t method, const std::function<void(RemotingWriter&)>& write = [](RemotingWriter&) {})
{
    return Frame(2, method, Written(write));
}

void WriteServerSeeds()
{
    using Echo::Put;
    const Bytes resolve =
        Frame(1, 0, Written([](RemotingWriter& w) { Put(w, "Fuzz"), Put(w, Echo::serviceName); }));
    const std::vector<std::pair<std::string, Bytes>> requests = {
        {"echo", Request(1, [](RemotingWriter& w) { Put(w, "hello"); })},
        {"add", Request(2, [](RemotingWriter& w) { Put(w, 40U), Put(w, 2U); })},
        {"throw", Request(3, [](RemotingWriter& w) { Put(w, "Kiv::ArgumentException"), Put(w, "text"); })},
        {"sleep", Request(4, [](RemotingWriter& w) { Put(w, 5U); })},
        {"callback", Request(5, [](RemotingWriter& w) { Put(w, "Fuzz"), Put(w, "back"); })},
        {"fill", Request(6, [](RemotingWriter& w) { Put(w, 100U); })},
        {"identify", Request(7)},
        {"unknown-method", Request(8)},
    };
    Save("TulServerFuzzer", "resolve", resolve);
    Bytes all = resolve;
    for (const auto& [name, request] : requests)
    {
        Save("TulServerFuzzer", name, request);
        all.insert(all.end(), request.begin(), request.end());
    }
    Save("TulServerFuzzer", "every-request", all);
}

/// A request to one stub as ServiceStubFuzzer takes it: the service (in the order of the fuzzer's
/// table), the method id, and the arguments as the service's proxy writes them.
void SaveStubRequest(
    std::uint8_t service, std::uint8_t method, const std::string& name,
    const std::function<void(RemotingWriter&)>& write = [](RemotingWriter&) {})
{
    Bytes input{service, method};
    const Bytes body = Written(write);
    input.insert(input.end(), body.begin(), body.end());
    Save("ServiceStubFuzzer", std::to_string(service) + "-" + std::to_string(method) + "-" + name, input);
}

void WriteServiceStubSeeds()
{
    using Kiv::System::Nm::TulString;
    using Name = TulString<512>;
    enum : std::uint8_t
    {
        Sending,
        Info,
        DispatcherManager,
        SubscriptionState,
        Public,
        Dispatcher
    };
    // Ids that exist once the broker has started: a notification that it registers itself, the first
    // payload type and this process's dispatcher.
    const std::uint32_t nameId = 4;
    const std::uint16_t payloadTypeId = 1;
    const std::uint16_t dispatcherId = 1;
    const std::vector<Variant> payload{Variant("Value {}"), Variant(std::uint32_t{42})};
    auto registration = [](RemotingWriter& w) {
        Wire::Write(w, Name("Fuzz.Seed.Event")), Wire::Write(w, Name("Seed")), Wire::Write(w, Severity::Info);
    };
    auto send = [&](RemotingWriter& w)
    { Wire::Write(w, nameId), Wire::Write(w, utcTime), Wire::Write(w, payload); };
    // The queries that the info service and the public service share, from their first method id on.
    auto queries = [&](std::uint8_t service, std::uint8_t first)
    {
        SaveStubRequest(service, first, "name", [&](RemotingWriter& w) { Wire::Write(w, nameId); });
        SaveStubRequest(service, first + 1, "name-id",
                        [](RemotingWriter& w) { Wire::Write(w, Name("Kiv")); });
        SaveStubRequest(service, first + 2, "ids-by-status",
                        [](RemotingWriter& w)
                        { Wire::Write(w, NotificationRegistrationStatus::Registered); });
        SaveStubRequest(service, first + 3, "all-ids");
        SaveStubRequest(service, first + 4, "registration",
                        [&](RemotingWriter& w) { Wire::Write(w, nameId); });
        SaveStubRequest(service, first + 5, "payload-type-id",
                        [](RemotingWriter& w) { Wire::Write(w, Name("Kiv.System.Nm.Seed")); });
        SaveStubRequest(service, first + 6, "payload-type-name",
                        [&](RemotingWriter& w) { Wire::Write(w, payloadTypeId); });
        SaveStubRequest(service, first + 7, "submitted");
    };

    SaveStubRequest(Sending, 1, "register",
                    [&](RemotingWriter& w) { registration(w), Wire::Write(w, payloadTypeId); });
    SaveStubRequest(Sending, 2, "unregister", [&](RemotingWriter& w) { Wire::Write(w, nameId); });
    SaveStubRequest(Sending, 3, "send", send);
    SaveStubRequest(
        Sending, 4, "send-batch",
        [&](RemotingWriter& w)
        {
            Wire::Write(w, std::vector<BatchedNotification>{{NotificationNameId(nameId), utcTime, payload},
                                                            {NotificationNameId(nameId), utcTime, {}}});
        });
    SaveStubRequest(Sending, 5, "unknown");

    queries(Info, 1);
    SaveStubRequest(Info, 0, "unknown");

    SaveStubRequest(DispatcherManager, 1, "register",
                    [](RemotingWriter& w) { Wire::Write(w, Name("Nobody")); });
    SaveStubRequest(DispatcherManager, 2, "unregister",
                    [&](RemotingWriter& w) { Wire::Write(w, dispatcherId); });
    auto dispatch = [&](RemotingWriter& w) { Wire::Write(w, nameId), Wire::Write(w, dispatcherId); };
    SaveStubRequest(DispatcherManager, 3, "register-dispatch", dispatch);
    SaveStubRequest(DispatcherManager, 4, "unregister-dispatch", dispatch);
    SaveStubRequest(DispatcherManager, 5, "contains-dispatch", dispatch);

    SaveStubRequest(SubscriptionState, 1, "is-checked");
    SaveStubRequest(SubscriptionState, 2, "checked");
    SaveStubRequest(SubscriptionState, 3, "relaxed");

    SaveStubRequest(Public, 1, "register",
                    [&](RemotingWriter& w) { registration(w), Wire::Write(w, Name("Kiv.System.Nm.Seed")); });
    SaveStubRequest(Public, 2, "unregister", [&](RemotingWriter& w) { Wire::Write(w, nameId); });
    SaveStubRequest(Public, 3, "send", send);
    queries(Public, 4);

    SaveStubRequest(Dispatcher, 1, "dispatch",
                    [&](RemotingWriter& w)
                    {
                        Wire::Write(w, Notification(NotificationId(7), NotificationNameId(nameId), utcTime,
                                                    Severity::Info, PayloadTypeId(payloadTypeId), payload));
                        // 9 is "Fuzz.Watched", which the fuzzer's subscriber renders.
                        Wire::Write(w, std::vector<std::uint32_t>{nameId, 9});
                    });
    SaveStubRequest(Dispatcher, 2, "dispatch-batch",
                    [&](RemotingWriter& w)
                    {
                        Kiv::System::Nm::Services::Internal::NotificationBatch batch;
                        const std::uint32_t ids[] = {nameId, 9};
                        for (std::uint64_t id : {7, 8})
                        {
                            batch.Add(std::make_shared<Notification>(
                                          NotificationId(id), NotificationNameId(nameId), utcTime,
                                          Severity::Info, PayloadTypeId(payloadTypeId), payload),
                                      ids, id == 7 ? 2 : 1);
                        }
                        Wire::Write(w, batch);
                    });
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    root = argv[1];
    WriteReaderSeeds();
    WriteNotificationSeeds();
    WriteRegistrationInfoSeeds();
    WriteServerSeeds();
    WriteServiceStubSeeds();
    return 0;
}
