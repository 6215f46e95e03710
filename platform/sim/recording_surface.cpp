// The recording picture control.
#include "varnek/platform/sim/recording_surface.h"

#include <cstdio>

namespace varnek {

namespace {

std::string Num(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.9g", value);
  return buffer;
}

}  // namespace

RecordingSurface::RecordingSurface(double width_px, double height_px, double border_px,
                                   double char_width, double text_height)
    : width_(width_px),
      height_(height_px),
      border_(border_px),
      char_width_(char_width),
      text_height_(text_height) {}

void RecordingSurface::SetScalePixels() { calls.push_back("scale pixels"); }
void RecordingSurface::Clear() { calls.push_back("clear"); }
void RecordingSurface::RemovePicture() {
  picture_.clear();
  calls.push_back("remove picture");
}

void RecordingSurface::SetOuterWidth(double twips) {
  width_ = twips / 15 - 2 * border_;
  calls.push_back("width " + Num(twips));
}

void RecordingSurface::FillBox(double x1, double y1, double x2, double y2, int32_t colour) {
  char hex[8];
  std::snprintf(hex, sizeof hex, "%06X", static_cast<unsigned>(colour) & 0xFFFFFFu);
  calls.push_back("box " + Num(x1) + " " + Num(y1) + " " + Num(x2) + " " + Num(y2) + " " + hex);
}

void RecordingSurface::SetTextPosition(double x, double y) {
  calls.push_back("at " + Num(x) + " " + Num(y));
}

void RecordingSurface::Print(const Text& text) { calls.push_back("print " + TextToUtf8(text)); }

void RecordingSurface::FixPicture() {
  picture_.clear();
  for (const std::string& call : calls) picture_ += call + "\n";
  calls.push_back("fix picture");
}

}  // namespace varnek
