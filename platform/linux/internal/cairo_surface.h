// The Linux picture control: a Cairo image surface in memory, written out as
// PNG when the drawing is fixed. Text is set in a sans-serif face of 13 px.
// The canvas is at most 32767 pixels either way; drawing past that is lost.
#pragma once

#include <memory>
#include <string>

#include "varnek/platform/drawing_surface.h"

typedef struct _cairo_surface cairo_surface_t;
typedef struct _cairo cairo_t;

namespace varnek {

class CairoSurface : public DrawingSurface {
 public:
  // A control of width x height pixels, at least 1 x 1; no border.
  CairoSurface(int32_t width_px, int32_t height_px);
  ~CairoSurface() override;

  void SetScalePixels() override {}
  void Clear() override;
  void RemovePicture() override { picture_.clear(); }
  double ScaleLeft() const override { return 0; }
  double ScaleTop() const override { return 0; }
  double ScaleWidth() const override { return width_; }
  double ScaleHeight() const override { return height_; }
  double OuterWidth() const override { return width_ * 15.0; }
  void SetOuterWidth(double twips) override;
  double TextWidth(const Text& text) override;
  double TextHeight(const Text& text) override;
  void FillBox(double x1, double y1, double x2, double y2, int32_t colour) override;
  void SetTextPosition(double x, double y) override {
    text_x_ = x;
    text_y_ = y;
  }
  void Print(const Text& text) override;
  void FixPicture() override;
  std::string Picture() const override { return picture_; }

 private:
  // Makes the canvas at least this wide, keeping what is drawn.
  void EnsureCanvas(int32_t width_px);
  void SetFont(cairo_t* cr) const;

  int32_t width_, height_;
  int32_t canvas_width_ = 0;
  cairo_surface_t* canvas_ = nullptr;
  double text_x_ = 0, text_y_ = 0;
  std::string picture_;
};

class CairoSurfaceFactory : public SurfaceFactory {
 public:
  std::unique_ptr<DrawingSurface> Create(int32_t width_px, int32_t height_px) override {
    return std::make_unique<CairoSurface>(width_px, height_px);
  }
};

}  // namespace varnek
