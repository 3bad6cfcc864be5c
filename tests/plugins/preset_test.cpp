// Presets against the real registry and file system of the test prefix, with a real COM
// effect object: inline and file presets at the 256-byte boundary, overwrite without
// truncation, names unfit for files, files deleted behind the registry's back, both families.
#include "test_effect.h"
#include "ky_preset.h"
#include "ky_status.h"

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

using kytest::TestEffect;

namespace {

const char *kKey = "Software\\DirectShow\\Presets\\{8D4E2F61-3C7A-4B19-A5E0-71C2D9F4B803}";
const char *kDxKey = "Software\\DXTransform\\Presets\\{8D4E2F61-3C7A-4B19-A5E0-71C2D9F4B803}";

std::vector<BYTE> Pattern(size_t n, int seed) {
  std::vector<BYTE> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<BYTE>(i * 7 + seed);
  return v;
}

// Whether the value exists; its type and bytes (up to 1 KiB) when asked for.
bool QueryValue(const char *key, const char *name, DWORD *type = nullptr, std::vector<BYTE> *data = nullptr) {
  BYTE buf[1024];
  DWORD size = sizeof buf;
  if (RegGetValueA(HKEY_CURRENT_USER, key, name, RRF_RT_ANY | RRF_NOEXPAND, type, buf, &size)) return false;
  if (data) data->assign(buf, buf + size);
  return true;
}

std::vector<BYTE> FileBytes(const std::string &path) {
  std::ifstream f(path, std::ios::binary);
  return std::vector<BYTE>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

bool Exists(const std::string &path) { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

class Presets : public ::testing::Test {
protected:
  TestEffect fx;
  std::string folder;
  void SetUp() override {
    TearDown();
    folder = kytest::TempDir("presets") + "saved";
    ASSERT_EQ(KyDSFilter_SetDefaultSavePath(folder.c_str(), 0), S_OK);
  }
  void TearDown() override {
    RegDeleteTreeA(HKEY_CURRENT_USER, "Software\\DirectShow\\Presets");
    RegDeleteTreeA(HKEY_CURRENT_USER, "Software\\DXTransform\\Presets");
  }
  HRESULT Save(const char *name, const std::vector<BYTE> &state, LONG family = 0) {
    fx.state = state;
    return KyDSFilter_SavePreset(fx.Unknown(), name, family);
  }
  std::vector<BYTE> Load(const char *name, HRESULT expect = S_OK, LONG family = 0) {
    fx.loaded.clear();
    EXPECT_EQ(KyDSFilter_LoadPreset(fx.Unknown(), name, family), expect) << name;
    return fx.loaded;
  }
};

} // namespace

TEST_F(Presets, DefaultSavePathIsExpandedAndChecked) {
  char buf[MAX_PATH];
  SetEnvironmentVariableA("KYTEST_PRESETS", "C:\\somewhere");
  ASSERT_EQ(KyDSFilter_SetDefaultSavePath("%KYTEST_PRESETS%\\fx", 1), S_OK);
  ASSERT_EQ(KyDSFilter_GetDefaultSavePath(buf, sizeof buf, 1), S_OK);
  EXPECT_STREQ(buf, "C:\\somewhere\\fx");
  EXPECT_EQ(KyDSFilter_GetDefaultSavePath(buf, 10, 1), 1);  // does not fit
  EXPECT_EQ(KyDSFilter_GetDefaultSavePath(nullptr, 10, 1), E_POINTER);
  EXPECT_EQ(KyDSFilter_SetDefaultSavePath(nullptr, 1), E_POINTER);

  const char *dx = "Software\\DXTransform\\Presets";
  RegSetKeyValueA(HKEY_CURRENT_USER, dx, "DefLocation", REG_SZ, "C:\\x", 5);
  EXPECT_EQ(KyDSFilter_GetDefaultSavePath(buf, sizeof buf, 1), 1);  // not REG_EXPAND_SZ
  RegDeleteKeyValueA(HKEY_CURRENT_USER, dx, "DefLocation");
  EXPECT_EQ(KyDSFilter_GetDefaultSavePath(buf, sizeof buf, 1), 1);  // missing
}

TEST_F(Presets, InlineUpTo256BytesAndFilesAbove) {
  std::vector<BYTE> small = Pattern(256, 1), large = Pattern(257, 2);
  ASSERT_EQ(Save("Small", small), S_OK);
  ASSERT_EQ(Save("Large", large), S_OK);
  DWORD type = 0;
  std::vector<BYTE> data;
  ASSERT_TRUE(QueryValue(kKey, "Small", &type, &data));
  EXPECT_EQ(type, static_cast<DWORD>(REG_BINARY));
  EXPECT_EQ(data, small);
  ASSERT_TRUE(QueryValue(kKey, "Large", &type, &data));
  EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
  const std::string path = reinterpret_cast<const char *>(data.data());
  EXPECT_EQ(path, folder + "\\Large.dxp");
  EXPECT_EQ(FileBytes(path), large);

  EXPECT_EQ(Load("Small"), small);
  EXPECT_EQ(Load("Large"), large);
  EXPECT_EQ(fx.loads, 2);

  LONG count = -1;
  ASSERT_EQ(KyDSFilter_GetPresetCount(fx.Unknown(), &count, 0), S_OK);
  EXPECT_EQ(count, 2);
  std::string names;
  char name[64];
  for (LONG i = 0; i < 2; ++i) {
    DWORD size = sizeof name;
    ASSERT_EQ(KyDSFilter_GetPresetName(fx.Unknown(), i, name, &size, 0), S_OK);
    EXPECT_EQ(size, strlen(name));
    names += std::string(name) + ";";
  }
  EXPECT_TRUE(names == "Small;Large;" || names == "Large;Small;") << names;
  DWORD size = sizeof name;
  EXPECT_EQ(KyDSFilter_GetPresetName(fx.Unknown(), 2, name, &size, 0), HRESULT_FROM_WIN32(ERROR_NO_MORE_ITEMS));
}

TEST_F(Presets, OverwriteReplacesValuesButDoesNotTruncateFiles) {
  ASSERT_EQ(Save("P", Pattern(10, 1)), S_OK);
  ASSERT_EQ(Save("P", Pattern(20, 3)), S_OK);
  EXPECT_EQ(Load("P"), Pattern(20, 3));

  std::vector<BYTE> first = Pattern(400, 5), second = Pattern(300, 9);
  ASSERT_EQ(Save("Big", first), S_OK);
  ASSERT_EQ(Save("Big", second), S_OK);
  std::vector<BYTE> expect = second;
  expect.insert(expect.end(), first.begin() + 300, first.end());  // the old tail stays
  EXPECT_EQ(FileBytes(folder + "\\Big.dxp"), expect);
  EXPECT_EQ(Load("Big"), expect);
}

TEST_F(Presets, NamesUnfitForFilesAndMissingFiles) {
  const char *name = "Warm: glow/soft? \"v2\".";
  std::vector<BYTE> state = Pattern(1000, 4);
  ASSERT_EQ(Save(name, state), S_OK);
  std::string file = folder + "\\Warm_ glow_soft_ _v2__.dxp";
  EXPECT_TRUE(Exists(file));
  EXPECT_TRUE(QueryValue(kKey, name));  // the value keeps the name as given
  EXPECT_EQ(Load(name), state);

  // The file deleted behind the registry's back: loading fails, deleting still works.
  ASSERT_TRUE(DeleteFileA(file.c_str()));
  Load(name, KYERR_FILE_OPEN);
  EXPECT_EQ(KyDSFilter_DeletePreset(fx.Unknown(), name, 0), S_OK);
  EXPECT_FALSE(QueryValue(kKey, name));

  // Deleting a file preset removes its file; deleting a binary one touches no file.
  ASSERT_EQ(Save("F", Pattern(300, 1)), S_OK);
  ASSERT_EQ(Save("B", Pattern(3, 1)), S_OK);
  std::ofstream(folder + "\\B.dxp").put('x');
  EXPECT_EQ(KyDSFilter_DeletePreset(fx.Unknown(), "F", 0), S_OK);
  EXPECT_FALSE(Exists(folder + "\\F.dxp"));
  EXPECT_EQ(KyDSFilter_DeletePreset(fx.Unknown(), "B", 0), S_OK);
  EXPECT_TRUE(Exists(folder + "\\B.dxp"));
  EXPECT_EQ(KyDSFilter_DeletePreset(fx.Unknown(), "never there", 0), S_OK);
}

TEST_F(Presets, FamiliesKeysAndFailures) {
  // Nothing saved yet: the key cannot be opened.
  LONG count = 5;
  EXPECT_EQ(KyDSFilter_GetPresetCount(fx.Unknown(), &count, 0), 1);
  EXPECT_EQ(KyDSFilter_LoadPreset(fx.Unknown(), "x", 0), 1);
  EXPECT_EQ(KyDSFilter_DeletePreset(fx.Unknown(), "x", 0), 1);
  EXPECT_EQ(KyDSFilter_SavePreset(nullptr, "x", 0), E_POINTER);
  EXPECT_EQ(KyDSFilter_LoadPreset(nullptr, "x", 0), E_POINTER);
  // A filter that cannot name its class has no preset key either.
  fx.classIdStatus = E_FAIL;
  EXPECT_EQ(Save("x", Pattern(8, 1)), 1);
  EXPECT_EQ(KyDSFilter_GetPresetCount(fx.Unknown(), &count, 0), 1);
  fx.classIdStatus = S_OK;

  ASSERT_EQ(Save("Dx", Pattern(8, 1), 1), S_OK);
  EXPECT_TRUE(QueryValue(kDxKey, "Dx"));
  EXPECT_FALSE(QueryValue(kKey, "Dx"));
  EXPECT_EQ(Load("Dx", S_OK, 1), Pattern(8, 1));
  EXPECT_EQ(KyDSFilter_LoadPreset(fx.Unknown(), "missing", 1), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));

  // A file preset whose folder cannot be created fails with the file-create status and
  // leaves no registry value.
  KyDSFilter_SetDefaultSavePath("Q:\\no\\such\\drive", 0);
  EXPECT_EQ(Save("Nowhere", Pattern(300, 1)), KYERR_FILE_CREATE);
  EXPECT_FALSE(QueryValue(kKey, "Nowhere"));
}

TEST(PresetFiles, ValidateFileNameAndCreateDirectory) {
  struct { const char *in, *out; LONG changed; } cases[] = {
      {"plain name", "plain name", 0}, {"a/b\\c:d", "a_b_c_d", 3},
      {"x*?\"<>|y", "x______y", 6},    {"ends.. ", "ends___", 3},
      {"CON", "_ON", 1},               {"lpt3.txt", "_pt3.txt", 1},
      {"CONSOLE", "CONSOLE", 0},       {"tab\there", "tab_here", 1}};
  for (auto &c : cases) {
    char buf[64];
    lstrcpyA(buf, c.in);
    EXPECT_EQ(KyValidateFileName(buf, 0), c.changed) << c.in;
    EXPECT_STREQ(buf, c.in);  // mode 0 only counts
    EXPECT_EQ(KyValidateFileName(buf, 1), c.changed) << c.in;
    EXPECT_STREQ(buf, c.out);
  }
  EXPECT_EQ(KyValidateFileName(nullptr, 1), -1);

  std::string deep = kytest::TempDir("mkdir") + "a\\b\\c\\";
  EXPECT_EQ(KyCreateDirectory(deep.c_str()), S_OK);
  EXPECT_TRUE(GetFileAttributesA(deep.c_str()) & FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(KyCreateDirectory(deep.c_str()), S_OK);  // already there
  EXPECT_EQ(KyCreateDirectory(nullptr), E_POINTER);
}
