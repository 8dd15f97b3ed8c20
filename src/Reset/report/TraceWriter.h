// The timeline as one Chrome trace-event file, which Perfetto and chrome://tracing open: each span a
// complete ("X") event on a thread named after its row, merged with the events the platform's tracing
// markers wrote while the resets ran (tak-reset.trace.json of the kit's root).
#pragma once

#include <json/json.h>

#include <map>
#include <string>
#include <vector>

#include "TimelineSpan.h"

class CTraceWriter {
public:
    CTraceWriter();

    void AddSpans(const std::vector<STimelineSpan>& spans);
    // The events of a trace file in the array format, its closing bracket missing or not (a process
    // that died while tracing), or in the object format ("traceEvents"). Lines that are no event are left
    // out. False, with one line on standard error, when the file cannot be read or holds no event.
    bool AddTraceFile(const std::string& path);

    // The begin/end pairs of the trace files added, as stage spans on a row per name: a pair is matched
    // on its own process and thread, innermost first; a begin never ended lasts to the files' last event.
    std::vector<STimelineSpan> TracedSpans() const;

    const Json::Value& Document() const { return m_document; }
    // False, with one line on standard error, when the file cannot be written.
    bool Write(const std::string& path) const;

    // The kit's trace file below a root, or directly in a directory of pulled logs.
    static std::string KitTraceIn(const std::string& where);

private:
    int RowThread(const std::string& row);
    bool AddEvents(const Json::Value& events);

    Json::Value m_document;
    Json::Value m_traced;  // the events of the trace files added
    std::map<std::string, int> m_rowThreads;
};
