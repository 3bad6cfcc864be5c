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
  Builder &Tag(const char *four) { for (int i = 0; i < 4; ++i) b.push_back(BYTE(four[i])); return *this; }
  Builder &U32(DWORD v) { for (int i = 0; i < 4; ++i) b.push_back(BYTE(v >> (8 * i))); return *this; }
  Builder &U64(ULONGLONG v) { for (int i = 0; i < 8; ++i) b.push_back(BYTE(v >> (8 * i))); return *this; }
  Builder &Guid(const GUID &g) {
    const BYTE *p = reinterpret_cast<const BYTE *>(&g);
    for (int i = 0; i < 16; ++i) b.push_back(p[i]);
    return *this;
  }
  Builder &Fill(size_t n, BYTE v = 0xAB) { b.insert(b.end(), n, v); return *this; }
  Builder &Raw(const Bytes &more) { b.insert(b.end(), more.begin(), more.end()); return *this; }
  // A chunk with n data bytes of value v and the pad byte of an odd size.
  Builder &Chunk(const char *id, DWORD n, BYTE v = 0xAB) {
    Tag(id).U32(n).Fill(n, v);
    if (n & 1) b.push_back(0);
    return *this;
  }
  size_t size() const { return b.size(); }
};

inline DWORD Four(const char *s) {
  DWORD v;
  memcpy(&v, s, 4);
  return v;
}

inline std::string FourText(DWORD v) {
  std::string s(reinterpret_cast<const char *>(&v), 4);
  for (char &c : s) if (c < 32 || c > 126) c = '.';
  return s;
}

// A scratch file, deleted when closed; starts with the given content, file pointer at 0.
class TempFile {
public:
  explicit TempFile(const Bytes &content = {}, const char *name = "chunk.bin") {
    static int serial = 0;
    path_ = kytest::TempDir("riff") + std::to_string(GetCurrentProcessId()) + "-" +
            std::to_string(++serial) + "-" + name;
    h_ = CreateFileA(path_.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                     FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (!content.empty()) {
      DWORD w = 0;
      WriteFile(h_, content.data(), DWORD(content.size()), &w, nullptr);
    }
    Seek(0);
  }
  ~TempFile() { if (h_ != INVALID_HANDLE_VALUE) CloseHandle(h_); }
  TempFile(const TempFile &) = delete;
  TempFile &operator=(const TempFile &) = delete;

  HANDLE h() const { return h_; }
  bool ok() const { return h_ != INVALID_HANDLE_VALUE; }
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
  ULONGLONG Size() const {
    LARGE_INTEGER s{};
    GetFileSizeEx(h_, &s);
    return ULONGLONG(s.QuadPart);
  }
  // The whole content; the file pointer is kept.
  Bytes Content() const {
    const ULONGLONG keep = Pos();
    Bytes all(static_cast<size_t>(Size()));
    Seek(0);
    DWORD got = 0;
    if (!all.empty()) ReadFile(h_, all.data(), DWORD(all.size()), &got, nullptr);
    all.resize(got);
    Seek(keep);
    return all;
  }

private:
  std::string path_;
  HANDLE h_ = INVALID_HANDLE_VALUE;
};

inline DWORD U32At(const Bytes &b, size_t off) {
  DWORD v = 0;
  if (off + 4 <= b.size()) memcpy(&v, b.data() + off, 4);
  return v;
}
inline ULONGLONG U64At(const Bytes &b, size_t off) {
  ULONGLONG v = 0;
  if (off + 8 <= b.size()) memcpy(&v, b.data() + off, 8);
  return v;
}

} // namespace rifftest
