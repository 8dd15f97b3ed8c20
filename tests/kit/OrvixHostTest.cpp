// orvix-host's own rules: what init refuses to wipe, the package records, path variables, the records it
// prints.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "HostFixture.h"
#include "platform_path.h"

namespace {

using orvix::test::HostFixture;
using orvix::test::ReadWholeFile;
using orvix::test::RunProgram;
using orvix::test::RunResult;

class OrvixHost : public HostFixture {
protected:
    bool StartsBus() const override { return false; }
};

TEST_F(OrvixHost, InitNeverEmptiesADirectoryItDidNotMake) {
    char pattern[] = "/tmp/orvix-foreign-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    std::string foreign = pattern;
    std::ofstream(foreign + "/precious.txt") << "keep me";
    RunResult result = RunProgram({OrvixHostPath(), "init"}, {{"ORVIX_HOST_ROOT", foreign}});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("refusing"), std::string::npos) << result.err;
    EXPECT_EQ(ReadWholeFile(foreign + "/precious.txt"), "keep me");
    RunProgram({"/bin/rm", "-rf", foreign});
}

TEST_F(OrvixHost, InitMakesAFreshRootAgainButNotWhileItsProcessesRun) {
    std::string stray = orvix::host::PathVariable(27) + "/vardell/clone/left-over.dat";
    std::ofstream(stray) << "x";
    ASSERT_EQ(Host({"init", "--apps", "2"}).status, 0);
    EXPECT_NE(access(stray.c_str(), F_OK), 0);
    EXPECT_EQ(ReadWholeFile(orvix::host::PathVariable(27) + "/vardell/clone/sample.dat"), "sample\n");
    EXPECT_EQ(ReadWholeFile(orvix::host::PathVariable(66) + "/nested/inner.dat"), "inner\n");
    EXPECT_EQ(access((Root() + "/usr/lib64/libtak_common.so").c_str(), R_OK), 0);
    EXPECT_EQ(access((Root() + "/bin/takutility").c_str(), X_OK), 0);
    EXPECT_EQ(access((Root() + "/usr/bin/takutility").c_str(), X_OK), 0);

    ASSERT_EQ(Host({"up"}).status, 0);
    RunResult busy = Host({"init"});
    EXPECT_EQ(busy.status, 2);
    EXPECT_NE(busy.err.find("orvix-host down"), std::string::npos) << busy.err;
    EXPECT_EQ(access((Root() + "/run/env").c_str(), F_OK), 0) << "a refused init changed the root";
    EXPECT_EQ(Host({"init", "--apps", "-1"}).status, 2);
    EXPECT_EQ(Host({"init", "extra"}).status, 2);
}

TEST_F(OrvixHost, PathPrintsTheDirectoryOfAVariable) {
    RunResult result = Host({"path", "24"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, Root() + "/home/owner\n");
    EXPECT_EQ(Host({"path", "7"}).out, std::string(platform_path_get(7)) + "\n");
    for (const char* bad : {"5", "x", "", "24x"}) {
        EXPECT_EQ(Host({"path", bad}).status, 2) << bad;
    }
}

TEST_F(OrvixHost, PackagesKeepMetadataInDeclarationOrder) {
    ASSERT_EQ(Host({"pkg",   "add",    "org.orvix.tv", "--version", "3.1",    "--removable", "false",
                    "--app", "tv.a",   "--app",        "tv.main",   "--main", "tv.main",     "--meta",
                    "k1=v1", "--meta", "k0=a=b",       "--meta",    "k1=v2",  "--category",  "c1"})
                  .status,
              0);
    RunResult list = Host({"pkg", "list"});
    ASSERT_EQ(list.status, 0);
    Json::Value package;
    std::istringstream lines(list.out);
    std::string line;
    bool found = false;
    while (std::getline(lines, line)) {
        std::istringstream in(line);
        Json::CharReaderBuilder builder;
        std::string errors;
        ASSERT_TRUE(Json::parseFromStream(builder, in, &package, &errors)) << line;
        if (package["pkgid"] == "org.orvix.tv") {
            found = true;
            break;
        }
    }
    ASSERT_TRUE(found) << list.out;
    EXPECT_EQ(package["version"], "3.1");
    EXPECT_EQ(package["removable"], false);
    EXPECT_EQ(package["mainapp"], "tv.main");
    EXPECT_EQ(orvix::host::JsonLine(package["apps"][1]["metadata"]),
              R"([["k1","v1"],["k0","a=b"],["k1","v2"]])");
    EXPECT_EQ(package["apps"][1]["categories"][0], "c1");
    EXPECT_EQ(package["apps"][0]["metadata"].size(), 0u);

    EXPECT_EQ(Host({"pkg", "add", "org.bad", "--main", "nope"}).status, 2);
    EXPECT_EQ(Host({"pkg", "add", "org.bad", "--meta", "novalue"}).status, 2);
    EXPECT_EQ(Host({"pkg", "add", "org.bad", "--removable", "maybe"}).status, 2);
    EXPECT_EQ(Host({"pkg", "remove", "org.orvix.tv"}).status, 0);
    EXPECT_EQ(Host({"pkg", "remove", "org.orvix.tv"}).status, 1);
    EXPECT_EQ(Host({"pkg", "list"}).out.find("org.orvix.tv"), std::string::npos);
}

TEST_F(OrvixHost, InitRecordsEveryAppAndBuiltInApp) {
    RunResult list = Host({"pkg", "list"});
    size_t builtIn = 0;
    size_t downloaded = 0;
    std::istringstream lines(list.out);
    std::string line;
    while (std::getline(lines, line)) {
        (line.find("\"builtin\":true") != std::string::npos ? builtIn : downloaded) += 1;
    }
    EXPECT_EQ(builtIn, 2u);
    EXPECT_EQ(downloaded, 3u);
    EXPECT_NE(list.out.find(R"(["http://orvix.com/tv/metadata/prefer_instant_reset","true"])"),
              std::string::npos);
}

TEST_F(OrvixHost, CallsAndLogPrintWhatWasRecorded) {
    orvix::host::RecordCall("innerserver", "process_result", Json::Value(Json::arrayValue), ":1.9");
    RunResult calls = Host({"calls"});
    EXPECT_EQ(calls.status, 0);
    EXPECT_EQ(calls.out, ReadWholeFile(Root() + "/var/log/calls.jsonl"));
    EXPECT_NE(calls.out.find("\"sender\":\":1.9\""), std::string::npos);
    std::ofstream(Root() + "/var/log/tak-reset.log") << "a line\n";
    EXPECT_EQ(Host({"log"}).out, "a line\n");
    EXPECT_EQ(Host({"log", "../etc/sysinfo"}).status, 2);
    EXPECT_EQ(Host({"calls", "extra"}).status, 2);
}

}  // namespace
