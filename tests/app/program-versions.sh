#!/usr/bin/env bash
# Each program prints the build's one version, and tonvy does so without a
# display (the manual pages are made from this output at build time).
#
#   program-versions.sh BIN_DIR VERSION
set -u
bin="$1"
version="$2"
failed=0
for program in tonvy tonvy-cli tonvy-terminal; do
  out=$(env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM "$bin/$program" --version 2>/dev/null)
  status=$?
  if [ "$status" -ne 0 ] || [ "$out" != "$program $version" ]; then
    echo "FAIL: $program --version gave \"$out\" (exit $status), expected \"$program $version\""
    failed=1
  else
    echo "ok: $out"
  fi
done
help=$(env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM "$bin/tonvy" --help 2>/dev/null)
if [ $? -ne 0 ] || ! grep -q -- '--data-dir' <<<"$help"; then
  echo "FAIL: tonvy --help without a display"
  failed=1
else
  echo "ok: tonvy --help without a display"
fi
exit "$failed"
