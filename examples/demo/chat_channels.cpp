// The demo's chat channels and their poller.
#include "examples/demo/chat_channels.h"

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
  channels_[slot] = assigned_[slot];
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
  for (auto it = channels_.begin(); it != channels_.end();) {
    const int16_t slot = it->first;
    const Variant index = Variant::Integer(slot);
    // Closed, or given to another connection since the channel opened: the
    // channel is over, and what the slot holds now is not ours to read.
    if (server_.ProcesoStatus_Code(index) != kSocketConnected || assigned_[slot] != it->second) {
      it = channels_.erase(it);
      continue;
    }
    Text text;
    Resume([&] { text = server_.Proceso_Receive(index).ToText(); });
    if (text.empty()) {
      ++it;
      continue;
    }
    Text word = text;
    while (!word.empty() && (word.back() == u'\n' || word.back() == u'\r')) word.pop_back();
    if (word == u"bye") {
      // The Done of this last send closes the connection.
      server_.Proceso_KeepOpen(index, false);
      Resume([&] { server_.Proceso_Send(index, u"bye\r\n"); });
      it = channels_.erase(it);
    } else {
      Resume([&] { server_.Proceso_Send(index, u"echo: " + text); });
      ++it;
    }
  }
  if (channels_.empty()) timer_->SetEnabled(false);
}

}  // namespace varnek::demo
