#include <Nm/Enum.h>
#include <Nm/EnumDictionary.h>
#include <Nm/NotificationRegistrationStatus.h>
#include <Nm/Severity.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

using Kiv::Enum;
using Kiv::GetEnumString;
using Kiv::TryGetEnumValue;
using Kiv::System::Nm::NotificationRegistrationStatus;
using Kiv::System::Nm::Severity;

namespace
{
Severity Code(unsigned value)
{
    return static_cast<Severity>(value);
}

template <class F>
std::string MessageOf(F&& action)
{
    try
    {
        action();
    }
    catch (const Kiv::Exception& e)
    {
        return e.GetMessage();
    }
    return "no exception";
}
}  // namespace

TEST(SeverityTest, CodeZeroIsInternalAndDefaultIsNoText)
{
    EXPECT_STREQ(GetEnumString(Severity::Default), "Internal");
    EXPECT_STREQ(GetEnumString(Severity::Emerge), "Emerge");
    EXPECT_EQ(Kiv::String::Format("{} {}", Severity::Default, Severity::Warning), "Internal Warning");

    auto value = Severity::Info;
    EXPECT_FALSE(TryGetEnumValue("Default", value));
    EXPECT_FALSE(TryGetEnumValue("emerge", value));
    EXPECT_FALSE(TryGetEnumValue<Severity>(nullptr, value));
    EXPECT_EQ(value, Severity::Info);
    EXPECT_TRUE(TryGetEnumValue("Emerge", value));
    EXPECT_EQ(value, Code(6));
    EXPECT_TRUE(TryGetEnumValue("Internal", value));
    EXPECT_EQ(value, Code(0));
}

TEST(SeverityTest, UnknownCodeFailsWithTheRawByteInTheMessage)
{
    EXPECT_EQ(MessageOf([] { GetEnumString(Code(7)); }),
              "Could not find enum string of enum 'Kiv::System::Nm::Severity' for value '\x07'.");
    EXPECT_EQ(MessageOf([] { Enum<Severity>(Code(7)).ToString(); }),
              "Invalid value for Enum 'Kiv::Enum<Kiv::System::Nm::Severity>' occurs: \x07");
    EXPECT_EQ(Enum<Severity>(Severity::Fatal).ToString(), "Fatal");
    EXPECT_EQ(Enum<Severity>(Severity::Default).ToString(), "Internal");
}

TEST(SeverityTest, StreamOutputWritesUnknownCodeAsNumberWithFailbit)
{
    std::ostringstream known;
    known << Severity::Critical;
    EXPECT_EQ(known.str(), "Critical");
    EXPECT_TRUE(known.good());

    std::ostringstream unknown;
    unknown << Code(200);
    EXPECT_EQ(unknown.str(), "200");
    EXPECT_TRUE(unknown.fail());
    EXPECT_FALSE(unknown.bad());
    // A format call shows the number rather than failing on the stream state.
    EXPECT_EQ(Kiv::String::Format("{}", Code(200)), "200");
}

TEST(SeverityTest, StreamInputReadsOneWordAndKeepsValueOnMiss)
{
    std::istringstream in("Error  Fatal Default");
    auto value = Severity::Info;
    in >> value;
    EXPECT_EQ(value, Severity::Error);
    in >> value;
    EXPECT_EQ(value, Severity::Fatal);
    in >> value;
    EXPECT_TRUE(in.fail());
    EXPECT_EQ(value, Severity::Fatal);
}

TEST(NotificationRegistrationStatusTest, TextsRoundTripAndSubscribedIsZero)
{
    auto status = NotificationRegistrationStatus::Unregistered;
    EXPECT_TRUE(TryGetEnumValue("Subscribed", status));
    EXPECT_EQ(static_cast<int>(status), 0);
    EXPECT_STREQ(GetEnumString(NotificationRegistrationStatus::Registered), "Registered");

    std::stringstream text;
    text << NotificationRegistrationStatus::Unregistered << ' ' << NotificationRegistrationStatus::Registered;
    NotificationRegistrationStatus first{}, second{};
    text >> first >> second;
    EXPECT_EQ(first, NotificationRegistrationStatus::Unregistered);
    EXPECT_EQ(second, NotificationRegistrationStatus::Registered);

    EXPECT_THROW(GetEnumString(static_cast<NotificationRegistrationStatus>(3)), Kiv::Exception);
}
