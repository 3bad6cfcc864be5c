// Tests of the text formatter: printf conversions, the "$" forms, named tokens, bounds.
#include <gtest/gtest.h>

#include "ky_testutil.h"
#include <string.h>
#include <string>
#include "ky_text.h"

namespace {

std::string F(const char *format, ...) {
  char buf[4096];
  memset(buf, 0x5A, sizeof buf);
  va_list a;
  va_start(a, format);
  LONG n = KyVPrintF(buf, sizeof buf, format, a);
  va_end(a);
  EXPECT_EQ(static_cast<size_t>(n), strlen(buf)) << format;
  return std::string(buf, static_cast<size_t>(n));
}

std::string LocaleText(LCTYPE type, const char *fallback) {
  char b[16];
  return GetLocaleInfoA(LOCALE_USER_DEFAULT, type, b, sizeof b) > 1 ? std::string(b) : fallback;
}

// Integer and floating conversions with flags are checked against snprintf further down.
TEST(TextFormat, PrintfConversions) {
  EXPECT_EQ("[  ab][ab  ][abc]", F("[%*s][%-*s][%.*s]", 4, "ab", 4, "ab", 3, "abcdef"));
  EXPECT_EQ("[ab  ]", F("[%*s]", -4, "ab"));
  EXPECT_EQ("[00ab][ab  ][000x][00wi][    00000012]",
            F("[%04s][%-04s][%04c][%04S][%012p]", "ab", "ab", 'x', L"wi", reinterpret_cast<void *>(0x12)));
  EXPECT_EQ("[5|abc]", F("[%.*d|%.*s]", -1, 5, -3, "abc"));
  EXPECT_EQ("123456789012345|-1", F("%I64d|%lld", 123456789012345LL, -1LL));
  EXPECT_EQ("-1|65535|255", F("%hd|%hu|%hhu", 0xFFFF, 0xFFFF, 0x1FF));
  EXPECT_EQ("3.14|1.5", F("%.2f|%Lg", 3.14159, 1.5));
  EXPECT_EQ("x|  y|100%", F("%c|%3c|100%%", 'x', 'y'));
  EXPECT_EQ("wide|W|(null)", F("%S|%lc|%s", L"wide", L'W', static_cast<const char *>(nullptr)));
  EXPECT_EQ("0000BEEF", F("%p", reinterpret_cast<void *>(0xBEEF)));
  // Unknown conversion copied as it stands; a lone '%' at the end too.
  EXPECT_EQ("%k 5 %", F("%k %d %", 5));
  // %n stores nothing but still takes its argument.
  int n = 12345;
  EXPECT_EQ("ab7", F("ab%n%d", &n, 7));
  EXPECT_EQ(12345, n);
  // A precision reads no further than it allows.
  char unterminated[3] = {'x', 'y', 'z'};
  EXPECT_EQ("xyz", F("%.3s", unterminated));
}

TEST(TextFormat, GroupedNumbersAndListSeparator) {
  std::string th = LocaleText(LOCALE_STHOUSAND, ",");
  std::string ls = LocaleText(LOCALE_SLIST, ",");
  EXPECT_EQ("44" + th + "100 Hz" + ls + " 16-bit" + ls + " Stereo",
            F("$d Hz$, %d-bit$, %s", 44100, 16, "Stereo"));
  struct Row { const char *format; long long value; std::string expected; };
  const Row rows[] = {
      {"$d", 999, "999"}, {"$d", 1000, "1" + th + "000"}, {"$i", 100000, "100" + th + "000"},
      {"$d", -1234567, "-1" + th + "234" + th + "567"},
      {"$u", -1, "4" + th + "294" + th + "967" + th + "295"},
      {"$d", -2147483647LL - 1, "-2" + th + "147" + th + "483" + th + "648"},
  };
  for (const Row &r : rows) EXPECT_EQ(r.expected, F(r.format, static_cast<int>(r.value))) << r.format << " " << r.value;
  EXPECT_EQ("9" + th + "000" + th + "000" + th + "000" + th + "000", F("$I64d", 9000000000000LL));
  EXPECT_EQ("-5" + th + "000" + th + "000" + th + "000", F("$lld", -5000000000LL));
  // "$" forms that are not forms stay as they are; "$$" is one '$'.
  EXPECT_EQ("$x $ 5$", F("$x $ %d$$", 5));
}

TEST(TextFormat, NamedTokens) {
  EXPECT_EQ(S_OK, KyFormatToken_Set("Product", "Tellaro"));
  EXPECT_EQ("Welcome to Tellaro!", F("Welcome to $(Product)!"));
  EXPECT_EQ("Tellaro", F("$(PRODUCT)"));  // names ignore ASCII case
  EXPECT_EQ(S_OK, KyFormatToken_Set("product", "Tellaro Pro"));  // replaces
  EXPECT_EQ("Tellaro Pro %d", F("$(Product) %%d"));
  char small[5];
  EXPECT_EQ(11, KyFormatToken_Get("Product", small, sizeof small));
  EXPECT_STREQ("Tell", small);
  // A value is inserted as it is, not expanded again.
  EXPECT_EQ(S_OK, KyFormatToken_Set("Nested", "$(Product) %d"));
  EXPECT_EQ("$(Product) %d 3", F("$(Nested) %d", 3));
  EXPECT_EQ(S_OK, KyFormatToken_Remove("Nested"));
  EXPECT_EQ(S_FALSE, KyFormatToken_Remove("Nested"));
  EXPECT_EQ(S_OK, KyFormatToken_Remove("Product"));
  EXPECT_EQ(-1, KyFormatToken_Get("Product", small, sizeof small));
  EXPECT_STREQ("", small);
  EXPECT_EQ("$(Product) and $(unclosed", F("$(Product) and $(unclosed"));
  EXPECT_EQ(E_INVALIDARG, KyFormatToken_Set("", "x"));
  EXPECT_EQ(E_INVALIDARG, KyFormatToken_Set("a)b", "x"));
  EXPECT_EQ(E_POINTER, KyFormatToken_Set("a", nullptr));
}

TEST(TextFormat, AppNameDefaultsToTheHostProgram) {
  KyFormatToken_Remove("AppName");
  EXPECT_EQ("restart time_test.", F("restart $(AppName)."));
  EXPECT_EQ(S_OK, KyFormatToken_Set("AppName", "Tellaro"));
  EXPECT_EQ("Tellaro", F("$(AppName)"));
  EXPECT_EQ(S_OK, KyFormatToken_Remove("AppName"));
  char b[64];
  EXPECT_EQ(9, KyFormatToken_Get("appname", b, sizeof b));
  EXPECT_STREQ("time_test", b);
}

TEST(TextFormat, OutputStaysInsideTheBuffer) {
  char buf[16];
  struct Row { LONG size; const char *expected; };
  const Row rows[] = {{1, ""}, {2, "4"}, {6, "44,10"}, {9, "44,100 H"}};
  std::string th = LocaleText(LOCALE_STHOUSAND, ",");
  for (const Row &r : rows) {
    if (th != ",") break;
    memset(buf, 0x5A, sizeof buf);
    LONG n = KyPrintF(buf, r.size, "$d Hz %s", 44100, "and more text");
    EXPECT_EQ(static_cast<LONG>(strlen(r.expected)), n) << r.size;
    EXPECT_STREQ(r.expected, buf) << r.size;
    for (LONG i = r.size; i < static_cast<LONG>(sizeof buf); ++i) ASSERT_EQ(0x5A, buf[i]) << r.size;
  }
  memset(buf, 0x5A, sizeof buf);
  EXPECT_EQ(0, KyPrintF(buf, 0, "abc"));
  EXPECT_EQ(0x5A, buf[0]);
  EXPECT_EQ(0, KyPrintF(nullptr, 10, "abc"));
  EXPECT_EQ(0, KyPrintF(buf, sizeof buf, nullptr));
  EXPECT_STREQ("", buf);
  // Huge widths are capped rather than trusted.
  EXPECT_EQ(1024u, F("%100000d", 1).size());
  EXPECT_EQ(1026u, F("%.5000f", 1.0).size());
}


// The printf conversions agree with the C library's snprintf on seeded random values and
// specifications (flags, width, precision, conversion).
TEST(TextFormat, NumericConversionsMatchSnprintf) {
  unsigned seed = 12345;
  // Built from high halves: the low bits of this generator repeat with short periods.
  auto half = [&seed] { return (seed = seed * 1103515245u + 12345u) >> 16; };
  auto next = [&half] { return half() << 16 | half(); };
  const char flags[] = "-+ #0", convs[] = "diuxXo", fconvs[] = "efgEG";
  for (int i = 0; i < 3000; ++i) {
    std::string spec = "%";
    for (int f = 0; f < 5; ++f)
      if (next() % 4 == 0) spec += flags[f];
    if (next() % 2) spec += std::to_string(next() % 20);
    if (next() % 2) spec += "." + std::to_string(next() % 12);
    bool isFloat = i % 3 == 2;
    spec += isFloat ? fconvs[next() % 5] : convs[next() % 6];
    const std::string format = "<" + spec + ">";
    char want[256];
    if (isFloat) {
      double v = (static_cast<int>(next()) / 1000.0) * ((next() % 2) ? 1e-3 : 1e3);
      snprintf(want, sizeof want, format.c_str(), v);
      ASSERT_EQ(std::string(want), F(format.c_str(), v)) << format << " step " << i;
    } else {
      int v = static_cast<int>(next()) >> (next() % 31);
      snprintf(want, sizeof want, format.c_str(), v);
      ASSERT_EQ(std::string(want), F(format.c_str(), v)) << format << " step " << i;
    }
  }
}

} // namespace
