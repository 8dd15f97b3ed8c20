// What the in-process tests of the process frame share: launch requests built from key/value pairs, a
// private host root, and no system bus (an address that leads nowhere makes every report fail at once).
#pragma once

#include <app_control.h>
#include <stdlib.h>

#include <initializer_list>
#include <string>
#include <utility>

#include "HostFixture.h"

namespace process_test {

inline const bool kNoSystemBus =
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/tak-process-test/bus", 1) == 0;

// A launch request that frees itself.
class Request {
public:
    Request(std::initializer_list<std::pair<const char*, const char*>> extras) {
        app_control_create(&m_handle);
        for (const auto& [key, value] : extras) {
            app_control_add_extra_data(m_handle, key, value);
        }
    }
    ~Request() { app_control_destroy(m_handle); }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;
    app_control_h Get() const { return m_handle; }

private:
    app_control_h m_handle = nullptr;
};

// A private host root made by the kit, without its bus; it holds the substitute common library.
class InARoot : public orvix::test::HostFixture {
protected:
    bool StartsBus() const override { return false; }
    static std::string Library() { return orvix::host::FixedPath("/usr/lib64") + "/libtak_common.so"; }
};

}  // namespace process_test
