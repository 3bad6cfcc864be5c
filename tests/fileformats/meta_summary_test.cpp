// Summary lists in memory and in their IStream form.
#include <objbase.h>

#include "ky_status.h"
#include "ky_summary.h"
#include "meta_testutil.h"

using namespace metatest;

namespace {

const DWORD kINAM = 0x4D414E49, kIART = 0x54524149, kICMT = 0x544D4349;

// A table that frees itself.
struct Table : SUMMARYLIST {
  Table() : SUMMARYLIST{0, nullptr} {}
  ~Table() { KySummary_Free(this); }
};

TEST(MetaSummary, SetGetAndClear) {
  Table t;
  EXPECT_EQ(KYERR_NOT_FOUND, KySummary_GetItemIndex(&t, kINAM));
  EXPECT_EQ(nullptr, KySummary_GetItemText(&t, kINAM));
  EXPECT_EQ(S_OK, KySummary_SetItem(&t, kINAM, "Title"));
  EXPECT_EQ(S_OK, KySummary_SetItem(&t, kIART, nullptr));  // appended without text
  EXPECT_EQ(S_OK, KySummary_SetItem(&t, kICMT, "x"));
  ASSERT_EQ(3u, t.count);
  EXPECT_EQ(0, KySummary_GetItemIndex(&t, kINAM));
  EXPECT_EQ(1, KySummary_GetItemIndex(&t, kIART));
  EXPECT_EQ(2, KySummary_GetItemIndex(&t, kICMT));
  EXPECT_STREQ("Title", KySummary_GetItemText(&t, kINAM));
  EXPECT_EQ(nullptr, KySummary_GetItemText(&t, kIART));
  // The table keeps its own copies in global memory.
  EXPECT_NE(nullptr, GlobalHandle(t.items));
  EXPECT_NE(nullptr, GlobalHandle(t.items[0].text));

  EXPECT_EQ(S_OK, KySummary_SetItem(&t, kINAM, "A much longer title than before"));
  EXPECT_STREQ("A much longer title than before", KySummary_GetItemText(&t, kINAM));
  EXPECT_EQ(S_OK, KySummary_SetItem(&t, kIART, "Band"));
  EXPECT_STREQ("Band", KySummary_GetItemText(&t, kIART));
  EXPECT_EQ(S_OK, KySummary_SetItem(&t, kINAM, nullptr));  // clears, the item stays
  EXPECT_EQ(3u, t.count);
  EXPECT_EQ(0, KySummary_GetItemIndex(&t, kINAM));
  EXPECT_EQ(nullptr, KySummary_GetItemText(&t, kINAM));

  EXPECT_EQ(S_OK, KySummary_Free(&t));
  EXPECT_EQ(0u, t.count);
  EXPECT_EQ(nullptr, t.items);
  EXPECT_EQ(S_OK, KySummary_Free(&t));
  EXPECT_EQ(S_OK, KySummary_Free(nullptr));
}

TEST(MetaSummary, CopyAndCompare) {
  Table a;
  KySummary_SetItem(&a, kINAM, "one");
  KySummary_SetItem(&a, kIART, nullptr);
  KySummary_SetItem(&a, kICMT, "three");
  Table b;
  ASSERT_EQ(S_OK, KySummary_Copy(&b, &a));
  ASSERT_EQ(3u, b.count);
  EXPECT_TRUE(KySummary_Compare(&a, &b));
  EXPECT_NE(a.items[0].text, b.items[0].text);  // deep copy
  EXPECT_EQ(kICMT, b.items[2].id);
  EXPECT_EQ(nullptr, b.items[1].text);

  KySummary_SetItem(&b, kICMT, "Three");  // case matters
  EXPECT_FALSE(KySummary_Compare(&a, &b));
  KySummary_SetItem(&b, kICMT, "three");
  KySummary_SetItem(&b, kIART, "");  // empty text against none
  EXPECT_FALSE(KySummary_Compare(&a, &b));

  // Ids are deliberately not compared.
  Table x, y;
  KySummary_SetItem(&x, kINAM, "same");
  KySummary_SetItem(&y, kICMT, "same");
  EXPECT_TRUE(KySummary_Compare(&x, &y));
  KySummary_SetItem(&y, kINAM, "more");
  EXPECT_FALSE(KySummary_Compare(&x, &y));  // counts differ
  EXPECT_FALSE(KySummary_Compare(&x, nullptr));
  EXPECT_FALSE(KySummary_Compare(nullptr, nullptr));

  Table empty, copy;
  EXPECT_EQ(S_OK, KySummary_Copy(&copy, &empty));
  EXPECT_EQ(0u, copy.count);
  EXPECT_EQ(nullptr, copy.items);
  EXPECT_TRUE(KySummary_Compare(&empty, &copy));
}

// A memory stream and its bytes.
struct MemStream {
  IStream *s = nullptr;
  MemStream() { CreateStreamOnHGlobal(nullptr, TRUE, &s); }
  ~MemStream() {
    if (s) s->Release();
  }
  Bytes Data() const {
    HGLOBAL h = nullptr;
    GetHGlobalFromStream(s, &h);
    STATSTG st = {};
    s->Stat(&st, STATFLAG_NONAME);
    Bytes b((size_t)st.cbSize.QuadPart);
    const BYTE *p = static_cast<const BYTE *>(GlobalLock(h));
    if (p && !b.empty()) memcpy(b.data(), p, b.size());
    GlobalUnlock(h);
    return b;
  }
  void Rewind() {
    LARGE_INTEGER z = {};
    s->Seek(z, STREAM_SEEK_SET, nullptr);
  }
};

TEST(MetaSummary, StreamLayoutAndRoundTrip) {
  Table t;
  KySummary_SetItem(&t, kINAM, "Ab");
  KySummary_SetItem(&t, kIART, nullptr);
  KySummary_SetItem(&t, kICMT, "");
  KySummary_SetItem(&t, 0x31323334, "caf\xE9");  // an ANSI (code page 1252) character
  MemStream m;
  ASSERT_NE(nullptr, m.s);
  EXPECT_EQ(S_OK, t.Persist(m.s, FALSE));
  Bytes want;
  Put32le(want, 8);
  Put32le(want, 4);
  Put32le(want, kINAM);
  Put32le(want, 6);
  PutText(want, std::string("A\0b\0\0\0", 6));
  Put32le(want, kIART);
  Put32le(want, 0);
  Put32le(want, kICMT);
  Put32le(want, 2);
  Put16le(want, 0);
  Put32le(want, 0x31323334);
  Put32le(want, 10);
  for (WCHAR c : {L'c', L'a', L'f', (WCHAR)0x00E9, L'\0'}) Put16le(want, c);
  EXPECT_EQ(want, m.Data());

  m.Rewind();
  Table back;
  EXPECT_EQ(S_OK, SUMMARYLIST::Create(m.s, FALSE, &back));
  ASSERT_EQ(4u, back.count);
  EXPECT_EQ(kINAM, back.items[0].id);
  EXPECT_STREQ("Ab", back.items[0].text);
  EXPECT_EQ(nullptr, back.items[1].text);
  EXPECT_STREQ("", back.items[2].text);
  EXPECT_STREQ("caf\xE9", back.items[3].text);
  EXPECT_EQ(0x31323334u, back.items[3].id);
}

TEST(MetaSummary, StreamEdgeCases) {
  Table empty;
  MemStream m;
  EXPECT_EQ(S_OK, empty.Persist(m.s, FALSE));
  EXPECT_TRUE(m.Data().empty());
  EXPECT_EQ(E_INVALIDARG, SUMMARYLIST::Create(m.s, FALSE, nullptr));
  // Restoring from a stream at its end gives an empty table, not garbage.
  Table t;
  EXPECT_EQ(S_OK, SUMMARYLIST::Create(m.s, FALSE, &t));
  EXPECT_EQ(0u, t.count);

  // A truncated stream: the item count promises more than there is; nothing overruns.
  Bytes b;
  Put32le(b, 8);
  Put32le(b, 3);
  Put32le(b, kINAM);
  Put32le(b, 200);  // 100 characters claimed
  Put16le(b, 'Z');
  HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE, b.size());
  memcpy(GlobalLock(h), b.data(), b.size());
  GlobalUnlock(h);
  IStream *s = nullptr;
  ASSERT_EQ(S_OK, CreateStreamOnHGlobal(h, TRUE, &s));
  Table u;
  EXPECT_EQ(S_OK, SUMMARYLIST::Create(s, FALSE, &u));
  s->Release();
  ASSERT_EQ(3u, u.count);
  EXPECT_STREQ("Z", u.items[0].text);
  EXPECT_EQ(nullptr, u.items[1].text);

  // An odd byte length: all of it is read, and the next item is found where it starts.
  Bytes odd;
  Put32le(odd, 8);
  Put32le(odd, 2);
  Put32le(odd, kINAM);
  Put32le(odd, 5);
  Put16le(odd, 'A');
  Put16le(odd, 'B');
  odd.push_back(0x77);
  Put32le(odd, kIART);
  Put32le(odd, 4);
  Put16le(odd, 'C');
  Put16le(odd, 0);
  h = GlobalAlloc(GMEM_MOVEABLE, odd.size());
  memcpy(GlobalLock(h), odd.data(), odd.size());
  GlobalUnlock(h);
  ASSERT_EQ(S_OK, CreateStreamOnHGlobal(h, TRUE, &s));
  Table v;
  EXPECT_EQ(S_OK, SUMMARYLIST::Create(s, FALSE, &v));
  s->Release();
  ASSERT_EQ(2u, v.count);
  EXPECT_STREQ("A", v.items[0].text);  // L / 2 = 2 bytes of room: one character and the zero
  EXPECT_EQ(kIART, v.items[1].id);
  EXPECT_STREQ("C", v.items[1].text);
}

// A stream whose writes fail after a number of calls.
class FailingStream : public IStream {
public:
  explicit FailingStream(int okWrites) : ok_(okWrites) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void **p) override {
    *p = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE Read(void *, ULONG, ULONG *) override { return STG_E_READFAULT; }
  HRESULT STDMETHODCALLTYPE Write(const void *, ULONG n, ULONG *done) override {
    ++writes;
    if (ok_-- > 0) {
      if (done) *done = n;
      return S_OK;
    }
    return STG_E_MEDIUMFULL;
  }
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER, DWORD, ULARGE_INTEGER *) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CopyTo(IStream *, ULARGE_INTEGER, ULARGE_INTEGER *,
                                   ULARGE_INTEGER *) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Revert() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Stat(STATSTG *, DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Clone(IStream **) override { return E_NOTIMPL; }
  int writes = 0;

private:
  int ok_;
};

TEST(MetaSummary, StreamErrorsEndTheCall) {
  Table t;
  KySummary_SetItem(&t, kINAM, "abc");
  KySummary_SetItem(&t, kIART, "def");
  for (int ok = 0; ok < 5; ++ok) {
    FailingStream s(ok);
    EXPECT_EQ(STG_E_MEDIUMFULL, t.Persist(&s, FALSE)) << ok;
    EXPECT_EQ(ok + 1, s.writes);  // the first failing write is the last one
  }
  FailingStream enough(100);
  EXPECT_EQ(S_OK, t.Persist(&enough, FALSE));
  EXPECT_EQ(5, enough.writes);  // header, then id+length and text per item
  Table r;
  EXPECT_EQ(STG_E_READFAULT, SUMMARYLIST::Create(&enough, FALSE, &r));
}

}  // namespace
