// Module frame: version handshake, thread count and scratch buffers, the utility-process
// rule, debug text, processor support, language strings.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "ky_testutil.h"
#include "tellarok.h"

namespace {

struct Shown {
  std::string text, caption;
  UINT style;
};
std::vector<Shown> g_shown;

int WINAPI CaptureBox(HWND, const char *text, const char *caption, UINT style) {
  g_shown.push_back({text ? text : "", caption ? caption : "", style});
  return IDOK;
}

class Handshake : public ::testing::Test {
protected:
  void SetUp() override {
    g_shown.clear();
    previous_ = kytest::SetMessageBoxHook(CaptureBox);
  }
  void TearDown() override { kytest::SetMessageBoxHook(previous_); }
  kytest::MessageBoxHook previous_ = nullptr;
};

} // namespace

// Major 1, minor 0, build 21.
TEST(Version, Word) { EXPECT_EQ(KyKernel_GetVersion(), 0x01000015u); }

TEST_F(Handshake, MatchingClientIsSilentNewerRequirementShowsTooOld) {
  EXPECT_EQ(KyKernel_CheckVersion(nullptr, "any client", 0x01000015, 2, 0), S_OK);
  EXPECT_EQ(KyKernel_CheckVersion(nullptr, nullptr, 0x00010000, 2, 0), S_OK);
  EXPECT_TRUE(g_shown.empty());
  EXPECT_EQ(KyKernel_CheckVersion(nullptr, "client", 0x01000016, 2, 0), E_FAIL);
  ASSERT_EQ(g_shown.size(), 1u);
  EXPECT_EQ(g_shown[0].text, "The version of the Orvanel Kernel is too old.");
  EXPECT_EQ(g_shown[0].caption, "Orvanel Kernel");
  EXPECT_EQ(g_shown[0].style, (UINT)MB_ICONINFORMATION);
}

TEST_F(Handshake, OtherRevisionIsIncompatibleWhateverTheVersion) {
  EXPECT_EQ(KyKernel_CheckVersion(nullptr, "Old Plug-In", 0x01000015, 1, 0), E_FAIL);
  EXPECT_EQ(KyKernel_CheckVersion(nullptr, "Old Plug-In", 0x02000000, 3, 0), E_FAIL);
  ASSERT_EQ(g_shown.size(), 2u);
  const char *expected =
      "The version of the Orvanel Kernel is incompatible with the following client:\n\nOld Plug-In.";
  EXPECT_EQ(g_shown[0].text, expected);
  EXPECT_EQ(g_shown[1].text, expected);
  EXPECT_EQ(g_shown[1].caption, "Orvanel Kernel");
}
