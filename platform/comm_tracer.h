// A comm control that passes every member on to another one and reports the
// text that crosses the line: what is written through Output and what comes
// back through Input or InputData. Its type name is the inner control's, so
// the serial routines read it the same way.
//
//   CommTracer traced(*comm, [](bool out, const Text& t) { ... });
//   adds.TAP_InitDialog(traced, ...);
#pragma once

#include <functional>
#include <utility>

#include "varnek/platform/comm.h"

namespace varnek {

class CommTracer : public CommCtl {
 public:
  // on_text(true, text) for text written, (false, text) for text read.
  CommTracer(CommCtl& inner, std::function<void(bool written, const Text& text)> on_text)
      : inner_(inner), on_text_(std::move(on_text)) {}

  Text TypeName() const override { return inner_.TypeName(); }
  bool PortOpen() const override { return inner_.PortOpen(); }
  void SetPortOpen(bool open) override { inner_.SetPortOpen(open); }
  void SetCommPort(double port) override { inner_.SetCommPort(port); }
  void SetSettings(TextView settings) override { inner_.SetSettings(settings); }
  void SetDTREnable(bool enable) override { inner_.SetDTREnable(enable); }
  void SetHandshaking(const Variant& mode) override { inner_.SetHandshaking(mode); }
  void SetInBufferSize(int32_t size) override { inner_.SetInBufferSize(size); }
  void SetOutBufferSize(int32_t size) override { inner_.SetOutBufferSize(size); }
  int32_t InBufferCount() const override { return inner_.InBufferCount(); }
  int32_t OutBufferCount() const override { return inner_.OutBufferCount(); }
  Text Input() override { return Seen(inner_.Input()); }
  Text InputData() override { return Seen(inner_.InputData()); }
  void SetOutput(TextView text) override {
    inner_.SetOutput(text);
    if (!text.empty() && on_text_) on_text_(true, Text(text));
  }

 private:
  Text Seen(Text text) {
    if (!text.empty() && on_text_) on_text_(false, text);
    return text;
  }
  CommCtl& inner_;
  std::function<void(bool, const Text&)> on_text_;
};

}  // namespace varnek
