// SVG plot of the axis values along a toolpath.
#include "cli/svg_plot.h"

#include <cmath>
#include <string>

namespace k5x_cli {

namespace {

const char* const kAxisNames[6] = {"X", "Y", "Z", "A", "B", "C"};
const char* const kColors[6] = {"#d62728", "#2ca02c", "#1f77b4", "#d62728", "#2ca02c", "#1f77b4"};

const double kWidth = 1000.0;
const double kLeft = 80.0, kRight = 130.0;
const double kPanelHeight = 300.0, kPanelGap = 70.0, kTop = 50.0;

std::string xml_escape(const char* s) {
  std::string out;
  for (; s && *s; ++s) {
    const unsigned char c = static_cast<unsigned char>(*s);
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&apos;"; break;
      default:
        // Control characters are not allowed in XML 1.0 text.
        if (c < 0x20 && c != '\t') out += '?';
        else out += static_cast<char>(c);
    }
  }
  return out;
}

}  // namespace

SvgPlot::Bucket* SvgPlot::slot_bucket() {
  long idx = slots_ / width_;
  if (idx >= kBuckets) {
    halve();
    idx = slots_ / width_;
  }
  if (idx >= used_) {
    Bucket& b = b_[idx];
    for (int k = 0; k < 6; ++k) {
      b.lo[k] = HUGE_VAL;
      b.hi[k] = -HUGE_VAL;
    }
    b.count = 0;
    b.out_of_travel = b.unreachable = false;
    used_ = static_cast<int>(idx) + 1;
  }
  ++slots_;
  return &b_[idx];
}

void SvgPlot::halve() {
  for (int i = 0; 2 * i < used_; ++i) {
    Bucket m = b_[2 * i];
    if (2 * i + 1 < used_) {
      const Bucket& o = b_[2 * i + 1];
      for (int k = 0; k < 6; ++k) {
        if (o.lo[k] < m.lo[k]) m.lo[k] = o.lo[k];
        if (o.hi[k] > m.hi[k]) m.hi[k] = o.hi[k];
      }
      m.count += o.count;
      m.out_of_travel = m.out_of_travel || o.out_of_travel;
      m.unreachable = m.unreachable || o.unreachable;
    }
    b_[i] = m;
  }
  used_ = (used_ + 1) / 2;
  width_ *= 2;
}

void SvgPlot::add_position(const double pos[6], bool out_of_travel) {
  Bucket* b = slot_bucket();
  for (int k = 0; k < 6; ++k) {
    if (!std::isfinite(pos[k])) continue;
    if (pos[k] < b->lo[k]) b->lo[k] = pos[k];
    if (pos[k] > b->hi[k]) b->hi[k] = pos[k];
  }
  ++b->count;
  if (out_of_travel) b->out_of_travel = true;
}

void SvgPlot::add_unreachable() { slot_bucket()->unreachable = true; }

bool SvgPlot::write(std::FILE* f, const char* title, const PlotAxes& axes) const {
  const double plot_w = kWidth - kLeft - kRight;
  const double height = kTop + 2 * kPanelHeight + kPanelGap + 50.0;
  const double span = slots_ > 0 ? static_cast<double>(slots_) : 1.0;
  const std::string t = xml_escape(title);

  std::fprintf(f, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
  std::fprintf(f,
               "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
               "viewBox=\"0 0 %.0f %.0f\" font-family=\"sans-serif\" font-size=\"12\">\n",
               kWidth, height, kWidth, height);
  std::fprintf(f, "<title>%s</title>\n", t.c_str());
  std::fprintf(f, "<rect x=\"0\" y=\"0\" width=\"%.0f\" height=\"%.0f\" fill=\"white\"/>\n", kWidth,
               height);
  std::fprintf(f, "<text x=\"%.1f\" y=\"24\" font-size=\"15\">%s, %ld positions</text>\n", kLeft,
               t.c_str(), slots_);

  for (int panel = 0; panel < 2; ++panel) {
    const int a0 = 3 * panel;
    const double top = kTop + panel * (kPanelHeight + kPanelGap);
    const double bottom = top + kPanelHeight;
    // Value range: the data and the travel limits, so that the limits are always in view.
    double lo = HUGE_VAL, hi = -HUGE_VAL;
    for (int k = a0; k < a0 + 3; ++k) {
      if (!axes.present[k]) continue;
      for (int i = 0; i < used_; ++i) {
        if (b_[i].count == 0) continue;
        if (b_[i].lo[k] < lo) lo = b_[i].lo[k];
        if (b_[i].hi[k] > hi) hi = b_[i].hi[k];
      }
      if (axes.has_min[k] && axes.min[k] < lo) lo = axes.min[k];
      if (axes.has_min[k] && axes.min[k] > hi) hi = axes.min[k];
      if (axes.has_max[k] && axes.max[k] > hi) hi = axes.max[k];
      if (axes.has_max[k] && axes.max[k] < lo) lo = axes.max[k];
    }
    if (!(lo <= hi)) {
      lo = -1.0;
      hi = 1.0;
    }
    if (hi - lo < 1e-9) {
      lo -= 1.0;
      hi += 1.0;
    }
    if (!(hi > lo)) {  // huge values, which a unit does not move
      const double w = 1e-6 * std::fabs(lo);
      lo -= w;
      hi += w;
    }
    const double pad = 0.05 * (hi - lo);
    lo -= pad;
    hi += pad;
    auto ypix = [&](double v) { return bottom - (v - lo) / (hi - lo) * kPanelHeight; };
    auto xpix = [&](double slot) { return kLeft + slot / span * plot_w; };

    std::fprintf(f, "<g id=\"%s\">\n", panel == 0 ? "panel-xyz" : "panel-abc");
    std::fprintf(f, "<text x=\"%.1f\" y=\"%.1f\" font-size=\"13\">%s</text>\n", kLeft, top - 8,
                 panel == 0 ? "X, Y, Z (length)" : "A, B, C (degrees)");
    std::fprintf(f,
                 "<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"none\" "
                 "stroke=\"#888\"/>\n",
                 kLeft, top, plot_w, kPanelHeight);
    // Grid lines on round values: a step of 1, 2 or 5 times a power of ten, about five lines.
    const double raw = (hi - lo) / 5.0;
    const double mag = std::pow(10.0, std::floor(std::log10(raw)));
    const double r = raw / mag;
    const double step = (r < 1.5 ? 1.0 : r < 3.5 ? 2.0 : r < 7.5 ? 5.0 : 10.0) * mag;
    // Counted, not accumulated: at huge values a step may be below the spacing of doubles.
    const double first = std::ceil(lo / step) * step;
    for (int g = 0; g <= 20; ++g) {
      const double v = first + g * step;
      if (!(v <= hi)) break;
      const double y = ypix(v);
      std::fprintf(f,
                   "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#eee\"/>"
                   "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"end\">%.4g</text>\n",
                   kLeft, y, kLeft + plot_w, y, kLeft - 6, y + 4,
                   std::fabs(v) < step * 1e-9 ? 0.0 : v);  // no "-1.1e-13" for zero
    }
    std::fprintf(f, "<text x=\"%.1f\" y=\"%.1f\">0</text>", kLeft, bottom + 16);
    std::fprintf(f, "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"end\">%ld</text>\n", kLeft + plot_w,
                 bottom + 16, slots_);

    for (int k = a0; k < a0 + 3; ++k) {
      if (!axes.present[k]) continue;
      for (int side = 0; side < 2; ++side) {
        const bool has = side == 0 ? axes.has_min[k] : axes.has_max[k];
        if (!has) continue;
        const double y = ypix(side == 0 ? axes.min[k] : axes.max[k]);
        std::fprintf(f,
                     "<line class=\"limit\" x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" "
                     "stroke=\"%s\" stroke-dasharray=\"6,4\"/>"
                     "<text x=\"%.1f\" y=\"%.1f\" fill=\"%s\">%s %s</text>\n",
                     kLeft, y, kLeft + plot_w, y, kColors[k], kLeft + plot_w + 4, y + 4,
                     kColors[k], kAxisNames[k], side == 0 ? "min" : "max");
      }
      std::fprintf(f, "<polyline fill=\"none\" stroke=\"%s\" stroke-width=\"1.2\" points=\"",
                   kColors[k]);
      for (int i = 0; i < used_; ++i) {
        const Bucket& b = b_[i];
        if (b.count == 0 || !std::isfinite(b.lo[k])) continue;
        const double x = xpix((i + 0.5) * static_cast<double>(width_));
        std::fprintf(f, "%.1f,%.1f ", x > kLeft + plot_w ? kLeft + plot_w : x, ypix(b.lo[k]));
        if (b.hi[k] != b.lo[k])
          std::fprintf(f, "%.1f,%.1f ", x > kLeft + plot_w ? kLeft + plot_w : x, ypix(b.hi[k]));
      }
      std::fprintf(f, "\"/>\n");
    }
    // Failures: a strip along the bottom of the panel.
    const double mark_w = plot_w * static_cast<double>(width_) / span;
    for (int i = 0; i < used_; ++i) {
      const Bucket& b = b_[i];
      if (!b.out_of_travel && !b.unreachable) continue;
      const double x = xpix(static_cast<double>(i) * static_cast<double>(width_));
      std::fprintf(f,
                   "<rect class=\"%s\" x=\"%.1f\" y=\"%.1f\" width=\"%.2f\" height=\"8\" "
                   "fill=\"%s\"/>\n",
                   b.unreachable ? "unreachable" : "out-of-travel", x, bottom - 8,
                   mark_w < 1.5 ? 1.5 : mark_w, b.unreachable ? "#c00000" : "#ff9900");
    }
    // Legend.
    double ly = top + 14;
    for (int k = a0; k < a0 + 3; ++k) {
      if (!axes.present[k]) continue;
      std::fprintf(f,
                   "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"%s\" "
                   "stroke-width=\"2\"/><text x=\"%.1f\" y=\"%.1f\">%s</text>\n",
                   kLeft + plot_w + 66, ly - 4, kLeft + plot_w + 86, ly - 4, kColors[k],
                   kLeft + plot_w + 90, ly, kAxisNames[k]);
      ly += 16;
    }
    std::fprintf(f, "</g>\n");
  }
  const double ly = height - 16;
  std::fprintf(f,
               "<rect x=\"%.1f\" y=\"%.1f\" width=\"10\" height=\"8\" fill=\"#ff9900\"/>"
               "<text x=\"%.1f\" y=\"%.1f\">out of travel</text>"
               "<rect x=\"%.1f\" y=\"%.1f\" width=\"10\" height=\"8\" fill=\"#c00000\"/>"
               "<text x=\"%.1f\" y=\"%.1f\">unreachable</text>"
               "<text x=\"%.1f\" y=\"%.1f\">dashed: travel limits</text>\n",
               kLeft, ly - 8, kLeft + 14, ly, kLeft + 120, ly - 8, kLeft + 134, ly, kLeft + 240,
               ly);
  std::fprintf(f, "</svg>\n");
  return std::ferror(f) == 0;
}

}  // namespace k5x_cli
