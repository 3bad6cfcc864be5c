// Diagnostic dumps of memory, stacks and exceptions for the error details view. Memory is
// asked about (VirtualQuery) before it is read, so a dump of a bad address shows dots and
// never faults.
#include "error_internal.h"
#include "ky_text.h"
#include <string.h>

namespace ky {
namespace {

// True when every byte of [p, p + n) lies in committed memory that may be read.
bool Readable(const void *p, size_t n) {
  if (n == 0) return true;
  UINT_PTR a = reinterpret_cast<UINT_PTR>(p);
  UINT_PTR end = a + n;
  if (end < a) return false;
  while (a < end) {
    MEMORY_BASIC_INFORMATION mbi;
    if (!VirtualQuery(reinterpret_cast<void *>(a), &mbi, sizeof mbi)) return false;
    if (mbi.State != MEM_COMMIT) return false;
    DWORD prot = mbi.Protect;
    if (prot & (PAGE_GUARD | PAGE_NOACCESS)) return false;
    if (!(prot & (PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READ |
                  PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY)))
      return false;
    UINT_PTR regionEnd = reinterpret_cast<UINT_PTR>(mbi.BaseAddress) + mbi.RegionSize;
    if (regionEnd <= a) return false;
    a = regionEnd;
  }
  return true;
}

// Bounded appender over a caller's buffer; it always keeps the text terminated.
struct Text {
  char *buf;
  LONG size;
  LONG len = 0;
  Text(char *b, LONG s) : buf(b), size(s) { buf[0] = 0; }
  LONG Room() const { return size - len; }
  void Add(const char *format, ...) {
    if (len >= size - 1) return;
    va_list a;
    va_start(a, format);
    len += KyVPrintF(buf + len, size - len, format, a);
    va_end(a);
  }
  // Lets a nested dump write at the end; it answers the characters it wrote.
  char *End() { return buf + len; }
  void Advance(LONG n) { len += n; }
};

constexpr LONG kHexLineRoom = 50;
constexpr LONG kStackStartRoom = 56;
constexpr LONG kStackLineRoom = 58;
constexpr UINT_PTR kLowModuleLimit = 0x10000000;

const char *FileNamePart(const char *path) {
  const char *name = path;
  for (const char *p = path; *p; ++p)
    if (*p == '\\' || *p == '/' || *p == ':') name = p + 1;
  return name;
}

// Base of the allocation that holds p (null when none), and its module file name when the
// allocation is a loaded module.
void *AllocationOf(const void *p, char *module, DWORD moduleSize) {
  module[0] = 0;
  MEMORY_BASIC_INFORMATION mbi;
  if (!VirtualQuery(p, &mbi, sizeof mbi) || !mbi.AllocationBase) return nullptr;
  if (mbi.Type == MEM_IMAGE &&
      GetModuleFileNameA(static_cast<HMODULE>(mbi.AllocationBase), module, moduleSize) == 0)
    module[0] = 0;
  module[moduleSize - 1] = 0;
  return mbi.AllocationBase;
}

struct ExceptionName {
  DWORD code;
  const char *name;
};
const ExceptionName kExceptionNames[] = {
    {0x80000001, "guard page violation"},   {0x80000002, "datatype misalignment"},
    {0x80000003, "breakpoint"},             {0x80000004, "single step"},
    {0xC0000005, "access violation"},       {0xC0000006, "in page error"},
    {0xC0000008, "invalid handle"},         {0xC0000017, "no memory"},
    {0xC000001D, "illegal instruction"},    {0xC0000025, "noncontinuable exception"},
    {0xC0000026, "invalid disposition"},    {0xC000008C, "array bounds exceeded"},
    {0xC000008D, "float denormal operand"}, {0xC000008E, "float divide by zero"},
    {0xC000008F, "float inexact result"},   {0xC0000090, "float invalid operation"},
    {0xC0000091, "float overflow"},         {0xC0000092, "float stack check"},
    {0xC0000093, "float underflow"},        {0xC0000094, "integer divide by zero"},
    {0xC0000095, "integer overflow"},       {0xC0000096, "privileged instruction"},
    {0xC00000FD, "stack overflow"},         {0xC000013A, "control+c exit"},
};

const char *ExceptionNameOf(DWORD code) {
  for (const ExceptionName &e : kExceptionNames)
    if (e.code == code) return e.name;
  return "Unknown Type";
}

LONG DumpHex(char *buffer, LONG size, const BYTE *address, LONG count) {
  if (!buffer || size <= 0) return 0;
  Text t(buffer, size);
  if (count < 0) count = 0;
  LONG remaining = count;
  const BYTE *line = address;
  for (;;) {
    if (t.Room() < kHexLineRoom) break;
    LONG present = remaining < 8 ? remaining : 8;
    t.Add(" %08X: ", static_cast<unsigned>(reinterpret_cast<UINT_PTR>(line)));
    char chars[9];
    for (LONG i = 0; i < 8; ++i) {
      if (i >= present) {
        t.Add("   ");
        continue;
      }
      if (Readable(line + i, 1)) {
        BYTE b = line[i];
        t.Add("%02X ", b);
        chars[i] = b >= 32 && b <= 126 ? static_cast<char>(b) : '.';
      } else {
        t.Add(".. ");
        chars[i] = '.';
      }
    }
    chars[present] = 0;
    t.Add("%s\r\n", chars);
    if (remaining <= 8) break;
    remaining -= 8;
    line += 8;
  }
  return t.len;
}

LONG DumpHexDWords(char *buffer, LONG size, const DWORD *address, LONG count) {
  if (!buffer || size <= 0) return 0;
  Text t(buffer, size);
  const DWORD *line = address;
  LONG remaining = count;
  while (remaining > 0 && t.Room() >= kHexLineRoom) {
    t.Add(" %08X: ", static_cast<unsigned>(reinterpret_cast<UINT_PTR>(line)));
    LONG present = remaining < 4 ? remaining : 4;
    for (LONG i = 0; i < present; ++i) {
      if (Readable(line + i, sizeof(DWORD)))
        t.Add("%08X ", static_cast<unsigned>(line[i]));
      else
        t.Add("........ ");
    }
    t.Add("\r\n");
    remaining -= present;
    line += present;
  }
  return t.len;
}

LONG DumpStack(char *buffer, LONG size, const DWORD *address, LONG count, DWORD *flags,
               LONG *moduleCount) {
  if (flags) *flags = 0;
  if (moduleCount) *moduleCount = 0;
  if (!buffer || size <= 0) return 0;
  Text t(buffer, size);
  if (count < 1 || t.Room() < kStackStartRoom) return 0;
  for (LONG i = 0; i < count; ++i) {
    if (i > 0 && t.Room() < kStackLineRoom) break;
    const DWORD *word = address + i;
    t.Add(" %08X: ", static_cast<unsigned>(reinterpret_cast<UINT_PTR>(word)));
    if (!Readable(word, sizeof(DWORD))) {
      t.Add("........ ");
      if (flags) *flags |= KYDUMP_UNREADABLE;
    } else {
      DWORD value = *word;
      t.Add("%08X ", static_cast<unsigned>(value));
      char module[MAX_PATH];
      void *base = AllocationOf(reinterpret_cast<void *>(static_cast<UINT_PTR>(value)), module,
                                MAX_PATH);
      if (base) {
        UINT_PTR b = reinterpret_cast<UINT_PTR>(base);
        t.Add(" %08X + %X ", static_cast<unsigned>(b), static_cast<unsigned>(value - b));
        if (module[0]) {
          t.Add("(%s)", FileNamePart(module));
          if (b <= kLowModuleLimit) {
            if (flags) *flags |= KYDUMP_LOW_MODULE;
            if (moduleCount) ++*moduleCount;
          } else if (flags) {
            *flags |= KYDUMP_HIGH_MODULE;
          }
        }
      }
    }
    t.Add("\r\n");
  }
  return t.len;
}

// The calling thread's information block (its stack range), from FS:[0x18].
NT_TIB *CurrentTib() {
  NT_TIB *tib;
  asm("movl %%fs:0x18, %0" : "=r"(tib));
  return tib;
}

// Words dumped from the stack pointer, and how far beyond them the walk looks for further
// words that point into loaded modules (likely return addresses of outer frames).
constexpr LONG kStackDumpWords = 32;
constexpr LONG kStackWalkWords = 1024;
constexpr LONG kStackWalkLines = 24;

LONG DumpException(char *buffer, LONG size, const char *threadName, EXCEPTION_POINTERS *ep,
                   DWORD frame) {
  if (!buffer || size <= 0) return 0;
  Text t(buffer, size);
  if (!ep || !Readable(ep, sizeof *ep) || !ep->ExceptionRecord || !ep->ContextRecord ||
      !Readable(ep->ExceptionRecord, sizeof(EXCEPTION_RECORD)) ||
      !Readable(ep->ContextRecord, sizeof(CONTEXT)))
    return 0;
  const EXCEPTION_RECORD &er = *ep->ExceptionRecord;
  const CONTEXT &c = *ep->ContextRecord;
  const DWORD ip = c.Eip;

  char access[40] = "";
  if (er.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && er.NumberParameters >= 2)
    KyPrintF(access, sizeof access, " %s:0x%X", er.ExceptionInformation[0] == 1 ? "WRITE" : "READ",
             static_cast<unsigned>(er.ExceptionInformation[1]));
  t.Add("Exception 0x%X (%s)%s IP:0x%X\r\n", static_cast<unsigned>(er.ExceptionCode),
        ExceptionNameOf(er.ExceptionCode), access, static_cast<unsigned>(ip));

  char module[MAX_PATH];
  void *base = AllocationOf(reinterpret_cast<void *>(static_cast<UINT_PTR>(ip)), module, MAX_PATH);
  if (base && module[0])
    t.Add("In Module '%s' at Address 0x%X + 0x%X\r\n", FileNamePart(module),
          static_cast<unsigned>(reinterpret_cast<UINT_PTR>(base)),
          static_cast<unsigned>(ip - reinterpret_cast<UINT_PTR>(base)));

  NT_TIB *tib = CurrentTib();
  char stack[40];
  KyPrintF(stack, sizeof stack, "0x%X-0x%X",
           static_cast<unsigned>(reinterpret_cast<UINT_PTR>(tib->StackLimit)),
           static_cast<unsigned>(reinterpret_cast<UINT_PTR>(tib->StackBase)));
  t.Add("Thread: %s ID=0x%X Stack=%s\r\n", threadName ? threadName : "",
        static_cast<unsigned>(GetCurrentThreadId()), stack);

  t.Add("Registers:\r\n");
  t.Add(" EAX=%08x CS=%04x EIP=%08x EFLGS=%08x\r\n", static_cast<unsigned>(c.Eax),
        static_cast<unsigned>(c.SegCs), static_cast<unsigned>(c.Eip), static_cast<unsigned>(c.EFlags));
  t.Add(" EBX=%08x SS=%04x ESP=%08x EBP=%08x\r\n", static_cast<unsigned>(c.Ebx),
        static_cast<unsigned>(c.SegSs), static_cast<unsigned>(c.Esp), static_cast<unsigned>(c.Ebp));
  t.Add(" ECX=%08x DS=%04x ESI=%08x FS=%04x\r\n", static_cast<unsigned>(c.Ecx),
        static_cast<unsigned>(c.SegDs), static_cast<unsigned>(c.Esi), static_cast<unsigned>(c.SegFs));
  t.Add(" EDX=%08x ES=%04x EDI=%08x GS=%04x\r\n", static_cast<unsigned>(c.Edx),
        static_cast<unsigned>(c.SegEs), static_cast<unsigned>(c.Edi), static_cast<unsigned>(c.SegGs));

  t.Add("Bytes at CS:EIP:\r\n");
  t.Advance(DumpHex(t.End(), t.Room(), reinterpret_cast<const BYTE *>(static_cast<UINT_PTR>(ip)), 16));

  t.Add("Stack Dump:\r\n");
  const DWORD *sp = reinterpret_cast<const DWORD *>(static_cast<UINT_PTR>(c.Esp));
  t.Advance(DumpStack(t.End(), t.Room(), sp, kStackDumpWords, nullptr, nullptr));

  // Further up the stack only the words that point into loaded modules are shown, one line
  // each: they are the likely return addresses of the outer frames.
  char line[MAX_PATH + 80];
  LONG shown = 0;
  for (LONG i = kStackDumpWords; i < kStackWalkWords && shown < kStackWalkLines; ++i) {
    const DWORD *word = sp + i;
    if (reinterpret_cast<UINT_PTR>(word) + sizeof(DWORD) >
        reinterpret_cast<UINT_PTR>(tib->StackBase))
      break;
    DWORD flags = 0;
    DumpStack(line, sizeof line, word, 1, &flags, nullptr);
    if (flags & KYDUMP_UNREADABLE) break;
    if (!(flags & (KYDUMP_LOW_MODULE | KYDUMP_HIGH_MODULE))) continue;
    if (t.Room() < kStackLineRoom) break;
    t.Advance(CopyText(t.End(), t.Room(), line));
    ++shown;
  }

  t.Add("- - -\r\n");
  const DWORD *last = reinterpret_cast<const DWORD *>(
      static_cast<UINT_PTR>(frame ? frame : c.Ebp));
  t.Advance(DumpStack(t.End(), t.Room(), last, 4, nullptr, nullptr));
  return t.len;
}

} // namespace
} // namespace ky

using namespace ky;

extern "C" LONG WINAPI KyErrorHandler_DumpHex(char *buffer, LONG size, const void *address,
                                             LONG count) {
  return Guard<LONG>(0, [&] { return DumpHex(buffer, size, static_cast<const BYTE *>(address), count); });
}

extern "C" LONG WINAPI KyErrorHandler_DumpHexDWords(char *buffer, LONG size, const void *address,
                                                   LONG count) {
  return Guard<LONG>(0, [&] {
    return DumpHexDWords(buffer, size, static_cast<const DWORD *>(address), count);
  });
}

extern "C" LONG WINAPI KyErrorHandler_DumpStack(char *buffer, LONG size, const void *address,
                                               LONG count, DWORD *flags, LONG *moduleCount) {
  return Guard<LONG>(0, [&] {
    return DumpStack(buffer, size, static_cast<const DWORD *>(address), count, flags, moduleCount);
  });
}

extern "C" LONG WINAPI KyErrorHandler_DumpExceptionRecord(char *buffer, LONG size,
                                                         const char *threadName,
                                                         EXCEPTION_POINTERS *exception,
                                                         DWORD frame) {
  return Guard<LONG>(0, [&] { return DumpException(buffer, size, threadName, exception, frame); });
}
