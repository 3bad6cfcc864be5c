/* tellarok filter presets: the saved parameter state of an effect filter kept under a
 * user-chosen name, per filter class, in the current user's registry.
 *
 * family 0 selects DirectShow filters ("Software\DirectShow\Presets\{CLSID}"), any other
 * value DirectX image transforms ("Software\DXTransform\Presets\{CLSID}"), both under
 * HKEY_CURRENT_USER. A state of at most KYPRESET_INLINE_MAX bytes is a REG_BINARY value named
 * by the preset; a larger one is written to "<save folder>\<cleaned name>.dxp" and the value
 * (REG_SZ) holds that path. The filter is any COM object offering IPersistStream.
 *
 * Results: 0 on success; 1 when the preset key cannot be opened (or created, for saving);
 * E_POINTER for a null filter, name or buffer; KYERR_FILE_CREATE (0x8004E006) when a preset
 * file cannot be written; KYERR_FILE_OPEN (0x8004E007) when it cannot be read; other failures
 * as the registry's or the filter's status (HRESULT_FROM_WIN32 for registry errors). */
#ifndef TELLAROK_KY_PRESET_H
#define TELLAROK_KY_PRESET_H

#include "ky_base.h"
#include <objbase.h>

#define KYPRESET_INLINE_MAX 256

/* When "DefLocation" is absent the save folder is the family's folder in the system's
 * program-files folder ("DirectShow Presets\" or "DXTransform Presets\"); when even that
 * cannot be named, the relative "Presets\". */

KY_BEGIN_DECLS
KY_IMPORT HRESULT KYAPI KyDSFilter_SetDefaultSavePath(const char *folder, LONG family);
KY_IMPORT HRESULT KYAPI KyDSFilter_GetDefaultSavePath(char *buffer, DWORD size, LONG family);
KY_IMPORT HRESULT KYAPI KyDSFilter_SavePreset(IUnknown *filter, const char *name, LONG family);
KY_IMPORT HRESULT KYAPI KyDSFilter_LoadPreset(IUnknown *filter, const char *name, LONG family);
KY_IMPORT HRESULT KYAPI KyDSFilter_GetPresetCount(IUnknown *filter, LONG *count, LONG family);
KY_IMPORT HRESULT KYAPI KyDSFilter_GetPresetName(IUnknown *filter, LONG index, char *name,
                                                 DWORD *size, LONG family);
KY_IMPORT HRESULT KYAPI KyDSFilter_DeletePreset(IUnknown *filter, const char *name, LONG family);

/* Cleans a file name (no folder part) in place. Mode 0 only counts; mode 1 replaces every
 * character a file name cannot hold (control characters and \ / : * ? " < > |) by '_', turns
 * trailing dots and blanks into '_' and replaces the first letter of a reserved device name
 * (CON, PRN, AUX, NUL, COM1-9, LPT1-9, with or without an extension) by '_'; the length never
 * changes. Returns how many characters were (mode 1) or would be (mode 0) changed; -1 for a
 * null name. */
KY_IMPORT LONG KYAPI KyValidateFileName(char *name, LONG mode);
/* Creates a folder and every missing folder above it. S_OK when the folder exists afterwards,
 * E_POINTER for a null path, else HRESULT_FROM_WIN32 of the failure. */
KY_IMPORT HRESULT KYAPI KyCreateDirectory(const char *path);
KY_END_DECLS

#endif
