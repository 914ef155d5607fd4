#pragma once

#include <string>

#include <gtest/gtest.h>

namespace test {

/// Names the tests of a table after the `name` of their rows.
template <class Case>
std::string nameOf(const testing::TestParamInfo<Case>& info) {
    return info.param.name;
}

} // namespace test
