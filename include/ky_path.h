/* tellarok path utilities: the parts of a file path. */
#ifndef TELLAROK_KY_PATH_H
#define TELLAROK_KY_PATH_H

#include "ky_base.h"

KY_BEGIN_DECLS
/* The file-name part of a path: the text after the last colon or backslash (the whole path when
 * it has neither). Points into `path`; null only for a null path. */
KY_IMPORT char *KYAPI KyGetFileNamePtr(const char *path);
/* The extension of a path, from its last '.' on, or null when it has none. A dot is not an
 * extension when the text after it contains a space ("my file.old name"); nothing else is
 * tested, so in "C:\v1.2\take" the extension is ".2\take". Points into `path`. */
KY_IMPORT char *KYAPI KyGetFileNameExtensionPtr(const char *path);
KY_END_DECLS

#endif
