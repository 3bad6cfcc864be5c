// 64-bit RIFF chunk I/O: stored sizes, 8-byte padding, the two-phase writer, searches and
// files beyond 4 GiB.
#include "ky_riff64.h"
#include "riff_testutil.h"

using namespace rifftest;

namespace {

const GUID kRiff = KY_RIFF64_GUID_RIFF_INIT;
// The wave form and its chunks as other writers of this container name them.
const GUID kWave = {0x65766177, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
const GUID kFmt = {0x20746D66, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
const GUID kData = {0x61746164, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
const GUID kMine = {0x12345678, 0x1111, 0x2222, {1, 2, 3, 4, 5, 6, 7, 8}};

bool Same(const GUID &a, const GUID &b) { return memcmp(&a, &b, sizeof a) == 0; }

TEST(Riff64Validate, SizeRules) {
  const struct { ULONGLONG size; HRESULT hr; } rows[] = {
      {0x18, S_OK}, {0x20, S_OK}, {0x100000000ull, S_OK}, {0x1C, KYERR_CHUNK_BAD_LENGTH},
      {0x800000000ull, KYERR_CHUNK_BAD_LENGTH}, {0x8000000000000000ull, S_OK}, // bit 35, not the sign
      {0, KYERR_CHUNK_ZERO_LENGTH}};
  for (const auto &r : rows) EXPECT_EQ(r.hr, riff64_ValidateChunkHeader(kFmt, r.size)) << std::hex << r.size;
}

TEST(Riff64Write, ExactAndCompletedSizes) {
  TempFile a, b;
  ULONGLONG written = 0;
  ASSERT_EQ(S_OK, riff64_WriteChunk(a.h(), kMine, "\1\2\3\4\5", 5, &written));
  EXPECT_EQ(32u, written);
  ASSERT_EQ(S_OK, riff64_WriteChunkToFile(b.h(), kMine, "\1\2\3\4\5", 5));
  const Bytes tail = {1, 2, 3, 4, 5, 0, 0, 0};
  EXPECT_EQ(Builder().Guid(kMine).U64(29).Raw(tail.data(), 8).b, a.Content()); // exact size
  EXPECT_EQ(Builder().Guid(kMine).U64(32).Raw(tail.data(), 8).b, b.Content()); // completed
  EXPECT_EQ(32u, b.Pos());
  const struct { ULONGLONG size, padded; } rows[] = {{0, 0}, {1, 8}, {8, 8}, {9, 16}};
  for (const auto &r : rows) {
    TempFile f;
    ULONGLONG out = 99;
    ASSERT_EQ(S_OK, riff64_WriteData(f.h(), "0123456789abcdef", r.size, &out));
    EXPECT_EQ(r.padded, out);
    EXPECT_EQ(LONGLONG(r.padded), riff64_AmountWritten(f.h(), 0));
    EXPECT_EQ(S_OK, riff64_Pad(f.h(), 3)); // 3 zero bytes make (position - 3) a multiple of 8
    EXPECT_EQ(r.padded + 3, f.Pos());
  }
}

// A file written in two phases, with a nested list, read back through every search.
TEST(Riff64Write, StreamedFileReadsBack) {
  TempFile f;
  ULONGLONG fileStart = 1, listStart = 1, chunkStart = 1, n = 0, size = 0;
  ASSERT_EQ(S_OK, riff64_PrepareChunk(f.h(), kRiff, &fileStart));
  ASSERT_EQ(S_OK, riff64_WriteToFile(f.h(), &kWave, 16));
  ASSERT_EQ(S_OK, riff64_WriteChunk(f.h(), kFmt, "0123456789abcdef", 16, &n));
  ASSERT_EQ(S_OK, riff64_PrepareList(f.h(), kMine, &listStart));
  ASSERT_EQ(S_OK, riff64_WriteChunk(f.h(), kMine, "abc", 3, &n));
  ASSERT_EQ(S_OK, riff64_PrepareChunk(f.h(), kData, &chunkStart));
  ASSERT_EQ(S_OK, riff64_WriteToFile(f.h(), "0123456789", 10));
  ASSERT_EQ(S_OK, riff64_CompleteChunk(f.h(), chunkStart));
  ASSERT_EQ(S_OK, riff64_CompleteChunk(f.h(), listStart));
  ASSERT_EQ(S_OK, riff64_WriteChunk(f.h(), kData, "xyz", 3, &n));
  ASSERT_EQ(S_OK, riff64_CompleteChunk(f.h(), fileStart));
  EXPECT_EQ(0u, fileStart);
  EXPECT_EQ(80u, listStart);
  // riff 40, fmt 40 @40, list 112 @80 {mine 27 @120, data completed 40 @152}, data 27 @192
  const Bytes c = f.Content();
  ASSERT_EQ(224u, c.size());
  const size_t sizeAt[] = {0, 40, 80, 120, 152, 192};
  const ULONGLONG stored[] = {224, 40, 112, 27, 40, 27};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(stored[i], At<ULONGLONG>(c, sizeAt[i] + 16)) << sizeAt[i];

  GUID form{};
  LONGLONG rem = -5;
  f.Seek(0);
  ASSERT_EQ(S_OK, riff64_ReadFileID(f.h(), &size, &form));
  EXPECT_TRUE(Same(kWave, form));
  EXPECT_EQ(184u, size);
  ASSERT_EQ(S_OK, riff64_FindChunkHeaderInRIFF(f.h(), kData, &size, &rem));
  EXPECT_EQ(3u, size);
  EXPECT_EQ(216u, f.Pos());
  EXPECT_EQ(8, rem);
  ASSERT_EQ(S_OK, riff64_FindListChunkFromStart(f.h(), kMine, &size));
  EXPECT_EQ(72u, size);
  EXPECT_EQ(120u, f.Pos());
  rem = 72;
  ASSERT_EQ(S_OK, riff64_SeekListEntry(f.h(), 1, &rem));
  EXPECT_EQ(152u, f.Pos());
  EXPECT_EQ(40, rem);
  char buf[16] = {};
  ASSERT_EQ(S_OK, riff64_FindChunkHeader(f.h(), kData, &size, &rem));
  EXPECT_EQ(16u, size); // a completed size includes the pad
  ASSERT_EQ(S_OK, riff64_ReadData(f.h(), buf, 10));
  EXPECT_STREQ("0123456789", buf);
  EXPECT_EQ(192u, f.Pos());
  // An absent list type: the exact accounting leaves nothing over at the end.
  f.Seek(40);
  rem = 184;
  EXPECT_EQ(KYERR_NOT_FOUND, riff64_FindListChunk(f.h(), kFmt, &size, &rem));
  EXPECT_EQ(0, rem);
  EXPECT_EQ(224u, f.Pos());
}

TEST(Riff64Read, HeadersSizesAndPositions) {
  Builder b;
  b.Guid(kRiff).U64(0xFFFFFFF8ull).Guid(kWave).Guid(kFmt).U64(24 + 5).Fill(8, 1).Guid(kFmt).U64(64);
  TempFile f(b.b);
  f.Seek(33);
  ASSERT_EQ(S_OK, riff64_UpdateRIFFSize(f.h(), 0x10)); // a carry into the high half
  EXPECT_EQ(0x100000008ull, At<ULONGLONG>(f.Content(), 16));
  ASSERT_EQ(S_OK, riff64_SetRIFFSize(f.h(), 0x200000000ull));
  EXPECT_EQ(0x200000018ull, At<ULONGLONG>(f.Content(), 16));
  EXPECT_EQ(33u, f.Pos());
  EXPECT_EQ(S_OK, riff64_SeekDataStart(f.h()));
  GUID type{};
  ULONGLONG size = 0, pos = 0;
  EXPECT_EQ(KYERR_LIST_MISSING, riff64_ReadListHeader(f.h(), &type, &size));
  EXPECT_EQ(64u, f.Pos());
  EXPECT_EQ(5u, size);
  BYTE buf[8] = {};
  EXPECT_EQ(S_OK, riff64_ReadDataBounded(f.h(), buf, 5, 3)); // 3 read, 2 rest, 3 from capacity
  ASSERT_EQ(S_OK, riff64_SaveLocation(f.h(), &pos));
  EXPECT_EQ(72u, pos);
  EXPECT_EQ(S_OK, riff64_RestoreLocation(f.h(), 64));
  EXPECT_EQ(8u, riff64_SkipChunk(f.h(), 5));
  EXPECT_EQ(72u, f.Pos());
  TempFile riff32(Builder().Tag("RIFF").U32(100).Tag("WAVE").Fill(40).b);
  EXPECT_EQ(KYERR_RIFF_MISSING, riff64_ReadFileID(riff32.h(), &size, &type));
}

TEST(Riff64Find, TinyCountsAndTheEndOfTheFile) {
  TempFile f(Builder().Guid(kFmt).U64(24).Guid(kData).U64(32).Fill(8).b);
  ULONGLONG size = 0;
  const struct { LONGLONG rem; HRESULT hr; LONGLONG after; } rows[] = {
      {23, KYERR_NOT_FOUND, 23}, {-1, KYERR_NOT_FOUND, -1}, {24, S_OK, 0}};
  for (const auto &r : rows) {
    f.Seek(0);
    LONGLONG rem = r.rem;
    EXPECT_EQ(r.hr, riff64_FindChunkHeader(f.h(), kFmt, &size, &rem));
    EXPECT_EQ(r.after, rem);
    EXPECT_EQ(r.hr == S_OK ? 24u : 0u, f.Pos()); // refused without reading
  }
  f.Seek(0);
  EXPECT_EQ(KYERR_FILE_READ, riff64_FindChunkHeader(f.h(), kMine, &size, nullptr));
  f.Seek(0);
  LONGLONG rem = 1000; // the read error at the end leaves the count as it was
  EXPECT_EQ(KYERR_FILE_READ, riff64_FindChunkHeader(f.h(), kMine, &size, &rem));
  EXPECT_EQ(1000, rem);
  f.Seek(0);
  DWORD count = 0;
  EXPECT_EQ(KYERR_FILE_READ, riff64_GetNumListEntries(f.h(), &count, nullptr));
  EXPECT_EQ(2u, count);
}

// Stored sizes smaller than the header would make a scan run backwards; they end it instead.
TEST(Riff64Find, UndersizedAndHugeChunksEndScans) {
  const struct { ULONGLONG stored; HRESULT hr; } rows[] = {
      {0, KYERR_CHUNK_ZERO_LENGTH}, {8, KYERR_CHUNK_BAD_LENGTH}, {23, KYERR_CHUNK_BAD_LENGTH}};
  for (const auto &r : rows) {
    TempFile f(Builder().Guid(kFmt).U64(r.stored).Fill(64).b);
    ULONGLONG size = 0;
    LONGLONG rem = 1000;
    DWORD count = 0;
    EXPECT_EQ(r.hr, riff64_FindChunkHeader(f.h(), kData, &size, nullptr));
    f.Seek(0);
    EXPECT_EQ(r.hr, riff64_FindListChunk(f.h(), kWave, &size, &rem));
    f.Seek(0);
    EXPECT_EQ(r.hr, riff64_GetNumListEntries(f.h(), &count, nullptr));
    EXPECT_EQ(r.hr, riff64_SeekListEntry(f.h(), 3, nullptr));
  }
  TempFile f(Builder().Guid(kFmt).U64(0xFFFFFFFFFFFFFFF0ull).Fill(64).b);
  LONGLONG rem = 1000;
  ULONGLONG size = 0;
  EXPECT_EQ(KYERR_NOT_FOUND, riff64_FindChunkHeader(f.h(), kData, &size, &rem));
  EXPECT_LT(rem, 0);
  f.Seek(0);
  EXPECT_EQ(KYERR_FILE_READ, riff64_FindChunkHeader(f.h(), kData, &size, nullptr));
}

// A sparse file beyond 4 GiB: skipping and searching use full 64-bit positions.
TEST(Riff64Large, FindsChunkBeyondFourGiB) {
  TempFile f;
  const ULONGLONG gap = 0x100000010ull; // 4 GiB + 16 data bytes in one chunk
  ASSERT_EQ(S_OK, riff64_WriteFileID(f.h(), kWave, 0));
  ASSERT_EQ(S_OK, riff64_WriteChunkHeader(f.h(), kFmt, gap));
  f.Seek(64 + gap);
  if (!SetEndOfFile(f.h())) GTEST_SKIP() << "the file system cannot hold a 4 GiB file here";
  ULONGLONG written = 0, size = 0, pos = 0;
  ASSERT_EQ(S_OK, riff64_WriteChunk(f.h(), kData, "tail!", 5, &written));
  const ULONGLONG total = f.Pos();
  ASSERT_EQ(S_OK, riff64_SetRIFFSize(f.h(), total - 24));
  LONGLONG rem = 0;
  ASSERT_EQ(S_OK, riff64_FindChunkHeaderInRIFF(f.h(), kData, &size, &rem));
  EXPECT_EQ(5u, size);
  EXPECT_EQ(8, rem);
  riff64_SaveLocation(f.h(), &pos);
  EXPECT_EQ(total - 8, pos);
  char buf[8] = {};
  ASSERT_EQ(S_OK, riff64_ReadData(f.h(), buf, size));
  EXPECT_STREQ("tail!", buf);
  EXPECT_EQ(total, f.Pos());
  f.Seek(64);
  EXPECT_EQ(gap, riff64_SkipChunk(f.h(), gap - 3)); // rounded up to 8
  EXPECT_EQ(64 + gap, f.Pos());
  // The 32-bit family's limit: its positions keep only the low half.
  DWORD low = 0;
  f.Seek(0x100000123ull);
  ASSERT_EQ(S_OK, riff_SaveLocation(f.h(), &low));
  EXPECT_EQ(0x123u, low);
}

} // namespace
