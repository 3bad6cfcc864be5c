// The library's message box: a dialog made from an in-memory template that shows a text
// with the buttons and icon of a MessageBox style and, on request, a Details button that
// reveals a read-only, scrolling box with further text.
#include "error_internal.h"
#include "ky_text.h"
#include <string.h>

namespace ky {

// Seams: a hook replaces the whole box (tests answer without a window); an inspector is
// called with the real dialog once its controls exist (tests read and click it).
typedef int (WINAPI *CustomBoxHook)(HWND owner, UINT style, const char *details,
                                    const char *text, const char *caption);
typedef void (WINAPI *CustomBoxInspector)(HWND dialog);

namespace {

CustomBoxHook g_customBoxHook = nullptr;
CustomBoxInspector g_customBoxInspector = nullptr;

enum : int { kIdDetails = 1000, kIdText = 1001, kIdIcon = 1002, kIdDetailsEdit = 1003 };

constexpr int kMargin = 12;
constexpr int kIconSize = 32;
constexpr int kTextMaxWidth = 440;
constexpr int kButtonWidth = 88;
constexpr int kButtonHeight = 26;
constexpr int kButtonGap = 8;
constexpr int kDetailsHeight = 170;

struct Button {
  int id;
  const char *label;
};

struct Box {
  UINT style;
  const char *text;
  const char *details;  // null when no Details button is offered
  Button buttons[3];
  int buttonCount = 0;
  bool closable = true;  // Esc and the close box answer closeAnswer
  int closeAnswer = IDCANCEL;
  bool expanded = false;
  int collapsedHeight = 0;  // window heights with the details hidden and shown
  int expandedHeight = 0;
};

// Buttons of each MB_TYPEMASK value, in MessageBox's order, and whether Esc or the close
// box may end the box (with Cancel, or OK for a lone OK button).
struct ButtonSet {
  UINT type;
  Button buttons[3];
  int count;
  bool closable;
  int closeAnswer;
};
const ButtonSet kButtonSets[] = {
    {MB_OK, {{IDOK, "OK"}}, 1, true, IDOK},
    {MB_OKCANCEL, {{IDOK, "OK"}, {IDCANCEL, "Cancel"}}, 2, true, IDCANCEL},
    {MB_ABORTRETRYIGNORE, {{IDABORT, "&Abort"}, {IDRETRY, "&Retry"}, {IDIGNORE, "&Ignore"}}, 3, false, 0},
    {MB_YESNOCANCEL, {{IDYES, "&Yes"}, {IDNO, "&No"}, {IDCANCEL, "Cancel"}}, 3, true, IDCANCEL},
    {MB_YESNO, {{IDYES, "&Yes"}, {IDNO, "&No"}}, 2, false, 0},
    {MB_RETRYCANCEL, {{IDRETRY, "&Retry"}, {IDCANCEL, "Cancel"}}, 2, true, IDCANCEL},
    {MB_CANCELTRYCONTINUE, {{IDCANCEL, "Cancel"}, {IDTRYAGAIN, "&Try Again"}, {IDCONTINUE, "&Continue"}}, 3, true, IDCANCEL},
};

// Unknown types get the lone OK button.
void ChooseButtons(Box &b) {
  const ButtonSet *set = &kButtonSets[0];
  for (const ButtonSet &s : kButtonSets)
    if (s.type == (b.style & MB_TYPEMASK)) set = &s;
  for (int i = 0; i < set->count; ++i) b.buttons[i] = set->buttons[i];
  b.buttonCount = set->count;
  b.closable = set->closable;
  b.closeAnswer = set->closeAnswer;
}

LPCSTR IconOf(UINT style) {
  switch (style & MB_ICONMASK) {
  case MB_ICONHAND:
    return IDI_HAND;
  case MB_ICONQUESTION:
    return IDI_QUESTION;
  case MB_ICONEXCLAMATION:
    return IDI_EXCLAMATION;
  case MB_ICONASTERISK:
    return IDI_ASTERISK;
  default:
    return nullptr;
  }
}

HWND Child(HWND dlg, const char *cls, const char *text, DWORD style, int id, int x, int y,
           int w, int h) {
  HWND c = CreateWindowExA(0, cls, text, WS_CHILD | WS_VISIBLE | style, x, y, w, h, dlg,
                           reinterpret_cast<HMENU>(static_cast<UINT_PTR>(id)), g.module, nullptr);
  if (c) SendMessageA(c, WM_SETFONT, SendMessageA(dlg, WM_GETFONT, 0, 0), FALSE);
  return c;
}

void ShowDetails(HWND dlg, Box &b, bool show) {
  b.expanded = show;
  ShowWindow(GetDlgItem(dlg, kIdDetailsEdit), show ? SW_SHOW : SW_HIDE);
  SetDlgItemTextA(dlg, kIdDetails, show ? "<< &Details" : "&Details >>");
  RECT r;
  GetWindowRect(dlg, &r);
  SetWindowPos(dlg, nullptr, 0, 0, r.right - r.left, show ? b.expandedHeight : b.collapsedHeight,
               SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
}

void Layout(HWND dlg, Box &b) {
  HDC dc = GetDC(dlg);
  HFONT font = reinterpret_cast<HFONT>(SendMessageA(dlg, WM_GETFONT, 0, 0));
  HGDIOBJ old = font ? SelectObject(dc, font) : nullptr;
  RECT tr = {0, 0, kTextMaxWidth, 0};
  DrawTextA(dc, b.text, -1, &tr, DT_CALCRECT | DT_WORDBREAK | DT_NOPREFIX | DT_EXPANDTABS);
  if (old) SelectObject(dc, old);
  ReleaseDC(dlg, dc);

  LPCSTR icon = IconOf(b.style);
  int textX = kMargin + (icon ? kIconSize + kMargin : 0);
  int textW = tr.right - tr.left, textH = tr.bottom - tr.top;
  if (textH < kIconSize && icon) textH = kIconSize;
  int buttons = b.buttonCount + (b.details ? 1 : 0);
  int rowW = buttons * kButtonWidth + (buttons - 1) * kButtonGap;
  int clientW = textX + textW + kMargin;
  if (clientW < rowW + 2 * kMargin) clientW = rowW + 2 * kMargin;
  int buttonY = kMargin + textH + kMargin;
  int collapsedH = buttonY + kButtonHeight + kMargin;
  int expandedH = collapsedH + kDetailsHeight + kMargin;

  if (icon) {
    HWND ic = Child(dlg, "STATIC", nullptr, SS_ICON, kIdIcon, kMargin, kMargin, kIconSize, kIconSize);
    if (ic) SendMessageA(ic, STM_SETICON, reinterpret_cast<WPARAM>(LoadIconA(nullptr, icon)), 0);
  }
  Child(dlg, "STATIC", b.text, SS_LEFT | SS_NOPREFIX, kIdText, textX, kMargin, textW, textH);

  int defIndex = static_cast<int>((b.style & MB_DEFMASK) >> 8);
  if (defIndex >= b.buttonCount) defIndex = 0;
  int x = (clientW - rowW) / 2;
  HWND focus = nullptr;
  for (int i = 0; i < b.buttonCount; ++i) {
    DWORD bs = WS_TABSTOP | (i == defIndex ? BS_DEFPUSHBUTTON : BS_PUSHBUTTON);
    HWND h = Child(dlg, "BUTTON", b.buttons[i].label, bs, b.buttons[i].id, x, buttonY,
                   kButtonWidth, kButtonHeight);
    if (i == defIndex) focus = h;
    x += kButtonWidth + kButtonGap;
  }
  if (b.details) {
    Child(dlg, "BUTTON", "&Details >>", WS_TABSTOP | BS_PUSHBUTTON, kIdDetails, x, buttonY,
          kButtonWidth, kButtonHeight);
    HWND edit = Child(dlg, "EDIT", b.details,
                      WS_BORDER | WS_VSCROLL | WS_TABSTOP | ES_MULTILINE | ES_READONLY |
                          ES_AUTOVSCROLL,
                      kIdDetailsEdit, kMargin, collapsedH, clientW - 2 * kMargin, kDetailsHeight);
    if (edit) ShowWindow(edit, SW_HIDE);
  }
  if (!b.closable) EnableMenuItem(GetSystemMenu(dlg, FALSE), SC_CLOSE, MF_BYCOMMAND | MF_GRAYED);

  DWORD style = static_cast<DWORD>(GetWindowLongA(dlg, GWL_STYLE));
  DWORD exStyle = static_cast<DWORD>(GetWindowLongA(dlg, GWL_EXSTYLE));
  RECT wc = {0, 0, clientW, collapsedH};
  AdjustWindowRectEx(&wc, style, FALSE, exStyle);
  RECT we = {0, 0, clientW, expandedH};
  AdjustWindowRectEx(&we, style, FALSE, exStyle);
  b.collapsedHeight = wc.bottom - wc.top;
  b.expandedHeight = we.bottom - we.top;
  int w = wc.right - wc.left;

  // Centre over the owner, or over the screen's work area.
  RECT area;
  HWND owner = GetWindow(dlg, GW_OWNER);
  if (!owner || !GetWindowRect(owner, &area)) SystemParametersInfoA(SPI_GETWORKAREA, 0, &area, 0);
  int left = area.left + ((area.right - area.left) - w) / 2;
  int top = area.top + ((area.bottom - area.top) - b.collapsedHeight) / 2;
  HWND after = (b.style & (MB_TOPMOST | MB_SYSTEMMODAL)) ? HWND_TOPMOST : nullptr;
  SetWindowPos(dlg, after, left, top, w, b.collapsedHeight, after ? 0 : SWP_NOZORDER);
  if (focus) SetFocus(focus);
  if (b.style & MB_SETFOREGROUND) SetForegroundWindow(dlg);
}

INT_PTR CALLBACK BoxProc(HWND dlg, UINT msg, WPARAM wp, LPARAM lp) {
  Box *b = reinterpret_cast<Box *>(GetWindowLongPtrA(dlg, DWLP_USER));
  switch (msg) {
  case WM_INITDIALOG: {
    b = reinterpret_cast<Box *>(lp);
    SetWindowLongPtrA(dlg, DWLP_USER, lp);
    Layout(dlg, *b);
    CustomBoxInspector inspect = g_customBoxInspector;
    if (inspect) inspect(dlg);
    return FALSE;  // focus was set on the default button
  }
  case WM_COMMAND: {
    if (!b) return FALSE;
    int id = LOWORD(wp);
    if (id == kIdDetails) {
      ShowDetails(dlg, *b, !b->expanded);
      return TRUE;
    }
    if (id == IDCANCEL && HIWORD(wp) == BN_CLICKED && !GetDlgItem(dlg, IDCANCEL)) {
      // Esc or the close box: only boxes that MessageBox lets close answer.
      if (b->closable) EndDialog(dlg, b->closeAnswer);
      return TRUE;
    }
    for (int i = 0; i < b->buttonCount; ++i)
      if (b->buttons[i].id == id) {
        EndDialog(dlg, id);
        return TRUE;
      }
    return FALSE;
  }
  case WM_CLOSE:
    if (b && b->closable) EndDialog(dlg, b->closeAnswer);
    return TRUE;
  default:
    return FALSE;
  }
}

// In-memory dialog template: a captioned, centred modal frame with the dialog font and no
// controls (they are made in WM_INITDIALOG, sized to the text).
struct Template {
  WORD words[512];
  int n = 0;
  void Word(WORD w) {
    if (n < 512) words[n++] = w;
  }
  void Wide(const char *s) {
    wchar_t w[160];
    int len = MultiByteToWideChar(CP_ACP, 0, s, -1, w, 160);
    if (len <= 0) {
      w[0] = 0;
      len = 1;
    }
    w[159] = 0;
    for (int i = 0; i < len && w[i]; ++i) Word(static_cast<WORD>(w[i]));
    Word(0);
  }
};

int ShowBox(HWND owner, Box &b, const char *caption) {
  Template t;
  DWORD style = DS_MODALFRAME | DS_SETFONT | WS_POPUP | WS_CAPTION | WS_SYSMENU;
  t.Word(LOWORD(style));
  t.Word(HIWORD(style));
  t.Word(0);  // extended style
  t.Word(0);
  t.Word(0);  // no controls
  t.Word(0);  // x, y, cx, cy (replaced in WM_INITDIALOG)
  t.Word(0);
  t.Word(200);
  t.Word(100);
  t.Word(0);  // no menu
  t.Word(0);  // standard class
  t.Wide(caption);
  t.Word(8);  // font size in points
  t.Wide("MS Shell Dlg");
  INT_PTR r = DialogBoxIndirectParamA(g.module, reinterpret_cast<LPCDLGTEMPLATEA>(t.words), owner,
                                      BoxProc, reinterpret_cast<LPARAM>(&b));
  return r <= 0 ? 0 : static_cast<int>(r);
}

} // namespace
} // namespace ky

using namespace ky;

extern "C" int WINAPI KyMsgBox_Custom(HWND owner, UINT style, const char *details, const char *text) {
  return Guard<int>(0, [&]() -> int {
    char caption[128];
    ExpandTokens(caption, sizeof caption, "$(AppName)");
    if ((style & KYMB_DETAILS) != KYMB_DETAILS) details = nullptr;
    if (!text) text = "";
    CustomBoxHook hook = g_customBoxHook;
    if (hook) return hook(owner, style, details, text, caption);
    Box b;
    b.style = style & ~KYMB_DETAILS;
    b.text = text;
    b.details = details;
    ChooseButtons(b);
    return ShowBox(owner, b, caption);
  });
}

extern "C" CustomBoxHook WINAPI KyInternal_SetCustomBoxHook(CustomBoxHook hook) {
  return reinterpret_cast<CustomBoxHook>(InterlockedExchangePointer(
      reinterpret_cast<void *volatile *>(&g_customBoxHook), reinterpret_cast<void *>(hook)));
}

extern "C" CustomBoxInspector WINAPI KyInternal_SetCustomBoxInspector(CustomBoxInspector f) {
  return reinterpret_cast<CustomBoxInspector>(InterlockedExchangePointer(
      reinterpret_cast<void *volatile *>(&g_customBoxInspector), reinterpret_cast<void *>(f)));
}
