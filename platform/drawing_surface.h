// A picture control to draw on: a scale area in pixels, filled boxes, text,
// and a persistent picture that can go to the clipboard.
//
// Rules every implementation keeps (Cairo and recording alike):
// - Coordinates are pixels of the scale area once SetScalePixels ran; the
//   outer width is in twips, 15 to the pixel, and the scale width follows it.
// - Drawing past the current width is kept, not clipped: a later widening
//   shows it. The picture is cut to the control's size when it is fixed.
// - The background is white (0xFFFFFF); colours are 0xRRGGBB.
// - Clear empties the drawing and puts the text position at the top left;
//   RemovePicture drops the persistent picture, Picture() is then "".
// - A failure of the medium raises RuntimeError (7 out of memory, 480 no
//   image can be made); nothing is half drawn.
//
//   auto box = platform.surfaces->Create(400, 100);
//   box->SetScalePixels();
//   box->FillBox(0, 0, 10, 50, 0);  // a black bar
//   box->FixPicture();              // box->Picture() is a PNG
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "varnek/runtime/text.h"

namespace varnek {

class DrawingSurface {
 public:
  virtual ~DrawingSurface() = default;

  virtual void SetScalePixels() = 0;
  virtual void Clear() = 0;
  virtual void RemovePicture() = 0;

  virtual double ScaleLeft() const = 0;
  virtual double ScaleTop() const = 0;
  virtual double ScaleWidth() const = 0;
  virtual double ScaleHeight() const = 0;
  // The control's outer width in twips; setting it resizes the scale area.
  virtual double OuterWidth() const = 0;
  virtual void SetOuterWidth(double twips) = 0;

  // The size the text takes when printed, in pixels.
  virtual double TextWidth(const Text& text) = 0;
  virtual double TextHeight(const Text& text) = 0;

  // A filled box between two corners, in colour 0xRRGGBB.
  virtual void FillBox(double x1, double y1, double x2, double y2, int32_t colour) = 0;
  // Text is printed with its top left at the text position.
  virtual void SetTextPosition(double x, double y) = 0;
  virtual void Print(const Text& text) = 0;

  // Makes the drawing the control's persistent picture.
  virtual void FixPicture() = 0;
  // The persistent picture as PNG bytes (recording surfaces: their log), or
  // "" when there is none.
  virtual std::string Picture() const = 0;
};

// Makes picture controls of a size in pixels.
class SurfaceFactory {
 public:
  virtual ~SurfaceFactory() = default;
  virtual std::unique_ptr<DrawingSurface> Create(int32_t width_px, int32_t height_px) = 0;
};

}  // namespace varnek
