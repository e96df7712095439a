#include <Nm/Enum.h>
#include <Nm/Severity.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

using Kiv::System::Nm::Severity;
using ::testing::ThrowsMessage;

TEST(SeverityTest, AnUnknownCodeFailsWithTheRawByteButPrintsAsANumber)
{
    const auto unknown = static_cast<Severity>(7);
    EXPECT_THAT([&] { Kiv::GetEnumString(unknown); },
                ThrowsMessage<Kiv::Exception>(
                    "Could not find enum string of enum 'Kiv::System::Nm::Severity' for value '\x07'."));
    EXPECT_THAT([&] { Kiv::Enum<Severity>(unknown).ToString(); },
                ThrowsMessage<Kiv::Exception>(
                    "Invalid value for Enum 'Kiv::Enum<Kiv::System::Nm::Severity>' occurs: \x07"));
    EXPECT_EQ(Kiv::String::Format("{} {}", Severity::Emerge, Severity::Default), "Emerge Internal");
    std::ostringstream out;
    out << static_cast<Severity>(200);
    EXPECT_EQ(out.str(), "200");
    EXPECT_TRUE(out.fail() && !out.bad());
    // A format call shows the number rather than failing on the stream state.
    EXPECT_EQ(Kiv::String::Format("{}", static_cast<Severity>(200)), "200");
}
