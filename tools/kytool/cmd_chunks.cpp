// kytool chunks: the chunk tree of a RIFF or 64-bit RIFF file, walked with the library's
// chunk functions. A damaged file is reported with the status the library returned and its
// text, and the command then fails (exit code 1).
#include "kytool.h"

#include <stdio.h>
#include <string.h>
#include <string>

#include "ky_error.h"
#include "ky_riff64.h"

namespace {

constexpr int kMaxDepth = 32; // deeper lists are listed but not opened

// The status code and the error handler's text for it, without the message's leading blank
// lines.
std::string StatusText(HRESULT hr) {
  const char *t = KyErrorHandler_GetHresultString(hr);
  char code[16];
  snprintf(code, sizeof code, "0x%08lX", static_cast<unsigned long>(hr));
  if (!t) return code;
  while (*t == '\n' || *t == '\r') ++t;
  return std::string(code) + ": " + t;
}

std::string Four(DWORD v) {
  std::string s(reinterpret_cast<const char *>(&v), 4);
  for (char &c : s)
    if (c < 32 || c > 126) c = '?';
  return "'" + s + "'";
}

std::string GuidText(const GUID &g) {
  char b[64];
  snprintf(b, sizeof b, "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
           static_cast<unsigned long>(g.Data1), g.Data2, g.Data3, g.Data4[0], g.Data4[1],
           g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
  std::string s = b;
  // Most identifiers of this container carry a four-character name in their first bytes.
  const BYTE *p = reinterpret_cast<const BYTE *>(&g);
  bool printable = true;
  for (int i = 0; i < 4; ++i) printable = printable && p[i] >= 32 && p[i] <= 126;
  if (printable) s += " " + Four(g.Data1);
  return s;
}

std::string Indent(int depth) { return std::string(2 * depth, ' '); }

struct Walk {
  HANDLE h;
  ULONGLONG fileSize;
  unsigned chunks = 0, lists = 0;
  bool damaged = false;

  void Problem(int depth, const std::string &what, HRESULT hr) {
    printf("%s! %s: %s\n", Indent(depth).c_str(), what.c_str(), StatusText(hr).c_str());
    damaged = true;
  }

  // Flags a chunk whose data runs past the end of the file (reading it gives the read
  // error); true when it does, and nothing after it can be read.
  bool PastEnd(int depth, ULONGLONG dataStart, ULONGLONG size) {
    const ULONGLONG left = dataStart < fileSize ? fileSize - dataStart : 0;
    if (size <= left) return false;
    Problem(depth, "data of " + std::to_string(size) + " bytes, but only " + std::to_string(left) +
                       " left in the file", KYERR_FILE_READ);
    return true;
  }

  // The chunks of one container level, [pos, pos + count).
  void Riff(int depth, LONGLONG count) {
    while (count >= 8) {
      DWORD pos = 0, id = 0, size = 0;
      riff_SaveLocation(h, &pos);
      HRESULT hr = riff_ReadChunkHeader(h, &id, &size);
      if (FAILED(hr)) return Problem(depth, "chunk header at " + std::to_string(pos), hr);
      const ULONGLONG padded = ULONGLONG(size) + (size & 1);
      ++chunks;
      DWORD type = 0, inner = 0;
      bool past = false;
      if (id == KY_RIFF_ID_LIST) {
        riff_RestoreLocation(h, pos);
        hr = riff_ReadListHeader(h, &type, &inner);
        if (hr == KYERR_FILE_READ) return Problem(depth, "list header at " + std::to_string(pos), hr);
      }
      if (id == KY_RIFF_ID_LIST && SUCCEEDED(hr)) {
        ++lists;
        printf("%s%-10lu %s  size %lu  type %s\n", Indent(depth).c_str(), (unsigned long)pos,
               Four(id).c_str(), (unsigned long)size, Four(type).c_str());
        past = PastEnd(depth + 1, ULONGLONG(pos) + 8, size);
        if (depth >= kMaxDepth)
          printf("%s(nested deeper than %d levels: contents not shown)\n", Indent(depth + 1).c_str(), kMaxDepth);
        else
          Riff(depth + 1, inner);
      } else {
        printf("%s%-10lu %s  size %lu%s\n", Indent(depth).c_str(), (unsigned long)pos,
               Four(id).c_str(), (unsigned long)size, (size & 1) ? " (+1 pad)" : "");
        if (riff_ValidateChunkHeader(id, LONG(size)) == KYERR_CHUNK_BAD_LENGTH)
          Problem(depth + 1, "size above 2 GiB", KYERR_CHUNK_BAD_LENGTH);
        past = PastEnd(depth + 1, ULONGLONG(pos) + 8, size);
        if ((size & 1) && ULONGLONG(pos) + 8 + size == fileSize)
          printf("%s(the pad byte is missing at the end of the file)\n", Indent(depth + 1).c_str());
        if (FAILED(hr)) Problem(depth + 1, "a LIST with no room for its type", hr);
      }
      riff_RestoreLocation(h, pos + 8);
      riff_SkipChunk(h, size);
      count -= LONGLONG(8 + padded);
      if (past) return;
    }
    if (count > 0)
      printf("%s(%lld bytes left over, too few for a chunk header)\n", Indent(depth).c_str(), (long long)count);
  }

  void Riff64(int depth, LONGLONG count) {
    const GUID list = KY_RIFF64_GUID_LIST_INIT;
    while (count >= KY_RIFF64_HEADER_SIZE) {
      ULONGLONG pos = 0, size = 0;
      GUID id{};
      riff64_SaveLocation(h, &pos);
      HRESULT hr = riff64_ReadChunkHeader(h, &id, &size);
      if (FAILED(hr)) return Problem(depth, "chunk header at " + std::to_string(pos), hr);
      const ULONGLONG stored = size + KY_RIFF64_HEADER_SIZE;
      ++chunks;
      if (stored < KY_RIFF64_HEADER_SIZE)
        return Problem(depth, "chunk at " + std::to_string(pos) + " stores size " + std::to_string(stored),
                       stored == 0 ? KYERR_CHUNK_ZERO_LENGTH : KYERR_CHUNK_BAD_LENGTH);
      const ULONGLONG padded = (size + 7) & ~ULONGLONG(7);
      GUID type{};
      ULONGLONG inner = 0;
      bool past = false;
      if (memcmp(&id, &list, sizeof id) == 0) {
        riff64_RestoreLocation(h, pos);
        hr = riff64_ReadListHeader(h, &type, &inner);
        if (hr == KYERR_FILE_READ) return Problem(depth, "list header at " + std::to_string(pos), hr);
      }
      if (memcmp(&id, &list, sizeof id) == 0 && SUCCEEDED(hr)) {
        ++lists;
        printf("%s%-10llu list  size %llu  type %s\n", Indent(depth).c_str(), pos, size,
               GuidText(type).c_str());
        past = PastEnd(depth + 1, pos + KY_RIFF64_HEADER_SIZE, size);
        if (depth >= kMaxDepth)
          printf("%s(nested deeper than %d levels: contents not shown)\n", Indent(depth + 1).c_str(), kMaxDepth);
        else
          Riff64(depth + 1, LONGLONG(inner));
      } else {
        printf("%s%-10llu %s  size %llu\n", Indent(depth).c_str(), pos, GuidText(id).c_str(), size);
        past = PastEnd(depth + 1, pos + KY_RIFF64_HEADER_SIZE, size);
        if (FAILED(hr)) Problem(depth + 1, "a list with no room for its type", hr);
      }
      riff64_RestoreLocation(h, pos + KY_RIFF64_HEADER_SIZE);
      riff64_SkipChunk(h, size);
      if (past) return;
      count -= LONGLONG(KY_RIFF64_HEADER_SIZE + padded);
    }
    if (count > 0)
      printf("%s(%lld bytes left over, too few for a chunk header)\n", Indent(depth).c_str(), (long long)count);
  }
};

// One file's tree; 0 when it is sound, 1 when it is damaged or cannot be opened.
int ChunksOf(const std::string &path) {
  HANDLE h = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE) {
    fprintf(stderr, "kytool: cannot open %s: %s\n", path.c_str(), StatusText(KYERR_FILE_OPEN).c_str());
    return 1;
  }
  LARGE_INTEGER fs{};
  GetFileSizeEx(h, &fs);
  Walk w{h, ULONGLONG(fs.QuadPart)};
  printf("%s: %llu bytes\n", path.c_str(), w.fileSize);

  // The 64-bit form is recognised by its file-header GUID, the 32-bit one by "RIFF".
  ULONGLONG size64 = 0;
  GUID form64{};
  DWORD size = 0, form = 0;
  HRESULT hr = riff64_ReadFileID(h, &size64, &form64);
  if (SUCCEEDED(hr)) {
    printf("64-bit RIFF  form %s  size %llu\n", GuidText(form64).c_str(), size64 + 40);
    if (size64 + 40 != w.fileSize)
      printf("  (the header counts %llu bytes, the file has %llu)\n", size64 + 40, w.fileSize);
    w.Riff64(1, LONGLONG(size64));
  } else {
    riff_RestoreLocation(h, 0);
    hr = riff_ReadFileID(h, &size, &form);
    if (FAILED(hr)) {
      w.Problem(0, "RIFF file header", hr);
    } else {
      printf("RIFF  form %s  size %lu\n", Four(form).c_str(), (unsigned long)size + 4);
      if (ULONGLONG(size) + 12 != w.fileSize)
        printf("  (the header counts %llu bytes, the file has %llu)\n", ULONGLONG(size) + 12, w.fileSize);
      w.Riff(1, LONGLONG(size));
    }
  }
  CloseHandle(h);
  printf("%u chunks, %u lists%s\n", w.chunks, w.lists, w.damaged ? ", damaged" : "");
  return w.damaged ? 1 : 0;
}

int Chunks(const kytool::Args &args) {
  if (args.empty()) {
    fprintf(stderr, "usage: kytool chunks FILE...\n");
    return 2;
  }
  int rc = 0;
  for (size_t i = 0; i < args.size(); ++i) {
    if (i) printf("\n");
    rc |= ChunksOf(args[i]);
  }
  return rc;
}

int ChunksDemo(const kytool::Args &) {
  int rc = Chunks({kytool::SamplePath("markers.wav")});
  printf("\n");
  rc |= Chunks({kytool::SamplePath("tone.w64")});
  printf("\n");
  // A damaged copy: the walk stops with the library's status instead of failing silently.
  if (Chunks({kytool::SamplePath("truncated.wav")}) != 1) rc = 1;
  return rc;
}

} // namespace

KYTOOL_COMMAND("chunks", "FILE...", "print the chunk tree of RIFF and 64-bit RIFF files", Chunks,
               ChunksDemo, 50);
