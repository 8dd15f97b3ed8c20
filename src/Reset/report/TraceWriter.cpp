#include "TraceWriter.h"

#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <sstream>

namespace {

const char kKitTraceFile[] = "tak-reset.trace.json";
// The spans' process in the trace: no process id of a device comes near it.
const int kTimelinePid = 0x7fff0000;

const char* KindName(STimelineSpan::EKind kind) {
    switch (kind) {
        case STimelineSpan::EKind::App:
            return "app";
        case STimelineSpan::EKind::Stage:
            return "stage";
        case STimelineSpan::EKind::Wait:
            return "wait";
    }
    return "stage";
}

Json::Value Metadata(const char* name, int tid, const Json::Value& args) {
    Json::Value event(Json::objectValue);
    event["name"] = name;
    event["ph"] = "M";
    event["pid"] = kTimelinePid;
    event["tid"] = tid;
    event["args"] = args;
    return event;
}

bool Parse(const std::string& text, Json::Value& value) {
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    return reader->parse(text.data(), text.data() + text.size(), &value, &errors);
}

// The array format as the kit writes it: "[", then one event a line, each followed by a comma.
Json::Value EventsOfLines(const std::string& text) {
    Json::Value events(Json::arrayValue);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        size_t last = line.find_last_not_of(", \t\r");
        Json::Value event;
        if (last != std::string::npos && Parse(line.substr(0, last + 1), event) && event.isObject()) {
            events.append(event);
        }
    }
    return events;
}

}  // namespace

CTraceWriter::CTraceWriter() : m_document(Json::objectValue), m_traced(Json::arrayValue) {
    m_document["traceEvents"] = Json::Value(Json::arrayValue);
    m_document["displayTimeUnit"] = "ms";
    Json::Value args(Json::objectValue);
    args["name"] = "tak-reset resets (from the logs)";
    m_document["traceEvents"].append(Metadata("process_name", 0, args));
}

std::string CTraceWriter::KitTraceIn(const std::string& where) {
    std::string direct = where + "/" + kKitTraceFile;
    struct stat info {};
    return stat(direct.c_str(), &info) == 0 && S_ISREG(info.st_mode) ? direct
                                                                     : where + "/var/log/" + kKitTraceFile;
}

// Rows become threads of the spans' process, numbered in the order they first come, and shown so.
int CTraceWriter::RowThread(const std::string& row) {
    auto known = m_rowThreads.find(row);
    if (known != m_rowThreads.end()) {
        return known->second;
    }
    int tid = static_cast<int>(m_rowThreads.size()) + 1;
    m_rowThreads[row] = tid;
    Json::Value name(Json::objectValue);
    name["name"] = row;
    m_document["traceEvents"].append(Metadata("thread_name", tid, name));
    Json::Value order(Json::objectValue);
    order["sort_index"] = tid;
    m_document["traceEvents"].append(Metadata("thread_sort_index", tid, order));
    return tid;
}

void CTraceWriter::AddSpans(const std::vector<STimelineSpan>& spans) {
    for (const STimelineSpan& span : spans) {
        Json::Value event(Json::objectValue);
        event["name"] = span.label;
        event["cat"] = KindName(span.kind);
        event["ph"] = "X";
        event["pid"] = kTimelinePid;
        event["tid"] = RowThread(span.row);
        event["ts"] = static_cast<Json::Int64>(span.startUs);
        event["dur"] = static_cast<Json::Int64>(span.endUs > span.startUs ? span.endUs - span.startUs : 0);
        m_document["traceEvents"].append(event);
    }
}

bool CTraceWriter::AddEvents(const Json::Value& events) {
    size_t added = 0;
    for (const Json::Value& event : events) {
        if (event.isObject() && event.isMember("ph")) {
            m_document["traceEvents"].append(event);
            m_traced.append(event);
            ++added;
        }
    }
    return added > 0;
}

bool CTraceWriter::AddTraceFile(const std::string& path) {
    g_autofree gchar* contents = nullptr;
    gsize length = 0;
    g_autoptr(GError) error = nullptr;
    if (!g_file_get_contents(path.c_str(), &contents, &length, &error)) {
        g_printerr("tak-reset-report: cannot read the trace %s: %s\n", path.c_str(), error->message);
        return false;
    }
    std::string text(contents, length);
    Json::Value whole;
    bool added = false;
    if (Parse(text, whole) && whole.isObject() && whole["traceEvents"].isArray()) {
        added = AddEvents(whole["traceEvents"]);
    } else if (Parse(text, whole) && whole.isArray()) {
        added = AddEvents(whole);
    } else {
        added = AddEvents(EventsOfLines(text));
    }
    if (!added) {
        g_printerr("tak-reset-report: the trace %s holds no trace events\n", path.c_str());
    }
    return added;
}

bool CTraceWriter::Write(const std::string& path) const {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    std::string text = Json::writeString(builder, m_document) + "\n";
    g_autoptr(GError) error = nullptr;
    if (!g_file_set_contents(path.c_str(), text.data(), static_cast<gssize>(text.size()), &error)) {
        g_printerr("tak-reset-report: cannot write the trace %s: %s\n", path.c_str(), error->message);
        return false;
    }
    return true;
}

std::vector<STimelineSpan> CTraceWriter::TracedSpans() const {
    std::vector<const Json::Value*> events;
    int64_t lastUs = 0;
    for (const Json::Value& event : m_traced) {
        const std::string phase = event["ph"].asString();
        if ((phase == "B" || phase == "E") && event["ts"].isIntegral()) {
            events.push_back(&event);
            lastUs = std::max<int64_t>(lastUs, event["ts"].asInt64());
        }
    }
    // Files of several processes, merged: each thread's events in its own order of time.
    std::stable_sort(events.begin(), events.end(), [](const Json::Value* a, const Json::Value* b) {
        return (*a)["ts"].asInt64() < (*b)["ts"].asInt64();
    });
    std::vector<STimelineSpan> spans;
    std::map<std::pair<Json::Int64, Json::Int64>, std::vector<STimelineSpan>> open;  // (pid, tid) -> begun
    for (const Json::Value* event : events) {
        std::vector<STimelineSpan>& begun = open[{(*event)["pid"].asInt64(), (*event)["tid"].asInt64()}];
        if ((*event)["ph"].asString() == "B") {
            std::string name = (*event)["name"].asString();
            begun.push_back({name, name, (*event)["ts"].asInt64(), 0, STimelineSpan::EKind::Stage});
        } else if (!begun.empty()) {
            begun.back().endUs = (*event)["ts"].asInt64();
            spans.push_back(begun.back());
            begun.pop_back();
        }
    }
    for (auto& [thread, begun] : open) {
        for (STimelineSpan& span : begun) {
            span.endUs = lastUs;
            spans.push_back(span);
        }
    }
    std::stable_sort(spans.begin(), spans.end(),
                     [](const STimelineSpan& a, const STimelineSpan& b) { return a.startUs < b.startUs; });
    return spans;
}
