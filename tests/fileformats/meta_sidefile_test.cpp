// Path helpers, side-file names, attaching side files and removing cue chunks.
#include "ky_error.h"
#include "ky_fmmeta.h"
#include "ky_path.h"
#include "ky_status.h"
#include "meta_testutil.h"

using namespace metatest;

namespace {

TEST(MetaSideFile, PathsAndNames) {
  const struct {
    const char *path;
    int nameAt, extAt;  // offsets; -1: no extension
    const char *metaName, *appended;
  } cases[] = {
      {"C:\\media\\take.wav", 9, 13, "C:\\media\\take.KYL", "C:\\media\\take.wav.KYL"},
      {"C:take.wav", 2, 6, "C:take.KYL", "C:take.wav.KYL"},
      {"C:\\media\\my file.old name", 9, -1, "C:\\media\\my file.old name.KYL", nullptr},
      {"C:\\media\\my file.wav", 9, 16, "C:\\media\\my file.KYL", nullptr},
      // The last dot starts the extension even in a folder name; only a space after it counts.
      {"C:\\v1.2\\take", 8, 5, "C:\\v1.KYL", "C:\\v1.2\\take.KYL"},
      {"a.b.c", 0, 3, "a.b.KYL", "a.b.c.KYL"},
      {"", 0, -1, ".KYL", ".KYL"},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(c.path + c.nameAt, KyGetFileNamePtr(c.path)) << c.path;
    EXPECT_EQ(c.extAt < 0 ? nullptr : c.path + c.extAt, KyGetFileNameExtensionPtr(c.path));
    char out[MAX_PATH];
    EXPECT_EQ(S_OK, KyFMMeta_CreateMetaName(c.path, out, sizeof out, FALSE));
    EXPECT_STREQ(c.metaName, out);
    if (!c.appended) continue;
    EXPECT_EQ(S_OK, KyFMMeta_CreateMetaName(c.path, out, sizeof out, TRUE));
    EXPECT_STREQ(c.appended, out);
  }
  // 10 characters are accepted up to a capacity of 6 (10 <= 6 + 4); the result is cut there.
  char out[16];
  memset(out, '#', sizeof out);
  EXPECT_EQ(E_INVALIDARG, KyFMMeta_CreateMetaName("abcdef.wav", out, 5, TRUE));
  EXPECT_EQ(S_OK, KyFMMeta_CreateMetaName("abcdef.wav", out, 6, TRUE));
  EXPECT_STREQ("abcde", out);
  EXPECT_EQ('#', out[6]);
}

// The top-level chunk ids of a RIFF file, checking its RIFF size on the way.
std::string Ids(const Bytes &f) {
  std::string ids;
  EXPECT_EQ(f.size() - 8, (size_t)(f[4] | f[5] << 8 | f[6] << 16 | f[7] << 24));
  for (size_t p = 12; p + 8 <= f.size();) {
    uint32_t n = f[p + 4] | f[p + 5] << 8 | f[p + 6] << 16 | (uint32_t)f[p + 7] << 24;
    ids += std::string(f.begin() + p, f.begin() + p + 4) + "|";
    p += 8 + n + (n & 1);
  }
  return ids;
}

TEST(MetaSideFile, AttachAndRecognise) {
  const std::string side = Scratch("take.KYL");
  WriteFileBytes(side, Riff("KYLS", Chunk("junk", {1, 2, 3})));
  EXPECT_FALSE(KyFMMeta_IsMetaFile("take.wav", side.c_str()));
  ASSERT_EQ(S_OK, KyFMMeta_ChangeAttachedFilename(side.c_str(), "C:\\media\\take.wav"));
  EXPECT_EQ(Riff("KYLS", Cat({Chunk("junk", {1, 2, 3}), Chunk("KYPI", {'t', 'a', 'k', 'e', '.',
                                                                        'w', 'a', 'v', 0})})),
            ReadFileBytes(side));
  EXPECT_TRUE(KyFMMeta_IsMetaFile("D:\\elsewhere\\take.wav", side.c_str()));  // name part only
  EXPECT_FALSE(KyFMMeta_IsMetaFile("C:\\media\\TAKE.wav", side.c_str()));     // case-sensitive
  // Attached twice more: one KYPI, at the end of the form.
  ASSERT_EQ(S_OK, KyFMMeta_ChangeAttachedFilename(side.c_str(), "E:\\new name.wav"));
  ASSERT_EQ(S_OK, KyFMMeta_ChangeAttachedFilename(side.c_str(), "x:final.aif"));
  EXPECT_EQ("junk|KYPI|", Ids(ReadFileBytes(side)));
  EXPECT_TRUE(KyFMMeta_IsMetaFile("final.aif", side.c_str()));

  EXPECT_EQ(E_FAIL, KyFMMeta_ChangeAttachedFilename(nullptr, "a.wav"));
  EXPECT_EQ(E_FAIL, KyFMMeta_ChangeAttachedFilename(side.c_str(), nullptr));
  const std::string missing = Scratch("missing.KYL");
  EXPECT_EQ(KyErrorHandler_TranslateWin32Error(ERROR_FILE_NOT_FOUND),
            KyFMMeta_ChangeAttachedFilename(missing.c_str(), "a.wav"));
  EXPECT_FALSE(KyFMMeta_IsMetaFile("a.wav", missing.c_str()));

  // The byte at size - 1 is forced to zero; at most 260 bytes are read.
  WriteFileBytes(side, Riff("KYLS", Chunk("KYPI", {'a', '.', 'w', 'a', 'v', 'X'})));
  EXPECT_TRUE(KyFMMeta_IsMetaFile("a.wav", side.c_str()));
  WriteFileBytes(side, Riff("KYLS", Chunk("KYPI", Bytes(400, 'n'))));
  EXPECT_TRUE(KyFMMeta_IsMetaFile(std::string(259, 'n').c_str(), side.c_str()));
  WriteFileBytes(side, Riff("KYLS", Chunk("KYPI", {})));
  EXPECT_FALSE(KyFMMeta_IsMetaFile("", side.c_str()));
}

TEST(MetaSideFile, DeleteMetaChunks) {
  const std::string path = Scratch("delete_meta.wav");
  WriteFileBytes(path, ReadFileBytes(Data("wf_markers.wav")));
  ASSERT_EQ(S_OK, KyFMMeta_DeleteMetaChunks(path.c_str()));
  EXPECT_EQ("fmt |data|LIST|", Ids(ReadFileBytes(path)));  // the INFO list stays
  EXPECT_EQ(KYERR_NOT_FOUND, KyFMMeta_DeleteMetaChunks(path.c_str()));
  // Cue points without an "adtl" list: the cue chunk goes, the status says no "adtl".
  WriteFileBytes(path, ReadFileBytes(Data("sf_cues.wav")));
  EXPECT_EQ(KYERR_NOT_FOUND, KyFMMeta_DeleteMetaChunks(path.c_str()));
  EXPECT_EQ("fmt |LIST|data|", Ids(ReadFileBytes(path)));
  EXPECT_EQ(S_OK, KyFMMeta_DeleteMetaChunks(Scratch("no_such.wav").c_str()));
}

}  // namespace
