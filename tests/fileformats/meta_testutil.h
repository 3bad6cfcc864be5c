// Helpers of the metadata tests: byte builders for chunk files and scratch files under Wine.
#pragma once

#include <stdint.h>
#include <string.h>

#include <string>
#include <vector>

#include "ky_testutil.h"

namespace metatest {

using Bytes = std::vector<uint8_t>;

// Little-endian (le) or big-endian (be) integers of n bytes, and raw text.
inline void PutLe(Bytes &b, uint32_t v, int n = 4) {
  for (int i = 0; i < n; ++i) b.push_back((uint8_t)(v >> (8 * i)));
}
inline void PutBe(Bytes &b, uint32_t v, int n = 4) {
  for (int i = n - 1; i >= 0; --i) b.push_back((uint8_t)(v >> (8 * i)));
}
inline void PutLe(Bytes &b, std::initializer_list<uint32_t> values, int n = 4) {
  for (uint32_t v : values) PutLe(b, v, n);
}
// UTF-16 text with its terminator.
inline void PutWide(Bytes &b, const wchar_t *s) {
  do PutLe(b, (uint16_t)*s, 2);
  while (*s++);
}
inline void Put(Bytes &b, const std::string &s) { b.insert(b.end(), s.begin(), s.end()); }
inline void Put(Bytes &b, const Bytes &more) { b.insert(b.end(), more.begin(), more.end()); }
inline Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes b;
  for (const Bytes &p : parts) Put(b, p);
  return b;
}

// A chunk with a zero pad byte when odd: RIFF (little-endian size) or IFF (big-endian).
inline Bytes Chunk(const char *id, const Bytes &data, bool bigEndian = false) {
  Bytes b;
  Put(b, std::string(id, 4));
  bigEndian ? PutBe(b, (uint32_t)data.size()) : PutLe(b, (uint32_t)data.size());
  Put(b, data);
  if (data.size() & 1) b.push_back(0);
  return b;
}
inline Bytes Typed(const char *type, const Bytes &content) {
  Bytes d;
  Put(d, std::string(type, 4));
  Put(d, content);
  return d;
}
inline Bytes ListChunk(const char *type, const Bytes &c) { return Chunk("LIST", Typed(type, c)); }
inline Bytes Riff(const char *form, const Bytes &body) { return Chunk("RIFF", Typed(form, body)); }
inline Bytes IffChunk(const char *id, const Bytes &data) { return Chunk(id, data, true); }
inline Bytes IffForm(const char *type, const Bytes &c) { return Chunk("FORM", Typed(type, c), true); }

inline uint32_t Fourcc(const char *s) {
  return (uint32_t)(uint8_t)s[0] | ((uint32_t)(uint8_t)s[1] << 8) |
         ((uint32_t)(uint8_t)s[2] << 16) | ((uint32_t)(uint8_t)s[3] << 24);
}

inline std::string Scratch(const std::string &name) { return kytest::TempDir("meta") + name; }
inline std::string Data(const std::string &name) { return kytest::DataPath("meta/" + name); }

inline void WriteFileBytes(const std::string &path, const Bytes &b) {
  HANDLE h = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  DWORD put = 0;
  if (h != INVALID_HANDLE_VALUE) WriteFile(h, b.data(), (DWORD)b.size(), &put, nullptr);
  if (h != INVALID_HANDLE_VALUE) CloseHandle(h);
}

inline Bytes ReadFileBytes(const std::string &path) {
  HANDLE h = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                         OPEN_EXISTING, 0, nullptr);
  if (h == INVALID_HANDLE_VALUE) return {};
  Bytes b(GetFileSize(h, nullptr));
  DWORD got = 0;
  if (!b.empty()) ReadFile(h, b.data(), (DWORD)b.size(), &got, nullptr);
  b.resize(got);
  CloseHandle(h);
  return b;
}

// An open file, closed at the end of scope: a scratch file made from bytes (read and write
// access) or a bundled fixture of tests/data/meta (read only).
class File {
public:
  File(const std::string &name, const Bytes &content) : path_(Scratch(name)) {
    WriteFileBytes(path_, content);
    Open(GENERIC_READ | GENERIC_WRITE);
  }
  explicit File(const std::string &fixture) : path_(Data(fixture)) { Open(GENERIC_READ); }
  ~File() {
    if (h_ != INVALID_HANDLE_VALUE) CloseHandle(h_);
  }
  File(const File &) = delete;
  File &operator=(const File &) = delete;
  HANDLE h() const { return h_; }
  const std::string &path() const { return path_; }
  DWORD Pos() const { return SetFilePointer(h_, 0, nullptr, FILE_CURRENT); }
  void Seek(DWORD p) const { SetFilePointer(h_, (LONG)p, nullptr, FILE_BEGIN); }
  Bytes Contents() const { return ReadFileBytes(path_); }

private:
  void Open(DWORD access) {
    h_ = CreateFileA(path_.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                     OPEN_EXISTING, 0, nullptr);
  }
  std::string path_;
  HANDLE h_ = INVALID_HANDLE_VALUE;
};

}  // namespace metatest
