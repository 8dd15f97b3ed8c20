#include "TAKUtilityWrapper.h"

#include <platform_path.h>

#include "ICVConf.h"
#include "TAKLog.h"
#include "TAKShell.h"

namespace {

// Both places of the utility are part of the design: some operations use one, some the other.
const char kBinUtility[] = "/bin/takutility";
const char kUsrBinUtility[] = "/usr/bin/takutility";
const char kSmackResultKey[] = "memory/tak/file_smack";

int RunUtility(const char* devicePath, const char* option) {
    std::string argv[] = {platform_path_fixed(devicePath), option};
    return CTAKShell::ExecShell(argv, 2);
}

int RunUtility(const char* devicePath, const char* option, const std::string& argument) {
    std::string argv[] = {platform_path_fixed(devicePath), option, argument};
    return CTAKShell::ExecShell(argv, 3);
}

std::string JoinPair(const std::string& first, const std::string& second) {
    return first + "?" + second;
}

}  // namespace

int ITAKUtility::RemoveFile(const std::string& path) {
    TAK_LOGI("Remove file[%s] start", path.c_str());
    int result = RunUtility(kBinUtility, "-e", path);
    TAK_LOGI("Remove file[%s] end, result = [%d]", path.c_str(), result);
    return result;
}

int ITAKUtility::RemoveFileInDirectory(const std::string& path) {
    TAK_LOGI("Remove [%s] start", path.c_str());
    int result = RunUtility(kBinUtility, "-x", path);
    TAK_LOGI("Remove [%s] end, result = [%d]", path.c_str(), result);
    return result;
}

int ITAKUtility::CheckTAKDir() {
    TAK_LOGI("Check TAK dir start");
    int result = RunUtility(kBinUtility, "-p");
    TAK_LOGI("Check TAK dir result %d", result);
    return result;
}

int ITAKUtility::CreateTAKDB() {
    TAK_LOGI("Create TAK DB start");
    int result = RunUtility(kUsrBinUtility, "-n");
    TAK_LOGI("Create TAK DB result %d", result);
    return result;
}

int ITAKUtility::RestoreTAKDB() {
    TAK_LOGI("Restore TAK DB start");
    int result = RunUtility(kUsrBinUtility, "-t");
    TAK_LOGI("Restore TAK DB result %d", result);
    return result;
}

int ITAKUtility::SetSmack(const std::string& path, const std::string& label) {
    TAK_LOGI("Set %s Smack %s", path.c_str(), label.c_str());
    int result = RunUtility(kUsrBinUtility, "-s", JoinPair(path, label));
    TAK_LOGI("Set smack result %d", result);
    return result;
}

int ITAKUtility::GetSmack(const std::string& path, std::string& label) {
    TAK_LOGI("Get %s Smack", path.c_str());
    std::string before;
    ICVConf::Get(kSmackResultKey, before);
    int result = RunUtility(kUsrBinUtility, "-m", path);
    TAK_LOGI("Get smack result %d", result);
    ICVConf::Get(kSmackResultKey, label);
    if (!label.empty() && label == before) {
        TAK_LOGE("smack (%s) not changed, error happened", label.c_str());
    }
    return result;
}

int ITAKUtility::Copy(const std::string& source, const std::string& dest) {
    TAK_LOGI("Copy start, SrcPath [%s], DesPath [%s]", source.c_str(), dest.c_str());
    int result = RunUtility(kBinUtility, "-o", JoinPair(source, dest));
    TAK_LOGI("Copy end, result = [%d]", result);
    return result;
}

int ITAKUtility::Move(const std::string& source, const std::string& dest) {
    TAK_LOGI("Move start, SrcPath [%s], DesPath [%s]", source.c_str(), dest.c_str());
    int result = RunUtility(kBinUtility, "-h", JoinPair(source, dest));
    TAK_LOGI("Move end, result = [%d]", result);
    return result;
}

int ITAKUtility::Execute(const std::string& binFile) {
    TAK_LOGI("Execute start, strBinFile [%s]", binFile.c_str());
    int result = RunUtility(kBinUtility, "-d", binFile);
    TAK_LOGI("Execute end, result = [%d]", result);
    return result;
}
