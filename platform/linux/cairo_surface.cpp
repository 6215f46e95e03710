// The Cairo picture control: a canvas that grows to the right as boxes are
// drawn past it, cut to the control's size when the picture is fixed.
#include "varnek/platform/linux/internal/cairo_surface.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>

#include "varnek/runtime/failure.h"

namespace varnek {

namespace {

constexpr int32_t kErrNoImage = 480;  // Can't create AutoRedraw image
constexpr double kFontPixels = 13;
constexpr int32_t kMaxCanvas = 32767;  // pixels either way

cairo_surface_t* NewCanvas(int32_t width, int32_t height) {
  cairo_surface_t* s = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
  if (cairo_surface_status(s) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(s);
    Fail(kErrNoImage, "Can't create AutoRedraw image");
  }
  cairo_t* cr = cairo_create(s);
  cairo_set_source_rgb(cr, 1, 1, 1);
  cairo_paint(cr);
  cairo_destroy(cr);
  return s;
}

void SetColour(cairo_t* cr, int32_t colour) {
  cairo_set_source_rgb(cr, ((colour >> 16) & 0xFF) / 255.0, ((colour >> 8) & 0xFF) / 255.0,
                       (colour & 0xFF) / 255.0);
}

cairo_status_t AppendBytes(void* closure, const unsigned char* data, unsigned int length) {
  static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
  return CAIRO_STATUS_SUCCESS;
}

int32_t ClampPixels(double value) {
  if (!(value >= 1)) return 1;
  return value > kMaxCanvas ? kMaxCanvas : static_cast<int32_t>(std::lround(value));
}

}  // namespace

CairoSurface::CairoSurface(int32_t width_px, int32_t height_px)
    : width_(ClampPixels(width_px)), height_(ClampPixels(height_px)) {
  EnsureCanvas(width_);
}

CairoSurface::~CairoSurface() {
  if (canvas_) cairo_surface_destroy(canvas_);
}

void CairoSurface::EnsureCanvas(int32_t width_px) {
  width_px = std::min(width_px, kMaxCanvas);
  if (canvas_ && width_px <= canvas_width_) return;
  // Doubling keeps a long run of bars linear.
  int32_t grown = std::min(std::max(width_px, canvas_width_ * 2), kMaxCanvas);
  cairo_surface_t* next = NewCanvas(grown, height_);
  if (canvas_) {
    cairo_t* cr = cairo_create(next);
    cairo_set_source_surface(cr, canvas_, 0, 0);
    cairo_paint(cr);
    cairo_destroy(cr);
    cairo_surface_destroy(canvas_);
  }
  canvas_ = next;
  canvas_width_ = grown;
}

void CairoSurface::Clear() {
  cairo_t* cr = cairo_create(canvas_);
  cairo_set_source_rgb(cr, 1, 1, 1);
  cairo_paint(cr);
  cairo_destroy(cr);
  text_x_ = text_y_ = 0;
}

void CairoSurface::SetOuterWidth(double twips) {
  width_ = ClampPixels(twips / 15.0);
  EnsureCanvas(width_);
}

void CairoSurface::SetFont(cairo_t* cr) const {
  cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr, kFontPixels);
}

double CairoSurface::TextWidth(const Text& text) {
  cairo_t* cr = cairo_create(canvas_);
  SetFont(cr);
  cairo_text_extents_t extents;
  cairo_text_extents(cr, TextToUtf8(text).c_str(), &extents);
  cairo_destroy(cr);
  return std::ceil(extents.x_advance);
}

double CairoSurface::TextHeight(const Text&) {
  cairo_t* cr = cairo_create(canvas_);
  SetFont(cr);
  cairo_font_extents_t extents;
  cairo_font_extents(cr, &extents);
  cairo_destroy(cr);
  return std::ceil(extents.ascent + extents.descent);
}

void CairoSurface::FillBox(double x1, double y1, double x2, double y2, int32_t colour) {
  double left = std::min(x1, x2), right = std::max(x1, x2);
  if (right > canvas_width_) EnsureCanvas(static_cast<int32_t>(std::ceil(std::min(right, 1e9))));
  cairo_t* cr = cairo_create(canvas_);
  cairo_set_antialias(cr, CAIRO_ANTIALIAS_NONE);
  SetColour(cr, colour);
  cairo_rectangle(cr, left, std::min(y1, y2), right - left, std::fabs(y2 - y1));
  cairo_fill(cr);
  cairo_destroy(cr);
}

void CairoSurface::Print(const Text& text) {
  cairo_t* cr = cairo_create(canvas_);
  SetFont(cr);
  cairo_font_extents_t font;
  cairo_font_extents(cr, &font);
  cairo_set_source_rgb(cr, 0, 0, 0);
  cairo_move_to(cr, text_x_, text_y_ + font.ascent);
  cairo_show_text(cr, TextToUtf8(text).c_str());
  cairo_destroy(cr);
  // The next print starts on the line below, at the left.
  text_x_ = 0;
  text_y_ += std::ceil(font.ascent + font.descent);
}

void CairoSurface::FixPicture() {
  cairo_surface_t* shown = NewCanvas(width_, height_);
  cairo_t* cr = cairo_create(shown);
  cairo_set_source_surface(cr, canvas_, 0, 0);
  cairo_paint(cr);
  cairo_destroy(cr);
  std::string png;
  cairo_status_t status = cairo_surface_write_to_png_stream(shown, AppendBytes, &png);
  cairo_surface_destroy(shown);
  if (status != CAIRO_STATUS_SUCCESS) Fail(kErrOutOfMemory);
  picture_ = std::move(png);
}

}  // namespace varnek

// Cairo's font faces keep fontconfig patterns in process-wide caches that are
// never freed; under the leak checker they would fail every program that
// prints text. Only that library's allocations are passed over.
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }
