#include "PackageRecordsTest.h"

#include <orvix_host.h>
#include <orvix_pkgmgr.h>
#include <stdlib.h>

#include "TAKDir.h"

void PackageRecordsTest::SetUp() {
    char pattern[] = "/tmp/pkginfo-root.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    orvix::host::SetRoot(root_);
    ASSERT_TRUE(orvix::host::MakeDirs(root_ + "/var/lib/pkgmgr"));
    handlesAtStart_ = orvix::host::OpenPackageHandles();
}

void PackageRecordsTest::TearDown() {
    EXPECT_EQ(orvix::host::OpenPackageHandles(), handlesAtStart_) << "package-manager handles left open";
    TAKDir::RemoveAllFiles(root_, true, false);
}

std::string PackageRecordsTest::RecordsPath() {
    return orvix::host::UnderRoot("var/lib/pkgmgr/packages.json");
}

void PackageRecordsTest::WriteRecords(const std::string& text) {
    std::string error;
    ASSERT_TRUE(orvix::host::WriteFileAtomically(RecordsPath(), text, &error)) << error;
}

void PackageRecordsTest::WriteRecordsJson(const Json::Value& records) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    WriteRecords(Json::writeString(builder, records));
}

size_t PackageRecordsTest::LogCount(const std::string& text) const {
    std::string log = mark_.Text();
    size_t count = 0;
    for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + text.size())) {
        ++count;
    }
    return count;
}

Json::Value PackageJson(const std::string& pkgId, const std::string& version, bool removable,
                        const std::string& appId, const Json::Value& metadata) {
    Json::Value app(Json::objectValue);
    app["appid"] = appId;
    app["metadata"] = metadata;
    app["categories"] = Json::Value(Json::arrayValue);
    Json::Value package(Json::objectValue);
    package["pkgid"] = pkgId;
    package["version"] = version;
    package["type"] = "tpk";
    package["removable"] = removable;
    package["builtin"] = false;
    package["mainapp"] = appId;
    package["apps"].append(app);
    return package;
}

Json::Value ManyPackages(int count, int builtIn) {
    Json::Value records(Json::objectValue);
    Json::Value& packages = records["packages"] = Json::Value(Json::arrayValue);
    for (int i = 0; i < count; ++i) {
        Json::Value metadata(Json::arrayValue);
        Json::Value pair(Json::arrayValue);
        pair.append(i < builtIn ? "http://orvix.com/tv/metadata/prefer_instant_reset"
                                : "http://orvix.com/other");
        pair.append(i < builtIn ? "true" : std::to_string(i));
        metadata.append(pair);
        std::string n = std::to_string(i);
        packages.append(PackageJson("pkg." + n, "1.0." + n, i < builtIn, "app." + n, metadata));
    }
    return records;
}
