// Files made by independent writers (tests/data/riff, see its README) read with the chunk
// functions, and the damaged variants: each gives a status of the family, never a hang.
#include "ky_riff64.h"
#include "riff_testutil.h"

#include <algorithm>

using namespace rifftest;

namespace {

const GUID kFmt = {0x20746D66, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
const GUID kData = {0x61746164, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};

HANDLE OpenData(const std::string &name) {
  return CreateFileA(kytest::DataPath("riff/" + name).c_str(), GENERIC_READ, FILE_SHARE_READ,
                     nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

std::string Text(DWORD four) { return std::string(reinterpret_cast<const char *>(&four), 4); }

// The chunk tree below the current position, one line per chunk ("depth @offset id size
// [type]"), read with the library's counting, header and skipping functions.
HRESULT Walk(HANDLE h, LONG count, int depth, std::vector<std::string> &out) {
  DWORD entries = 0;
  HRESULT hr = riff_GetNumListEntries(h, &entries, &count);
  for (DWORD i = 0; i < entries && SUCCEEDED(hr); ++i) {
    DWORD pos = 0, id = 0, size = 0, type = 0, inner = 0;
    riff_SaveLocation(h, &pos);
    hr = riff_ReadChunkHeader(h, &id, &size);
    std::string line = std::to_string(depth) + " @" + std::to_string(pos) + " " + Text(id) + " " +
                       std::to_string(size);
    if (SUCCEEDED(hr) && id == KY_RIFF_ID_LIST) {
      riff_RestoreLocation(h, pos);
      hr = riff_ReadListHeader(h, &type, &inner);
      out.push_back(line + " " + Text(type));
      if (SUCCEEDED(hr)) hr = Walk(h, LONG(inner), depth + 1, out);
    } else {
      out.push_back(line);
    }
    riff_RestoreLocation(h, pos + 8);
    riff_SkipChunk(h, size);
  }
  return hr;
}

// Layouts as the writers document them (fmt/fact/data of SoX, INFO and "cue " of libsndfile,
// "cue " + "adtl" + INFO of wavefile), offsets checked against a hex dump.
const struct { const char *file; std::vector<std::string> layout; } kFixtures[] = {
    {"sox_s16.wav", {"1 @12 fmt  16", "1 @36 data 80"}},
    {"sox_s24_odd.wav", {"1 @12 fmt  40", "1 @60 fact 4", "1 @72 data 9"}},
    {"sox_f32.wav", {"1 @12 fmt  18", "1 @38 fact 4", "1 @50 data 32"}},
    {"sndfile_cue.wav", {"1 @12 fmt  16", "1 @36 LIST 32 INFO", "2 @48 INAM 6", "2 @62 IART 6",
                         "1 @76 cue  52", "1 @136 data 100"}},
    {"wavefile_markers.wav", {"1 @12 fmt  16", "1 @36 data 1600", "1 @1644 cue  52",
                              "1 @1704 LIST 76 adtl", "2 @1716 labl 10", "2 @1734 labl 11",
                              "2 @1754 ltxt 26", "1 @1788 LIST 20 INFO", "2 @1800 INAM 8"}},
};

TEST(RiffFixtures, LayoutsOfIndependentWriters) {
  for (const auto &fx : kFixtures) {
    HANDLE h = OpenData(fx.file);
    ASSERT_NE(INVALID_HANDLE_VALUE, h) << fx.file;
    DWORD size = 0, form = 0;
    ASSERT_EQ(S_OK, riff_ReadFileID(h, &size, &form)) << fx.file;
    EXPECT_EQ(Four("WAVE"), form);
    EXPECT_EQ(GetFileSize(h, nullptr), size + 12) << fx.file;
    std::vector<std::string> got;
    EXPECT_EQ(S_OK, Walk(h, LONG(size), 1, got)) << fx.file;
    EXPECT_EQ(fx.layout, got) << fx.file;
    // The searches find the data and every top-level list where the walk saw them.
    ASSERT_EQ(S_OK, riff_FindChunkHeaderInRIFF(h, Four("data"), &size, nullptr)) << fx.file;
    RIFFDATA d = {size, nullptr};
    ASSERT_EQ(S_OK, riff_ReadDataAlloc(h, &d)) << fx.file;
    GlobalUnlock(GlobalHandle(d.data));
    GlobalFree(GlobalHandle(d.data));
    for (const std::string &line : fx.layout) {
      if (line.compare(0, 2, "1 ") != 0 || line.find(" LIST ") == std::string::npos) continue;
      ASSERT_EQ(S_OK, riff_FindListChunkFromStart(h, Four(line.c_str() + line.size() - 4), &size));
      DWORD pos = 0;
      riff_SaveLocation(h, &pos);
      EXPECT_EQ(line, "1 @" + std::to_string(pos - 12) + " LIST " + std::to_string(size + 4) + " " +
                          line.substr(line.size() - 4));
    }
    CloseHandle(h);
  }
}

TEST(RiffFixtures, Wave64FromLibsndfile) {
  // sndfile_odd.w64 ends its 50 data bytes without padding to 8 (the writer's habit).
  const struct { const char *file; ULONGLONG fileSize, dataSize; } rows[] = {
      {"sndfile_s16.w64", 204, 100}, {"sndfile_odd.w64", 154, 50}};
  for (const auto &r : rows) {
    HANDLE h = OpenData(r.file);
    ASSERT_NE(INVALID_HANDLE_VALUE, h);
    ULONGLONG size = 0;
    LONGLONG rem = 0;
    ASSERT_EQ(S_OK, riff64_FindChunkHeaderInRIFF(h, kFmt, &size, &rem)) << r.file;
    EXPECT_EQ(16u, size);
    EXPECT_EQ(LONGLONG(r.fileSize - 64), rem);
    ASSERT_EQ(S_OK, riff64_FindChunkHeaderInRIFF(h, kData, &size, &rem)) << r.file;
    EXPECT_EQ(r.dataSize, size);
    std::vector<BYTE> buf(static_cast<size_t>(size));
    EXPECT_EQ(S_OK, riff64_ReadData(h, buf.data(), size));
    riff64_SeekDataStart(h);
    DWORD count = 0;
    rem = LONGLONG(r.fileSize - 40);
    EXPECT_EQ(S_OK, riff64_GetNumListEntries(h, &count, &rem)) << r.file;
    EXPECT_EQ(2u, count);
    CloseHandle(h);
  }
}

// What each damaged file answers to a top-level search for the data (README.md says why),
// and the status of reading the data where it is found.
TEST(RiffDamaged, StatusesOfDamagedFiles) {
  const struct { const char *file; HRESULT find, read; } rows[] = {
      {"not_riff.bin", KYERR_RIFF_MISSING, 0}, {"empty.wav", KYERR_RIFF_MISSING, 0},
      {"short_header.wav", KYERR_FILE_READ, 0}, {"rifx.wav", KYERR_RIFF_MISSING, 0},
      {"truncated_header.wav", KYERR_FILE_READ, 0}, {"truncated_data.wav", S_OK, KYERR_FILE_READ},
      {"zero_size_fmt.wav", KYERR_NOT_FOUND, 0}, {"huge_size_fmt.wav", KYERR_NOT_FOUND, 0},
      {"riff_size_zero.wav", KYERR_NOT_FOUND, 0}, {"odd_no_pad.wav", KYERR_NOT_FOUND, 0},
      {"list_too_short.wav", S_OK, S_OK},
      {"truncated.w64", S_OK, KYERR_FILE_READ}, {"zero_size_chunk.w64", KYERR_CHUNK_ZERO_LENGTH, 0},
      {"small_size_chunk.w64", KYERR_CHUNK_BAD_LENGTH, 0}};
  for (const auto &r : rows) {
    HANDLE h = OpenData(std::string("damaged/") + r.file);
    ASSERT_NE(INVALID_HANDLE_VALUE, h) << r.file;
    HRESULT find, read = S_OK;
    RIFFDATA d = {0, nullptr};
    if (strstr(r.file, ".w64")) {
      ULONGLONG size = 0;
      find = riff64_FindChunkHeaderInRIFF(h, kData, &size, nullptr);
      d.size = DWORD(size);
      if (find == S_OK) read = riff64_ReadDataAlloc(h, &d);
    } else {
      find = riff_FindChunkHeaderInRIFF(h, Four("data"), &d.size, nullptr);
      if (find == S_OK) read = riff_ReadDataAlloc(h, &d);
    }
    EXPECT_EQ(r.find, find) << r.file;
    EXPECT_EQ(r.read, read) << r.file;
    if (d.data) GlobalFree(GlobalHandle(d.data));
    CloseHandle(h);
  }
  HANDLE h = OpenData("damaged/negative_size_data.wav");
  DWORD type = 0, size = 0;
  ASSERT_EQ(S_OK, riff_FindChunkHeaderInRIFF(h, Four("data"), &size, nullptr));
  EXPECT_EQ(KYERR_CHUNK_BAD_LENGTH, riff_ValidateChunkHeader(Four("data"), LONG(size)));
  CloseHandle(h);
  h = OpenData("damaged/list_too_short.wav");
  riff_SeekDataStart(h);
  EXPECT_EQ(KYERR_CHUNK_BAD_LENGTH, riff_ReadListHeader(h, &type, &size));
  EXPECT_EQ(KYERR_NOT_FOUND, riff_FindListChunkFromStart(h, Four("ab\0\0"), &size));
  CloseHandle(h);
}

// Every damaged file, searched without a bound for an identifier it does not hold, and
// counted to its end: both end with a status of the family, never a hang or a crash.
TEST(RiffDamaged, UnboundedScansEndWithAStatus) {
  const HRESULT family[] = {KYERR_FILE_READ, KYERR_NOT_FOUND, KYERR_RIFF_MISSING,
                            KYERR_CHUNK_ZERO_LENGTH, KYERR_CHUNK_BAD_LENGTH};
  auto ok = [&](HRESULT hr) { return std::count(family, family + 5, hr) == 1; };
  WIN32_FIND_DATAA fd;
  HANDLE dir = FindFirstFileA(kytest::DataPath("riff/damaged/*").c_str(), &fd);
  ASSERT_NE(INVALID_HANDLE_VALUE, dir);
  int files = 0;
  do {
    if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) continue;
    ++files;
    HANDLE h = OpenData(std::string("damaged/") + fd.cFileName);
    DWORD count = 0;
    const GUID none = {0x7A7A7A7A, 0, 0, {0}};
    riff_SeekDataStart(h);
    EXPECT_TRUE(ok(riff_FindChunkHeader(h, Four("zzzz"), nullptr, nullptr))) << fd.cFileName;
    riff_SeekDataStart(h);
    EXPECT_TRUE(ok(riff_GetNumListEntries(h, &count, nullptr))) << fd.cFileName;
    EXPECT_TRUE(ok(riff_FindListChunkFromStart(h, Four("zzzz"), nullptr))) << fd.cFileName;
    riff64_SeekDataStart(h);
    EXPECT_TRUE(ok(riff64_FindChunkHeader(h, none, nullptr, nullptr))) << fd.cFileName;
    riff64_SeekDataStart(h);
    EXPECT_TRUE(ok(riff64_GetNumListEntries(h, &count, nullptr))) << fd.cFileName;
    EXPECT_TRUE(ok(riff64_FindListChunkFromStart(h, none, nullptr))) << fd.cFileName;
    CloseHandle(h);
  } while (FindNextFileA(dir, &fd));
  FindClose(dir);
  EXPECT_EQ(16, files);
}

} // namespace
