// Files made by independent writers (tests/data/riff, see its README) read with the chunk
// functions, and the damaged variants: each gives a status of the family, never a hang.
#include "ky_riff64.h"
#include "riff_testutil.h"

#include <algorithm>

using namespace rifftest;

namespace {

// One chunk as a layout line: depth, offset, identifier, data size, list type.
struct Entry {
  int depth;
  DWORD offset;
  std::string id;
  DWORD size;
  std::string type;
  bool operator==(const Entry &o) const {
    return depth == o.depth && offset == o.offset && id == o.id && size == o.size && type == o.type;
  }
};

std::ostream &operator<<(std::ostream &os, const Entry &e) {
  return os << e.depth << " @" << e.offset << " '" << e.id << "' " << e.size << " " << e.type;
}

HANDLE OpenData(const std::string &name) {
  return CreateFileA(kytest::DataPath("riff/" + name).c_str(), GENERIC_READ, FILE_SHARE_READ,
                     nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

// The chunk tree below the current position, bounded by count, read with the library.
HRESULT WalkRiff(HANDLE h, LONG count, int depth, std::vector<Entry> &out) {
  DWORD entries = 0;
  LONG probe = count;
  HRESULT hr = riff_GetNumListEntries(h, &entries, &probe);
  if (FAILED(hr)) return hr;
  for (DWORD i = 0; i < entries; ++i) {
    DWORD pos = 0, id = 0, size = 0, type = 0;
    riff_SaveLocation(h, &pos);
    hr = riff_ReadChunkHeader(h, &id, &size);
    if (FAILED(hr)) return hr;
    if (id == KY_RIFF_ID_LIST) {
      riff_RestoreLocation(h, pos);
      DWORD inner = 0;
      hr = riff_ReadListHeader(h, &type, &inner);
      if (FAILED(hr)) return hr;
      out.push_back({depth, pos, FourText(id), size, FourText(type)});
      hr = WalkRiff(h, LONG(inner), depth + 1, out);
      if (FAILED(hr)) return hr;
    } else {
      out.push_back({depth, pos, FourText(id), size, ""});
    }
    riff_RestoreLocation(h, pos + 8);
    riff_SkipChunk(h, size);
  }
  return S_OK;
}

struct RiffFixture {
  const char *file;
  const char *form;
  std::vector<Entry> layout;
};

// Layouts as the writers document them (fmt/fact/data order of SoX, INFO and "cue " of
// libsndfile, "cue " + "adtl" + INFO of wavefile); offsets checked against a hex dump.
const RiffFixture kRiffFixtures[] = {
    {"sox_s16.wav", "WAVE", {{1, 12, "fmt ", 16, ""}, {1, 36, "data", 80, ""}}},
    {"sox_s24_odd.wav", "WAVE", {{1, 12, "fmt ", 40, ""}, {1, 60, "fact", 4, ""}, {1, 72, "data", 9, ""}}},
    {"sox_f32.wav", "WAVE", {{1, 12, "fmt ", 18, ""}, {1, 38, "fact", 4, ""}, {1, 50, "data", 32, ""}}},
    {"sndfile_cue.wav", "WAVE",
     {{1, 12, "fmt ", 16, ""}, {1, 36, "LIST", 32, "INFO"}, {2, 48, "INAM", 6, ""},
      {2, 62, "IART", 6, ""}, {1, 76, "cue ", 52, ""}, {1, 136, "data", 100, ""}}},
    {"wavefile_markers.wav", "WAVE",
     {{1, 12, "fmt ", 16, ""}, {1, 36, "data", 1600, ""}, {1, 1644, "cue ", 52, ""},
      {1, 1704, "LIST", 76, "adtl"}, {2, 1716, "labl", 10, ""}, {2, 1734, "labl", 11, ""},
      {2, 1754, "ltxt", 26, ""}, {1, 1788, "LIST", 20, "INFO"}, {2, 1800, "INAM", 8, ""}}},
};

TEST(RiffFixtures, LayoutsOfIndependentWriters) {
  for (const RiffFixture &fx : kRiffFixtures) {
    HANDLE h = OpenData(fx.file);
    ASSERT_NE(INVALID_HANDLE_VALUE, h) << fx.file;
    DWORD size = 0, form = 0;
    ASSERT_EQ(S_OK, riff_ReadFileID(h, &size, &form)) << fx.file;
    EXPECT_EQ(Four(fx.form), form);
    LARGE_INTEGER fs{};
    GetFileSizeEx(h, &fs);
    EXPECT_EQ(ULONGLONG(fs.QuadPart), ULONGLONG(size) + 12) << fx.file;
    std::vector<Entry> got;
    EXPECT_EQ(S_OK, WalkRiff(h, LONG(size), 1, got)) << fx.file;
    EXPECT_EQ(fx.layout, got) << fx.file;
    CloseHandle(h);
  }
}

// The searches agree with the walk: "data" and the lists are found where the layout says.
TEST(RiffFixtures, SearchesFindDocumentedChunks) {
  for (const RiffFixture &fx : kRiffFixtures) {
    HANDLE h = OpenData(fx.file);
    ASSERT_NE(INVALID_HANDLE_VALUE, h);
    for (const Entry &e : fx.layout) {
      DWORD size = 0;
      if (e.depth == 1 && e.id == "LIST") {
        ASSERT_EQ(S_OK, riff_FindListChunkFromStart(h, Four(e.type.c_str()), &size)) << fx.file;
        EXPECT_EQ(e.size - 4, size);
        DWORD pos = 0;
        riff_SaveLocation(h, &pos);
        EXPECT_EQ(e.offset + 12, pos) << fx.file << " " << e.type;
      } else if (e.depth == 1) {
        LONG rem = 0;
        ASSERT_EQ(S_OK, riff_FindChunkHeaderInRIFF(h, Four(e.id.c_str()), &size, &rem)) << fx.file;
        EXPECT_EQ(e.size, size);
      }
    }
    // The wave data itself, read through the bounded reader.
    DWORD size = 0;
    ASSERT_EQ(S_OK, riff_FindChunkHeaderInRIFF(h, Four("data"), &size, nullptr));
    RIFFDATA d = {size, nullptr};
    ASSERT_EQ(S_OK, riff_ReadDataAlloc(h, &d)) << fx.file;
    GlobalUnlock(GlobalHandle(d.data));
    GlobalFree(GlobalHandle(d.data));
    CloseHandle(h);
  }
}

TEST(RiffFixtures, Wave64FromLibsndfile) {
  const GUID fmt = {0x20746D66, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
  const GUID data = {0x61746164, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
  // sndfile_odd.w64 ends its 50 data bytes without padding to 8 (the writer's habit).
  const struct { const char *file; ULONGLONG fileSize, dataSize; } rows[] = {
      {"sndfile_s16.w64", 204, 100}, {"sndfile_odd.w64", 154, 50}};
  for (const auto &r : rows) {
    HANDLE h = OpenData(r.file);
    ASSERT_NE(INVALID_HANDLE_VALUE, h);
    ULONGLONG size = 0;
    LONGLONG rem = 0;
    ASSERT_EQ(S_OK, riff64_FindChunkHeaderInRIFF(h, fmt, &size, &rem)) << r.file;
    EXPECT_EQ(16u, size);
    EXPECT_EQ(LONGLONG(r.fileSize - 64), rem);
    ASSERT_EQ(S_OK, riff64_FindChunkHeaderInRIFF(h, data, &size, &rem)) << r.file;
    EXPECT_EQ(r.dataSize, size);
    EXPECT_EQ(LONGLONG(r.dataSize), rem);
    std::vector<BYTE> buf(static_cast<size_t>(size));
    EXPECT_EQ(S_OK, riff64_ReadData(h, buf.data(), size));
    riff64_SeekDataStart(h);
    DWORD count = 0;
    LONGLONG left = LONGLONG(r.fileSize - 40);
    EXPECT_EQ(S_OK, riff64_GetNumListEntries(h, &count, &left)) << r.file;
    EXPECT_EQ(2u, count);
    CloseHandle(h);
  }
}

// What each damaged file answers to: the top-level search for "data", and the first reader
// that meets the damage.
TEST(RiffDamaged, StatusesOfDamagedFiles) {
  const struct { const char *file; HRESULT findData; HRESULT readData; } rows[] = {
      {"not_riff.bin", KYERR_RIFF_MISSING, S_OK},
      {"empty.wav", KYERR_RIFF_MISSING, S_OK},
      {"short_header.wav", KYERR_FILE_READ, S_OK}, // "RIFF" read, the rest short
      {"rifx.wav", KYERR_RIFF_MISSING, S_OK},
      {"truncated_header.wav", KYERR_FILE_READ, S_OK},
      {"truncated_data.wav", S_OK, KYERR_FILE_READ},
      {"zero_size_fmt.wav", KYERR_NOT_FOUND, S_OK},
      {"huge_size_fmt.wav", KYERR_NOT_FOUND, S_OK},
      {"riff_size_zero.wav", KYERR_NOT_FOUND, S_OK},
      {"odd_no_pad.wav", KYERR_NOT_FOUND, S_OK},
      {"list_too_short.wav", S_OK, S_OK},
  };
  for (const auto &r : rows) {
    HANDLE h = OpenData(std::string("damaged/") + r.file);
    ASSERT_NE(INVALID_HANDLE_VALUE, h) << r.file;
    DWORD size = 0;
    LONG rem = 0;
    EXPECT_EQ(r.findData, riff_FindChunkHeaderInRIFF(h, Four("data"), &size, &rem)) << r.file;
    if (r.findData == S_OK) {
      std::vector<BYTE> buf(size);
      EXPECT_EQ(r.readData, riff_ReadData(h, buf.data(), size)) << r.file;
    }
    CloseHandle(h);
  }
  HANDLE h = OpenData("damaged/negative_size_data.wav");
  DWORD size = 0;
  ASSERT_EQ(S_OK, riff_FindChunkHeaderInRIFF(h, Four("data"), &size, nullptr));
  EXPECT_EQ(KYERR_CHUNK_BAD_LENGTH, riff_ValidateChunkHeader(Four("data"), LONG(size)));
  RIFFDATA d = {size, nullptr};
  const HRESULT hr = riff_ReadDataAlloc(h, &d);
  EXPECT_TRUE(hr == E_OUTOFMEMORY || hr == KYERR_FILE_READ) << std::hex << hr;
  EXPECT_EQ(nullptr, d.data);
  CloseHandle(h);

  h = OpenData("damaged/list_too_short.wav");
  riff_SeekDataStart(h);
  DWORD type = 0;
  EXPECT_EQ(KYERR_CHUNK_BAD_LENGTH, riff_ReadListHeader(h, &type, &size));
  EXPECT_EQ(KYERR_NOT_FOUND, riff_FindListChunkFromStart(h, Four("ab\0\0"), &size));
  CloseHandle(h);

  const struct { const char *file; HRESULT findData; } rows64[] = {
      {"truncated.w64", S_OK}, {"zero_size_chunk.w64", KYERR_CHUNK_ZERO_LENGTH},
      {"small_size_chunk.w64", KYERR_CHUNK_BAD_LENGTH}, {"not_riff.bin", KYERR_RIFF_MISSING}};
  const GUID data = {0x61746164, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
  for (const auto &r : rows64) {
    h = OpenData(std::string("damaged/") + r.file);
    ULONGLONG size64 = 0;
    LONGLONG rem = 0;
    EXPECT_EQ(r.findData, riff64_FindChunkHeaderInRIFF(h, data, &size64, &rem)) << r.file;
    if (r.findData == S_OK) {
      std::vector<BYTE> buf(static_cast<size_t>(size64));
      EXPECT_EQ(KYERR_FILE_READ, riff64_ReadData(h, buf.data(), size64)) << r.file;
    }
    CloseHandle(h);
  }
}

// 200 LISTs inside each other: each level is found with a bounded search inside the last.
TEST(RiffDamaged, DeeplyNestedLists) {
  HANDLE h = OpenData("damaged/deep_lists.wav");
  ASSERT_NE(INVALID_HANDLE_VALUE, h);
  DWORD size = 0;
  ASSERT_EQ(S_OK, riff_FindListChunkFromStart(h, Four("nest"), &size));
  int levels = 1;
  for (;;) {
    LONG rem = LONG(size);
    DWORD inner = 0;
    const HRESULT hr = riff_FindListChunk(h, Four("nest"), &inner, &rem);
    if (hr != S_OK) {
      EXPECT_EQ(KYERR_NOT_FOUND, hr);
      break;
    }
    ASSERT_EQ(size - 12, inner);
    size = inner;
    ++levels;
  }
  EXPECT_EQ(200, levels);
  // The search above moved past the innermost chunk; find it again from the last list.
  riff_FindListChunkFromStart(h, Four("nest"), &size);
  for (int i = 1; i < 200; ++i) riff_FindListChunk(h, Four("nest"), &size, nullptr);
  LONG rem = LONG(size);
  ASSERT_EQ(S_OK, riff_FindChunkHeader(h, Four("note"), &size, &rem));
  EXPECT_EQ(4u, size);
  CloseHandle(h);
}

// Every damaged file, searched without a bound for an identifier it does not hold, and
// counted to its end: both end with a status of the family, never a hang or a crash.
TEST(RiffDamaged, UnboundedScansEndWithAStatus) {
  const HRESULT family[] = {KYERR_FILE_READ, KYERR_NOT_FOUND, KYERR_RIFF_MISSING,
                            KYERR_LIST_MISSING, KYERR_CHUNK_ZERO_LENGTH, KYERR_CHUNK_BAD_LENGTH};
  auto inFamily = [&](HRESULT hr) { return std::find(std::begin(family), std::end(family), hr) != std::end(family); };
  WIN32_FIND_DATAA fd;
  HANDLE dir = FindFirstFileA(kytest::DataPath("riff/damaged/*").c_str(), &fd);
  ASSERT_NE(INVALID_HANDLE_VALUE, dir);
  int files = 0;
  do {
    if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) continue;
    ++files;
    const std::string name = fd.cFileName;
    HANDLE h = OpenData("damaged/" + name);
    ASSERT_NE(INVALID_HANDLE_VALUE, h) << name;
    riff_SeekDataStart(h);
    EXPECT_TRUE(inFamily(riff_FindChunkHeader(h, Four("zzzz"), nullptr, nullptr))) << name;
    riff_SeekDataStart(h);
    DWORD count = 0;
    EXPECT_TRUE(inFamily(riff_GetNumListEntries(h, &count, nullptr))) << name;
    EXPECT_TRUE(inFamily(riff_FindListChunkFromStart(h, Four("zzzz"), nullptr))) << name;
    const GUID none = {0x7A7A7A7A, 0, 0, {0}};
    riff64_SeekDataStart(h);
    EXPECT_TRUE(inFamily(riff64_FindChunkHeader(h, none, nullptr, nullptr))) << name;
    EXPECT_TRUE(inFamily(riff64_FindListChunkFromStart(h, none, nullptr))) << name;
    riff64_SeekDataStart(h);
    EXPECT_TRUE(inFamily(riff64_GetNumListEntries(h, &count, nullptr))) << name;
    CloseHandle(h);
  } while (FindNextFileA(dir, &fd));
  FindClose(dir);
  EXPECT_GE(files, 15);
}

// Deleting from a file that is not RIFF changes nothing.
TEST(RiffDamaged, DeleteLeavesForeignFilesAlone) {
  const Bytes text(Builder().Tag("RIFX").U32(20).Tag("WAVE").Chunk("data", 12).b);
  TempFile f(text);
  DWORD removed = 5;
  EXPECT_EQ(KYERR_RIFF_MISSING, riff_DeleteChunk(f.h(), Four("data"), &removed, FALSE));
  EXPECT_EQ(0u, removed);
  EXPECT_EQ(text, f.Content());
}

} // namespace
