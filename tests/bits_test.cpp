// Widths, integers of any size, and the checked copy.
#include <util/bits.h>

#include <util/memcpy_s.h>

#include <gtest/gtest.h>

#include <limits>

namespace util {
namespace {

TEST(Bits, countWhatAValueAndAnAddressNeed) {
    EXPECT_EQ(bitsForValue(0), 1);
    EXPECT_EQ(bitsForValue(1), 1);
    EXPECT_EQ(bitsForValue(2), 2);
    EXPECT_EQ(bitsForValue(255), 8);
    EXPECT_EQ(bitsForValue(256), 9);
    EXPECT_EQ(bitsForValue(std::numeric_limits<std::uint64_t>::max()), 64);
    EXPECT_EQ(bitsForAddr(0), 1);
    EXPECT_EQ(bitsForAddr(2), 1);
    EXPECT_EQ(bitsForAddr(3), 2);
    EXPECT_EQ(bitsForAddr(256), 8);
    EXPECT_EQ(bitsForAddr(257), 9);
}

class BigInteger : public ::testing::Test {
  protected:
    BigInteger() { mpz_init(number); }
    ~BigInteger() override { mpz_clear(number); }
    long shifted(long value, int shift) {
        mpz_set_si(number, value);
        AMShift(number, number, shift);
        return mpz_get_si(number);
    }
    mpz_t number;
};

TEST_F(BigInteger, shiftsUpAndTowardMinusInfinity) {
    EXPECT_EQ(shifted(5, 3), 40);
    EXPECT_EQ(shifted(5, -1), 2);
    EXPECT_EQ(shifted(-5, -1), -3);
    EXPECT_EQ(shifted(-1, std::numeric_limits<int>::min()), -1);
}

TEST_F(BigInteger, goesToAndFromTheMachinesIntegers) {
    for (std::int64_t value : {std::int64_t{0}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::min(),
                               std::numeric_limits<std::int64_t>::max()}) {
        sintToMPZ(number, value);
        EXPECT_EQ(mpzToSINT(number), value);
    }
    mpz_set_ui(number, 1);
    mpz_mul_2exp(number, number, 64);
    mpz_add_ui(number, number, 7);
    EXPECT_EQ(mpzToSINT(number), 7);
}

TEST(CheckedCopy, copiesWhatFitsAndRefusesTheRest) {
    char to[4] = {1, 1, 1, 1};
    const char from[] = "abc";
    EXPECT_EQ(memcpy_s(to, sizeof to, from, 4), 0);
    EXPECT_STREQ(to, "abc");
    EXPECT_EQ(memcpy_s(to, 2, from, 3), ERANGE);
    EXPECT_EQ(to[0], 0);
    EXPECT_EQ(to[2], 'c');
    EXPECT_EQ(memcpy_s(to, sizeof to, nullptr, 1), EINVAL);
    EXPECT_EQ(memcpy_s(nullptr, 4, from, 1), EINVAL);
    // Where the ranges lie is kept from the compiler, which warns of what is tested here.
    char *volatile inside = to + 1;
    EXPECT_EQ(memcpy_s(to, 4, inside, 3), EINVAL);
}

} // namespace
} // namespace util
