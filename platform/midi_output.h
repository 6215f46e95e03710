// The MIDI output that plays notes, and the wait between them.
//
// Rules every implementation keeps (ALSA sequencer and recording alike):
// - Open takes the default output; it gives false when there is none or it is
//   open already. ShortMessage, Reset and Close give false when not open.
// - ShortMessage takes status + data1 * 256 + data2 * 65536; only the low
//   byte of each goes out (a Note On is status 144 on channel 0).
// - Reset silences every sounding note on every channel.
// - Close first ends what still sounds, through ShortMessage: a Note Off for
//   each note started and not ended (SoundingNotes), then All Notes Off
//   (controller 123) on channel 0. A note never outlives the output.
// - Sleep blocks the thread for the milliseconds given and never pumps the
//   host loop: no event runs during it. Negative or zero waits return at once.
//
//   if (midi.Open()) { midi.ShortMessage(144 + 60 * 256 + 96 * 65536); midi.Sleep(500);
//   midi.Close(); }
#pragma once

#include <cstdint>

namespace varnek {

class MidiOutput {
 public:
  virtual ~MidiOutput() = default;
  virtual bool Open() = 0;
  virtual bool ShortMessage(uint32_t message) = 0;
  virtual bool Reset() = 0;
  virtual bool Close() = 0;
  virtual void Sleep(int32_t milliseconds) = 0;
};

}  // namespace varnek
