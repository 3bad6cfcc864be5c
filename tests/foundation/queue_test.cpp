// Queues: links, event states, waits, searches, moves, membership, and real threads.
#include <gtest/gtest.h>
#include "ky_testutil.h"
#include <windows.h>
#include <process.h>
#include <vector>
#include "ky_queue.h"

extern "C" int QueueIsInFromC(tKYQHEAD *head, tKYQELM *element);

namespace {

struct Item {
  tKYQELM link;
  int value;
};

Item *AsItem(tKYQELM *e) { return reinterpret_cast<Item *>(e); }

bool Signalled(const tKYQHEAD &q) { return WaitForSingleObject(q.event, 0) == WAIT_OBJECT_0; }

class QueueTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ZeroMemory(&q, sizeof q);
    ASSERT_EQ(1, KyQueueInitialize(&q));
    for (int i = 0; i < 4; ++i) items[i] = Item{{nullptr, nullptr}, i + 1};
  }
  void TearDown() override { KyQueueDelete(&q); }

  std::vector<int> Drain(bool fromTail) {
    std::vector<int> got;
    while (tKYQELM *e = fromTail ? KyQueueRemoveTail(&q, 0) : KyQueueRemove(&q, 0))
      got.push_back(AsItem(e)->value);
    return got;
  }
  void InsertAll() {
    for (Item &it : items) KyQueueInsert(&q, &it.link);
  }
  tKYQELM *Head() { return reinterpret_cast<tKYQELM *>(&q); }

  tKYQHEAD q;
  Item items[4];
};

int WINAPI MatchValue(tKYQELM *e, DWORD param) { return AsItem(e)->value == static_cast<int>(param); }

template <class F>
ULONGLONG Elapsed(F f) {
  ULONGLONG start = GetTickCount64();
  f();
  return GetTickCount64() - start;
}

TEST_F(QueueTest, InitializeReinitializeAndDelete) {
  EXPECT_EQ(Head(), q.next);
  EXPECT_EQ(Head(), q.prev);
  ASSERT_NE(nullptr, q.event);
  EXPECT_FALSE(Signalled(q));
  // Re-initialising only empties the ring and keeps the event.
  InsertAll();
  HANDLE event = q.event;
  ASSERT_EQ(1, KyQueueInitialize(&q));
  EXPECT_EQ(event, q.event);
  EXPECT_EQ(nullptr, KyQueueRemove(&q, 0));
  KyQueueDelete(&q);
  EXPECT_EQ(nullptr, q.event);
  KyQueueDelete(&q);  // a second deletion finds no event and does nothing
  ASSERT_EQ(1, KyQueueInitialize(&q));
  EXPECT_NE(nullptr, q.event);
}

TEST_F(QueueTest, OrderFromBothEndsAndRemovalNullsLinks) {
  const struct { bool insertAtHead, removeFromTail; std::vector<int> expected; } cases[] = {
      {false, false, {1, 2, 3, 4}},
      {true, true, {1, 2, 3, 4}},
      {false, true, {4, 3, 2, 1}},
      {true, false, {4, 3, 2, 1}},
  };
  for (const auto &c : cases) {
    for (Item &it : items) (c.insertAtHead ? KyQueueInsertHead : KyQueueInsert)(&q, &it.link);
    EXPECT_EQ(c.expected, Drain(c.removeFromTail)) << c.insertAtHead << c.removeFromTail;
  }
  InsertAll();
  tKYQELM *e = KyQueueRemove(&q, 0);
  ASSERT_EQ(&items[0].link, e);
  EXPECT_EQ(nullptr, e->next);
  EXPECT_EQ(nullptr, e->prev);
  EXPECT_EQ(&items[1].link, q.next);
  EXPECT_EQ(Head(), items[1].link.prev);
}

TEST_F(QueueTest, EventFollowsEmptiness) {
  KyQueueInsert(&q, &items[0].link);
  EXPECT_TRUE(Signalled(q));
  KyQueueInsertHead(&q, &items[1].link);
  ASSERT_NE(nullptr, KyQueueRemoveTail(&q, 0));
  EXPECT_TRUE(Signalled(q)) << "removing one of two keeps the event";
  ASSERT_NE(nullptr, KyQueueRemoveTail(&q, 0));
  EXPECT_FALSE(Signalled(q));
  KyQueueInsertHead(&q, &items[2].link);
  EXPECT_TRUE(Signalled(q));
  EXPECT_EQ(&items[2].link, KyQueueFindAndRemoveRev(&q, MatchValue, 3));
  EXPECT_FALSE(Signalled(q)) << "a search that removes the last element resets it too";
}

TEST_F(QueueTest, WaitsAndTimeouts) {
  EXPECT_EQ(0, KyQueueWait(&q, 0));
  EXPECT_GE(Elapsed([&] { EXPECT_EQ(0, KyQueueWait(&q, 100)); }), 80u);
  EXPECT_GE(Elapsed([&] { EXPECT_EQ(nullptr, KyQueueRemove(&q, 100)); }), 80u);
  KyQueueInsert(&q, &items[0].link);
  EXPECT_EQ(1, KyQueueWait(&q, 0));
  EXPECT_EQ(&items[0].link, q.next) << "waiting removes nothing";
}

TEST_F(QueueTest, FlushEmptiesAndLeavesEventSignalled) {
  InsertAll();
  KyQueueFlush(&q);
  EXPECT_EQ(Head(), q.next);
  EXPECT_EQ(Head(), q.prev);
  EXPECT_TRUE(Signalled(q));
  EXPECT_NE(nullptr, items[0].link.next) << "flushed elements keep stale links";
  EXPECT_EQ(0, IsInKyQueue(&q, &items[1].link)) << "stale links after a flush";
  // A signalled empty queue neither waits nor returns anything.
  EXPECT_LT(Elapsed([&] {
              EXPECT_EQ(nullptr, KyQueueRemove(&q, 5000));
              EXPECT_EQ(nullptr, KyQueueRemoveTail(&q, 5000));
              EXPECT_EQ(0, KyQueueWait(&q, 5000));
            }),
            2000u);
  // The next removal that empties the queue resets the event.
  KyQueueInsert(&q, &items[0].link);
  ASSERT_NE(nullptr, KyQueueRemove(&q, 0));
  EXPECT_FALSE(Signalled(q));
}

TEST_F(QueueTest, FindAndRemoveSearchesFromEachEnd) {
  items[3].value = 2;  // values 1, 2, 3, 2
  InsertAll();
  EXPECT_EQ(&items[1].link, KyQueueFindAndRemove(&q, MatchValue, 2));
  EXPECT_EQ(nullptr, items[1].link.next);
  EXPECT_EQ(nullptr, KyQueueFindAndRemove(&q, MatchValue, 9));
  EXPECT_EQ(&items[3].link, KyQueueFindAndRemoveRev(&q, MatchValue, 2));
  EXPECT_EQ(nullptr, KyQueueFindAndRemoveRev(&q, MatchValue, 2));
  EXPECT_EQ((std::vector<int>{1, 3}), Drain(false));
}

TEST_F(QueueTest, MoveToTailAndHead) {
  EXPECT_EQ(0, KyQueueMoveToTail(&q, &items[0].link)) << "empty queue";
  EXPECT_EQ(0, KyQueueMoveToHead(&q, &items[0].link)) << "empty queue";
  InsertAll();
  EXPECT_EQ(0, KyQueueMoveToTail(&q, &items[3].link)) << "already last";
  EXPECT_EQ(0, KyQueueMoveToHead(&q, &items[0].link)) << "already first";
  Item loose{{nullptr, nullptr}, 9}, stranger{{nullptr, nullptr}, 9};
  tKYQHEAD other = {};
  ASSERT_EQ(1, KyQueueInitialize(&other));
  KyQueueInsert(&other, &stranger.link);
  EXPECT_EQ(0, KyQueueMoveToTail(&q, &stranger.link)) << "element of another queue";
  EXPECT_EQ(0, KyQueueMoveToHead(&q, &loose.link));
  EXPECT_EQ(1, KyQueueMoveToTail(&q, &items[1].link));  // 1 3 4 2
  EXPECT_TRUE(Signalled(q));
  EXPECT_EQ(1, KyQueueMoveToHead(&q, &items[3].link));  // 4 1 3 2
  EXPECT_EQ(1, KyQueueMoveToHead(&q, &items[2].link));  // 3 4 1 2
  EXPECT_EQ((std::vector<int>{3, 4, 1, 2}), Drain(false));
  KyQueueDelete(&other);
}

TEST_F(QueueTest, NullHeadElementOrMatchIsRefusedWithoutTouchingTheQueue) {
  InsertAll();
  EXPECT_EQ(0, KyQueueInitialize(nullptr));
  KyQueueDelete(nullptr);
  KyQueueFlush(nullptr);
  KyQueueInsert(nullptr, &items[0].link);
  KyQueueInsertHead(nullptr, &items[0].link);
  KyQueueInsert(&q, nullptr);
  KyQueueInsertHead(&q, nullptr);
  EXPECT_EQ(nullptr, KyQueueRemove(nullptr, 10));
  EXPECT_EQ(nullptr, KyQueueRemoveTail(nullptr, 10));
  EXPECT_EQ(0, KyQueueWait(nullptr, 10));
  EXPECT_EQ(nullptr, KyQueueFindAndRemove(nullptr, MatchValue, 1));
  EXPECT_EQ(nullptr, KyQueueFindAndRemoveRev(nullptr, MatchValue, 1));
  EXPECT_EQ(nullptr, KyQueueFindAndRemove(&q, nullptr, 1));
  EXPECT_EQ(nullptr, KyQueueFindAndRemoveRev(&q, nullptr, 1));
  EXPECT_EQ(0, KyQueueMoveToTail(nullptr, &items[0].link));
  EXPECT_EQ(0, KyQueueMoveToHead(nullptr, &items[3].link));
  EXPECT_EQ(0, KyQueueMoveToTail(&q, nullptr));
  EXPECT_EQ(0, KyQueueMoveToHead(&q, nullptr));
  EXPECT_EQ(0, IsInKyQueue(nullptr, &items[0].link));
  EXPECT_EQ(0, IsInKyQueue(&q, nullptr));
  EXPECT_EQ(std::vector<int>({1, 2, 3, 4}), Drain(false));
}

// A head never initialised (zeroed) or already deleted has no usable lock: every operation
// refuses it and leaves the element alone.
TEST_F(QueueTest, HeadWithoutEventIsRefused) {
  tKYQHEAD zeroed = {}, deleted = {};
  ASSERT_EQ(1, KyQueueInitialize(&deleted));
  KyQueueDelete(&deleted);
  Item &it = items[0];
  for (tKYQHEAD *h : {&zeroed, &deleted}) {
    KyQueueInsert(h, &it.link);
    KyQueueInsertHead(h, &it.link);
    EXPECT_EQ(nullptr, it.link.next);
    EXPECT_EQ(nullptr, KyQueueRemove(h, 10));
    EXPECT_EQ(nullptr, KyQueueRemoveTail(h, 0));
    EXPECT_EQ(0, KyQueueWait(h, 10));
    EXPECT_EQ(nullptr, KyQueueFindAndRemove(h, MatchValue, 1));
    EXPECT_EQ(nullptr, KyQueueFindAndRemoveRev(h, MatchValue, 1));
    KyQueueFlush(h);
    Item linked{{&it.link, &it.link}, 5};
    EXPECT_EQ(0, KyQueueMoveToTail(h, &linked.link));
    EXPECT_EQ(0, KyQueueMoveToHead(h, &linked.link));
    EXPECT_EQ(0, IsInKyQueue(h, &linked.link));
    KyQueueDelete(h);
  }
  EXPECT_EQ(1, KyQueueInitialize(&zeroed));
  KyQueueInsert(&zeroed, &it.link);
  EXPECT_EQ(&it.link, KyQueueRemove(&zeroed, 0));
  KyQueueDelete(&zeroed);
}

// ---- IsInKyQueue, as C clients reach it through the plain export ----

TEST_F(QueueTest, IsInKyQueueUnderBothExportNames) {
  HMODULE dll = GetModuleHandleA("tellarok.dll");
  ASSERT_NE(nullptr, GetProcAddress(dll, "IsInKyQueue"));
  ASSERT_NE(nullptr, GetProcAddress(dll, "_Z11IsInKyQueueP8tKYQHEADP7tKYQELM"));
  InsertAll();
  EXPECT_EQ(1, QueueIsInFromC(&q, &items[0].link));
  EXPECT_EQ(1, IsInKyQueue(&q, &items[3].link));
  EXPECT_EQ(0, IsInKyQueue(&q, KyQueueRemove(&q, 0)));
  Item stranger{{nullptr, nullptr}, 0};
  tKYQHEAD other = {};
  ASSERT_EQ(1, KyQueueInitialize(&other));
  KyQueueInsert(&other, &stranger.link);
  EXPECT_EQ(0, QueueIsInFromC(&q, &stranger.link)) << "linked in another queue";
  KyQueueDelete(&other);
}

unsigned __stdcall AskLooseElement(void *q) {
  Item loose{{nullptr, nullptr}, 0};
  return static_cast<unsigned>(IsInKyQueue(static_cast<tKYQHEAD *>(q), &loose.link)) + 7;
}

TEST_F(QueueTest, IsInKyQueueOfNullLinkedElementTakesNoLock) {
  InsertAll();
  // This thread holds the lock: the null-link answer must not block on it.
  EnterCriticalSection(&q.lock);
  HANDLE t = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, AskLooseElement, &q, 0, nullptr));
  ASSERT_NE(nullptr, t);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(t, 5000));
  LeaveCriticalSection(&q.lock);
  DWORD code = 0;
  GetExitCodeThread(t, &code);
  EXPECT_EQ(7u, code);
  CloseHandle(t);
}

// ---- threads ----

struct Blocked {
  tKYQHEAD *q;
  HANDLE started;
  tKYQELM *result;
  DWORD elapsed;
};

unsigned __stdcall BlockedRemove(void *p) {
  auto *b = static_cast<Blocked *>(p);
  SetEvent(b->started);
  b->elapsed = static_cast<DWORD>(Elapsed([b] { b->result = KyQueueRemove(b->q, 20000); }));
  return 0;
}

// A consumer blocked on an empty queue is released by an insertion (with the element) and
// by the queue's deletion (with nothing, long before its timeout).
TEST_F(QueueTest, BlockedConsumerReleasedByInsertOrDelete) {
  for (bool byDelete : {false, true}) {
    Blocked b{&q, CreateEventA(nullptr, TRUE, FALSE, nullptr), &items[3].link, 0};
    HANDLE t = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, BlockedRemove, &b, 0, nullptr));
    ASSERT_NE(nullptr, t);
    WaitForSingleObject(b.started, 5000);
    Sleep(300);  // lets the consumer reach its wait
    if (byDelete) {
      KyQueueDelete(&q);
    } else {
      KyQueueInsert(&q, &items[0].link);
    }
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(t, 15000));
    EXPECT_EQ(byDelete ? nullptr : &items[0].link, b.result);
    EXPECT_LT(b.elapsed, 10000u);
    CloseHandle(t);
    CloseHandle(b.started);
  }
}

// ---- several producers and several consumers ----
// Producers insert at both ends while consumers remove from both ends: every element must be
// taken exactly once, with its links nulled. Bounded in time: consumers give up at a deadline.

constexpr int kPerProducer = 2000;

struct Stress {
  tKYQHEAD *q;
  std::vector<Item> items;
  std::vector<LONG> taken;  // per element, then one slot for elements removed with links left
  ULONGLONG deadline;
  volatile LONG removed = 0;
};

struct Role {
  Stress *s;
  int producer;  // negative: a consumer, its parity choosing the end it starts with
};

unsigned __stdcall StressWork(void *arg) {
  Stress *s = static_cast<Role *>(arg)->s;
  const int producer = static_cast<Role *>(arg)->producer;
  const LONG total = static_cast<LONG>(s->items.size());
  for (int i = 0; producer >= 0 && i < kPerProducer; ++i) {
    Item &it = s->items[producer * kPerProducer + i];
    it.value = producer * kPerProducer + i;
    (i % 3 == 1 ? KyQueueInsertHead : KyQueueInsert)(s->q, &it.link);
    if (i % 64 == 0) Sleep(0);
  }
  for (int turn = producer; producer < 0 && s->removed < total && GetTickCount64() < s->deadline;) {
    tKYQELM *e = (turn++ & 1) ? KyQueueRemoveTail(s->q, 20) : KyQueueRemove(s->q, 20);
    if (!e) continue;
    if (e->next || e->prev) InterlockedIncrement(&s->taken[total]);
    InterlockedIncrement(&s->taken[AsItem(e)->value]);
    InterlockedIncrement(&s->removed);
  }
  return 0;
}

TEST_F(QueueTest, ManyProducersManyConsumersTakeEachElementOnce) {
  // Under the emulator only one extra thread may run: one producer there, and the main
  // thread consumes beside it.
  const int workers = kytest::WorkerThreads(6), producers = workers >= 6 ? 3 : 1;
  const LONG total = producers * kPerProducer;
  Stress s{&q, std::vector<Item>(total), std::vector<LONG>(total + 1, 0), GetTickCount64() + 30000};
  std::vector<Role> roles;
  for (int i = 0; i < workers; ++i) roles.push_back({&s, i < producers ? i : -1 - i});
  std::vector<HANDLE> threads;
  for (Role &r : roles) {
    threads.push_back(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, StressWork, &r, 0, nullptr)));
    ASSERT_NE(nullptr, threads.back());
  }
  Role mainConsumer{&s, -1};
  StressWork(&mainConsumer);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(static_cast<DWORD>(threads.size()),
                                                  threads.data(), TRUE, 30000));
  for (HANDLE t : threads) CloseHandle(t);
  EXPECT_EQ(total, s.removed);
  EXPECT_EQ(0, s.taken[total]) << "removed elements with links left";
  for (LONG i = 0; i < total; ++i) ASSERT_EQ(1, s.taken[i]) << "element " << i;
  EXPECT_EQ(nullptr, KyQueueRemove(&q, 0));
  EXPECT_FALSE(Signalled(q));
}

}  // namespace
