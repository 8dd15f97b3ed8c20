// The substitute common library as the reset process's loader sees it (installed by `orvix-host libtak
// apply`, opened with dlopen): what the resets' own tests cannot see, that callbacks come from the
// library's threads and that unloading joins them without calling back, and a behaviour file it must survive.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>

#include "HostFixture.h"
#include "TAKCommonApi.h"

namespace {

const std::thread::id g_testThread = std::this_thread::get_id();
std::atomic<int> g_callbacks{0}, g_onTestThread{0};  // what the library called back, and on this thread

void CalledBack() {
    ++g_callbacks;
    g_onTestThread += std::this_thread::get_id() == g_testThread;
}

class TheSubstituteLibrary : public orvix::test::HostFixture {
protected:
    bool StartsBus() const override { return false; }
    void TearDown() override {
        Close();
        HostFixture::TearDown();
    }
    void Write(const std::string& behaviour) const {
        std::ofstream(Root() + "/etc/libtak_common.json", std::ios::trunc) << behaviour;
    }
    void OpenWith(const std::string& behaviour) {
        Write(behaviour);
        ASSERT_EQ(Host({"libtak", "apply"}).status, 0);
        m_handle = dlopen((Root() + "/usr/lib64/libtak_common.so").c_str(), RTLD_LAZY);
        ASSERT_NE(m_handle, nullptr) << dlerror();
        g_callbacks = g_onTestThread = 0;
    }
    void Close() {
        EXPECT_TRUE(m_handle == nullptr || dlclose(m_handle) == 0);
        m_handle = nullptr;
    }
    int CreateBinder() {
        auto create = reinterpret_cast<TAK_CREATE_COMMUNICATOR_BINDER_API>(
            dlsym(m_handle, TAK_API_CREATE_COMMUNICATOR_BINDER));
        return create([](void*) { CalledBack(); }, nullptr);
    }
    void* m_handle = nullptr;
};

// The JSON reader throws on a text nested beyond its depth limit; that must not end the caller (found by
// fuzzing the behaviour file).
TEST_F(TheSubstituteLibrary, CountsABehaviourFileNestedTooDeeplyAsNoneAndAppliesTheNextGoodOne) {
    OpenWith("{}");
    Write(R"({"results": {"CreateCommunicatorBinderAPI": )" + std::string(5000, '[') +
          std::string(5000, ']') + "}}");
    EXPECT_EQ(CreateBinder(), 0);
    Write(R"({"results": {"CreateCommunicatorBinderAPI": 1}, "binder": {"never": true}})");
    EXPECT_EQ(CreateBinder(), 1);
}

TEST_F(TheSubstituteLibrary, CallsBackFromItsOwnThreadAndUnloadingJoinsItWithoutCallingBack) {
    OpenWith(R"({"binder": {"delay_ms": 20}})");
    EXPECT_EQ(CreateBinder(), 0);
    ASSERT_TRUE(orvix::test::WaitUntil([] { return g_callbacks > 0; }));
    Close();
    EXPECT_EQ(g_callbacks, 1);
    EXPECT_EQ(g_onTestThread, 0);

    // Unloading does not wait for a long delay, and drops the pending callbacks: a binder, a watch.
    OpenWith(R"({"binder": {"delay_ms": 600000}})");
    EXPECT_EQ(CreateBinder(), 0);
    auto watch =
        reinterpret_cast<TAK_REGISTER_VCONF_CHANGE_CB_API>(dlsym(m_handle, TAK_API_REGISTER_VCONF_CHANGE_CB));
    ASSERT_EQ(watch("memory/tak/biu_updating_app", [](std::string, VCONF_VALUE) { CalledBack(); }), 0);
    auto start = std::chrono::steady_clock::now();
    Close();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10))
        << "unloading waited for the delay";
    ASSERT_EQ(Host({"settings", "set", "memory/tak/biu_updating_app", "after"}).status, 0);
    EXPECT_EQ(g_callbacks, 0);
}

}  // namespace
