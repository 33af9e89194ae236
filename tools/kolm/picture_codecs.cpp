// Loads the module of picture codecs.
#include "tools/kolm/picture_codecs.h"

#include <dlfcn.h>

#include "tools/kolm/failure.h"

namespace kolm {
namespace {

const PictureCodecs& Load() {
  // Looked for where this program's own header tells: beside it, or where it is installed.
  constexpr const char* kModule = "kolm_pictures.so";
  void* library = dlopen(kModule, RTLD_NOW);
  void* table = library == nullptr ? nullptr : dlsym(library, "kolmPictureCodecs");
  if (table == nullptr) {
    throw Failure(ExitCode::Unexpected,
                  std::string("pictures can be neither read nor written: the tool's module ") +
                      kModule + " cannot be loaded (" + dlerror() + "); install the tool again");
  }
  return *static_cast<const PictureCodecs*>(table);
}

}  // namespace

const PictureCodecs& LoadPictureCodecs() {
  static const PictureCodecs& codecs = Load();
  return codecs;
}

}  // namespace kolm
