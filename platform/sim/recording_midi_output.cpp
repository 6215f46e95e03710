// The recording MIDI output.
#include "varnek/platform/sim/recording_midi_output.h"

#include <cstdio>

namespace varnek {

bool RecordingMidiOutput::Open() {
  if (is_open || fail_open) return false;
  is_open = true;
  log.push_back("open");
  return true;
}

bool RecordingMidiOutput::ShortMessage(uint32_t message) {
  if (!is_open) return false;
  sounding_.Track(message);
  char text[32];
  std::snprintf(text, sizeof text, "msg %02X %02X %02X", message & 0xFF, (message >> 8) & 0xFF,
                (message >> 16) & 0xFF);
  log.push_back(text);
  messages.push_back(message);
  return true;
}

bool RecordingMidiOutput::Reset() {
  if (!is_open) return false;
  sounding_.Clear();
  log.push_back("reset");
  return true;
}

bool RecordingMidiOutput::Close() {
  if (!is_open) return false;
  for (uint32_t message : sounding_.StopMessages()) ShortMessage(message);
  is_open = false;
  log.push_back("close");
  return true;
}

void RecordingMidiOutput::Sleep(int32_t milliseconds) {
  log.push_back("sleep " + std::to_string(milliseconds));
  if (milliseconds > 0) slept_ms += milliseconds;
  if (on_sleep) on_sleep();
}

}  // namespace varnek
