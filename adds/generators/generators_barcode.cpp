// Var_DrawBarcode: the Code 39 boxes drawn on a picture control, with the two
// sizings around them and the text below.
#include "varnek/adds/generators/code39.h"
#include "varnek/adds/generators/generators.h"
#include "varnek/platform/clipboard.h"
#include "varnek/platform/drawing_surface.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/int16.h"
#include "varnek/runtime/strings.h"

namespace varnek {

namespace {

// outer width * factor / scale width: the width that makes the scale area
// `factor` pixels wide. Divides last.
double OuterWidthFor(double factor, const DrawingSurface& box) {
  if (box.ScaleWidth() == 0) Fail(kErrDivisionByZero);
  return factor * box.OuterWidth() / box.ScaleWidth();
}

}  // namespace

void Generators::Var_DrawBarcode(Variant bc_string, DrawingSurface& box) {
  const Text text = UCase(CStr(bc_string));
  box.SetScalePixels();
  box.Clear();
  box.RemovePicture();
  int16_t bar_width = ToInt16(static_cast<int64_t>(RoundHalfEven(box.ScaleHeight() / 40)));
  if (bar_width < 1) bar_width = 1;
  const double text_height = box.TextHeight(text);
  const double text_width = box.TextWidth(text);
  const Text sequence = Chr(1) + text + Chr(2);
  const double top = box.ScaleTop();
  const float bottom = static_cast<float>(box.ScaleTop() + box.ScaleHeight() - text_height * 1.5);

  // Widen first, in the order of the classic arithmetic.
  const double units = static_cast<double>(Len(sequence)) * 1.1 * MulInt16(bar_width, 15);
  box.SetOuterWidth(OuterWidthFor(units, box));

  double x = box.ScaleLeft();
  for (const generators::BarBox& b : generators::Code39Boxes(sequence, x, bar_width)) {
    box.FillBox(b.x1, top, b.x2, bottom, b.colour);
  }
  box.FillBox(x, top, x + bar_width, bottom, generators::kWhite);
  x += bar_width;

  // Fit to where the bars ended.
  box.SetOuterWidth(OuterWidthFor(bar_width + x, box));
  box.SetTextPosition((box.ScaleWidth() - text_width) / 2, bottom + text_height * 0.25);
  box.Print(text);

  box.FixPicture();
  platform().clipboard->Clear();
  platform().clipboard->SetImage(kClipboardBitmap, box.Picture());
}

}  // namespace varnek
