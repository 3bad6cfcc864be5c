// MIDI time-code output, driven through the library's MIDI sink and a clock the test
// advances, plus one run on the real multimedia timer.
#include "ky_testutil.h"
#include "ky_syncout.h"

#include <vector>

namespace {

typedef void(WINAPI *MidiSink)(void *, DWORD, const BYTE *, DWORD);
typedef DWORD(WINAPI *SyncClock)(void *);

struct Message { DWORD shortMsg; std::vector<BYTE> data; };

std::vector<Message> g_sent;
volatile LONG g_sentCount;
DWORD g_now;

void WINAPI Record(void *, DWORD shortMsg, const BYTE *data, DWORD length) {
  g_sent.push_back({shortMsg, data ? std::vector<BYTE>(data, data + length) : std::vector<BYTE>()});
}
void WINAPI Count(void *, DWORD, const BYTE *, DWORD) { InterlockedIncrement(&g_sentCount); }
DWORD WINAPI TestClock(void *) { return g_now; }

void SetSink(MidiSink s) {
  kytest::Export<void(WINAPI *)(MidiSink, void *)>("KyInternal_SetMidiSink")(s, nullptr);
}
void SetClock(SyncClock c) {
  kytest::Export<void(WINAPI *)(SyncClock, void *)>("KyInternal_SetSyncoutClock")(c, nullptr);
}
void Tick(HKYSYNCOUT h) { kytest::Export<void(WINAPI *)(HKYSYNCOUT)>("KyInternal_SyncoutTick")(h); }

// A handle on the sink and the test clock, its time code set, started at `startMs` with a
// timer period long enough that only the test's ticks run.
class Mtc : public ::testing::Test {
protected:
  void SetUp() override {
    g_sent.clear();
    g_now = 5000;
    SetSink(Record);
    SetClock(TestClock);
    h = syncoutAllocHandle();
    ASSERT_NE(nullptr, h);
    ASSERT_EQ(0u, syncoutOpen(h, 0));
    syncoutSetParam(h, KYSYNCOUT_PARAM_PERIOD, 60000);
    syncoutSetParam(h, KYSYNCOUT_PARAM_RESOLUTION, 1);
    syncoutSetParam(h, KYSYNCOUT_PARAM_POSLIMIT, 0x7FFFFFFF);
  }
  void TearDown() override {
    syncoutStopSmpte(h);
    syncoutFreeHandle(h);
    SetClock(nullptr);
    SetSink(nullptr);
  }
  void SetTimeCode(LONG type, LONG hh, LONG mm, LONG ss, LONG ff) {
    syncoutSetParam(h, KYSYNCOUT_PARAM_RATETYPE, type);
    syncoutSetParam(h, KYSYNCOUT_PARAM_HOURS, hh);
    syncoutSetParam(h, KYSYNCOUT_PARAM_MINUTES, mm);
    syncoutSetParam(h, KYSYNCOUT_PARAM_SECONDS, ss);
    syncoutSetParam(h, KYSYNCOUT_PARAM_FRAMES, ff);
  }
  void Start(DWORD startMs, BOOL trueRate = TRUE) {
    ASSERT_EQ(0, syncoutStartSmpte(h, startMs * 10000, 0, trueRate));
    g_sent.clear();
  }
  void Run(DWORD ms) {
    g_now += ms;
    Tick(h);
  }
  void ExpectTimeCode(LONG hh, LONG mm, LONG ss, LONG ff) {
    EXPECT_EQ((std::vector<LONG>{hh, mm, ss, ff}), (std::vector<LONG>{h->hours, h->minutes, h->seconds, h->frames}));
  }
  HKYSYNCOUT h = nullptr;
};

TEST(TimerService, RecordsMeasureFromTheirReference) {
  tKYTIMER a{}, b{};
  const DWORD sinceLoad = KyGetMillisecEx(nullptr);
  EXPECT_GE(KyGetMillisecEx(&a) + 1, sinceLoad);  // a zero-filled record measures from load
  KyResetMillisecEx(&a);
  KyResetMillisecEx(&b);
  EXPECT_LE(KyGetMillisecEx(&a), 20u);
  DWORD summed = 0;
  for (int i = 0; i < 5; ++i) {
    Sleep(20);
    summed += KyDeltaMillisecEx(&a);
  }
  const DWORD whole = KyGetMillisecEx(&b);
  EXPECT_GE(summed, 100u);
  // Deltas keep the fractions: their sum never falls behind a clock that was not read.
  EXPECT_LE(whole - summed, 1u + KyGetMillisecEx(&a));
  EXPECT_LE(KyGetMillisecEx(&a), 20u);
}

TEST_F(Mtc, FullFrameMessageCarriesRateBits) {
  const struct { LONG type; BYTE hoursByte; } cases[] = {{1, 0x60 | 13}, {2, 0x40 | 13}, {3, 0x20 | 13}, {4, 13}, {5, 13}};
  for (const auto &c : cases) {
    g_sent.clear();
    SetTimeCode(c.type, 13, 45, 7, 21);
    syncoutSendFFrameMsg(h);
    ASSERT_EQ(1u, g_sent.size());
    const std::vector<BYTE> want = {0xF0, 0x7F, 0x7F, 0x01, 0x01, c.hoursByte, 45, 7, 21, 0xF7};
    EXPECT_EQ(want, g_sent[0].data) << "type " << c.type;
  }
}

TEST_F(Mtc, OneSecondAtThirtySendsEveryPieceAndThirtyFrames) {
  SetTimeCode(1, 1, 2, 3, 4);
  Start(1000);
  Run(1000);
  ASSERT_EQ(120u, g_sent.size());
  const BYTE first[8] = {0x04, 0x10, 0x23, 0x30, 0x42, 0x50, 0x61, 0x76};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(0xF1u | first[i] << 8, g_sent[i].shortMsg) << i;
  // The second group describes the time code two frames on.
  EXPECT_EQ(0xF1u | 0x06 << 8, g_sent[8].shortMsg);
  ExpectTimeCode(1, 2, 4, 4);
  EXPECT_EQ(0, h->piece);
}

TEST_F(Mtc, TypeFiveAnnouncesTwentyFourInQuarterFrames) {
  SetTimeCode(5, 17, 0, 0, 0);
  Start(0);
  syncoutSetParam(h, KYSYNCOUT_PARAM_PIECE, 7);
  Run(9);  // 9 ms x 3000/25025 -> one quarter frame
  ASSERT_EQ(1u, g_sent.size());
  EXPECT_EQ(0xF1u | 0x71 << 8, g_sent[0].shortMsg);
}

TEST_F(Mtc, RateRatiosCarryTheirRemainder) {
  const struct { LONG type; BOOL trueRate; size_t perTenSeconds; } cases[] = {{1, TRUE, 1200}, {1, FALSE, 1198}, {2, TRUE, 1198}, {3, TRUE, 1000},
               {4, TRUE, 960},  {5, TRUE, 1200},  {5, FALSE, 1198}};
  for (const auto &c : cases) {
    SetTimeCode(c.type, 0, 0, 0, 0);
    Start(0, c.trueRate);
    for (int i = 0; i < 100; ++i) Run(100);
    EXPECT_EQ(c.perTenSeconds, g_sent.size()) << "type " << c.type << " true " << c.trueRate;
  }
}

TEST_F(Mtc, DropFrameSkipsLabelsExceptEveryTenthMinute) {
  // The last row: hours wrap, and minute 0 is a tenth minute.
  const struct { LONG hh, mm, ss, ff, wantMm, wantSs, wantFf; } cases[] = {
      {0, 0, 59, 29, 1, 0, 3}, {0, 9, 59, 29, 10, 0, 1}, {0, 0, 10, 28, 0, 11, 0}, {23, 59, 59, 29, 0, 0, 1}};
  for (const auto &c : cases) {
    SetTimeCode(2, c.hh, c.mm, c.ss, c.ff);
    Start(0);
    Run(67);  // 67 ms x 2997/25000 -> eight quarter frames, two frames on
    ASSERT_EQ(8u, g_sent.size());
    ExpectTimeCode(0, c.wantMm, c.wantSs, c.wantFf);
  }
}

TEST_F(Mtc, PositionLimitStopsTheStreamWithoutMovingBack) {
  SetTimeCode(1, 0, 0, 10, 0);
  Start(1000);
  syncoutSetParam(h, KYSYNCOUT_PARAM_POSLIMIT, 1500);
  for (DWORD limit : {1500, 200}) {  // the second one is below the position
    syncoutSetParam(h, KYSYNCOUT_PARAM_POSLIMIT, limit);
    Run(2000);
    EXPECT_EQ(1500u, h->position);
    EXPECT_EQ(60u, g_sent.size());
    ExpectTimeCode(0, 0, 10, 14);
  }
}

TEST_F(Mtc, HoldGapLimitAndFreeRun) {
  SetTimeCode(3, 0, 0, 0, 0);
  Start(0);
  syncoutUpdatePosition(h, 2000 * 10000LL, 100 * 10000LL);
  Run(150);  // the update is older than the gap limit: the position waits
  EXPECT_EQ(2000u, h->position);
  Run(50);
  EXPECT_EQ(2050u, h->position);
  syncoutSetParam(h, KYSYNCOUT_PARAM_HOLD, 1);
  Run(80);
  EXPECT_EQ(2050u, h->position);
  // Free-run wins over hold and the gap; the held time was never taken up, so it counts too.
  syncoutSetParam(h, KYSYNCOUT_PARAM_FREERUN, 1);
  Run(500);
  EXPECT_EQ(2630u, h->position);
  syncoutSetParam(h, KYSYNCOUT_PARAM_FREERUN, 0);
  syncoutSetParam(h, KYSYNCOUT_PARAM_HOLD, 0);
  // Moving the transport back: nothing is sent until the position passes the last one sent.
  const size_t sent = g_sent.size();
  syncoutUpdatePosition(h, 2000 * 10000LL, 0);
  Run(300);
  EXPECT_EQ(2300u, h->position);
  EXPECT_EQ(sent, g_sent.size());
  Run(400);
  EXPECT_EQ(sent + 7, g_sent.size());  // 2630 -> 2700 at 1/10 quarter frame per ms
  syncoutSetParam(h, 9, 1234);
  syncoutSetParam(h, 13, 1234);
  EXPECT_EQ(0u, h->flags);
}

TEST_F(Mtc, CloseSendsTheCurrentTimeCodeOnlyWhenOpen) {
  SetTimeCode(3, 1, 2, 3, 4);
  EXPECT_EQ(0u, syncoutClose(h));
  ASSERT_EQ(1u, g_sent.size());
  EXPECT_EQ(0x21, g_sent[0].data[5]);
  EXPECT_EQ(nullptr, h->midiOut);
  g_sent.clear();
  EXPECT_EQ(0u, syncoutClose(h));  // never reopened: nothing sent
  syncoutSendFFrameMsg(h);
  EXPECT_TRUE(g_sent.empty());
  EXPECT_EQ(0u, syncoutClose(nullptr));
  EXPECT_EQ(-1, syncoutStartSmpte(nullptr, 0, 0, TRUE));
  EXPECT_EQ(-1, syncoutStopSmpte(nullptr));
  syncoutSetParam(nullptr, 1, 1);
  syncoutUpdatePosition(nullptr, 0, 0);
  syncoutSendFFrameMsg(nullptr);
  syncoutFreeHandle(nullptr);
}

TEST(MtcTimer, RealMultimediaTimerDrivesTheStreamAndStops) {
  g_sentCount = 0;
  SetSink(Count);
  HKYSYNCOUT h = syncoutAllocHandle();
  ASSERT_NE(nullptr, h);
  EXPECT_EQ(-1, syncoutStartSmpte(h, 0, 0, TRUE));  // no timer period yet
  EXPECT_EQ(0u, h->timerId);
  ASSERT_EQ(0u, syncoutOpen(h, 0));
  syncoutSetParam(h, KYSYNCOUT_PARAM_RATETYPE, 1);
  syncoutSetParam(h, KYSYNCOUT_PARAM_PERIOD, 10);
  syncoutSetParam(h, KYSYNCOUT_PARAM_RESOLUTION, 1);
  syncoutSetParam(h, KYSYNCOUT_PARAM_FREERUN, 1);
  syncoutSetParam(h, KYSYNCOUT_PARAM_POSLIMIT, 0x7FFFFFFF);
  ASSERT_EQ(0, syncoutStartSmpte(h, 0, 0, TRUE));
  EXPECT_NE(0u, h->timerId);
  Sleep(400);
  EXPECT_EQ(0, syncoutStopSmpte(h));
  EXPECT_EQ(0u, h->timerId);
  EXPECT_EQ(0, h->priorityRaised);
  const LONG sent = g_sentCount;
  EXPECT_GT(sent, 10);  // 400 ms at 30 fps is 48 quarter frames; allow a slow host
  EXPECT_GE(h->position, 300u);
  Sleep(50);
  EXPECT_EQ(sent, g_sentCount);  // nothing after the stop
  syncoutClose(h);
  syncoutFreeHandle(h);
  SetSink(nullptr);
}

} // namespace
