// Shows frames through a YUY2 texture, and text through one of its own.
#include "tools/kolm/view_window.h"

#include <SDL.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "tools/kolm/failure.h"
#include "tools/kolm/library_messages.h"
#include "tools/kolm/picture_file.h"

namespace kolm {
namespace {

struct KeyEntry {
  SDL_Keycode code;
  ViewKey key;
  bool repeats;  // while it is held down
  const char* name;
  const char* meaning;
};

constexpr KeyEntry kKeys[] = {
    {SDLK_RIGHT, ViewKey::NextEffect, true, "Right", "next effect"},
    {SDLK_LEFT, ViewKey::PreviousEffect, true, "Left", "previous effect; none before the first"},
    {SDLK_UP, ViewKey::MoreParameter, true, "Up", "larger parameter"},
    {SDLK_DOWN, ViewKey::LessParameter, true, "Down", "smaller parameter"},
    {SDLK_b, ViewKey::Background, false, "b", "background on, off"},
    {SDLK_t, ViewKey::Tracking, false, "t", "face tracking on, off"},
    {SDLK_o, ViewKey::Outlines, false, "o", "outlines of the tracking instead of its crop"},
    {SDLK_v, ViewKey::Split, false, "v", "source and result in two halves"},
    {SDLK_SPACE, ViewKey::Pause, false, "Space", "pause"},
    {SDLK_PERIOD, ViewKey::Step, true, ".", "one frame further, and pause"},
    {SDLK_s, ViewKey::Screenshot, false, "s", "write the frame to a new PNG file"},
    {SDLK_h, ViewKey::Help, false, "h", "this list"},
    {SDLK_q, ViewKey::Quit, false, "q", "quit; so does Escape"},
    {SDLK_ESCAPE, ViewKey::Quit, false, nullptr, nullptr},
};

std::optional<ViewKey> KeyOf(const SDL_KeyboardEvent& event) {
  for (const KeyEntry& entry : kKeys) {
    if (entry.code != event.keysym.sym) continue;
    if (event.repeat != 0 && !entry.repeats) return std::nullopt;
    return entry.key;
  }
  return std::nullopt;
}

[[noreturn]] void FailToShow(const std::string& what) {
  throw Failure(ExitCode::NoDisplay,
                what + ": " + SDL_GetError() +
                    "; expected a display that DISPLAY or WAYLAND_DISPLAY names; without one, "
                    "'kolm apply', 'kolm background' and 'kolm track' write files");
}

// White on translucent black, ready to be laid over a frame.
cv::Mat DrawText(const std::vector<std::string>& lines, int widest) {
  constexpr int kFont = cv::FONT_HERSHEY_SIMPLEX;
  constexpr double kLineHeight = 26, kMargin = 10, kTab = 80, kSize = 0.6;
  struct Piece {
    std::string text;
    double x, y;
  };
  std::vector<Piece> pieces;
  double y = kLineHeight - kMargin / 4;
  for (const std::string& line : lines) {
    const size_t tab = line.find('\t');
    pieces.push_back({line.substr(0, tab), kMargin, y});
    if (tab != std::string::npos) pieces.push_back({line.substr(tab + 1), kMargin + kTab, y});
    y += kLineHeight;
  }
  double width = 1;
  for (const Piece& piece : pieces) {
    int baseline = 0;
    const int length = cv::getTextSize(piece.text, kFont, kSize, 1, &baseline).width;
    width = std::max(width, piece.x + length + kMargin);
  }
  const double scale = std::min(1.0, widest / width);
  const auto scaled = [scale](double length) { return std::max(1, cvFloor(length * scale)); };
  cv::Mat text(scaled(y - kMargin), scaled(width), CV_8UC4, cv::Scalar(0, 0, 0, 170));
  for (const Piece& piece : pieces) {
    cv::putText(text, piece.text, {scaled(piece.x), scaled(piece.y)}, kFont, kSize * scale,
                cv::Scalar::all(255), 1, cv::LINE_AA);
  }
  return text;
}

}  // namespace

std::vector<std::string> ListKeys() {
  std::vector<std::string> lines;
  for (const KeyEntry& entry : kKeys) {
    if (entry.name == nullptr) continue;
    lines.push_back(std::string(entry.name) + "\t" + entry.meaning);
  }
  return lines;
}

ViewWindow::ViewWindow()
    : window_(nullptr, SDL_DestroyWindow),
      renderer_(nullptr, SDL_DestroyRenderer),
      frame_(nullptr, SDL_DestroyTexture),
      text_(nullptr, SDL_DestroyTexture) {
  // Signals are the tool's own matter.
  SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
  // Without a display the libraries of several would tell of it.
  const QuietLibraries quiet;
  if (SDL_Init(SDL_INIT_VIDEO) != 0) FailToShow("there is no display");
  // SDL's last resort is a window that nobody sees.
  if (std::getenv("SDL_VIDEODRIVER") == nullptr &&
      std::strcmp(SDL_GetCurrentVideoDriver(), "offscreen") == 0) {
    SDL_Quit();
    SDL_SetError("neither X11 nor Wayland nor a screen of this machine can be reached");
    FailToShow("there is no display");
  }
}

ViewWindow::~ViewWindow() {
  text_.reset();
  frame_.reset();
  renderer_.reset();
  window_.reset();
  SDL_Quit();
}

void ViewWindow::Open(const MediaShape& shape) {
  double width = shape.width, height = shape.height;
  if (shape.pixelAspect.num > 0 && shape.pixelAspect.den > 0) {
    width *= av_q2d(shape.pixelAspect);
  }
  aspect_ = width / height;
  // Whole times larger where the text would not fit, smaller where the screen is.
  constexpr double kSmallest = 480;
  SDL_Rect screen = {};
  if (SDL_GetDisplayUsableBounds(0, &screen) != 0) FailToShow("the display tells no size");
  const double scale =
      std::min({std::ceil(kSmallest / width), screen.w / width, screen.h / height});
  SDL_SetHint(SDL_HINT_RENDER_SCALE_QUALITY, scale < 1 ? "linear" : "nearest");
  window_.reset(SDL_CreateWindow("kolm", SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED,
                                 std::max(1, static_cast<int>(std::lround(width * scale))),
                                 std::max(1, static_cast<int>(std::lround(height * scale))),
                                 SDL_WINDOW_RESIZABLE));
  if (!window_) FailToShow("no window can be opened");
  SDL_SetYUVConversionMode(SDL_YUV_CONVERSION_BT601);
  renderer_.reset(SDL_CreateRenderer(window_.get(), -1, 0));
  if (!renderer_) FailToShow("the window cannot be drawn to");
  frame_.reset(SDL_CreateTexture(renderer_.get(), SDL_PIXELFORMAT_YUY2, SDL_TEXTUREACCESS_STREAMING,
                                 shape.width, shape.height));
  if (!frame_) {
    throw Failure(ExitCode::PictureSize, "frames of " + SizeText(shape.width, shape.height) +
                                             " cannot be shown: " + SDL_GetError() +
                                             "; 'kolm apply' takes larger ones");
  }
}

std::optional<ViewKey> ViewWindow::NextKey() {
  SDL_Event event;
  while (SDL_PollEvent(&event) != 0) {
    if (event.type == SDL_QUIT) return ViewKey::Quit;
    if (event.type == SDL_KEYDOWN) {
      if (const std::optional<ViewKey> key = KeyOf(event.key)) return key;
    }
    if (event.type == SDL_WINDOWEVENT && (event.window.event == SDL_WINDOWEVENT_EXPOSED ||
                                          event.window.event == SDL_WINDOWEVENT_SIZE_CHANGED)) {
      Draw();
    }
  }
  return std::nullopt;
}

void ViewWindow::SetTitle(const std::string& title) {
  SDL_SetWindowTitle(window_.get(), title.c_str());
}

void ViewWindow::SetText(const std::vector<std::string>& lines) {
  text_.reset();
  if (!lines.empty()) {
    int width = 0, height = 0;
    SDL_GetRendererOutputSize(renderer_.get(), &width, &height);
    const cv::Mat text = DrawText(lines, width);
    text_.reset(SDL_CreateTexture(renderer_.get(), SDL_PIXELFORMAT_ARGB8888,
                                  SDL_TEXTUREACCESS_STATIC, text.cols, text.rows));
    SDL_UpdateTexture(text_.get(), nullptr, text.data, static_cast<int>(text.step));
    SDL_SetTextureBlendMode(text_.get(), SDL_BLENDMODE_BLEND);
  }
  Draw();
}

void ViewWindow::Show(const AVFrame& frame) {
  SDL_UpdateTexture(frame_.get(), nullptr, frame.data[0], frame.linesize[0]);
  Draw();
}

void ViewWindow::Draw() {
  int width = 0, height = 0;
  SDL_GetRendererOutputSize(renderer_.get(), &width, &height);
  SDL_Rect place = {0, 0, width, static_cast<int>(std::lround(width / aspect_))};
  if (place.h > height) place = {0, 0, static_cast<int>(std::lround(height * aspect_)), height};
  place.x = (width - place.w) / 2;
  place.y = (height - place.h) / 2;
  SDL_SetRenderDrawColor(renderer_.get(), 0, 0, 0, SDL_ALPHA_OPAQUE);
  SDL_RenderClear(renderer_.get());
  SDL_RenderCopy(renderer_.get(), frame_.get(), nullptr, &place);
  if (text_) {
    SDL_Rect corner = {0, 0, 0, 0};
    SDL_QueryTexture(text_.get(), nullptr, nullptr, &corner.w, &corner.h);
    SDL_RenderCopy(renderer_.get(), text_.get(), nullptr, &corner);
  }
  SDL_RenderPresent(renderer_.get());
}

}  // namespace kolm
