// A parameterised fixture that runs a test on one code path of the data
// functions (portable, SSSE3, AVX2, ...) and restores the one it found.
#pragma once

#include <vtcore/core/text/dispatch/data_dispatch.h>

#include <gtest/gtest.h>

// Every path, in the order of the dispatcher's preference from the slowest.
inline constexpr vtcore::DataCodePath kAllDataCodePaths[] = {
    vtcore::DataCodePath::Portable, vtcore::DataCodePath::SSSE3, vtcore::DataCodePath::AVX,
    vtcore::DataCodePath::AVX2, vtcore::DataCodePath::AVX512};

class DataCodePathTest : public ::testing::TestWithParam<vtcore::DataCodePath> {
protected:
  void SetUp() override {
    if (!vtcore::setDataCodePath(GetParam()))
      GTEST_SKIP() << "processor lacks " << vtcore::dataCodePathName(GetParam());
  }
  void TearDown() override { vtcore::setDataCodePath(m_previous); }
  vtcore::DataCodePath m_previous = vtcore::dataCodePath();
};
