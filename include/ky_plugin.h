/* tellarok effect plug-in discovery.
 *
 * The host finds the DirectShow effect filters installed on the machine and keeps what it
 * found in a registry cache (HKEY_LOCAL_MACHINE "Software\Orvanel\DXCache") that is trusted
 * while the fingerprints of the filter registrations are unchanged. Building the list from
 * scratch creates foreign COM objects, so it normally runs in a separate scan process started
 * through RunDLL32.exe (KyPlugIn_Grovel) and the caller waits for it with a time limit.
 *
 * None of these calls is guarded against concurrent use inside one process: callers
 * serialise list building. */
#ifndef TELLAROK_KY_PLUGIN_H
#define TELLAROK_KY_PLUGIN_H

#include "ky_base.h"

KY_BEGIN_DECLS

/* Plug-in kinds. */
#define KYPLUGIN_TYPE_DXFILTER 4 /* DirectShow audio/effect filter, the only kind found here */

/* Node flags. Bits 0 and 1 are both set on every entry that is kept. */
#define KYPLUGIN_F_VALID0 0x00000001u
#define KYPLUGIN_F_VALID1 0x00000002u
#define KYPLUGIN_F_VALID 0x00000003u
#define KYPLUGIN_F_EXTENSION 0x00000004u /* offers the extension interface (KYPLUGIN_IID_EXT) */
#define KYPLUGIN_F_IGNORED 0x80000000u   /* hidden by the user or by the built-in deny list */

/* List flags of KyPlugIn_CreateList, KyPlugIn_Ignore and KyPlugIn_Rename. */
#define KYPLUGIN_LIST_MAPPER 1    /* include the filter mapper's filters; check the category fingerprint */
#define KYPLUGIN_LIST_REBUILD 2   /* rebuild even when the cache is valid */
#define KYPLUGIN_LIST_NOCACHE 4   /* neither read nor trust the cache (rebuilds in this process) */
#define KYPLUGIN_LIST_INPROCESS 8 /* never start the scan process: rebuild in this process */

/* One plug-in: a calloc block, singly linked. 96 bytes. */
typedef struct KYPLUGINNODE {
  struct KYPLUGINNODE *next; /* next node, null at the end */
  DWORD type;                /* KYPLUGIN_TYPE_DXFILTER */
  DWORD index;               /* position in the sorted list, 0-based; ignored entries are
                                numbered too before they leave the list, so a returned list
                                may skip numbers (deliberate: the full sorted list is numbered) */
  DWORD flags;               /* KYPLUGIN_F_* */
  GUID clsid;                /* the filter's class id: the key by which nodes are found */
  char name[64];             /* display name, NUL-terminated, at most 63 characters */
} KYPLUGINNODE;
KY_CHECK_SIZE(KYPLUGINNODE, 96);
KY_CHECK_OFFSET(KYPLUGINNODE, type, 4);
KY_CHECK_OFFSET(KYPLUGINNODE, index, 8);
KY_CHECK_OFFSET(KYPLUGINNODE, flags, 12);
KY_CHECK_OFFSET(KYPLUGINNODE, clsid, 16);
KY_CHECK_OFFSET(KYPLUGINNODE, name, 32);

/* The list of installed effect plug-ins, sorted by name (case-insensitive) and numbered
 * 0, 1, 2, ... Answers from the registry cache when it is valid; otherwise rebuilds it, in
 * the scan process when `listFlags` has KYPLUGIN_LIST_MAPPER without KYPLUGIN_LIST_INPROCESS
 * and KYPLUGIN_LIST_NOCACHE (waiting at most four minutes), else in this process, and rewrites
 * the cache. A scan process that crashes or hangs leaves the caller with the entries of the
 * old cache, which is then rewritten as valid so that the broken filter is not scanned again
 * until the registrations change. Ignored
 * plug-ins stay in the cache but are never returned. `resourceModule` (may be 0) is the
 * caller's resource module, made the current resource source while a rebuild runs and passed
 * on to the scan process. *outCount (may be null) receives the number of nodes. Returns the
 * head (null when empty); the caller owns the list and frees it with KyPlugIn_FreeList. */
KY_FUNC(KYPLUGINNODE *) KyPlugIn_CreateList(DWORD *outCount, DWORD listFlags, HINSTANCE resourceModule);
/* Frees every node of the list in order; null is accepted. */
KY_FUNC(void) KyPlugIn_FreeList(KYPLUGINNODE *head);
/* The first node whose class id equals *clsid (all 16 bytes), or null (also for null args). */
KY_FUNC(KYPLUGINNODE *) KyPlugIn_FindNode(KYPLUGINNODE *head, const GUID *clsid);
/* Sets (ignore = 1) or clears (0; only the lowest bit counts) the user's ignore mark of a
 * plug-in and rewrites the cache from the list built with `listFlags`. S_OK; E_FAIL when no
 * list could be built or the cache write fails; E_INVALIDARG when the plug-in is not in the
 * list - which is always the case for an ignored one, so un-ignoring answers E_INVALIDARG.
 * The rewrite drops entries that were ignored before: they come back, unignored, at the
 * next rebuild unless the deny list names them. Both quirks are deliberate. */
KY_FUNC(HRESULT) KyPlugIn_Ignore(DWORD listFlags, const GUID *clsid, DWORD ignore);
/* Renames a plug-in (the new name cut to 63 characters) and rewrites the cache as
 * KyPlugIn_Ignore does, with the same status codes; E_POINTER for a null name. */
KY_FUNC(HRESULT) KyPlugIn_Rename(DWORD listFlags, const GUID *clsid, const char *name);
/* Entry point of the scan process, run by RunDLL32.exe as "_KyPlugIn_Grovel@16": the command
 * line is the resource module handle in decimal and the name of the event to signal. Rebuilds
 * the cache with list flags 11 (mapper, forced, in this process), signals the event, returns 0. */
KY_FUNC(LONG) KyPlugIn_Grovel(HWND window, HINSTANCE instance, LPSTR commandLine, int show);

KY_END_DECLS

#endif
