// What the loop-mount tests share: a root without a bus, a probe of whether this machine lets the test
// mount at all, real ext4 images built with mke2fs, and views of the kernel's state (the mount table
// and the loop devices' backing files) that show what a call left behind.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "HostFixture.h"

namespace mount_test {

struct MountEntry {
    std::string source;
    std::string point;
    std::string type;
    std::string options;  // per-mount options ("ro,nosuid,...")
};

// Mounts of this process's mount table whose mount point is `dir` or below it, in table order.
std::vector<MountEntry> MountsAt(const std::string& dir);

// "loopN <backing file>" for every loop device bound to a file below `dir`.
std::vector<std::string> LoopsBackedBelow(const std::string& dir);

// Why this process cannot make loop mounts ("" when it can), probed by mounting a tmpfs on `scratch`.
std::string MountForbidden(const std::string& scratch);

void WriteFile(const std::string& path, const std::string& text);

// Everything below `dir`: relative path -> "file:<content>", "dir" or "link:<target>".
std::map<std::string, std::string> Tree(const std::string& dir);

bool Exists(const std::string& path);

// A private root without a bus; TearDown fails the test when a mount or a loop device is left below it.
class MountFixture : public orvix::test::HostFixture {
protected:
    std::vector<std::string> InitArguments() const override { return {"--apps", "0", "--builtin", "0"}; }
    bool StartsBus() const override { return false; }
    void SetUp() override;
    void TearDown() override;

    bool CanMount() const { return m_forbidden.empty(); }
    // Says on the test's output why the success path cannot run here; the test then checks the failure.
    void NoteForbidden() const;

    // The tree the test images hold: two icons, one in a sub-directory, and a link out of the image.
    static std::map<std::string, std::string> IconFiles();
    // An ext4 image at `image` with IconFiles() (fails the test when it cannot be built).
    void MakeIconImage(const std::string& image) const;

    // Nothing mounted or loop-bound below the root or `also` (waits for the kernel's auto-clear).
    void ExpectNothingLeft(const std::string& also = "") const;

private:
    std::string m_forbidden;
};

}  // namespace mount_test
