// tak-reset-report [--json] [--last] [--trace FILE] [--picture FILE] ROOT|LOGDIR: every reset that the
// logs of tak-reset show, newest last, from a root of the host kit or from a directory holding
// tak-reset.log and tak_reset_history.log; on request their timeline as a Chrome trace or a picture.
//
// Exit status: 0 when every reset shown reported a result, 1 when one did not, 2 on bad input.
#include <glib.h>
#include <glib/gstdio.h>

#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "ReportPrinter.h"
#include "ResetReport.h"
#include "ResetTimeline.h"
#include "TimelinePicture.h"
#include "TraceWriter.h"

namespace {

const int kExitUnreported = 1;
const int kExitBadInput = 2;

int BadInput(const std::string& message) {
    g_printerr("tak-reset-report: %s\n", message.c_str());
    return kExitBadInput;
}

// The platform log carries no year: take the year its file was last written in, which a log pulled from
// a TV keeps, and the current one when that cannot be read.
int LogYear(const std::string& where) {
    GStatBuf info;
    const bool known = g_stat(CResetReport::PlatformLogIn(where).c_str(), &info) == 0;
    g_autoptr(GDateTime) written =
        known ? g_date_time_new_from_unix_local(info.st_mtime) : g_date_time_new_now_local();
    return g_date_time_get_year(written);
}

// The resets' timeline, with the kit's own trace events when the root has them, into a Chrome trace file
// and a picture, whichever is asked for.
bool WriteTimeline(const std::vector<SResetRecord>& resets, const std::string& where, const gchar* traceFile,
                   const gchar* pictureFile) {
    std::vector<STimelineSpan> spans = CResetTimeline::FromResets(resets, LogYear(where));
    CResetTimeline::AddDetails(spans, resets);
    CTraceWriter writer;
    writer.AddSpans(spans);
    std::string kit = CTraceWriter::KitTraceIn(where);
    if (g_file_test(kit.c_str(), G_FILE_TEST_EXISTS) && writer.AddTraceFile(kit)) {
        std::vector<STimelineSpan> traced = writer.TracedSpans();
        spans.insert(spans.end(), traced.begin(), traced.end());
    }
    if (traceFile != nullptr && !writer.Write(traceFile)) {
        return false;
    }
    return pictureFile == nullptr || CTimelinePicture(spans).Write(pictureFile);
}

}  // namespace

int main(int argc, char** argv) {
    gboolean json = FALSE;
    gboolean last = FALSE;
    g_autofree gchar* traceFile = nullptr;
    g_autofree gchar* pictureFile = nullptr;
    GOptionEntry entries[] = {
        {"json", 0, 0, G_OPTION_ARG_NONE, &json, "Print the resets as one JSON document", nullptr},
        {"last", 0, 0, G_OPTION_ARG_NONE, &last, "Only the last reset", nullptr},
        {"trace", 0, 0, G_OPTION_ARG_FILENAME, &traceFile,
         "Also write the timeline as a Chrome trace (Perfetto, chrome://tracing)", "FILE"},
        {"picture", 0, 0, G_OPTION_ARG_FILENAME, &pictureFile,
         "Also draw the timeline into FILE.png or FILE.svg", "FILE"},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
    };
    g_autoptr(GOptionContext) context = g_option_context_new("ROOT|LOGDIR - what each reset did");
    g_option_context_set_summary(
        context,
        "Reads the platform log and the history log of tak-reset (under ROOT/var/log "
        "and the service's log directory,\nor side by side in LOGDIR) and shows each "
        "reset: kind, caller, times, result and apps.");
    g_option_context_add_main_entries(context, entries, nullptr);
    g_autoptr(GError) error = nullptr;
    if (!g_option_context_parse(context, &argc, &argv, &error)) {
        return BadInput(error->message);
    }
    if (argc != 2) {
        return BadInput("one ROOT or LOGDIR is needed (see --help)");
    }
    if (pictureFile != nullptr && !CTimelinePicture::IsPictureName(pictureFile)) {
        return BadInput(std::string("--picture ") + pictureFile + ": the name must end in .png or .svg");
    }
    CResetReport report;
    std::string problem;
    if (!report.Read(argv[1], problem)) {
        return BadInput(problem);
    }
    if (report.Unreadable() + report.Foreign() + report.Repaired() > 0) {
        std::string repaired = report.Repaired() == 0 ? std::string()
                                                      : ", " + std::to_string(report.Repaired()) +
                                                            " were read with U+FFFD for bytes not UTF-8";
        g_printerr("tak-reset-report: %zu lines could not be read, %zu were of another process%s\n",
                   report.Unreadable(), report.Foreign(), repaired.c_str());
    }
    const std::vector<SResetRecord>& all = report.Resets();
    std::vector<SResetRecord> newest;
    if (last && all.size() > 1) {
        newest.push_back(all.back());
    }
    const std::vector<SResetRecord>& resets = newest.empty() ? all : newest;
    if (json) {
        std::ios::sync_with_stdio(false);
        CReportPrinter::WriteJson(resets, std::cout);
        std::cout.flush();
    } else {
        std::string text = CReportPrinter::Text(resets, all.size() - resets.size() + 1);
        fwrite(text.data(), 1, text.size(), stdout);
    }
    if ((traceFile != nullptr || pictureFile != nullptr) &&
        !WriteTimeline(resets, argv[1], traceFile, pictureFile)) {
        return kExitBadInput;  // the writer said why
    }
    for (const SResetRecord& reset : resets) {
        if (reset.resultName.empty()) {
            return kExitUnreported;
        }
    }
    return 0;
}
