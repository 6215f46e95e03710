// The play-string parser: one pass over the upper-cased string, nine tests
// per character that are not exclusive.
#include "varnek/adds/generators/play_string.h"

#include <algorithm>

#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/int16.h"
#include "varnek/runtime/strings.h"

namespace varnek::generators {

namespace {

// Semitones above C for A..H; H has none and leaves its note 0.
constexpr int kOffsets[] = {9, 11, 0, 2, 4, 5, 7};

class Parser {
 public:
  Parser(const Text& play, MidiSettings& settings)
      : s_(UCase(play)), n_(static_cast<int64_t>(s_.size())), m_(settings) {}

  ParsedPlay Run();

 private:
  int Unit(int64_t pos) const {
    return pos >= 1 && pos <= n_ ? s_[static_cast<size_t>(pos - 1)] : -1;
  }
  // Reads the digits behind i_, moving i_ with them; zero_continues for L.
  // A run of more than 15 digits reads as a value no field holds.
  bool ReadNumber(bool zero_continues, double& value);
  // A statement that may fail: raised before the first note, skipped after.
  template <class Statement>
  void Step(Statement&& statement) {
    if (out_.recovering) {
      Resume(statement);
    } else {
      statement();
    }
  }
  void AddEvent(int32_t note, int16_t length);

  Text s_;
  int64_t n_;
  MidiSettings& m_;
  ParsedPlay out_;
  int64_t i_ = 1;
  int16_t pause_length_ = 0;
};

bool Parser::ReadNumber(bool zero_continues, double& value) {
  value = 0;
  int digits = 0;
  for (int c = Unit(i_ + 1); c >= (zero_continues ? u'0' : u'1') && c <= u'9'; c = Unit(i_ + 1)) {
    value = ++digits > 15 ? 1e300 : value * 10 + (c - u'0');
    ++i_;
  }
  return digits > 0;
}

void Parser::AddEvent(int32_t note, int16_t length) {
  out_.events.push_back({note, length, m_.Volume, m_.Style});
}

ParsedPlay Parser::Run() {
  for (i_ = 1; i_ <= n_; ++i_) {
    int c = Unit(i_);
    double number = 0;
    if (c == u'N' && ReadNumber(false, number)) {
      out_.events.push_back({0, m_.NoteLength, m_.Volume, m_.Style});
      Step([&] {
        out_.events.back().Note = ToInt32(static_cast<int64_t>(std::min(number, 4e18)) + 23);
      });
    }
    if (c == u'T' && ReadNumber(false, number)) {
      Step([&] { m_.Tempo = ToInt16(static_cast<int64_t>(std::min(number, 4e18))); });
    }
    if (c == u'.' && !out_.events.empty()) {
      MidiEvent& last = out_.events.back();
      last.Length = static_cast<int16_t>(RoundHalfEven(last.Length / 1.5));
    }
    if (c == u'P') {
      if (ReadNumber(false, number)) {
        Step([&] { pause_length_ = ToInt16(static_cast<int64_t>(std::min(number, 4e18))); });
      } else {
        pause_length_ = m_.NoteLength;
      }
      c = -1;
    }
    if (c == u'L' && ReadNumber(true, number)) {
      Step([&] { m_.NoteLength = ToInt16(static_cast<int64_t>(std::min(number, 4e18))); });
    }
    if (c == u'O' && i_ < n_) {
      c = Unit(i_ + 1);
      if (c >= u'0' && c <= u'6') {
        m_.Octave = static_cast<int16_t>(c - u'0');
        ++i_;
      }
    }
    if ((c >= u'A' && c <= u'H') || c == -1) {
      if (c == -1) {
        AddEvent(-1, pause_length_);
      } else {
        int accidental = 0;
        if (i_ < n_ && (Unit(i_ + 1) == u'#' || Unit(i_ + 1) == u'+')) {
          ++i_;
          accidental = 1;
        } else if (i_ < n_ && Unit(i_ + 1) == u'-') {
          ++i_;
          accidental = -1;
        }
        int32_t note = c == u'H' ? 0 : m_.Octave * 12 + kOffsets[c - u'A'] + accidental + 24;
        AddEvent(note, m_.NoteLength);
      }
      out_.recovering = true;
    }
    if (c == u'V' && i_ < n_) {
      switch (Unit(++i_)) {
        case u'F': m_.Volume = 127; break;
        case u'O': m_.Volume = 96; break;
        case u'I': m_.Volume = 65; break;
        case u'P': m_.Volume = 34; break;
        default: --i_;  // given back
      }
    }
    if (c == u'M' && i_ < n_) {
      switch (Unit(++i_)) {
        case u'S': m_.Style = 1; break;
        case u'N': m_.Style = 0; break;
        case u'L': m_.Style = 2; break;
        case u'D': m_.Style = 3; break;
        default: --i_;
      }
    }
  }
  return std::move(out_);
}

}  // namespace

ParsedPlay ParsePlayString(const Text& play, MidiSettings& settings) {
  if (!settings.Initialised) {
    const bool open = settings.DeviceOpen;
    settings = MidiSettings{};
    settings.Initialised = true;
    settings.DeviceOpen = open;
  }
  return Parser(play, settings).Run();
}

Text PlayStringHelp() {
  static const char16_t* const kLines[] = {
      u" Plays a note(s) using MIDI",
      u" E.g. Play \"T96O3L4cd.efgabO4cL8defgabO5c\"",
      u" Note Letter - Plays Note (C is lowest in an octave, B is highest)",
      u" L + NoteLength (4 = Crotchet, 2 = Minim, etc.,0 = Play Simultaneously)",
      u" N + Note Number (37 = Mid C, 38 = C#, etc.)",
      u" O + Octave No. (3 = Middle - i.e. O3C = Mid. C)",
      u" P + Length (Pause of Length - See \"L\" - Without a Number = Current Note Length)",
      u" T + Tempo (Crotchet Beats per Minute)",
      u" V + VolumeConstant (F = Forte, O = Mezzo-Forte, I = MezzoPiano, P = Piano)",
      u" M + Music Style Constant (S = Staccato, N = Normal, L = Legato, D = Sustained)",
      (u" Only the Sustained style appears to function correctly as the time taken to stop a midi "
       u"note is not negligible"),  // one line, split for width
      u" If ommitted, uses last set option",
  };
  Text help;
  for (const char16_t* line : kLines) {
    help += line;
    help += u"\r\n";
  }
  return help;
}

}  // namespace varnek::generators
