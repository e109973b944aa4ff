#!/usr/bin/env bash
# Wall time and peak memory to open a 60-minute stereo MP3 in the editor,
# beside ffmpeg decoding the same file to 48 kHz stereo float on one thread.
# Usage: bench/import_hour_mp3.sh [BUILD_DIR]   (default: build)
set -euo pipefail
build=${1:-build}
file=$build/bench-hour.mp3
if [ ! -f "$file" ]; then
  ffmpeg -hide_banner -loglevel error -y -f lavfi -i "sine=frequency=440:duration=3600" \
    -f lavfi -i "anoisesrc=color=pink:amplitude=0.1:duration=3600" \
    -filter_complex "[0][1]amerge=inputs=2" -c:a libmp3lame -b:a 192k "$file"
fi
measure() {
  /usr/bin/time -f "  wall %e s, peak memory %M KiB" "$@"
}
echo "editor (SetExternalPeakWaveform):"
measure "$build/bench/open_file" "$file"
echo "ffmpeg -threads 1 -i FILE -f f32le -ar 48000 -ac 2 -y /dev/null:"
measure ffmpeg -hide_banner -loglevel error -threads 1 -i "$file" -f f32le -ar 48000 -ac 2 -y /dev/null
