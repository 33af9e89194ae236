// Where the module's debugger lines go.
#pragma once

#include <functional>
#include <string>

namespace kolm {

// To a file, to standard error ("-") or nowhere (""). Throws Failure.
void DirectDebugLines(const std::string& file);

// Throws Failure if a line could not be written: when it came, that could not be told, as the
// module lets no exception through.
void CheckDebugLines();

// Also shows each line to `observer`, on the thread that calls the module.
void ObserveDebugLines(std::function<void(const std::string& text)> observer);

}  // namespace kolm
