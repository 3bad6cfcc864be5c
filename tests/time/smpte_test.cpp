// Tests of SMPTE time code and media time.
#include <gtest/gtest.h>

#include "ky_testutil.h"
#include <string>
#include "ky_time.h"

namespace {

_smpteval Tc(LONG type, ULONG h, ULONG m, ULONG s, ULONG f) {
  _smpteval tc;
  tc.type = type;
  tc.hours = h;
  tc.minutes = m;
  tc.seconds = s;
  tc.frames = f;
  return tc;
}

std::string Str(const _smpteval &tc) {
  char b[64];
  snprintf(b, sizeof b, "%lu:%02lu:%02lu:%02lu", tc.hours, tc.minutes, tc.seconds, tc.frames);
  return b;
}

_smpteval FromCount(LONG type, ULONG count) {
  _smpteval tc = Tc(type, 99, 99, 99, 99);
  EXPECT_EQ(S_OK, KYSMPTE_FrameCountToSMPTE(&tc, count));
  return tc;
}

// Drop-frame labels written plainly: the n-th real frame of a 10-minute block of 17982
// frames gets 18 labels skipped per earlier block and 2 per started minute after the first
// (each later minute has 1798 frames); then the module's shortened day wraps the label.
_smpteval ReferenceDropLabel(ULONG n) {
  n %= 2589407;
  ULONG blocks = n / 17982, inBlock = n % 17982;
  ULONG label = n + 18 * blocks + (inBlock >= 2 ? 2 * ((inBlock - 2) / 1798) : 0);
  label %= 2589407;
  return Tc(2, label / 108000, label % 108000 / 1800, label % 1800 / 30, label % 30);
}

// ---- KYSMPTE_SMPTEToFrameCount / KYSMPTE_FrameCountToSMPTE ----

struct CountCase {
  _smpteval tc;
  ULONG count;
};

TEST(FrameCount, RoundTripsEachType) {
  const CountCase cases[] = {
      {Tc(1, 0, 0, 0, 0), 0},          {Tc(1, 0, 0, 1, 5), 35},
      {Tc(1, 23, 59, 59, 29), 2591999}, {Tc(5, 0, 10, 0, 0), 18000},
      {Tc(3, 1, 0, 0, 0), 90000},      {Tc(3, 23, 59, 59, 24), 2159999},
      {Tc(4, 0, 1, 0, 0), 1440},       {Tc(4, 23, 59, 59, 23), 2073599},
      {Tc(2, 1, 0, 0, 0), 107892},  // the first 20 minutes: DropFrameMatchesReference
  };
  for (const CountCase &c : cases) {
    SCOPED_TRACE("type " + std::to_string(c.tc.type) + " " + Str(c.tc));
    EXPECT_EQ(c.count, KYSMPTE_SMPTEToFrameCount(&c.tc));
    _smpteval back = FromCount(c.tc.type, c.count);
    EXPECT_EQ(Str(c.tc), Str(back));
    EXPECT_EQ(c.tc.type, back.type);
  }
}

TEST(FrameCount, MissingDropLabelsReadAsFrameTwo) {
  _smpteval minute1 = Tc(2, 0, 1, 0, 0), minute1b = Tc(2, 0, 1, 0, 1);
  EXPECT_EQ(1800u, KYSMPTE_SMPTEToFrameCount(&minute1));
  EXPECT_EQ(1800u, KYSMPTE_SMPTEToFrameCount(&minute1b));
  // The real labels around them (tenth minutes, other seconds): DropFrameMatchesReference.
}

TEST(FrameCount, OtherTypesCountZeroAndConvertAsDropFrame) {
  _smpteval odd = Tc(7, 1, 2, 3, 4), zero = Tc(0, 0, 0, 1, 0);
  EXPECT_EQ(0u, KYSMPTE_SMPTEToFrameCount(&odd));
  EXPECT_EQ(0u, KYSMPTE_SMPTEToFrameCount(&zero));
  EXPECT_EQ("0:01:00:02", Str(FromCount(7, 1800)));
  EXPECT_EQ("0:10:00:00", Str(FromCount(-1, 17982)));
  // The shortened day wraps this count onto the missing label 00:01:00;00: only type 2 moves
  // it to frame 2.
  EXPECT_EQ("0:01:00:02", Str(FromCount(2, 2588615)));
  EXPECT_EQ("0:01:00:00", Str(FromCount(7, 2588615)));
}

// Every frame of the first 20 minutes (all minute boundaries), then samples across the day.
TEST(FrameCount, DropFrameMatchesReference) {
  for (ULONG n = 0; n < 2589407 + 4000; n += n < 36010 ? 1 : 997) {
    _smpteval want = ReferenceDropLabel(n), got = FromCount(2, n);
    ASSERT_EQ(Str(want), Str(got)) << "frame " << n;
    if (n < 36010) {
      ASSERT_EQ(n, KYSMPTE_SMPTEToFrameCount(&want)) << Str(want);
    }
  }
}

// Each type wraps at its own day; the drop-frame day is one frame short, and labels past its
// end wrap through it as well.
TEST(FrameCount, WrapsAtTheDayOfEachType) {
  const struct { LONG type; ULONG count; const char *want; } cases[] = {
      {1, 2592000, "0:00:00:00"}, {5, 2592001, "0:00:00:01"},  {3, 2160000, "0:00:00:00"},
      {4, 2073603, "0:00:00:03"}, {2, 2589407, "0:00:00:00"},  {2, 2589408, "0:00:00:01"},
      {2, 2589406, "0:01:26:11"}, {2, 2586816, "23:58:33:16"}, {2, 2586817, "0:00:00:00"},
  };
  for (const auto &c : cases) EXPECT_EQ(c.want, Str(FromCount(c.type, c.count))) << c.count;
  // The last label of a real day counts 2589407 frames and so reads back as the next day.
  _smpteval last = Tc(2, 23, 59, 59, 29);
  EXPECT_EQ(2589407u, KYSMPTE_SMPTEToFrameCount(&last));
}

// ---- KYSMPTE_AddSMPTE / KYSMPTE_SubtractSMPTE ----

struct ArithCase {
  _smpteval a, b;
  const char *result;
};

// Runs op(a, b) on a copy of each case's a; the result keeps a's type.
template <size_t N>
void CheckArithmetic(HRESULT(WINAPI *op)(_smpteval *, const _smpteval *), const char *sign,
                     const ArithCase (&cases)[N]) {
  for (const ArithCase &c : cases) {
    _smpteval a = c.a;
    EXPECT_EQ(S_OK, op(&a, &c.b));
    EXPECT_EQ(c.result, Str(a)) << Str(c.a) << sign << Str(c.b);
    EXPECT_EQ(c.a.type, a.type);
  }
}

TEST(AddSMPTE, SumsAndWrapsAtTheDayOfA) {
  const ArithCase cases[] = {
      {Tc(1, 1, 2, 3, 4), Tc(1, 0, 0, 0, 27), "1:02:04:01"},
      {Tc(1, 23, 59, 59, 29), Tc(1, 0, 0, 0, 1), "0:00:00:00"},
      {Tc(4, 23, 0, 0, 0), Tc(4, 2, 0, 0, 0), "1:00:00:00"},
      {Tc(2, 0, 0, 59, 29), Tc(2, 0, 0, 0, 1), "0:01:00:02"},
      {Tc(2, 23, 59, 59, 29), Tc(2, 0, 0, 0, 1), "0:00:00:01"},
      // b is counted in its own type: 30 frames are one second and 5 frames at 25.
      {Tc(3, 0, 0, 0, 0), Tc(1, 0, 0, 1, 0), "0:00:01:05"},
  };
  CheckArithmetic(KYSMPTE_AddSMPTE, " + ", cases);
}

TEST(SubtractSMPTE, DifferencesAndNegativeWraps) {
  const ArithCase cases[] = {
      {Tc(1, 1, 0, 0, 0), Tc(1, 0, 0, 0, 1), "0:59:59:29"},
      {Tc(1, 0, 0, 0, 0), Tc(1, 0, 0, 0, 1), "23:59:59:29"},
      {Tc(3, 0, 0, 0, 0), Tc(3, 0, 0, 1, 0), "23:59:59:00"},
      {Tc(2, 0, 1, 0, 2), Tc(2, 0, 0, 0, 1), "0:00:59:29"},
      // Negative type-2 differences wrap through the short day.
      {Tc(2, 0, 0, 0, 0), Tc(2, 0, 0, 0, 1), "0:01:26:11"},
      // Exactly one day back: the day itself, which converts to 00:00:00:00.
      {Tc(4, 0, 0, 0, 0), Tc(1, 19, 12, 0, 0), "0:00:00:00"},
  };
  CheckArithmetic(KYSMPTE_SubtractSMPTE, " - ", cases);
}

// ---- KYSMPTE_SMPTECompare ----

TEST(SMPTECompare, FieldsInOrderTypeIgnored) {
  struct {
    _smpteval a, b;
    LONG want;
  } cases[] = {
      {Tc(1, 1, 0, 0, 0), Tc(1, 0, 59, 59, 29), 1},
      {Tc(1, 0, 1, 0, 0), Tc(1, 0, 0, 59, 29), 1},
      {Tc(1, 0, 0, 1, 0), Tc(1, 0, 0, 0, 29), 1},
      {Tc(1, 0, 0, 0, 2), Tc(1, 0, 0, 0, 3), -1},
      {Tc(1, 2, 3, 4, 5), Tc(4, 2, 3, 4, 5), 0},
      {Tc(1, 0x80000000u, 0, 0, 0), Tc(1, 1, 0, 0, 0), 1},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(c.want, KYSMPTE_SMPTECompare(&c.a, &c.b)) << Str(c.a) << " vs " << Str(c.b);
    EXPECT_EQ(-c.want, KYSMPTE_SMPTECompare(&c.b, &c.a));
  }
}

// ---- KYSMPTE_IncrementByFrame / KYSMPTE_DeccrementByFrame ----

// Incrementing skips the dropped labels; decrementing mirrors it without skipping.
TEST(StepByFrame, CarriesSkipsAndWraps) {
  const auto inc = KYSMPTE_IncrementByFrame, dec = KYSMPTE_DeccrementByFrame;
  const struct { decltype(inc) op; _smpteval from; const char *to; } cases[] = {
      {inc, Tc(1, 0, 0, 0, 28), "0:00:00:29"},   {inc, Tc(1, 0, 0, 59, 29), "0:01:00:00"},
      {inc, Tc(2, 0, 0, 59, 29), "0:01:00:02"},  {inc, Tc(5, 0, 0, 59, 29), "0:01:00:02"},
      {inc, Tc(2, 0, 9, 59, 29), "0:10:00:00"},  {inc, Tc(2, 0, 59, 59, 29), "1:00:00:00"},
      {inc, Tc(3, 0, 0, 0, 24), "0:00:01:00"},   {inc, Tc(4, 0, 0, 0, 23), "0:00:01:00"},
      {inc, Tc(9, 0, 0, 0, 29), "0:00:01:00"},   {inc, Tc(1, 23, 59, 59, 29), "0:00:00:00"},
      {inc, Tc(1, 40, 59, 59, 29), "9:00:00:00"},
      {dec, Tc(2, 0, 1, 0, 2), "0:01:00:01"},    {dec, Tc(2, 0, 2, 0, 0), "0:01:59:31"},
      {dec, Tc(5, 0, 2, 0, 0), "0:01:59:31"},    {dec, Tc(2, 0, 11, 0, 0), "0:10:59:29"},
      {dec, Tc(1, 0, 2, 0, 0), "0:01:59:29"},    {dec, Tc(1, 0, 0, 0, 0), "23:59:59:29"},
      {dec, Tc(3, 0, 0, 0, 0), "23:59:59:24"},   {dec, Tc(4, 1, 0, 0, 0), "0:59:59:23"},
      {dec, Tc(2, 0, 0, 0, 0), "23:59:59:31"},   {dec, Tc(2, 0, 1, 1, 0), "0:01:00:29"},
      {dec, Tc(1, 33, 0, 0, 0), "0:59:59:29"},
  };
  for (const auto &c : cases) {
    _smpteval tc = c.from;
    EXPECT_EQ(S_OK, c.op(&tc, 0));
    EXPECT_EQ(c.to, Str(tc)) << (c.op == inc ? "+1" : "-1") << " type " << c.from.type << " from "
                             << Str(c.from);
  }
}

TEST(DeccrementByFrame, IsNotTheInverseOfIncrementAtDroppedLabels) {
  _smpteval tc = Tc(2, 0, 0, 59, 29);
  KYSMPTE_IncrementByFrame(&tc, 0);
  KYSMPTE_DeccrementByFrame(&tc, 0);
  EXPECT_EQ("0:01:00:01", Str(tc));
  // Through a frame count the label normalises back to a real one.
  EXPECT_EQ("0:01:00:02", Str(FromCount(2, KYSMPTE_SMPTEToFrameCount(&tc))));
}

// ---- media time ----

TEST(NanoToSMPTE, TruncatesAfterTheSmallBias) {
  struct {
    LONG type;
    LONGLONG media;
    const char *want;
  } cases[] = {
      {3, 10000000, "0:00:01:00"}, {3, 399999, "0:00:00:01"}, {3, 399997, "0:00:00:00"},
      {1, 333331, "0:00:00:00"},   {1, 333332, "0:00:00:01"}, {4, 36000000000LL, "1:00:00:00"},
      {2, 600600000, "0:01:00:02"}, {5, 600600000, "0:01:00:00"}, {2, 6000000000LL, "0:10:00:00"},
      {7, 10000000, "0:00:01:00"},  {1, 864000000000LL, "0:00:00:00"},
  };
  for (const auto &c : cases) {
    _smpteval tc = Tc(c.type, 5, 5, 5, 5);
    EXPECT_EQ(S_OK, KYSMPTE_NanoToSMPTE(c.media, &tc));
    EXPECT_EQ(c.want, Str(tc)) << "type " << c.type << " media " << c.media;
  }
}

TEST(SMPTEToNanos, RoundsAnyFractionUp) {
  struct {
    _smpteval tc;
    LONGLONG want;
  } cases[] = {
      {Tc(3, 0, 0, 1, 0), 10000000},   {Tc(3, 0, 0, 0, 1), 400000},
      {Tc(4, 0, 0, 0, 1), 416667},     {Tc(1, 0, 0, 0, 1), 333334},
      {Tc(1, 0, 0, 0, 3), 1000000},    {Tc(2, 0, 0, 0, 1), 333667},
      {Tc(2, 0, 0, 1, 0), 10010000},   {Tc(5, 0, 1, 0, 0), 600600000},
      {Tc(2, 0, 1, 0, 0), 600600000},  {Tc(7, 1, 0, 0, 0), 0},
  };
  for (const auto &c : cases)
    EXPECT_EQ(c.want, KYSMPTE_SMPTEToNanos(&c.tc)) << "type " << c.tc.type << " " << Str(c.tc);
}

TEST(SMPTEToNanos, RoundTripsThroughNanoToSMPTE) {
  for (LONG type = 1; type <= 5; ++type) {
    for (ULONG n = 0; n < 2000000; n += 12347) {
      _smpteval tc = FromCount(type, n), back = Tc(type, 0, 0, 0, 0);
      LONGLONG media = KYSMPTE_SMPTEToNanos(&tc);
      KYSMPTE_NanoToSMPTE(media, &back);
      ASSERT_EQ(Str(tc), Str(back)) << "type " << type << " frame " << n;
    }
  }
}

TEST(SmpteLikeToNanos, PlainCountAtTheGivenRate) {
  _smpteval minute = Tc(2, 0, 1, 0, 0), oneFrame = Tc(9, 0, 0, 0, 1);
  EXPECT_EQ(600000000, KYSMPTE_SmpteLikeToNanos(30.0, &minute));
  EXPECT_EQ(600000000, KYSMPTE_SmpteLikeToNanos(29.97, &minute));
  EXPECT_EQ(400000, KYSMPTE_SmpteLikeToNanos(25.0, &oneFrame));
  EXPECT_EQ(333667, KYSMPTE_SmpteLikeToNanos(30000.0 / 1001, &oneFrame));
  // A fraction up to 0.001 of a unit is dropped, anything above it rounds up.
  EXPECT_EQ(1000, KYSMPTE_SmpteLikeToNanos(1e7 / 1000.0005, &oneFrame));
  EXPECT_EQ(1001, KYSMPTE_SmpteLikeToNanos(1e7 / 1000.002, &oneFrame));
  EXPECT_EQ(0, KYSMPTE_SmpteLikeToNanos(0.0, &oneFrame));
  EXPECT_EQ(0, KYSMPTE_SmpteLikeToNanos(-25.0, &oneFrame));
  // C++ callers reach the decorated export; C callers the plain stdcall names.
  typedef LONGLONG(WINAPI * Plain)(double, const _smpteval *);
  for (const char *name : {"KYSMPTE_SmpteLikeToNanos", "_KYSMPTE_SmpteLikeToNanos@12",
                           "_Z24KYSMPTE_SmpteLikeToNanosdPK9_smpteval"}) {
    Plain f = kytest::Export<Plain>(name);
    ASSERT_NE(nullptr, f) << name;
    EXPECT_EQ(333667, f(30000.0 / 1001, &oneFrame)) << name;
  }
}

// ---- KYSMPTE_TextToSMPTE ----

TEST(TextToSMPTE, AcceptsFullAndShortForms) {
  struct {
    LONG type;
    const char *text;
    const char *want;
  } cases[] = {
      {1, "01:02:03:04", "1:02:03:04"},     {2, "  12:34:56;12 ", "12:34:56:12"},
      {2, "\t00:10:00.00\t", "0:10:00:00"},  {2, "00:01:00;00", "0:01:00:02"},
      {5, "00:01:00:00", "0:01:00:00"},     {4, "23:59:59:23", "23:59:59:23"},
      {3, "2:3:4:5", "2:03:04:05"},         {1, "59;29", "0:00:59:29"},
      {1, "7:06:05", "0:07:06:05"},         {1, "9", "0:00:00:09"},
  };
  for (const auto &c : cases) {
    _smpteval tc = Tc(c.type, 99, 99, 99, 99);
    EXPECT_EQ(S_OK, KYSMPTE_TextToSMPTE(c.text, &tc)) << c.text;
    EXPECT_EQ(c.want, Str(tc)) << c.text;
    EXPECT_EQ(c.type, tc.type);
  }
}

TEST(TextToSMPTE, RejectsMalformedTextAndKeepsTheValue) {
  struct {
    LONG type;
    const char *text;
  } cases[] = {
      {1, ""},           {1, "   "},          {1, "1:2:3:4:5"},    {1, "24:00:00:00"},
      {1, "00:60:00:00"}, {1, "00:00:60:00"}, {1, "00:00:00:30"},  {3, "00:00:00:25"},
      {4, "00:00:00:24"}, {2, "00;00:00:00"}, {2, "00:00.00;00"},  {1, "00:00:00:"},
      {1, ":00"},        {1, "123:00"},       {1, "00 :00"},       {1, "a"},
      {1, "00:00:00:00x"}, {1, "-1"},         {1, "1::2"},         {1, "00:00:00:00 0"},
  };
  for (const auto &c : cases) {
    _smpteval tc = Tc(c.type, 1, 2, 3, 4);
    EXPECT_EQ(E_INVALIDARG, KYSMPTE_TextToSMPTE(c.text, &tc)) << '"' << c.text << '"';
    EXPECT_EQ("1:02:03:04", Str(tc)) << '"' << c.text << '"';
    EXPECT_EQ(c.type, tc.type);
  }
}

// ---- bad pointers ----

TEST(NullArguments, AreRefusedWithoutHarm) {
  _smpteval tc = Tc(1, 0, 0, 0, 0);
  EXPECT_EQ(0u, KYSMPTE_SMPTEToFrameCount(nullptr));
  EXPECT_EQ(E_POINTER, KYSMPTE_FrameCountToSMPTE(nullptr, 5));
  EXPECT_EQ(E_POINTER, KYSMPTE_AddSMPTE(&tc, nullptr));
  EXPECT_EQ(E_POINTER, KYSMPTE_SubtractSMPTE(nullptr, &tc));
  EXPECT_EQ(-1, KYSMPTE_SMPTECompare(nullptr, &tc));
  EXPECT_EQ(0, KYSMPTE_SMPTECompare(nullptr, nullptr));
  EXPECT_EQ(E_POINTER, KYSMPTE_IncrementByFrame(nullptr, 0));
  EXPECT_EQ(E_POINTER, KYSMPTE_DeccrementByFrame(nullptr, 0));
  EXPECT_EQ(E_POINTER, KYSMPTE_NanoToSMPTE(1, nullptr));
  EXPECT_EQ(0, KYSMPTE_SMPTEToNanos(nullptr));
  EXPECT_EQ(0, KYSMPTE_SmpteLikeToNanos(30.0, nullptr));
  EXPECT_EQ(E_POINTER, KYSMPTE_TextToSMPTE(nullptr, &tc));
  EXPECT_EQ(E_POINTER, KYSMPTE_TextToSMPTE("00:00", nullptr));
}

} // namespace
