// Tests of the settings store against the real (Wine) registry. Every test works under a
// test-only product and removes it again; stored names and types are checked with the
// platform's own registry calls.
#include <gtest/gtest.h>
#include <windows.h>
#include <string.h>
#include <string>
#include "ky_metric.h"

namespace {

const char kProduct[] = "TellarokMetricTest";
const DWORD kVersion = 0x02030015;                              // paths use "2.3"
const char kBase[] = "Software\\Orvanel\\TellarokMetricTest\\2.3\\Metrics";
const char kService[] = "TellarokMetricTestSvc";
const char kServiceBase[] = "SYSTEM\\CurrentControlSet\\Services\\TellarokMetricTestSvc\\2.3\\Metrics";
const char kKernelKey[] = "Software\\Orvanel\\Tellaro\\1.0\\Metrics\\Kernel";

std::string Path(const char *base, const char *section) {
  return section ? std::string(base) + "\\" + section : std::string(base);
}

bool KeyExists(HKEY root, const std::string &path) {
  HKEY k;
  if (RegOpenKeyExA(root, path.c_str(), 0, KEY_READ, &k) != ERROR_SUCCESS) return false;
  RegCloseKey(k);
  return true;
}

// The stored type of a value (0 when absent), with its bytes.
DWORD StoredType(HKEY root, const std::string &path, const char *name, std::string *bytes = nullptr) {
  HKEY k;
  if (RegOpenKeyExA(root, path.c_str(), 0, KEY_READ, &k) != ERROR_SUCCESS) return 0;
  char data[512];
  DWORD type = 0, size = sizeof data;
  LONG rc = RegQueryValueExA(k, name, nullptr, &type, reinterpret_cast<BYTE *>(data), &size);
  RegCloseKey(k);
  if (rc != ERROR_SUCCESS) return 0;
  if (bytes) bytes->assign(data, size);
  return type;
}

class Metric : public ::testing::Test {
protected:
  void SetUp() override {
    KyMetric_DeleteAll(kProduct, kVersion);
    ASSERT_EQ(S_OK, KyMetric_Open(&h, kProduct, kVersion, "Test"));
    ASSERT_NE(nullptr, h);
  }
  void TearDown() override {
    KyMetric_Close(h);
    KyMetric_DeleteAll(kProduct, kVersion);
    KyMetric_DeleteAllService(kService, kVersion);
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, kBase));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, kBase));
  }
  HKYMETRIC h = nullptr;
  const std::string key = Path(kBase, "Test");
};

// ---- opening ----

TEST_F(Metric, OpenFormatsPathsAndCreatesBothKeys) {
  EXPECT_STREQ(key.c_str(), h->userPath);
  EXPECT_STREQ(key.c_str(), h->machinePath);
  EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, key));
  EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, key));
  HKYMETRIC plain;
  ASSERT_EQ(S_OK, KyMetric_Open(&plain, kProduct, kVersion, nullptr));
  EXPECT_STREQ(kBase, plain->userPath);
  KyMetric_Close(plain);
}

TEST_F(Metric, OpenSubKeyKeepsProductAndMajorMinor) {
  HKYMETRIC sub = reinterpret_cast<HKYMETRIC>(1);
  ASSERT_EQ(S_OK, KyMetric_OpenSubKey(&sub, h, "Other"));
  EXPECT_STREQ(Path(kBase, "Other").c_str(), sub->userPath);
  EXPECT_EQ(S_OK, KySetMetric(sub, 3, 33));
  EXPECT_EQ(REG_DWORD, StoredType(HKEY_CURRENT_USER, Path(kBase, "Other"), "3"));
  EXPECT_EQ(0, KyGetMetric(h, 3));  // a different key from the parent's
  KyMetric_Close(sub);
  // Null parents and paths without product and version are refused.
  sub = reinterpret_cast<HKYMETRIC>(1);
  EXPECT_EQ(E_FAIL, KyMetric_OpenSubKey(&sub, nullptr, "X"));
  EXPECT_EQ(nullptr, sub);
  tKYMETRIC shortPath = {};
  strcpy(shortPath.userPath, "Software\\Orvanel\\NoSlash");
  sub = reinterpret_cast<HKYMETRIC>(1);
  EXPECT_EQ(E_FAIL, KyMetric_OpenSubKey(&sub, &shortPath, "X"));
  EXPECT_EQ(nullptr, sub);
  strcpy(shortPath.userPath, "Soft");
  EXPECT_EQ(E_FAIL, KyMetric_OpenSubKey(&sub, &shortPath, "X"));
}

TEST_F(Metric, ServiceHandleKeepsBothScopesUnderMachineRoot) {
  HKYMETRIC svc;
  ASSERT_EQ(S_OK, KyMetric_OpenService(&svc, kService, kVersion, "Sec"));
  const std::string svcKey = Path(kServiceBase, "Sec");
  EXPECT_STREQ(svcKey.c_str(), svc->userPath);
  EXPECT_EQ(S_OK, KySetMetric(svc, 4, 40));
  EXPECT_EQ(S_OK, KySetMetric(svc, -5, 50));
  EXPECT_EQ(REG_DWORD, StoredType(HKEY_LOCAL_MACHINE, svcKey, "4"));
  EXPECT_EQ(REG_DWORD, StoredType(HKEY_LOCAL_MACHINE, svcKey, "5"));
  EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, svcKey));
  EXPECT_EQ(40, KyGetMetric(svc, 4));
  KyMetric_Close(svc);
  EXPECT_EQ(S_OK, KyMetric_DeleteKeyService(kService, kVersion, "Sec"));
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, svcKey));
  EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, kServiceBase));
  EXPECT_EQ(S_OK, KyMetric_DeleteAllService(kService, kVersion));
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, kServiceBase));
}

// ---- value names, types and scopes ----

TEST_F(Metric, ValueNamesFollowTypeAndScope) {
  const char list[] = "a\0b\0";
  const BYTE blob[] = {1, 2, 3};
  ASSERT_EQ(S_OK, KySetMetric(h, -7, 70));
  ASSERT_EQ(S_OK, KySetMetric(h, 7, 71));
  ASSERT_EQ(S_OK, KySetMetricString(h, 8, "eight"));
  ASSERT_EQ(S_OK, KySetMetricBinary(h, -9, blob, sizeof blob));
  ASSERT_EQ(S_OK, KySetMetricMultiString(h, 10, list, sizeof list));
  struct {
    HKEY root;
    const char *name;
    DWORD type;
  } cases[] = {{HKEY_LOCAL_MACHINE, "7", REG_DWORD}, {HKEY_CURRENT_USER, "7", REG_DWORD},
               {HKEY_CURRENT_USER, "S8", REG_SZ},    {HKEY_LOCAL_MACHINE, "B9", REG_BINARY},
               {HKEY_CURRENT_USER, "Z10", REG_MULTI_SZ}};
  for (const auto &c : cases) EXPECT_EQ(c.type, StoredType(c.root, key, c.name)) << c.name;
  EXPECT_EQ(0u, StoredType(HKEY_CURRENT_USER, key, "S9"));
  EXPECT_EQ(0u, StoredType(HKEY_LOCAL_MACHINE, key, "8"));
  EXPECT_EQ(70, KyGetMetric(h, -7));
  EXPECT_EQ(71, KyGetMetric(h, 7));
  std::string bytes;
  StoredType(HKEY_CURRENT_USER, key, "S8", &bytes);
  EXPECT_EQ(std::string("eight", 6), bytes);  // stored with its terminator
}

// ---- numbers ----

TEST_F(Metric, NumberReadsClampNormaliseAndIgnoreOtherTypes) {
  KySetMetricString(h, 4, "4");
  EXPECT_EQ(0, KyGetMetric(h, 4));
  EXPECT_EQ(0, KyGetMetric(h, 99));
  KySetMetric(h, 1, 100);
  struct {
    LONG number, min, max, def, expected;
  } cases[] = {{1, 5, 5, 9, 100}, {1, 0, 50, 9, 50}, {1, 200, 300, 9, 200}, {1, 0, 1000, 9, 100},
               {2, 10, 20, 3, 10}, {2, 0, 0, 3, 3},   {2, 10, 20, 30, 20}};
  for (const auto &c : cases)
    EXPECT_EQ(c.expected, KyGetMetricEx(h, c.number, c.min, c.max, c.def)) << c.number << " " << c.min << ".." << c.max;
  EXPECT_EQ(3, KyGetMetricEx(nullptr, 1, 10, 20, 3));  // no handle: default unclamped
  KySetMetric(h, 2, 0);
  EXPECT_EQ(1, KyGetMetricBool(h, 1, 0));
  EXPECT_EQ(0, KyGetMetricBool(h, 2, 1));
  EXPECT_EQ(1, KyGetMetricBool(h, 3, 5));
  EXPECT_EQ(5, KyGetMetricBool(nullptr, 3, 5));
}

// ---- binary blocks ----

TEST_F(Metric, BinaryReadZeroFillsTheRest) {
  const BYTE blob[] = {0xDE, 0xAD, 0xBE};
  ASSERT_EQ(S_OK, KySetMetricBinary(h, 4, blob, sizeof blob));
  BYTE buf[8];
  memset(buf, 0xCC, sizeof buf);
  EXPECT_EQ(3, KyGetMetricBinary(h, 4, buf, sizeof buf));
  const BYTE expected[8] = {0xDE, 0xAD, 0xBE};
  EXPECT_EQ(0, memcmp(expected, buf, sizeof buf));
  memset(buf, 0xCC, sizeof buf);
  EXPECT_EQ(0, KyGetMetricBinary(h, 4, buf, 2));  // too small: counts as missing
  EXPECT_EQ(0, memcmp("\0\0\xCC", buf, 3));
  memset(buf, 0xCC, sizeof buf);
  EXPECT_EQ(0, KyGetMetricBinary(nullptr, 4, buf, sizeof buf));
  EXPECT_EQ(0, memcmp(buf, "\0\0\0\0\0\0\0\0", 8));
}

// ---- text and text lists ----

TEST_F(Metric, TextReadsAndDefaults) {
  char buf[16];  // holds the text list below too
  ASSERT_EQ(S_OK, KySetMetricString(h, 1, "hello"));
  ASSERT_EQ(S_OK, KySetMetricString(h, 2, ""));
  memset(buf, 'x', sizeof buf);
  EXPECT_EQ(5, KyGetMetricStringEx(h, 1, buf, sizeof buf, "dflt", FALSE));
  EXPECT_STREQ("hello", buf);
  EXPECT_EQ(0, buf[15]);
  EXPECT_EQ(0, KyGetMetricStringEx(h, 2, buf, sizeof buf, "dflt", TRUE));  // kept empty
  EXPECT_STREQ("", buf);
  EXPECT_EQ(4, KyGetMetricStringEx(h, 2, buf, sizeof buf, "dflt", FALSE));
  EXPECT_STREQ("dflt", buf);
  EXPECT_EQ(4, KyGetMetricStringEx(h, 3, buf, sizeof buf, "dflt", TRUE));  // missing
  EXPECT_EQ(0, KyGetMetricStringEx(h, 3, buf, sizeof buf, nullptr, TRUE));
  EXPECT_STREQ("", buf);
  EXPECT_EQ(3, KyGetMetricStringEx(h, 3, buf, 4, "defaultlong", FALSE));  // truncated default
  EXPECT_STREQ("def", buf);
  EXPECT_EQ(4, KyGetMetricStringEx(nullptr, 1, buf, sizeof buf, "dflt", FALSE));
  const char list[] = "one\0two\0";
  ASSERT_EQ(S_OK, KySetMetricMultiString(h, 6, list, sizeof list));
  EXPECT_EQ((LONG)sizeof list - 1, KyGetMetricMultiStringEx(h, 6, buf, sizeof buf, nullptr, FALSE));
  EXPECT_EQ(0, memcmp(list, buf, sizeof list));
  EXPECT_EQ(0, KyGetMetricStringEx(h, 6, buf, sizeof buf, nullptr, FALSE));  // wrong type
}

// ---- existence and deletion ----

TEST_F(Metric, ExistenceAndDeletionMatchNameAndType) {
  KySetMetricString(h, 5, "a long text well over one byte");
  EXPECT_EQ(S_OK, KyDoesMetricExist(h, 5, REG_SZ));
  EXPECT_EQ(S_FALSE, KyDoesMetricExist(h, 5, REG_DWORD));
  EXPECT_EQ(S_FALSE, KyDoesMetricExist(h, -5, REG_SZ));
  EXPECT_EQ(S_FALSE, KyDoesMetricExist(nullptr, 5, REG_SZ));
  // Types without their own prefix share "Z": a REG_MULTI_SZ value is not a REG_EXPAND_SZ one.
  KySetMetricMultiString(h, 6, "x\0", 3);
  EXPECT_EQ(S_FALSE, KyDoesMetricExist(h, 6, REG_EXPAND_SZ));
  EXPECT_EQ(S_OK, KyDoesMetricExist(h, 6, REG_MULTI_SZ));
  KySetMetric(h, -3, 1);
  EXPECT_EQ(S_OK, KyDeleteMetric(h, -3, REG_DWORD));
  EXPECT_EQ(0u, StoredType(HKEY_LOCAL_MACHINE, key, "3"));
  EXPECT_EQ(E_FAIL, KyDeleteMetric(h, -3, REG_DWORD));
  EXPECT_EQ(S_FALSE, KyDeleteMetric(nullptr, -3, REG_DWORD));
}

// ---- null handles and the kernel's handle ----

TEST(MetricHandles, NullHandleWritesFail) {
  const BYTE b = 1;
  EXPECT_EQ(E_FAIL, KySetMetric(nullptr, 1, 1));
  EXPECT_EQ(E_FAIL, KySetMetricString(nullptr, 1, "x"));
  EXPECT_EQ(E_FAIL, KySetMetricBinary(nullptr, 1, &b, 1));
  EXPECT_EQ(E_FAIL, KySetMetricMultiString(nullptr, 1, "x\0", 3));
  EXPECT_EQ(0, KyGetMetric(nullptr, 1));
  EXPECT_EQ(S_OK, KyMetric_Close(nullptr));
  EXPECT_EQ(E_FAIL, KyMetric_CloseAndDeleteKey(nullptr));
}

TEST(MetricHandles, KernelHandleTakesNumbersOnly) {
  const LONG n = 987654;
  const BYTE b = 1;
  EXPECT_EQ(E_FAIL, KySetMetricString(KYMETRIC_KERNEL, n, "x"));
  EXPECT_EQ(E_FAIL, KySetMetricBinary(KYMETRIC_KERNEL, n, &b, 1));
  EXPECT_EQ(E_FAIL, KySetMetricMultiString(KYMETRIC_KERNEL, n, "x\0", 3));
  ASSERT_EQ(S_OK, KySetMetric(KYMETRIC_KERNEL, n, 123));
  EXPECT_EQ(REG_DWORD, StoredType(HKEY_CURRENT_USER, kKernelKey, "987654"));
  EXPECT_EQ(123, KyGetMetric(KYMETRIC_KERNEL, n));
  EXPECT_EQ(S_OK, KyDoesMetricExist(KYMETRIC_KERNEL, n, REG_DWORD));
  EXPECT_EQ(S_OK, KyDeleteMetric(KYMETRIC_KERNEL, n, REG_DWORD));
  EXPECT_EQ(0u, StoredType(HKEY_CURRENT_USER, kKernelKey, "987654"));
}

// ---- key trees ----

TEST_F(Metric, RegDeleteKeyRemovesNestedTrees) {
  const std::string root = Path(kBase, "Tree");
  // Enough siblings that deleting by index skips some on the first pass.
  for (int i = 0; i < 6; ++i) {
    std::string sub = root + "\\child" + std::to_string(i) + "\\grand\\great";
    ASSERT_EQ(ERROR_SUCCESS, RegSetValueA(HKEY_CURRENT_USER, sub.c_str(), REG_SZ, "v", 1));
  }
  EXPECT_EQ(S_OK, KyRegDeleteKey(HKEY_CURRENT_USER, root.c_str()));
  EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, root));
  EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, kBase));
  EXPECT_EQ(S_OK, KyRegDeleteKey(HKEY_CURRENT_USER, root.c_str()));  // already gone
  EXPECT_EQ(E_INVALIDARG, KyRegDeleteKey(HKEY_CURRENT_USER, ""));
}

TEST_F(Metric, DeletingOneSectionRemovesBothKeys) {
  HKYMETRIC other;
  ASSERT_EQ(S_OK, KyMetric_Open(&other, kProduct, kVersion, "Gone"));
  KySetMetric(other, 1, 1);
  KySetMetric(other, -1, 1);
  EXPECT_EQ(S_OK, KyMetric_CloseAndDeleteKey(other));
  EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, Path(kBase, "Gone")));
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, Path(kBase, "Gone")));
  EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, key));
  KySetMetric(h, 1, 1);
  EXPECT_EQ(S_OK, KyMetric_DeleteKey(kProduct, kVersion, "Test"));
  EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, key));
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, key));
  EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, kBase));
}

} // namespace
