// The Linux MIDI output: an ALSA sequencer client with one output port. On
// Open it connects the port to $VARNEK_MIDI_PORT ("client:port", as aconnect
// names it) or else to the first port that takes MIDI writes from others
// (a synthesizer or a device); events also reach any subscriber of the port.
// Without a sequencer (no /dev/snd/seq) Open gives false.
#pragma once

#include "varnek/platform/midi_output.h"
#include "varnek/platform/midi_sounding_notes.h"

typedef struct _snd_seq snd_seq_t;

namespace varnek {

class AlsaMidiOutput : public MidiOutput {
 public:
  AlsaMidiOutput() = default;
  ~AlsaMidiOutput() override;

  bool Open() override;
  bool ShortMessage(uint32_t message) override;
  // Sends "all sound off" and "all notes off" on the 16 channels.
  bool Reset() override;
  // Ends the sounding notes (Note Offs, All Notes Off on channel 0) first.
  bool Close() override;
  // clock_nanosleep: the thread sleeps, no event runs.
  void Sleep(int32_t milliseconds) override;

 private:
  bool Send(unsigned char status, unsigned char data1, unsigned char data2);
  void ConnectToDestination();

  snd_seq_t* seq_ = nullptr;
  int port_ = -1;
  SoundingNotes sounding_;
};

}  // namespace varnek
