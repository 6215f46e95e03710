// A picture control for tests: it keeps every drawing call as a line of text
// and measures text at fixed sizes, so the arithmetic of a drawing can be
// checked exactly. A border makes the outer width differ from the scale width.
//
//   RecordingSurface box(300, 100);      // scale area 300 x 100 px
//   box.FillBox(0, 0, 2, 80, 0);         // calls: "box 0 0 2 80 000000"
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "varnek/platform/drawing_surface.h"

namespace varnek {

class RecordingSurface : public DrawingSurface {
 public:
  // A scale area of width x height pixels inside a border of border_px on
  // each side; text is char_width px a unit wide and text_height px high.
  RecordingSurface(double width_px, double height_px, double border_px = 0, double char_width = 8,
                   double text_height = 16);

  void SetScalePixels() override;
  void Clear() override;
  void RemovePicture() override;
  double ScaleLeft() const override { return 0; }
  double ScaleTop() const override { return 0; }
  double ScaleWidth() const override { return width_; }
  double ScaleHeight() const override { return height_; }
  double OuterWidth() const override { return (width_ + 2 * border_) * 15; }
  void SetOuterWidth(double twips) override;
  double TextWidth(const Text& text) override {
    return char_width_ * static_cast<double>(text.size());
  }
  double TextHeight(const Text&) override { return text_height_; }
  void FillBox(double x1, double y1, double x2, double y2, int32_t colour) override;
  void SetTextPosition(double x, double y) override;
  void Print(const Text& text) override;
  void FixPicture() override;
  std::string Picture() const override { return picture_; }

  // Every call in order, numbers in their shortest form ("box 2 0 4 76 000000").
  std::vector<std::string> calls;

 private:
  double width_, height_, border_, char_width_, text_height_;
  std::string picture_;
};

class RecordingSurfaceFactory : public SurfaceFactory {
 public:
  std::unique_ptr<DrawingSurface> Create(int32_t width_px, int32_t height_px) override {
    return std::make_unique<RecordingSurface>(width_px, height_px);
  }
};

}  // namespace varnek
