// Content generators of Adds: HTML from RTF, Code 39 bars on a drawing
// surface, and MIDI music from a play string. The converter and the parsers
// are pure code (rtf_to_html.h, code39.h, play_string.h); this class joins
// them to the platform's surface, clipboard and MIDI output.
//
//   Variant rtf = u"...", options = u"+H+T\"Notes\"";
//   Variant page = adds.Var_RTF2HTML(rtf, options);
#pragma once

#include "varnek/adds/adds_core.h"
#include "varnek/adds/generators/play_string.h"
#include "varnek/runtime/variant.h"

namespace varnek {

class DrawingSurface;

class Generators : public virtual AddsCore {
 public:
  explicit Generators(Platform& platform) { Attach(platform); }

  // ---- RTF to HTML (rtf_to_html.cpp) ---------------------------------------

  // strRTF as HTML 3.2 text; strOptions may hold "+H" (whole page), "+G"
  // (generator line) and +T"title". Neither argument is changed. Open: a
  // Null fails with 94; 9 for "\fN" past the font table, 13 for a colour
  // component or "\'hh" that is no number, 5 for "+T" with no closing quote
  // (and for tables cut short), 6 for a "\cf" number past the double range.
  // Never pumps.
  //   "{\rtf1\r\n\deflang1033 Hi \b bold\plain\r\n\par }" -> "Hi <B>bold</B>"
  Variant Var_RTF2HTML(Variant& strRTF, Variant& strOptions);

  // ---- Code 39 bars (generators_barcode.cpp) -------------------------------

  // Draws bc_string, upper-cased, as Code 39 bars with the text below on
  // PictureBox: the bar unit is the scale height / 40 (ties to even, at least
  // 1), the control is widened before drawing and fitted to where the bars
  // end, and the picture is fixed and put on the clipboard as a bitmap. An A
  // draws the start/stop symbol, "*" and other codes without a pattern draw
  // nothing but are printed. The caller's text is not changed. Open: surface
  // and clipboard failures reach the caller; 94 for Null; 11 for a zero
  // scale width. Never pumps.
  void Var_DrawBarcode(Variant bc_string, DrawingSurface& PictureBox);

  // ---- MIDI play strings (generators_midi.cpp) -----------------------------

  // Parses PlayString whole (play_string.h), then plays the events as Note On
  // messages on channel 0 through the platform's MIDI output, waiting by
  // style between them with a Sleep that never pumps, and pumping the loop
  // once after each event: host events may run there, and a second call made
  // from one finds the output open and returns at once. The last T rules the
  // whole string; the last event gets no wait of its own. No output (no
  // sequencer): nothing happens. The result stays Empty. Open until the first
  // note or pause is parsed, resume after: a failure before it (6 for a
  // number past its field, 11 for a length 0 among N events only) reaches
  // the caller and leaves the output open, so later calls play nothing.
  //   adds.Sound_PlayMidi(u"T96O3L4cd.efgabO4cL8defgabO5c");
  Variant Sound_PlayMidi(const Text& PlayString);
  // The twelve lines of the language's help, each ending in CR LF.
  Text Sound_PlayMidiHelp() const { return generators::PlayStringHelp(); }

  // The settings a play string leaves out; they outlive each call.
  const generators::MidiSettings& PlaySettings() const { return midi_settings_; }

 protected:
  // For a class that joins this one with others (see adds_core.h).
  Generators() = default;

 private:
  // Mode 1 opens the output (false if open already), 0 closes it (false if
  // closed). A failed platform call gives false and leaves DeviceOpen.
  bool midiDeviceSwitch(int16_t mode);
  // One short message: status + data1 * 256 + data2 * 65536, in 32 bits
  // (6 when it does not fit).
  void midiSendShort(int32_t status, int32_t data1, int32_t data2);
  // Sleep of x rounded half up.
  void midiWait(double milliseconds);

  generators::MidiSettings midi_settings_;
};

}  // namespace varnek
