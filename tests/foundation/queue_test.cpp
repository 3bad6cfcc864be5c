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

// ---- KyQueueInitialize / KyQueueDelete ----

TEST_F(QueueTest, InitializeGivesEmptyRingAndUnsignalledEvent) {
  EXPECT_EQ(Head(), q.next);
  EXPECT_EQ(Head(), q.prev);
  ASSERT_NE(nullptr, q.event);
  EXPECT_FALSE(Signalled(q));
}

TEST_F(QueueTest, ReinitializeOnlyEmptiesAndKeepsEvent) {
  InsertAll();
  HANDLE event = q.event;
  ASSERT_EQ(1, KyQueueInitialize(&q));
  EXPECT_EQ(event, q.event);
  EXPECT_EQ(Head(), q.next);
  EXPECT_EQ(nullptr, KyQueueRemove(&q, 0));
}

TEST_F(QueueTest, DeleteClearsEventAndAllowsReinitialize) {
  KyQueueDelete(&q);
  EXPECT_EQ(nullptr, q.event);
  KyQueueDelete(&q);  // a second deletion finds no event and does nothing
  ASSERT_EQ(1, KyQueueInitialize(&q));
  EXPECT_NE(nullptr, q.event);
}

// ---- KyQueueInsert / KyQueueInsertHead / KyQueueRemove / KyQueueRemoveTail ----

struct OrderCase {
  bool insertAtHead;
  bool removeFromTail;
  std::vector<int> expected;
};

TEST_F(QueueTest, OrderFromBothEnds) {
  const OrderCase cases[] = {
      {false, false, {1, 2, 3, 4}},
      {true, true, {1, 2, 3, 4}},
      {false, true, {4, 3, 2, 1}},
      {true, false, {4, 3, 2, 1}},
  };
  for (const OrderCase &c : cases) {
    for (Item &it : items) {
      if (c.insertAtHead) {
        KyQueueInsertHead(&q, &it.link);
      } else {
        KyQueueInsert(&q, &it.link);
      }
    }
    EXPECT_EQ(c.expected, Drain(c.removeFromTail)) << c.insertAtHead << c.removeFromTail;
  }
}

TEST_F(QueueTest, RemovalNullsLinks) {
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
}

TEST_F(QueueTest, TimeoutZeroNeverWaitsEvenWhenSignalled) {
  KyQueueFlush(&q);
  ASSERT_TRUE(Signalled(q));
  EXPECT_EQ(nullptr, KyQueueRemove(&q, 0));
  EXPECT_EQ(nullptr, KyQueueRemoveTail(&q, 0));
}

TEST_F(QueueTest, TimedRemoveOfEmptyQueueWaitsThenGivesNull) {
  ULONGLONG start = GetTickCount64();
  EXPECT_EQ(nullptr, KyQueueRemove(&q, 100));
  EXPECT_GE(GetTickCount64() - start, 80u);
}

// ---- KyQueueFlush ----

TEST_F(QueueTest, FlushEmptiesAndLeavesEventSignalled) {
  InsertAll();
  KyQueueFlush(&q);
  EXPECT_EQ(Head(), q.next);
  EXPECT_EQ(Head(), q.prev);
  EXPECT_TRUE(Signalled(q));
  EXPECT_NE(nullptr, items[0].link.next) << "flushed elements keep stale links";
  ULONGLONG start = GetTickCount64();
  EXPECT_EQ(nullptr, KyQueueRemove(&q, 5000));
  EXPECT_EQ(nullptr, KyQueueRemoveTail(&q, 5000));
  EXPECT_EQ(0, KyQueueWait(&q, 5000));
  EXPECT_LT(GetTickCount64() - start, 2000u);
}

TEST_F(QueueTest, RemovalThatEmptiesResetsEventAfterFlush) {
  KyQueueFlush(&q);
  KyQueueInsert(&q, &items[0].link);
  ASSERT_NE(nullptr, KyQueueRemove(&q, 0));
  EXPECT_FALSE(Signalled(q));
}

// ---- KyQueueWait ----

TEST_F(QueueTest, WaitAnswersNonEmptiness) {
  EXPECT_EQ(0, KyQueueWait(&q, 0));
  ULONGLONG start = GetTickCount64();
  EXPECT_EQ(0, KyQueueWait(&q, 100));
  EXPECT_GE(GetTickCount64() - start, 80u);
  KyQueueInsert(&q, &items[0].link);
  EXPECT_EQ(1, KyQueueWait(&q, 0));
  EXPECT_EQ(&items[0].link, q.next) << "waiting removes nothing";
}

// ---- KyQueueFindAndRemove / KyQueueFindAndRemoveRev ----

int WINAPI MatchValue(tKYQELM *e, DWORD param) { return AsItem(e)->value == static_cast<int>(param); }

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

TEST_F(QueueTest, FindAndRemoveOfLastElementResetsEvent) {
  KyQueueInsert(&q, &items[0].link);
  EXPECT_EQ(&items[0].link, KyQueueFindAndRemoveRev(&q, MatchValue, 1));
  EXPECT_FALSE(Signalled(q));
  EXPECT_EQ(nullptr, KyQueueFindAndRemove(&q, MatchValue, 1));
}

// ---- KyQueueMoveToTail / KyQueueMoveToHead ----

TEST_F(QueueTest, MoveToTail) {
  Item stranger{{nullptr, nullptr}, 9};
  EXPECT_EQ(0, KyQueueMoveToTail(&q, &items[0].link)) << "empty queue";
  InsertAll();
  EXPECT_EQ(0, KyQueueMoveToTail(&q, &items[3].link)) << "already last";
  tKYQHEAD other;
  ZeroMemory(&other, sizeof other);
  ASSERT_EQ(1, KyQueueInitialize(&other));
  KyQueueInsert(&other, &stranger.link);
  EXPECT_EQ(0, KyQueueMoveToTail(&q, &stranger.link)) << "element of another queue";
  EXPECT_EQ(1, KyQueueMoveToTail(&q, &items[1].link));
  EXPECT_TRUE(Signalled(q));
  EXPECT_EQ((std::vector<int>{1, 3, 4, 2}), Drain(false));
  KyQueueDelete(&other);
}

TEST_F(QueueTest, MoveToHead) {
  EXPECT_EQ(0, KyQueueMoveToHead(&q, &items[0].link)) << "empty queue";
  InsertAll();
  EXPECT_EQ(0, KyQueueMoveToHead(&q, &items[0].link)) << "already first";
  Item stranger{{nullptr, nullptr}, 9};
  EXPECT_EQ(0, KyQueueMoveToHead(&q, &stranger.link));
  EXPECT_EQ(1, KyQueueMoveToHead(&q, &items[3].link));
  EXPECT_EQ(1, KyQueueMoveToHead(&q, &items[2].link));
  EXPECT_EQ((std::vector<int>{3, 4, 1, 2}), Drain(false));
}

// ---- null arguments ----

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
  tKYQHEAD zeroed, deleted;
  ZeroMemory(&zeroed, sizeof zeroed);
  ZeroMemory(&deleted, sizeof deleted);
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

// ---- IsInKyQueue ----

TEST_F(QueueTest, IsInKyQueueFollowsLinks) {
  InsertAll();
  EXPECT_EQ(1, IsInKyQueue(&q, &items[0].link));
  EXPECT_EQ(1, IsInKyQueue(&q, &items[3].link));
  tKYQELM *removed = KyQueueRemove(&q, 0);
  EXPECT_EQ(0, IsInKyQueue(&q, removed));
  KyQueueFlush(&q);
  EXPECT_EQ(0, IsInKyQueue(&q, &items[1].link)) << "stale links after a flush";
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
  ULONGLONG start = GetTickCount64();
  b->result = KyQueueRemove(b->q, 20000);
  b->elapsed = static_cast<DWORD>(GetTickCount64() - start);
  return 0;
}

TEST_F(QueueTest, BlockedConsumerReleasedByInsert) {
  Blocked b{&q, CreateEventA(nullptr, TRUE, FALSE, nullptr), &items[3].link, 0};
  HANDLE t = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, BlockedRemove, &b, 0, nullptr));
  ASSERT_NE(nullptr, t);
  WaitForSingleObject(b.started, 5000);
  Sleep(200);
  KyQueueInsert(&q, &items[0].link);
  ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(t, 15000));
  EXPECT_EQ(&items[0].link, b.result);
  CloseHandle(t);
  CloseHandle(b.started);
}

TEST_F(QueueTest, BlockedConsumerReleasedByDeleteGivesNull) {
  Blocked b{&q, CreateEventA(nullptr, TRUE, FALSE, nullptr), &items[3].link, 0};
  HANDLE t = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, BlockedRemove, &b, 0, nullptr));
  ASSERT_NE(nullptr, t);
  WaitForSingleObject(b.started, 5000);
  Sleep(300);  // lets the consumer reach its wait
  KyQueueDelete(&q);
  ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(t, 15000));
  EXPECT_EQ(nullptr, b.result);
  EXPECT_LT(b.elapsed, 10000u);
  CloseHandle(t);
  CloseHandle(b.started);
}

// Several producer threads, or one where the emulator in use allows only one extra thread.
constexpr int kPerProducer = 50;

struct Production {
  tKYQHEAD *q;
  std::vector<Item> items;
};

struct ProducerArg {
  Production *p;
  int index;
};

unsigned __stdcall Produce(void *arg) {
  auto *a = static_cast<ProducerArg *>(arg);
  for (int i = 0; i < kPerProducer; ++i) {
    Item &it = a->p->items[a->index * kPerProducer + i];
    it.value = a->index * kPerProducer + i;
    KyQueueInsert(a->p->q, &it.link);
  }
  return 0;
}

TEST_F(QueueTest, ProducersAndConsumerLoseNothing) {
  const int kProducers = kytest::WorkerThreads(3);
  auto *p = new Production();
  p->q = &q;
  p->items.resize(kProducers * kPerProducer);
  std::vector<ProducerArg> args(kProducers);
  std::vector<HANDLE> threads(kProducers);
  for (int i = 0; i < kProducers; ++i) {
    args[i] = {p, i};
    threads[i] = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, Produce, &args[i], 0, nullptr));
    ASSERT_NE(nullptr, threads[i]);
  }
  std::vector<int> seen(kProducers * kPerProducer, 0);
  std::vector<int> last(kProducers, -1);
  int received = 0;
  ULONGLONG start = GetTickCount64();
  while (received < kProducers * kPerProducer && GetTickCount64() - start < 60000) {
    tKYQELM *e = KyQueueRemove(&q, 1000);
    if (!e) continue;
    EXPECT_EQ(nullptr, e->next);
    int v = AsItem(e)->value;
    ++seen[v];
    int producer = v / kPerProducer;
    EXPECT_GT(v, last[producer]) << "each producer's elements arrive in order";
    last[producer] = v;
    ++received;
  }
  EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(kProducers, threads.data(), TRUE, 15000));
  for (HANDLE t : threads) CloseHandle(t);
  EXPECT_EQ(kProducers * kPerProducer, received);
  for (int count : seen) EXPECT_EQ(1, count);
  EXPECT_EQ(nullptr, KyQueueRemove(&q, 0));
  EXPECT_FALSE(Signalled(q));
  delete p;
}


// ---- IsInKyQueue under both export names ----

TEST_F(QueueTest, IsInKyQueuePlainExportForCClients) {
  HMODULE dll = GetModuleHandleA("tellarok.dll");
  FARPROC plain = GetProcAddress(dll, "IsInKyQueue");
  FARPROC decorated = GetProcAddress(dll, "_Z11IsInKyQueueP8tKYQHEADP7tKYQELM");
  ASSERT_NE(nullptr, plain);
  ASSERT_NE(nullptr, decorated);
  KyQueueInsert(&q, &items[0].link);
  Item loose{{nullptr, nullptr}, 0};
  EXPECT_EQ(1, QueueIsInFromC(&q, &items[0].link));
  EXPECT_EQ(0, QueueIsInFromC(&q, &loose.link));
  tKYQHEAD other;
  ZeroMemory(&other, sizeof other);
  ASSERT_EQ(1, KyQueueInitialize(&other));
  KyQueueInsert(&other, &items[1].link);
  EXPECT_EQ(0, QueueIsInFromC(&q, &items[1].link)) << "linked in another queue";
  KyQueueDelete(&other);
}

// ---- several producers and several consumers ----
// Producers insert at both ends, consumers remove from both ends; every element must be
// taken exactly once. Bounded in time: consumers give up at a deadline.

constexpr int kStressPerProducer = 2000;

struct Stress {
  tKYQHEAD *q;
  std::vector<Item> items;
  std::vector<LONG> taken;
  volatile LONG removed = 0;
  LONG total = 0;
  ULONGLONG deadline = 0;
};

struct StressArg {
  Stress *s;
  int index;
};

unsigned __stdcall StressProduce(void *arg) {
  auto *a = static_cast<StressArg *>(arg);
  for (int i = 0; i < kStressPerProducer; ++i) {
    Item &it = a->s->items[a->index * kStressPerProducer + i];
    it.value = a->index * kStressPerProducer + i;
    if (i % 3 == 1) {
      KyQueueInsertHead(a->s->q, &it.link);
    } else {
      KyQueueInsert(a->s->q, &it.link);
    }
    if (i % 64 == 0) Sleep(0);
  }
  return 0;
}

unsigned __stdcall StressConsume(void *arg) {
  auto *a = static_cast<StressArg *>(arg);
  Stress *s = a->s;
  int turn = a->index;
  while (s->removed < s->total && GetTickCount64() < s->deadline) {
    tKYQELM *e = (turn++ & 1) ? KyQueueRemoveTail(s->q, 20) : KyQueueRemove(s->q, 20);
    if (!e) continue;
    if (e->next || e->prev) InterlockedIncrement(&s->taken[0]);  // links must be nulled
    InterlockedIncrement(&s->taken[1 + AsItem(e)->value]);
    InterlockedIncrement(&s->removed);
  }
  return 0;
}

TEST_F(QueueTest, ManyProducersManyConsumersTakeEachElementOnce) {
  // Under the emulator only one extra thread may run: one producer there, and the main
  // thread consumes beside it.
  const int workers = kytest::WorkerThreads(6);
  const int producers = workers >= 6 ? 3 : 1;
  const int consumers = workers - producers;
  Stress s;
  s.q = &q;
  s.total = producers * kStressPerProducer;
  s.items.resize(static_cast<size_t>(s.total));
  s.taken.assign(static_cast<size_t>(s.total) + 1, 0);
  s.deadline = GetTickCount64() + 30000;
  std::vector<StressArg> args(static_cast<size_t>(workers));
  std::vector<HANDLE> threads;
  for (int i = 0; i < workers; ++i) {
    args[i] = {&s, i < producers ? i : i - producers};
    HANDLE t = reinterpret_cast<HANDLE>(_beginthreadex(
        nullptr, 0, i < producers ? StressProduce : StressConsume, &args[i], 0, nullptr));
    ASSERT_NE(nullptr, t);
    threads.push_back(t);
  }
  StressArg mainConsumer{&s, 1};
  StressConsume(&mainConsumer);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(static_cast<DWORD>(threads.size()),
                                                  threads.data(), TRUE, 30000));
  for (HANDLE t : threads) CloseHandle(t);
  EXPECT_EQ(s.total, s.removed) << consumers << " consumer threads and the main thread";
  EXPECT_EQ(0, s.taken[0]) << "removed elements with links left";
  for (LONG i = 0; i < s.total; ++i) ASSERT_EQ(1, s.taken[1 + static_cast<size_t>(i)]) << "element " << i;
  EXPECT_EQ(nullptr, KyQueueRemove(&q, 0));
  EXPECT_FALSE(Signalled(q));
}

}  // namespace
