// Security labels. On the host the label is the file's "security.SMACK64" extended attribute, or
// "user.SMACK64" where the security namespace cannot be written.
#pragma once

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

enum smack_label_type { SMACK_LABEL_ACCESS = 0, SMACK_LABEL_EXEC, SMACK_LABEL_MMAP };

// *label is malloc'ed; returns the label length or -1.
ssize_t smack_getlabel(const char* path, char** label, int type);
int smack_setlabel(const char* path, const char* label, int type);

#ifdef __cplusplus
}
#endif
