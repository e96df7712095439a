#include <Nm/Enum.h>
#include <Nm/NotificationRegistrationStatus.h>
#include <Nm/Severity.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

using namespace Kiv::System::Nm;
using ::testing::ThrowsMessage;

namespace
{
Severity Code(unsigned value)
{
    return static_cast<Severity>(value);
}
}  // namespace

TEST(SeverityTest, TextsParseExactlyAndCodeZeroIsInternal)
{
    EXPECT_STREQ(Kiv::GetEnumString(Severity::Default), "Internal");
    EXPECT_EQ(Kiv::String::Format("{} {}", Severity::Emerge, Severity::Default), "Emerge Internal");
    auto value = Severity::Info;
    EXPECT_FALSE(Kiv::TryGetEnumValue("Default", value) || Kiv::TryGetEnumValue("emerge", value) ||
                 Kiv::TryGetEnumValue<Severity>(nullptr, value));
    EXPECT_EQ(value, Severity::Info);
    EXPECT_TRUE(Kiv::TryGetEnumValue("Emerge", value));
    EXPECT_EQ(value, Code(6));

    // One word per read; a miss sets failbit and keeps the value.
    std::istringstream in("Error  Fatal Default");
    in >> value;
    EXPECT_EQ(value, Severity::Error);
    in >> value >> value;
    EXPECT_TRUE(in.fail());
    EXPECT_EQ(value, Severity::Fatal);
}

TEST(SeverityTest, AnUnknownCodeFailsWithTheRawByteButPrintsAsANumber)
{
    EXPECT_THAT([] { Kiv::GetEnumString(Code(7)); },
                ThrowsMessage<Kiv::Exception>(
                    "Could not find enum string of enum 'Kiv::System::Nm::Severity' for value '\x07'."));
    EXPECT_THAT([] { Kiv::Enum<Severity>(Code(7)).ToString(); },
                ThrowsMessage<Kiv::Exception>(
                    "Invalid value for Enum 'Kiv::Enum<Kiv::System::Nm::Severity>' occurs: \x07"));
    EXPECT_EQ(Kiv::Enum<Severity>(Severity::Default).ToString(), "Internal");

    std::ostringstream out;
    out << Code(200);
    EXPECT_EQ(out.str(), "200");
    EXPECT_TRUE(out.fail() && !out.bad());
    // A format call shows the number rather than failing on the stream state.
    EXPECT_EQ(Kiv::String::Format("{}", Code(200)), "200");
}

TEST(NotificationRegistrationStatusTest, TextsRoundTripAndSubscribedIsZero)
{
    auto status = NotificationRegistrationStatus::Unregistered;
    EXPECT_TRUE(Kiv::TryGetEnumValue("Subscribed", status));
    EXPECT_EQ(static_cast<int>(status), 0);

    std::stringstream text;
    text << NotificationRegistrationStatus::Unregistered << ' ' << NotificationRegistrationStatus::Registered;
    NotificationRegistrationStatus first{}, second{};
    text >> first >> second;
    EXPECT_EQ(first, NotificationRegistrationStatus::Unregistered);
    EXPECT_EQ(second, NotificationRegistrationStatus::Registered);
    EXPECT_THROW(Kiv::GetEnumString(static_cast<NotificationRegistrationStatus>(3)), Kiv::Exception);
}
