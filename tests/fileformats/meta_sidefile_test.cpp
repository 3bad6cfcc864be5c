// Path helpers and side-file names.
#include "ky_error.h"
#include "ky_fmmeta.h"
#include "ky_path.h"
#include "ky_status.h"
#include "meta_testutil.h"

using namespace metatest;

namespace {

// Top-level chunks of a RIFF file: (id, data) in order; checks the RIFF size on the way.
std::vector<std::pair<std::string, Bytes>> TopChunks(const Bytes &f) {
  std::vector<std::pair<std::string, Bytes>> out;
  EXPECT_GE(f.size(), 12u);
  if (f.size() < 12) return out;
  uint32_t riffSize = f[4] | f[5] << 8 | f[6] << 16 | (uint32_t)f[7] << 24;
  EXPECT_EQ(f.size() - 8, riffSize);
  for (size_t p = 12; p + 8 <= f.size();) {
    uint32_t n = f[p + 4] | f[p + 5] << 8 | f[p + 6] << 16 | (uint32_t)f[p + 7] << 24;
    if (p + 8 + n > f.size()) break;
    out.push_back({std::string(f.begin() + p, f.begin() + p + 4),
                   Bytes(f.begin() + p + 8, f.begin() + p + 8 + n)});
    p += 8 + n + (n & 1);
  }
  return out;
}

std::string Ids(const std::vector<std::pair<std::string, Bytes>> &chunks) {
  std::string s;
  for (auto &c : chunks) s += c.first + "|";
  return s;
}

TEST(MetaPath, FileNameAndExtension) {
  struct {
    const char *path;
    int nameAt;   // offset of the file-name part
    int extAt;    // offset of the extension, -1 for none
  } cases[] = {
      {"C:\\media\\take.wav", 9, 13},
      {"take.wav", 0, 4},
      {"C:take.wav", 2, 6},
      {"C:\\media\\take", 9, -1},
      {"C:\\media\\my file.old name", 9, -1},  // a space after the dot: no extension
      {"C:\\media\\my file.wav", 9, 16},       // a space before the dot is fine
      {"C:\\v1.2\\take", 8, -1},               // a dot in a folder name
      {"C:\\media\\a.b.c", 9, 12},
      {"C:\\media\\", 9, -1},
      {"", 0, -1},
      {"dir\\.hidden", 4, 4},
  };
  for (auto &c : cases) {
    EXPECT_EQ(c.path + c.nameAt, KyGetFileNamePtr(c.path)) << c.path;
    char *ext = KyGetFileNameExtensionPtr(c.path);
    if (c.extAt < 0)
      EXPECT_EQ(nullptr, ext) << c.path;
    else
      EXPECT_EQ(c.path + c.extAt, ext) << c.path;
  }
  EXPECT_EQ(nullptr, KyGetFileNamePtr(nullptr));
  EXPECT_EQ(nullptr, KyGetFileNameExtensionPtr(nullptr));
}

TEST(MetaSideFile, CreateMetaName) {
  struct {
    const char *path;
    BOOL append;
    const char *want;
  } cases[] = {
      {"C:\\media\\take.wav", FALSE, "C:\\media\\take.KYL"},
      {"C:\\media\\take.wav", TRUE, "C:\\media\\take.wav.KYL"},
      {"C:\\media\\my file.old name", FALSE, "C:\\media\\my file.old name.KYL"},
      {"C:\\media\\take", FALSE, "C:\\media\\take.KYL"},
      {"C:\\v1.2\\take", FALSE, "C:\\v1.2\\take.KYL"},
      {"a.b.c", FALSE, "a.b.KYL"},
      {"", FALSE, ".KYL"},
  };
  for (auto &c : cases) {
    char out[MAX_PATH];
    memset(out, 'x', sizeof out);
    EXPECT_EQ(S_OK, KyFMMeta_CreateMetaName(c.path, out, sizeof out, c.append)) << c.path;
    EXPECT_STREQ(c.want, out);
  }
}

TEST(MetaSideFile, CreateMetaNameLengthTest) {
  // 10 characters: accepted up to a capacity of 6 (10 <= 6 + 4), refused below.
  const char *path = "abcdef.wav";
  char out[32];
  memset(out, '#', sizeof out);
  EXPECT_EQ(E_INVALIDARG, KyFMMeta_CreateMetaName(path, out, 5, TRUE));
  EXPECT_EQ('#', out[0]);
  EXPECT_EQ(S_OK, KyFMMeta_CreateMetaName(path, out, 6, TRUE));
  // The result is cut at the capacity and nothing beyond it is touched.
  EXPECT_STREQ("abcde", out);
  EXPECT_EQ('#', out[6]);
  EXPECT_EQ(S_OK, KyFMMeta_CreateMetaName(path, out, 15, TRUE));
  EXPECT_STREQ("abcdef.wav.KYL", out);
  EXPECT_EQ(S_OK, KyFMMeta_CreateMetaName(path, out, 11, FALSE));
  EXPECT_STREQ("abcdef.KYL", out);
  EXPECT_EQ(E_INVALIDARG, KyFMMeta_CreateMetaName(nullptr, out, 10, FALSE));
  EXPECT_EQ(E_INVALIDARG, KyFMMeta_CreateMetaName(path, nullptr, 10, FALSE));
}

}  // namespace

namespace {

TEST(MetaSideFile, AttachAndRecognise) {
  std::string side = Scratch("take.KYL");
  WriteFileBytes(side, Riff("KYLS", Chunk("junk", {1, 2, 3})));
  EXPECT_FALSE(KyFMMeta_IsMetaFile("C:\\media\\take.wav", side.c_str()));  // none yet
  ASSERT_EQ(S_OK, KyFMMeta_ChangeAttachedFilename(side.c_str(), "C:\\media\\take.wav"));
  auto chunks = TopChunks(ReadFileBytes(side));
  EXPECT_EQ("junk|KYPI|", Ids(chunks));
  EXPECT_EQ(Bytes({'t', 'a', 'k', 'e', '.', 'w', 'a', 'v', 0}), chunks.back().second);
  EXPECT_TRUE(KyFMMeta_IsMetaFile("D:\\elsewhere\\take.wav", side.c_str()));  // name part only
  EXPECT_TRUE(KyFMMeta_IsMetaFile("take.wav", side.c_str()));
  EXPECT_FALSE(KyFMMeta_IsMetaFile("C:\\media\\TAKE.wav", side.c_str()));  // case-sensitive
  EXPECT_FALSE(KyFMMeta_IsMetaFile("C:\\media\\take.wa", side.c_str()));

  // Re-attached twice: exactly one KYPI, at the end of the form.
  ASSERT_EQ(S_OK, KyFMMeta_ChangeAttachedFilename(side.c_str(), "E:\\new name.wav"));
  ASSERT_EQ(S_OK, KyFMMeta_ChangeAttachedFilename(side.c_str(), "x:final.aif"));
  chunks = TopChunks(ReadFileBytes(side));
  EXPECT_EQ("junk|KYPI|", Ids(chunks));
  EXPECT_EQ(Bytes({'f', 'i', 'n', 'a', 'l', '.', 'a', 'i', 'f', 0}), chunks.back().second);
  EXPECT_TRUE(KyFMMeta_IsMetaFile("final.aif", side.c_str()));
  EXPECT_FALSE(KyFMMeta_IsMetaFile("take.wav", side.c_str()));
}

TEST(MetaSideFile, AttachFailures) {
  EXPECT_EQ(E_FAIL, KyFMMeta_ChangeAttachedFilename(nullptr, "a.wav"));
  EXPECT_EQ(E_FAIL, KyFMMeta_ChangeAttachedFilename("a.KYL", nullptr));
  std::string missing = Scratch("missing.KYL");
  EXPECT_EQ(KyErrorHandler_TranslateWin32Error(ERROR_FILE_NOT_FOUND),
            KyFMMeta_ChangeAttachedFilename(missing.c_str(), "a.wav"));
  std::string notRiff = Scratch("notriff.KYL");
  WriteFileBytes(notRiff, {'F', 'O', 'R', 'M', 0, 0, 0, 4, 'A', 'I', 'F', 'F'});
  EXPECT_EQ(KYERR_RIFF_MISSING, KyFMMeta_ChangeAttachedFilename(notRiff.c_str(), "a.wav"));
  EXPECT_FALSE(KyFMMeta_IsMetaFile("a.wav", notRiff.c_str()));
  EXPECT_FALSE(KyFMMeta_IsMetaFile("a.wav", missing.c_str()));
  EXPECT_FALSE(KyFMMeta_IsMetaFile(nullptr, missing.c_str()));
}

TEST(MetaSideFile, StoredNameBounds) {
  std::string side = Scratch("bounds.KYL");
  // The byte at size - 1 is forced to zero: a stored name without terminator loses its last
  // character.
  WriteFileBytes(side, Riff("KYLS", Chunk("KYPI", {'a', '.', 'w', 'a', 'v', 'X'})));
  EXPECT_TRUE(KyFMMeta_IsMetaFile("a.wav", side.c_str()));
  // Longer than 260 bytes: only 260 are read, the 260th becomes the terminator.
  Bytes longName(400, 'n');
  WriteFileBytes(side, Riff("KYLS", Chunk("KYPI", longName)));
  std::string cut(259, 'n');
  EXPECT_TRUE(KyFMMeta_IsMetaFile(cut.c_str(), side.c_str()));
  EXPECT_FALSE(KyFMMeta_IsMetaFile(std::string(400, 'n').c_str(), side.c_str()));
  // An empty chunk names nothing; a chunk size beyond the file is read as far as it goes.
  WriteFileBytes(side, Riff("KYLS", Chunk("KYPI", {})));
  EXPECT_FALSE(KyFMMeta_IsMetaFile("", side.c_str()));
  Bytes bad = Riff("KYLS", Chunk("KYPI", {'a', 0}));
  bad[16] = 0xFF;
  WriteFileBytes(side, bad);
  EXPECT_TRUE(KyFMMeta_IsMetaFile("a", side.c_str()));
}

TEST(MetaSideFile, DeleteMetaChunks) {
  std::string path = Scratch("delete_meta.wav");
  WriteFileBytes(path, ReadFileBytes(kytest::DataPath("meta/wf_markers.wav")));
  ASSERT_EQ(S_OK, KyFMMeta_DeleteMetaChunks(path.c_str()));
  EXPECT_EQ("fmt |data|LIST|", Ids(TopChunks(ReadFileBytes(path))));
  EXPECT_EQ(0, memcmp("INFO", TopChunks(ReadFileBytes(path)).back().second.data(), 4));
  // Nothing left to remove: the missing "adtl" is reported.
  EXPECT_EQ(KYERR_NOT_FOUND, KyFMMeta_DeleteMetaChunks(path.c_str()));

  // Cue points without an "adtl" list: the cue chunk goes, the status says no "adtl".
  WriteFileBytes(path, ReadFileBytes(kytest::DataPath("meta/sf_cues.wav")));
  EXPECT_EQ(KYERR_NOT_FOUND, KyFMMeta_DeleteMetaChunks(path.c_str()));
  EXPECT_EQ("fmt |LIST|data|", Ids(TopChunks(ReadFileBytes(path))));

  EXPECT_EQ(S_OK, KyFMMeta_DeleteMetaChunks(Scratch("no_such.wav").c_str()));
  EXPECT_EQ(S_OK, KyFMMeta_DeleteMetaChunks(nullptr));
}

}  // namespace
