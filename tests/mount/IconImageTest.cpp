// An icon image end to end: mounted, its icons copied by the inner server over the bus, then unmounted
// and removed, with each failure on the way reported by its own line and nothing left mounted.
//
// The bus connection of the process is made once and kept, so every case that reaches the bus runs in
// one test, in order.
#include "MountSupport.h"
#include "ProcessDbus.h"

using namespace mount_test;

namespace {

class AnIconImage : public MountFixture {
protected:
    bool StartsBus() const override { return true; }
    void SetUp() override {
        MountFixture::SetUp();
        setenv("DBUS_SYSTEM_BUS_ADDRESS", BusAddress().c_str(), 1);
    }

    std::string Share() const { return orvix::host::PathVariable(27) + "/vardell"; }

    // What the inner server received and answered for the icon copies.
    std::vector<Json::Value> CopyCalls() const {
        return CallsOf("innerserver", "sub_process_copy_server_icons");
    }
    // The icons without the link, which the server leaves out.
    std::map<std::string, std::string> CopiedIcons() const {
        std::map<std::string, std::string> icons = IconFiles();
        return icons.erase("outside.png"), icons;
    }
};

}  // namespace

TEST_F(AnIconImage, IsCopiedThenRemovedAndEveryFailureIsReported) {
    const std::string image = Share() + "/icons.img";
    const std::string mountDir = Share() + "/iconmnt";
    const std::string icons = Share() + "/icons/app1";

    // An image that cannot be mounted never reaches the server and is left where it is.
    // When this machine cannot mount, the good image fails as the noise does.
    WriteFile(Share() + "/noise.img", std::string(1 << 20, '\x33'));
    MakeIconImage(image);
    for (const std::string& unmountable : CanMount()
                                              ? std::vector<std::string>{Share() + "/noise.img"}
                                              : std::vector<std::string>{Share() + "/noise.img", image}) {
        LogMark mark;
        EXPECT_FALSE(CProcessDbus::GetIconFromIconImg(unmountable, mountDir, icons));
        EXPECT_TRUE(mark.Contains("Fail to mount file[" + unmountable + "]!")) << mark.Text();
        EXPECT_TRUE(!Exists(mountDir) && Exists(unmountable) && CopyCalls().empty());
    }
    if (!CanMount()) {
        return NoteForbidden();
    }

    {
        SCOPED_TRACE("copied");
        LogMark mark;
        EXPECT_TRUE(CProcessDbus::GetIconFromIconImg(image, mountDir, icons)) << mark.Text();
        EXPECT_EQ(Tree(icons), CopiedIcons());
        ASSERT_EQ(CopyCalls().size(), 1u);
        Json::Value call = CopyCalls().back();
        EXPECT_EQ(call["args"][0].asString() + " " + call["args"][1].asString() + " " +
                      orvix::host::JsonLine(call["reply"]),
                  mountDir + "/ " + icons + " [0]");
        EXPECT_TRUE(mark.Contains("MethodCall success, result 0 (0-TAK_NO_ERROR)")) << mark.Text();
        EXPECT_FALSE(Exists(mountDir) || Exists(image));
        ExpectNothingLeft();
    }
    {
        SCOPED_TRACE("the server fails the call");
        std::ofstream(Root() + "/etc/innerserver.json") << R"({"errors": ["sub_process_copy_server_icons"]})";
        MakeIconImage(image);
        LogMark mark;
        EXPECT_FALSE(CProcessDbus::GetIconFromIconImg(image, mountDir, icons));
        EXPECT_TRUE(mark.Contains("method call false.") && !mark.Contains("MethodCall success"))
            << mark.Text();
        EXPECT_FALSE(Exists(mountDir) || Exists(image));
        ExpectNothingLeft();
        fs::remove(Root() + "/etc/innerserver.json");
    }
    {
        SCOPED_TRACE("the image and its mount directory sit where nothing can be removed");
        const std::string locked = Share() + "/locked";
        const std::string lockedImage = locked + "/icons.img";
        const std::string lockedDir = locked + "/mnt";
        const std::string lockedIcons = Share() + "/icons/app2";
        MakeIconImage(lockedImage);
        ASSERT_TRUE(orvix::host::MakeDirs(lockedDir));
        ASSERT_EQ(mount(locked.c_str(), locked.c_str(), nullptr, MS_BIND, nullptr), 0) << strerror(errno);
        ASSERT_EQ(mount(nullptr, locked.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0)
            << strerror(errno);
        LogMark mark;
        EXPECT_FALSE(CProcessDbus::GetIconFromIconImg(lockedImage, lockedDir, lockedIcons));
        EXPECT_TRUE(mark.Contains("MethodCall success, result 0 (0-TAK_NO_ERROR)")) << mark.Text();
        EXPECT_TRUE(mark.Contains("Fail to remove dir[" + lockedDir + "]!")) << mark.Text();
        EXPECT_TRUE(mark.Contains("Fail to remove file[" + lockedImage + "]!")) << mark.Text();
        EXPECT_EQ(Tree(lockedIcons), CopiedIcons());
        EXPECT_TRUE(MountsAt(lockedDir).empty());
        ASSERT_EQ(umount2(locked.c_str(), 0), 0) << strerror(errno);
        EXPECT_TRUE(Exists(lockedImage));
        ExpectNothingLeft();
    }
    EXPECT_EQ(CopyCalls().size(), 3u);
}
