#include "LoggingInternal.h"

#include <Kiv/Logging/CapturingSink.h>

#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>

#include <mutex>

namespace Kiv::System::Commons::Logging
{
struct CapturingSink::Impl : spdlog::sinks::sink
{
    mutable std::mutex mutex;
    std::vector<LogRecord> records;

    void log(const spdlog::details::log_msg& message) override
    {
        LogRecord record;
        record.loggerName = String(message.logger_name.data(), message.logger_name.size());
        record.level = Internal::FromSpdlogLevel(message.level);
        record.text = String(message.payload.data(), message.payload.size());
        std::lock_guard<std::mutex> lock(mutex);
        records.push_back(std::move(record));
    }

    void flush() override {}
    void set_pattern(const std::string&) override {}
    void set_formatter(std::unique_ptr<spdlog::formatter>) override {}
};

CapturingSink::CapturingSink() : impl(std::make_shared<Impl>())
{
    Internal::AddSink(impl);
}

CapturingSink::~CapturingSink()
{
    try
    {
        Internal::RemoveSink(impl);
    }
    catch (...)
    {
    }
}

std::vector<LogRecord> CapturingSink::GetRecords() const
{
    std::lock_guard<std::mutex> lock(impl->mutex);
    return impl->records;
}

std::vector<LogRecord> CapturingSink::GetRecords(const String& loggerName) const
{
    std::vector<LogRecord> result;
    std::lock_guard<std::mutex> lock(impl->mutex);
    for (const LogRecord& record : impl->records)
    {
        if (record.loggerName == loggerName)
        {
            result.push_back(record);
        }
    }
    return result;
}

void CapturingSink::Clear()
{
    std::lock_guard<std::mutex> lock(impl->mutex);
    impl->records.clear();
}
}  // namespace Kiv::System::Commons::Logging
