/* tellarok queues: thread-safe intrusive FIFO queues with a wake-up event.
 *
 * A queue is a ring of doubly linked elements through a sentinel head (tKYQHEAD). Every
 * queued client structure begins with a tKYQELM link; the queue never allocates or frees
 * an element. An element that is in no queue has both links null; every removal nulls them.
 * The head's manual-reset event is signalled while the queue is (or was just made)
 * non-empty, so one signal wakes every waiting consumer.
 *
 * Thread safety: every operation except KyQueueWait, the null-link shortcut of IsInKyQueue
 * and the event exchange of KyQueueDelete runs inside the head's critical section; waits
 * always happen outside it. Timeouts are in milliseconds as for WaitForSingleObject; 0 means
 * do not wait. A null head, element or match procedure, and a head that is not initialised
 * (event null: zero-filled, never initialised, or deleted), are refused: the call does
 * nothing and answers 0 or null. */
#ifndef TELLAROK_KY_QUEUE_H
#define TELLAROK_KY_QUEUE_H

#include "ky_base.h"

/* The link at the start of every queued structure. */
typedef struct tKYQELM {
  struct tKYQELM *next;  /* following element, or the head after the last */
  struct tKYQELM *prev;  /* preceding element, or the head before the first */
} tKYQELM;

/* The queue head; its first two fields have the layout of an element (sentinel). */
typedef struct tKYQHEAD {
  struct tKYQELM *next;  /* first element, or the head itself when empty */
  struct tKYQELM *prev;  /* last element, or the head itself when empty */
  CRITICAL_SECTION lock; /* guards the links */
  HANDLE event;          /* manual-reset; null before initialisation and after deletion */
} tKYQHEAD;

KY_CHECK_OFFSET(tKYQELM, next, 0);
KY_CHECK_OFFSET(tKYQELM, prev, sizeof(void *));
KY_CHECK_SIZE(tKYQELM, 2 * sizeof(void *));
KY_CHECK_OFFSET(tKYQHEAD, next, 0);
KY_CHECK_OFFSET(tKYQHEAD, prev, sizeof(void *));
KY_CHECK_OFFSET(tKYQHEAD, lock, 2 * sizeof(void *));
KY_CHECK_OFFSET(tKYQHEAD, event, 2 * sizeof(void *) + sizeof(CRITICAL_SECTION));
KY_CHECK_SIZE(tKYQHEAD, 3 * sizeof(void *) + sizeof(CRITICAL_SECTION));
#if !defined(_WIN64)
KY_CHECK_SIZE(CRITICAL_SECTION, 24);
KY_CHECK_OFFSET(tKYQHEAD, event, 32);
KY_CHECK_SIZE(tKYQHEAD, 36);
#endif

/* Match procedure of the searches: non-zero when `element` is the one wanted. It runs with
 * the queue's lock held and must not call into the same queue from another thread. */
typedef int (KYAPI *KYQMATCHPROC)(tKYQELM *element, DWORD param);

KY_BEGIN_DECLS

/* Makes `head` an empty queue. The first call creates the event (not signalled) and the
 * lock; on an initialised head it only empties the ring, keeping event and lock (elements
 * keep their stale links). Returns 1, or 0 with the head unchanged when the event cannot
 * be created. */
KY_IMPORT int KYAPI KyQueueInitialize(tKYQHEAD *head);

/* Deletes the queue: clears the event atomically, signals it so that every waiter wakes
 * (they return null), closes it, lets a running operation finish, empties the ring and
 * deletes the lock. Linked elements are forgotten, not unlinked. The head may be
 * initialised again afterwards. */
KY_IMPORT void KYAPI KyQueueDelete(tKYQHEAD *head);

/* Empties the queue without touching the elements (they keep stale links) and leaves the
 * event signalled, so every waiter wakes; waits return at once until a removal empties the
 * queue again. */
KY_IMPORT void KYAPI KyQueueFlush(tKYQHEAD *head);

/* Appends `element` at the tail; signals the event when the queue was empty. The element
 * must not be linked anywhere (not checked). */
KY_IMPORT void KYAPI KyQueueInsert(tKYQHEAD *head, tKYQELM *element);

/* Puts `element` at the front; signals the event when the queue was empty. */
KY_IMPORT void KYAPI KyQueueInsertHead(tKYQHEAD *head, tKYQELM *element);

/* Unlinks and returns the first element (links nulled), waiting up to `timeout` ms for one
 * when the queue is empty. Resets the event when the queue becomes empty. Null when the
 * queue stays empty or is deleted during the wait. */
KY_IMPORT tKYQELM *KYAPI KyQueueRemove(tKYQHEAD *head, DWORD timeout);

/* As KyQueueRemove, from the tail. */
KY_IMPORT tKYQELM *KYAPI KyQueueRemoveTail(tKYQHEAD *head, DWORD timeout);

/* Without locking: 1 when the queue is non-empty, else waits up to `timeout` ms on the
 * event and answers 1 when the queue is non-empty afterwards, else 0. */
KY_IMPORT int KYAPI KyQueueWait(tKYQHEAD *head, DWORD timeout);

/* Calls `match` on each element from the front under the lock; unlinks and returns the
 * first that matches (event reset when the queue becomes empty), or null. */
KY_IMPORT tKYQELM *KYAPI KyQueueFindAndRemove(tKYQHEAD *head, KYQMATCHPROC match, DWORD param);

/* As KyQueueFindAndRemove, searching from the back. */
KY_IMPORT tKYQELM *KYAPI KyQueueFindAndRemoveRev(tKYQHEAD *head, KYQMATCHPROC match,
                                                 DWORD param);

/* Moves `element` of this queue to the tail. 1 when moved; 0 when the queue is empty, the
 * element is already last, or it is not in this queue. The event is not touched. */
KY_IMPORT int KYAPI KyQueueMoveToTail(tKYQHEAD *head, tKYQELM *element);

/* Moves `element` of this queue to the front. 1 when moved; 0 when the queue is empty, the
 * element is already first, or it is not in this queue. The event is not touched. */
KY_IMPORT int KYAPI KyQueueMoveToHead(tKYQHEAD *head, tKYQELM *element);

KY_END_DECLS

/* 1 when `element` is linked in this queue, else 0. An element with a null link answers 0
 * without taking the lock; otherwise the queue is walked under the lock (cdecl).
 * Exported twice: C++ clients bind to its C++ decorated name, C clients to the plain name
 * "IsInKyQueue"; both are the same test. Declared after the C block on purpose: in C++ this
 * is the decorated C++ function, in C the plain one. */
KY_IMPORT int KYAPI_CDECL IsInKyQueue(tKYQHEAD *head, tKYQELM *element);

#endif
