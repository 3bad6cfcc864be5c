// Private declarations of the error handler's files.
#pragma once

#include "ky_internal.h"
#include "ky_error.h"
#include <stddef.h>

#include "ky_status.h"

namespace ky {

struct OperationText {
  LONG operation;
  const char *format;
};
struct PlatformPair {
  DWORD error;
  HRESULT status;
};

extern const OperationText kOperationTable[];
extern const size_t kOperationCount;
extern const tKYERRORTEXT kStatusTable[];
extern const size_t kStatusCount;
extern const PlatformPair kPlatformTable[];
extern const size_t kPlatformCount;

} // namespace ky
