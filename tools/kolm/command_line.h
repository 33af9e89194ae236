// What the commands share in reading the command line: ranges of numbers, and the text of errors.
#pragma once

#include <CLI/CLI.hpp>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>

namespace kolm {

// A check for options: takes what is a number from `least` to `most`, and so neither NaN, which
// compares with neither, nor infinity.
template <typename Number>
CLI::Validator NumberFrom(Number least, Number most = std::numeric_limits<Number>::max()) {
  std::ostringstream range;
  range << "from " << least;
  if (most < std::numeric_limits<Number>::max()) range << " to " << most;
  const std::string kind = std::is_integral_v<Number> ? "a whole number " : "a number ";
  const auto check = [=, range = range.str()](const std::string& text) -> std::string {
    Number number{};
    if (CLI::detail::lexical_cast(text, number) && number >= least && number <= most) return {};
    return "'" + text + "' cannot be used; expected " + kind + range;
  };
  return CLI::Validator(check, range.str());
}

// What is wrong with a command line that `app` refused, what is expected in its place, and where to
// read more.
std::string ExplainError(const CLI::App& app, const CLI::ParseError& error);

}  // namespace kolm
