// The stand-in inner server's answers.
#include "InnerServer.h"

#include <limits.h>
#include <stdlib.h>

#include <fstream>

#include "InnerServerStore.h"
#include "dlog.h"
#include "orvix_host.h"

const char* const CInnerServer::BUS_NAME = "org.orvix.tv.vardell.innerserver";
const char* const CInnerServer::OBJECT_PATH = "/org/orvix/tv/vardell/innerserver";
const char* const CInnerServer::INTERFACE_NAME = "org.orvix.tv.vardell.innerserver.interface";

namespace {

Json::Value ReadBehaviour() {
    std::ifstream in(orvix::host::UnderRoot("etc/innerserver.json"));
    Json::Value behaviour;
    if (in) {
        Json::CharReaderBuilder builder;
        std::string errors;
        if (!Json::parseFromStream(builder, in, &behaviour, &errors)) {
            dlog_print(DLOG_ERROR, "ORVIX", "innerserver: etc/innerserver.json is not JSON: %s",
                       errors.c_str());
            behaviour = Json::Value();
        }
    }
    return behaviour;
}

bool Listed(const Json::Value& list, const std::string& method) {
    if (!list.isArray()) {
        return false;
    }
    for (const auto& item : list) {
        if (item.isString() && item.asString() == method) {
            return true;
        }
    }
    return false;
}

std::string Canonical(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) != nullptr ? std::string(resolved) : std::string();
}

bool AtOrBelowRoot(const std::string& real, bool rootItself) {
    std::string root = Canonical(orvix::host::Root());
    if (root.empty() || real.empty()) {
        return false;
    }
    return (rootItself && real == root) || real.compare(0, root.size() + 1, root + "/") == 0;
}

// The real directory the icons are copied from, or "" when it is not a directory below the root.
std::string IconSource(const std::string& mountDir) {
    std::string real = Canonical(mountDir);
    return AtOrBelowRoot(real, false) && g_file_test(real.c_str(), G_FILE_TEST_IS_DIR) ? real : "";
}

// The real save path, made when missing, or "" when it is (or would come to be) outside the root. The
// missing part is made below the nearest existing directory only after that one is known to be inside.
std::string IconDestination(const std::string& savePath) {
    if (savePath.empty() || savePath.front() != '/') {
        return "";
    }
    g_autofree gchar* lexical = g_canonicalize_filename(savePath.c_str(), "/");
    std::string existing = lexical;
    while (!g_file_test(existing.c_str(), G_FILE_TEST_EXISTS)) {
        g_autofree gchar* parent = g_path_get_dirname(existing.c_str());
        existing = parent;
    }
    if (!AtOrBelowRoot(Canonical(existing), true) || !orvix::host::MakeDirs(lexical)) {
        return "";
    }
    std::string real = Canonical(lexical);
    return AtOrBelowRoot(real, true) ? real : "";
}

bool CopyOneIcon(GFile* from, GFile* to, GFile* toDir, GError** error) {
    if (!g_file_make_directory_with_parents(toDir, nullptr, error)) {
        if (!g_error_matches(*error, G_IO_ERROR, G_IO_ERROR_EXISTS)) {
            return false;
        }
        g_clear_error(error);
    }
    return g_file_copy(from, to,
                       static_cast<GFileCopyFlags>(G_FILE_COPY_OVERWRITE | G_FILE_COPY_NOFOLLOW_SYMLINKS),
                       nullptr, nullptr, nullptr, error);
}

// Copies the regular files below `from` to the same places below `to`; `copied` counts them.
bool CopyIcons(GFile* from, GFile* to, int& copied, GError** error) {
    g_autoptr(GFileEnumerator) entries =
        g_file_enumerate_children(from, G_FILE_ATTRIBUTE_STANDARD_NAME "," G_FILE_ATTRIBUTE_STANDARD_TYPE,
                                  G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, nullptr, error);
    if (entries == nullptr) {
        return false;
    }
    while (true) {
        GFileInfo* info = nullptr;
        GFile* child = nullptr;
        if (!g_file_enumerator_iterate(entries, &info, &child, nullptr, error)) {
            return false;
        }
        if (info == nullptr) {
            return true;
        }
        g_autoptr(GFile) target = g_file_get_child(to, g_file_info_get_name(info));
        GFileType type = g_file_info_get_file_type(info);
        if (type == G_FILE_TYPE_DIRECTORY && !CopyIcons(child, target, copied, error)) {
            return false;
        }
        if (type == G_FILE_TYPE_REGULAR) {
            if (!CopyOneIcon(child, target, to, error)) {
                return false;
            }
            ++copied;
        }
    }
}

CInnerServerStore& Store() {
    static CInnerServerStore store;
    return store;
}

}  // namespace

bool CInnerServer::OpenStore() {
    m_bStoreOpen = Store().Open();
    if (!m_bStoreOpen) {
        dlog_print(DLOG_ERROR, "ORVIX",
                   "innerserver: the app database cannot be opened; app-data calls answer 0");
    }
    return m_bStoreOpen;
}

int CInnerServer::m_DefaultResult(const std::string& method, GVariant* parameters, bool& hasResult) {
    hasResult = true;
    // The app-data methods answer 1 on success and 0 on failure, as the store applied them.
    if (Store().Handles(method.c_str())) {
        return m_bStoreOpen ? Store().Apply(method.c_str(), parameters) : 0;
    }
    if (method == "process_result") {
        return 1;
    }
    if (method == "sub_process_copy_server_icons") {
        return m_CopyServerIcons(parameters);
    }
    hasResult = false;
    return 0;
}

int CInnerServer::m_CopyServerIcons(GVariant* parameters) {
    if (parameters == nullptr || !g_variant_is_of_type(parameters, G_VARIANT_TYPE("(ss)"))) {
        dlog_print(DLOG_ERROR, "ORVIX", "innerserver: sub_process_copy_server_icons wants (ss), got %s",
                   parameters != nullptr ? g_variant_get_type_string(parameters) : "()");
        return ICON_COPY_BAD_REQUEST;
    }
    const gchar* mountDir = nullptr;
    const gchar* savePath = nullptr;
    g_variant_get(parameters, "(&s&s)", &mountDir, &savePath);
    std::string source = IconSource(mountDir);
    std::string destination = source.empty() ? "" : IconDestination(savePath);
    if (destination.empty()) {
        dlog_print(DLOG_ERROR, "ORVIX",
                   "innerserver: icons not copied from [%s] to [%s]: both must be directories below the host "
                   "root",
                   mountDir, savePath);
        return ICON_COPY_BAD_REQUEST;
    }
    g_autoptr(GFile) from = g_file_new_for_path(source.c_str());
    g_autoptr(GFile) to = g_file_new_for_path(destination.c_str());
    g_autoptr(GError) error = nullptr;
    int copied = 0;
    if (!CopyIcons(from, to, copied, &error)) {
        dlog_print(DLOG_ERROR, "ORVIX", "innerserver: icon copy from %s to %s stopped after %d files: %s",
                   source.c_str(), destination.c_str(), copied, error->message);
        return ICON_COPY_FAILED;
    }
    dlog_print(DLOG_INFO, "ORVIX", "innerserver: %d icon files copied from %s to %s", copied, source.c_str(),
               destination.c_str());
    return ICON_COPY_DONE;
}

CBusStandIn::Reply CInnerServer::Handle(const std::string& method, GVariant* parameters) {
    Json::Value behaviour = ReadBehaviour();
    CBusStandIn::Reply reply;
    if (Listed(behaviour["errors"], method)) {
        reply.errorName = "org.freedesktop.DBus.Error.Failed";
        reply.errorMessage = "configured to fail in etc/innerserver.json";
        return reply;
    }
    bool hasResult = false;
    int result = m_DefaultResult(method, parameters, hasResult);
    const Json::Value& configured = behaviour["results"][method];
    if (configured.isInt()) {
        result = configured.asInt();
        hasResult = true;
    }
    if (hasResult) {
        reply.body = g_variant_new("(i)", result);
    }
    return reply;
}
