// IFF/AIFF chunk I/O: byte order, big-endian headers, searches, markers and rates.
#include "ky_iff.h"
#include "ky_status.h"
#include "meta_testutil.h"

using namespace metatest;

namespace {

struct RateCase {
  WORD w[5];
  DWORD expected;
};

TEST(MetaIff, ConvertRateTable) {
  const RateCase cases[] = {
      {{0x400E, 0xAC44, 0, 0, 0}, 44100},
      {{0xC00E, 0xAC44, 0, 0, 0}, 44100},   // negative: taken as 44100
      {{0xC00E, 0x0000, 0, 0, 0}, 44100},   // any negative value
      {{0x400D, 0xFA00, 0, 0, 0}, 32000},
      {{0x3FFF, 0x8000, 0, 0, 0}, 1},
      {{0x400E, 0x93A8, 0, 0, 0}, 37800},
      {{0x4010, 0xBB80, 0, 0, 0}, 192000},
      {{0x400B, 0xFA00, 0, 0, 0}, 8000},
      {{0x400D, 0xAC44, 0, 0, 0}, 22050},
      {{0x400C, 0xAC44, 0, 0, 0}, 11025},
      {{0x400D, 0xAC44, 0x8000, 0, 0}, 22050},  // 22050.5 truncates
      {{0x400E, 0xAC44, 0xFFFF, 0, 0}, 44100},  // 44100.99998 truncates
      {{0x400E, 0xAC44, 0xFFFF, 0xFFFF, 0xFFFF}, 44101},  // rounds up in double precision
      {{0x3FFE, 0x8000, 0, 0, 0}, 0},        // exponent below the bias: overflows to 0
      {{0x0000, 0x0000, 0, 0, 0}, 0},
      {{0x3FFF, 0x0000, 0, 0, 0}, 0},        // no integer bit: 0.0
      {{0x3FFF, 0x4000, 0, 0, 0}, 0},        // 0.5 without the integer bit
      {{0x401E, 0x8000, 0, 0, 0}, 0x80000000u},
      {{0x4020, 0x8000, 0, 0, 0}, 0},        // 2^33 does not fit: 0
  };
  for (const RateCase &c : cases) {
    EXPECT_EQ(c.expected, aiff_ConvertRate(c.w))
        << std::hex << c.w[0] << " " << c.w[1] << " " << c.w[2];
  }
  EXPECT_EQ(0u, aiff_ConvertRate(nullptr));
}

TEST(MetaIff, ByteSwaps) {
  BYTE b[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  iff_ByteSwap16(b, 0);
  EXPECT_EQ(1, b[0]);
  iff_ByteSwap16(b, 3);
  const BYTE s16[8] = {2, 1, 4, 3, 6, 5, 7, 8};
  EXPECT_EQ(0, memcmp(b, s16, 8));
  BYTE c[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  iff_ByteSwap32(c, 1);
  const BYTE s32[8] = {4, 3, 2, 1, 5, 6, 7, 8};
  EXPECT_EQ(0, memcmp(c, s32, 8));
}

TEST(MetaIff, WritersAreBigEndian) {
  TempFile f("iffwrite.bin", {});
  ASSERT_NE(INVALID_HANDLE_VALUE, f.h());
  EXPECT_EQ(S_OK, iff_WriteFileID(f.h(), KYIFF_AIFF, 0x1234));
  IFFCHUNKHDR h = {KYIFF_COMM, 18};
  EXPECT_EQ(S_OK, iff_WriteChunk(f.h(), &h));
  EXPECT_EQ(KYIFF_COMM, h.ckID);  // the caller's record is not changed
  EXPECT_EQ(18u, h.ckSize);
  EXPECT_EQ(S_OK, iff_WriteWORD(f.h(), 0x0102));
  EXPECT_EQ(S_OK, iff_WriteDWORD(f.h(), 0x0A0B0C0D));
  Bytes want;
  PutText(want, "FORM");
  Put32be(want, 0x1234);
  PutText(want, "AIFFCOMM");
  Put32be(want, 18);
  Put16be(want, 0x0102);
  Put32be(want, 0x0A0B0C0D);
  EXPECT_EQ(want, f.Contents());

  // Read them back in host order.
  f.Seek(0);
  IFFCHUNKHDR r = {};
  DWORD type = 0;
  EXPECT_EQ(S_OK, iff_ReadFormType(f.h(), &r, &type));
  EXPECT_EQ(KYIFF_FORM, r.ckID);
  EXPECT_EQ(0x1234u, r.ckSize);
  EXPECT_EQ(KYIFF_AIFF, type);
  EXPECT_EQ(S_OK, iff_ReadChunkHdr(f.h(), &r));
  EXPECT_EQ(KYIFF_COMM, r.ckID);
  WORD w = 0;
  DWORD d = 0;
  EXPECT_EQ(S_OK, iff_ReadWORD(f.h(), &w));
  EXPECT_EQ(S_OK, iff_ReadDWORD(f.h(), &d));
  EXPECT_EQ(0x0102, w);
  EXPECT_EQ(0x0A0B0C0Du, d);
  // At the end every read is short.
  EXPECT_EQ(KYERR_FILE_READ, iff_ReadWORD(f.h(), &w));
  EXPECT_EQ(KYERR_FILE_READ, iff_ReadDWORD(f.h(), &d));
  EXPECT_EQ(KYERR_FILE_READ, iff_ReadChunkHdr(f.h(), &r));
}

TEST(MetaIff, WritesToReadOnlyHandleFail) {
  Fixture f("sox_s16_44100_2.aiff");
  ASSERT_NE(INVALID_HANDLE_VALUE, f.h());
  IFFCHUNKHDR h = {KYIFF_COMM, 0};
  EXPECT_EQ(KYERR_FILE_WRITE, iff_WriteChunk(f.h(), &h));
  EXPECT_EQ(KYERR_FILE_WRITE, iff_WriteDWORD(f.h(), 1));
  EXPECT_EQ(KYERR_FILE_WRITE, iff_WriteWORD(f.h(), 1));
  EXPECT_EQ(KYERR_FILE_WRITE, iff_WriteFileID(f.h(), KYIFF_AIFF, 4));
}

// FORM AIFF with chunks "ABCD" (3 bytes, padded), "COMM" and "SSND".
Bytes SmallForm(const char *formType = "AIFF") {
  Bytes body = IffChunk("ABCD", {1, 2, 3});
  Append(body, IffChunk("COMM", Bytes(18, 0)));
  Append(body, IffChunk("SSND", Bytes(8, 0)));
  return IffForm(formType, body);
}

TEST(MetaIff, FindChunkHeaderCountsRemaining) {
  TempFile f("iffsearch.aiff", SmallForm());
  f.Seek(12);
  LONG left = 12 + 26 + 16;  // bytes after the form type
  DWORD size = 0;
  EXPECT_EQ(S_OK, iff_FindChunkHeader(f.h(), KYIFF_SSND, &size, &left));
  EXPECT_EQ(8u, size);
  EXPECT_EQ(8, left);                  // only SSND's data is left
  EXPECT_EQ(12u + 12 + 26 + 8, f.Pos());  // at SSND's data

  f.Seek(12);
  left = 12 + 26;  // bounded before SSND
  EXPECT_EQ(KYERR_NOT_FOUND, iff_FindChunkHeader(f.h(), KYIFF_SSND, &size, &left));
  EXPECT_EQ(0, left);

  f.Seek(12);
  left = 7;
  EXPECT_EQ(KYERR_NOT_FOUND, iff_FindChunkHeader(f.h(), KYIFF_COMM, &size, &left));
  EXPECT_EQ(7, left);
  EXPECT_EQ(12u, f.Pos());  // nothing read

  // Unbounded: the end of the file ends the search with a read error.
  f.Seek(12);
  EXPECT_EQ(KYERR_FILE_READ, iff_FindChunkHeader(f.h(), KYIFF_MARK, &size, nullptr));
  f.Seek(12);
  EXPECT_EQ(KYERR_FILE_READ, iff_SeekChunkHeader(f.h(), KYIFF_MARK, &size));
  f.Seek(12);
  EXPECT_EQ(S_OK, iff_SeekChunkHeader(f.h(), KYIFF_COMM, &size));
  EXPECT_EQ(18u, size);
}

TEST(MetaIff, HugeChunkSizesMoveForward) {
  // A size of 2 GB or more is a forward move past the end of the file, never a backward one
  // that would revisit the same header for ever.
  for (uint32_t size : {0xFFFFFFF8u, 0x80000000u, 0xFFFFFFFFu}) {
    Bytes body = IffChunk("ABCD", {});
    body[7] = (uint8_t)size;
    body[6] = (uint8_t)(size >> 8);
    body[5] = (uint8_t)(size >> 16);
    body[4] = (uint8_t)(size >> 24);
    TempFile f("iffhuge.aiff", IffForm("AIFF", body));
    DWORD found = 0;
    EXPECT_EQ(KYERR_NOT_FOUND, iff_FindChunkFromStart(f.h(), KYIFF_COMM, &found)) << size;
    f.Seek(12);
    EXPECT_EQ(KYERR_FILE_READ, iff_SeekChunkHeader(f.h(), KYIFF_COMM, &found)) << size;
    f.Seek(20);
    EXPECT_EQ(size + (size & 1), iff_SkipChunk(f.h(), size));
  }
}

TEST(MetaIff, FindChunkFromStart) {
  TempFile f("iffstart.aiff", SmallForm());
  DWORD size = 99;
  EXPECT_EQ(S_OK, iff_FindChunkFromStart(f.h(), KYIFF_SSND, &size));
  EXPECT_EQ(8u, size);
  size = 99;
  EXPECT_EQ(KYERR_NOT_FOUND, iff_FindChunkFromStart(f.h(), KYIFF_MARK, &size));
  EXPECT_EQ(0u, size);

  Bytes riff = Riff("WAVE", Chunk("fmt ", Bytes(16, 0)));
  TempFile r("iffstart.wav", riff);
  EXPECT_EQ(KYERR_RIFF_MISSING, iff_FindChunkFromStart(r.h(), KYIFF_COMM, &size));
  Bytes shortForm;
  PutText(shortForm, "FORM");
  Put32be(shortForm, 4);
  PutText(shortForm, "AI");
  TempFile s("iffshort.aiff", shortForm);
  EXPECT_EQ(KYERR_RIFF_MISSING, iff_FindChunkFromStart(s.h(), KYIFF_COMM, &size));
  TempFile e("iffempty.aiff", {});
  EXPECT_EQ(KYERR_FILE_READ, iff_FindChunkFromStart(e.h(), KYIFF_COMM, &size));
}

TEST(MetaIff, ReadFormTypeAndIsAiff) {
  TempFile a("isaiff.aiff", SmallForm());
  DWORD formSize = 0;
  EXPECT_TRUE(iff_IsAIFFFile(a.h(), &formSize));
  EXPECT_EQ(4u + 12 + 26 + 16, formSize);
  TempFile c("isaiff.aifc", SmallForm("AIFC"));
  EXPECT_FALSE(iff_IsAIFFFile(c.h(), &formSize));
  TempFile r("isaiff.wav", Riff("WAVE", {}));
  EXPECT_FALSE(iff_IsAIFFFile(r.h(), nullptr));
  r.Seek(0);
  IFFCHUNKHDR h;
  DWORD type;
  EXPECT_EQ(KYERR_FILE_CORRUPT, iff_ReadFormType(r.h(), &h, &type));
  Fixture sox("sox_s16_44100_2.aiff");
  EXPECT_TRUE(iff_IsAIFFFile(sox.h(), nullptr));
  Fixture aifc("sox_f32_44100_1.aifc");
  EXPECT_FALSE(iff_IsAIFFFile(aifc.h(), nullptr));
}

Bytes Marker(uint16_t id, uint32_t pos, const std::string &name) {
  Bytes m;
  Put16be(m, id);
  Put32be(m, pos);
  m.push_back((uint8_t)name.size());
  PutText(m, name);
  if ((name.size() & 1) == 0) m.push_back(0);  // count byte plus characters is even
  return m;
}

Bytes FormWithMarks(uint16_t count, const Bytes &markers) {
  Bytes mark;
  Put16be(mark, count);
  Append(mark, markers);
  Bytes body = IffChunk("COMM", Bytes(18, 0));
  Append(body, IffChunk("MARK", mark));
  return IffForm("AIFF", body);
}

TEST(MetaIff, FindMarker) {
  Bytes ms;
  Append(ms, Marker(1, 100, "A"));
  Append(ms, Marker(2, 200, "ab"));
  Append(ms, Marker(7, 300, ""));
  Append(ms, Marker(9, 0x01020304, "xyz"));
  TempFile f("marks.aiff", FormWithMarks(4, ms));
  struct {
    WORD id;
    DWORD pos;
    BYTE len;
  } want[] = {{1, 100, 1}, {2, 200, 2}, {7, 300, 0}, {9, 0x01020304, 3}};
  for (auto &w : want) {
    AIFFMARKER m = {};
    EXPECT_EQ(S_OK, iff_FindMarker(f.h(), &m, w.id)) << w.id;
    EXPECT_EQ(w.id, m.id);
    EXPECT_EQ(w.pos, m.position);
    EXPECT_EQ(w.len, m.nameLength);
  }
  AIFFMARKER m;
  EXPECT_EQ(KYERR_NOT_FOUND, iff_FindMarker(f.h(), &m, 3));

  // The count ends the search even when more bytes follow.
  TempFile g("marks2.aiff", FormWithMarks(2, ms));
  EXPECT_EQ(KYERR_NOT_FOUND, iff_FindMarker(g.h(), &m, 7));
  TempFile z("marks0.aiff", FormWithMarks(0, ms));
  EXPECT_EQ(KYERR_NOT_FOUND, iff_FindMarker(z.h(), &m, 1));
  // A count larger than the chunk: the byte count starts at the chunk's size (the count word
  // included), so the search reads past the markers and meets the end of the file.
  TempFile big("marksbig.aiff", FormWithMarks(50, ms));
  EXPECT_EQ(KYERR_RIFF_MISSING, iff_FindMarker(big.h(), &m, 11));
  TempFile none("nomarks.aiff", SmallForm());
  EXPECT_EQ(KYERR_NOT_FOUND, iff_FindMarker(none.h(), &m, 1));
}

TEST(MetaIff, FindMarkerInIndependentFile) {
  // libsndfile was told to write cue points at 0, 8000 and 12345 as AIFF markers.
  Fixture f("sf_marks.aiff");
  ASSERT_NE(INVALID_HANDLE_VALUE, f.h());
  const DWORD pos[] = {0, 8000, 12345};
  for (WORD id = 1; id <= 3; ++id) {
    AIFFMARKER m = {};
    ASSERT_EQ(S_OK, iff_FindMarker(f.h(), &m, id)) << id;
    EXPECT_EQ(pos[id - 1], m.position);
    EXPECT_EQ(5, m.nameLength);  // libsndfile counts the terminator: "cue1\0"
  }
}

}  // namespace
