// The window of kolm view, by SDL.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/kolm/media.h"

struct SDL_Renderer;
struct SDL_Texture;
struct SDL_Window;

namespace kolm {

enum class ViewKey {
  NextEffect,
  PreviousEffect,
  MoreParameter,
  LessParameter,
  Background,
  Tracking,
  Outlines,
  Split,
  Pause,
  Step,
  Screenshot,
  Help,
  Quit,
};

// A line for each key: its name, a tab, and what it does.
std::vector<std::string> ListKeys();

class ViewWindow {
 public:
  // Connects to the display. Throws Failure if there is none.
  ViewWindow();
  ~ViewWindow();
  ViewWindow(const ViewWindow&) = delete;
  ViewWindow& operator=(const ViewWindow&) = delete;

  // Opens the window for packed frames of this shape. Throws Failure.
  void Open(const MediaShape& shape);

  // The next key that has been pressed; null once there is none. Closing the window is Quit.
  std::optional<ViewKey> NextKey();

  void SetTitle(const std::string& title);

  // Lines of ASCII over the frame, with a second column after a tab; none take the old ones away.
  void SetText(const std::vector<std::string>& lines);

  void Show(const AVFrame& frame);

 private:
  using Texture = std::unique_ptr<SDL_Texture, void (*)(SDL_Texture*)>;

  void Draw();

  std::unique_ptr<SDL_Window, void (*)(SDL_Window*)> window_;
  std::unique_ptr<SDL_Renderer, void (*)(SDL_Renderer*)> renderer_;
  Texture frame_, text_;
  double aspect_ = 1;  // the frame's width by its height, as they are to be seen
};

}  // namespace kolm
