// RIFF chunk I/O: layouts written, positions left, remaining counts, deletion and strings.
#include "ky_riff.h"
#include "riff_testutil.h"

using namespace rifftest;

namespace {

// RIFF "WAVE" with "fmt " (16), "odd " (3, padded), LIST "INFO" (one 5-byte "INAM"), "data" (8).
Builder SampleWave() {
  Builder b;
  b.Tag("RIFF").U32(0).Tag("WAVE");
  b.Chunk("fmt ", 16, 1).Chunk("odd ", 3, 2);
  b.Tag("LIST").U32(4 + 8 + 6).Tag("INFO").Chunk("INAM", 5, 'n');
  b.Chunk("data", 8, 3);
  const DWORD riffSize = DWORD(b.size() - 8);
  memcpy(b.b.data() + 4, &riffSize, 4);
  return b;
}

TEST(RiffValidate, SizeRules) {
  const struct { LONG size; HRESULT hr; } rows[] = {
      {1, S_OK}, {2, S_OK}, {0x7FFFFFFF, S_OK}, {0, KYERR_CHUNK_ZERO_LENGTH},
      {LONG(0x80000000), KYERR_CHUNK_BAD_LENGTH}, {-1, KYERR_CHUNK_BAD_LENGTH}};
  for (const auto &r : rows) EXPECT_EQ(r.hr, riff_ValidateChunkHeader(Four("data"), r.size)) << r.size;
}

TEST(RiffWrite, ChunkPaddingAndCounts) {
  const struct { DWORD size; DWORD written; size_t fileBytes; } rows[] = {
      {0, 8, 8}, {1, 10, 10}, {4, 12, 12}, {7, 16, 16}};
  for (const auto &r : rows) {
    TempFile f;
    const BYTE data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    DWORD written = 0xCCCC;
    ASSERT_EQ(S_OK, riff_WriteChunk(f.h(), Four("abcd"), data, r.size, &written));
    EXPECT_EQ(r.written, written);
    const Bytes c = f.Content();
    ASSERT_EQ(r.fileBytes, c.size()) << r.size;
    EXPECT_EQ(Four("abcd"), U32At(c, 0));
    EXPECT_EQ(r.size, U32At(c, 4)); // the stored size never counts the pad
    EXPECT_EQ(0, memcmp(c.data() + 8, data, r.size));
    if (r.size & 1) {
      EXPECT_EQ(0, c.back());
    }
    EXPECT_EQ(r.fileBytes, f.Pos());
  }
}

TEST(RiffWrite, FileLayoutAndSizeField) {
  TempFile f;
  ASSERT_EQ(S_OK, riff_WriteFileID(f.h(), Four("WAVE"), 4));
  ASSERT_EQ(S_OK, riff_WriteListHeader(f.h(), Four("INFO"), 4 + 10));
  DWORD written = 0;
  ASSERT_EQ(S_OK, riff_WriteChunk(f.h(), Four("ICMT"), "xy", 2, &written));
  ASSERT_EQ(S_OK, riff_WriteANSIString(f.h(), "abc", &written)); // 4 bytes, no pad
  EXPECT_EQ(4u, written);
  ASSERT_EQ(S_OK, riff_WriteANSIString(f.h(), "ab", &written)); // 3 bytes + pad
  EXPECT_EQ(4u, written);
  const ULONGLONG end = f.Pos();
  ASSERT_EQ(S_OK, riff_SetRIFFSize(f.h(), 100));
  EXPECT_EQ(end, f.Pos());
  ASSERT_EQ(S_OK, riff_UpdateRIFFSize(f.h(), -3));
  EXPECT_EQ(end, f.Pos());
  const Bytes c = f.Content();
  const Bytes want = Builder()
                         .Tag("RIFF").U32(97).Tag("WAVE")
                         .Tag("LIST").U32(14).Tag("INFO")
                         .Tag("ICMT").U32(2).Raw({'x', 'y'})
                         .Raw({'a', 'b', 'c', 0, 'a', 'b', 0, 0}).b;
  EXPECT_EQ(want, c);
  DWORD size = 0;
  ASSERT_EQ(S_OK, riff_GetFileSize(f.h(), &size));
  EXPECT_EQ(101u, size); // field + 4
  EXPECT_EQ(12u, f.Pos());
}

TEST(RiffRead, GetFileSizeIsFieldPlusFour) {
  TempFile f(Builder().Tag("RIFF").U32(100).Tag("WAVE").Fill(100).b);
  f.Seek(50);
  DWORD size = 0;
  EXPECT_EQ(S_OK, riff_GetFileSize(f.h(), &size));
  EXPECT_EQ(104u, size);
  EXPECT_EQ(12u, f.Pos());
}

TEST(RiffRead, HeadersAndPositions) {
  TempFile f(SampleWave().b);
  DWORD size = 0, form = 0, id = 0;
  ASSERT_EQ(S_OK, riff_ReadFileID(f.h(), &size, &form));
  EXPECT_EQ(Four("WAVE"), form);
  EXPECT_EQ(SampleWave().size() - 12, size);
  ASSERT_EQ(S_OK, riff_ReadChunkHeader(f.h(), &id, &size));
  EXPECT_EQ(Four("fmt "), id);
  EXPECT_EQ(16u, size);
  EXPECT_EQ(20u, f.Pos());
  EXPECT_EQ(16u, riff_SkipChunk(f.h(), size));
  ASSERT_EQ(S_OK, riff_ReadChunkHeader(f.h(), &id, &size));
  EXPECT_EQ(3u, size);
  BYTE buf[4] = {};
  ASSERT_EQ(S_OK, riff_ReadData(f.h(), buf, size));
  EXPECT_EQ(2, buf[2]);
  EXPECT_EQ(48u, f.Pos()); // pad byte skipped
  DWORD type = 0;
  ASSERT_EQ(S_OK, riff_ReadListHeader(f.h(), &type, &size));
  EXPECT_EQ(Four("INFO"), type);
  EXPECT_EQ(14u, size);
  EXPECT_EQ(60u, f.Pos());
  // riff_ReadListHeader on a chunk that is no LIST consumes its header only.
  f.Seek(12);
  EXPECT_EQ(KYERR_LIST_MISSING, riff_ReadListHeader(f.h(), &type, &size));
  EXPECT_EQ(20u, f.Pos());
  EXPECT_EQ(16u, size);
  DWORD saved = 0;
  ASSERT_EQ(S_OK, riff_SaveLocation(f.h(), &saved));
  EXPECT_EQ(20u, saved);
  EXPECT_EQ(S_OK, riff_SeekDataStart(f.h()));
  EXPECT_EQ(12u, f.Pos());
  EXPECT_EQ(S_OK, riff_RestoreLocation(f.h(), saved));
  EXPECT_EQ(20u, f.Pos());
}

TEST(RiffRead, BoundedReadTakesPadFromCapacity) {
  const struct { DWORD chunk, capacity; DWORD read; ULONGLONG endPos; } rows[] = {
      {6, 10, 6, 6}, {6, 4, 4, 6}, {5, 4, 4, 5}, {5, 3, 3, 6}, {6, 3, 3, 7}, {5, 5, 5, 6}};
  for (const auto &r : rows) {
    TempFile f(Builder().Fill(16, 0x11).b);
    BYTE buf[16] = {};
    ASSERT_EQ(S_OK, riff_ReadDataBounded(f.h(), buf, r.chunk, r.capacity));
    EXPECT_EQ(r.endPos, f.Pos()) << r.chunk << "/" << r.capacity;
    EXPECT_EQ(0x11, buf[r.read - 1]);
    EXPECT_EQ(0, buf[r.read]);
  }
  TempFile shortFile(Builder().Fill(3).b);
  BYTE buf[8];
  EXPECT_EQ(KYERR_FILE_READ, riff_ReadDataBounded(shortFile.h(), buf, 8, 8));
}

TEST(RiffRead, DataAllocOwnershipAndFailure) {
  TempFile f(Builder().Fill(5, 7).Fill(1, 0).Fill(2, 9).b);
  RIFFDATA d = {5, reinterpret_cast<void *>(1)};
  ASSERT_EQ(S_OK, riff_ReadDataAlloc(f.h(), &d));
  ASSERT_NE(nullptr, d.data);
  EXPECT_EQ(7, static_cast<BYTE *>(d.data)[4]);
  EXPECT_EQ(6u, f.Pos());
  HGLOBAL mem = GlobalHandle(d.data);
  ASSERT_NE(nullptr, mem);
  EXPECT_GE(GlobalSize(mem), 5u);
  GlobalUnlock(mem);
  EXPECT_EQ(nullptr, GlobalFree(mem));

  d = {0, reinterpret_cast<void *>(1)};
  EXPECT_EQ(S_OK, riff_ReadDataAlloc(f.h(), &d));
  EXPECT_EQ(nullptr, d.data);
  d = {100, nullptr};
  EXPECT_EQ(KYERR_FILE_READ, riff_ReadDataAlloc(f.h(), &d));
  EXPECT_EQ(nullptr, d.data);
  d = {0xFFFFFFF0u, nullptr}; // a damaged size: the allocation or the read fails, cleanly
  f.Seek(0);
  const HRESULT hr = riff_ReadDataAlloc(f.h(), &d);
  EXPECT_TRUE(hr == E_OUTOFMEMORY || hr == KYERR_FILE_READ) << std::hex << hr;
  EXPECT_EQ(nullptr, d.data);
}

TEST(RiffFind, TopLevelAndBounds) {
  TempFile f(SampleWave().b);
  DWORD size = 0;
  LONG rem = 12345;
  ASSERT_EQ(S_OK, riff_FindChunkHeaderInRIFF(f.h(), Four("data"), &size, &rem));
  EXPECT_EQ(8u, size);
  EXPECT_EQ(SampleWave().size() - 8, f.Pos());
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
  f.Seek(12);
  EXPECT_EQ(KYERR_FILE_READ, riff_FindChunkHeader(f.h(), Four("cue "), nullptr, nullptr));
}

// Each skipped LIST takes 4 bytes more from the count than it occupies.
TEST(RiffFind, ListSkipChargesFourExtra) {
  Builder b;
  b.Tag("LIST").U32(4 + 10).Tag("adtl").Chunk("labl", 2);
  b.Tag("LIST").U32(4 + 10).Tag("INFO").Chunk("INAM", 2);
  // The INFO type ends at byte 34; an exact count would need 34, the extra 4 makes it 38.
  const struct { LONG rem; HRESULT hr; LONG after; } rows[] = {
      {34, KYERR_NOT_FOUND, 0}, {37, KYERR_NOT_FOUND, 0}, {38, S_OK, 0}, {44, S_OK, 6}};
  for (const auto &r : rows) {
    TempFile f(b.b);
    LONG rem = r.rem;
    DWORD size = 0;
    const HRESULT hr = riff_FindListChunk(f.h(), Four("INFO"), &size, &rem);
    EXPECT_EQ(r.hr, hr) << r.rem;
    if (hr == S_OK) {
      EXPECT_EQ(10u, size);
      EXPECT_EQ(34u, f.Pos());
      EXPECT_EQ(r.after, rem);
    }
  }
  TempFile f(b.b);
  DWORD size = 0;
  EXPECT_EQ(S_OK, riff_FindListChunk(f.h(), Four("INFO"), &size, nullptr));
  EXPECT_EQ(KYERR_FILE_READ, riff_FindListChunk(f.h(), Four("INFO"), &size, nullptr));
}

TEST(RiffFind, ListFromStartAndEntries) {
  TempFile f(SampleWave().b);
  DWORD size = 0;
  ASSERT_EQ(S_OK, riff_FindListChunkFromStart(f.h(), Four("INFO"), &size));
  EXPECT_EQ(14u, size);
  const ULONGLONG inList = f.Pos();
  DWORD count = 99;
  LONG rem = LONG(size);
  ASSERT_EQ(S_OK, riff_GetNumListEntries(f.h(), &count, &rem));
  EXPECT_EQ(1u, count);
  EXPECT_EQ(inList, f.Pos());
  EXPECT_EQ(0, rem);
  // Unbounded counting reaches the end of the file: the read error and the count.
  f.Seek(12);
  EXPECT_EQ(KYERR_FILE_READ, riff_GetNumListEntries(f.h(), &count, nullptr));
  EXPECT_EQ(4u, count);
  EXPECT_EQ(12u, f.Pos());

  rem = LONG(SampleWave().size() - 12);
  ASSERT_EQ(S_OK, riff_SeekListEntry(f.h(), 3, &rem));
  DWORD id = 0;
  ASSERT_EQ(S_OK, riff_ReadChunkHeader(f.h(), &id, &size));
  EXPECT_EQ(Four("data"), id);
  f.Seek(12);
  rem = 30;
  EXPECT_EQ(KYERR_NOT_FOUND, riff_SeekListEntry(f.h(), 3, &rem));
  f.Seek(12);
  EXPECT_EQ(S_OK, riff_SeekListEntry(f.h(), 0, nullptr));
  EXPECT_EQ(12u, f.Pos());
}

TEST(RiffDelete, MiddleLastAndList) {
  const Builder full = SampleWave();
  const DWORD riffSize = DWORD(full.size() - 8);
  struct Row { const char *id; BOOL list; DWORD removed; size_t at; };
  const Row rows[] = {{"odd ", FALSE, 12, 36}, {"data", FALSE, 16, 74}, {"INFO", TRUE, 26, 48},
                      {"fmt ", FALSE, 24, 12}};
  for (const Row &r : rows) {
    TempFile f(full.b);
    DWORD removed = 0;
    ASSERT_EQ(S_OK, riff_DeleteChunk(f.h(), Four(r.id), &removed, r.list)) << r.id;
    EXPECT_EQ(r.removed, removed) << r.id;
    Bytes want = full.b;
    want.erase(want.begin() + r.at, want.begin() + r.at + r.removed);
    const DWORD newSize = riffSize - r.removed;
    memcpy(want.data() + 4, &newSize, 4);
    EXPECT_EQ(want, f.Content()) << r.id;
  }
  TempFile f(full.b);
  DWORD removed = 7;
  EXPECT_EQ(KYERR_NOT_FOUND, riff_DeleteChunk(f.h(), Four("cue "), &removed, FALSE));
  EXPECT_EQ(0u, removed);
  EXPECT_EQ(full.b, f.Content());
}

// A file longer than one 4096-byte block moves in several blocks.
TEST(RiffDelete, MovesManyBlocks) {
  Builder b;
  b.Tag("RIFF").U32(0).Tag("WAVE").Chunk("junk", 101, 1).Chunk("data", 10000, 0);
  for (DWORD i = 0; i < 10000; ++i) b.b[12 + 110 + 8 + i] = BYTE(i * 7);
  const DWORD riffSize = DWORD(b.size() - 8);
  memcpy(b.b.data() + 4, &riffSize, 4);
  TempFile f(b.b);
  DWORD removed = 0;
  ASSERT_EQ(S_OK, riff_DeleteChunk(f.h(), Four("junk"), &removed, FALSE));
  EXPECT_EQ(110u, removed);
  Bytes want = b.b;
  want.erase(want.begin() + 12, want.begin() + 122);
  const DWORD newSize = riffSize - 110;
  memcpy(want.data() + 4, &newSize, 4);
  EXPECT_EQ(want, f.Content());
}

TEST(RiffStrings, ReadClampsAndIncrementsSize) {
  TempFile f(Builder().Raw({'h', 'e', 'l', 'l', 'o', 0, 'X', 'Y'}).b);
  char dest[8];
  memset(dest, 'z', sizeof dest);
  DWORD size = 5;
  ASSERT_EQ(S_OK, riff_ReadANSIString(f.h(), dest, 3, &size));
  EXPECT_STREQ("he", dest);
  EXPECT_EQ('z', dest[3]);
  EXPECT_EQ(6u, f.Pos());
  EXPECT_EQ(6u, size);
  f.Seek(0);
  size = 6;
  ASSERT_EQ(S_OK, riff_ReadANSIString(f.h(), dest, 8, &size));
  EXPECT_STREQ("hello", dest);
  EXPECT_EQ(6u, f.Pos());
  EXPECT_EQ(7u, size);
  f.Seek(4);
  size = 6;
  EXPECT_EQ(KYERR_FILE_READ, riff_ReadANSIString(f.h(), dest, 8, &size));
  EXPECT_EQ(6u, size);
  size = 0;
  EXPECT_EQ(E_INVALIDARG, riff_ReadANSIString(f.h(), dest, 8, &size));
  EXPECT_EQ(E_POINTER, riff_WriteANSIString(f.h(), "a", nullptr));
}

} // namespace
