// A HostFixture whose `launch` starts the kit's own test app (tests/kit/app) instead of tak-reset, and
// reads back what the app recorded.
#pragma once

#include <stdlib.h>

#include <string>
#include <vector>

#include "HostFixture.h"

namespace kit_test {

class KitAppFixture : public orvix::test::HostFixture {
protected:
    void SetUp() override {
        setenv("ORVIX_TAK_RESET", KIT_APP_PATH, 1);
        HostFixture::SetUp();
    }
    void TearDown() override {
        HostFixture::TearDown();
        unsetenv("ORVIX_TAK_RESET");
    }

    void PrintMoreDiagnostics() const override {
        PrintTail("test app record", Root() + "/var/log/kit-app.jsonl");
    }

    // What the app recorded, one JSON object per callback.
    std::vector<Json::Value> Events() const {
        std::vector<Json::Value> events;
        std::istringstream lines(orvix::test::ReadWholeFile(Root() + "/var/log/kit-app.jsonl"));
        std::string line;
        while (std::getline(lines, line)) {
            Json::Value event;
            std::istringstream in(line);
            Json::CharReaderBuilder builder;
            std::string errors;
            if (Json::parseFromStream(builder, in, &event, &errors)) {
                events.push_back(event);
            }
        }
        return events;
    }

    std::vector<Json::Value> Controls() const {
        std::vector<Json::Value> controls;
        for (const auto& event : Events()) {
            if (event["event"].asString() == "control") {
                controls.push_back(event);
            }
        }
        return controls;
    }

    bool WaitForControls(size_t count) const {
        return orvix::test::WaitUntil([&] { return Controls().size() >= count; }, std::chrono::seconds(30));
    }

    static std::string Hex(const std::string& bytes) {
        static const char kDigits[] = "0123456789abcdef";
        std::string hex;
        for (unsigned char c : bytes) {
            hex += kDigits[c >> 4];
            hex += kDigits[c & 15];
        }
        return hex;
    }
};

}  // namespace kit_test
