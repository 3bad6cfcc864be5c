// kytool error: the message a user sees for a failed operation and a status code, and the
// status codes that platform and common-dialog error numbers become.
#include "kytool.h"

#include <stdio.h>
#include <stdlib.h>
#include <string>
#include <vector>

#include "ky_error.h"
#include "ky_text.h"

namespace {

bool ParseNumber(const std::string &s, unsigned long *out) {
  if (s.empty()) return false;
  char *end = nullptr;
  *out = strtoul(s.c_str(), &end, 0);
  return end && *end == 0;
}

// A status text without the blank line that makes it a second paragraph.
std::string Paragraph(const char *text) {
  std::string t = text ? text : "(no text)";
  while (!t.empty() && t[0] == '\n') t.erase(0, 1);
  return t;
}

std::string PlatformText(DWORD error) {
  char buf[512] = "";
  DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                           error, 0, buf, sizeof buf, nullptr);
  while (n > 0 && (buf[n - 1] == '\n' || buf[n - 1] == '\r' || buf[n - 1] == ' ')) buf[--n] = 0;
  return n ? buf : "no system text";
}

void PrintTranslation(const char *kind, unsigned long number, HRESULT status, bool platform) {
  printf("%s error %lu", kind, number);
  if (platform) printf(" (%s)", PlatformText(number).c_str());
  printf("\n  -> status 0x%08lX: %s\n", static_cast<unsigned long>(status),
         status == S_OK ? "success" : Paragraph(KyErrorHandler_GetHresultString(status)).c_str());
}

const char kUsage[] =
    "[--app NAME] [--warning] [--detail TEXT]... [--show] OPERATION STATUS [ARG] | "
    "--win32 N | --commdlg N";

int Error(const kytool::Args &in) {
  kytool::Args args = in;
  const std::string win32 = kytool::TakeOption(args, "--win32", "");
  const std::string commdlg = kytool::TakeOption(args, "--commdlg", "");
  unsigned long n = 0;
  if (!win32.empty() || !commdlg.empty()) {
    if (!args.empty()) {
      fprintf(stderr, "kytool error: --win32 and --commdlg take one number and nothing else\n");
      return 2;
    }
    if (!win32.empty()) {
      if (!ParseNumber(win32, &n)) {
        fprintf(stderr, "kytool error: '%s' is not a number\n", win32.c_str());
        return 2;
      }
      PrintTranslation("platform", n, KyErrorHandler_TranslateWin32Error(n), true);
    }
    if (!commdlg.empty()) {
      if (!ParseNumber(commdlg, &n)) {
        fprintf(stderr, "kytool error: '%s' is not a number\n", commdlg.c_str());
        return 2;
      }
      PrintTranslation("common-dialog", n, KyErrorHandler_TranslateCommDlgError(n), false);
    }
    return 0;
  }

  const std::string app = kytool::TakeOption(args, "--app", "Tellaro");
  const bool warning = kytool::TakeFlag(args, "--warning");
  const bool show = kytool::TakeFlag(args, "--show");
  KyErrorHandler_DetailsInit();
  std::vector<std::string> details;  // the lines the handler accepted
  for (std::string d; !(d = kytool::TakeOption(args, "--detail", "")).empty();)
    if (KyErrorHandler_DetailsAddString(E_FAIL, "%s", d.c_str()) == S_OK) details.push_back(d);
  unsigned long op = 0, status = 0;
  if (args.size() < 2 || args.size() > 3 || !ParseNumber(args[0], &op) ||
      !ParseNumber(args[1], &status)) {
    fprintf(stderr, "usage: kytool error %s\n", kUsage);
    return 2;
  }
  const char *arg = args.size() == 3 ? args[2].c_str() : nullptr;
  KyFormatToken_Set("AppName", app.c_str());
  const HRESULT code = static_cast<HRESULT>(status);

  if (show) {
    int answer = KyErrorHandler_MsgBox(nullptr, MB_OK | MB_ICONHAND, static_cast<LONG>(op), code,
                                       arg, warning);
    printf("message box answered %d\n", answer);
    return 0;
  }
  if (code == static_cast<HRESULT>(0x8004E00C)) {
    printf("(the operation was cancelled by the user: no message is shown)\n");
    KyErrorHandler_DetailsInit();
    return 0;
  }
  const char *message = KyErrorHandler_GetErrorMessage(static_cast<LONG>(op), code, arg);
  printf("%s%s\n", warning ? "Warning: " : "", message);
  // The details view that the message box would offer.
  if (!details.empty()) {
    printf("\n[Details]\n");
    for (const std::string &d : details) printf("%s\n", d.c_str());
  }
  KyErrorHandler_DetailsInit();
  return 0;
}

int Demo(const kytool::Args &) {
  int rc = 0;
  printf("$ kytool error 2 0x8007000E\n");
  rc |= Error({"2", "0x8007000E"});
  printf("\n$ kytool error 5 0x8004E007 C:\\Projects\\demo.veg\n");
  rc |= Error({"5", "0x8004E007", "C:\\Projects\\demo.veg"});
  printf("\n$ kytool error --warning 26 0x8004E00E\n");
  rc |= Error({"--warning", "26", "0x8004E00E"});
  printf("\n$ kytool error 0 0x80001234\n");
  rc |= Error({"0", "0x80001234"});
  printf("\n$ kytool error --win32 2\n");
  rc |= Error({"--win32", "2"});
  printf("\n$ kytool error --win32 999\n");
  rc |= Error({"--win32", "999"});
  return rc;
}

} // namespace

KYTOOL_COMMAND("error", kUsage,
               "print the message a user sees for an operation and status, or translate an error number",
               Error, Demo, 15);
