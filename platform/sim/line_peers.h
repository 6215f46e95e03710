// Scriptable far ends of a serial line, for tests and the demo: a Hayes-style
// modem, a TAP paging terminal, the Skytel menus and a Zetron terminal. Each
// hears the bytes the system writes and answers through `emit`, after a
// delay; each can be told to misbehave for the failure paths. The same peers
// sit behind the simulated comm control and behind a real pty.
//
//   auto tap = std::make_shared<TapTerminal>();
//   auto modem = std::make_shared<HayesModem>(tap);
//   comms.Attach(1, modem);      // COM port 1 dials into the terminal
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varnek {

class LinePeer {
 public:
  virtual ~LinePeer() = default;
  // Bytes the system wrote, as they come off the line.
  virtual void Receive(std::string_view bytes) = 0;
  // The port was closed (DTR dropped): a modem hangs up, a terminal starts over.
  virtual void Hangup() {}
  // Set by the line: sends bytes towards the system after `delay` seconds.
  std::function<void(std::string bytes, double delay)> emit;

 protected:
  void Say(std::string bytes, double delay);
};

// Cuts a byte stream into lines ended by CR; LF is dropped.
class LineCutter {
 public:
  template <class OnLine>
  void Feed(std::string_view bytes, OnLine&& on_line) {
    for (char c : bytes) {
      if (c == '\n') continue;
      if (c == '\r') {
        std::string line = std::move(line_);
        line_.clear();
        on_line(line);
      } else if (line_.size() < 4096) {
        line_ += c;
      }
    }
  }
  void Reset() { line_.clear(); }

 private:
  std::string line_;
};

struct ModemBehaviour {
  bool echo = true;                 // echoes commands until ATE0
  bool silent = false;              // never answers anything
  bool lower_case_connect = false;  // "connect 1200" in place of "CONNECT 1200"
  bool busy = false;                // answers a dial with "BUSY" and stays in command mode
  double connect_delay = 15;        // seconds from ATDT to the connect message
};

// Command mode until a dial, then a transparent line to the far peer. "ATI"
// answers "Varnek line modem" before its "OK".
class HayesModem : public LinePeer {
 public:
  explicit HayesModem(std::shared_ptr<LinePeer> far, ModemBehaviour behaviour = {});
  void Receive(std::string_view bytes) override;
  void Hangup() override;
  const std::vector<std::string>& commands() const { return commands_; }
  bool connected() const { return connected_; }

 private:
  void Command(const std::string& line);
  std::shared_ptr<LinePeer> far_;
  ModemBehaviour behaviour_;
  bool echo_;
  bool connected_ = false;
  LineCutter cutter_;
  std::vector<std::string> commands_;
};

struct TapBehaviour {
  bool silent = false;          // never answers
  bool invalid_id = false;      // answers the wake-up with "INVALID"
  bool repeat_id = false;       // answers the login with "ID=" again, never "[p"
  bool refuse_blocks = false;   // answers every block with NAK, as on a bad checksum
  bool abandon_blocks = false;  // answers every block with RS
  bool ack_without_cr = false;  // a bare ACK with no CR behind it
  bool flood = false;           // after the login, chatters "." every 0.5 s, never pausing
  bool ignore_blocks = false;   // takes blocks in silence, answering only the logout
  double delay = 0.05;          // seconds before each answer
};

// A TAP paging terminal: ID= on CR, ESC PG1 login, blocks with their
// checksum checked, ACK/NAK/RS, ESC EOT on logout.
class TapTerminal : public LinePeer {
 public:
  explicit TapTerminal(TapBehaviour behaviour = {}) : behaviour_(behaviour) {}
  void Receive(std::string_view bytes) override;
  void Hangup() override;

  struct Page {
    std::string code, message;
  };
  const std::vector<Page>& pages() const { return pages_; }
  int refused() const { return refused_; }
  const std::string& password() const { return password_; }
  bool logged_in() const { return logged_in_; }
  bool logged_out() const { return logged_out_; }
  TapBehaviour& behaviour() { return behaviour_; }

  // The three-character checksum of a block, as the terminal checks it.
  static std::string Checksum(std::string_view block);

 private:
  void Block(const std::string& block);
  void Chatter(int left);
  TapBehaviour behaviour_;
  std::string buffer_;
  bool logged_in_ = false;
  bool logged_out_ = false;
  std::string password_;
  std::vector<Page> pages_;
  int refused_ = 0;
};

struct MenuBehaviour {
  bool silent = false;
  bool repeat_menu = false;      // answers "1" with the menu again
  bool repeat_message = false;   // Zetron: asks for the message again and again
  bool drop_leading_cr = false;  // prompts come without their leading CR
  bool ignore_message = false;   // Skytel: no answer to the message text
  double delay = 0.05;
};

// The Skytel service's text menus.
class SkytelService : public LinePeer {
 public:
  explicit SkytelService(MenuBehaviour behaviour = {}) : behaviour_(behaviour) {}
  void Receive(std::string_view bytes) override;
  void Hangup() override;
  const std::vector<std::pair<std::string, std::string>>& pages() const { return pages_; }
  MenuBehaviour& behaviour() { return behaviour_; }

 private:
  void Line(const std::string& line);
  void Prompt(const std::string& text);
  enum class State { Wake, Pager, Menu, Message, Confirm, Gone } state_ = State::Wake;
  MenuBehaviour behaviour_;
  LineCutter cutter_;
  std::string pager_, message_;
  std::vector<std::pair<std::string, std::string>> pages_;
};

// A Zetron paging terminal's questions.
class ZetronTerminal : public LinePeer {
 public:
  explicit ZetronTerminal(MenuBehaviour behaviour = {}) : behaviour_(behaviour) {}
  void Receive(std::string_view bytes) override;
  void Hangup() override;
  struct Page {
    std::string format, capcode, function, message;
  };
  const std::vector<Page>& pages() const { return pages_; }

 private:
  void Line(const std::string& line);
  enum class State {
    Wake,
    Ready,
    Format,
    Capcode,
    Function,
    Message,
    Alpha,
    PageNow,
    Sent,
    Accepted
  };
  State state_ = State::Wake;
  MenuBehaviour behaviour_;
  LineCutter cutter_;
  Page page_;
  std::vector<Page> pages_;
};

}  // namespace varnek
