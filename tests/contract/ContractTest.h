#pragma once

#include "tests/contract/Surroundings.h"

#include <gtest/gtest.h>

namespace contract {

class ContractTest : public testing::Test {
protected:
    void SetUp() override { setUp(); }
    void TearDown() override { tearDown(); }
};

} // namespace contract
