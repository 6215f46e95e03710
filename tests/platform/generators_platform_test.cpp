// The picture control, clipboard and MIDI output: the same rules on the Linux
// implementations and the recording ones, and the Cairo pixels themselves.
#include <cairo.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "varnek/platform/linux/internal/alsa_midi_output.h"
#include "varnek/platform/linux/internal/cairo_surface.h"
#include "varnek/platform/linux/internal/linux_clipboard.h"
#include "varnek/platform/midi_sounding_notes.h"
#include "varnek/platform/sim/recording_midi_output.h"
#include "varnek/platform/sim/recording_surface.h"

namespace varnek {
namespace {

// ---- Picture control ---------------------------------------------------------

template <class Factory>
struct SurfaceRules : ::testing::Test {
  Factory factory;
};
using SurfaceFactories = ::testing::Types<CairoSurfaceFactory, RecordingSurfaceFactory>;
TYPED_TEST_SUITE(SurfaceRules, SurfaceFactories);

TYPED_TEST(SurfaceRules, ScaleFollowsOuterWidthAndPictureComesAndGoes) {
  auto box = this->factory.Create(200, 50);
  box->SetScalePixels();
  auto scale = [&] {
    return std::vector{box->ScaleLeft(), box->ScaleTop(), box->ScaleWidth(), box->ScaleHeight()};
  };
  EXPECT_EQ(scale(), (std::vector<double>{0, 0, 200, 50}));
  EXPECT_EQ(box->OuterWidth(), 3000);  // 15 twips a pixel
  box->SetOuterWidth(1500);
  EXPECT_EQ(scale(), (std::vector<double>{0, 0, 100, 50}));
  // text measures grow with the text
  EXPECT_GT(box->TextHeight(u"X"), 0);
  EXPECT_GT(box->TextWidth(u"XXXX"), box->TextWidth(u"XX"));
  EXPECT_EQ(box->TextWidth(u""), 0);
  // a picture only once fixed, none after removal
  EXPECT_EQ(box->Picture(), "");
  box->FillBox(0, 0, 10, 10, 0);
  box->FixPicture();
  EXPECT_NE(box->Picture(), "");
  box->RemovePicture();
  EXPECT_EQ(box->Picture(), "");
}

// The PNG's pixels as 0xRRGGBB, row by row.
struct Pixels {
  int width = 0, height = 0;
  std::vector<uint32_t> rgb;
  uint32_t At(int x, int y) const { return rgb[static_cast<size_t>(y * width + x)]; }
};

Pixels Decode(const std::string& png) {
  struct Reader {
    const std::string* bytes;
    size_t at = 0;
  } reader{&png};
  auto read = [](void* closure, unsigned char* data, unsigned int length) {
    auto* r = static_cast<Reader*>(closure);
    if (r->at + length > r->bytes->size()) return CAIRO_STATUS_READ_ERROR;
    std::copy_n(r->bytes->data() + r->at, length, data);
    r->at += length;
    return CAIRO_STATUS_SUCCESS;
  };
  cairo_surface_t* s = cairo_image_surface_create_from_png_stream(read, &reader);
  Pixels p;
  if (cairo_surface_status(s) == CAIRO_STATUS_SUCCESS) {
    p.width = cairo_image_surface_get_width(s);
    p.height = cairo_image_surface_get_height(s);
    const int stride = cairo_image_surface_get_stride(s);
    const unsigned char* data = cairo_image_surface_get_data(s);
    for (int y = 0; y < p.height; ++y) {
      for (int x = 0; x < p.width; ++x) {
        uint32_t v;
        std::memcpy(&v, data + y * stride + x * 4, 4);
        p.rgb.push_back(v & 0xFFFFFF);
      }
    }
  }
  cairo_surface_destroy(s);
  return p;
}

TEST(CairoSurface, DrawsPastTheWidthAndShowsItOnceWidened) {
  CairoSurface box(10, 20);
  box.Clear();
  box.FillBox(2, 0, 4, 10, 0);           // inside
  box.FillBox(30, 0, 33, 10, 0xFF0000);  // past the width: kept
  box.FixPicture();
  // on a white background; the right and bottom edges are not filled
  struct Spot {
    int x, y;
    uint32_t rgb;
  };
  auto expect = [](const Pixels& p, std::initializer_list<Spot> spots) {
    for (const Spot& s : spots) EXPECT_EQ(p.At(s.x, s.y), s.rgb) << s.x << "," << s.y;
  };
  Pixels narrow = Decode(box.Picture());
  ASSERT_EQ(narrow.width, 10);
  ASSERT_EQ(narrow.height, 20);
  expect(narrow, {{1, 5, 0xFFFFFF}, {2, 5, 0}, {3, 9, 0}, {4, 5, 0xFFFFFF}, {2, 10, 0xFFFFFF}});
  box.SetOuterWidth(40 * 15);
  box.FixPicture();
  Pixels wide = Decode(box.Picture());
  ASSERT_EQ(wide.width, 40);
  expect(wide, {{30, 0, 0xFF0000}, {32, 9, 0xFF0000}, {33, 9, 0xFFFFFF}});
  // printed text leaves dark pixels below the position
  box.Clear();
  box.SetTextPosition(2, 2);
  box.Print(u"WW");
  box.FixPicture();
  Pixels text = Decode(box.Picture());
  int dark = 0;
  for (uint32_t v : text.rgb) dark += v != 0xFFFFFF;
  EXPECT_GT(dark, 10);
}

// ---- Clipboard -------------------------------------------------------------------

TEST(LinuxClipboard, WithoutADisplayTheImageGoesToTheNamedFile) {
  const char* display = std::getenv("DISPLAY");
  std::string saved = display ? display : "";
  unsetenv("DISPLAY");
  auto dir = std::filesystem::temp_directory_path() / ("varnek-clip-" + std::to_string(getpid()));
  std::string file = (dir / "sub" / "clip.png").string();
  auto stored = [&] {
    std::stringstream bytes;
    bytes << std::ifstream(file, std::ios::binary).rdbuf();
    return bytes.str();
  };
  LinuxClipboard clipboard(file);
  clipboard.Clear();  // nothing there yet: no failure
  for (const std::string& png : {std::string("\x89PNG\0x", 6), std::string("second")}) {
    // made, then replaced
    clipboard.SetImage(2, png);
    EXPECT_EQ(stored(), png);
  }
  clipboard.Clear();
  EXPECT_FALSE(std::filesystem::exists(file));
  std::filesystem::remove_all(dir);
  if (!saved.empty()) setenv("DISPLAY", saved.c_str(), 1);
  // the default names the cache folder
  LinuxClipboard standard;
  EXPECT_TRUE(standard.File().ends_with("varnek/clipboard.png"));
}

// ---- MIDI output -----------------------------------------------------------------

template <class Output>
struct MidiOutputRules : ::testing::Test {
  Output midi;
  // The recording output always opens; ALSA only where a sequencer exists.
  bool ExpectsOutput() const {
    if constexpr (std::is_same_v<Output, AlsaMidiOutput>)
      return access("/dev/snd/seq", R_OK | W_OK) == 0;
    return true;
  }
};
using MidiOutputs = ::testing::Types<AlsaMidiOutput, RecordingMidiOutput>;
TYPED_TEST_SUITE(MidiOutputRules, MidiOutputs);

TYPED_TEST(MidiOutputRules, OpenOnceThenSendResetAndCloseOnce) {
  auto& midi = this->midi;
  EXPECT_FALSE(midi.ShortMessage(0x603C90));
  EXPECT_FALSE(midi.Reset());
  EXPECT_FALSE(midi.Close());
  const bool opened = midi.Open();
  EXPECT_EQ(opened, this->ExpectsOutput());
  if (opened) {
    EXPECT_FALSE(midi.Open());  // open already
    EXPECT_TRUE(midi.ShortMessage(0x603C90));
    EXPECT_TRUE(midi.ShortMessage(0xFF));  // no short form: accepted, nothing sent
    EXPECT_TRUE(midi.Reset());
    EXPECT_TRUE(midi.Close());
    EXPECT_FALSE(midi.Close());
    EXPECT_FALSE(midi.ShortMessage(0x603C90));
  }
}

TEST(SoundingNotes, CloseEndsOnlyWhatStillSounds) {
  SoundingNotes notes;
  for (uint32_t m : {0x603C90u, 0x604091u, 0x004390u, 0x004090u, 0x7F3E90u, 0x403E80u, 0x604590u,
                     0x007BB0u, 0x0078B1u, 0x604791u, 0x604890u}) {
    notes.Track(m);  // velocity 0 and Note Off end a note; 123 and 120 end a channel's
  }
  EXPECT_EQ(notes.StopMessages(), std::vector<uint32_t>({0x4880, 0x4781, 0x7BB0}));
  EXPECT_EQ(notes.StopMessages(), std::vector<uint32_t>({0x7BB0}));  // forgotten once stopped
  notes.Track(0x603C90);
  notes.Clear();  // after a reset
  EXPECT_EQ(notes.StopMessages(), std::vector<uint32_t>({0x7BB0}));
}

TYPED_TEST(MidiOutputRules, SleepBlocksForItsTimeOnly) {
  auto start = std::chrono::steady_clock::now();
  this->midi.Sleep(-5);
  this->midi.Sleep(0);
  this->midi.Sleep(30);
  auto took = std::chrono::steady_clock::now() - start;
  if constexpr (std::is_same_v<TypeParam, AlsaMidiOutput>) {
    EXPECT_GE(took, std::chrono::milliseconds(30));
  } else {
    EXPECT_EQ(this->midi.slept_ms, 30);  // recorded, not waited
  }
  EXPECT_LT(took, std::chrono::seconds(10));
}

}  // namespace
}  // namespace varnek
