// The few host controls the storage routines write to: a status label, a list
// control, and a form with its data controls. Hosts (and tests) implement
// them; the routines reach nothing else of the host's forms.
#pragma once

#include <cstdint>

#include "varnek/runtime/text.h"

namespace varnek {

// A label whose Caption can be written.
class CaptionControl {
 public:
  virtual ~CaptionControl() = default;
  virtual void SetCaption(const Text& caption) = 0;
};

// A list box or combo box: Clear and AddItem.
class ListControl {
 public:
  virtual ~ListControl() = default;
  virtual void Clear() = 0;
  virtual void AddItem(const Text& item) = 0;
};

// Any control of a form, known by its type name ("Data", "TextBox", ...).
class FormControl {
 public:
  virtual ~FormControl() = default;
  virtual Text TypeName() const = 0;
};

// A data control: the connection and database it reads, and a refresh.
class DataControl : public FormControl {
 public:
  Text TypeName() const override { return u"Data"; }
  virtual void SetConnect(const Text& connect) = 0;
  virtual void SetDatabaseName(const Text& name) = 0;
  virtual void Refresh() = 0;
};

// A form's controls in order of position, from 0.
class HostForm {
 public:
  virtual ~HostForm() = default;
  virtual int32_t ControlCount() const = 0;
  virtual FormControl& Control(int32_t index) = 0;
};

}  // namespace varnek
