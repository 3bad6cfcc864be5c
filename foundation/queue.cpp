// Intrusive FIFO queues: a ring of client elements through a sentinel head, guarded by the
// head's critical section, with a manual-reset event that wakes every waiting consumer.
// A null head, element or match procedure, and a head that is not initialised (or deleted),
// are refused (0 or null, nothing touched) rather than dereferenced.
#include "ky_internal.h"
#include "ky_queue.h"

namespace {

// The head seen as an element of its own ring. Every link access goes through tKYQELM so
// that the head's links and the elements' links are always the same type of object.
inline tKYQELM *Sentinel(tKYQHEAD *head) { return reinterpret_cast<tKYQELM *>(head); }

// A head whose event is null was never initialised or has been deleted: its lock is not
// usable (entering it could fault or block for ever), so operations refuse it.
inline bool Ready(tKYQHEAD *head) {
  return head && *static_cast<HANDLE volatile *>(&head->event) != nullptr;
}

inline bool IsEmpty(tKYQHEAD *head) {
  tKYQELM *s = Sentinel(head);
  return *static_cast<tKYQELM *volatile *>(&s->next) == s;
}

// Holds the head's lock for a scope, released even if a match procedure throws.
class Locked {
 public:
  explicit Locked(tKYQHEAD *head) : lock_(&head->lock) { EnterCriticalSection(lock_); }
  ~Locked() { LeaveCriticalSection(lock_); }
  Locked(const Locked &) = delete;
  Locked &operator=(const Locked &) = delete;

 private:
  CRITICAL_SECTION *lock_;
};

inline void MakeEmpty(tKYQHEAD *head) {
  tKYQELM *s = Sentinel(head);
  s->next = s;
  s->prev = s;
}

// Links `e` between `before` and `after` (neighbours in the ring).
inline void LinkBetween(tKYQELM *e, tKYQELM *before, tKYQELM *after) {
  e->prev = before;
  e->next = after;
  before->next = e;
  after->prev = e;
}

inline void Unlink(tKYQELM *e) {
  e->prev->next = e->next;
  e->next->prev = e->prev;
  e->next = nullptr;
  e->prev = nullptr;
}

// Unlinks `e` from the queue under its lock (held by the caller) and resets the event when
// the queue has become empty.
inline tKYQELM *TakeOut(tKYQHEAD *head, tKYQELM *e) {
  Unlink(e);
  if (IsEmpty(head) && head->event) ResetEvent(head->event);
  return e;
}

// Removal from the front or the back, waiting once outside the lock for the queue to fill.
tKYQELM *RemoveEnd(tKYQHEAD *head, DWORD timeout, bool fromTail) {
  if (!Ready(head)) return nullptr;
  EnterCriticalSection(&head->lock);
  if (IsEmpty(head) && timeout != 0) {
    HANDLE event = head->event;
    if (event) {
      LeaveCriticalSection(&head->lock);
      WaitForSingleObject(event, timeout);
      // Deleted while waiting: the lock may be gone, so do not touch it.
      if (*static_cast<HANDLE volatile *>(&head->event) == nullptr) return nullptr;
      EnterCriticalSection(&head->lock);
    }
  }
  tKYQELM *found = nullptr;
  if (!IsEmpty(head)) {
    tKYQELM *s = Sentinel(head);
    found = TakeOut(head, fromTail ? s->prev : s->next);
  }
  LeaveCriticalSection(&head->lock);
  return found;
}

tKYQELM *FindAndRemove(tKYQHEAD *head, KYQMATCHPROC match, DWORD param, bool backward) {
  if (!Ready(head) || !match) return nullptr;
  Locked hold(head);
  tKYQELM *s = Sentinel(head);
  for (tKYQELM *e = backward ? s->prev : s->next; e != s; e = backward ? e->prev : e->next) {
    if (match(e, param)) return TakeOut(head, e);
  }
  return nullptr;
}

// Moves `element` to the tail (toTail) or the front after checking it belongs to the
// queue: the walk starts at the destination end and fails when it comes back to the head.
int MoveToEnd(tKYQHEAD *head, tKYQELM *element, bool toTail) {
  if (!Ready(head) || !element) return 0;
  Locked hold(head);
  tKYQELM *s = Sentinel(head);
  tKYQELM *end = toTail ? s->prev : s->next;
  if (end == s || end == element) return 0;
  tKYQELM *e = end;
  while (e != s && e != element) e = toTail ? e->prev : e->next;
  if (e == s) return 0;
  Unlink(element);
  if (toTail) {
    LinkBetween(element, s->prev, s);
  } else {
    LinkBetween(element, s, s->next);
  }
  return 1;
}

}  // namespace

extern "C" int WINAPI KyQueueInitialize(tKYQHEAD *head) {
  return ky::Guard(0, [&] {
    if (!head) return 0;
    if (!head->event) {
      HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
      if (!event) return 0;
      head->event = event;
      InitializeCriticalSection(&head->lock);
    }
    MakeEmpty(head);
    return 1;
  });
}

extern "C" void WINAPI KyQueueDelete(tKYQHEAD *head) {
  ky::Guard(0, [&] {
    if (!head) return 0;
    auto event = reinterpret_cast<HANDLE>(
        InterlockedExchange(reinterpret_cast<LONG volatile *>(&head->event), 0));
    if (!event) return 0;
    SetEvent(event);
    CloseHandle(event);
    // Lets an operation that holds the lock finish before the lock goes away.
    EnterCriticalSection(&head->lock);
    LeaveCriticalSection(&head->lock);
    MakeEmpty(head);
    DeleteCriticalSection(&head->lock);
    return 0;
  });
}

extern "C" void WINAPI KyQueueFlush(tKYQHEAD *head) {
  ky::Guard(0, [&] {
    if (!Ready(head)) return 0;
    Locked hold(head);
    MakeEmpty(head);
    // Left signalled on purpose: every waiter wakes and finds the queue empty.
    if (head->event) SetEvent(head->event);
    return 0;
  });
}

extern "C" void WINAPI KyQueueInsert(tKYQHEAD *head, tKYQELM *element) {
  ky::Guard(0, [&] {
    if (!Ready(head) || !element) return 0;
    Locked hold(head);
    tKYQELM *s = Sentinel(head);
    LinkBetween(element, s->prev, s);
    if (s->next == element && head->event) SetEvent(head->event);
    return 0;
  });
}

extern "C" void WINAPI KyQueueInsertHead(tKYQHEAD *head, tKYQELM *element) {
  ky::Guard(0, [&] {
    if (!Ready(head) || !element) return 0;
    Locked hold(head);
    tKYQELM *s = Sentinel(head);
    LinkBetween(element, s, s->next);
    if (s->prev == element && head->event) SetEvent(head->event);
    return 0;
  });
}

extern "C" tKYQELM *WINAPI KyQueueRemove(tKYQHEAD *head, DWORD timeout) {
  return ky::Guard<tKYQELM *>(nullptr, [&] { return RemoveEnd(head, timeout, false); });
}

extern "C" tKYQELM *WINAPI KyQueueRemoveTail(tKYQHEAD *head, DWORD timeout) {
  return ky::Guard<tKYQELM *>(nullptr, [&] { return RemoveEnd(head, timeout, true); });
}

extern "C" int WINAPI KyQueueWait(tKYQHEAD *head, DWORD timeout) {
  return ky::Guard(0, [&] {
    if (!Ready(head)) return 0;
    if (!IsEmpty(head)) return 1;
    HANDLE event = head->event;
    if (timeout == 0 || !event) return 0;
    WaitForSingleObject(event, timeout);
    return IsEmpty(head) ? 0 : 1;
  });
}

extern "C" tKYQELM *WINAPI KyQueueFindAndRemove(tKYQHEAD *head, KYQMATCHPROC match,
                                                DWORD param) {
  return ky::Guard<tKYQELM *>(nullptr, [&] { return FindAndRemove(head, match, param, false); });
}

extern "C" tKYQELM *WINAPI KyQueueFindAndRemoveRev(tKYQHEAD *head, KYQMATCHPROC match,
                                                   DWORD param) {
  return ky::Guard<tKYQELM *>(nullptr, [&] { return FindAndRemove(head, match, param, true); });
}

extern "C" int WINAPI KyQueueMoveToTail(tKYQHEAD *head, tKYQELM *element) {
  return ky::Guard(0, [&] { return MoveToEnd(head, element, true); });
}

extern "C" int WINAPI KyQueueMoveToHead(tKYQHEAD *head, tKYQELM *element) {
  return ky::Guard(0, [&] { return MoveToEnd(head, element, false); });
}

int __cdecl IsInKyQueue(tKYQHEAD *head, tKYQELM *element) {
  return ky::Guard(0, [&] {
    if (!Ready(head) || !element || !element->next || !element->prev) return 0;
    Locked hold(head);
    tKYQELM *s = Sentinel(head);
    for (tKYQELM *e = s->next; e != s; e = e->next) {
      if (e == element) return 1;
    }
    return 0;
  });
}

// The same test under a plain name for C clients (the C++ one above keeps its decorated
// export): the assembler label gives it the cdecl symbol of a C function "IsInKyQueue".
extern "C" int __cdecl IsInKyQueuePlain(tKYQHEAD *head, tKYQELM *element) __asm__("_IsInKyQueue");
extern "C" int __cdecl IsInKyQueuePlain(tKYQHEAD *head, tKYQELM *element) {
  return IsInKyQueue(head, element);
}
