// The scripted far ends of a serial line: modem, TAP terminal, Skytel menus
// and Zetron terminal.
#include "varnek/platform/sim/line_peers.h"

#include <cctype>

namespace varnek {

namespace {
constexpr char kStx = 2, kEtx = 3, kEot = 4, kAck = 6, kNak = 21, kRs = 30, kEsc = 27;
}  // namespace

void LinePeer::Say(std::string bytes, double delay) {
  if (emit && !bytes.empty()) emit(std::move(bytes), delay);
}

// ---- Modem ------------------------------------------------------------------

HayesModem::HayesModem(std::shared_ptr<LinePeer> far, ModemBehaviour behaviour)
    : far_(std::move(far)), behaviour_(behaviour), echo_(behaviour.echo) {
  if (far_)
    far_->emit = [this](std::string bytes, double delay) {
      if (connected_) Say(std::move(bytes), delay);
    };
}

void HayesModem::Receive(std::string_view bytes) {
  if (connected_) {
    if (far_) far_->Receive(bytes);
    return;
  }
  if (behaviour_.silent) return;
  if (echo_) Say(std::string(bytes), 0.001);
  cutter_.Feed(bytes, [this](const std::string& line) { Command(line); });
}

void HayesModem::Command(const std::string& line) {
  std::string upper;
  for (char c : line) upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  if (upper.empty()) return;
  commands_.push_back(line);
  if (upper.rfind("AT", 0) != 0) return Say("\r\nERROR\r\n", 0.01);
  if (upper.find("E0") != std::string::npos) echo_ = false;
  if (upper.find("E1") != std::string::npos) echo_ = true;
  if (upper.rfind("ATD", 0) == 0 && behaviour_.busy)
    return Say("\r\nBUSY\r\n", behaviour_.connect_delay);
  if (upper.rfind("ATD", 0) == 0) {
    connected_ = true;  // what the system writes from now on goes to the far end
    Say(behaviour_.lower_case_connect ? "\r\nconnect 1200\r\n" : "\r\nCONNECT 1200\r\n",
        behaviour_.connect_delay);
    return;
  }
  Say(std::string(upper.rfind("ATI", 0) == 0 ? "\r\nVarnek line modem\r\n" : "") + "\r\nOK\r\n",
      0.01);
}

void HayesModem::Hangup() {
  connected_ = false;
  echo_ = behaviour_.echo;
  cutter_.Reset();
  if (far_) far_->Hangup();
}

// ---- TAP terminal -------------------------------------------------------------

std::string TapTerminal::Checksum(std::string_view block) {
  unsigned sum = 0;
  for (unsigned char c : block) sum += c;
  std::string out(3, '0');
  out[0] = static_cast<char>(48 + ((sum >> 8) & 15));
  out[1] = static_cast<char>(48 + ((sum >> 4) & 15));
  out[2] = static_cast<char>(48 + (sum & 15));
  return out;
}

void TapTerminal::Receive(std::string_view bytes) {
  if (behaviour_.silent) return;
  buffer_.append(bytes);
  if (buffer_.size() > 65536) buffer_.erase(0, buffer_.size() - 65536);
  for (int guard = 0; guard < 1000; ++guard) {
    if (!logged_in_) {
      // Waiting for a wake-up CR or an ESC PG1 login line.
      size_t cr = buffer_.find('\r');
      if (cr == std::string::npos) return;
      std::string line = buffer_.substr(0, cr);
      buffer_.erase(0, cr + 1);
      size_t esc = line.find(kEsc);
      if (esc != std::string::npos && line.compare(esc + 1, 3, "PG1") == 0) {
        if (behaviour_.repeat_id) {
          Say("ID=\r", behaviour_.delay);
          continue;
        }
        password_ = line.substr(esc + 4);
        logged_in_ = true;
        Say("110 1.8\r[p\r", behaviour_.delay);
        if (behaviour_.flood) Chatter(100);
        continue;
      }
      Say(behaviour_.invalid_id ? "INVALID\r" : "ID=\r", behaviour_.delay);
      continue;
    }
    // Logged in: blocks STX ... ETX ccc CR, or EOT CR.
    size_t start = buffer_.find_first_of(std::string{kStx, kEot});
    if (start == std::string::npos) {
      buffer_.clear();
      return;
    }
    if (buffer_[start] == kEot) {
      if (buffer_.find('\r', start) == std::string::npos) return;
      buffer_.clear();
      logged_in_ = false;
      logged_out_ = true;
      Say(std::string{kEsc, kEot, '\r'}, behaviour_.delay);
      return;
    }
    size_t etx = buffer_.find(kEtx, start);
    if (etx == std::string::npos || buffer_.size() < etx + 5) return;
    std::string block = buffer_.substr(start, etx + 5 - start);
    buffer_.erase(0, etx + 5);
    Block(block);
  }
}

void TapTerminal::Block(const std::string& block) {
  const size_t etx = block.size() - 5;
  const bool sum_ok =
      Checksum(std::string_view(block).substr(0, etx + 1)) == block.substr(etx + 1, 3) &&
      block.back() == '\r';
  size_t cr1 = block.find('\r');
  const bool shape_ok = cr1 != std::string::npos && cr1 < etx && block[etx - 1] == '\r';
  if (behaviour_.ignore_blocks) return;
  if (!sum_ok || !shape_ok || behaviour_.refuse_blocks) {
    ++refused_;
    return Say(std::string{kNak, '\r'}, behaviour_.delay);
  }
  if (behaviour_.abandon_blocks) {
    ++refused_;
    return Say(std::string{kRs, '\r'}, behaviour_.delay);
  }
  pages_.push_back({block.substr(1, cr1 - 1), block.substr(cr1 + 1, etx - 1 - (cr1 + 1))});
  Say(behaviour_.ack_without_cr ? std::string{kAck} : std::string{kAck, '\r'}, behaviour_.delay);
}

void TapTerminal::Chatter(int left) {
  if (left <= 0 || !emit) return;
  // Each dot is sent with a growing delay, so the chatter never pauses 2 s.
  for (int i = 1; i <= left; ++i) Say(".", behaviour_.delay + 0.5 * i);
}

void TapTerminal::Hangup() {
  buffer_.clear();
  logged_in_ = false;
}

// ---- Skytel -------------------------------------------------------------------

void SkytelService::Prompt(const std::string& text) {
  Say((behaviour_.drop_leading_cr ? "\n" : "\n\r") + text, behaviour_.delay);
}

void SkytelService::Receive(std::string_view bytes) {
  if (behaviour_.silent) return;
  cutter_.Feed(bytes, [this](const std::string& line) { Line(line); });
}

void SkytelService::Line(const std::string& line) {
  switch (state_) {
    case State::Wake: state_ = State::Pager; return Prompt("PAGER ID: ");
    case State::Pager:
      if (line.empty()) return Prompt("PAGER ID: ");
      pager_ = line;
      state_ = State::Menu;
      return Prompt("FUNCTION: ");
    case State::Menu:
      if (line == "1" && !behaviour_.repeat_menu) {
        state_ = State::Message;
        return Prompt("ENTER ALPHA MESSAGE: ");
      }
      if (line == "99") {
        state_ = State::Gone;
        return Say("\r\nDisconnecting\r\n", behaviour_.delay);
      }
      return Prompt("FUNCTION: ");
    case State::Message:
      if (behaviour_.ignore_message) return;
      message_ = line;
      state_ = State::Confirm;
      return Prompt("SEND ?: ");
    case State::Confirm:
      if (line == "Y") pages_.push_back({pager_, message_});
      state_ = State::Menu;
      return Prompt("FUNCTION: ");
    case State::Gone: return;
  }
}

void SkytelService::Hangup() {
  state_ = State::Wake;
  cutter_.Reset();
}

// ---- Zetron -------------------------------------------------------------------

void ZetronTerminal::Receive(std::string_view bytes) {
  if (behaviour_.silent) return;
  cutter_.Feed(bytes, [this](const std::string& line) { Line(line); });
}

void ZetronTerminal::Line(const std::string& line) {
  auto ask = [this](State next, const char* text) {
    state_ = next;
    Say(std::string("\r\n") + text, behaviour_.delay);
  };
  switch (state_) {
    case State::Wake: return ask(State::Ready, "Enter ID: ");
    case State::Ready:
      if (line == "C") return ask(State::Format, "Format ? ");
      return ask(State::Ready, "Enter ID: ");
    case State::Format:
      if (line == "C") return ask(State::Format, "Format ? ");
      page_ = Page{line, "", "", ""};
      return ask(State::Capcode, "Capcode ? ");
    case State::Capcode: page_.capcode = line; return ask(State::Function, "Function ? ");
    case State::Function: page_.function = line; return ask(State::Message, "Message ? ");
    case State::Message:
      page_.message = line;
      if (behaviour_.repeat_message) return ask(State::Message, "Message ? ");
      return ask(State::Alpha, "Alpha (Y/N) ? ");
    case State::Alpha:
      if (line != "Y") return ask(State::Format, "Format ? ");
      return ask(State::PageNow, "Page Now (Y/N) ? ");
    case State::PageNow:
      if (line != "Y") return ask(State::Format, "Format ? ");
      pages_.push_back(page_);
      return ask(State::Sent, "Queued");
    case State::Sent: return ask(State::Accepted, "* Message Accepted *\r\n");
    case State::Accepted: return ask(State::Format, "Format ? ");
  }
}

void ZetronTerminal::Hangup() {
  state_ = State::Wake;
  cutter_.Reset();
}

}  // namespace varnek
