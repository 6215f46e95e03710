// Sound_PlayMidi: the parsed events played through the MIDI output with the
// waits of their style.
#include <cmath>

#include "varnek/adds/generators/generators.h"
#include "varnek/platform/host_loop.h"
#include "varnek/platform/midi_output.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/int16.h"

namespace varnek {

namespace {

constexpr int32_t kNoteOn = 144;  // channel 0

}  // namespace

bool Generators::midiDeviceSwitch(int16_t mode) {
  MidiOutput& midi = *platform().midi;
  if (mode == 1) {
    if (midi_settings_.DeviceOpen || !midi.Open()) return false;
    midi_settings_.DeviceOpen = true;
    return true;
  }
  if (mode == 0 && midi_settings_.DeviceOpen) {
    if (!midi.Close()) return false;
    midi_settings_.DeviceOpen = false;
    return true;
  }
  return false;
}

void Generators::midiSendShort(int32_t status, int32_t data1, int32_t data2) {
  const int32_t message = AddInt32(AddInt32(status, MulInt32(data1, 256)), MulInt32(data2, 65536));
  platform().midi->ShortMessage(static_cast<uint32_t>(message));
}

void Generators::midiWait(double milliseconds) {
  platform().midi->Sleep(static_cast<int32_t>(std::floor(milliseconds + 0.5)));
}

Variant Generators::Sound_PlayMidi(const Text& PlayString) {
  if (!midiDeviceSwitch(1)) return Variant();
  const generators::ParsedPlay play = generators::ParsePlayString(PlayString, midi_settings_);
  bool recovering = play.recovering;
  // Before the first note or pause a failure reaches the caller.
  auto step = [&](auto&& statement) {
    if (recovering) {
      Resume(statement);
    } else {
      statement();
    }
  };
  MidiOutput& midi = *platform().midi;
  const double tempo = midi_settings_.Tempo;
  double duration = 0;
  for (size_t e = 0; e < play.events.size(); ++e) {
    const generators::MidiEvent& event = play.events[e];
    if (event.Note != -1) step([&] { midiSendShort(kNoteOn, event.Note, event.Volume); });
    if (e + 1 < play.events.size()) {
      step([&] {
        if (event.Length == 0) Fail(kErrDivisionByZero);
        duration = 60 / tempo * 4 * (1.0 / event.Length) * 1000;
      });
      if (event.Length > 0) {
        switch (event.Style) {
          case 0:
            midiWait(7.0 / 8 * duration);
            midi.Reset();
            midiWait(1.0 / 8 * duration);
            break;
          case 1:
            midiWait(duration / 2);
            midi.Reset();
            midiWait(duration / 2);
            break;
          case 2:
            midiWait(duration);
            midi.Reset();
            midi.Sleep(1);
            break;
          default: midiWait(duration);
        }
      }
    }
    loop().Pump(0);
  }
  midi.Sleep(1);
  midiDeviceSwitch(0);
  return Variant();
}

}  // namespace varnek
