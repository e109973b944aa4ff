#!/usr/bin/env bash
# How long the window cannot draw while an hour of audio opens, is edited and
# saves: the program under Xvfb with GLWE_FRAME_STATS, driven with xdotool.
# Each stage runs in a program of its own and prints its longest busy frame.
#   bench/frame_gaps.sh [BUILD_DIR]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build}"
app="$build/app/glwaveedit"
work="$(mktemp -d)"
trap 'kill "${xvfb:-0}" 2>/dev/null || true; rm -rf "$work"' EXIT

hour="$work/hour.wav"
ffmpeg -v error -y -f lavfi -i "sine=f=440:d=3600" -ac 2 -ar 44100 "$hour"

display=":$((100 + RANDOM % 50))"
Xvfb "$display" -screen 0 1280x800x24 -nolisten tcp 2>/dev/null &
xvfb=$!
sleep 1
export DISPLAY="$display" HOME="$work/home" GLWE_AUDIO_OUTPUT=silent GLWE_FILE_CHOOSER=prompt GLWE_FRAME_STATS=1
mkdir -p "$HOME"

# run STAGE KEYS...: opens the hour, waits for it, sends KEYS, quits.
run() {
  local stage="$1"; shift
  "$app" "$hour" 2>"$work/$stage.log" &
  local pid=$!
  local window
  window=$(xdotool search --sync --pid "$pid" --name GLWaveEdit | head -1)
  xdotool windowfocus --sync "$window"
  until xdotool getwindowname "$window" | grep -q "hour.wav"; do sleep 0.2; done
  for keys in "$@"; do
    if [ "$keys" = drag-middle ]; then
      # A shift-drag over the middle tenth of the plot: ten seconds or so.
      eval "$(xdotool getwindowgeometry --shell "$window")"
      xdotool mousemove --window "$window" $((WIDTH * 45 / 100)) $((HEIGHT / 2)); sleep 0.2
      xdotool keydown shift mousedown 1; sleep 0.2
      xdotool mousemove --window "$window" $((WIDTH * 50 / 100)) $((HEIGHT / 2)); sleep 0.1
      xdotool mousemove --window "$window" $((WIDTH * 55 / 100)) $((HEIGHT / 2)); sleep 0.1
      xdotool mouseup 1 keyup shift; sleep 1.5
    elif [ "$keys" = wait-save ]; then
      until ls "$work"/*edited* >/dev/null 2>&1 && ! xdotool getwindowname "$window" | grep -q '^\*'; do sleep 0.2; done
      sleep 1
    else
      xdotool key "$keys"; sleep 1.5
    fi
  done
  xdotool key ctrl+q; sleep 0.5; xdotool key d  # "Don't save" where it asks
  wait "$pid" || true
  printf '%-8s %s\n' "$stage" "$(grep 'longest busy' "$work/$stage.log" | sed 's/.*frames, //')"
  grep 'busy' "$work/$stage.log" | grep -v longest | sed 's/^/         /' | head -5 || true
}

echo "Longest stretch without drawing, 60-minute 44.1 kHz stereo WAV (decoded 1.38 GB):"
run open
run gain ctrl+a ctrl+Down
run cut drag-middle ctrl+x
run save ctrl+shift+s Return wait-save
run play space space space
