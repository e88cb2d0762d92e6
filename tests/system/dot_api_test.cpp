#include <vtcore/system/dot_api.h>

#include <gtest/gtest.h>

#include <string>

namespace {

// Back to the state the library is loaded with, so that each test sees the
// lazy initialisation itself.
class CDotAPITest : public testing::Test {
protected:
  void SetUp() override {
    CDotAPI::s_fInit = false;
    CDotAPI::s_fDbgMode = false;
    CDotAPI::s_fOverride = false;
    CDotAPI::s_eOverride = CDotAPI::kOptimizationsOff;
    CDotAPI::s_eID = CDotAPI::kOptimizationsOff;
    CDotAPI::s_bEnableHistoryUpdate = true;
    for (auto& row : CDotAPI::s_afEnable)
      for (auto& entry : row)
        entry = false;
  }
};

std::string text(const char* menuText) {
  return menuText ? menuText : "(null)";
}

} // namespace

TEST_F(CDotAPITest, FirstQueryInitialisesTheReleaseMenu) {
  EXPECT_EQ(CDotAPI::s_eID.load(), CDotAPI::kOptimizationsOff);
  EXPECT_EQ(CDotAPI::MenuEntries(), 2);
  EXPECT_TRUE(CDotAPI::s_fInit.load());
  EXPECT_EQ(CDotAPI::ProcessorID(), CDotAPI::kSSE3);
  EXPECT_EQ(text(CDotAPI::MenuText(0)), "SSE3 optimizations");
  EXPECT_EQ(text(CDotAPI::MenuText(1)), "optimizations off");
  EXPECT_EQ(CDotAPI::MenuText(2), nullptr);
  EXPECT_EQ(CDotAPI::MenuText(-1), nullptr);
  EXPECT_EQ(CDotAPI::MenuID(0), CDotAPI::kSSE3);
  EXPECT_EQ(CDotAPI::MenuID(1), CDotAPI::kOptimizationsOff);
  EXPECT_EQ(CDotAPI::MenuID(2), 0);
  EXPECT_EQ(static_cast<unsigned>(CDotAPI::MenuID(-1)), 0xFFFFFFFFu);
  EXPECT_EQ(CDotAPI::MenuID(-2), 0);
  EXPECT_EQ(CDotAPI::ID(), CDotAPI::kSSE3);
  EXPECT_EQ(CDotAPI::Interleave(), 4);
  EXPECT_EQ(CDotAPI::GetSelection(), 0);
}

TEST_F(CDotAPITest, SelectionAndOverride) {
  CDotAPI::SetSelection(1);
  EXPECT_EQ(CDotAPI::ID(), CDotAPI::kOptimizationsOff);
  EXPECT_EQ(CDotAPI::Interleave(), 1);
  EXPECT_EQ(CDotAPI::MaxInterleave(), 4);
  EXPECT_EQ(CDotAPI::GetSelection(), 1);
  EXPECT_EQ(CDotAPI::ProcessorID(), CDotAPI::kSSE3);

  CDotAPI::SetSelection(-1); // ignored
  EXPECT_EQ(CDotAPI::ID(), CDotAPI::kOptimizationsOff);

  EXPECT_FALSE(CDotAPI::Override(CDotAPI::kSSE3)); // the own path ends the override
  EXPECT_EQ(CDotAPI::ID(), CDotAPI::kSSE3);
  EXPECT_EQ(CDotAPI::GetSelection(), 0);

  EXPECT_TRUE(CDotAPI::Override(CDotAPI::kOptimizationsOff));
  EXPECT_FALSE(CDotAPI::Override(CDotAPI::kAltiVecG4)); // not offered on path 1
  EXPECT_FALSE(CDotAPI::s_fOverride.load());
  EXPECT_EQ(CDotAPI::s_eOverride.load(), CDotAPI::kAltiVecG4);
  EXPECT_EQ(CDotAPI::ID(), CDotAPI::kSSE3);

  CDotAPI::SetSelection(5); // past the menu: MenuID gives path 0, not offered
  EXPECT_FALSE(CDotAPI::s_fOverride.load());
}

TEST_F(CDotAPITest, DebugConfiguration) {
  CDotAPI::SetDebugMode(true);
  EXPECT_FALSE(CDotAPI::s_fInit.load());
  EXPECT_EQ(CDotAPI::MenuEntries(), 4);
  const char* expected[] = {"SSE optimizations", "SSE3 optimizations", "optimizations off",
                            "debug mode"};
  const CDotAPI::EID ids[] = {CDotAPI::kSSE, CDotAPI::kSSE3, CDotAPI::kOptimizationsOff,
                              CDotAPI::kDebugMode};
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(text(CDotAPI::MenuText(i)), expected[i]);
    EXPECT_EQ(CDotAPI::MenuID(i), ids[i]);
  }
  CDotAPI::SetSelection(3);
  EXPECT_EQ(CDotAPI::ID(), CDotAPI::kDebugMode);
  EXPECT_EQ(CDotAPI::Interleave(), 4);
  EXPECT_EQ(CDotAPI::GetSelection(), 3);

  CDotAPI::SetDebugMode(false); // the release matrix is in force at once
  EXPECT_EQ(CDotAPI::MenuEntries(), 2);
}

TEST_F(CDotAPITest, HistoryFlagNeedsNoInitialisation) {
  EXPECT_TRUE(CDotAPI::UpdateHistory());
  CDotAPI::DisableHistoryUpdate();
  EXPECT_FALSE(CDotAPI::UpdateHistory());
  CDotAPI::EnableHistoryUpdate();
  EXPECT_TRUE(CDotAPI::UpdateHistory());
  EXPECT_FALSE(CDotAPI::s_fInit.load());
}
