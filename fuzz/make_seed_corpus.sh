#!/usr/bin/env bash
# Writes the fuzzers' seed inputs into OUT_DIR/import, OUT_DIR/decode and
# OUT_DIR/restore_state:
# short, small files in every format the editor opens (made here with ffmpeg,
# never kept in the repository) and a few saved window states.
# Usage: fuzz/make_seed_corpus.sh OUT_DIR
set -euo pipefail
out=${1:?usage: $0 OUT_DIR}
mkdir -p "$out/import" "$out/decode" "$out/restore_state"

ff() { ffmpeg -hide_banner -loglevel error -y "$@"; }
tone=(-f lavfi -i "sine=frequency=440:duration=0.12")
# Audio: one short tone per format, small enough that mutations stay cheap.
ff -f lavfi -i "sine=frequency=440:duration=0.02" -ac 2 -ar 48000 -c:a pcm_s16le "$out/import/stereo.wav"
ff "${tone[@]}" -ac 1 -ar 8000 -c:a pcm_u8 "$out/import/mono8k.wav"
ff -f lavfi -i "sine=frequency=440:duration=0.02" -ac 2 -c:a pcm_f32le "$out/import/float.wav"
ff "${tone[@]}" -ac 2 -c:a flac "$out/import/tone.flac"
ff "${tone[@]}" -ac 2 -c:a libmp3lame -b:a 32k "$out/import/tone.mp3"
ff "${tone[@]}" -ac 2 -c:a libvorbis -q:a 0 "$out/import/tone.ogg"
ff "${tone[@]}" -ac 2 -c:a libopus -b:a 16k "$out/import/tone.opus"
ff "${tone[@]}" -ac 2 -c:a aac -b:a 32k "$out/import/tone.m4a"
ff "${tone[@]}" -ac 2 -c:a aac -b:a 32k -f adts "$out/import/tone.aac"
ff -f lavfi -i "sine=frequency=220:duration=0.12" -ac 6 -c:a flac "$out/import/surround.flac"
# A video container with audio: a few tiny frames beside the tone.
ff -f lavfi -i "testsrc=size=16x16:rate=10:duration=0.2" "${tone[@]}" -c:v mpeg4 -c:a aac -b:a 32k \
  -shortest "$out/import/clip.mp4"
ff -f lavfi -i "testsrc=size=16x16:rate=10:duration=0.2" "${tone[@]}" -c:v mpeg4 -c:a libvorbis \
  -shortest "$out/import/clip.mkv"

# The program's decoder: the same files, and a few long enough for their two
# halves to be joined (the second half wants 16 packets before the middle).
cp "$out/import"/* "$out/decode/"
low=(-f lavfi -i "sine=frequency=440:sample_rate=8000:duration=3")
ff "${low[@]}" -c:a libmp3lame -b:a 8k "$out/decode/halves.mp3"
ff "${low[@]}" -c:a libvorbis -q:a 0 "$out/decode/halves.ogg"
ff "${low[@]}" -c:a flac -frame_size 256 "$out/decode/halves.flac"
ff -f lavfi -i "sine=frequency=440:sample_rate=8000:duration=6" -c:a aac -b:a 8k -aac_pns 0 "$out/decode/halves.m4a"

# Saved window states: what the editor writes, and near misses.
state=$out/restore_state
echo '{"view_start_sec":0.5,"view_end_sec":1.5,"selection_start_sec":0.25,"selection_end_sec":0.75}' >"$state/plain.json"
echo '{"view_start_sec":-3,"view_end_sec":1e308,"selection_start_sec":9e18,"selection_end_sec":-1e-320}' >"$state/extreme.json"
echo '{"view_start_sec":"1","view_end_sec":null,"selection_start_sec":[1],"selection_end_sec":{"a":2}}' >"$state/types.json"
echo '[{"view_start_sec":1}]' >"$state/array.json"
