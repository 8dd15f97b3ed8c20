#include "ReportPrinter.h"

#include <json/json.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <utility>

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

Json::Value Reasons(const std::vector<std::pair<std::string, std::string>>& pairs) {
    Json::Value array(Json::arrayValue);
    for (const auto& pair : pairs) {
        Json::Value item(Json::objectValue);
        item["id"] = pair.first;
        item["reason"] = pair.second;
        array.append(std::move(item));
    }
    return array;
}

std::string ReasonsText(const std::vector<std::pair<std::string, std::string>>& pairs) {
    std::string text;
    for (const auto& pair : pairs) {
        text += (text.empty() ? "" : ", ") + pair.first + " (" + pair.second + ")";
    }
    return text.empty() ? "-" : text;
}

Json::Value Micros(long long us) {
    return us < 0 ? Json::Value() : Json::Value(Json::Int64(us));
}

Json::Value Millis(long long us) {
    return us < 0 ? Json::Value() : Json::Value(Json::Int64(us / 1000));
}

std::string MillisText(const SSpan& span) {
    if (!span.Started()) {
        return "-";
    }
    return span.Us() < 0 ? "no end in the log" : std::to_string(span.Us() / 1000) + " ms";
}

const char* OutcomeName(SAppTiming::EOutcome outcome) {
    static const char* const kNames[] = {"waiting", "done", "failed", "timed_out"};
    return kNames[static_cast<int>(outcome)];
}

// The apps that took longest from request to answer, longest first.
const size_t kSlowest = 5;
std::vector<const SAppTiming*> Slowest(const SResetRecord& reset) {
    std::vector<const SAppTiming*> timed;
    for (const SAppTiming& app : reset.apps) {
        if (app.span.Us() >= 0) {
            timed.push_back(&app);
        }
    }
    std::stable_sort(timed.begin(), timed.end(),
                     [](const SAppTiming* a, const SAppTiming* b) { return a->span.Us() > b->span.Us(); });
    timed.resize(std::min(timed.size(), kSlowest));
    return timed;
}

std::string SlowestText(const SResetRecord& reset) {
    std::string text;
    for (const SAppTiming* app : Slowest(reset)) {
        text += (text.empty() ? "" : ", ") + app->id + " " + std::to_string(app->span.Us() / 1000) + " ms";
    }
    return text.empty() ? "-" : text;
}

std::string ResultText(const SResetRecord& reset) {
    if (reset.resultName.empty()) {
        return "none reported";
    }
    std::string text = reset.resultName + " = " + std::to_string(reset.resultValue);
    text += reset.resultLogged ? "" : " (guessed: the log names no result)";
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

std::string CReportPrinter::Text(const std::vector<SResetRecord>& resets, size_t first) {
    static const char* const kHow[] = {"result reported", "replaced by the next request", "ended by \"end\"",
                                       "its task could not start", "no end in the log"};
    std::ostringstream out;
    if (resets.empty()) {
        return "no reset in the log\n";
    }
    for (size_t i = 0; i < resets.size(); ++i) {
        const SResetRecord& reset = resets[i];
        out << (i == 0 ? "" : "\n") << "reset " << first + i << ": " << KindTitle(reset.kind) << " ("
            << reset.kind << ", pid " << reset.pid << ")\n";
        Row(out, "userdata", reset.userdata);
        Row(out, "start", reset.start);
        Row(out, "end", reset.end.empty() ? "-" : reset.end);
        Row(out, "duration", reset.durationMs < 0 ? "-" : std::to_string(reset.durationMs) + " ms");
        Row(out, "outcome", kHow[static_cast<int>(reset.how)]);
        Row(out, "result", ResultText(reset));
        if (reset.Builtin()) {
            Row(out, "refused", reset.refused ? "yes: server upgrade off or a reset already running" : "no");
            Row(out, "order", Joined(reset.installOrder));
            Row(out, "skipped", ReasonsText(reset.skipped));
        }
        Row(out, "requested", Joined(reset.requested));
        Row(out, reset.Builtin() ? "installed" : "uninstalled", Joined(reset.Done()));
        Row(out, "failed", Joined(reset.failed));
        Row(out, "timed out", Joined(reset.timedOut));
        if (reset.Builtin()) {
            Row(out, "updates",
                reset.waitedFor.empty()
                    ? "-"
                    : "waited " + MillisText(reset.updatesWait) + " for " + Joined(reset.waitedFor));
        } else {
            Row(out, "kept", ReasonsText(reset.kept));
            Row(out, "late",
                Joined(reset.stoppedAnswers) +
                    (reset.stoppedAnswers.empty() ? "" : " (answered after the stop)"));
            Row(out, "emptied", Joined(reset.emptied));
            Row(out, "binder", MillisText(reset.binderWait));
            Row(out, "clean-up", MillisText(reset.cleanUp));
        }
        Row(out, "slowest", SlowestText(reset));
        Row(out, "history", std::to_string(reset.history.size()) + " lines");
    }
    return out.str();
}

namespace {

Json::Value Entry(const SResetRecord& reset) {
    Json::Value entry(Json::objectValue);
    entry["kind"] = reset.kind;
    entry["pid"] = reset.pid;
    entry["userdata"] = reset.userdata;
    entry["start"] = reset.start;
    entry["end"] = reset.end.empty() ? Json::Value() : Json::Value(reset.end);
    entry["duration_ms"] = reset.durationMs < 0 ? Json::Value() : Json::Value(Json::Int64(reset.durationMs));
    entry["outcome"] = CReportPrinter::EndName(reset.how);
    Json::Value result;  // null: none reported
    if (!reset.resultName.empty()) {
        result["name"] = reset.resultName;
        result["value"] = reset.resultValue;
        result["delivered"] = reset.resultDelivered;
        result["logged"] = reset.resultLogged;
        result["count"] = reset.resultCount;
    }
    entry["result"] = result;
    entry["requested"] = Array(reset.requested);
    entry[reset.Builtin() ? "installed" : "uninstalled"] = Array(reset.Done());
    entry["failed"] = Array(reset.failed);
    entry["timed_out"] = Array(reset.timedOut);
    entry["start_us"] = Micros(reset.span.startUs);
    entry["end_us"] = Micros(reset.span.endUs);
    entry["apps"] = Json::Value(Json::arrayValue);
    for (const SAppTiming& app : reset.apps) {
        Json::Value item(Json::objectValue);
        item["id"] = app.id;
        item["outcome"] = OutcomeName(app.outcome);
        item["request_us"] = Micros(app.span.startUs);
        item["answer_us"] = Micros(app.span.endUs);
        entry["apps"].append(std::move(item));
    }
    entry["slowest"] = Json::Value(Json::arrayValue);
    for (const SAppTiming* app : Slowest(reset)) {
        Json::Value item(Json::objectValue);
        item["id"] = app->id;
        item["ms"] = Millis(app->span.Us());
        entry["slowest"].append(std::move(item));
    }
    Json::Value waits(Json::objectValue);
    if (reset.Builtin()) {
        entry["refused"] = reset.refused;
        entry["install_order"] = Array(reset.installOrder);
        entry["skipped"] = Reasons(reset.skipped);
        entry["waited_for"] = Array(reset.waitedFor);
        waits["updates_ms"] = Millis(reset.updatesWait.Us());
    } else {
        entry["kept"] = Reasons(reset.kept);
        entry["answered_after_stop"] = Array(reset.stoppedAnswers);
        entry["emptied"] = Array(reset.emptied);
        waits["binder_ms"] = Millis(reset.binderWait.Us());
        waits["clean_up_ms"] = Millis(reset.cleanUp.Us());
    }
    entry["waits"] = std::move(waits);
    entry["history"] = Array(reset.history);
    return entry;
}

}  // namespace

// One reset at a time: the logs of a TV hold thousands, whose document in one piece would cost more
// than reading them.
void CReportPrinter::WriteJson(const std::vector<SResetRecord>& resets, std::ostream& out) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    std::unique_ptr<Json::StreamWriter> writer(builder.newStreamWriter());
    out << "{\n  \"resets\" : [";
    std::ostringstream text;
    for (size_t i = 0; i < resets.size(); ++i) {
        text.str(std::string());
        writer->write(Entry(resets[i]), &text);
        const std::string entry = text.str();
        out << (i == 0 ? "\n    " : ",\n    ");
        size_t from = 0;
        for (size_t newline = entry.find('\n'); newline != std::string::npos;
             newline = entry.find('\n', from)) {
            out.write(entry.data() + from, static_cast<std::streamsize>(newline - from)) << "\n    ";
            from = newline + 1;
        }
        out.write(entry.data() + from, static_cast<std::streamsize>(entry.size() - from));
    }
    out << (resets.empty() ? "]\n}\n" : "\n  ]\n}\n");
}

std::string CReportPrinter::Json(const std::vector<SResetRecord>& resets) {
    std::ostringstream out;
    WriteJson(resets, out);
    return out.str();
}
