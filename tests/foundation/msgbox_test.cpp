// The library's message box as a real dialog: an inspector seam reads its controls when it
// opens and clicks a button, so nothing waits for a user.
#include <gtest/gtest.h>
#include "ky_testutil.h"
#include <string>
#include <vector>
#include "ky_error.h"

namespace {

typedef void(WINAPI *Inspector)(HWND);

struct Seen {
  bool opened = false;
  std::vector<int> buttons;        // identifiers of the push buttons, left to right
  std::vector<std::string> labels;
  std::string text, caption;
  bool icon = false;
  bool hasDetails = false;
  bool detailsHiddenAtFirst = false, detailsShownAfterClick = false, detailsReadOnly = false;
  std::string detailsText;
  int defaultButton = 0;
  int click = -1;  // index of the button to click; -1: the last; -2: press Esc
};
Seen g_seen;

BOOL CALLBACK Collect(HWND child, LPARAM) {
  char cls[32], text[512];
  GetClassNameA(child, cls, sizeof cls);
  GetWindowTextA(child, text, sizeof text);
  LONG style = GetWindowLongA(child, GWL_STYLE);
  int id = GetDlgCtrlID(child);
  if (lstrcmpiA(cls, "Button") == 0) {
    if (id == 1000) {
      g_seen.hasDetails = true;
    } else {
      g_seen.buttons.push_back(id);
      g_seen.labels.push_back(text);
      if ((style & 0xF) == BS_DEFPUSHBUTTON) g_seen.defaultButton = id;
    }
  } else if (lstrcmpiA(cls, "Static") == 0) {
    if ((style & SS_TYPEMASK) == SS_ICON) g_seen.icon = true;
    else g_seen.text = text;
  } else if (lstrcmpiA(cls, "Edit") == 0) {
    g_seen.detailsHiddenAtFirst = !(style & WS_VISIBLE);
    g_seen.detailsReadOnly = (style & ES_READONLY) != 0 && (style & WS_VSCROLL) != 0;
    std::vector<char> b(static_cast<size_t>(GetWindowTextLengthA(child)) + 1);
    GetWindowTextA(child, b.data(), static_cast<int>(b.size()));
    g_seen.detailsText = b.data();
  }
  return TRUE;
}

void WINAPI Inspect(HWND dlg) {
  g_seen.opened = true;
  char caption[128];
  GetWindowTextA(dlg, caption, sizeof caption);
  g_seen.caption = caption;
  EnumChildWindows(dlg, Collect, 0);
  if (g_seen.hasDetails) {
    SendMessageA(dlg, WM_COMMAND, MAKEWPARAM(1000, BN_CLICKED), 0);
    // The dialog itself is not shown yet: look at the box's own visibility bit.
    g_seen.detailsShownAfterClick =
        (GetWindowLongA(GetDlgItem(dlg, 1003), GWL_STYLE) & WS_VISIBLE) != 0;
  }
  int id = IDCANCEL;  // what Esc sends
  if (!g_seen.buttons.empty() && g_seen.click != -2) {
    size_t i = g_seen.click < 0 ? g_seen.buttons.size() - 1 : static_cast<size_t>(g_seen.click);
    id = g_seen.buttons[i];
  }
  PostMessageA(dlg, WM_COMMAND, MAKEWPARAM(id, BN_CLICKED), 0);
}

class MsgBoxDialog : public ::testing::Test {
 protected:
  void SetUp() override {
    set_ = kytest::Export<Inspector(WINAPI *)(Inspector)>("KyInternal_SetCustomBoxInspector");
    ASSERT_NE(nullptr, set_);
    old_ = set_(Inspect);
    g_seen = Seen();
  }
  void TearDown() override {
    if (set_) set_(old_);
  }
  // Shows the box; false (the test skips) when no window can be made here.
  int Show(UINT style, const char *details, const char *text) {
    return KyMsgBox_Custom(nullptr, style, details, text);
  }
  Inspector(WINAPI *set_)(Inspector) = nullptr;
  Inspector old_ = nullptr;
};

#define SKIP_WITHOUT_WINDOWS(answer)                                                          \
  if ((answer) == 0 && !g_seen.opened)                                                        \
  GTEST_SKIP() << "no window could be created here (no display): the dialog is not checked"

TEST_F(MsgBoxDialog, ButtonsOfEveryStyle) {
  struct Row { UINT type; std::vector<int> ids; };
  const Row rows[] = {
      {MB_OK, {IDOK}},
      {MB_OKCANCEL, {IDOK, IDCANCEL}},
      {MB_ABORTRETRYIGNORE, {IDABORT, IDRETRY, IDIGNORE}},
      {MB_YESNOCANCEL, {IDYES, IDNO, IDCANCEL}},
      {MB_YESNO, {IDYES, IDNO}},
      {MB_RETRYCANCEL, {IDRETRY, IDCANCEL}},
      {MB_CANCELTRYCONTINUE, {IDCANCEL, IDTRYAGAIN, IDCONTINUE}},
  };
  for (const Row &r : rows) {
    g_seen = Seen();
    int answer = Show(r.type | MB_DEFBUTTON2, nullptr, "Choose.");
    SKIP_WITHOUT_WINDOWS(answer);
    EXPECT_EQ(r.ids, g_seen.buttons) << r.type;
    EXPECT_EQ(r.ids.back(), answer) << r.type;
    EXPECT_EQ(r.ids.size() > 1 ? r.ids[1] : r.ids[0], g_seen.defaultButton) << r.type;
    EXPECT_EQ("Choose.", g_seen.text);
    EXPECT_FALSE(g_seen.icon);
    EXPECT_FALSE(g_seen.hasDetails);
  }
}

TEST_F(MsgBoxDialog, IconTextCaptionAndDetails) {
  g_seen.click = 1;
  int answer = Show(MB_YESNO | MB_ICONEXCLAMATION | KYMB_DETAILS, "line 1\r\nline 2\r\n",
                    "Something failed.\n\nTry again?");
  SKIP_WITHOUT_WINDOWS(answer);
  EXPECT_EQ(IDNO, answer);
  EXPECT_TRUE(g_seen.icon);
  EXPECT_EQ("Something failed.\n\nTry again?", g_seen.text);
  EXPECT_EQ("foundation_test", g_seen.caption);
  ASSERT_TRUE(g_seen.hasDetails);
  EXPECT_TRUE(g_seen.detailsHiddenAtFirst);
  EXPECT_TRUE(g_seen.detailsShownAfterClick);
  EXPECT_TRUE(g_seen.detailsReadOnly);
  EXPECT_EQ("line 1\r\nline 2\r\n", g_seen.detailsText);
}

TEST_F(MsgBoxDialog, DetailsNeedBothStyleBitsAndEscClosesAnOkBoxWithOk) {
  g_seen.click = -2;
  int answer = Show(MB_OK | 0x4000, "hidden", "No details view.");
  SKIP_WITHOUT_WINDOWS(answer);
  EXPECT_EQ(IDOK, answer);
  EXPECT_FALSE(g_seen.hasDetails);
}

} // namespace
