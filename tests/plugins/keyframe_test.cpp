// Keyframes: order and curve inheritance at insertion, neighbours, the value at any time
// through a real effect object's blend, smart insertion, the transform call and cookies.
#include "test_effect.h"
#include "ky_keyframe.h"

#include <vector>

using kytest::TestEffect;

namespace {

std::vector<BYTE> Bytes(std::initializer_list<int> v) { return std::vector<BYTE>(v.begin(), v.end()); }

struct Filter {
  TestEffect effect;
  tKYVIDEOFILTER f{};
  Filter() { f.params = effect.Params(); }
  ~Filter() { KyVideoKeyframe_DeleteAll(&f); }
  LONG Add(LONGLONG t, LONG curve, const std::vector<BYTE> &blob, LONG user = 0) {
    LONG index = -2;
    LONG r = KyVideoKeyframe_Insert(&f, t, curve, user, nullptr, blob.data(),
                                    static_cast<LONG>(blob.size()), &index);
    EXPECT_EQ(r, static_cast<LONG>(blob.size()));
    return index;
  }
  tKYKEYFRAME *At(LONG i) { return reinterpret_cast<tKYKEYFRAME *>(f.keyframes->items) + i; }
  std::vector<BYTE> Blob(LONG i) {
    const BYTE *p = static_cast<const BYTE *>(At(i)->blob);
    return std::vector<BYTE>(p, p + At(i)->blobSize);
  }
  std::vector<BYTE> ValueAt(LONGLONG t, HRESULT expect = S_OK) {
    IStream *s = kytest::NewStream();
    EXPECT_EQ(KyVideoKeyframe_GetValueAt(&f, s, t), expect) << "t=" << t;
    std::vector<BYTE> r = kytest::StreamContent(s);
    s->Release();
    return r;
  }
};

} // namespace

TEST(Keyframes, InsertKeepsTimeOrderAndInheritsCurves) {
  Filter k;
  EXPECT_EQ(k.Add(100, KYCURVE_EASEIN, Bytes({1}), 11), 0);
  EXPECT_EQ(k.Add(0, KYCURVE_HOLD, Bytes({2}), 12), 0);
  // Same time: after the existing one; curve 5 copies the keyframe just before it.
  EXPECT_EQ(k.Add(100, KYCURVE_INHERIT, Bytes({3}), 13), 2);
  EXPECT_EQ(k.Add(50, KYCURVE_INHERIT, Bytes({4}), 14), 1);
  EXPECT_EQ(k.Add(-7, KYCURVE_INHERIT, Bytes({5}), 15), 0);  // nothing before: linear

  ASSERT_EQ(k.f.keyframes->count, 5);
  EXPECT_EQ(k.f.keyframes->slotSize, 32u);
  EXPECT_EQ(KyList_GetCreateOptions(k.f.keyframes), KYKEYFRAME_LIST_OPTIONS);
  const LONGLONG times[] = {-7, 0, 50, 100, 100};
  const LONG curves[] = {KYCURVE_LINEAR, KYCURVE_HOLD, KYCURVE_HOLD, KYCURVE_EASEIN, KYCURVE_EASEIN};
  const LONG users[] = {15, 12, 14, 11, 13};
  for (LONG i = 0; i < 5; ++i) {
    EXPECT_EQ(k.At(i)->time, times[i]) << i;
    EXPECT_EQ(k.At(i)->curve, curves[i]) << i;
    EXPECT_EQ(k.At(i)->userValue, users[i]) << i;
    EXPECT_EQ(k.At(i)->reserved1 | k.At(i)->reserved2, 0u);
    EXPECT_NE(GlobalHandle(k.At(i)->blob), nullptr);  // a global block, locked
  }
  EXPECT_EQ(k.Blob(3), Bytes({1}));  // the earlier insertion stays first
  EXPECT_EQ(k.Blob(4), Bytes({3}));
}

TEST(Keyframes, InsertFromStreamReadsExactlyTheSizeAndFailsCleanly) {
  Filter k;
  IStream *s = kytest::NewStream();
  const BYTE data[] = {9, 8, 7, 6, 5};
  s->Write(data, 5, nullptr);
  kytest::Rewind(s);
  LONG index = 0;
  EXPECT_EQ(KyVideoKeyframe_Insert(&k.f, 10, 0, 0, s, nullptr, 3, &index), 3);
  EXPECT_EQ(index, 0);
  EXPECT_EQ(k.Blob(0), Bytes({9, 8, 7}));
  // Only two bytes are left: a short read inserts nothing.
  EXPECT_LT(KyVideoKeyframe_Insert(&k.f, 20, 0, 0, s, nullptr, 3, &index), 0);
  EXPECT_EQ(index, -1);
  EXPECT_EQ(k.f.keyframes->count, 1);
  s->Release();

  EXPECT_EQ(KyVideoKeyframe_Insert(nullptr, 0, 0, 0, nullptr, data, 1, &index), E_POINTER);
  EXPECT_EQ(KyVideoKeyframe_Insert(&k.f, 0, 0, 0, nullptr, nullptr, 4, &index), E_POINTER);
  EXPECT_EQ(KyVideoKeyframe_Insert(&k.f, 0, 0, 0, nullptr, nullptr, 0, &index), 0);  // empty state
}

TEST(Keyframes, NeighboursAndFind) {
  Filter k;
  LONG prev = 5, next = 5;
  EXPECT_EQ(KyVideoKeyframe_FindNeighbors(&k.f, &prev, &next, 0), 0);
  EXPECT_EQ(prev + next, -2);
  EXPECT_EQ(KyVideoKeyframe_Find(&k.f, nullptr, 0, KYKEYFRAME_NO_WINDOW), -1);

  for (LONGLONG t : {0, 100, 100, 200}) k.Add(t, 0, Bytes({static_cast<int>(t / 10)}));
  struct { LONGLONG t; LONG prev, next; } cases[] = {
      {-5, -1, 0}, {0, 0, 1}, {50, 0, 1}, {100, 2, 3}, {199, 2, 3}, {200, 3, -1}, {250, 3, -1}};
  for (auto &c : cases) {
    KyVideoKeyframe_FindNeighbors(&k.f, &prev, &next, c.t);
    EXPECT_EQ(std::make_pair(prev, next), std::make_pair(c.prev, c.next)) << c.t;
  }

  tKYKEYFRAME *rec = nullptr;
  EXPECT_EQ(KyVideoKeyframe_Find(&k.f, &rec, 100, KYKEYFRAME_NO_WINDOW), 1);
  EXPECT_EQ(rec, k.At(1));
  EXPECT_EQ(KyVideoKeyframe_Find(&k.f, &rec, 101, KYKEYFRAME_NO_WINDOW), -1);
  EXPECT_EQ(rec, nullptr);
  // With a window: the nearest keyframe within it, the earliest of equally near ones.
  EXPECT_EQ(KyVideoKeyframe_Find(&k.f, &rec, 140, 50), 1);
  EXPECT_EQ(KyVideoKeyframe_Find(&k.f, &rec, 160, 50), 3);
  EXPECT_EQ(KyVideoKeyframe_Find(&k.f, &rec, 150, 50), 1);
  EXPECT_EQ(KyVideoKeyframe_Find(&k.f, &rec, 150, 49), -1);
  EXPECT_EQ(KyVideoKeyframe_Find(&k.f, nullptr, 0, 0), 0);
}

TEST(Keyframes, ValueAtEveryCurve) {
  const std::vector<BYTE> a = Bytes({0, 100, 200}), b = Bytes({200, 100, 0, 42});
  struct { LONG curve; double (*shape)(double); } curves[] = {
      {KYCURVE_LINEAR, [](double f) { return f; }},
      {KYCURVE_HOLD, [](double f) { return f < 1.0 ? 0.0 : 1.0; }},
      {KYCURVE_EASEIN, [](double f) { return f * f; }},
      {KYCURVE_EASEOUT, [](double f) { return 1.0 - (1.0 - f) * (1.0 - f); }},
      {7, [](double f) { return f; }}};
  for (auto &c : curves) {
    Filter k;
    k.Add(1000, c.curve, a);
    k.Add(1400, KYCURVE_HOLD, b);
    // At, before and after the keyframes: the stored states, without a blend.
    EXPECT_EQ(k.ValueAt(1000), a);
    EXPECT_EQ(k.ValueAt(1400), b);
    EXPECT_EQ(k.ValueAt(-5000), a);
    EXPECT_EQ(k.ValueAt(99999), b);
    EXPECT_EQ(k.effect.blends, 0);
    for (LONGLONG t : {1001, 1100, 1200, 1399}) {
      double f = c.shape(static_cast<double>(t - 1000) / 400.0);
      std::vector<BYTE> v = k.ValueAt(t);
      EXPECT_DOUBLE_EQ(k.effect.lastFraction, f) << "curve " << c.curve << " t " << t;
      ASSERT_EQ(v.size(), 4u);
      EXPECT_EQ(v[0], static_cast<BYTE>(std::lround(200 * f)));
      EXPECT_EQ(v[3], 42);
    }
    EXPECT_EQ(k.effect.blends, 4);  // every time in between blends, a hold curve with 0
  }
  // No keyframes: the effect's current parameters.
  Filter none;
  none.effect.state = Bytes({5, 6});
  EXPECT_EQ(none.ValueAt(3), Bytes({5, 6}));
}

TEST(Keyframes, InsertSmartAndTransform) {
  Filter k;
  k.Add(0, KYCURVE_EASEOUT, Bytes({0, 0}), 1);
  k.Add(100, 0, Bytes({100, 200}), 2);
  LONG i = KyVideoKeyframe_InsertSmart(&k.f, 50);
  ASSERT_EQ(i, 1);
  EXPECT_EQ(k.At(1)->time, 50);
  EXPECT_EQ(k.At(1)->curve, KYCURVE_EASEOUT);  // inherited
  EXPECT_EQ(k.Blob(1), Bytes({75, 150}));      // eased: f = 0.75
  EXPECT_EQ(KyVideoKeyframe_InsertSmart(&k.f, 50), -1);  // one exists there
  EXPECT_EQ(k.f.keyframes->count, 3);

  KyVideoKeyframe_SetTransformParam(&k.f, 75);
  EXPECT_EQ(k.f.currentTime, 75);
  EXPECT_EQ(k.effect.loads, 1);
  EXPECT_EQ(k.effect.loaded, Bytes({94, 188}));  // from 50 to 100, eased f = 0.75

  // Without a parameter interface neither does anything.
  tKYVIDEOFILTER bare{};
  bare.currentTime = 9;
  EXPECT_EQ(KyVideoKeyframe_InsertSmart(&bare, 10), -1);
  KyVideoKeyframe_SetTransformParam(&bare, 10);
  EXPECT_EQ(bare.currentTime, 9);
  EXPECT_EQ(bare.keyframes, nullptr);
}

TEST(Keyframes, CacheCookies) {
  EXPECT_EQ(KyVideoFilterCache_CreateNewCookie(nullptr), 17u);
  HKYLIST cache = nullptr;
  ASSERT_EQ(KyList_CreateExZ(&cache, sizeof(DWORD) * 3, 0, 0, KYLIST_ARRAY, 0, 0, 0), S_OK);
  EXPECT_EQ(KyVideoFilterCache_CreateNewCookie(cache), 17u);
  DWORD e1[3] = {3, 0, 0}, e2[3] = {20, 0, 0}, e3[3] = {15, 0, 0};
  KyList_InsertList(cache, 0, e1, 1);
  KyList_InsertList(cache, 1, e3, 1);
  EXPECT_EQ(KyVideoFilterCache_CreateNewCookie(cache), 17u);  // all below the first cookie
  KyList_InsertList(cache, 1, e2, 1);
  EXPECT_EQ(KyVideoFilterCache_CreateNewCookie(cache), 21u);
  KyList_Destroy(cache);

  // A pointer list: the slots point to the entries.
  ASSERT_EQ(KyList_CreateExZ(&cache, 4, 0, 0, 0, 0, 0, 0), S_OK);
  DWORD *p1 = e1, *p2 = e2;
  KyList_InsertList(cache, 0, &p1, 1);
  KyList_InsertList(cache, 1, &p2, 1);
  EXPECT_EQ(KyVideoFilterCache_CreateNewCookie(cache), 21u);
  KyList_Destroy(cache);
}
