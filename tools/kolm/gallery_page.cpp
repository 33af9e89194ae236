// Writes the page. Pictures are JPEG data: a page in which all were lossless would be slow to open.
#include "tools/kolm/gallery_page.h"

#include <opencv2/imgcodecs.hpp>
#include <sstream>

extern "C" {
#include <libavutil/base64.h>
}

#include "tools/kolm/picture_codecs.h"

namespace kolm {
namespace {

// The policy keeps the page from asking for anything that is not in it.
constexpr const char* kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<meta http-equiv="Content-Security-Policy"
      content="default-src 'none'; img-src data:; style-src 'unsafe-inline'; script-src 'unsafe-inline'">
<title>Kolm: video effects</title>
<style>
:root {
  --paper: #f7f6f3; --card: #ffffff; --line: #d9d5cd; --ink: #22252a; --faint: #5b6068;
  --accent: #0b5cad;
}
@media (prefers-color-scheme: dark) {
  :root {
    --paper: #16191d; --card: #1f2329; --line: #363c45; --ink: #e8eaed; --faint: #a5adb8;
    --accent: #7db8f2;
  }
}
* { box-sizing: border-box; }
html { scroll-behavior: smooth; scroll-padding-top: 4rem; }
@media (prefers-reduced-motion: reduce) { html { scroll-behavior: auto; } }
body {
  margin: 0; background: var(--paper); color: var(--ink);
  font: 1rem/1.5 system-ui, sans-serif;
}
header, main { max-width: 74rem; margin: 0 auto; padding: 1.5rem; }
h1 { margin: 0 0 .5rem; font-size: 1.9rem; line-height: 1.2; }
h2 { margin: 0; font-size: 1.3rem; }
h2 small { color: var(--faint); font-weight: 400; font-variant-numeric: tabular-nums; }
p { margin: .3rem 0 1rem; color: var(--faint); max-width: 46rem; }
code { font-family: ui-monospace, monospace; font-size: .92em; color: var(--ink); }
a { color: var(--accent); }
:focus-visible { outline: 3px solid var(--accent); outline-offset: 2px; }
img { display: block; width: 100%; height: auto; border-radius: .4rem; }
figure { margin: 0; max-width: 30rem; }
figcaption { color: var(--faint); font-size: .9rem; padding-top: .3rem; }
nav ol { display: flex; flex-wrap: wrap; gap: .3rem 1.1rem; margin: 0 0 1rem; padding: 0;
  list-style: none; }
.compare { position: sticky; top: 0; z-index: 1; background: var(--paper);
  border-bottom: 1px solid var(--line); }
.compare label { display: block; max-width: 74rem; margin: 0 auto; padding: .7rem 1.5rem; }
section { background: var(--card); border: 1px solid var(--line); border-radius: .7rem;
  padding: 1.2rem; margin-bottom: 1.5rem; }
.stage { display: flex; flex-wrap: wrap; gap: 1rem; }
.stage figure { flex: 1 1 16rem; }
.slider { display: flex; align-items: center; gap: .8rem; margin: .8rem 0; max-width: 30rem; }
.slider input { flex: 1; accent-color: var(--accent); }
.slider output { min-width: 1.5em; font-variant-numeric: tabular-nums; }
.all { display: grid; grid-template-columns: repeat(auto-fill, minmax(9rem, 1fr)); gap: .7rem;
  margin: 1rem 0 0; padding: 0; list-style: none; }
.all button { display: block; width: 100%; padding: .3rem; font: inherit; color: inherit;
  background: none; border: 2px solid transparent; border-radius: .6rem; cursor: pointer; }
.all button[aria-pressed=true] { border-color: var(--accent); }
[hidden] { display: none !important; }
</style>
</head>
<body>
)";

constexpr const char* kScript = R"(<script>
const source = document.querySelector('#source');
const befores = [];
const compare = document.querySelector('#compare');

function pictureWithCaption(picture, caption) {
  const figure = document.createElement('figure');
  const text = document.createElement('figcaption');
  text.textContent = caption;
  figure.append(picture, text);
  return figure;
}

for (const section of document.querySelectorAll('section')) {
  const stage = section.querySelector('.stage');
  const before = new Image();
  before.alt = 'The source picture';
  before.src = source.src;
  befores.push(before);
  const figure = pictureWithCaption(before, 'Source');
  stage.prepend(figure);

  const slider = section.querySelector('input');
  if (!slider) continue;
  const shown = new Image();
  shown.className = 'shown';
  stage.append(pictureWithCaption(shown, ''));
  const buttons = section.querySelectorAll('button');
  const choose = value => {
    slider.value = value;
    section.querySelector('output').textContent = value;
    for (const button of buttons) {
      const chosen = button.value === String(value);
      button.setAttribute('aria-pressed', chosen);
      if (!chosen) continue;
      const picture = button.querySelector('img');
      shown.src = picture.src;
      shown.alt = picture.alt;
      shown.nextSibling.textContent = picture.alt;
    }
  };
  slider.addEventListener('input', () => choose(slider.value));
  for (const button of buttons) button.addEventListener('click', () => choose(button.value));
  slider.parentNode.hidden = false;
  choose(slider.value);
}

function showBefores() {
  for (const before of befores) before.parentNode.hidden = !compare.checked;
}
compare.addEventListener('change', showBefores);
showBefores();
compare.closest('.compare').hidden = false;
</script>
)";

std::string PictureElement(const cv::Mat& picture, const std::string& attributes,
                           const std::string& text) {
  std::vector<uchar> bytes;
  LoadPictureCodecs().encode(".jpg", picture, bytes, {cv::IMWRITE_JPEG_QUALITY, 85});
  std::string letters(AV_BASE64_SIZE(bytes.size()), '\0');
  av_base64_encode(letters.data(), static_cast<int>(letters.size()), bytes.data(),
                   static_cast<int>(bytes.size()));
  letters.pop_back();  // the terminating zero
  return "<img " + attributes + " width=\"" + std::to_string(picture.cols) + "\" height=\"" +
         std::to_string(picture.rows) + "\" alt=\"" + text + "\" src=\"data:image/jpeg;base64," +
         letters + "\">";
}

void WriteSection(std::ostream& page, const EffectPictures& pictures) {
  const Effect& effect = pictures.effect;
  page << "<section id=\"" << effect.name << "\" aria-labelledby=\"" << effect.name << "-name\">\n"
       << "<h2 id=\"" << effect.name << "-name\"><small>" << effect.id << "</small> "
       << effect.title << "</h2>\n<p><code>kolm apply -e " << effect.name;
  if (!effect.HasParameter()) {
    page << "</code>; no parameter</p>\n<div class=\"stage\"><figure>"
         << PictureElement(pictures.results.front(), "class=\"shown\"", effect.title)
         << "<figcaption>" << effect.title << "</figcaption></figure></div>\n</section>\n";
    return;
  }
  page << ":" << effect.defaultValue << "</code>; parameter " << effect.minimum << " to "
       << effect.maximum << ", by default " << effect.defaultValue
       << "</p>\n<div class=\"stage\"></div>\n<label class=\"slider\" hidden>Parameter "
       << "<input type=\"range\" min=\"" << effect.minimum << "\" max=\"" << effect.maximum
       << "\" value=\"" << effect.defaultValue << "\"><output></output></label>\n"
       << "<ul class=\"all\">\n";
  uint32_t parameter = effect.minimum;
  for (const cv::Mat& picture : pictures.results) {
    const std::string text = effect.title + " " + std::to_string(parameter);
    page << "<li><button type=\"button\" value=\"" << parameter << "\">"
         << PictureElement(picture, "class=\"choice\"", text) << parameter
         << (parameter == effect.defaultValue ? " (default)" : "") << "</button></li>\n";
    ++parameter;
  }
  page << "</ul>\n</section>\n";
}

}  // namespace

std::string GalleryPage(const cv::Mat& source, const std::vector<EffectPictures>& effects) {
  std::ostringstream page;
  page << kHead << "<header>\n<h1>Kolm’s video effects</h1>\n<p>One picture with each of the "
       << effects.size() << " effects at each parameter, made by Kolm " KOLM_VERSION
       << ".</p>\n<nav aria-label=\"Effects\"><ol>\n";
  for (const EffectPictures& pictures : effects) {
    page << "<li><a href=\"#" << pictures.effect.name << "\">" << pictures.effect.title
         << "</a></li>\n";
  }
  page << "</ol></nav>\n<figure>" << PictureElement(source, "id=\"source\"", "The source picture")
       << "<figcaption>Source</figcaption></figure>\n</header>\n"
       << "<div class=\"compare\" hidden><label><input type=\"checkbox\" id=\"compare\" checked> "
       << "Show the source beside each result</label></div>\n<main>\n";
  for (const EffectPictures& pictures : effects) WriteSection(page, pictures);
  page << "</main>\n" << kScript << "</body>\n</html>\n";
  return page.str();
}

}  // namespace kolm
