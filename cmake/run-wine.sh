#!/bin/bash
# Runs a Windows program: run-wine.sh PROGRAM.exe [ARGUMENT...]
#
# The Wine prefix is build/wine (or TOLVANE_WINEPREFIX), made on first use. The compiler's own
# libraries are found where the cross compiler keeps them; WINEPATH may name further folders.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export WINEPREFIX=${TOLVANE_WINEPREFIX:-$root/build/wine}
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml,winemenubuilder.exe=}
unset DISPLAY WAYLAND_DISPLAY

compiler=x86_64-w64-mingw32-g++-posix
for library in libstdc++-6.dll libwinpthread-1.dll; do
  file=$("$compiler" -print-file-name="$library")
  folder=$(cd "$(dirname "$file")" && pwd)
  WINEPATH="Z:${folder//\//\\}${WINEPATH:+;$WINEPATH}"
done
export WINEPATH

# The emulator needs a page at a fixed address. Where the system places its heap at random, this is
# where that page belongs in one of some 8,000 processes, which then ends with 1 without a word.
launcher=()
if setarch "$(uname -m)" -R true 2>/dev/null; then
  launcher=(setarch "$(uname -m)" -R)
fi

if [[ ! -e $WINEPREFIX/ready ]]; then
  mkdir -p "$WINEPREFIX"
  (
    flock 9
    if [[ ! -e $WINEPREFIX/ready ]]; then
      # The emulated system lives on after this; it must not inherit the lock.
      "${launcher[@]}" wine wineboot --init >/dev/null 2>&1 9>&-
      touch "$WINEPREFIX/ready"
    fi
  ) 9>"$WINEPREFIX.lock"
fi

exec "${launcher[@]}" wine "$@"
