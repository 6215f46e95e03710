// The ALSA sequencer output: short messages become sequencer events sent
// directly (no queue) to the port's subscribers.
#include "varnek/platform/linux/internal/alsa_midi_output.h"
#include "varnek/platform/linux/internal/eintr.h"

#include <alsa/asoundlib.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace varnek {

AlsaMidiOutput::~AlsaMidiOutput() { Close(); }

bool AlsaMidiOutput::Open() {
  if (seq_) return false;
  // Without the sequencer device there is nothing to open; asking ALSA
  // anyway would print its complaint on the host's stderr.
  if (access("/dev/snd/seq", F_OK) != 0) return false;
  snd_seq_t* seq = nullptr;
  if (snd_seq_open(&seq, "default", SND_SEQ_OPEN_OUTPUT, 0) < 0) return false;
  snd_seq_set_client_name(seq, "Varnek");
  int port = snd_seq_create_simple_port(
      seq, "Varnek out", SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ,
      SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
  if (port < 0) {
    snd_seq_close(seq);
    return false;
  }
  seq_ = seq;
  port_ = port;
  ConnectToDestination();
  return true;
}

void AlsaMidiOutput::ConnectToDestination() {
  if (const char* named = std::getenv("VARNEK_MIDI_PORT"); named && *named) {
    snd_seq_addr_t addr;
    if (snd_seq_parse_address(seq_, &addr, named) == 0) {
      snd_seq_connect_to(seq_, port_, addr.client, addr.port);
    }
    return;
  }
  // The first port of another client that others may write to; the system
  // client (0) and our own are passed over. A bounded walk of the ports.
  snd_seq_client_info_t* client;
  snd_seq_port_info_t* info;
  snd_seq_client_info_alloca(&client);
  snd_seq_port_info_alloca(&info);
  snd_seq_client_info_set_client(client, -1);
  const int self = snd_seq_client_id(seq_);
  for (int clients = 0; clients < 256 && snd_seq_query_next_client(seq_, client) >= 0; ++clients) {
    int id = snd_seq_client_info_get_client(client);
    if (id == SND_SEQ_CLIENT_SYSTEM || id == self) continue;
    snd_seq_port_info_set_client(info, id);
    snd_seq_port_info_set_port(info, -1);
    for (int ports = 0; ports < 256 && snd_seq_query_next_port(seq_, info) >= 0; ++ports) {
      unsigned caps = snd_seq_port_info_get_capability(info);
      if ((caps & (SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE)) !=
          (SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE)) {
        continue;
      }
      if (snd_seq_connect_to(seq_, port_, id, snd_seq_port_info_get_port(info)) == 0) return;
    }
  }
}

bool AlsaMidiOutput::Send(unsigned char status, unsigned char data1, unsigned char data2) {
  snd_seq_event_t ev;
  snd_seq_ev_clear(&ev);
  snd_seq_ev_set_source(&ev, static_cast<unsigned char>(port_));
  snd_seq_ev_set_subs(&ev);
  snd_seq_ev_set_direct(&ev);
  const unsigned char channel = status & 0x0F;
  switch (status & 0xF0) {
    case 0x80: snd_seq_ev_set_noteoff(&ev, channel, data1 & 0x7F, data2 & 0x7F); break;
    case 0x90: snd_seq_ev_set_noteon(&ev, channel, data1 & 0x7F, data2 & 0x7F); break;
    case 0xA0: snd_seq_ev_set_keypress(&ev, channel, data1 & 0x7F, data2 & 0x7F); break;
    case 0xB0: snd_seq_ev_set_controller(&ev, channel, data1 & 0x7F, data2 & 0x7F); break;
    case 0xC0: snd_seq_ev_set_pgmchange(&ev, channel, data1 & 0x7F); break;
    case 0xD0: snd_seq_ev_set_chanpress(&ev, channel, data1 & 0x7F); break;
    case 0xE0:
      snd_seq_ev_set_pitchbend(&ev, channel, ((data2 & 0x7F) << 7 | (data1 & 0x7F)) - 8192);
      break;
    default: return true;  // system messages have no short form to send
  }
  if (snd_seq_event_output(seq_, &ev) < 0) return false;
  return snd_seq_drain_output(seq_) >= 0;
}

bool AlsaMidiOutput::ShortMessage(uint32_t message) {
  if (!seq_) return false;
  sounding_.Track(message);
  return Send(message & 0xFF, (message >> 8) & 0xFF, (message >> 16) & 0xFF);
}

bool AlsaMidiOutput::Reset() {
  if (!seq_) return false;
  sounding_.Clear();
  bool ok = true;
  for (unsigned char channel = 0; channel < 16; ++channel) {
    ok = Send(0xB0 | channel, 120, 0) && ok;  // all sound off
    ok = Send(0xB0 | channel, 123, 0) && ok;  // all notes off
  }
  return ok;
}

bool AlsaMidiOutput::Close() {
  if (!seq_) return false;
  // Direct events are delivered as they are drained, so these reach the
  // synthesizer before the client goes.
  for (uint32_t message : sounding_.StopMessages()) ShortMessage(message);
  snd_seq_close(seq_);
  seq_ = nullptr;
  port_ = -1;
  return true;
}

void AlsaMidiOutput::Sleep(int32_t milliseconds) {
  if (milliseconds <= 0) return;
  timespec left{milliseconds / 1000, static_cast<long>(milliseconds % 1000) * 1000000L};
  // Interrupted sleeps go on with what is left; each round is shorter.
  // clock_nanosleep gives its error as the result, not in errno.
  linux_io::RetryOnEintr([&] {
    int error = clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left);
    if (error == 0) return 0;
    errno = error;
    return -1;
  });
}

}  // namespace varnek
