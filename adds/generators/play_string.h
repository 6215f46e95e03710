// The play-string language: parsing a string of notes, lengths, octaves,
// tempo, volume and style into note events. Pure code; playing them is
// Adds::Sound_PlayMidi's part.
//
//   MidiSettings s;
//   ParsePlayString(u"O3C.", s).events   // {60, length 3, volume 96, style 3}
#pragma once

#include <cstdint>
#include <vector>

#include "varnek/runtime/text.h"

namespace varnek::generators {

// What a play string leaves out keeps its last value, across calls too.
struct MidiSettings {
  bool Initialised = false;
  int16_t Octave = 3;
  int16_t Tempo = 120;     // crotchet beats per minute
  int16_t NoteLength = 4;  // 4 a crotchet, 2 a minim, 0 at once with the next
  int32_t Volume = 96;
  int16_t Style = 3;  // 0 normal, 1 staccato, 2 legato, 3 sustained
  bool DeviceOpen = false;
};

struct MidiEvent {
  int32_t Note = 0;    // -1 for a pause
  int16_t Length = 0;  // 0: the next event starts at once
  int32_t Volume = 0;
  int16_t Style = 0;
};

struct ParsedPlay {
  std::vector<MidiEvent> events;
  // A note or pause was recorded: from then on failures are skipped
  // statement by statement, in parsing and in playing.
  bool recovering = false;
};

// Parses `play` (any case), updating `settings`. Sets the defaults first if
// settings.Initialised is false. Quirks kept: N, T and P stop their number at
// a digit 0 ("T120" reads 12), L does not ("L0" reads 0); "O" followed by a
// letter records that letter here and again on the next pass; H records a
// note 0. Failures: 6 for a number past the 16-bit field (T, L, P) or past
// 32 bits (N), raised until the first note or pause, skipped after it.
ParsedPlay ParsePlayString(const Text& play, MidiSettings& settings);

// The twelve lines of the language's help, each with a leading blank and CR LF.
Text PlayStringHelp();

}  // namespace varnek::generators
