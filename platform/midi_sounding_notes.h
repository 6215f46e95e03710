// The notes a MIDI output has started and not yet ended, so that closing the
// output can end them: a software synthesizer keeps sounding a note whose
// Note Off never comes, even after its sender has gone.
//
//   SoundingNotes notes;
//   notes.Track(0x603C90);   // Note On, C4, channel 0
//   notes.StopMessages();    // {0x3C80 (Note Off C4), 0x7BB0 (All Notes Off)}
#pragma once

#include <bitset>
#include <cstdint>
#include <vector>

namespace varnek {

class SoundingNotes {
 public:
  // Follows one short message (status + data1 * 256 + data2 * 65536): a Note
  // On with a velocity starts its note, a Note Off or a Note On of velocity 0
  // ends it, All Sound Off (120) and All Notes Off (123) end a channel's.
  void Track(uint32_t message);
  // Forgets every note, after a silence-all.
  void Clear() { sounding_.reset(); }
  // A Note Off for each sounding note, by channel and then note number, and
  // All Notes Off on channel 0 last; the notes are then forgotten.
  std::vector<uint32_t> StopMessages();

 private:
  std::bitset<16 * 128> sounding_;
};

}  // namespace varnek
