// The package manager's information as the service asks for it: IPkgInfo answers about one package
// (installed or not, version, removable flag), IPkgAppInfo about the main app of one package and its
// metadata.
//
// Life cycle: each object opens its package-manager handle in its constructor and releases it in its
// destructor, so objects are not copyable. No object state is shared: any thread may make its own
// objects, and the class-wide look-ups need none. Failures are false results (true for the removable
// flag) plus one log line; nothing throws.
//
// Packages of the robot app space are never looked up: for them a package counts as not installed, has no
// handle, and its apps have no information.
#pragma once

#include <pkgmgr-info.h>

#include <map>
#include <string>
#include <vector>

class IPkgInfo {
public:
    IPkgInfo(const std::string& pkgName, bool robot);
    virtual ~IPkgInfo();
    IPkgInfo(const IPkgInfo&) = delete;
    IPkgInfo& operator=(const IPkgInfo&) = delete;

    // True exactly when the package manager knows the package (never for the robot app space).
    static bool IsInstalled(const std::string& pkgName, bool robot);
    // A flag that cannot be read counts as removable.
    bool GetAppRemovableFlag();
    // The installed version (empty when the package has none); false when it is not installed.
    bool CheckAppVersion(std::string& version);

private:
    std::string m_PkgName;
    pkgmgrinfo_pkginfo_h m_PkgHandle = nullptr;
};

class IPkgAppInfo {
public:
    // Opens the package's main app and reads its metadata and categories; on any failure both stay empty.
    explicit IPkgAppInfo(const std::string& pkgName);
    virtual ~IPkgAppInfo();
    IPkgAppInfo(const IPkgAppInfo&) = delete;
    IPkgAppInfo& operator=(const IPkgAppInfo&) = delete;

    bool FindMetadataValue(const std::string& key, std::string& value);
    // One metadata value of an app given by its app id, without an object.
    static bool GetMetadataByOrvixID(const std::string& appId, const std::string& key, std::string& value,
                                     bool robot);
    // The main app's categories in declaration order.
    const std::vector<std::string>& GetCategories() const { return m_Categories; }

    // The main app's metadata; a key declared twice holds its later value.
    std::map<std::string, std::string> metadata;

protected:
    void m_GetAppMetadata(pkgmgrinfo_appinfo_h appHandle);
    // Per metadata item; `user_data` is the object being filled.
    static int s_MetadataItem(const char* key, const char* value, void* user_data);

private:
    bool m_FindMainAppId(std::string& mainAppId);
    void m_GetAppCategories(pkgmgrinfo_appinfo_h appHandle);
    static int s_CategoryItem(const char* category, void* user_data);

    std::string m_PkgName;
    pkgmgrinfo_appinfo_h m_AppHandle = nullptr;
    std::vector<std::string> m_Categories;
};
