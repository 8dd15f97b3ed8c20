#include "TimelinePicture.h"

#include <cairo-svg.h>
#include <glib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>

namespace {

const int kWidth = 1200;
const double kLabelWidth = 280;  // row labels, left of the plot
const double kPlotLeft = kLabelWidth + 10;
const double kPlotRight = kWidth - 20;
const double kTop = 76;     // title, legend and axis labels above the rows
const double kBottom = 24;  // below the rows
const double kMaxRowHeight = 20;
const double kMinRowHeight = 3;
const double kMaxRowsHeight = 30000;  // an image surface is at most 32767 pixels high
const double kMinBarWidth = 1.5;      // a moment stays visible
const double kMaxFont = 12;
const double kMinFont = 5;  // below that, rows carry no text

struct SRgb {
    double red, green, blue;
};

SRgb Rgb(const CTimelinePicture::SColour& colour) {
    return {colour.red / 255.0, colour.green / 255.0, colour.blue / 255.0};
}

void SetColour(cairo_t* cairo, const SRgb& colour) {
    cairo_set_source_rgb(cairo, colour.red, colour.green, colour.blue);
}

const SRgb kText = {0.1, 0.1, 0.1};
const SRgb kGrid = {0.85, 0.85, 0.85};
const SRgb kStripe = {0.96, 0.96, 0.96};
const SRgb kHatch = {0.55, 0.30, 0.0};

// `text` cut to `width` with an ellipsis.
std::string Fitted(cairo_t* cairo, const std::string& text, double width) {
    cairo_text_extents_t extents;
    cairo_text_extents(cairo, text.c_str(), &extents);
    if (extents.x_advance <= width) {
        return text;
    }
    std::string cut = text;
    while (!cut.empty()) {
        // Whole characters only: the text is UTF-8.
        const char* end = g_utf8_find_prev_char(cut.c_str(), cut.c_str() + cut.size());
        cut.resize(end == nullptr ? 0 : static_cast<size_t>(end - cut.c_str()));
        std::string candidate = cut + "\u2026";
        cairo_text_extents(cairo, candidate.c_str(), &extents);
        if (extents.x_advance <= width) {
            return candidate;
        }
    }
    return "";
}

void Text(cairo_t* cairo, double x, double y, const std::string& text) {
    SetColour(cairo, kText);
    cairo_move_to(cairo, x, y);
    cairo_show_text(cairo, text.c_str());
}

// A step of 1, 2 or 5 times a power of ten giving about `wanted` ticks over `range` microseconds.
int64_t TickStep(int64_t range, int wanted) {
    double raw = static_cast<double>(std::max<int64_t>(range, 1)) / wanted;
    double power = std::pow(10.0, std::floor(std::log10(raw)));
    for (double factor : {1.0, 2.0, 5.0, 10.0}) {
        if (factor * power >= raw) {
            return std::max<int64_t>(1, static_cast<int64_t>(factor * power));
        }
    }
    return static_cast<int64_t>(10 * power);
}

std::string TickText(int64_t micros, int64_t step) {
    char text[32];
    if (step >= G_USEC_PER_SEC) {
        snprintf(text, sizeof(text), "%g s", static_cast<double>(micros) / G_USEC_PER_SEC);
    } else {
        snprintf(text, sizeof(text), "%g ms", static_cast<double>(micros) / 1000.0);
    }
    return text;
}

bool EndsWith(const std::string& text, const char* suffix) {
    std::string lower = text;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return g_ascii_tolower(c); });
    const size_t n = strlen(suffix);
    return lower.size() > n && lower.compare(lower.size() - n, n, suffix) == 0;
}

}  // namespace

CTimelinePicture::CTimelinePicture(std::vector<STimelineSpan> spans) : m_spans(std::move(spans)) {
    std::map<std::string, size_t> rowIndex;
    for (size_t i = 0; i < m_spans.size(); ++i) {
        const STimelineSpan& span = m_spans[i];
        auto [row, added] = rowIndex.emplace(span.row, m_rows.size());
        if (added) {
            m_rows.push_back(span.row);
        }
        m_rowOf.push_back(row->second);
        m_firstUs = i == 0 ? span.startUs : std::min(m_firstUs, span.startUs);
        m_lastUs =
            i == 0 ? std::max(span.startUs, span.endUs) : std::max({m_lastUs, span.startUs, span.endUs});
    }
    double rows = static_cast<double>(std::max<size_t>(m_rows.size(), 1));
    m_rowHeight = std::clamp(std::floor(kMaxRowsHeight / rows), kMinRowHeight, kMaxRowHeight);
    m_width = kWidth;
    m_height = static_cast<int>(kTop + m_rowHeight * rows + kBottom);
}

CTimelinePicture::SColour CTimelinePicture::ColourOf(STimelineSpan::EKind kind) {
    switch (kind) {
        case STimelineSpan::EKind::App:
            return {66, 133, 244};
        case STimelineSpan::EKind::Stage:
            return {52, 168, 83};
        case STimelineSpan::EKind::Wait:
            return {251, 188, 5};
    }
    return {128, 128, 128};
}

double CTimelinePicture::XOf(int64_t micros) const {
    double range = static_cast<double>(std::max<int64_t>(m_lastUs - m_firstUs, 1));
    return kPlotLeft + static_cast<double>(micros - m_firstUs) / range * (kPlotRight - kPlotLeft);
}

CTimelinePicture::SBox CTimelinePicture::BarOf(size_t index) const {
    const STimelineSpan& span = m_spans.at(index);
    double pad = m_rowHeight >= 10 ? 2 : 0.5;
    double x = XOf(span.startUs);
    double width = std::max(kMinBarWidth, XOf(std::max(span.endUs, span.startUs)) - x);
    return {x, kTop + static_cast<double>(m_rowOf[index]) * m_rowHeight + pad, width, m_rowHeight - 2 * pad};
}

bool CTimelinePicture::IsPictureName(const std::string& path) {
    return EndsWith(path, ".png") || EndsWith(path, ".svg");
}

bool CTimelinePicture::Write(const std::string& path) const {
    const bool png = EndsWith(path, ".png");
    if (!IsPictureName(path)) {
        g_printerr("tak-reset-report: %s: the picture is a .png or an .svg file\n", path.c_str());
        return false;
    }
    cairo_surface_t* surface = png ? cairo_image_surface_create(CAIRO_FORMAT_RGB24, m_width, m_height)
                                   : cairo_svg_surface_create(path.c_str(), m_width, m_height);
    cairo_t* cairo = cairo_create(surface);
    Draw(cairo);
    cairo_destroy(cairo);
    cairo_status_t status = png ? cairo_surface_write_to_png(surface, path.c_str()) : CAIRO_STATUS_SUCCESS;
    cairo_surface_finish(surface);
    if (status == CAIRO_STATUS_SUCCESS) {
        status = cairo_surface_status(surface);
    }
    cairo_surface_destroy(surface);
    if (status != CAIRO_STATUS_SUCCESS) {
        g_printerr("tak-reset-report: cannot write the picture %s: %s\n", path.c_str(),
                   cairo_status_to_string(status));
        return false;
    }
    return true;
}

void CTimelinePicture::Draw(cairo_t* cairo) const {
    cairo_set_source_rgb(cairo, 1, 1, 1);
    cairo_paint(cairo);
    cairo_select_font_face(cairo, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    DrawHeader(cairo);
    DrawAxis(cairo);
    DrawRows(cairo);
}

// The title with the time of the first span and the length of the whole, and the legend.
void CTimelinePicture::DrawHeader(cairo_t* cairo) const {
    cairo_set_font_size(cairo, 14);
    std::string title = "tak-reset timeline";
    if (!m_spans.empty()) {
        g_autoptr(GDateTime) first = g_date_time_new_from_unix_local(m_firstUs / G_USEC_PER_SEC);
        g_autofree gchar* when = first != nullptr ? g_date_time_format(first, "%Y-%m-%d %H:%M:%S") : nullptr;
        char length[64];
        snprintf(length, sizeof(length), "%.3f s",
                 static_cast<double>(m_lastUs - m_firstUs) / G_USEC_PER_SEC);
        title += std::string(": ") + std::to_string(m_rows.size()) + " rows from " + (when ? when : "?") +
                 ", " + length;
    } else {
        title += ": nothing to show";
    }
    Text(cairo, 10, 20, title);

    const std::pair<STimelineSpan::EKind, const char*> kLegend[] = {
        {STimelineSpan::EKind::Stage, "reset or stage"},
        {STimelineSpan::EKind::App, "app, request to answer"},
        {STimelineSpan::EKind::Wait, "wait (no answer, time-out, open)"},
    };
    cairo_set_font_size(cairo, kMaxFont);
    double x = 10;
    for (const auto& [kind, text] : kLegend) {
        STimelineSpan sample;
        sample.kind = kind;
        DrawBar(cairo, sample, {x, 30, 24, 12});
        Text(cairo, x + 30, 40, text);
        cairo_text_extents_t extents;
        cairo_text_extents(cairo, text, &extents);
        x += 30 + extents.x_advance + 24;
    }
}

// Ticks with their times from the first span, and a light line down through the rows at each.
void CTimelinePicture::DrawAxis(cairo_t* cairo) const {
    const double rowsBottom = m_height - kBottom;
    cairo_set_font_size(cairo, 10);
    cairo_set_line_width(cairo, 1);
    const int64_t range = m_lastUs - m_firstUs;
    const int64_t step = TickStep(range, 8);
    for (int64_t at = 0; at <= range; at += step) {
        double x = std::round(XOf(m_firstUs + at)) + 0.5;
        SetColour(cairo, kGrid);
        cairo_move_to(cairo, x, kTop - 4);
        cairo_line_to(cairo, x, rowsBottom);
        cairo_stroke(cairo);
        std::string text = TickText(at, step);
        cairo_text_extents_t extents;
        cairo_text_extents(cairo, text.c_str(), &extents);
        Text(cairo, x - extents.x_advance / 2, kTop - 8, text);
    }
    SetColour(cairo, kText);
    cairo_move_to(cairo, kPlotLeft, rowsBottom + 0.5);
    cairo_line_to(cairo, kPlotRight, rowsBottom + 0.5);
    cairo_stroke(cairo);
}

void CTimelinePicture::DrawRows(cairo_t* cairo) const {
    const double font = std::min(kMaxFont, m_rowHeight - 4);
    cairo_set_font_size(cairo, std::max(font, 1.0));
    for (size_t row = 0; row < m_rows.size(); ++row) {
        const double y = kTop + static_cast<double>(row) * m_rowHeight;
        if (row % 2 == 1) {
            SetColour(cairo, kStripe);
            cairo_rectangle(cairo, 0, y, m_width, m_rowHeight);
            cairo_fill(cairo);
        }
        if (font >= kMinFont) {
            Text(cairo, 6, y + m_rowHeight / 2 + font / 3, Fitted(cairo, m_rows[row], kLabelWidth - 6));
        }
    }
    for (size_t i = 0; i < m_spans.size(); ++i) {
        SBox box = BarOf(i);
        DrawBar(cairo, m_spans[i], box);
        std::string label = m_spans[i].label;
        if (font >= kMinFont && box.width > 24) {
            std::string fitted = Fitted(cairo, label, box.width - 6);
            if (!fitted.empty()) {
                Text(cairo, box.x + 3, box.y + box.height / 2 + font / 3, fitted);
            }
        }
    }
}

// One filled rectangle in the kind's colour; a wait hatched over it.
void CTimelinePicture::DrawBar(cairo_t* cairo, const STimelineSpan& span, const SBox& box) const {
    SetColour(cairo, Rgb(ColourOf(span.kind)));
    cairo_rectangle(cairo, box.x, box.y, box.width, box.height);
    cairo_fill(cairo);
    if (span.kind != STimelineSpan::EKind::Wait || box.width < 4) {
        return;
    }
    cairo_save(cairo);
    cairo_rectangle(cairo, box.x, box.y, box.width, box.height);
    cairo_clip(cairo);
    SetColour(cairo, kHatch);
    cairo_set_line_width(cairo, 1);
    for (double x = box.x - box.height; x < box.x + box.width; x += 6) {
        cairo_move_to(cairo, x, box.y + box.height);
        cairo_line_to(cairo, x + box.height, box.y);
    }
    cairo_stroke(cairo);
    cairo_restore(cairo);
}
