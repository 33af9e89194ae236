// kolm gallery: every effect at every parameter, as sheets and as a page for a browser.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <system_error>
#include <vector>

#include "tools/kolm/commands.h"
#include "tools/kolm/contact_sheet.h"
#include "tools/kolm/effect_names.h"
#include "tools/kolm/failure.h"
#include "tools/kolm/gallery_page.h"
#include "tools/kolm/media_source.h"
#include "tools/kolm/new_file.h"
#include "tools/kolm/packed_yuv.h"
#include "tools/kolm/picture_arguments.h"
#include "tools/kolm/picture_file.h"
#include "tools/kolm/sample_scene.h"

namespace kolm {
namespace {

constexpr const char* kPage = "index.html";

constexpr double kCellPixels = 480.0 * 360.0;  // keeps the page below 15 MB, noise included

// A picture, or the first frame of what else frames come from.
cv::Mat FirstPicture(const std::string& input) {
  SourceOptions options;
  options.input = input;
  const std::unique_ptr<FrameSource> source = OpenSource(options);
  MediaItem item;
  while (!item.frame) {
    if (!source->Next(item)) throw Failure(ExitCode::UnreadablePicture, source->Damage());
  }
  const AVFrame& frame = *item.frame;
  const uint8_t* bytes = frame.data[0];
  return PictureFromPacked({bytes, bytes + ptrdiff_t{frame.linesize[0]} * frame.height},
                           {frame.width, frame.height});
}

// Reduced as for a sheet, upright pictures to about as many pixels as others.
cv::Mat GallerySource(const cv::Mat& picture) {
  const double width = std::sqrt(kCellPixels * picture.cols / picture.rows);
  return ReduceToCell(picture, std::clamp(static_cast<int>(width), 2, kGalleryCellWidth));
}

std::filesystem::path SheetName(const Effect& effect) {
  char number[16];
  std::snprintf(number, sizeof number, "%02u-", effect.id);
  return number + effect.name + ".jpg";
}

// The directory, in which each file of the gallery can be written.
void PrepareFolder(const std::filesystem::path& folder, const EffectList& effects, bool overwrite) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error || !std::filesystem::is_directory(folder)) {
    throw Failure(ExitCode::UnwritableOutput,
                  "cannot make the directory " + Quoted(folder) + ": " +
                      (error ? error.message() : "it is a file") +
                      "; expected a directory that exists or can be made");
  }
  for (const Effect& effect : effects) CheckOutput(folder / SheetName(effect), overwrite);
  CheckPlace(folder / kPage, overwrite);
}

void WriteGallery(const PictureArguments& options) {
  const std::filesystem::path folder = options.output;
  const EffectList effects = ListEffects();
  // What exists is looked at first, what does not is made only once there is something to put in.
  std::error_code error;
  if (std::filesystem::exists(folder, error)) PrepareFolder(folder, effects, options.overwrite);
  const cv::Mat source =
      GallerySource(options.picture.empty() ? DrawSampleScene() : FirstPicture(options.picture));
  PrepareFolder(folder, effects, options.overwrite);
  std::vector<EffectPictures> pictures;
  for (const Effect& effect : effects) {
    EffectPictures& all = pictures.emplace_back(EffectPictures{effect, {}});
    for (uint32_t parameter = effect.minimum; parameter <= effect.maximum; ++parameter) {
      all.results.push_back(ApplyEffects(source, {{effect, parameter}}));
    }
    WritePicture(DrawParameterSheet(source, all.results, effect), folder / SheetName(effect),
                 options.overwrite);
  }
  const std::string text = GalleryPage(source, pictures);
  NewFile file(folder / kPage, options.overwrite);
  file.Write(text.data(), text.size());
  file.Finish();
  Kolm_VE_UninitVideoEffect();
}

}  // namespace

void AddGalleryCommand(CLI::App& app, Work& work) {
  const auto options = std::make_shared<PictureArguments>();
  CLI::App* command = app.add_subcommand(
      "gallery", "Write sheets of every effect at every parameter, and a page that shows them");
  AddOptionalPicture(
      command, *options,
      {"INPUT",
       "A picture, or a video, of which the first frame is taken; without it a built-in sample"},
      {"DIR", "The directory; made if there is none"},
      [&work, options] { work = [options] { WriteGallery(*options); }; });
  command->footer(
      "DIR/index.html is one page with all pictures in it: a browser opens it from disk, and it "
      "can be\nmailed. Beside it stands a sheet of each effect: 01-zoom-in.jpg and so on. The "
      "picture is first\nreduced to at most 480 pixels' width, so that each pixel is one that an "
      "effect wrote.\n\nExamples:\n  kolm gallery effects\n  kolm gallery -y portrait.jpg "
      "effects");
}

}  // namespace kolm
