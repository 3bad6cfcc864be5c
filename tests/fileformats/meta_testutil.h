// Helpers of the metadata tests: byte builders for chunk files and scratch files under Wine.
#pragma once

#include <stdint.h>
#include <string.h>

#include <string>
#include <vector>

#include "ky_testutil.h"

namespace metatest {

using Bytes = std::vector<uint8_t>;

inline void Put32le(Bytes &b, uint32_t v) {
  for (int i = 0; i < 4; ++i) b.push_back((uint8_t)(v >> (8 * i)));
}
inline void Put16le(Bytes &b, uint16_t v) {
  b.push_back((uint8_t)v);
  b.push_back((uint8_t)(v >> 8));
}
inline void Put32be(Bytes &b, uint32_t v) {
  for (int i = 3; i >= 0; --i) b.push_back((uint8_t)(v >> (8 * i)));
}
inline void Put16be(Bytes &b, uint16_t v) {
  b.push_back((uint8_t)(v >> 8));
  b.push_back((uint8_t)v);
}
inline void PutText(Bytes &b, const std::string &s) { b.insert(b.end(), s.begin(), s.end()); }
inline void Append(Bytes &b, const Bytes &more) { b.insert(b.end(), more.begin(), more.end()); }

// A little-endian RIFF chunk (id as 4 characters) with a zero pad byte when odd.
inline Bytes Chunk(const char *id, const Bytes &data) {
  Bytes b;
  PutText(b, std::string(id, 4));
  Put32le(b, (uint32_t)data.size());
  Append(b, data);
  if (data.size() & 1) b.push_back(0);
  return b;
}
inline Bytes ListChunk(const char *type, const Bytes &content) {
  Bytes d;
  PutText(d, std::string(type, 4));
  Append(d, content);
  return Chunk("LIST", d);
}
inline Bytes Riff(const char *form, const Bytes &body) {
  Bytes d;
  PutText(d, std::string(form, 4));
  Append(d, body);
  return Chunk("RIFF", d);
}
// A big-endian IFF chunk.
inline Bytes IffChunk(const char *id, const Bytes &data) {
  Bytes b;
  PutText(b, std::string(id, 4));
  Put32be(b, (uint32_t)data.size());
  Append(b, data);
  if (data.size() & 1) b.push_back(0);
  return b;
}

// A "FORM" of the given type around big-endian chunks.
inline Bytes IffForm(const char *type, const Bytes &chunks) {
  Bytes f;
  PutText(f, "FORM");
  Put32be(f, (uint32_t)(4 + chunks.size()));
  PutText(f, std::string(type, 4));
  Append(f, chunks);
  return f;
}

inline uint32_t Fourcc(const char *s) {
  return (uint32_t)(uint8_t)s[0] | ((uint32_t)(uint8_t)s[1] << 8) |
         ((uint32_t)(uint8_t)s[2] << 16) | ((uint32_t)(uint8_t)s[3] << 24);
}

inline std::string Scratch(const std::string &name) { return kytest::TempDir("meta") + name; }

inline void WriteFileBytes(const std::string &path, const Bytes &b) {
  HANDLE h = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  DWORD put = 0;
  if (h != INVALID_HANDLE_VALUE) {
    WriteFile(h, b.data(), (DWORD)b.size(), &put, nullptr);
    CloseHandle(h);
  }
}

inline Bytes ReadFileBytes(const std::string &path) {
  Bytes b;
  HANDLE h = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                         OPEN_EXISTING, 0, nullptr);
  if (h == INVALID_HANDLE_VALUE) return b;
  b.resize(GetFileSize(h, nullptr));
  DWORD got = 0;
  if (!b.empty()) ReadFile(h, b.data(), (DWORD)b.size(), &got, nullptr);
  b.resize(got);
  CloseHandle(h);
  return b;
}

// A file handle for reading and writing, closed (and the file kept) at the end of scope.
class TempFile {
public:
  TempFile(const std::string &name, const Bytes &content) : path_(Scratch(name)) {
    WriteFileBytes(path_, content);
    h_ = CreateFileA(path_.c_str(), GENERIC_READ | GENERIC_WRITE,
                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                     OPEN_EXISTING, 0, nullptr);
  }
  ~TempFile() {
    if (h_ != INVALID_HANDLE_VALUE) CloseHandle(h_);
  }
  TempFile(const TempFile &) = delete;
  TempFile &operator=(const TempFile &) = delete;
  HANDLE h() const { return h_; }
  const std::string &path() const { return path_; }
  DWORD Pos() const { return SetFilePointer(h_, 0, nullptr, FILE_CURRENT); }
  void Seek(DWORD p) const { SetFilePointer(h_, (LONG)p, nullptr, FILE_BEGIN); }
  Bytes Contents() const {
    FlushFileBuffers(h_);
    return ReadFileBytes(path_);
  }

private:
  std::string path_;
  HANDLE h_;
};

// A read-only handle on a bundled fixture of tests/data/meta.
class Fixture {
public:
  explicit Fixture(const std::string &name) : path_(kytest::DataPath("meta/" + name)) {
    h_ = CreateFileA(path_.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                     nullptr);
  }
  ~Fixture() {
    if (h_ != INVALID_HANDLE_VALUE) CloseHandle(h_);
  }
  Fixture(const Fixture &) = delete;
  Fixture &operator=(const Fixture &) = delete;
  HANDLE h() const { return h_; }
  const std::string &path() const { return path_; }

private:
  std::string path_;
  HANDLE h_;
};

}  // namespace metatest
