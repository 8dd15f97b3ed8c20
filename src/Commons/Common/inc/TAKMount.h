// Loop mounts of image files (icon images sent by the server, say) through the platform's privileged
// service. The loop device is the service's business: PS_Mount attaches the image to a free loop
// device, read-only and detaching itself at unmount, and makes the device's node with PS_Mknod where
// the platform has none. So this class only asks for the mount and the unmount.
#pragma once

#include <string>

class CTAKMount {
public:
    // Mounts the image file read-only on `mountDir`, which is made (with its parents) when it is missing
    // and removed again, with every parent this call made, when the mount fails. `fsType` empty: the
    // kinds an image may come as are tried in turn (TYPES below), moving on only while the kernel says
    // that the image is not of the kind tried; any other failure ends the attempt at once.
    // One log line and false on failure; nothing stays mounted or attached then.
    static bool Mount(const std::string& image, const std::string& mountDir, const std::string& fsType = "");

    // Unmounts what is mounted on `mountDir`; the directory stays. One log line and false on failure.
    static bool Umount(const std::string& mountDir);

    // The kinds tried for an empty `fsType`, in order.
    static const char* const TYPES[];
    static const int TYPE_COUNT;
};
