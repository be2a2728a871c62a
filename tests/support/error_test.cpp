#include <vesk/error.h>

#include "common/aborts.hpp"

TEST(Error, KeepsTheLastCodeUntilItIsSetAgain)
{
    qe_set_last_error(QE_ERROR_OPEN);
    EXPECT_EQ(-40, qe_get_last_error());
    qe_set_last_error(QE_ERROR_NO_MEMORY);
    EXPECT_EQ(-22, qe_get_last_error());
}

TEST(Error, ZeroClearsTheCell)
{
    qe_set_last_error(-6);
    qe_set_last_error(0);
    EXPECT_EQ(0, qe_get_last_error());
}

TEST(Error, RefusesPositiveCodes)
{
    EXPECT_ABORTS(qe_set_last_error(1), "err <= 0");
}
