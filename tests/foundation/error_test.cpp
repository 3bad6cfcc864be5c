// Error handler: message composition, client tables, the message box path, detail lines
// and their owner thread, the translation tables.
#include <gtest/gtest.h>
#include "ky_testutil.h"
#include <process.h>
#include <string.h>
#include <string>
#include <vector>
#include "ky_error.h"
#include "ky_status.h"
#include "ky_text.h"

namespace {

std::string Msg(LONG op, HRESULT code, const char *arg = nullptr) {
  const char *m = KyErrorHandler_GetErrorMessage(op, code, arg);
  return m ? m : "(null)";
}

// What the message-box hook saw.
struct Shown {
  int calls = 0;
  UINT style = 0;
  std::string text, details, caption;
  bool hadDetails = false;
};
Shown g_shown;

int WINAPI RecordBox(HWND, UINT style, const char *details, const char *text, const char *caption) {
  ++g_shown.calls;
  g_shown.style = style;
  g_shown.text = text ? text : "";
  g_shown.hadDetails = details != nullptr;
  g_shown.details = details ? details : "";
  g_shown.caption = caption ? caption : "";
  return IDRETRY;
}

typedef int(WINAPI *BoxHook)(HWND, UINT, const char *, const char *, const char *);

class ErrorBox : public ::testing::Test {
 protected:
  void SetUp() override {
    set_ = kytest::Export<BoxHook(WINAPI *)(BoxHook)>("KyInternal_SetCustomBoxHook");
    ASSERT_NE(nullptr, set_);
    old_ = set_(RecordBox);
    g_shown = Shown();
    KyErrorHandler_DetailsInit();
  }
  void TearDown() override { set_(old_); }
  BoxHook(WINAPI *set_)(BoxHook) = nullptr;
  BoxHook old_ = nullptr;
};

TEST(ErrorMessage, OperationSentenceThenStatusParagraph) {
  EXPECT_EQ("An error occurred while loading a plug-in.\n\nThe system is low on memory. You may be "
            "able to reduce memory usage by closing other applications.",
            Msg(2, E_OUTOFMEMORY));
  EXPECT_EQ("An error occurred while loading a plug-in.Error 0x80001234 (message missing)",
            Msg(2, 0x80001234));
  EXPECT_EQ("An error occurred while loading the project file C:\\a.veg.\n\nThe file could not be "
            "opened. Make sure the file exists and that you have access to the file/folder.",
            Msg(5, KYERR_FILE_OPEN, "C:\\a.veg"));
  EXPECT_EQ("An error occurred while loading the project file .\n\nThe file name is not valid.",
            Msg(5, KYERR_BAD_FILENAME, nullptr));
  EXPECT_EQ("An error occurred during the current operation.\n\nThe item was not found.",
            Msg(999, KYERR_NOT_FOUND));
  EXPECT_EQ("A error occurred accessing project media x.\n\nThe file has no audio.",
            Msg(4, KYERR_NO_AUDIO, "x"));
  // The one status text that is no second paragraph.
  EXPECT_EQ("An error occurred during the current operation.One or more effects in the package "
            "failed to load.\n\nDo you want to try to load the loadable effects from the chain?",
            Msg(0, KYERR_PACKAGE_PARTIAL));
  // The argument is text, never a format.
  EXPECT_EQ("The plug-in preset '%d $(AppName)' could not be loaded.Error 0x00000001 (message missing)",
            Msg(15, S_FALSE, "%d $(AppName)"));
  // Named tokens expand in both the sentence and the status text.
  ASSERT_EQ(S_OK, KyFormatToken_Set("AppName", "Tellaro"));
  EXPECT_EQ("An error occurred starting Tellaro.\n\nA necessary resource is missing. You should "
            "re-install Tellaro as the application file appears to be corrupted.",
            Msg(26, KYERR_RESOURCE_MISSING));
  KyFormatToken_Remove("AppName");
}

TEST(ErrorMessage, LongArgumentFillsTheBufferWithoutStatusText) {
  std::string m = Msg(5, E_FAIL, std::string(3000, 'x').c_str());
  EXPECT_EQ(static_cast<size_t>(KYERR_MESSAGE_CHARS - 1), m.size());
  EXPECT_EQ(std::string::npos, m.find("\n\n"));
  // Room left for part of the status text: the append is cut, the buffer terminated.
  m = Msg(5, E_OUTOFMEMORY, std::string(KYERR_MESSAGE_CHARS - 100, 'y').c_str());
  EXPECT_EQ(static_cast<size_t>(KYERR_MESSAGE_CHARS - 1), m.size());
  EXPECT_NE(std::string::npos, m.find(".\n\nThe system is low"));
}

TEST(ErrorMessage, StatusTableLookups) {
  struct Row { HRESULT code; const char *text; };
  const Row rows[] = {
      {E_FAIL, "\n\nThe reason for the error could not be determined."},
      {E_INVALIDARG, "\n\nAn invalid argument was specifed."},
      {KYS_NOT_CONFIGURED, "\n\nThis feature is not configured properly."},
      {KYERR_CANCELLED, "\n\nThe operation was cancelled by the user."},
      {static_cast<HRESULT>(0x80030070), "\n\nThe system is low on memory. You may be able to reduce memory usage by closing other applications."},
      {static_cast<HRESULT>(0x0004E010), "\n\nThis project file was created by Pelso Video."},
      {static_cast<HRESULT>(0x8004E047), "\n\nThe file format plugin for the specified format was not properly initialized."},
  };
  for (const Row &r : rows) EXPECT_STREQ(r.text, KyErrorHandler_GetHresultString(r.code)) << std::hex << r.code;
  EXPECT_EQ(nullptr, KyErrorHandler_GetHresultString(0x80001234));
  EXPECT_EQ(nullptr, KyErrorHandler_GetHresultString(S_OK));
}

// Client tables stay registered for the life of the process: this test owns all of them.
TEST(ErrorMessage, ClientTablesComeFirstInRegistrationOrderUpTo32) {
  static const tKYERRORTEXT first[] = {{KY_HR(0x80041111), "\n\nfirst"}, {E_FAIL, "\n\nclient E_FAIL"}};
  static const tKYERRORTEXT second[] = {{KY_HR(0x80041111), "\n\nsecond"}, {KY_HR(0x80042222), "\n\nonly second"}};
  EXPECT_EQ(E_POINTER, KyErrorHandler_AddErrorTable(nullptr, 3));
  ASSERT_EQ(S_OK, KyErrorHandler_AddErrorTable(first, 2));
  ASSERT_EQ(S_OK, KyErrorHandler_AddErrorTable(second, 2));
  EXPECT_STREQ("\n\nfirst", KyErrorHandler_GetHresultString(0x80041111));
  EXPECT_STREQ("\n\nonly second", KyErrorHandler_GetHresultString(0x80042222));
  EXPECT_EQ("An error occurred while loading a plug-in.\n\nclient E_FAIL", Msg(2, E_FAIL));
  // Only the count given is searched.
  static const tKYERRORTEXT counted[] = {{KY_HR(0x80043333), "\n\nin"}, {KY_HR(0x80044444), "\n\nbeyond count"}};
  ASSERT_EQ(S_OK, KyErrorHandler_AddErrorTable(counted, 1));
  EXPECT_EQ(nullptr, KyErrorHandler_GetHresultString(0x80044444));
  for (int added = 3; added < KYERR_MAX_TABLES; ++added)
    ASSERT_EQ(S_OK, KyErrorHandler_AddErrorTable(counted, 1)) << added;
  static const tKYERRORTEXT late[] = {{KY_HR(0x80045555), "\n\nlate"}};
  EXPECT_EQ(1, KyErrorHandler_AddErrorTable(late, 1));
  EXPECT_EQ(nullptr, KyErrorHandler_GetHresultString(0x80045555));
}

TEST_F(ErrorBox, WarningPrefixStyleBitsAndAnswer) {
  EXPECT_EQ(1, KyErrorHandler_MsgBox(nullptr, MB_OK, 2, KYERR_CANCELLED, nullptr, FALSE));
  EXPECT_EQ(0, g_shown.calls) << "a cancelled operation shows nothing";
  EXPECT_EQ(IDRETRY, KyErrorHandler_MsgBox(nullptr, MB_RETRYCANCEL | KYMB_DETAILS, 11,
                                           KYERR_BUSY, nullptr, TRUE));
  EXPECT_EQ(1, g_shown.calls);
  EXPECT_EQ("Warning: An error occurred while starting playback.\n\nThe system is busy.", g_shown.text);
  EXPECT_EQ(static_cast<UINT>(MB_RETRYCANCEL), g_shown.style);  // no details: bits cleared
  EXPECT_FALSE(g_shown.hadDetails);
  EXPECT_FALSE(g_shown.caption.empty());
}

TEST_F(ErrorBox, DetailsAreHandedOverAndTheStateCleared) {
  ASSERT_EQ(S_OK, KyErrorHandler_DetailsAddString(KYERR_FILE_READ, "reading %s at %d", "a.wav", 44));
  ASSERT_EQ(S_OK, KyErrorHandler_DetailsAddString(KYERR_FILE_CORRUPT, "plain line"));
  EXPECT_EQ(KYERR_FILE_CORRUPT, KyErrorHandler_GetLastError());
  EXPECT_EQ(IDRETRY, KyErrorHandler_MsgBox(nullptr, MB_OK | MB_ICONHAND, 22, KYERR_FILE_READ, nullptr, FALSE));
  EXPECT_EQ(static_cast<UINT>(MB_OK | MB_ICONHAND | KYMB_DETAILS), g_shown.style);
  ASSERT_TRUE(g_shown.hadDetails);
  EXPECT_EQ("reading a.wav at 44\r\nplain line\r\n", g_shown.details);
  EXPECT_EQ(0, KyErrorHandler_GetLastError());
  // Cleared: the next box has no details.
  KyErrorHandler_MsgBox(nullptr, MB_OK, 22, KYERR_FILE_READ, nullptr, FALSE);
  EXPECT_FALSE(g_shown.hadDetails);
}

unsigned __stdcall AddFromWorker(void *p) {
  *static_cast<HRESULT *>(p) = KyErrorHandler_DetailsAddString(E_FAIL, "from worker %d", 2);
  return 0;
}
HRESULT AddOnOtherThread() {
  HRESULT r = S_OK - 99;
  HANDLE h = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, AddFromWorker, &r, 0, nullptr));
  if (!h) return S_OK - 98;
  WaitForSingleObject(h, INFINITE);
  CloseHandle(h);
  return r;
}

TEST_F(ErrorBox, DetailsBelongToTheFirstThreadUntilCleared) {
  ASSERT_EQ(S_OK, KyErrorHandler_DetailsAddString(E_FAIL, "main"));
  EXPECT_EQ(E_FAIL, AddOnOtherThread());
  EXPECT_EQ(S_OK, KyErrorHandler_DetailsAddString(E_FAIL, "main again"));
  KyErrorHandler_DetailsInit();
  EXPECT_EQ(S_OK, AddOnOtherThread());  // the worker owns them now
  EXPECT_EQ(E_FAIL, KyErrorHandler_DetailsAddString(E_FAIL, "main refused"));
  EXPECT_EQ(E_FAIL, KyErrorHandler_GetLastError());
  KyErrorHandler_MsgBox(nullptr, MB_OK, 0, E_FAIL, nullptr, FALSE);
  EXPECT_EQ("from worker 2\r\n", g_shown.details);
  EXPECT_EQ(S_OK, KyErrorHandler_DetailsAddString(E_FAIL, "main owns again"));
}

TEST_F(ErrorBox, DetailsLengthLimit) {
  EXPECT_EQ(E_POINTER, KyErrorHandler_DetailsAddString(E_FAIL, nullptr));
  const std::string line98(98, 'a');
  for (int i = 0; i < 81; ++i) ASSERT_EQ(S_OK, KyErrorHandler_DetailsAddString(i, line98.c_str()));
  // 8100 characters now; a line of 90 would make 8192 with its "\r\n": refused.
  EXPECT_EQ(E_FAIL, KyErrorHandler_DetailsAddString(1000, std::string(90, 'b').c_str()));
  EXPECT_EQ(80, KyErrorHandler_GetLastError());
  EXPECT_EQ(S_OK, KyErrorHandler_DetailsAddString(1001, std::string(89, 'c').c_str()));
  EXPECT_EQ(E_FAIL, KyErrorHandler_DetailsAddString(1002, ""));
  EXPECT_EQ(1001, KyErrorHandler_GetLastError());
  KyErrorHandler_MsgBox(nullptr, MB_OK, 0, E_FAIL, nullptr, FALSE);
  ASSERT_EQ(8191u, g_shown.details.size());
  EXPECT_EQ(std::string(89, 'c') + "\r\n", g_shown.details.substr(8100));
  // A formatted line that would overflow the staging buffer is cut there, not overrun.
  EXPECT_EQ(E_FAIL, KyErrorHandler_DetailsAddString(1, "%s", std::string(10000, 'z').c_str()));
}

// The platform table written as its number ranges, independently of the library's pair list;
// status codes as plain numbers.
constexpr DWORD kOk = 0, kFail = 0x80004005, kArg = 0x80070057, kMem = 0x8007000E;

struct Range { DWORD first, last; DWORD result; };
const Range kWin32[] = {
    {0, 0, kOk}, {1, 1, kArg}, {2, 3, 0x8004E00A}, {126, 127, 0x8004E00A},
    {4, 4, 0x8004E026}, {6, 6, 0x80070006}, {14, 14, kMem}, {84, 84, kMem},
    {15, 15, 0x800404B0}, {39, 39, 0x8004E002}, {112, 112, 0x8004E002}, {80, 80, 0x8004E032},
    {110, 110, 0x8004E007}, {120, 120, 0x80004001}, {123, 123, 0x8004E00D}, {170, 170, 0x8004E005},
    {5, 5, kFail}, {7, 13, kFail}, {16, 34, kFail}, {36, 36, kFail}, {38, 38, kFail},
    {50, 72, kFail}, {82, 83, kFail}, {85, 89, kFail}, {100, 109, kFail}, {111, 111, kFail},
    {113, 114, kFail}, {117, 119, kFail}, {121, 122, kFail}, {124, 125, kFail},
    {128, 162, kFail}, {164, 164, kFail}, {167, 167, kFail}, {173, 174, kFail},
    {180, 180, kFail}, {182, 183, kFail}, {186, 203, kFail}, {205, 210, kFail},
    {212, 212, kFail}, {214, 216, kFail}, {230, 234, kFail}, {240, 240, kFail},
    {254, 255, kFail}, {258, 259, kFail}, {266, 267, kFail}, {275, 278, kFail},
    {282, 282, kFail}, {288, 288, kFail}, {298, 301, kFail}, {317, 317, kFail},
    {487, 487, kFail}, {534, 536, kFail},
};

TEST(ErrorTranslate, EveryPlatformNumber) {
  DWORD listed = 0;
  for (const Range &r : kWin32) listed += r.last - r.first + 1;
  EXPECT_EQ(194u, listed);
  for (DWORD n = 0; n < 1200; ++n) {
    HRESULT want = E_FAIL;  // unlisted numbers fail too
    for (const Range &r : kWin32)
      if (n >= r.first && n <= r.last) want = static_cast<HRESULT>(r.result);
    ASSERT_EQ(want, KyErrorHandler_TranslateWin32Error(n)) << n;
  }
  EXPECT_EQ(E_FAIL, KyErrorHandler_TranslateWin32Error(0xFFFFFFFF));
}

TEST(ErrorTranslate, EveryCommonDialogNumber) {
  struct Row { DWORD error; DWORD result; };
  const Row rows[] = {
      {0, kOk}, {1, kArg}, {3, kArg}, {4, kArg}, {11, kArg},
      {0x3003, kArg}, {0x4001, kArg}, {0xFFFF, kArg},
      {2, kMem}, {5, kMem}, {7, kMem}, {8, kMem},
      {9, kMem}, {10, kMem}, {0x3001, kMem},
      {6, 0x8004E00E}, {0x3002, 0x8004E00D},
  };
  for (DWORD n = 0; n <= 0x10000; ++n) {
    HRESULT want = E_FAIL;
    for (const Row &r : rows)
      if (r.error == n) want = static_cast<HRESULT>(r.result);
    ASSERT_EQ(want, KyErrorHandler_TranslateCommDlgError(n)) << std::hex << n;
  }
}

} // namespace
