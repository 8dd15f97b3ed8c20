#include "ReportPrinter.h"

#include <json/json.h>

#include <sstream>

namespace {

const char* KindTitle(const std::string& kind) {
    static const std::pair<const char*, const char*> kTitles[] = {
        {"tak_app_reset", "apps"},
        {"tak_service_reset", "service"},
        {"corvane_reset", "Corvane"},
        {"biu_app_reset", "built-in app"},
        {"biu_service_reset", "built-in service"},
    };
    for (const auto& title : kTitles) {
        if (kind == title.first) {
            return title.second;
        }
    }
    return "unknown";
}

std::string Joined(const std::vector<std::string>& ids) {
    std::string text;
    for (const std::string& id : ids) {
        text += (text.empty() ? "" : " ") + id;
    }
    return text.empty() ? "-" : text;
}

Json::Value Array(const std::vector<std::string>& ids) {
    Json::Value array(Json::arrayValue);
    for (const std::string& id : ids) {
        array.append(id);
    }
    return array;
}

std::string ResultText(const SResetRecord& reset) {
    if (reset.resultName.empty()) {
        return "none reported";
    }
    std::string text = reset.resultName + " = " + std::to_string(reset.resultValue);
    text += reset.resultDelivered ? "" : " (the call did not answer success)";
    return reset.resultCount > 1 ? text + ", reported " + std::to_string(reset.resultCount) + " times" : text;
}

void Row(std::ostringstream& out, const char* name, const std::string& value) {
    out << "  " << name << std::string(12 - std::string(name).size(), ' ') << value << "\n";
}

}  // namespace

const char* CReportPrinter::EndName(EResetEnd how) {
    switch (how) {
        case EResetEnd::Reported:
            return "reported";
        case EResetEnd::Replaced:
            return "replaced";
        case EResetEnd::Ended:
            return "ended";
        case EResetEnd::Failed:
            return "failed";
        case EResetEnd::Open:
            break;
    }
    return "open";
}

std::string CReportPrinter::Text(const std::vector<SResetRecord>& resets) {
    static const char* const kHow[] = {"result reported", "replaced by the next request", "ended by \"end\"",
                                       "its task could not start", "no end in the log"};
    std::ostringstream out;
    if (resets.empty()) {
        return "no reset in the log\n";
    }
    for (size_t i = 0; i < resets.size(); ++i) {
        const SResetRecord& reset = resets[i];
        out << (i == 0 ? "" : "\n") << "reset " << i + 1 << ": " << KindTitle(reset.kind) << " ("
            << reset.kind << ", pid " << reset.pid << ")\n";
        Row(out, "userdata", reset.userdata);
        Row(out, "start", reset.start);
        Row(out, "end", reset.end.empty() ? "-" : reset.end);
        Row(out, "duration", reset.durationMs < 0 ? "-" : std::to_string(reset.durationMs) + " ms");
        Row(out, "outcome", kHow[static_cast<int>(reset.how)]);
        Row(out, "result", ResultText(reset));
        Row(out, "requested", Joined(reset.requested));
        Row(out, reset.Builtin() ? "installed" : "uninstalled", Joined(reset.Done()));
        Row(out, "failed", Joined(reset.failed));
        Row(out, "timed out", Joined(reset.timedOut));
        Row(out, "history", std::to_string(reset.history.size()) + " lines");
    }
    return out.str();
}

std::string CReportPrinter::Json(const std::vector<SResetRecord>& resets) {
    Json::Value document(Json::objectValue);
    document["resets"] = Json::Value(Json::arrayValue);
    for (const SResetRecord& reset : resets) {
        Json::Value entry(Json::objectValue);
        entry["kind"] = reset.kind;
        entry["pid"] = reset.pid;
        entry["userdata"] = reset.userdata;
        entry["start"] = reset.start;
        entry["end"] = reset.end.empty() ? Json::Value() : Json::Value(reset.end);
        entry["duration_ms"] =
            reset.durationMs < 0 ? Json::Value() : Json::Value(Json::Int64(reset.durationMs));
        entry["outcome"] = EndName(reset.how);
        Json::Value result;  // null: none reported
        if (!reset.resultName.empty()) {
            result["name"] = reset.resultName;
            result["value"] = reset.resultValue;
            result["delivered"] = reset.resultDelivered;
            result["count"] = reset.resultCount;
        }
        entry["result"] = result;
        entry["requested"] = Array(reset.requested);
        entry[reset.Builtin() ? "installed" : "uninstalled"] = Array(reset.Done());
        entry["failed"] = Array(reset.failed);
        entry["timed_out"] = Array(reset.timedOut);
        entry["history"] = Array(reset.history);
        document["resets"].append(entry);
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    return Json::writeString(builder, document) + "\n";
}
