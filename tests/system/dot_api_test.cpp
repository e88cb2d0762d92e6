#include <vtcore/system/dispatch/dot_api.h>

#include <gtest/gtest.h>

#include <utility>

namespace {

// Back to the state the library is loaded with, so that each test sees the
// lazy initialisation itself.
class CDotAPITest : public testing::Test {
protected:
  void SetUp() override {
    CDotAPI::s_fInit = CDotAPI::s_fDbgMode = CDotAPI::s_fOverride = false;
    CDotAPI::s_eOverride = CDotAPI::s_eID = CDotAPI::kOptimizationsOff;
    CDotAPI::s_bEnableHistoryUpdate = true;
    for (auto& row : CDotAPI::s_afEnable)
      for (auto& entry : row)
        entry = false;
  }
};

// Checks the whole menu: its texts and ids, and nothing past either end.
void expectMenu(std::initializer_list<std::pair<const char*, CDotAPI::EID>> entries) {
  ASSERT_EQ(CDotAPI::MenuEntries(), static_cast<int>(entries.size()));
  int index = 0;
  for (const auto& [text, id] : entries) {
    EXPECT_STREQ(CDotAPI::MenuText(index), text);
    EXPECT_EQ(CDotAPI::MenuID(index++), id);
  }
  EXPECT_EQ(CDotAPI::MenuText(index), nullptr);
  EXPECT_EQ(CDotAPI::MenuID(index), 0);
  EXPECT_EQ(static_cast<unsigned>(CDotAPI::MenuID(-1)), 0xFFFFFFFFu); // all bits set
  EXPECT_EQ(CDotAPI::MenuID(-2), 0);
}

} // namespace

TEST_F(CDotAPITest, ReleaseMenuSelectionAndOverride) {
  expectMenu(
      {{"SSE3 optimizations", CDotAPI::kSSE3}, {"optimizations off", CDotAPI::kOptimizationsOff}});
  EXPECT_TRUE(CDotAPI::s_fInit.load()); // the first query initialised it
  EXPECT_EQ(CDotAPI::ID(), CDotAPI::kSSE3);
  EXPECT_EQ(CDotAPI::Interleave(), 4);

  CDotAPI::SetSelection(1);
  EXPECT_EQ(CDotAPI::ID(), CDotAPI::kOptimizationsOff);
  EXPECT_EQ(CDotAPI::Interleave(), 1);
  EXPECT_EQ(CDotAPI::MaxInterleave(), 4);
  EXPECT_EQ(CDotAPI::ProcessorID(), CDotAPI::kSSE3);
  CDotAPI::SetSelection(-1); // ignored
  EXPECT_EQ(CDotAPI::GetSelection(), 1);

  EXPECT_FALSE(CDotAPI::Override(CDotAPI::kSSE3)); // the own path ends the override
  EXPECT_EQ(CDotAPI::GetSelection(), 0);
  EXPECT_TRUE(CDotAPI::Override(CDotAPI::kOptimizationsOff));
  EXPECT_FALSE(CDotAPI::Override(CDotAPI::kAltiVecG4)); // not offered on path 1
  EXPECT_EQ(CDotAPI::s_eOverride.load(), CDotAPI::kAltiVecG4);
  EXPECT_EQ(CDotAPI::ID(), CDotAPI::kSSE3);
}

TEST_F(CDotAPITest, IgnoredNegativeSelectionStillInitialises) {
  CDotAPI::SetSelection(-1);
  EXPECT_TRUE(CDotAPI::s_fInit.load());
  EXPECT_EQ(CDotAPI::s_eID.load(), CDotAPI::kSSE3);
  EXPECT_FALSE(CDotAPI::s_fOverride.load());
  EXPECT_EQ(CDotAPI::s_afEnable[CDotAPI::kSSE3][CDotAPI::kOptimizationsOff], true);
}

TEST_F(CDotAPITest, DebugConfigurationAndHistoryFlag) {
  EXPECT_TRUE(CDotAPI::UpdateHistory());
  CDotAPI::DisableHistoryUpdate();
  EXPECT_FALSE(CDotAPI::UpdateHistory());
  CDotAPI::EnableHistoryUpdate();
  EXPECT_FALSE(CDotAPI::s_fInit.load()); // the history flag needs no initialisation

  CDotAPI::SetDebugMode(true);
  expectMenu({{"SSE optimizations", CDotAPI::kSSE},
              {"SSE3 optimizations", CDotAPI::kSSE3},
              {"optimizations off", CDotAPI::kOptimizationsOff},
              {"debug mode", CDotAPI::kDebugMode}});
  CDotAPI::SetSelection(3);
  EXPECT_EQ(CDotAPI::ID(), CDotAPI::kDebugMode);
  EXPECT_EQ(CDotAPI::Interleave(), 4);
  CDotAPI::SetDebugMode(false); // the release matrix is in force at once
  EXPECT_EQ(CDotAPI::MenuEntries(), 2);
}
