// The bounded copies and lengths of C strings.

#include <Kiv/SecureString.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

using namespace Kiv;

TEST(SecureStringTest, NeverWritesPastTheDestinationAndAlwaysTerminates)
{
    char buffer[8];
    std::fill(std::begin(buffer), std::end(buffer), 'x');
    EXPECT_EQ(SecureStrncpy(buffer, 4, "abcdef", 6), ERANGE);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(buffer[4], 'x');

    EXPECT_EQ(SecureStrncpy(buffer, sizeof(buffer), "abcdef", 2), 0);
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(SecureStrncpy(buffer, sizeof(buffer), "ab", 5), 0);
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(SecureStrncpy(buffer, 0, "ab", 2), EINVAL);
    EXPECT_EQ(SecureStrncpy(buffer, sizeof(buffer), nullptr, 2), EINVAL);
    EXPECT_STREQ(buffer, "");

    EXPECT_EQ(SecureStrnlen("abcdef", 4), 4u);
    EXPECT_EQ(SecureStrnlen(nullptr, 4), 0u);
}
