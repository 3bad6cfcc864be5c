// Path helpers and side-file names.
#include "ky_fmmeta.h"
#include "ky_path.h"
#include "ky_status.h"
#include "meta_testutil.h"

namespace {

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
