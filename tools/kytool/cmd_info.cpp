// kytool info: what a user wants to know about a media file - its audio format, length,
// markers and regions, INFO text, display formats and metadata side file - read with the
// library's metadata functions only.
#include "kytool.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <vector>

#include "ky_audio.h"
#include "ky_displist.h"
#include "ky_fmmeta.h"
#include "ky_iff.h"
#include "ky_list.h"
#include "ky_riff.h"
#include "ky_status.h"
#include "ky_summary.h"

namespace {

using kytool::StatusText;

// The format as the audio family's text functions describe it.
std::string FormatText(const WAVEFORMATEX &w) {
  char tag[128] = "", attr[128] = "";
  KyAudio_GetTagText(w.wFormatTag, tag, sizeof tag);  // "Unknown" for a tag nobody knows
  KyAudio_GetAttribsText(&w, attr, sizeof attr);
  char out[300];
  snprintf(out, sizeof out, "%s, %s (tag 0x%04X)", tag, attr, w.wFormatTag);
  return out;
}

// 100-nanosecond units as h:mm:ss.mmm.
std::string Time(LONGLONG t) {
  if (t < 0) t = 0;
  LONGLONG ms = t / 10000;
  char b[48];
  snprintf(b, sizeof b, "%lld:%02lld:%02lld.%03lld", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60,
           ms % 1000);
  return b;
}

bool g_problems = false;  // a reader reported a damaged file

// Wide text for the console, cut to 60 characters.
std::string Narrow(const WCHAR *w) {
  char b[4096];
  if (!WideCharToMultiByte(CP_ACP, 0, w, -1, b, sizeof b, nullptr, nullptr)) return "?";
  b[sizeof b - 1] = 0;
  std::string s = b;
  if (s.size() > 60) s = s.substr(0, 57) + "... (" + std::to_string(s.size()) + " characters)";
  return s;
}

std::string Four(DWORD v) {
  std::string s(reinterpret_cast<const char *>(&v), 4);
  for (char &c : s)
    if (c < 32 || c > 126) c = '?';
  return s;
}

void PrintCues(HANDLE h, DWORD rate) {
  HKYLIST list = nullptr;
  if (FAILED(KyList_CreateExZ(&list, 0, 0, 0, KYLIST_HEAPITEMS, 0, 0, 0))) return;
  HRESULT hr = KyFMMeta_fillCuesFromFile(h, rate, list);
  LONG markers = 0, regions = 0;
  for (LONG i = 0; i < list->count; ++i)
    (reinterpret_cast<KYCUERECORD **>(list->items)[i]->isRegion ? regions : markers)++;
  if (list->count == 0)
    printf("Markers:    none\n");
  else
    printf("Markers:    %ld marker%s, %ld region%s\n", (long)markers, markers == 1 ? "" : "s",
           (long)regions, regions == 1 ? "" : "s");
  for (LONG i = 0; i < list->count; ++i) {
    const KYCUERECORD *r = reinterpret_cast<KYCUERECORD **>(list->items)[i];
    std::string name = r->name[0] ? "\"" + Narrow(r->name) + "\"" : "(no name)";
    if (r->isRegion)
      printf("  %3ld  %s - %s  (%s)  region %s\n", (long)i + 1, Time(r->position).c_str(),
             Time(r->position + r->length).c_str(), Time(r->length).c_str(), name.c_str());
    else
      printf("  %3ld  %s  marker %s\n", (long)i + 1, Time(r->position).c_str(), name.c_str());
  }
  if (FAILED(hr)) {
    printf("  ! cue points: %s\n", StatusText(hr).c_str());
    g_problems = true;
  }
  KyList_Destroy(list);
}

// AIFF markers: the MARK chunk read with the IFF functions.
void PrintAiffMarkers(HANDLE h, DWORD rate) {
  DWORD size = 0;
  WORD count = 0;
  if (FAILED(iff_FindChunkFromStart(h, KYIFF_MARK, &size)) || FAILED(iff_ReadWORD(h, &count))) {
    printf("Markers:    none\n");
    return;
  }
  printf("Markers:    %u marker%s\n", count, count == 1 ? "" : "s");
  LONG left = (LONG)size - 2;
  for (WORD i = 0; i < count && left >= 7; ++i) {
    WORD id = 0;
    DWORD pos = 0;
    BYTE len = 0;
    DWORD got = 0;
    if (FAILED(iff_ReadWORD(h, &id)) || FAILED(iff_ReadDWORD(h, &pos)) ||
        !ReadFile(h, &len, 1, &got, nullptr) || got != 1)
      break;
    char name[256] = "";
    if (!ReadFile(h, name, len, &got, nullptr)) break;
    name[got] = 0;
    if (!(len & 1)) SetFilePointer(h, 1, nullptr, FILE_CURRENT);
    left -= 7 + len + !(len & 1);
    LONGLONG t = rate ? (LONGLONG)((double)pos / rate * 1e7 + 0.5) : 0;
    printf("  %3u  %s  marker %u \"%s\"\n", i + 1u, Time(t).c_str(), id, name);
  }
}

void PrintInfo(HANDLE h) {
  HKYLIST list = nullptr;
  if (FAILED(KyList_CreateExZ(&list, 0, 0, 0, KYLIST_HEAPITEMS, 0, 0, 0))) return;
  HRESULT hr = KyFMMeta_fillSummaryFromFile(h, list);
  if (hr == KYERR_NOT_FOUND || list->count == 0) {
    printf("Info:       none\n");
  } else {
    printf("Info:       %ld item%s\n", (long)list->count, list->count == 1 ? "" : "s");
    for (LONG i = 0; i < list->count; ++i) {
      const KYSUMMARYRECORD *r = reinterpret_cast<KYSUMMARYRECORD **>(list->items)[i];
      printf("  %s  %s\n", Four(r->id).c_str(), Narrow(r->text).c_str());
    }
  }
  if (FAILED(hr) && hr != KYERR_NOT_FOUND) {
    printf("  ! info: %s\n", StatusText(hr).c_str());
    g_problems = true;
  }
  KyList_Destroy(list);
}

std::string FormatName(DWORD f) {
  switch (f) {
    case CF_TEXT: return "text";
    case CF_BITMAP: return "bitmap";
    case CF_METAFILEPICT: return "metafile picture";
    case CF_DIB: return "DIB";
    case CF_ENHMETAFILE: return "enhanced metafile";
    case CF_UNICODETEXT: return "Unicode text";
  }
  char b[128];
  if (GetClipboardFormatNameA(f, b, sizeof b) > 0) return b;
  snprintf(b, sizeof b, "format %lu", (unsigned long)f);
  return b;
}

// Returns whether a DIB is among them (its bitmap is made once the file is closed: the bitmap
// maker opens the file without sharing).
bool PrintDisplay(HANDLE h) {
  // Which formats are there: each top-level DISP chunk's format number.
  std::vector<DWORD> formats;
  SetFilePointer(h, 0, nullptr, FILE_BEGIN);
  DWORD riffSize = 0;
  if (SUCCEEDED(riff_ReadFileID(h, &riffSize, nullptr))) {
    LONG left = (LONG)riffSize;
    DWORD size = 0;
    while (SUCCEEDED(riff_FindChunkHeader(h, 0x50534944 /* "DISP" */, &size, &left))) {
      DWORD f = 0, got = 0;
      if (size >= 4 && ReadFile(h, &f, 4, &got, nullptr) && got == 4) formats.push_back(f);
      SetFilePointer(h, size >= 4 ? -4 : 0, nullptr, FILE_CURRENT);
      left -= (LONG)riff_SkipChunk(h, size);
    }
  }
  if (formats.empty()) {
    printf("Display:    none\n");
    return false;
  }
  // Load them all to report their sizes.
  std::vector<KYDISPITEM> items;
  for (DWORD f : formats) items.push_back({f, 0, nullptr});
  KYDISPLIST list = {(DWORD)items.size(), items.data()};
  SetFilePointer(h, 0, nullptr, FILE_BEGIN);
  riff_ReadFileID(h, &riffSize, nullptr);
  LONG left = (LONG)riffSize;
  HRESULT hr = displist_Load(h, &list, &left);
  printf("Display:    %u format%s\n", (unsigned)formats.size(), formats.size() == 1 ? "" : "s");
  for (const KYDISPITEM &it : items) {
    if (&it != displist_GetItem(&list, it.format)) continue;  // listed once
    printf("  %s, %lu bytes\n", FormatName(it.format).c_str(), (unsigned long)it.size);
  }
  if (FAILED(hr)) {
    printf("  ! display chunks: %s\n", StatusText(hr).c_str());
    g_problems = true;
  }
  displist_Free(&list);
  return displist_GetItem(&list, CF_DIB) != nullptr;
}

void PrintBitmap(const std::string &path) {
  HBITMAP bmp = displist_CreateBitmapFromFile(path.c_str());
  BITMAP bm = {};
  if (bmp && GetObject(bmp, sizeof bm, &bm))
    printf("  picture:  %ld x %ld bitmap made from the DIB\n", (long)bm.bmWidth,
           (long)bm.bmHeight);
  else
    printf("  picture:  no bitmap could be made from the DIB\n");
  if (bmp) DeleteObject(bmp);
}

void PrintSideFile(const std::string &path) {
  char side[MAX_PATH + 8];
  if (FAILED(KyFMMeta_CreateMetaName(path.c_str(), side, sizeof side, FALSE))) return;
  bool exists = GetFileAttributesA(side) != INVALID_FILE_ATTRIBUTES;
  const char *state = !exists ? "not present"
                      : KyFMMeta_IsMetaFile(path.c_str(), side)
                          ? "attached to this file"
                          : "present, attached to another file";
  printf("Side file:  %s (%s)\n", side, state);
}

// Exit code 1 when the file cannot be described or a reader reported damage.
int Info(const kytool::Args &args) {
  g_problems = false;
  if (args.size() != 1) {
    fprintf(stderr, "usage: kytool info FILE\n");
    return 2;
  }
  // The library's path helpers split names at backslashes and colons only.
  std::string path = args[0];
  for (char &c : path)
    if (c == '/') c = '\\';
  HANDLE h = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE) {
    fprintf(stderr, "kytool: cannot open %s: %s\n", path.c_str(),
            StatusText(KYERR_FILE_OPEN).c_str());
    return 1;
  }
  printf("File:       %s\n", path.c_str());
  ULONGLONG frames = 0, offset = 0;
  WAVEFORMATEX *wfx = KyGetFileWfx(path.c_str(), &frames, &offset);
  DWORD rate = 0;
  bool aiff = iff_IsAIFFFile(h, nullptr) != FALSE;
  if (wfx) {
    rate = wfx->nSamplesPerSec;
    printf("Container:  %s\n", aiff ? "AIFF" : "RIFF WAVE");
    printf("Format:     %s\n", FormatText(*wfx).c_str());
    LONGLONG t = rate ? (LONGLONG)((double)frames / rate * 1e7 + 0.5) : 0;
    printf("Length:     %llu frames (%s)\n", frames, Time(t).c_str());
    printf("Audio data: at byte %llu\n", offset);
    free(wfx);
  } else {
    printf("Format:     not described (the probe takes WAVE files with PCM, IEEE float or the\n"
           "            private tags FE00-FE02, and plain AIFF files)\n");
    g_problems = true;
  }
  bool dib = false;
  if (aiff) {
    PrintAiffMarkers(h, rate);
  } else {
    SetFilePointer(h, 0, nullptr, FILE_BEGIN);
    DWORD riffSize = 0;
    if (SUCCEEDED(riff_ReadFileID(h, &riffSize, nullptr))) {
      PrintCues(h, rate);
      PrintInfo(h);
      dib = PrintDisplay(h);
    }
  }
  CloseHandle(h);
  if (dib) PrintBitmap(path);
  PrintSideFile(path);
  return g_problems ? 1 : 0;
}

int InfoDemo(const kytool::Args &) {
  int rc = Info({kytool::SamplePath("meta_take.wav")});
  printf("\n");
  rc |= Info({kytool::SamplePath("meta_tone.aiff")});
  return rc;
}

}  // namespace

KYTOOL_COMMAND("info", "FILE",
               "describe a media file: format, length, markers, INFO text, pictures, side file",
               Info, InfoDemo, 55);
