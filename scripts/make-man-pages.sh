#!/bin/bash
# Writes the tool's man pages: kolm.1, and kolm-COMMAND.1 for each command, all from its --help.
# Usage: scripts/make-man-pages.sh KOLM FOLDER
set -euo pipefail
kolm=$(realpath "$1")
folder=$2
version=$("$kolm" --version)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$folder"
rm -f "$folder"/*.1

# help2man wants options apart by ", ", examples after a prompt, and sections of its own kind.
layout='
  s/^ *(-.),--/  \1, --/
  /^Examples:/,/^$/ s/^  /  $ /
  s/^Positionals:/*Arguments*/
  s/^Subcommands:/*Commands*/
  s/^Exit codes:/*Exit status*/
  s/^Keys:/*Keys*/
  s/^  ([0-9]+) +/  \1  /
  /^\[Option Group/,/^$/ {
    s/^ +\[(.*)\]/\1:/
    /^\[|^ +$|^ *Options:/d
    s/^ +-/  -/
  }'

# Writes the page of a command and those of its own commands.
write_page() {
  local page help command related=()
  page=$(IFS=-; echo "kolm${*:+-$*}")
  help=$("$kolm" "$@" --help)
  # Named like the page, which is how help2man finds the page's name.
  printf '#!/bin/sh\ncat <<"END"\n%s\nEND\n' "$(sed -E "$layout" <<<"$help")" >"$work/$page"
  chmod +x "$work/$page"
  while read -r command; do
    write_page "$@" "$command"
    related+=("\\fB$page-$command\\fR(1)")
  done < <(sed -n '/^Subcommands:/,/^$/ s/^  \([a-z][a-z-]*\) .*/\1/p' <<<"$help")
  if [ $# -gt 0 ]; then related+=("\\fBkolm\\fR(1)"); fi
  printf '[SEE ALSO]\n' >"$work/related"
  printf '%s\n' "${related[@]/%/,}" | sed '$ s/,$//' >>"$work/related"
  help2man --no-info --name "$(head -n 1 <<<"$help" | sed 's/^./\L&/; s/\.$//')" \
    --version-string "$page ${version#kolm }" --include "$work/related" \
    --output "$folder/$page.1" "$work/$page"
}

write_page
