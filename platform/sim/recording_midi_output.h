// A MIDI output for tests: it keeps every message, reset and wait in order and
// waits no real time. Open can be made to fail, as with no sequencer. Close
// ends the sounding notes as every output does, and the log shows it.
//
//   RecordingMidiOutput midi;
//   midi.Open(); midi.ShortMessage(0x603C90); midi.Sleep(500); midi.Close();
//   // midi.log: {"open", "msg 90 3C 60", "sleep 500", "msg 80 3C 00", "msg B0 7B 00", "close"}
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "varnek/platform/midi_output.h"
#include "varnek/platform/midi_sounding_notes.h"

namespace varnek {

class RecordingMidiOutput : public MidiOutput {
 public:
  bool Open() override;
  bool ShortMessage(uint32_t message) override;
  bool Reset() override;
  bool Close() override;
  void Sleep(int32_t milliseconds) override;

  bool is_open = false;
  bool fail_open = false;  // makes Open give false, as without a sequencer
  // "open", "msg SS D1 D2" (hex bytes), "reset", "sleep N", "close".
  std::vector<std::string> log;
  std::vector<uint32_t> messages;
  int64_t slept_ms = 0;
  // Called on every Sleep, to act during a play (a re-entrant call, say).
  std::function<void()> on_sleep;

 private:
  SoundingNotes sounding_;
};

}  // namespace varnek
