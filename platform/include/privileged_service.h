// Privileged service: the few operations a service process may not do by itself and asks the platform
// for: loop mounts of image files, their unmount, and device-node creation.
//
// Every call returns 0 on success or a negative errno code, and logs one line (tag "ORVIX" on the host)
// for each failure.
//
// On the host every path argument must lie below the host root: the real path of its directory is at
// or below the root, and its last component is neither "." nor ".." nor a symbolic link. Other paths
// are refused with -EACCES before anything is done.
#pragma once

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

// Mounts the image file `source` on the directory `target` as `fstype` (mount(2) `flags` and `data`).
// The image is attached to a free loop device, read-only and so that the device detaches itself when
// the file system is unmounted; the file system is mounted read-only whatever `flags` say. A loop device
// whose node the platform lacks gets one through PS_Mknod below the root, removed again once mounted.
// On failure nothing is left mounted and no loop device stays attached.
// On the host the loop nodes are looked for in ORVIX_LOOP_NODE_DIR (default "/dev").
int PS_Mount(const char* source, const char* target, const char* fstype, unsigned long flags,
             const char* data);

// Unmounts the file system mounted on `target` (umount2(2) `flags`; a link at `target` is not followed).
int PS_Umount(const char* target, int flags);

// Makes the file-system node `path` (mknod(2) `mode` and `dev`).
int PS_Mknod(const char* path, mode_t mode, dev_t dev);

#ifdef __cplusplus
}
#endif
