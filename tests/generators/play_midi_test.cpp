// MIDI play strings: the parser's quirks, the recorded messages and waits of
// the help's example and of each style, failures before and after the first
// note, and the refused second entry.
#include <gtest/gtest.h>

#include "varnek/adds/adds.h"
#include "varnek/adds/generators/play_string.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/runtime/strings.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

using generators::MidiSettings;
using generators::ParsePlayString;

// Notes and lengths of a parse, as "note/length" items.
std::vector<std::string> Parsed(const Text& play, MidiSettings& settings) {
  std::vector<std::string> out;
  for (const auto& e : ParsePlayString(play, settings).events) {
    out.push_back(std::to_string(e.Note) + "/" + std::to_string(e.Length));
  }
  return out;
}

std::vector<std::string> Parsed(const Text& play) {
  MidiSettings fresh;
  return Parsed(play, fresh);
}

using V = std::vector<std::string>;

TEST(PlayString, NumbersNotesAndQuirks) {
  const std::pair<const char16_t*, V> fresh[] = {
      // notes, accidentals (also on the last unit), octaves, N numbers
      {u"O3C", {"60/4"}},
      {u"N37", {"60/4"}},
      {u"c-c#C+", {"59/4", "61/4", "61/4"}},
      {u"O0AO6B", {"33/4", "107/4"}},
      {u"C.L8D.L2E.",
       {"60/3", "62/5", "64/1"}},  // dots divide by 1.5, ties to even: 4 -> 3, 8 -> 5, 2 -> 1
      {u"P8P.L2P",
       {"-1/8", "-1/3", "-1/2"}},  // pauses: a number or the current length; dots shorten them
      {u"OC", {"60/4", "60/4"}},   // "O" before a letter records it here and on the next pass
      {u"O7C", {"60/4"}},          // 7 is no octave
      {u"H#+-!",
       {"0/4"}}};  // H is a note without an offset; lone accidentals and others are passed over
  for (const auto& [play, parsed] : fresh) EXPECT_EQ(Parsed(play), parsed) << TextToUtf8(play);
  // N, T and P stop their number at a 0; the rest is passed over
  MidiSettings s;
  EXPECT_EQ(Parsed(u"T120C", s), V({"60/4"}));
  EXPECT_EQ(s.Tempo, 12);
  EXPECT_EQ(Parsed(u"T100", s), V());
  EXPECT_EQ(s.Tempo, 1);
  EXPECT_EQ(Parsed(u"N40", s), V({"27/4"}));  // N4, then "0" is unknown
  // L keeps the 0: "L0" and "L16" read as written
  EXPECT_EQ(Parsed(u"L16C", s), V({"60/16"}));
  EXPECT_EQ(Parsed(u"L0CEG", s), V({"60/0", "64/0", "67/0"}));
  EXPECT_EQ(s.NoteLength, 0);
  // volume and style go with the events after them; bare V and M do nothing
  MidiSettings v;
  auto events = ParsePlayString(u"CVPMSDVXMQVM", v).events;
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[0].Volume, 96);
  EXPECT_EQ(events[0].Style, 3);
  EXPECT_EQ(events[1].Volume, 34);
  EXPECT_EQ(events[1].Style, 1);
  EXPECT_EQ(v.Volume, 34);
}

TEST(PlayString, HugeNumbersFailOnlyBeforeTheFirstNote) {
  ExpectFailures({
      {6, [] { Parsed(u"T99999C"); }},
      {6, [] { Parsed(u"L40000C"); }},
      {6, [] { Parsed(u"P99999"); }},
      {6, [] { Parsed(u"N99999999999"); }},
      {6, [] { Parsed(u"N" + Text(400, u'9')); }},
  });
  MidiSettings s;
  EXPECT_EQ(Parsed(u"CT99999L40000DP99999N99999999999", s), V({"60/4", "62/4", "-1/0", "0/4"}));
  EXPECT_EQ(s.Tempo, 120);
  EXPECT_EQ(s.NoteLength, 4);
  // settings persist between parses
  EXPECT_EQ(Parsed(u"O5L8", s), V());
  EXPECT_EQ(Parsed(u"C", s), V({"84/8"}));
}

// The end of a play: a Note Off for each note still sounding, All Notes Off
// on channel 0, and the close.
V Stop(const std::vector<int>& notes) {
  V tail;
  char text[16];
  for (int note : notes) {
    std::snprintf(text, sizeof text, "msg 80 %02X 00", note);
    tail.push_back(text);
  }
  tail.push_back("msg B0 7B 00");
  tail.push_back("close");
  return tail;
}

// A log that ends with the end of a play.
V Then(V head, const V& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

struct PlayMidiTest : ::testing::Test {
  SimPlatform sim;
  Adds adds{sim.platform};
  std::vector<std::string>& log = sim.midi.log;
};

TEST_F(PlayMidiTest, HelpExamplePlaysItsNotesAndWaits) {
  EXPECT_TRUE(adds.Sound_PlayMidi(u"T96O3L4cd.efgabO4cL8defgabO5c").IsEmpty());
  // 2500 / length ms at 96 beats: 625 for 4, 833 for 3, 313 for 8
  const V expected = {
      "open",         "msg 90 3C 60", "sleep 625", "msg 90 3E 60", "sleep 833", "msg 90 40 60",
      "sleep 625",    "msg 90 41 60", "sleep 625", "msg 90 43 60", "sleep 625", "msg 90 45 60",
      "sleep 625",    "msg 90 47 60", "sleep 625", "msg 90 48 60", "sleep 625", "msg 90 4A 60",
      "sleep 313",    "msg 90 4C 60", "sleep 313", "msg 90 4D 60", "sleep 313", "msg 90 4F 60",
      "sleep 313",    "msg 90 51 60", "sleep 313", "msg 90 53 60", "sleep 313",
      "msg 90 54 60",  // the last note gets no wait
      "sleep 1"};
  // sustained notes all sound until the output closes, which ends them
  EXPECT_EQ(log, Then(expected, Stop({0x3C, 0x3E, 0x40, 0x41, 0x43, 0x45, 0x47, 0x48, 0x4A, 0x4C,
                                      0x4D, 0x4F, 0x51, 0x53, 0x54})));
  EXPECT_FALSE(adds.PlaySettings().DeviceOpen);
  EXPECT_EQ(adds.PlaySettings().Tempo, 96);
  // the last T rules the whole string; octave 5 and length 8 carry over
  log.clear();
  adds.Sound_PlayMidi(u"T99CDT48");
  EXPECT_EQ(log, Then({"open", "msg 90 54 60", "sleep 625", "msg 90 56 60", "sleep 1"},
                      Stop({0x54, 0x56})));
}

TEST_F(PlayMidiTest, StylesChordsAndEmptyStrings) {
  // clang-format off
  struct Row { const char16_t* play; V head; std::vector<int> sounding; };
  const Row rows[] = {
      {u"", {"open", "sleep 1"}, {}},
      // normal: 7/8, reset, 1/8 of 500 ms, halves rounded up; a reset note needs no Note Off
      {u"MNC D", {"open", "msg 90 3C 60", "sleep 438", "reset", "sleep 63", "msg 90 3E 60", "sleep 1"}, {0x3E}},
      {u"MSCMLDE",  // staccato, legato
       {"open", "msg 90 3C 60", "sleep 250", "reset", "sleep 250", "msg 90 3E 60", "sleep 500", "reset", "sleep 1",
        "msg 90 40 60", "sleep 1"},
       {0x40}},
      // length 0 sounds together; "L0" everywhere plays nothing
      {u"MDL0CEG", {"open", "msg 90 3C 60", "msg 90 40 60", "msg 90 43 60", "sleep 1"}, {0x3C, 0x40, 0x43}},
      {u"L0L0P0L0", {"open", "sleep 1"}, {}},
      // a pause sends nothing but waits; volume forte; a note struck twice ends once
      {u"L4VFCPC", {"open", "msg 90 3C 7F", "sleep 500", "sleep 500", "msg 90 3C 7F", "sleep 1"}, {0x3C}}};
  // clang-format on
  for (const Row& r : rows) {
    log.clear();
    adds.Sound_PlayMidi(r.play);
    EXPECT_EQ(log, Then(r.head, Stop(r.sounding))) << TextToUtf8(r.play);
  }
}

TEST_F(PlayMidiTest, FailuresNoOutputAndSecondEntry) {
  // no output: nothing happens
  sim.midi.fail_open = true;
  adds.Sound_PlayMidi(u"CDE");
  EXPECT_TRUE(log.empty());
  sim.midi.fail_open = false;
  // a huge note after the first letter is skipped when sent
  adds.Sound_PlayMidi(u"MDCN99999999");
  EXPECT_EQ(log, Then({"open", "msg 90 3C 60", "sleep 500", "sleep 1"}, Stop({0x3C})));
  // N events only with length 0: the division fails towards the caller and
  // the output stays open, so later calls play nothing
  log.clear();
  EXPECT_EQ(FailureOf([&] { adds.Sound_PlayMidi(u"L0N37N40"); }), kErrDivisionByZero);
  EXPECT_TRUE(adds.PlaySettings().DeviceOpen);
  adds.Sound_PlayMidi(u"C");
  EXPECT_EQ(log, V({"open", "msg 90 3C 60"}));
}

TEST_F(PlayMidiTest, SecondCallDuringPlayIsRefused) {
  int inner = 0;
  sim.midi.on_sleep = [&] {
    if (inner++ == 0) adds.Sound_PlayMidi(u"GGG");
  };
  adds.Sound_PlayMidi(u"MDCD");
  EXPECT_EQ(log, Then({"open", "msg 90 3C 60", "sleep 500", "msg 90 3E 60", "sleep 1"},
                      Stop({0x3C, 0x3E})));
  EXPECT_EQ(adds.Sound_PlayMidiHelp().substr(0, 29), u" Plays a note(s) using MIDI\r\n");
  EXPECT_EQ(Split(adds.Sound_PlayMidiHelp(), u"\r\n").size(), 13u);
}

}  // namespace
}  // namespace varnek
