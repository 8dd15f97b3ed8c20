// The timeline drawn with cairo, as PNG or SVG by the file's extension: one row per reset, stage and app
// (label on the left, cut to fit), a time axis in seconds or milliseconds from the first span, app and
// stage bars in their colours, waits hatched, and a legend. Rows get thinner as they grow in number, so
// that a few hundred still fit one picture.
#pragma once

#include <cairo.h>

#include <cstdint>
#include <string>
#include <vector>

#include "TimelineSpan.h"

class CTimelinePicture {
public:
    struct SBox {
        double x, y, width, height;
    };
    struct SColour {
        int red, green, blue;  // 0 to 255
    };

    explicit CTimelinePicture(std::vector<STimelineSpan> spans);

    // False, with one line on standard error, for an extension other than .png or .svg (nothing is
    // written then) or a file that cannot be written.
    bool Write(const std::string& path) const;
    // True for a name Write takes: ending in .png or .svg, in any case. For a check before any work.
    static bool IsPictureName(const std::string& path);

    int Width() const { return m_width; }
    int Height() const { return m_height; }
    size_t Rows() const { return m_rows.size(); }
    // Where span `index` (in the order given) is drawn.
    SBox BarOf(size_t index) const;
    // The colour of a bar of that kind (a wait's, under its hatching).
    static SColour ColourOf(STimelineSpan::EKind kind);

private:
    void Draw(cairo_t* cairo) const;
    void DrawHeader(cairo_t* cairo) const;
    void DrawAxis(cairo_t* cairo) const;
    void DrawRows(cairo_t* cairo) const;
    void DrawBar(cairo_t* cairo, const STimelineSpan& span, const SBox& box) const;
    double XOf(int64_t micros) const;

    std::vector<STimelineSpan> m_spans;
    std::vector<std::string> m_rows;  // in the order they first come
    std::vector<size_t> m_rowOf;      // per span
    int64_t m_firstUs = 0;
    int64_t m_lastUs = 0;
    double m_rowHeight = 0;
    int m_width = 0;
    int m_height = 0;
};
