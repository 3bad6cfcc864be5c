// Helpers of the chunk tests: a byte builder for hand-made files and a scratch file handle.
#pragma once

#include "ky_testutil.h"

#include <string.h>
#include <string>
#include <vector>

namespace rifftest {

using Bytes = std::vector<BYTE>;

// Little-endian byte builder.
struct Builder {
  Bytes b;
  Builder &Raw(const void *p, size_t n) {
    for (size_t i = 0; i < n; ++i) b.push_back(static_cast<const BYTE *>(p)[i]);
    return *this;
  }
  Builder &Tag(const char *four) { return Raw(four, 4); }
  Builder &U32(DWORD v) { return Raw(&v, 4); }
  Builder &U64(ULONGLONG v) { return Raw(&v, 8); }
  Builder &Guid(const GUID &g) { return Raw(&g, 16); }
  Builder &Fill(size_t n, BYTE v = 0xAB) { b.insert(b.end(), n, v); return *this; }
  // A chunk of n data bytes (v, v+1, v+2, ..., not repeating every 256) and the pad byte of
  // an odd size.
  Builder &Chunk(const char *id, DWORD n, BYTE v = 0xAB) {
    Tag(id).U32(n);
    for (DWORD i = 0; i < n; ++i) b.push_back(BYTE(v + i + (i >> 8)));
    return Fill(n & 1, 0);
  }
  size_t size() const { return b.size(); }
};

inline DWORD Four(const char *s) {
  DWORD v;
  memcpy(&v, s, 4);
  return v;
}

// A scratch file, deleted when closed; starts with the given content, file pointer at 0.
class TempFile {
public:
  explicit TempFile(const Bytes &content = {}) {
    static int serial = 0;
    const std::string path = kytest::TempDir("riff") + std::to_string(GetCurrentProcessId()) +
                             "-" + std::to_string(++serial) + ".bin";
    h_ = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                     FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    DWORD w = 0;
    if (!content.empty()) WriteFile(h_, content.data(), DWORD(content.size()), &w, nullptr);
    Seek(0);
  }
  ~TempFile() { CloseHandle(h_); }
  TempFile(const TempFile &) = delete;
  TempFile &operator=(const TempFile &) = delete;

  HANDLE h() const { return h_; }
  ULONGLONG Pos() const {
    LARGE_INTEGER z{}, p{};
    SetFilePointerEx(h_, z, &p, FILE_CURRENT);
    return ULONGLONG(p.QuadPart);
  }
  void Seek(ULONGLONG pos) const {
    LARGE_INTEGER d;
    d.QuadPart = LONGLONG(pos);
    SetFilePointerEx(h_, d, nullptr, FILE_BEGIN);
  }
  // The whole content; the file pointer is kept.
  Bytes Content() const {
    const ULONGLONG keep = Pos();
    Bytes all(1 << 16);
    DWORD got = 0;
    Seek(0);
    ReadFile(h_, all.data(), DWORD(all.size()), &got, nullptr);
    all.resize(got);
    Seek(keep);
    return all;
  }

private:
  HANDLE h_;
};

template <class T>
T At(const Bytes &b, size_t off) {
  T v{};
  if (off + sizeof v <= b.size()) memcpy(&v, b.data() + off, sizeof v);
  return v;
}

} // namespace rifftest
