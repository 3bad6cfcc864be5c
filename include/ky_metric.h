/* tellarok settings store ("metrics"): small typed values in the registry, by number.
 *
 * A handle holds a machine-wide key (HKEY_LOCAL_MACHINE; negative numbers) and a per-user
 * key (HKEY_CURRENT_USER, or HKEY_LOCAL_MACHINE for a service handle; non-negative numbers)
 * under "Software\Orvanel\<product>\<major>.<minor>\Metrics[\<section>]". Value names are
 * the number's absolute value behind a type prefix: "%d" (REG_DWORD), "S%d" (REG_SZ),
 * "B%d" (REG_BINARY), "Z%d" (REG_MULTI_SZ and other types).
 * Every value operation accepts KYMETRIC_KERNEL (-1) for the kernel's own handle; a null
 * handle makes reads return their default and writes fail. Reads never fail.
 * Thread safety: no lock; the registry serialises access. */
#ifndef TELLAROK_KY_METRIC_H
#define TELLAROK_KY_METRIC_H

#include "ky_base.h"

typedef struct tKYMETRIC {
  char machinePath[260];
  HKEY machineKey;
  char userPath[260];
  HKEY userKey;
} tKYMETRIC, *HKYMETRIC;

KY_CHECK_SIZE(tKYMETRIC, 528);
KY_CHECK_OFFSET(tKYMETRIC, machineKey, 260);
KY_CHECK_OFFSET(tKYMETRIC, userPath, 264);
KY_CHECK_OFFSET(tKYMETRIC, userKey, 524);

#define KYMETRIC_KERNEL ((HKYMETRIC)(LONG_PTR)-1)

KY_BEGIN_DECLS
/* Opens (creating as needed) the machine and user keys of product/version[/section]; *out
 * is null first and receives a handle to release with KyMetric_Close. A key that cannot be
 * created is left null (reads give defaults, writes fail). S_OK, E_POINTER, E_INVALIDARG
 * (null product) or E_OUTOFMEMORY. A null or empty section means no section. */
KY_IMPORT HRESULT KYAPI KyMetric_Open(HKYMETRIC *out, const char *product, DWORD version,
                                      const char *section);
/* As KyMetric_Open under "SYSTEM\CurrentControlSet\Services\<service>\..."; both keys
 * live under HKEY_LOCAL_MACHINE. */
KY_IMPORT HRESULT KYAPI KyMetric_OpenService(HKYMETRIC *out, const char *service, DWORD version,
                                             const char *section);
/* Opens an ordinary handle for the parent's product and major.minor with another section.
 * E_FAIL when the parent is null or its path cannot be parsed; else as KyMetric_Open. */
KY_IMPORT HRESULT KYAPI KyMetric_OpenSubKey(HKYMETRIC *out, HKYMETRIC parent, const char *section);
/* Closes both keys and frees the handle; null (and the kernel's -1) accepted. S_OK. */
KY_IMPORT HRESULT KYAPI KyMetric_Close(HKYMETRIC handle);
/* Closes the handle, deletes both keys with their trees and frees it. E_FAIL for null/-1. */
KY_IMPORT HRESULT KYAPI KyMetric_CloseAndDeleteKey(HKYMETRIC handle);
/* Deletes the unsectioned key tree of a product under both roots. S_OK. */
KY_IMPORT HRESULT KYAPI KyMetric_DeleteAll(const char *product, DWORD version);
/* Deletes the unsectioned key tree of a service. S_OK. */
KY_IMPORT HRESULT KYAPI KyMetric_DeleteAllService(const char *service, DWORD version);
/* Deletes one (sectioned) key tree of a product under both roots. S_OK. */
KY_IMPORT HRESULT KYAPI KyMetric_DeleteKey(const char *product, DWORD version, const char *section);
/* Deletes one (sectioned) key tree of a service. S_OK. */
KY_IMPORT HRESULT KYAPI KyMetric_DeleteKeyService(const char *service, DWORD version,
                                                  const char *section);
/* The stored REG_DWORD value "<n>"; 0 when missing, of another type, or without a handle. */
KY_IMPORT LONG KYAPI KyGetMetric(HKYMETRIC handle, LONG number);
/* The stored value or the default, clamped to minimum..maximum unless the two are equal;
 * without a handle the default unclamped. */
KY_IMPORT LONG KYAPI KyGetMetricEx(HKYMETRIC handle, LONG number, LONG minimum, LONG maximum,
                                   LONG defaultValue);
/* 1 or 0: the stored value (or the default) tested for non-zero; without a handle the
 * default unchanged. */
KY_IMPORT BOOL KYAPI KyGetMetricBool(HKYMETRIC handle, LONG number, BOOL defaultValue);
/* Stores a REG_DWORD value. S_OK or E_FAIL. */
KY_IMPORT HRESULT KYAPI KySetMetric(HKYMETRIC handle, LONG number, LONG value);
/* Reads REG_BINARY value "B<n>" into buffer; returns the bytes read (0 when missing or of
 * another type) and zero-fills the rest of the buffer. */
KY_IMPORT LONG KYAPI KyGetMetricBinary(HKYMETRIC handle, LONG number, void *buffer, LONG size);
/* Stores a REG_BINARY block. S_OK, or E_FAIL (also for the kernel's handle -1). */
KY_IMPORT HRESULT KYAPI KySetMetricBinary(HKYMETRIC handle, LONG number, const void *data,
                                          LONG size);
/* Reads REG_SZ value "S<n>" into buffer (size bytes), zero-filling the rest. Returns the
 * characters read; a stored empty text gives 0 when keepEmpty is set, else the default (if
 * any) is copied and its length returned. */
KY_IMPORT LONG KYAPI KyGetMetricStringEx(HKYMETRIC handle, LONG number, char *buffer, LONG size,
                                         const char *defaultText, BOOL keepEmpty);
/* Stores text with its terminator as REG_SZ. S_OK, or E_FAIL (also for -1 and null text). */
KY_IMPORT HRESULT KYAPI KySetMetricString(HKYMETRIC handle, LONG number, const char *text);
/* As KyGetMetricStringEx for the REG_MULTI_SZ value "Z<n>". */
KY_IMPORT LONG KYAPI KyGetMetricMultiStringEx(HKYMETRIC handle, LONG number, char *buffer,
                                              LONG size, const char *defaultText, BOOL keepEmpty);
/* Stores size bytes of a text list as REG_MULTI_SZ. S_OK, or E_FAIL (also for -1). */
KY_IMPORT HRESULT KYAPI KySetMetricMultiString(HKYMETRIC handle, LONG number, const void *data,
                                               LONG size);
/* S_OK when the value named for regType exists with that type; S_FALSE otherwise. */
KY_IMPORT HRESULT KYAPI KyDoesMetricExist(HKYMETRIC handle, LONG number, DWORD regType);
/* Deletes the value named for regType: S_OK, E_FAIL, or S_FALSE without a handle. */
KY_IMPORT HRESULT KYAPI KyDeleteMetric(HKYMETRIC handle, LONG number, DWORD regType);
/* Deletes root\path with its whole tree (used by every Delete operation). S_OK when the key
 * is gone, E_FAIL when it could not be deleted, E_INVALIDARG for a null root or empty path. */
KY_IMPORT HRESULT KYAPI KyRegDeleteKey(HKEY root, const char *path);
KY_END_DECLS

#endif
