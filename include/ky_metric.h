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
KY_IMPORT HRESULT KYAPI KyMetric_Open(HKYMETRIC *out, const char *product, DWORD version,
                                      const char *section);
KY_IMPORT HRESULT KYAPI KyMetric_OpenService(HKYMETRIC *out, const char *service, DWORD version,
                                             const char *section);
KY_IMPORT HRESULT KYAPI KyMetric_OpenSubKey(HKYMETRIC *out, HKYMETRIC parent, const char *section);
KY_IMPORT HRESULT KYAPI KyMetric_Close(HKYMETRIC handle);
KY_IMPORT HRESULT KYAPI KyMetric_CloseAndDeleteKey(HKYMETRIC handle);
KY_IMPORT HRESULT KYAPI KyMetric_DeleteAll(const char *product, DWORD version);
KY_IMPORT HRESULT KYAPI KyMetric_DeleteAllService(const char *service, DWORD version);
KY_IMPORT HRESULT KYAPI KyMetric_DeleteKey(const char *product, DWORD version, const char *section);
KY_IMPORT HRESULT KYAPI KyMetric_DeleteKeyService(const char *service, DWORD version,
                                                  const char *section);
KY_IMPORT LONG KYAPI KyGetMetric(HKYMETRIC handle, LONG number);
KY_IMPORT LONG KYAPI KyGetMetricEx(HKYMETRIC handle, LONG number, LONG minimum, LONG maximum,
                                   LONG defaultValue);
KY_IMPORT BOOL KYAPI KyGetMetricBool(HKYMETRIC handle, LONG number, BOOL defaultValue);
KY_IMPORT HRESULT KYAPI KySetMetric(HKYMETRIC handle, LONG number, LONG value);
KY_IMPORT LONG KYAPI KyGetMetricBinary(HKYMETRIC handle, LONG number, void *buffer, LONG size);
KY_IMPORT HRESULT KYAPI KySetMetricBinary(HKYMETRIC handle, LONG number, const void *data,
                                          LONG size);
KY_IMPORT LONG KYAPI KyGetMetricStringEx(HKYMETRIC handle, LONG number, char *buffer, LONG size,
                                         const char *defaultText, BOOL keepEmpty);
KY_IMPORT HRESULT KYAPI KySetMetricString(HKYMETRIC handle, LONG number, const char *text);
KY_IMPORT LONG KYAPI KyGetMetricMultiStringEx(HKYMETRIC handle, LONG number, char *buffer,
                                              LONG size, const char *defaultText, BOOL keepEmpty);
KY_IMPORT HRESULT KYAPI KySetMetricMultiString(HKYMETRIC handle, LONG number, const void *data,
                                               LONG size);
KY_IMPORT HRESULT KYAPI KyDoesMetricExist(HKYMETRIC handle, LONG number, DWORD regType);
KY_IMPORT HRESULT KYAPI KyDeleteMetric(HKYMETRIC handle, LONG number, DWORD regType);
/* Deletes a key and its whole tree (used by every Delete operation). */
KY_IMPORT HRESULT KYAPI KyRegDeleteKey(HKEY root, const char *path);
KY_END_DECLS

#endif
