// The demo's chat channels and their poller.
#include "examples/demo/chat_channels.h"

#include <vector>

#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"

namespace varnek::demo {

namespace {

constexpr char16_t kAssigned[] = u"Server - Asignando el motor ";

}  // namespace

ChatChannels::ChatChannels(HTTPServer& server) : server_(server) {
  timer_ = server_.loop().CreateTimer();
  timer_->SetInterval(100);
  timer_->on_tick = [this] { Poll(); };
}

Text ChatChannels::Open(int16_t slot) {
  const Variant index = Variant::Integer(slot);
  server_.Proceso_KeepOpen(index, true);
  channels_[slot] = Channel{assigned_[slot]};
  timer_->SetEnabled(true);
  return CStr(server_.http_Header(e200_OK, eTextHTML)) + u"chat open\r\n";
}

void ChatChannels::NoteReport(const Text& text) {
  const Text prefix = kAssigned;
  if (text.compare(0, prefix.size(), prefix) != 0) return;
  int32_t slot = 0;
  if (!Resume([&] { slot = CLng(Variant(text.substr(prefix.size()))); })) return;
  if (slot > 0 && slot <= 32767) ++assigned_[static_cast<int16_t>(slot)];
}

void ChatChannels::Poll() {
  std::vector<int16_t> gone;  // peers that closed: their slots close after the pass
  for (auto it = channels_.begin(); it != channels_.end();) {
    const int16_t slot = it->first;
    Channel& channel = it->second;
    const Variant index = Variant::Integer(slot);
    // Closed, or given to another connection since the channel opened: the
    // channel is over, and what the slot holds now is not ours to read.
    const int32_t state = server_.ProcesoStatus_Code(index);
    const bool peer_gone = state == kSocketClosing;
    if ((state != kSocketConnected && !peer_gone) || assigned_[slot] != channel.connection) {
      it = channels_.erase(it);
      continue;
    }
    Text text;
    Resume([&] { text = server_.Proceso_Receive(index).ToText(); });
    Text word = text;
    while (!word.empty() && (word.back() == u'\n' || word.back() == u'\r')) word.pop_back();
    if (word == u"bye") {
      // The Done of this last send closes the connection.
      server_.Proceso_KeepOpen(index, false);
      Resume([&] { server_.Proceso_Send(index, u"bye\r\n"); });
      it = channels_.erase(it);
      continue;
    }
    if (!text.empty()) Resume([&] { server_.Proceso_Send(index, u"echo: " + text); });
    // The peer has closed: what it sent before (still on its way to
    // Proceso_Receive when the State changed) is answered on this pass and
    // the next, then the slot closes.
    if (peer_gone && ++channel.passes_since_peer_closed > 1) {
      gone.push_back(slot);
      it = channels_.erase(it);
      continue;
    }
    ++it;
  }
  if (channels_.empty()) timer_->SetEnabled(false);
  // Pumps: a nested pass finds these channels already gone.
  for (int16_t slot : gone) server_.Proceso_Close(Variant::Integer(slot));
}

}  // namespace varnek::demo
