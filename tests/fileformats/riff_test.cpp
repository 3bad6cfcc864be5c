// RIFF chunk I/O: layouts written, positions left, remaining counts, deletion and strings.
#include "ky_riff.h"
#include "riff_testutil.h"

using namespace rifftest;

namespace {

// RIFF "WAVE": "fmt " 16 @12, "odd " 3 (+pad) @36, LIST "INFO" 18 @48 {"INAM" 5 @60},
// "data" @74 with dataSize bytes.
Bytes SampleWave(DWORD dataSize = 8) {
  Builder b;
  b.Tag("RIFF").U32(0).Tag("WAVE").Chunk("fmt ", 16, 1).Chunk("odd ", 3, 2);
  b.Tag("LIST").U32(4 + 8 + 6).Tag("INFO").Chunk("INAM", 5, 'n').Chunk("data", dataSize, 3);
  const DWORD riffSize = DWORD(b.size() - 8);
  memcpy(b.b.data() + 4, &riffSize, 4);
  return b.b;
}

TEST(RiffValidate, SizeRules) {
  const struct { LONG size; HRESULT hr; } rows[] = {
      {1, S_OK}, {0x7FFFFFFF, S_OK}, {0, KYERR_CHUNK_ZERO_LENGTH},
      {LONG(0x80000000), KYERR_CHUNK_BAD_LENGTH}, {-1, KYERR_CHUNK_BAD_LENGTH}};
  for (const auto &r : rows) EXPECT_EQ(r.hr, riff_ValidateChunkHeader(Four("data"), r.size)) << r.size;
}

TEST(RiffWrite, ChunkPaddingAndCounts) {
  const struct { DWORD size, written; } rows[] = {{0, 8}, {1, 10}, {4, 12}, {7, 16}};
  for (const auto &r : rows) {
    TempFile f;
    DWORD written = 0;
    ASSERT_EQ(S_OK, riff_WriteChunk(f.h(), Four("abcd"), "1234567", r.size, &written));
    EXPECT_EQ(r.written, written);
    Bytes want = Builder().Tag("abcd").U32(r.size).Raw("1234567", r.size).Fill(r.size & 1, 0).b;
    EXPECT_EQ(want, f.Content()) << r.size; // the stored size never counts the pad
    EXPECT_EQ(r.written, f.Pos());
  }
}

TEST(RiffWrite, FileLayoutSizeFieldAndStrings) {
  TempFile f;
  DWORD n = 0, n2 = 0, size = 0;
  ASSERT_EQ(S_OK, riff_WriteFileID(f.h(), Four("WAVE"), 4));
  ASSERT_EQ(S_OK, riff_WriteListHeader(f.h(), Four("INFO"), 4 + 10));
  ASSERT_EQ(S_OK, riff_WriteChunk(f.h(), Four("ICMT"), "xy", 2, &n));
  ASSERT_EQ(S_OK, riff_WriteANSIString(f.h(), "abc", &n));  // 4 bytes, no pad
  ASSERT_EQ(S_OK, riff_WriteANSIString(f.h(), "ab", &n2));  // 3 bytes + pad
  EXPECT_EQ(4u, n);
  EXPECT_EQ(4u, n2);
  const ULONGLONG end = f.Pos();
  ASSERT_EQ(S_OK, riff_SetRIFFSize(f.h(), 100));
  ASSERT_EQ(S_OK, riff_UpdateRIFFSize(f.h(), -3));
  EXPECT_EQ(end, f.Pos()); // both keep the position
  const Bytes want = Builder().Tag("RIFF").U32(97).Tag("WAVE").Tag("LIST").U32(14).Tag("INFO")
                         .Tag("ICMT").U32(2).Raw("xyabc\0ab\0", 10).b;
  EXPECT_EQ(want, f.Content());
  f.Seek(30);
  ASSERT_EQ(S_OK, riff_GetFileSize(f.h(), &size));
  EXPECT_EQ(101u, size); // the size field plus 4, deliberately not plus 8
  EXPECT_EQ(12u, f.Pos());
}

TEST(RiffRead, HeadersAndPositions) {
  TempFile f(SampleWave());
  DWORD size = 0, form = 0, id = 0, type = 0, saved = 0;
  BYTE buf[4] = {};
  ASSERT_EQ(S_OK, riff_ReadFileID(f.h(), &size, &form));
  EXPECT_EQ(Four("WAVE"), form);
  EXPECT_EQ(78u, size);
  ASSERT_EQ(S_OK, riff_ReadChunkHeader(f.h(), &id, &size));
  EXPECT_EQ(Four("fmt "), id);
  EXPECT_EQ(16u, riff_SkipChunk(f.h(), size));
  ASSERT_EQ(S_OK, riff_ReadChunkHeader(f.h(), &id, &size));
  ASSERT_EQ(S_OK, riff_ReadData(f.h(), buf, size));
  EXPECT_EQ(Bytes({2, 3, 4, 0}), Bytes(buf, buf + 4));
  EXPECT_EQ(48u, f.Pos()); // pad byte skipped
  ASSERT_EQ(S_OK, riff_ReadListHeader(f.h(), &type, &size));
  EXPECT_EQ(Four("INFO"), type);
  EXPECT_EQ(14u, size);
  EXPECT_EQ(60u, f.Pos());
  // riff_ReadListHeader on a chunk that is no LIST consumes its header only.
  f.Seek(12);
  EXPECT_EQ(KYERR_LIST_MISSING, riff_ReadListHeader(f.h(), &type, &size));
  ASSERT_EQ(S_OK, riff_SaveLocation(f.h(), &saved));
  EXPECT_EQ(20u, saved);
  EXPECT_EQ(KYERR_RIFF_MISSING, riff_ReadFileID(f.h(), &size, &form));
}

TEST(RiffRead, BoundedReadTakesPadFromCapacity) {
  const struct { DWORD chunk, capacity, read; ULONGLONG endPos; } rows[] = {
      {6, 10, 6, 6}, {6, 4, 4, 6}, {5, 4, 4, 5}, {5, 3, 3, 6}, {6, 3, 3, 7}, {5, 5, 5, 6}};
  for (const auto &r : rows) {
    TempFile f(Builder().Fill(16, 0x11).b);
    BYTE buf[16] = {};
    ASSERT_EQ(S_OK, riff_ReadDataBounded(f.h(), buf, r.chunk, r.capacity));
    EXPECT_EQ(r.endPos, f.Pos()) << r.chunk << "/" << r.capacity;
    EXPECT_EQ(0x11, buf[r.read - 1]);
    EXPECT_EQ(0, buf[r.read]);
    EXPECT_EQ(KYERR_FILE_READ, riff_ReadDataBounded(f.h(), buf, 16, 16));
  }
}

TEST(RiffRead, DataAllocOwnershipAndFailure) {
  TempFile f(Builder().Fill(5, 7).Fill(3, 9).b);
  RIFFDATA d = {5, &d};
  ASSERT_EQ(S_OK, riff_ReadDataAlloc(f.h(), &d));
  EXPECT_EQ(7, static_cast<BYTE *>(d.data)[4]);
  EXPECT_EQ(6u, f.Pos());
  HGLOBAL mem = GlobalHandle(d.data); // locked moveable memory, released by the caller
  GlobalUnlock(mem);
  EXPECT_EQ(nullptr, GlobalFree(mem));
  const struct { DWORD size; HRESULT hr; } rows[] = {
      {0, S_OK}, {100, KYERR_FILE_READ}, {0xFFFFFFF0u, E_OUTOFMEMORY}};
  for (const auto &r : rows) {
    d = {r.size, &d};
    EXPECT_EQ(r.hr, riff_ReadDataAlloc(f.h(), &d)) << r.size;
    EXPECT_EQ(nullptr, d.data);
  }
}

TEST(RiffFind, TopLevelAndBounds) {
  TempFile f(SampleWave());
  DWORD size = 0;
  LONG rem = 12345; // not used on entry
  ASSERT_EQ(S_OK, riff_FindChunkHeaderInRIFF(f.h(), Four("data"), &size, &rem));
  EXPECT_EQ(8u, size);
  EXPECT_EQ(82u, f.Pos());
  EXPECT_EQ(8, rem); // the data bytes are left in the count
  ASSERT_EQ(KYERR_NOT_FOUND, riff_FindChunkHeaderInRIFF(f.h(), Four("cue "), &size, &rem));
  EXPECT_EQ(0, rem);
  f.Seek(12);
  rem = 7;
  EXPECT_EQ(KYERR_NOT_FOUND, riff_FindChunkHeader(f.h(), Four("fmt "), &size, &rem));
  EXPECT_EQ(7, rem);
  EXPECT_EQ(12u, f.Pos()); // nothing read
  rem = 8;
  EXPECT_EQ(S_OK, riff_FindChunkHeader(f.h(), Four("fmt "), &size, &rem));
  EXPECT_EQ(0, rem);
  // Unbounded: a missing identifier runs to the end of the file.
  EXPECT_EQ(KYERR_FILE_READ, riff_FindChunkHeader(f.h(), Four("cue "), nullptr, nullptr));
  // A count larger than the file: the read error at the end leaves it as it was.
  f.Seek(12);
  rem = 1000;
  EXPECT_EQ(KYERR_FILE_READ, riff_FindChunkHeader(f.h(), Four("cue "), &size, &rem));
  EXPECT_EQ(1000, rem);
  // A size of 0xFFFFFFFF pads to 2^32: the count must not wrap back into the positives.
  TempFile huge(Builder().Tag("junk").U32(0xFFFFFFFF).Chunk("data", 4).b);
  rem = 100;
  EXPECT_EQ(KYERR_NOT_FOUND, riff_FindChunkHeader(huge.h(), Four("data"), &size, &rem));
  EXPECT_EQ(LONG(0x80000000), rem);
}

// Each skipped LIST takes 4 bytes more from the count than it occupies.
TEST(RiffFind, ListSkipChargesFourExtra) {
  Builder b;
  b.Tag("LIST").U32(4 + 10).Tag("adtl").Chunk("labl", 2);
  b.Tag("LIST").U32(4 + 10).Tag("INFO").Chunk("INAM", 2);
  // The INFO type ends at byte 34; an exact count would need 34, the extra 4 makes it 38.
  const struct { LONG rem; HRESULT hr; LONG after; } rows[] = {
      {34, KYERR_NOT_FOUND, 0}, {37, KYERR_NOT_FOUND, 3}, {38, S_OK, 0}, {44, S_OK, 6}};
  for (const auto &r : rows) {
    TempFile f(b.b);
    LONG rem = r.rem;
    DWORD size = 0;
    EXPECT_EQ(r.hr, riff_FindListChunk(f.h(), Four("INFO"), &size, &rem)) << r.rem;
    EXPECT_EQ(r.after, rem) << r.rem;
    if (r.hr == S_OK) {
      EXPECT_EQ(34u, f.Pos());
    }
  }
}

TEST(RiffFind, ListFromStartAndEntries) {
  // List searches from the start are also checked on the fixtures (riff_fixture_test).
  TempFile f(SampleWave());
  DWORD size = 0, count = 99, id = 0;
  LONG rem = 14;
  f.Seek(60);  // the INFO list's entries
  ASSERT_EQ(S_OK, riff_GetNumListEntries(f.h(), &count, &rem));
  EXPECT_EQ(1u, count);
  EXPECT_EQ(0, rem);
  EXPECT_EQ(60u, f.Pos());
  // Unbounded counting reaches the end of the file: the read error and the count reached.
  f.Seek(12);
  EXPECT_EQ(KYERR_FILE_READ, riff_GetNumListEntries(f.h(), &count, nullptr));
  EXPECT_EQ(4u, count);
  EXPECT_EQ(12u, f.Pos());
  rem = 78;
  ASSERT_EQ(S_OK, riff_SeekListEntry(f.h(), 3, &rem));
  ASSERT_EQ(S_OK, riff_ReadChunkHeader(f.h(), &id, &size));
  EXPECT_EQ(Four("data"), id);
  f.Seek(12);
  rem = 30;
  EXPECT_EQ(KYERR_NOT_FOUND, riff_SeekListEntry(f.h(), 3, &rem));
}

// Deleting moves the tail down (here through several 4096-byte blocks) and truncates.
TEST(RiffDelete, MiddleLastAndList) {
  const Bytes full = SampleWave(9000);
  const struct { const char *id; BOOL list; DWORD removed; size_t at; } rows[] = {
      {"odd ", FALSE, 12, 36}, {"INFO", TRUE, 26, 48}, {"fmt ", FALSE, 24, 12},
      {"data", FALSE, 9008, 74}};
  for (const auto &r : rows) {
    TempFile f(full);
    DWORD removed = 0;
    ASSERT_EQ(S_OK, riff_DeleteChunk(f.h(), Four(r.id), &removed, r.list)) << r.id;
    EXPECT_EQ(r.removed, removed) << r.id;
    Bytes want = full;
    want.erase(want.begin() + r.at, want.begin() + r.at + r.removed);
    const DWORD newSize = DWORD(full.size() - 8 - r.removed);
    memcpy(want.data() + 4, &newSize, 4);
    EXPECT_EQ(want, f.Content()) << r.id;
  }
  TempFile f(full);
  DWORD removed = 7;
  EXPECT_EQ(KYERR_NOT_FOUND, riff_DeleteChunk(f.h(), Four("cue "), &removed, FALSE));
  EXPECT_EQ(0u, removed);
  EXPECT_EQ(full, f.Content());
  // A file that is not RIFF is left alone.
  TempFile rifx(Builder().Tag("RIFX").U32(16).Tag("WAVE").Chunk("data", 4).b);
  EXPECT_EQ(KYERR_RIFF_MISSING, riff_DeleteChunk(rifx.h(), Four("data"), &removed, FALSE));
  EXPECT_EQ(24u, rifx.Content().size());
}

TEST(RiffStrings, ReadClampsAndIncrementsSize) {
  TempFile f(Builder().Raw("hello\0XY", 8).b);
  char dest[8] = "zzzzzzz";
  const struct { ULONGLONG from; DWORD size, capacity; HRESULT hr; const char *text; ULONGLONG pos; DWORD after; } rows[] = {
      {0, 5, 3, S_OK, "he", 6, 6}, {0, 6, 8, S_OK, "hello", 6, 7},
      {4, 6, 8, KYERR_FILE_READ, nullptr, 8, 6}, {0, 0, 8, E_INVALIDARG, nullptr, 0, 0}};
  for (const auto &r : rows) {
    f.Seek(r.from);
    DWORD size = r.size;
    EXPECT_EQ(r.hr, riff_ReadANSIString(f.h(), dest, r.capacity, &size)) << r.size;
    if (r.text) {
      EXPECT_STREQ(r.text, dest);
    }
    EXPECT_EQ(r.pos, f.Pos()) << r.size;
    EXPECT_EQ(r.after, size) << r.size;
  }
  EXPECT_EQ('z', dest[6]);
}

// Closed or invalid handles give the read or write status; required pointers are checked
// before anything happens.
TEST(RiffArguments, BadHandlesAndNullPointers) {
  for (HANDLE h : {INVALID_HANDLE_VALUE, HANDLE(nullptr)}) {
    DWORD id = 0, size = 0;
    EXPECT_EQ(KYERR_FILE_READ, riff_ReadChunkHeader(h, &id, &size));
    EXPECT_EQ(KYERR_FILE_READ, riff_FindChunkHeader(h, Four("data"), &size, nullptr));
    EXPECT_EQ(KYERR_FILE_READ, riff_UpdateRIFFSize(h, 1));
    EXPECT_EQ(KYERR_FILE_WRITE, riff_WriteChunk(h, Four("data"), "abcd", 4, &size));
    EXPECT_EQ(KYERR_FILE_WRITE, riff_WriteANSIString(h, "abc", &size));
    EXPECT_EQ(KYERR_RIFF_MISSING, riff_DeleteChunk(h, Four("data"), &size, FALSE));
  }
  TempFile f(SampleWave());
  DWORD v = 0;
  EXPECT_EQ(E_POINTER, riff_ReadChunkHeader(f.h(), nullptr, &v));
  EXPECT_EQ(E_POINTER, riff_ReadData(f.h(), nullptr, 4));
  EXPECT_EQ(E_POINTER, riff_WriteANSIString(f.h(), "a", nullptr));
  EXPECT_EQ(0u, f.Pos());
}

} // namespace
