// IFF/AIFF chunk I/O: big-endian headers, bounded searches, markers and the 80-bit rate.
#include "ky_iff.h"
#include "ky_status.h"
#include "meta_testutil.h"

using namespace metatest;

namespace {

TEST(MetaIff, ConvertRate) {
  const struct {
    WORD w[5];
    DWORD expected;
  } cases[] = {
      {{0x400E, 0xAC44, 0, 0, 0}, 44100},      {{0xC00E, 0xAC44, 0, 0, 0}, 44100},  // negative
      {{0xC00E, 0x0000, 0, 0, 0}, 44100},      {{0x3FFF, 0x8000, 0, 0, 0}, 1},
      {{0x4010, 0xBB80, 0, 0, 0}, 192000},     {{0x400D, 0xAC44, 0x8000, 0, 0}, 22050},  // .5
      {{0x400E, 0xAC44, 0xFFFF, 0, 0}, 44100},  // 44100.99998 truncates
      {{0x400E, 0xAC44, 0xFFFF, 0xFFFF, 0xFFFF}, 44101},  // rounds up in double precision
      {{0x3FFE, 0x8000, 0, 0, 0}, 0},  // exponent below the bias: overflows to 0
      {{0x0000, 0x0000, 0, 0, 0}, 0},          {{0x3FFF, 0x4000, 0, 0, 0}, 0},  // no integer bit
      {{0x401E, 0x8000, 0, 0, 0}, 0x80000000u}, {{0x4020, 0x8000, 0, 0, 0}, 0},  // 2^33: 0
  };
  for (const auto &c : cases)
    EXPECT_EQ(c.expected, aiff_ConvertRate(c.w)) << std::hex << c.w[0] << " " << c.w[1];
}

TEST(MetaIff, WriteAndReadBigEndian) {
  File f("iffwrite.bin", {});
  EXPECT_EQ(S_OK, iff_WriteFileID(f.h(), KYIFF_AIFF, 0x1234));
  IFFCHUNKHDR h = {KYIFF_COMM, 18};
  EXPECT_EQ(S_OK, iff_WriteChunk(f.h(), &h));
  EXPECT_EQ(S_OK, iff_WriteWORD(f.h(), 0x0102));
  EXPECT_EQ(S_OK, iff_WriteDWORD(f.h(), 0x0A0B0C0D));
  const Bytes want = {'F', 'O', 'R', 'M', 0, 0, 0x12, 0x34, 'A', 'I', 'F', 'F', 'C', 'O', 'M', 'M',
                      0, 0, 0, 18, 1, 2, 0x0A, 0x0B, 0x0C, 0x0D};
  EXPECT_EQ(want, f.Contents());
  f.Seek(12);
  DWORD d = 0;
  EXPECT_EQ(S_OK, iff_ReadChunkHdr(f.h(), &h));
  EXPECT_EQ(S_OK, iff_ReadDWORD(f.h(), &d));
  EXPECT_EQ(0x0102 << 16 | 0x0A0B, (int)d);
  EXPECT_EQ(KYERR_FILE_READ, iff_ReadDWORD(f.h(), &d));  // 2 bytes left: a short read
  File ro("sox_s16_44100_2.aiff");
  EXPECT_EQ(KYERR_FILE_WRITE, iff_WriteFileID(ro.h(), KYIFF_AIFF, 4));
}

// FORM AIFF with chunks "ABCD" (3 bytes, padded), "COMM" and "SSND".
Bytes SmallForm() {
  return IffForm("AIFF", Cat({IffChunk("ABCD", {1, 2, 3}), IffChunk("COMM", Bytes(18, 0)),
                            IffChunk("SSND", Bytes(8, 0))}));
}

TEST(MetaIff, Searches) {
  File f("iffsearch.aiff", SmallForm());
  f.Seek(12);
  LONG left = 12 + 26 + 16;
  DWORD size = 0;
  EXPECT_EQ(S_OK, iff_FindChunkHeader(f.h(), KYIFF_SSND, &size, &left));
  EXPECT_EQ(8u, size);
  EXPECT_EQ(8, left);
  EXPECT_EQ(12u + 12 + 26 + 8, f.Pos());
  f.Seek(12);
  left = 7;
  EXPECT_EQ(KYERR_NOT_FOUND, iff_FindChunkHeader(f.h(), KYIFF_COMM, &size, &left));
  EXPECT_EQ(7, left);
  f.Seek(12);
  EXPECT_EQ(KYERR_FILE_READ, iff_SeekChunkHeader(f.h(), KYIFF_MARK, &size));
  EXPECT_EQ(S_OK, iff_FindChunkFromStart(f.h(), KYIFF_COMM, &size));
  EXPECT_EQ(18u, size);
  EXPECT_EQ(KYERR_NOT_FOUND, iff_FindChunkFromStart(f.h(), KYIFF_MARK, &size));
  EXPECT_EQ(0u, size);
  File riff("iffstart.wav", Riff("WAVE", Chunk("fmt ", Bytes(16, 0))));
  EXPECT_EQ(KYERR_RIFF_MISSING, iff_FindChunkFromStart(riff.h(), KYIFF_COMM, &size));
  DWORD formSize = 0;
  EXPECT_TRUE(iff_IsAIFFFile(f.h(), &formSize));
  EXPECT_EQ(4u + 12 + 26 + 16, formSize);
  EXPECT_FALSE(iff_IsAIFFFile(riff.h(), nullptr));

  // Sizes of 2 GB and more move forward past the end, never back onto the same header.
  for (uint32_t huge : {0xFFFFFFF8u, 0x80000000u, 0xFFFFFFFFu}) {
    Bytes body = IffChunk("ABCD", {});
    for (int i = 0; i < 4; ++i) body[4 + i] = (uint8_t)(huge >> (24 - 8 * i));
    File g("iffhuge.aiff", IffForm("AIFF", body));
    EXPECT_EQ(KYERR_NOT_FOUND, iff_FindChunkFromStart(g.h(), KYIFF_COMM, &size)) << huge;
    g.Seek(20);
    EXPECT_EQ(huge + (huge & 1), iff_SkipChunk(g.h(), huge));
  }
}

Bytes Marker(uint16_t id, uint32_t pos, const std::string &name) {
  Bytes m;
  PutBe(m, id, 2);
  PutBe(m, pos);
  m.push_back((uint8_t)name.size());
  Put(m, name);
  if ((name.size() & 1) == 0) m.push_back(0);  // count byte plus characters is even
  return m;
}

Bytes FormWithMarks(uint16_t count, const Bytes &markers) {
  Bytes mark;
  PutBe(mark, count, 2);
  Put(mark, markers);
  return IffForm("AIFF", Cat({IffChunk("COMM", Bytes(18, 0)), IffChunk("MARK", mark)}));
}

TEST(MetaIff, FindMarker) {
  Bytes ms = Cat({Marker(1, 100, "A"), Marker(2, 200, "ab"), Marker(7, 300, ""),
                  Marker(9, 0x01020304, "xyz")});
  File f("marks.aiff", FormWithMarks(4, ms));
  const struct { WORD id; DWORD pos; BYTE len; } want[] = {
      {1, 100, 1}, {2, 200, 2}, {7, 300, 0}, {9, 0x01020304, 3}};
  AIFFMARKER m = {};
  for (const auto &w : want) {
    EXPECT_EQ(S_OK, iff_FindMarker(f.h(), &m, w.id)) << w.id;
    EXPECT_EQ(w.pos, m.position);
    EXPECT_EQ(w.len, m.nameLength);
  }
  EXPECT_EQ(KYERR_NOT_FOUND, iff_FindMarker(f.h(), &m, 3));
  File two("marks2.aiff", FormWithMarks(2, ms));  // the count ends the search
  EXPECT_EQ(KYERR_NOT_FOUND, iff_FindMarker(two.h(), &m, 7));
  File zero("marks0.aiff", FormWithMarks(0, ms));
  EXPECT_EQ(KYERR_NOT_FOUND, iff_FindMarker(zero.h(), &m, 1));
  // The byte count starts at the chunk's size (count word included): a count beyond the
  // markers reads on into the end of the file.
  File big("marksbig.aiff", FormWithMarks(50, ms));
  EXPECT_EQ(KYERR_RIFF_MISSING, iff_FindMarker(big.h(), &m, 11));

  // libsndfile was told to write markers at 0, 8000 and 12345 named "cue1".."cue3"; it
  // counts the names' terminators in their lengths.
  File sf("sf_marks.aiff");
  const DWORD pos[] = {0, 8000, 12345};
  for (WORD id = 1; id <= 3; ++id) {
    ASSERT_EQ(S_OK, iff_FindMarker(sf.h(), &m, id)) << id;
    EXPECT_EQ(pos[id - 1], m.position);
    EXPECT_EQ(5, m.nameLength);
  }
}

}  // namespace
