// Keeping the sounding notes of a MIDI output.
#include "varnek/platform/midi_sounding_notes.h"

namespace varnek {

namespace {
constexpr uint32_t kNoteOff = 0x80, kNoteOn = 0x90, kController = 0xB0;
constexpr uint32_t kAllSoundOff = 120, kAllNotesOff = 123;
}  // namespace

void SoundingNotes::Track(uint32_t message) {
  const uint32_t status = message & 0xF0, channel = message & 0x0F;
  const uint32_t data1 = (message >> 8) & 0x7F, data2 = (message >> 16) & 0x7F;
  if (status == kNoteOn || status == kNoteOff) {
    sounding_.set(channel * 128 + data1, status == kNoteOn && data2 != 0);
  } else if (status == kController && (data1 == kAllSoundOff || data1 == kAllNotesOff)) {
    for (uint32_t note = 0; note < 128; ++note) sounding_.reset(channel * 128 + note);
  }
}

std::vector<uint32_t> SoundingNotes::StopMessages() {
  std::vector<uint32_t> messages;
  for (uint32_t key = 0; key < sounding_.size(); ++key) {
    if (sounding_.test(key)) messages.push_back((kNoteOff | key / 128) + (key % 128) * 256);
  }
  messages.push_back(kController + kAllNotesOff * 256);
  sounding_.reset();
  return messages;
}

}  // namespace varnek
